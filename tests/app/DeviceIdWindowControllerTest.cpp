#include "app/DeviceIdWindowController.h"

#include <stdexcept>

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using namespace ::platform;

fakes::Platform& recorded() {
  return fakes::platform();
}

class DeviceIdWindow : public fakes::PlatformTest {
 protected:
  static const fakes::WindowRecord& window() { return *recorded().windows.at(0); }

  static void pressCopy() { button("copyButton").action.perform(); }
  static void pressDone() { button("doneButton").action.perform(); }

  static const Button& button(const std::string& identifier) {
    for (const View& view : window().content.contentView.subviews)
      if (const auto* found = std::get_if<Button>(&view.content))
        if (found->identifier == identifier) return *found;
    throw std::runtime_error("no button " + identifier);
  }
};

TEST_F(DeviceIdWindow, isBuiltWhole) {
  const std::string id(200, 'x');
  const auto controller = DeviceIdWindowController::withDeviceId(id);
  const View idLabel{{12, 16, 440, 24},
                     Label{id, Font{FontDesign::monospacedSystem, 13, FontWeight::medium},
                           LineBreakMode::byTruncatingMiddle, id},
                     {}};
  const WindowContent expected{
      "Velmor Pellix",
      {.titled = true, .closable = true},
      View{{0, 0, 520, 280},
           PlainView{},
           {View{{28, 220, 460, 28},
                 Label{"Your device ID", Font{FontDesign::system, 22, FontWeight::semibold},
                       LineBreakMode::byClipping, ""},
                 {}},
            View{{28, 160, 460, 50},
                 Label{"Send this to Orlen / IT with your work email. They will whitelist this "
                       "Mac, then you can authorize from the menu bar shield.",
                       std::nullopt, LineBreakMode::byWordWrapping, ""},
                 {}},
            View{{28, 88, 464, 56},
                 PlainView{PlainView::Layer{Color::controlBackground, 8}},
                 {idLabel}},
            View{{28, 28, 160, 32},
                 Button{"copyButton", "Copy device ID",
                        Action{controller, &DeviceIdWindowController::copyId}, ""},
                 {}},
            View{{400, 28, 90, 32},
                 Button{"doneButton", "Done",
                        Action{controller, &DeviceIdWindowController::closeWindow}, "\r"},
                 {}}}}};
  EXPECT_EQ(window().content, expected);
}

TEST_F(DeviceIdWindow, isCentredAndHiddenUntilItIsShown) {
  const auto controller = DeviceIdWindowController::withDeviceId("id");
  EXPECT_TRUE(window().isCentered);
  EXPECT_FALSE(window().isVisible);
  controller->showWindow();
  EXPECT_TRUE(window().isVisible);
}

TEST_F(DeviceIdWindow, copyTakesTheIdExactlyAndSaysSoForOneAndAHalfSeconds) {
  const auto controller = DeviceIdWindowController::withDeviceId(" <b>R&D_lab</b>\n");
  controller->showWindow();
  recorded().pasteboard = "other";
  recorded().log.clear();
  pressCopy();
  EXPECT_EQ(recorded().pasteboard, " <b>R&D_lab</b>\n");
  EXPECT_EQ(recorded().log, (std::vector<std::string>{"clear pasteboard", "fill pasteboard"}));
  EXPECT_EQ(window().buttonTitles.at("copyButton"), "Copied!");
  EXPECT_TRUE(window().isVisible);
  ASSERT_EQ(recorded().delayed.size(), 1u);
  EXPECT_EQ(recorded().delayed[0].first, 1.5);
  recorded().delayed[0].second();
  EXPECT_EQ(window().buttonTitles.at("copyButton"), "Copy device ID");
}

TEST_F(DeviceIdWindow, placeholderIsCopiedLikeAnyId) {
  const auto controller = DeviceIdWindowController::withDeviceId("—");
  pressCopy();
  EXPECT_EQ(recorded().pasteboard, "—");
}

TEST_F(DeviceIdWindow, twoCopiesScheduleTwoResets) {
  const auto controller = DeviceIdWindowController::withDeviceId("id");
  pressCopy();
  pressCopy();
  ASSERT_EQ(recorded().delayed.size(), 2u);
  recorded().delayed[0].second();
  EXPECT_EQ(window().buttonTitles.at("copyButton"), "Copy device ID");
  recorded().delayed[1].second();
  EXPECT_EQ(window().buttonTitles.at("copyButton"), "Copy device ID");
}

TEST_F(DeviceIdWindow, doneHidesTheWindowAndTheControllerLivesOn) {
  const auto controller = DeviceIdWindowController::withDeviceId("id");
  controller->showWindow();
  pressCopy();
  pressDone();
  EXPECT_FALSE(window().isVisible);
  recorded().delayed[0].second();
  EXPECT_EQ(window().buttonTitles.at("copyButton"), "Copy device ID") << "the hidden button too";
  controller->showWindow();
  EXPECT_TRUE(window().isVisible);
}

TEST_F(DeviceIdWindow, goesWithItsControllerAlsoBeforeTheReset) {
  auto controller = DeviceIdWindowController::withDeviceId("id");
  pressCopy();
  const std::weak_ptr<DeviceIdWindowController> gone = controller;
  controller.reset();
  EXPECT_TRUE(gone.expired()) << "neither button nor reset holds it";
  EXPECT_TRUE(recorded().windows.empty());
  recorded().delayed[0].second();
}

}  // namespace
}  // namespace pellix
