#include "platform/smc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/simulated_controller.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;
using test::SimulatedConnection;
using test::SimulatedController;

SMCBytes bytesOf(std::initializer_list<std::uint8_t> first) {
  SMCBytes bytes{};
  std::copy(first.begin(), first.end(), bytes.begin());
  return bytes;
}

SMCBytes floatBytes(float value) {
  SMCBytes bytes{};
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

TEST(DecodeSMCValue, everyRowOfTheTable) {
  struct Case {
    std::string_view name, type;
    SMCBytes bytes;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {"one byte", "ui8 ", bytesOf({200, 9}), 200},
      {"two bytes", "ui16", bytesOf({0x12, 0x34, 9}), 0x1234},
      {"two bytes are unsigned", "ui16", bytesOf({0xFF, 0xFF}), 65535},
      {"four bytes", "ui32", bytesOf({0xFE, 0xDC, 0xBA, 0x98}), 0xFEDCBA98},
      {"sp1e", "sp1e", bytesOf({0x60, 0x00}), 1.5},
      {"sp5b has the divisor of its first row", "sp5b", bytesOf({0x10, 0x00}), 1},
      {"sp5a", "sp5a", bytesOf({0x06, 0x00}), 1.5},
      {"sp69 is no type: the row is spelled otherwise", "sp69", bytesOf({0x02, 0x00}), std::nullopt},
      {"sp78", "sp78", bytesOf({0x2D, 0x80}), 45.5},
      {"sp78 without its sign", "sp78", bytesOf({0xFF, 0x00}), 255},
      {"sp96 has the divisor of its first row", "sp96", bytesOf({0x01, 0x00}), 2},
      {"spb4 has the divisor of its first row", "spb4", bytesOf({0x00, 0x30}), 1.5},
      {"spf0", "spf0", bytesOf({0x01, 0x02}), 258},
      {"a float in the machine's own order", "flt ", floatBytes(46.25F), 46.25},
      {"a negative float", "flt ", floatBytes(-2.5F), -2.5},
      {"fpe2", "fpe2", bytesOf({0x1F, 0x40}), 2000},
      {"fpe2 drops the fraction", "fpe2", bytesOf({0x1F, 0x43}), 2000},
      {"sp3c is not known", "sp3c", bytesOf({1, 1}), std::nullopt},
      {"sp4b is not known", "sp4b", bytesOf({1, 1}), std::nullopt},
      {"sp87 is not known", "sp87", bytesOf({1, 1}), std::nullopt},
      {"spa5 is not known", "spa5", bytesOf({1, 1}), std::nullopt},
      {"text is not known", "ch8*", bytesOf({'a'}), std::nullopt},
      {"a flag is not known", "flag", bytesOf({1}), std::nullopt},
      {"a name without its blank is not known", "ui8", bytesOf({1}), std::nullopt},
      {"capitals are not known", "UI8 ", bytesOf({1}), std::nullopt},
      {"no type", "", bytesOf({1}), std::nullopt},
  };
  for (const Case& row : cases) EXPECT_EQ(decodeSMCValue(row.type, row.bytes), row.expected) << row.name;
}

TEST(DecodeSMCValue, aTypeOfFiveCharactersCannotComeFromTheDriver) {
  // The row is there, for whoever looks it up by name; a controller's types have four characters.
  EXPECT_EQ(decodeSMCValue("sp669", bytesOf({0x02, 0x00})), 1);
}

TEST(DecodeSMCValue, whateverTheBytesItIsANumberOfItsType) {
  std::mt19937 random(5);
  for (int round = 0; round < 20000; ++round) {
    SMCBytes bytes{};
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    EXPECT_EQ(decodeSMCValue("ui8 ", bytes), bytes[0]);
    const double u16 = bytes[0] * 256 + bytes[1];
    EXPECT_EQ(decodeSMCValue("sp78", bytes), u16 / 256);
    EXPECT_EQ(decodeSMCValue("fpe2", bytes), std::floor(u16 / 4));
    EXPECT_EQ(decodeSMCValue("ui32", bytes), u16 * 65536 + bytes[2] * 256 + bytes[3]);
    EXPECT_TRUE(decodeSMCValue("flt ", bytes));
  }
}

class SMCTest : public testing::Test {
 protected:
  SMC open() { return SMC(std::make_unique<SimulatedConnection>(controller_)); }
  /// What is printed while `action` runs.
  template <typename Action>
  static std::string printed(Action action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
  }

  SimulatedController controller_;
};

TEST_F(SMCTest, aValueIsAskedForInTwoQuestions) {
  controller_.keys = {{"Tp01", "sp78", {0x2D, 0x80}}};
  const SMC smc = open();
  EXPECT_EQ(smc.readKeyValue("Tp01"), 45.5);

  ASSERT_EQ(controller_.questions.size(), 2U);
  SMCKeyData expected;
  expected.key = 0x54703031;  // "Tp01"
  expected.command = 9;
  EXPECT_EQ(std::memcmp(&controller_.questions[0], &expected, sizeof expected), 0);
  expected.command = 5;
  expected.dataSize = 2;
  EXPECT_EQ(std::memcmp(&controller_.questions[1], &expected, sizeof expected), 0);
}

TEST_F(SMCTest, theRecordIsLaidOutAsTheDriverReadsIt) {
  SMCKeyData record;
  record.key = 0x54703031;
  record.dataSize = 2;
  record.dataType = 0x73703738;
  record.command = 9;
  record.index = 0x01020304;
  record.bytes[0] = 0xAA;
  std::array<std::uint8_t, 80> bytes{};
  std::memcpy(bytes.data(), &record, sizeof record);
  std::array<std::uint8_t, 80> expected{};
  const std::pair<std::size_t, std::uint8_t> set[] = {
      {0, 0x31},  {1, 0x30}, {2, 0x70},  {3, 0x54},  {28, 2},    {32, 0x38}, {33, 0x37}, {34, 0x70},
      {35, 0x73}, {42, 9},   {44, 0x04}, {45, 0x03}, {46, 0x02}, {47, 0x01}, {48, 0xAA}};
  for (const auto& [at, byte] : set) expected.at(at) = byte;
  EXPECT_EQ(bytes, expected);
}

TEST_F(SMCTest, whatAKeyReadsAs) {
  std::vector<std::uint8_t> lastByteSet(32);
  lastByteSet.back() = 1;
  controller_.keys = {
      {"zero", "ui16", {0, 0}},
      {"FS! ", "ui16", {0, 0}},
      {"F0Md", "ui8 ", {0}},
      {"F1Md", "ui8 ", {0}},
      {"none", "ui8 ", {}},
      {"sp69", "sp69", {2, 0}},
      {"long", "ui8 ", std::vector<std::uint8_t>(32, 7), 33},
      {"huge", "ui8 ", std::vector<std::uint8_t>(32, 7), 0xFFFFFFFFU},
      {"more", "ui32", {0, 0, 1, 9}, 2},
      {"last", "ui8 ", lastByteSet},
      {"cut.", "ui32", {1, 2}},
      {"nan.", "flt ", {0, 0, 0xC0, 0x7F}},
  };
  const SMC smc = open();
  struct Case {
    std::string_view name, key;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {"all bytes zero is no value", "zero", std::nullopt},
      {"but for this key", "FS! ", 0},
      {"and this one", "F0Md", 0},
      {"not for its neighbour", "F1Md", std::nullopt},
      {"an empty value", "none", std::nullopt},
      {"a type that is not known", "sp69", std::nullopt},
      {"a size over 32 is read as 32", "long", 7},
      {"the largest size too", "huge", 7},
      {"a byte that is not zero counts wherever it is", "last", 0},
      {"bytes behind the size are not copied", "more", std::nullopt},
      {"behind a short value are zeros", "cut.", 0x01020000},
      {"a key that the controller does not know", "gone", std::nullopt},
  };
  const std::string output = printed([&] {
    for (const Case& row : cases) EXPECT_EQ(smc.readKeyValue(row.key), row.expected) << row.name;
    EXPECT_TRUE(std::isnan(smc.readKeyValue("nan.").value_or(0)));
  });
  EXPECT_EQ(output, "") << "none of this is an error";
}

TEST_F(SMCTest, anEmptyValueIsNoneEvenWhereZeroIsAValue) {
  controller_.keys = {{"FS! ", "ui16", {}}};
  EXPECT_EQ(open().readKeyValue("FS! "), std::nullopt);
}

TEST_F(SMCTest, driverErrorsArePrinted) {
  controller_.keys = {{"info", "ui8 ", {1}}, {"read", "ui8 ", {1}}, {"bad.", "ui8 ", {1}}};
  controller_.infoErrors = {{"info", 5}, {"bad.", 7}};
  controller_.readErrors = {{"read", 6}};
  controller_.errorTexts = {{5, "(os/kern) failure"}, {7, "\xFF"}};
  const SMC smc = open();
  const std::string output = printed([&] {
    EXPECT_EQ(smc.readKeyValue("info"), std::nullopt);
    EXPECT_EQ(smc.readKeyValue("read"), std::nullopt);
    EXPECT_EQ(smc.readKeyValue("bad."), std::nullopt);
  });
  EXPECT_EQ(output,
            "Error read(info): (os/kern) failure\n"
            "Error read(read): unknown error\n"
            "Error read(bad.): unknown error\n");
}

TEST_F(SMCTest, whyItCouldNotBeOpenedIsPrintedAndEveryReadingFails) {
  controller_.errorTexts = {{0, "(os/kern) successful"}, {5, "(os/kern) failure"}};
  controller_.errorTexts[SimulatedConnection::kNotConnected] = "(ipc/send) invalid destination port";
  controller_.keys = {{"Tp01", "ui8 ", {1}}};
  struct Case {
    SMCConnection::OpenError error;
    std::string expected;
  };
  const Case cases[] = {
      {{"IOServiceGetMatchingServices", 5}, "Error IOServiceGetMatchingServices(): (os/kern) failure\n"},
      {{"IOIteratorNext", 0}, "Error IOIteratorNext(): (os/kern) successful\n"},
      {{"IOServiceOpen", 99}, "Error IOServiceOpen(): unknown error\n"},
  };
  for (const Case& row : cases) {
    controller_.openError = row.error;
    EXPECT_EQ(printed([&] {
                const SMC smc = open();
                EXPECT_EQ(smc.readKeyValue("Tp01"), std::nullopt);
                EXPECT_EQ(smc.allKeys(), Lines{});
              }),
              row.expected +
                  "Error read(Tp01): (ipc/send) invalid destination port\n"
                  "Error read(#KEY): (ipc/send) invalid destination port\n"
                  "ERROR no keys count found\n");
  }
  EXPECT_EQ(controller_.opened, 3) << "never a second time";
  EXPECT_EQ(controller_.closed, 0) << "what was not opened is not closed";
}

TEST_F(SMCTest, itIsClosedWithItsOwner) {
  EXPECT_EQ(printed([&] { open(); }), "");
  EXPECT_EQ(controller_.closed, 1);
  controller_.closeCode = 5;
  controller_.errorTexts = {{5, "(os/kern) failure"}};
  EXPECT_EQ(printed([&] { open(); }), "error close smc connection: (os/kern) failure\n");
}

TEST_F(SMCTest, allKeysAreAskedForByIndexAndOneMore) {
  controller_.keys = {{"#KEY", "ui32", {0, 0, 0, 3}}, {"Tp01", "ui8 ", {1}}, {"FS! ", "ui8 ", {1}}};
  const SMC smc = open();
  EXPECT_EQ(smc.allKeys(), (Lines{"#KEY", "Tp01", "FS! "}));
  ASSERT_EQ(controller_.questions.size(), 6U) << "two for the number, four for the keys";
  SMCKeyData expected;
  expected.command = 8;
  for (std::uint32_t index = 0; index < 4; ++index) {
    expected.index = index;
    EXPECT_EQ(std::memcmp(&controller_.questions[2 + index], &expected, sizeof expected), 0);
  }
}

TEST_F(SMCTest, aCallThatFailsIsNoKey) {
  // The number says more than there are.
  controller_.keys = {{"#KEY", "ui8 ", {9}}, {"Tp01", "ui8 ", {1}}, {"Tp05", "ui8 ", {1}}};
  controller_.unreadableIndices = {1};
  EXPECT_EQ(open().allKeys(), (Lines{"#KEY", "Tp05"}));
  EXPECT_EQ(controller_.questions.size(), 12U) << "two for the number, ten for the keys";
}

TEST_F(SMCTest, theNumberOfKeysIsCutToAnInteger) {
  controller_.addTemperature("#KEY", 0.9F);
  EXPECT_EQ(open().allKeys(), Lines{"#KEY"});
  controller_.keys.clear();
  controller_.addTemperature("#KEY", -1);
  EXPECT_EQ(open().allKeys(), Lines{});
}

TEST_F(SMCTest, withoutANumberThereAreNoKeys) {
  controller_.keys = {{"#KEY", "ui32", {0, 0, 0, 0}}};
  EXPECT_EQ(printed([&] { EXPECT_EQ(open().allKeys(), Lines{}); }), "ERROR no keys count found\n");
}

using SMCDeathTest = SMCTest;

TEST_F(SMCDeathTest, aKeyHasFourCharacters) {
  const SMC smc = open();
  for (const char* const key : {"", "Tp0", "Tp011"})
    EXPECT_DEATH((void)smc.readKeyValue(key), "^A controller key has four characters\n$");
}

TEST_F(SMCDeathTest, aNumberOfKeysThatIsNoIntegerEndsTheProcess) {
  for (const float count :
       {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(), 9.3e18F, -9.3e18F}) {
    controller_.keys.clear();
    controller_.addTemperature("#KEY", count);
    const SMC smc = open();
    EXPECT_DEATH((void)smc.allKeys(), "^The number of controller keys is no integer\n$");
  }
}

TEST_F(SMCTest, severalThreadsReadAtOnce) {
  controller_.keys = {{"Tp01", "sp78", {0x2D, 0x80}}};
  const SMC smc = open();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&smc] {
      for (int reading = 0; reading < 200; ++reading) EXPECT_EQ(smc.readKeyValue("Tp01"), 45.5);
    });
  for (auto& thread : threads) thread.join();
}

TEST(SharedSMC, isOneForAllThreads) {
  testing::internal::CaptureStdout();
  std::vector<const SMC*> seen(8);
  std::vector<std::thread> threads;
  for (const SMC*& mine : seen) threads.emplace_back([&mine] { mine = &sharedSMC(); });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::count(seen.begin(), seen.end(), &sharedSMC()), 8);
  testing::internal::GetCapturedStdout();
}

TEST(SystemSMCConnection, onThisSystemThereIsNoController) {
  testing::internal::CaptureStdout();
  const SMC smc(systemSMCConnection());
  EXPECT_EQ(smc.readKeyValue("Tp01"), std::nullopt);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Error IOIteratorNext(): (os/kern) successful\n"
            "Error read(Tp01): (ipc/send) invalid destination port\n");
}

}  // namespace
}  // namespace msp
