#include "inventory/temperature_sensors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/machine_files.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kBrand = "sysctl -n machdep.cpu.brand_string";
constexpr const char* kPowermetrics = "powermetrics -s smc -n1 -i1";

TEST(ParsePowermetrics, theNumberBehindEachTemperature) {
  struct Case {
    std::string name, output;
    Temperatures expected;
  };
  const Case cases[] = {
      {"nothing", "", {0, 0}},
      {"both", "CPU die temperature: 48.25 C\nGPU die temperature: 41.00 C\n", {48.25, 41}},
      {"only the processor's", "Fan: 1199 rpm\nCPU die temperature: 48.25 C", {48.25, 0}},
      {"the last one counts", "CPU die temperature: 1 C\nCPU die temperature: 2 C", {2, 0}},
      {"one that does not parse keeps the one before",
       "CPU die temperature: 1 C\nCPU die temperature: x",
       {1, 0}},
      {"a line that begins otherwise", " CPU die temperature: 1 C\nmy GPU die temperature: 2 C", {0, 0}},
      {"nothing behind it", "CPU die temperature: ", {0, 0}},
      {"only blanks behind it", "CPU die temperature:    ", {0, 0}},
      {"white space around it", "CPU die temperature: \t 48.25\tC", {48.25, 0}},
      {"without a unit", "CPU die temperature: 48", {48, 0}},
      {"with the unit at it", "CPU die temperature: 48C", {0, 0}},
      {"a second colon ends it", "CPU die temperature: 48: 49 C", {48, 0}},
      {"a second piece that is empty", "CPU die temperature: : 5 C", {0, 0}},
      {"a decimal comma", "CPU die temperature: 48,25 C", {0, 0}},
      {"no blank behind the colon", "CPU die temperature:48 C", {0, 0}},
      {"below zero", "CPU die temperature: -3.5 C", {-3.5, 0}},
      {"of no known number", "CPU die temperature: nan C\nGPU die temperature: inf C", {0, 0}},
  };
  for (const Case& row : cases) EXPECT_EQ(parsePowermetrics(row.output), row.expected) << row.name;
}

TEST(ParsePowermetrics, whateverIsPrintedTheTemperaturesAreNumbers) {
  const std::string pieces[] = {"CPU die temperature: ",
                                "GPU die temperature: ",
                                "48.25",
                                " C",
                                "\n",
                                ": ",
                                "1e999",
                                "\xFF",
                                "nan",
                                " ",
                                "-1",
                                "\u2028"};
  std::mt19937 random(13);
  int found = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string output;
    for (auto count = random() % 20; count > 0; --count) output += pieces[random() % std::size(pieces)];
    const Temperatures temperatures = parsePowermetrics(output);
    ASSERT_TRUE(std::isfinite(temperatures.cpu) && std::isfinite(temperatures.gpu)) << output;
    if (temperatures != Temperatures{}) ++found;
  }
  EXPECT_GT(found, 100);
}

TEST(ParsePowermetrics, wellFormedLinesComeBackAsTheyWere) {
  std::mt19937 random(14);
  for (int round = 0; round < 1000; ++round) {
    // Hundredths, as the tool prints them.
    const auto cpu = static_cast<int>(random() % 12000);
    const auto gpu = static_cast<int>(random() % 12000);
    const auto printed = [](int hundredths) {
      return std::to_string(hundredths / 100) + "." + std::to_string(hundredths / 10 % 10) +
             std::to_string(hundredths % 10) + " C\n";
    };
    ASSERT_EQ(parsePowermetrics("Fan: 1 rpm\nCPU die temperature: " + printed(cpu) +
                                "GPU die temperature: " + printed(gpu)),
              (Temperatures{cpu / 100.0, gpu / 100.0}));
  }
}

class AverageTemperature : public testing::Test {
 protected:
  [[nodiscard]] double average(bool isGPU, const std::string& brand) const {
    return averageTemperature(isGPU, brand, host_);
  }

  test::FakeHost host_;
};

TEST_F(AverageTemperature, isOfReadingsStrictlyBetween10And110) {
  auto& controller = host_.controller();
  controller.addTemperature("Tp1h", 45);
  controller.addTemperature("Tp1t", 47);
  controller.addTemperature("Tp1p", 120);
  controller.addTemperature("Tp1l", 10);
  controller.addTemperature("Tp01", 110);
  controller.addTemperature("Tp09", -40);
  controller.addTemperature("Tp0f", NAN);
  controller.addTemperature("Tg0f", 10.5F);
  controller.addTemperature("Tg0j", 109.5F);
  EXPECT_EQ(average(false, "Apple M2"), 46);
  EXPECT_EQ(average(true, "Apple M2"), 60);
}

TEST_F(AverageTemperature, isRoundedToOneDecimalPlaceAwayFromZero) {
  struct Case {
    float first, second;
    double expected;
  };
  const Case cases[] = {{40, 40.5F, 40.3}, {40, 40.125F, 40.1}, {40.25F, 40.25F, 40.3}, {39.5F, 40, 39.8}};
  for (const Case& row : cases) {
    test::FakeHost host;
    host.controller().addTemperature("Tg0f", row.first);
    host.controller().addTemperature("Tg0j", row.second);
    EXPECT_EQ(averageTemperature(true, "M2", host), row.expected);
  }
}

TEST_F(AverageTemperature, withoutReadingsIsZero) { EXPECT_EQ(average(false, "Apple M1"), 0); }

