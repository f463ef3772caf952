// Asked for by the thread sanitizer, which does not see how the lab servers' HTTP library, itself built
// without it, initializes the regular expressions and the locale that its threads share. Only what happens
// inside the library and inside regular expressions is left out; our own code below it is watched.
extern "C" const char* __tsan_default_suppressions();  // NOLINT(readability-identifier-naming)
const char* __tsan_default_suppressions() {
  return "race_top:libcpp-httplib.so\n"
         "race_top:std::__detail::\n";
}
