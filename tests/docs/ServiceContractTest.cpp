#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <vector>

#include "client/StatusDecoding.h"
#include "identity/DeviceIdentifier.h"
#include "install/Installer.h"
#include "tests/fakes/FakePlatform.h"

/// Runs the examples in docs/service-contract.md.
namespace pellix {
namespace {

using ServiceContract = fakes::PlatformTest;

/// A fenced block: its kind is the second word after the fence, the first names the language.
struct Block {
  std::string kind, text;
  int line;
};

std::vector<Block> blocks() {
  std::ifstream file(SERVICE_CONTRACT);
  EXPECT_TRUE(file) << SERVICE_CONTRACT;
  std::vector<Block> all;
  bool isInside = false;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (!line.starts_with("```")) {
      if (isInside) all.back().text += line + "\n";
      continue;
    }
    isInside = !isInside;
    if (!isInside) continue;
    std::string language, kind;
    std::istringstream(line.substr(3)) >> language >> kind;
    all.push_back({kind, "", number});
  }
  EXPECT_FALSE(isInside) << "the last block has no end";
  return all;
}

/// The text of the only block of the kind.
std::string textOf(const std::string& kind) {
  auto all = blocks();
  std::erase_if(all, [&](const Block& block) { return block.kind != kind; });
  EXPECT_EQ(all.size(), 1u) << kind;
  return all.empty() ? "" : all.front().text;
}

/// What an installation writes to the file in the library folder.
std::string installedFile(const std::string& name) {
  fakes::platform().resources["velmor-guard"] = "/Applications/guard";
  fakes::platform().files["/Applications/guard"] = {};
  Installer::ensureInstalled();
  return fakes::platform().files.at("/Users/ann/Library/" + name).content;
}

using Outcome = std::map<std::string, std::string>;

Outcome outcome(const Block& block) {
  EXPECT_EQ(block.kind, "outcome") << "line " << block.line << " must say what becomes of it";
  Outcome values;
  std::istringstream text(block.text);
  for (std::string line; std::getline(text, line);) {
    const auto colon = line.find(':');
    EXPECT_NE(colon, line.npos) << "line " << block.line;
    if (colon == line.npos) continue;
    values[line.substr(0, colon)] = colon + 2 <= line.size() ? line.substr(colon + 2) : "";
  }
  return values;
}

/// What the application makes of it; whether the schema allows it, others test.
Outcome ofTheApplication(Outcome expected) {
  EXPECT_EQ(expected.erase("conforms"), 1u);
  return expected;
}

/// Calls `check` with each example of the kind and the outcome that stands below it.
template <typename Check>
void forEachExample(const std::string& kind, const Check& check) {
  const auto all = blocks();
  int examples = 0;
  for (std::size_t at = 0; at < all.size(); ++at) {
    if (all[at].kind != kind) continue;
    SCOPED_TRACE("line " + std::to_string(all[at].line));
    ASSERT_LT(at + 1, all.size());
    check(all[at].text, ofTheApplication(outcome(all[at + 1])));
    ++examples;
  }
  EXPECT_GT(examples, 0);
}

std::string description(const std::optional<platform::Date>& date) {
  if (!date) return "never";
  const auto milliseconds = std::chrono::round<std::chrono::milliseconds>(date->time_since_epoch());
  const std::time_t seconds = milliseconds.count() / 1000;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S.", &parts);
  const std::string fraction = std::to_string(1000 + milliseconds.count() % 1000).substr(1);
  return std::string(text, length) + fraction + " UTC";
}

TEST_F(ServiceContract, everyAnswerHasTheOutcomeThatIsWrittenBelowIt) {
  forEachExample("answer", [](const std::string& body, const Outcome& expected) {
    const Status status = decodeStatus(body);
    const Outcome actual = {{"state", rawValue(status.state)},
                            {"reachable", status.serviceReachable ? "yes" : "no"},
                            {"menu", summary(status.state)},
                            {"device_id", status.deviceId},
                            {"site", status.site},
                            {"email", status.email},
                            {"last_heartbeat", description(status.lastHeartbeat)}};
    for (const auto& [key, value] : expected) {
      ASSERT_TRUE(actual.contains(key)) << key;
      EXPECT_EQ(actual.at(key), value) << key;
    }
    for (const char* key : {"state", "reachable", "menu"}) EXPECT_TRUE(expected.contains(key));
  });
}

TEST_F(ServiceContract, everyStateHasAnExample) {
  std::set<TrustState> shown;
  forEachExample("answer", [&](const std::string& body, const Outcome&) {
    const Status status = decodeStatus(body);
    if (status.serviceReachable) shown.insert(status.state);
  });
  EXPECT_EQ(shown, std::set<TrustState>(allTrustStates.begin(), allTrustStates.end()));
}

TEST_F(ServiceContract, everyIdentifierOutputHasTheOutcomeThatIsWrittenBelowIt) {
  forEachExample("id-output", [](const std::string& output, const Outcome& expected) {
    const Outcome actual = {
        {"identifier", Installer::deviceIdentifierInOutput(output).value_or("none")}};
    EXPECT_EQ(actual, expected);
  });
}

TEST_F(ServiceContract, thePropertyListIsTheOneThatIsWritten) {
  EXPECT_EQ(textOf("property-list"), installedFile("LaunchAgents/com.velmor.pellix.plist") + "\n");
}

TEST_F(ServiceContract, theManagedSiteHasTheFormThatIsWritten) {
  // The site itself is chosen when building.
  const auto anySite = [](const std::string& text) {
    return std::regex_replace(text, std::regex("https://[^\"]+"), "https://");
  };
  const std::string written = installedFile("Application Support/VelmorPellix/managed.json");
  EXPECT_EQ(anySite(textOf("managed-site")), anySite(written) + "\n");
}

TEST_F(ServiceContract, everyBlockIsOfAKnownKind) {
  for (const Block& block : blocks())
    EXPECT_TRUE(std::set<std::string>({"answer", "check", "id-output", "managed-site", "outcome",
                                       "property-list", "report"})
                    .contains(block.kind))
        << "line " << block.line;
}

}  // namespace
}  // namespace pellix