TEST_F(AverageTemperature, readsTheKeysOfTheChip) {
  struct Case {
    std::string brand;
    bool isGPU;
    std::string keys;
  };
  const std::string m1 = "Tp01 Tp05 Tp0D Tp0H Tp0L Tp0P Tp0X Tp0b Tp09 Tp0T Tc0a Tc0b Tc0x Tc0z ";
  const Case cases[] = {
      {"Apple M1", false, m1},
      {"Apple M1 Max", false, m1},
      {"Apple M1", true, "Tg05 Tg0D Tg0L Tg0T Tg1b Tg4b "},
      {"Apple M2", false, "Tp1h Tp1t Tp1p Tp1l Tp01 Tp09 Tp0f Tp0n Tp05 Tp0D Tp0j Tp0r "},
      {"Apple M2 Ultra", true, "Tg0f Tg0j "},
      {"Apple M3 Pro", false, "Tp01 Tp09 Tp0f Tp0n Tp05 Tp0D Tp0j Tp0r "},
      {"Apple M3", true, "Tg0D Tg0P Tg0X Tg0b Tg0j Tg0v "},
      {"Apple M4", false, "Tp01 Tp09 Te0f Tp05 Tp0D "},
      {"Apple M4 Pro", true, "Tg0D Tg0P Tg0X Tg0j "},
      {"M4 or M1", false, m1},
      {"M4 M3 M2", true, "Tg0f Tg0j "},
      {"M4 M3", true, "Tg0D Tg0P Tg0X Tg0b Tg0j Tg0v "},
      {"Apple M5", false, ""},
      {"Apple processor", true, ""},
      {"apple m1", false, ""},
      {"", false, ""},
  };
  for (const Case& row : cases) {
    test::FakeHost host;
    EXPECT_EQ(averageTemperature(row.isGPU, row.brand, host), 0);
    std::string asked;
    for (const SMCKeyData& question : host.controller().questions) {
      if (question.command != 9) continue;
      for (const unsigned int shift : {24U, 16U, 8U, 0U}) asked += static_cast<char>(question.key >> shift);
      asked += ' ';
    }
    EXPECT_EQ(asked, row.keys) << row.brand;
  }
}

TEST_F(AverageTemperature, skipsAKeyThatTheDriverRefuses) {
  host_.controller().addTemperature("Tg0f", 40);
  host_.controller().addTemperature("Tg0j", 60);
  host_.controller().infoErrors = {{"Tg0f", 5}};
  host_.controller().errorTexts = {{5, "(os/kern) failure"}};
  testing::internal::CaptureStdout();
  EXPECT_EQ(average(true, "Apple M2"), 60);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error read(Tg0f): (os/kern) failure\n");
}

class ReadTemperatures : public testing::Test {
 protected:
  std::optional<Temperatures> read() { return readTemperatures(host_, host_.runner()); }

  test::FakeHost host_;
  test::CapturedLog log_;
};

TEST_F(ReadTemperatures, withoutABrandThereIsNoResult) {
  EXPECT_EQ(read(), std::nullopt);
  EXPECT_EQ(host_.runner().commandLines(), Lines{kBrand});
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ReadTemperatures, onIntelTheToolIsAsked) {
  host_.systemVersion = "10.15.7";
  host_.runner().answer(kBrand, "Intel(R) Core(TM) i5-8500 CPU @ 3.00GHz");
  host_.runner().answer(kPowermetrics, test::machineOutput("intel-ventura", kPowermetrics));
  EXPECT_EQ(read(), (Temperatures{48.25, 41}));
  EXPECT_EQ(host_.runner().commandLines(), (Lines{kBrand, std::string("streaming ") + kPowermetrics}));
  EXPECT_EQ(host_.controller().opened, 0);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ReadTemperatures, onAppleSiliconTheControllerIsAsked) {
  host_.runner().answer(kBrand, "Apple M2");
  host_.controller().addTemperature("Tp1h", 45);
  host_.controller().addTemperature("Tg0f", 39.5F);
  EXPECT_EQ(read(), (Temperatures{45, 39.5}));
  EXPECT_EQ(host_.runner().commandLines(), Lines{kBrand});
  EXPECT_EQ(host_.controller().opened, 1);
}

TEST_F(ReadTemperatures, aChipThatIsNotKnownReadsAsZero) {
  host_.runner().answer(kBrand, "Apple processor");
  EXPECT_EQ(read(), Temperatures{});
  EXPECT_EQ(host_.controller().opened, 0);
}

TEST_F(ReadTemperatures, onAppleSiliconItTakesMacOS12) {
  host_.runner().answer(kBrand, "Apple M1");
  host_.controller().addTemperature("Tp01", 45);
  struct Case {
    std::string version;
    bool suffices;
  };
  const Case cases[] = {{"11.7.10", false}, {"10.16", false}, {"", false},      {"x", false},
                        {"12.0", true},     {"12", true},     {"13.6.9", true}, {"26.0", true}};
  for (const Case& row : cases) {
    const test::CapturedLog log;
    host_.systemVersion = row.version;
    EXPECT_EQ(read(), row.suffices ? std::optional(Temperatures{45, 0}) : std::nullopt) << row.version;
    EXPECT_EQ(log.messages(),
              row.suffices ? Lines{} : Lines{"readTemperatures M-series requires macOS 12.0 or later"});
  }
}

}  // namespace
}  // namespace msp
