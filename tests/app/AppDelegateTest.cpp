#include "app/AppDelegate.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::platform;

const std::string bundled = "/Applications/Pellix.app/Contents/Resources/velmor-guard";
const std::string guard = "/Users/ann/Library/Application Support/VelmorPellix/velmor-guard";

class AppDelegateTest : public fakes::PlatformTest {
 protected:
  AppDelegateTest() {
    platform().resources["velmor-guard"] = bundled;
    platform().files[bundled] = {.content = "guard"};
    platform().processes[guard] = {.output = R"({"device_id":"installed"})"};
    platform().booleans["vlx_welcomed"] = true;
  }

  void launch() {
    delegate = std::make_shared<AppDelegate>();
    delegate->applicationDidFinishLaunching();
  }

  static std::string stateLine() { return platform().informationalTitles().at(0); }
  static std::string checkLine() { return platform().informationalTitles().at(1); }
  static bool offers(const std::string& title) { return platform().find(title) != nullptr; }
  std::string idRow() const {
    for (const auto& item : platform().statusItems.at(0)->menu.value().items)
      if (item.action == ::platform::Action(delegate, &AppDelegate::copyDeviceId))
        return item.title;
    throw std::runtime_error("no row copies the device ID");
  }
  static std::string windowId() {
    // The only label in a box.
    for (const auto& box : platform().windows.back()->content.contentView.subviews)
      for (const auto& view : box.subviews)
        if (const auto* label = std::get_if<::platform::Label>(&view.content)) return label->text;
    throw std::runtime_error("no ID in a box");
  }
  static bool did(const std::string& call) { return platform().count(call) > 0; }
  static std::ptrdiff_t when(const std::string& call) {
    const auto& log = platform().log;
    return std::find(log.begin(), log.end(), call) - log.begin();
  }

  std::shared_ptr<AppDelegate> delegate;
};

TEST_F(AppDelegateTest, portComesFromTheUserDefaultsWhenItIsAtLeastOne) {
  const std::pair<std::optional<long long>, const char*> rows[] = {
      {{}, "8787"}, {0, "8787"},    {-1, "8787"},    {-9000, "8787"},
      {1, "1"},     {9000, "9000"}, {65535, "65535"}};
  for (const auto& [port, expected] : rows) {
    platform() = fakes::Platform();
    if (port) platform().integers["port"] = *port;
    std::make_shared<AppDelegate>()->refresh();
    EXPECT_EQ(platform().requests.at(0).url,
              std::string("http://127.0.0.1:") + expected + "/status.json");
  }
}

TEST_F(AppDelegateTest, portAboveTheRangeIsKeptAndMayGiveNoAddress) {
  platform().integers["port"] = 70000;
  platform().unparsableUrls = {"http://127.0.0.1:70000/status.json"};
  launch();
  platform().runMainQueue();
  EXPECT_TRUE(platform().requests.empty());
  EXPECT_EQ(stateLine(), "Checking…");
  EXPECT_EQ(checkLine(), "Starting Pellix…");
}

TEST_F(AppDelegateTest, launchesInOrder) {
  platform().booleans.clear();
  launch();
  const auto install = when("launch /bin/launchctl [kickstart] [-k] [gui/501/com.velmor.pellix]");
  const auto identifier = when("launch " + guard + " [id] [--json]");
  EXPECT_LT(install, identifier);
  EXPECT_EQ(std::vector<std::string>(platform().log.begin() + identifier, platform().log.end()),
            (std::vector<std::string>{"launch " + guard + " [id] [--json]", "wait", "read output",
                                      "status item", "menu", "window", "show window", "activate",
                                      "set vlx_welcomed", "GET http://127.0.0.1:8787/status.json",
                                      "timer"}));
}

TEST_F(AppDelegateTest, statusItemHasVariableLengthAndAnEmptyMenuUntilTheFirstAnswer) {
  launch();
  ASSERT_EQ(platform().statusItems.size(), 1u);
  EXPECT_EQ(platform().statusItems[0]->length, -1.0);
  EXPECT_EQ(platform().statusItems[0]->menu, ::platform::Menu());
  EXPECT_EQ(platform().statusItems[0]->button, std::nullopt);
}

TEST_F(AppDelegateTest, firstLaunchShowsTheWindowWithTheInstalledIdAndRemembersIt) {
  platform().booleans.clear();
  launch();
  ASSERT_EQ(platform().windows.size(), 1u);
  EXPECT_TRUE(platform().windows[0]->isVisible);
  EXPECT_EQ(windowId(), "installed");
  EXPECT_TRUE(platform().booleans.at("vlx_welcomed"));
}

