#include "app/AppDelegate.h"
#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::platform;

class MenuActions : public fakes::PlatformTest {
 protected:
  MenuActions() { platform().booleans["vlx_welcomed"] = true; }

  void launch() {
    delegate->applicationDidFinishLaunching();
    platform().alerts.clear();  // no guard is bundled here
    platform().log.clear();
  }

  void launchAndAnswer(const std::string& body) {
    launch();
    platform().answer(0, body);
    platform().log.clear();
  }

  std::shared_ptr<AppDelegate> delegate = std::make_shared<AppDelegate>();
};

TEST_F(MenuActions, statusAndAuthorizeOpenTheServicesRootPage) {
  launchAndAnswer(R"({"state":"not_enrolled","site":"https://site.example"})");
  platform().pick("Show status…");
  platform().pick("Authorize this Mac…");
  EXPECT_EQ(platform().openedUrls,
            (std::vector<std::string>{"http://127.0.0.1:8787/", "http://127.0.0.1:8787/"}));
}

TEST_F(MenuActions, adminOpensTheServicesAuthorizePage) {
  launchAndAnswer(R"({"state":"authorized","site":"https://site.example"})");
  platform().pick("Open WordPress Admin");
  EXPECT_EQ(platform().openedUrls, std::vector<std::string>{"http://127.0.0.1:8787/authorize"});
}

TEST_F(MenuActions, onlyAnAuthorizedMacIsOfferedTheAuthorizePage) {
  launch();
  for (const TrustState state : allTrustStates) {
    delegate->refresh();
    platform().answer(platform().requests.size() - 1, R"({"state":")" + rawValue(state) + R"("})");
    bool offered = false;
    for (const auto& item : platform().statusItems[0]->menu.value().items)
      offered = offered || item.action == ::platform::Action(delegate, &AppDelegate::openAdmin);
    EXPECT_EQ(offered, state == TrustState::authorized) << rawValue(state);
  }
}

TEST_F(MenuActions, unparsableAddressOpensNothing) {
  platform().integers["port"] = 70000;
  platform().unparsableUrls = {"http://127.0.0.1:70000/status.json", "http://127.0.0.1:70000/",
                               "http://127.0.0.1:70000/authorize"};
  delegate = std::make_shared<AppDelegate>();
  launch();
  platform().runMainQueue();
  platform().pick("Show status…");
  delegate->openAdmin();
  EXPECT_TRUE(platform().openedUrls.empty());
  EXPECT_TRUE(platform().alerts.empty());
}

TEST_F(MenuActions, copyReplacesThePasteboardWithTheMenusId) {
  launchAndAnswer(R"({"device_id":" R&D_lab\n"})");
  platform().pasteboard = "something else";
  platform().pick(" R&D_lab\n");
  EXPECT_EQ(platform().pasteboard, " R&D_lab\n");
  EXPECT_EQ(platform().log, (std::vector<std::string>{"clear pasteboard", "fill pasteboard"}))
      << "no alert, no change to the menu";
}

TEST_F(MenuActions, copyAfterAFailedPollTakesTheEarlierId) {
  launchAndAnswer(R"({"device_id":"real"})");
  delegate->refresh();
  platform().answer(1, std::nullopt);
  platform().pick("real");
  EXPECT_EQ(platform().pasteboard, "real");
}

TEST_F(MenuActions, copyWithNothingKnownCopiesThePlaceholder) {
  platform().uuid.reset();
  launchAndAnswer("{}");
  platform().pick("—");
  EXPECT_EQ(platform().pasteboard, "\xE2\x80\x94");
}

TEST_F(MenuActions, showIdOpensTheWindowAndComesToTheFront) {
  launchAndAnswer("{}");
  platform().pick("Show device ID…");
  EXPECT_EQ(platform().log, (std::vector<std::string>{"window", "show window", "activate"}));
}

TEST_F(MenuActions, quitAsksFirst) {
  launchAndAnswer("{}");
  platform().pick("Quit Pellix");
  const ::platform::Alert expected{
      .messageText = "Quit Pellix?",
      .informativeText =
          "This closes the menu bar icon only. Your Mac stays authorized and Pellix "
          "keeps running in the background.",
      .buttons = {"Quit", "Cancel"},
      .alertStyle = ::platform::AlertStyle::informational};
  EXPECT_EQ(platform().alerts, std::vector<::platform::Alert>{expected});
  EXPECT_EQ(platform().log, (std::vector<std::string>{"alert", "terminate"}));
}

TEST_F(MenuActions, anyOtherResponseKeepsTheProgramRunning) {
  for (const int response : {1001, 1002, 0, -1, 1}) {
    platform() = fakes::Platform();
    platform().booleans["vlx_welcomed"] = true;
    delegate = std::make_shared<AppDelegate>();
    launchAndAnswer("{}");
    platform().answerAlert = [=] { return response; };
    platform().pick("Quit Pellix");
    EXPECT_EQ(platform().log, std::vector<std::string>{"alert"}) << response;
  }
}

TEST_F(MenuActions, pollDuringTheQuitAlertIsApplied) {
  launchAndAnswer("{}");
  delegate->refresh();
  platform().answerAlert = [] {
    platform().answer(1, R"({"state":"revoked"})");
    return 1001;
  };
  platform().pick("Quit Pellix");
  EXPECT_EQ(platform().informationalTitles().at(0), "Revoked by IT");
}

}  // namespace
}  // namespace pellix
