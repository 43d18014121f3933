#include "app/StatusMenu.h"

#include <random>

#include "app/AppDelegate.h"
#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::platform;
using ::platform::Action;
using ::platform::Color;
using ::platform::Menu;
using ::platform::MenuItem;
using ::platform::StatusBarButton;

class StatusMenu : public fakes::PlatformTest {
 protected:
  MenuItem command(std::string title, void (AppDelegate::*method)(), std::string key) {
    return {.title = std::move(title),
            .action = Action{target, method},
            .keyEquivalent = std::move(key)};
  }

  Menu expected(std::string stateLine, std::string checkLine, MenuItem first, std::string id) {
    return {{
        {.title = std::move(stateLine), .isEnabled = false},
        {.title = std::move(checkLine), .isEnabled = false},
        {.isSeparatorItem = true},
        std::move(first),
        command("Show status…", &AppDelegate::openUI, "s"),
        command("Show device ID…", &AppDelegate::showId, "i"),
        {.isSeparatorItem = true},
        {.title = std::move(id),
         .action = Action{target, &AppDelegate::copyDeviceId},
         .toolTip = "Click to copy — IT needs this to approve your Mac"},
        {.isSeparatorItem = true},
        command("Quit Pellix", &AppDelegate::quit, "q"),
    }};
  }

  std::shared_ptr<AppDelegate> target = std::make_shared<AppDelegate>();
};

TEST_F(StatusMenu, authorizedAndReachable) {
  const Status status{.state = TrustState::authorized,
                      .deviceId = "HW-UUID-1",
                      .lastHeartbeat = std::chrono::system_clock::now() - std::chrono::minutes(5),
                      .serviceReachable = true};
  EXPECT_EQ(statusMenu(status, "other", target),
            expected("Device authorized", "Last check: 5 min ago",
                     command("Open WordPress Admin", &AppDelegate::openAdmin, "o"), "HW-UUID-1"));
}

TEST_F(StatusMenu, everyOtherStateOffersToAuthorize) {
  for (const TrustState state : allTrustStates) {
    if (state == TrustState::authorized) continue;
    const Status status{.state = state, .deviceId = "id", .serviceReachable = true};
    EXPECT_EQ(statusMenu(status, "other", target),
              expected(summary(state), "Last check: never",
                       command("Authorize this Mac…", &AppDelegate::openUI, "a"), "id"));
  }
}

TEST_F(StatusMenu, unreachableServiceIsStartingWhateverTheState) {
  for (const TrustState state : allTrustStates) {
    const Status status{.state = state, .lastHeartbeat = std::chrono::system_clock::now()};
    const MenuItem first = state == TrustState::authorized
                               ? command("Open WordPress Admin", &AppDelegate::openAdmin, "o")
                               : command("Authorize this Mac…", &AppDelegate::openUI, "a");
    EXPECT_EQ(statusMenu(status, "id", target),
              expected(summary(state), "Starting Pellix…", first, "id"));
  }
}

TEST_F(StatusMenu, beforeTheFirstAnswer) {
  EXPECT_EQ(statusMenu(Status(), "GEN-1", target),
            expected("Checking…", "Starting Pellix…",
                     command("Authorize this Mac…", &AppDelegate::openUI, "a"), "GEN-1"));
}

TEST_F(StatusMenu, idRowStaysEnabledWithNothingKnown) {
  EXPECT_EQ(statusMenu(Status(), "—", target),
            expected("Checking…", "Starting Pellix…",
                     command("Authorize this Mac…", &AppDelegate::openUI, "a"), "—"));
}

TEST_F(StatusMenu, idIgnoresReachabilityAndTakesAnyTextButThePlaceholder) {
  EXPECT_EQ(menuId(Status{.deviceId = "id", .serviceReachable = false}, "other"), "id");
  EXPECT_EQ(menuId(Status{.deviceId = "", .serviceReachable = true}, "other"), "");
  EXPECT_EQ(menuId(Status{.deviceId = "-", .serviceReachable = true}, "other"), "-");
  EXPECT_EQ(menuId(Status{.deviceId = "— ", .serviceReachable = true}, "other"), "— ");
  EXPECT_EQ(menuId(Status{.deviceId = "—", .serviceReachable = true}, "other"), "other");
}

TEST_F(StatusMenu, rowsStayWhereTheyAreWhateverTheyShow) {
  const Menu usual = statusMenu(Status(), "installed", target);
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    const Status status{.state = allTrustStates[random() % allTrustStates.size()],
                        .deviceId = random() % 2 ? "—" : std::string(random() % 40, 'x'),
                        .serviceReachable = random() % 2 == 0};
    const Menu menu = statusMenu(status, "installed", target);
    ASSERT_EQ(menu.items.size(), usual.items.size());
    for (std::size_t at = 0; at < menu.items.size(); ++at) {
      EXPECT_EQ(menu.items[at].isSeparatorItem, usual.items[at].isSeparatorItem);
      EXPECT_EQ(menu.items[at].isEnabled, usual.items[at].isEnabled);
    }
  }
}

TEST_F(StatusMenu, buttonFollowsTheState) {
  const auto button = [](const char* symbol, const char* summary, std::optional<Color> tint) {
    return StatusBarButton{.image = ::platform::Image{symbol, summary, !tint},
                           .contentTintColor = tint,
                           .toolTip = std::string("Velmor Pellix \u2014 ") + summary};
  };
  EXPECT_EQ(statusBarButton(TrustState::authorized),
            button("checkmark.shield.fill", "Device authorized", {}));
  EXPECT_EQ(statusBarButton(TrustState::notEnrolled),
            button("exclamationmark.shield", "Not authorized yet", Color::systemOrange));
  EXPECT_EQ(statusBarButton(TrustState::offline),
            button("shield.slash", "Cannot reach WordPress", {}));
  EXPECT_EQ(statusBarButton(TrustState::stale),
            button("clock.badge.exclamationmark", "Trust expired", Color::systemOrange));
  EXPECT_EQ(statusBarButton(TrustState::revoked),
            button("xmark.shield.fill", "Revoked by IT", Color::systemRed));
  EXPECT_EQ(statusBarButton(TrustState::unknown), button("shield", "Checking…", {}));
}

TEST_F(StatusMenu, unknownSymbolGivesTheGlyphWithoutAnImage) {
  for (const TrustState state : allTrustStates) {
    platform().unknownSymbols.insert(symbol(state));
    EXPECT_EQ(statusBarButton(state),
              (StatusBarButton{.title = glyph(state),
                               .contentTintColor = tint(state),
                               .toolTip = "Velmor Pellix — " + summary(state)}));
  }
}

}  // namespace
}  // namespace pellix
