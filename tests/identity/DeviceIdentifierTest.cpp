#include "identity/DeviceIdentifier.h"

#include <algorithm>

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using namespace std::string_literals;
using fakes::platform;

const std::string guard = "/Users/ann/Library/Application Support/VelmorPellix/velmor-guard";
const std::string hardwareIdentifier = "HW-UUID-564D0000-0000-0000-0000-00000000ABCD";

class DeviceIdentifier : public fakes::PlatformTest {
 protected:
  DeviceIdentifier() { platform().files[guard] = {}; }

  static std::string identifierAfter(const std::string& output) {
    platform().processes[guard] = {.output = output};
    return Installer::deviceIdentifier();
  }
};

TEST_F(DeviceIdentifier, asksTheServiceOnceAndReadsOnlyAfterItsExit) {
  EXPECT_EQ(identifierAfter(R"({"device_id":"id"})"), "id");
  EXPECT_EQ(platform().log, (std::vector<std::string>{"launch " + guard + " [id] [--json]", "wait",
                                                      "read output"}));
}

TEST_F(DeviceIdentifier, jsonDeviceIdIsTrustedWhole) {
  EXPECT_EQ(identifierAfter(R"({"device_id":"  any thing "})"), "  any thing ");
  EXPECT_EQ(identifierAfter(R"({"version":2,"device_id":"—"})"), "—");
  EXPECT_EQ(identifierAfter("{\n  \"device_id\": \"GEN-1\"\n}\n"), "GEN-1");
}

TEST_F(DeviceIdentifier, unusableJsonFallsThroughToTheHardware) {
  for (const char* output :
       {R"({"device_id":""})", R"({"device_id":7})", R"({"device_id":null})", "{}", "[]",
        R"(["GEN-1"])", R"("GEN-1")", "17", R"({"deviceId":"GEN-1"})"})
    EXPECT_EQ(identifierAfter(output), hardwareIdentifier) << output;
}

TEST_F(DeviceIdentifier, unusableJsonIsStillScannedForLines) {
  EXPECT_EQ(identifierAfter("{\"device_id\":\n\"\"\n}"), hardwareIdentifier);
  EXPECT_EQ(identifierAfter("[\nGEN-1\n]"), "GEN-1");
}

TEST_F(DeviceIdentifier, firstLineWithAKnownPrefixWins) {
  EXPECT_EQ(identifierAfter("velmor-guard 2.1\n \tGEN-77 \t\nHW-UUID-1\n"), "GEN-77");
  EXPECT_EQ(identifierAfter("HW-UUID-1\nGEN-77\n"), "HW-UUID-1");
  EXPECT_EQ(identifierAfter("\n\n\nGEN-77"), "GEN-77");
  EXPECT_EQ(identifierAfter("GEN-"), "GEN-");
}

TEST_F(DeviceIdentifier, linesAreTrimmedOfEverySpaceSeparator) {
  EXPECT_EQ(identifierAfter("\u00A0\u3000HW-UUID-1\u2003\t\n"), "HW-UUID-1");
  EXPECT_EQ(identifierAfter("GEN-a b\n"), "GEN-a b");
}

TEST_F(DeviceIdentifier, prefixesAreCaseSensitiveAndAtTheStart) {
  for (const char* output : {"hw-uuid-1", "gen-1", "HW-UUID", "xGEN-1", "id: GEN-1", "\rGEN-1"})
    EXPECT_EQ(identifierAfter(output), hardwareIdentifier) << output;
}

TEST_F(DeviceIdentifier, carriageReturnsNeitherSeparateNorGoAway) {
  EXPECT_EQ(identifierAfter("GEN-1\r\n"), "GEN-1\r\n");
  EXPECT_EQ(identifierAfter("GEN-1\r\nHW-UUID-1\n"), "GEN-1\r\nHW-UUID-1");
  EXPECT_EQ(identifierAfter("GEN-1\rGEN-2\n"), "GEN-1\rGEN-2");
  EXPECT_EQ(identifierAfter("first\r\nGEN-2"), hardwareIdentifier) << "one piece, no known prefix";
  EXPECT_EQ(identifierAfter("first\n\r\nGEN-2"), hardwareIdentifier);
  EXPECT_EQ(identifierAfter("first\r\n\nGEN-2"), "GEN-2");
}

TEST_F(DeviceIdentifier, outputThatIsNotUtf8CountsForNothing) {
  EXPECT_EQ(identifierAfter("GEN-1\n\xFF\n"), hardwareIdentifier);
  EXPECT_EQ(identifierAfter("\xED\xA0\x80\nGEN-1"), hardwareIdentifier);
}

TEST_F(DeviceIdentifier, nulBytesAreText) {
  EXPECT_EQ(identifierAfter("\0\nGEN-1\0x\n"s), "GEN-1\0x"s);
}

TEST_F(DeviceIdentifier, silentServiceGivesTheHardware) {
  EXPECT_EQ(identifierAfter(""), hardwareIdentifier);
}

TEST_F(DeviceIdentifier, withoutTheServiceNoProcessIsStarted) {
  platform().files.clear();
  EXPECT_EQ(Installer::deviceIdentifier(), hardwareIdentifier);
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(DeviceIdentifier, serviceThatCannotBeLaunchedIsNotReadFrom) {
  platform().processes[guard] = {.output = "GEN-1", .canBeLaunched = false};
  EXPECT_EQ(Installer::deviceIdentifier(), hardwareIdentifier);
  EXPECT_EQ(platform().log, std::vector<std::string>{"launch " + guard + " [id] [--json]"});
}

TEST_F(DeviceIdentifier, hardwareUuidIsTakenAsItIsSpelt) {
  platform().files.clear();
  platform().uuid = " aB-c ";
  EXPECT_EQ(Installer::deviceIdentifier(), "HW-UUID- aB-c ");
}

TEST_F(DeviceIdentifier, withoutAnySourceItIsThePlaceholder) {
  platform().files.clear();
  platform().uuid.reset();
  EXPECT_EQ(Installer::deviceIdentifier(), "\xE2\x80\x94");
}

TEST_F(DeviceIdentifier, everyCallStartsAgain) {
  EXPECT_EQ(identifierAfter("GEN-1"), "GEN-1");
  EXPECT_EQ(identifierAfter("GEN-2"), "GEN-2");
}

}  // namespace
}  // namespace pellix
