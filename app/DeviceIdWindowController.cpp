#include "app/DeviceIdWindowController.h"

#include <utility>

#include "platform/MainQueue.h"
#include "platform/Pasteboard.h"

namespace pellix {
namespace {

using namespace platform;

constexpr auto copyButton = "copyButton";
constexpr auto copyTitle = "Copy device ID";
constexpr double copiedDuration = 1.5;  // seconds

}  // namespace

std::shared_ptr<DeviceIdWindowController> DeviceIdWindowController::withDeviceId(
    std::string deviceId) {
  std::shared_ptr<DeviceIdWindowController> controller(
      new DeviceIdWindowController(std::move(deviceId)));
  // The buttons need a controller that is owned already.
  controller->window =
      std::make_unique<Window>(WindowContent{.title = "Velmor Pellix",
                                             .styleMask = {.titled = true, .closable = true},
                                             .contentView = controller->buildContent()});
  controller->window->center();
  return controller;
}

DeviceIdWindowController::DeviceIdWindowController(std::string id) : deviceId(std::move(id)) {}

View DeviceIdWindowController::buildContent() {
  const auto self = weak_from_this();
  View title{.frame = {28, 220, 460, 28},
             .content = Label{.text = "Your device ID",
                              .font = Font{.size = 22, .weight = FontWeight::semibold}}};
  View instruction{.frame = {28, 160, 460, 50},
                   .content = Label{.text = "Send this to Orlen / IT with your work email. They "
                                            "will whitelist this Mac, then you can authorize from "
                                            "the menu bar shield.",
                                    .lineBreakMode = LineBreakMode::byWordWrapping}};
  View idLabel{.frame = {12, 16, 440, 24},
               .content = Label{.text = deviceId,
                                .font = Font{.design = FontDesign::monospacedSystem,
                                             .size = 13,
                                             .weight = FontWeight::medium},
                                .lineBreakMode = LineBreakMode::byTruncatingMiddle,
                                .toolTip = deviceId}};
  View idBox{
      .frame = {28, 88, 464, 56},
      .content = PlainView{.layer = PlainView::Layer{.backgroundColor = Color::controlBackground,
                                                     .cornerRadius = 8}},
      .subviews = {std::move(idLabel)}};
  View copy{.frame = {28, 28, 160, 32},
            .content = Button{.identifier = copyButton,
                              .title = copyTitle,
                              .action = {self, &DeviceIdWindowController::copyId}}};
  View done{.frame = {400, 28, 90, 32},
            .content = Button{.identifier = "doneButton",
                              .title = "Done",
                              .action = {self, &DeviceIdWindowController::closeWindow},
                              .keyEquivalent = "\r"}};
  return {.frame = {0, 0, 520, 280},
          .subviews = {std::move(title), std::move(instruction), std::move(idBox), std::move(copy),
                       std::move(done)}};
}

void DeviceIdWindowController::showWindow() {
  window->makeKeyAndOrderFront();
}

void DeviceIdWindowController::copyId() {
  GeneralPasteboard::clearContents();
  GeneralPasteboard::setString(deviceId);
  window->setButtonTitle(copyButton, "Copied!");
  MainQueue::asyncAfter(copiedDuration, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->window->setButtonTitle(copyButton, copyTitle);
  });
}

void DeviceIdWindowController::closeWindow() {
  window->close();
}

}  // namespace pellix