TEST_F(AppDelegateTest, flagThatIsFalseIsAFirstLaunch) {
  platform().booleans["vlx_welcomed"] = false;
  launch();
  EXPECT_EQ(platform().windows.size(), 1u);
  EXPECT_TRUE(platform().booleans.at("vlx_welcomed"));
}

TEST_F(AppDelegateTest, laterLaunchShowsNoWindow) {
  launch();
  EXPECT_TRUE(platform().windows.empty());
  EXPECT_FALSE(did("set vlx_welcomed"));
  EXPECT_FALSE(did("activate"));
}

TEST_F(AppDelegateTest, laterLaunchShowsTheWindowOnRequest) {
  platform().arguments = {"pellix", "--other", "--show-id"};
  launch();
  EXPECT_EQ(platform().windows.size(), 1u);
  EXPECT_TRUE(did("set vlx_welcomed")) << "the flag is written again";
}

TEST_F(AppDelegateTest, onlyTheExactArgumentIsARequest) {
  platform().arguments = {"pellix",  "--show-id=1", "--SHOW-ID",
                          "show-id", " --show-id",  "--show-i"};
  launch();
  EXPECT_TRUE(platform().windows.empty());
}

TEST_F(AppDelegateTest, installFailureIsShownOnceBeforeTheStatusItemAndTheLaunchGoesOn) {
  const ::platform::Error error("fake", 513, "You don’t have permission.");
  platform().failures.emplace("create /Users/ann/Library/Application Support/VelmorPellix", error);
  platform().files[guard] = {};
  launch();
  EXPECT_EQ(platform().alerts, std::vector<::platform::Alert>{::platform::Alert::withError(error)});
  EXPECT_EQ(platform().log[1], "alert");
  EXPECT_EQ(platform().log[2], "launch " + guard + " [id] [--json]");
  EXPECT_LT(when("alert"), when("status item"));
  EXPECT_EQ(platform().requests.size(), 1u);
  EXPECT_EQ(platform().timers.size(), 1u);
  platform().answer(0, std::nullopt);
  EXPECT_EQ(idRow(), "installed");
}

TEST_F(AppDelegateTest, missingGuardIsShownByItsDescription) {
  platform().resources.clear();
  platform().files.clear();
  launch();
  ASSERT_EQ(platform().alerts.size(), 1u);
  EXPECT_EQ(platform().alerts[0].error.value().description,
            "velmor-guard binary missing from the app bundle.");
  EXPECT_EQ(platform().statusItems.size(), 1u);
}

TEST_F(AppDelegateTest, pollsAtOnceAndThenEveryTwentySeconds) {
  launch();
  EXPECT_EQ(platform().requests.size(), 1u);
  ASSERT_EQ(platform().timers.size(), 1u);
  EXPECT_EQ(platform().timers[0]->interval, 20.0);
  EXPECT_TRUE(platform().timers[0]->repeats);
  platform().timers[0]->block();
  platform().timers[0]->block();
  EXPECT_EQ(platform().requests.size(), 3u) << "a poll under way is no reason not to start another";
}

TEST_F(AppDelegateTest, answerIsAppliedOnTheMainQueueOnly) {
  launch();
  std::thread([] {
    platform().requests[0].completionHandler(R"({"state":"revoked","device_id":"live"})");
  }).join();
  EXPECT_EQ(platform().statusItems[0]->menu, ::platform::Menu()) << "not yet";
  ASSERT_EQ(platform().mainQueue.size(), 1u);
  platform().runMainQueue();
  EXPECT_EQ(stateLine(), "Revoked by IT");
  EXPECT_EQ(idRow(), "live");
  EXPECT_EQ(platform().statusItems[0]->button.value().toolTip, "Velmor Pellix — Revoked by IT");
}

TEST_F(AppDelegateTest, everyAnswerReplacesTheWholeStatus) {
  launch();
  platform().timers[0]->block();
  platform().answer(0, R"({"state":"authorized","last_heartbeat":"2024-05-01T12:34:56Z"})");
  EXPECT_TRUE(checkLine().ends_with(" d ago"));
  EXPECT_TRUE(offers("Open WordPress Admin"));
  platform().answer(1, R"({"state":"stale"})");
  EXPECT_EQ(checkLine(), "Last check: never");
  EXPECT_TRUE(offers("Authorize this Mac…"));
}

