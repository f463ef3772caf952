#include "platform/smc_connection.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/smc.h"
#include "support/darwin/every_failure.h"
#include "support/darwin/io_kit.h"

namespace msp::test {
namespace {

using Texts = std::vector<std::string>;

constexpr std::int32_t kDriverError = -536870212;

void addTexts(SimulatedMac& mac) {
  mac.controller.errorTexts = {{0, "(os/kern) successful"},
                               {kNoSpace, "(os/kern) no space available"},
                               {kNotPermitted, "(iokit/common) not permitted"},
                               {kBadArgument, "(iokit/common) invalid argument"},
                               {kInvalidDestination, "(ipc/send) invalid destination port"},
                               {kDriverError, "(iokit/common) general error"}};
}

class ControllerOfAMac : public testing::Test {
 protected:
  ControllerOfAMac() {
    addTexts(mac);
    mac.controller.addTemperature("TC0P", 46.25F);
  }

  /// What is printed while one value is read.
  static std::string printedFor(const std::string& key, std::optional<double> expected) {
    testing::internal::CaptureStdout();
    {
      const SMC smc(systemSMCConnection());
      EXPECT_EQ(smc.readKeyValue(key), expected);
    }
    return testing::internal::GetCapturedStdout();
  }

  SimulatedMac& mac = SimulatedMac::current();
};

TEST_F(ControllerOfAMac, givesValues) { EXPECT_EQ(printedFor("TC0P", 46.25), ""); }

TEST_F(ControllerOfAMac, listsItsKeys) {
  mac.controller.keys.push_back({"#KEY", "ui32", {0, 0, 0, 2}});
  const SMC smc(systemSMCConnection());
  EXPECT_EQ(smc.allKeys(), (Texts{"TC0P", "#KEY"}));
}

TEST_F(ControllerOfAMac, hasNothingUnderAKeyThatIsMissing) {
  // The call succeeds; only the answer says that there is no such key.
  EXPECT_EQ(printedFor("TC9P", std::nullopt), "");
  const auto connection = systemSMCConnection();
  const auto number = std::get<std::uint32_t>(connection->open());
  SMCKeyData question;
  SMCKeyData answer;
  question.key = controllerCode("TC9P");
  question.command = 9;
  EXPECT_EQ(connection->call(number, question, answer), 0);
  EXPECT_EQ(answer.result, 0x84);
  EXPECT_EQ(connection->close(number), 0);
}

TEST_F(ControllerOfAMac, givesNoMoreOfAValueThanThereIs) {
  mac.controller.keys.push_back({"TLNG", "ui8 ", std::vector<std::uint8_t>(32, 7), 33});
  mac.controller.keys.push_back({"TMAX", "ui8 ", std::vector<std::uint8_t>(32, 8), 0xFFFFFFFF});
  EXPECT_EQ(printedFor("TLNG", 7), "");
  EXPECT_EQ(printedFor("TMAX", 8), "");
}

TEST_F(ControllerOfAMac, tellsTheDriversErrors) {
  mac.controller.infoErrors["TC0P"] = kDriverError;
  EXPECT_EQ(printedFor("TC0P", std::nullopt), "Error read(TC0P): (iokit/common) general error\n");
  mac.controller.infoErrors.clear();
  mac.controller.readErrors["TC0P"] = kDriverError;
  EXPECT_EQ(printedFor("TC0P", std::nullopt), "Error read(TC0P): (iokit/common) general error\n");
}

TEST_F(ControllerOfAMac, mayHaveNoTextForAnError) {
  mac.controller.infoErrors["TC0P"] = 12345;
  EXPECT_EQ(printedFor("TC0P", std::nullopt), "Error read(TC0P): unknown error\n");
}

TEST_F(ControllerOfAMac, mayRefuseToClose) {
  mac.closeCode = kDriverError;
  EXPECT_EQ(printedFor("TC0P", 46.25), "error close smc connection: (iokit/common) general error\n");
}

TEST_F(ControllerOfAMac, mayBeMissing) {
  const std::string expected =
      "Error IOIteratorNext(): (os/kern) successful\n"
      "Error read(TC0P): (ipc/send) invalid destination port\n";
  mac.hasController = false;
  EXPECT_EQ(printedFor("TC0P", std::nullopt), expected);
  mac.hasServiceIterator = false;
  EXPECT_EQ(printedFor("TC0P", std::nullopt), expected) << "without an iterator";
}

TEST_F(ControllerOfAMac, mayRefuseToOpen) {
  mac.controller.openError = SMCConnection::OpenError{"", kNotPermitted};
  EXPECT_EQ(printedFor("TC0P", std::nullopt),
            "Error IOServiceOpen(): (iokit/common) not permitted\n"
            "Error read(TC0P): (ipc/send) invalid destination port\n");
}

TEST(Controller, tellsEveryFailureAndReleasesAll) {
  std::vector<std::string> printed;
  withEveryFailure(
      [](SimulatedMac& mac) {
        addTexts(mac);
        mac.controller.addTemperature("TC0P", 46.25F);
      },
      [&](int failing) {
        testing::internal::CaptureStdout();
        {
          const SMC smc(systemSMCConnection());
          EXPECT_EQ(smc.readKeyValue("TC0P"), failing == 0 ? std::optional(46.25) : std::nullopt);
        }
        printed.push_back(testing::internal::GetCapturedStdout());
      });
  const std::string notOpen = "Error read(TC0P): (ipc/send) invalid destination port\n";
  EXPECT_EQ(printed, (Texts{
                         "",
                         "Error IOServiceGetMatchingServices(): (iokit/common) invalid argument\n" + notOpen,
                         "Error IOServiceGetMatchingServices(): (os/kern) no space available\n" + notOpen,
                         "Error IOIteratorNext(): (os/kern) successful\n" + notOpen,
                         "Error IOServiceOpen(): (iokit/common) not permitted\n" + notOpen,
                         "Error read(TC0P): (os/kern) no space available\n",
                         "Error read(TC0P): (os/kern) no space available\n",
                     }));
}

TEST(Controller, survivesAnErrorWithoutText) {
  withEveryFailure(
      [](SimulatedMac& mac) { addTexts(mac); },
      [](int failing) {
        EXPECT_EQ(systemSMCConnection()->errorText(kNotPermitted),
                  failing == 0 ? std::optional<std::string>("(iokit/common) not permitted") : std::nullopt);
      });
}

}  // namespace
}  // namespace msp::test
