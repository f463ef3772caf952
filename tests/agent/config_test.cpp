#include "agent/config.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/captured_log.h"
#include "support/temporary_directory.h"

namespace msp {
namespace {

const Config kConfig{"http://127.0.0.1/api", "4F2A", "17", "3.3.1"};

class ConfigFilesTest : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& content) const {
    std::ofstream(directory.file(name)) << content;
  }

  const test::CapturedLog log;
  test::TemporaryDirectory directory;
  ConfigFiles files{directory.path()};
};

TEST(ConfigText, isReadWhenAllFourKeysHoldTexts) {
  struct Case {
    const char* name;
    const char* text;
    std::optional<Config> expected;
  };
  const Case cases[] = {
      {"in any order, with others beside them",
       R"({"agent_version":"3.3.1","other":[1],"agent_id":"17","api_uuid":"4F2A","api_url":"http://127.0.0.1/api"})",
       kConfig},
      {"empty texts count", R"({"api_url":"","api_uuid":"","agent_id":"","agent_version":""})", Config{}},
      {"a key missing", R"({"api_url":"a","api_uuid":"b","agent_id":"c"})", std::nullopt},
      {"a number", R"({"api_url":"a","api_uuid":"b","agent_id":17,"agent_version":"3.3.1"})", std::nullopt},
      {"null", R"({"api_url":"a","api_uuid":null,"agent_id":"c","agent_version":"3.3.1"})", std::nullopt},
      {"a list", "[]", std::nullopt},
      {"nothing", "", std::nullopt},
      {"half of it", R"({"api_url":"a","api_u)", std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(parseConfig(c.text), c.expected) << c.name;
}

TEST_F(ConfigFilesTest, comeBackAsTheyWereStored) {
  EXPECT_EQ(files.load(), std::nullopt);
  files.store(kConfig);
  EXPECT_EQ(files.load(), kConfig);
  files.store({"http://other/", "ü", "\"", "3.3.2"});
  EXPECT_EQ(files.load(), (Config{"http://other/", "ü", "\"", "3.3.2"}));
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(ConfigFilesTest, keepTheIdentityFromOtherUsersEyes) {
  const mode_t before = umask(0);
  files.store(kConfig);
  umask(before);
  struct stat info {};
  ASSERT_EQ(stat(directory.file("config.ini").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

TEST_F(ConfigFilesTest, lookForTheIdentityInTheAgentsDirectory) {
  EXPECT_EQ(files.configFileURL(true), std::nullopt);
  EXPECT_EQ(files.configFileURL(false), directory.file("config.ini"));
  write("config.ini", "{}");
  EXPECT_EQ(files.configFileURL(true), directory.file("config.ini"));
  const ConfigFiles nowhere(directory.file("missing"));
  EXPECT_EQ(nowhere.configFileURL(false), std::nullopt);
  EXPECT_EQ(nowhere.load(), std::nullopt);
  nowhere.store(kConfig);
  EXPECT_EQ(nowhere.defaultAPIAddress(), std::nullopt);
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(ConfigFilesTest, logThatAnIdentityCouldNotBeWritten) {
  files.store({"\xFF", "", "", ""});
  std::filesystem::create_directory(directory.file("config.ini"));
  files.store(kConfig);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"Error converting config to JSON: invalid UTF-8 byte at index 0: 0xFF",
                                      "Error converting config to JSON: Is a directory"}));
}

TEST_F(ConfigFilesTest, readTheServersAddressTrimmed) {
  struct Case {
    const char* content;
    const char* expected;
  };
  const Case cases[] = {
      {"https://server.example/api", "https://server.example/api"},
      {"https://server.example/api\n", "https://server.example/api"},
      {" \t\r\n https://server.example/api \r\n\n ", "https://server.example/api"},
      {"\xC2\xA0https://server.example/api\xE2\x80\xA9", "https://server.example/api"},
      {"", ""},
  };
  for (const Case& c : cases) {
    write("default_api.txt", c.content);
    EXPECT_EQ(files.defaultAPIAddress(), c.expected) << c.content;
  }
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(ConfigFilesTest, haveNoServersAddressWhenTheFileIsMissingOrUnreadable) {
  EXPECT_EQ(files.defaultAPIAddress(), std::nullopt);
  EXPECT_TRUE(log.messages().empty()) << "a missing file is nothing to report";
  write("default_api.txt", "http://\xFF/");
  EXPECT_EQ(files.defaultAPIAddress(), std::nullopt);
  std::filesystem::remove(directory.file("default_api.txt"));
  std::filesystem::create_directory(directory.file("default_api.txt"));
  EXPECT_EQ(files.defaultAPIAddress(), std::nullopt);
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"No default API address.", "No default API address."}));
}

}  // namespace
}  // namespace msp