TEST_F(AppDelegateTest, overlappingPollsAreAppliedAsTheyArrive) {
  launch();
  platform().timers[0]->block();
  platform().answer(1, R"({"state":"revoked"})");
  EXPECT_EQ(stateLine(), "Revoked by IT");
  platform().answer(0, R"({"state":"stale"})");
  EXPECT_EQ(stateLine(), "Trust expired");
}

TEST_F(AppDelegateTest, failedPollIsRenderedToo) {
  launch();
  platform().answer(0, std::nullopt);
  EXPECT_EQ(stateLine(), "Cannot reach WordPress");
  EXPECT_EQ(checkLine(), "Starting Pellix…");
  EXPECT_EQ(idRow(), "installed");
}

TEST_F(AppDelegateTest, lastRealIdSurvivesFailedPolls) {
  launch();
  platform().timers[0]->block();
  platform().timers[0]->block();
  platform().answer(0, R"({"device_id":"live"})");
  platform().answer(1, std::nullopt);
  EXPECT_EQ(idRow(), "live");
  platform().answer(2, R"({"state":"authorized"})");
  EXPECT_EQ(idRow(), "live");
}

TEST_F(AppDelegateTest, emptyIdIsAnIdLikeAnyOther) {
  launch();
  platform().timers[0]->block();
  platform().answer(0, R"({"device_id":""})");
  platform().answer(1, std::nullopt);
  EXPECT_EQ(idRow(), "");
}

TEST_F(AppDelegateTest, windowShowsTheLiveIdWhileTheServiceAnswers) {
  launch();
  platform().answer(0, R"({"device_id":"live"})");
  platform().pick("Show device ID…");
  EXPECT_EQ(windowId(), "live");
}

TEST_F(AppDelegateTest, windowShowsTheLastRealIdWhileTheServiceKnowsNone) {
  launch();
  platform().answer(0, R"({"state":"stale"})");
  platform().pick("Show device ID…");
  EXPECT_EQ(windowId(), "installed");
}

TEST_F(AppDelegateTest, openingTheWindowAgainTakesAFreshOne) {
  launch();
  platform().timers[0]->block();
  platform().answer(0, R"({"device_id":"first"})");
  platform().pick("Show device ID…");
  const std::weak_ptr<fakes::WindowRecord> first = platform().windows.at(0);
  platform().answer(1, R"({"device_id":"second"})");
  platform().pick("Show device ID…");
  EXPECT_TRUE(first.expired());
  ASSERT_EQ(platform().windows.size(), 1u);
  EXPECT_EQ(windowId(), "second");
  EXPECT_TRUE(platform().windows[0]->isVisible);
  EXPECT_EQ(platform().count("window"), 2);
  EXPECT_EQ(platform().count("activate"), 2);
}

TEST_F(AppDelegateTest, statusItemWithoutAButtonStillGetsItsMenu) {
  platform().givesButton = false;
  launch();
  platform().answer(0, R"({"state":"authorized"})");
  EXPECT_EQ(platform().statusItems[0]->button, std::nullopt);
  EXPECT_EQ(stateLine(), "Device authorized");
}

TEST_F(AppDelegateTest, lateAnswerAndTimerFindNoDelegateAndDoNothing) {
  launch();
  const auto timer = platform().timers[0];
  platform().requests[0].completionHandler(R"({"state":"authorized"})");
  auto late = platform().requests[0].completionHandler;
  const std::weak_ptr<AppDelegate> gone = delegate;
  delegate.reset();
  EXPECT_TRUE(gone.expired()) << "nothing that is under way holds it";
  EXPECT_TRUE(platform().timers.empty());
  EXPECT_TRUE(platform().statusItems.empty());

  const auto calls = platform().log;
  platform().runMainQueue();
  late(R"({"state":"revoked"})");
  platform().runMainQueue();
  timer->block();
  EXPECT_EQ(platform().log, calls);
  EXPECT_EQ(platform().requests.size(), 1u);
}

using AppDelegateDeathTest = AppDelegateTest;

TEST_F(AppDelegateDeathTest, renderingBeforeTheLaunchStopsTheProcess) {
  EXPECT_DEATH(std::make_shared<AppDelegate>()->render(),
               "^Fatal error: Nothing can be rendered before the application has launched\n$");
}

}  // namespace
}  // namespace pellix
