// Asked for by the thread sanitizer, which does not see how the lab servers' HTTP library, itself built
// without it, initializes the regular expressions, the locale and the method names that its threads share.
// Only what happens inside the library, inside regular expressions and, since the library compares names with
// it, in memcmp itself is left out; our own code below the library is watched.
extern "C" const char* __tsan_default_suppressions();  // NOLINT(readability-identifier-naming)
const char* __tsan_default_suppressions() {
  return "race_top:libcpp-httplib.so\n"
         "race_top:std::__detail::\n"
         "race_top:std::_Base_bitset\n"
         "race_top:memcmp\n";
}
