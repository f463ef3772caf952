#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "server/announcements.h"

namespace msp::lab {
namespace {

TEST(Announcements, anythingBecomesOnePrintableLine) {
  struct Case {
    std::string_view name, text;
    std::size_t limit;
    std::string_view expected;
  };
  constexpr Case kCases[] = {
      {"text stays", "Büro-Mac", 20, "Büro-Mac"},
      {"line ends and control characters become blanks", "a\nb\tc\x1b[1m\x7f", 20, "a b c [1m "},
      {"exactly at the limit nothing is cut", "12345", 5, "12345"},
      {"beyond the limit it is", "123456", 5, "12345..."},
      {"a character is not cut in two", "123\u00fc", 4, "123..."},
      {"nothing but half a character", "\u2028", 2, "..."},
      {"the empty text", "", 5, ""},
  };
  for (const Case& row : kCases) EXPECT_EQ(printable(row.text, row.limit), row.expected) << row.name;
}

TEST(Announcements, sizesAreInGigabytes) {
  EXPECT_EQ(sizeText(17179869184, true), "16.0 GB");
  EXPECT_EQ(sizeText(494384795648, false), "494.4 GB");
  EXPECT_EQ(sizeText(0, false), "0.0 GB");
}

TEST(Announcements, aCheckInIsTheMachineInOneLine) {
  const Json report = {{"os_build", "14.5"},
                       {"hw_serial_number", "C02ZK1ABCDEF"},
                       {"hw_model", "Mac14,2"},
                       {"ram", 8589934592},
                       {"os_name", "macOS"},
                       {"name", "Annas-MacBook-Air"},
                       {"ipv4_address", "192.168.1.23"},
                       {"wan_ipv4_address", ""},
                       {"load_average", "1.52, 1.61, 1.70"},
                       {"free_ram", 2147483648},
                       {"primary_drive_size", 494384795648},
                       {"primary_drive_free_space", 120000000000}};
  EXPECT_EQ(checkInLine(3, report),
            "check-in 3: Annas-MacBook-Air, macOS 14.5, Mac14,2, serial C02ZK1ABCDEF, addresses 192.168.1.23 "
            "(local) "
            "- (public), memory 8.0 GB (2.0 GB free), disk 494.4 GB (120.0 GB free), load 1.52, 1.61, 1.70");
}

TEST(Announcements, whatAReportLacksIsAQuestionMark) {
  const std::string unknown =
      "check-in 1: ?, ? ?, ?, serial ?, addresses ? (local) ? (public), memory ? (? free), disk ? (? free), "
      "load ?";
  EXPECT_EQ(checkInLine(1, Json::object()), unknown);
  EXPECT_EQ(checkInLine(1, nullptr), unknown);
  EXPECT_EQ(checkInLine(1, {{"name", 1}, {"ram", "8"}, {"load_average", nullptr}}), unknown);
}

TEST(Announcements, jobsAndTheirResultsAreOneLineEach) {
  EXPECT_EQ(registrationLine("A\nMac", "u"), "registration: A Mac -> u");
  EXPECT_EQ(jobQueuedLine(makeJob(1, "get_processes", nullptr)), "job 1 queued: get_processes");
  EXPECT_EQ(jobQueuedLine(makeJob(2, "kill_process", {{"pid", "9"}})),
            R"(job 2 queued: kill_process {"pid":"9"})");

  struct Case {
    std::string_view name;
    Json result;
    std::string_view expected;
  };
  const Case cases[] = {
      {"a success with a list",
       {{"id", 1}, {"message", ""}, {"success", 1}, {"network_interfaces", {1, 2}}},
       "job 1 (t): success, 2 network interfaces"},
      {"a success with a message",
       {{"id", 1}, {"message", "two\nlines"}, {"success", 1}},
       "job 1 (t): success, \"two lines\""},
      {"a failure",
       {{"id", 1}, {"message", "Unknown task t"}, {"success", 0}},
       "job 1 (t): failure, \"Unknown task t\""},
      {"success is a number", {{"id", 1}, {"message", ""}, {"success", true}}, "job 1 (t): failure"},
      {"nothing in it", Json::object(), "job ? (t): failure"},
      {"no object", 5, "job ? (t): failure"},
  };
  for (const Case& row : cases) EXPECT_EQ(resultLine("t", row.result), row.expected) << row.name;
}

}  // namespace
}  // namespace msp::lab
