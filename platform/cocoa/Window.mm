#include "platform/Window.h"

#import <QuartzCore/QuartzCore.h>

#include <map>

#include "platform/cocoa/ActionTarget.h"
#include "platform/cocoa/Conversions.h"

namespace platform {
namespace {

static_assert(static_cast<int>(NSLineBreakByWordWrapping) ==
              static_cast<int>(LineBreakMode::byWordWrapping));
static_assert(static_cast<int>(NSLineBreakByClipping) ==
              static_cast<int>(LineBreakMode::byClipping));
static_assert(static_cast<int>(NSLineBreakByTruncatingMiddle) ==
              static_cast<int>(LineBreakMode::byTruncatingMiddle));

// The constant's name differs between SDKs: rounded before that of macOS 14, push since.
constexpr auto roundedBezelStyle = static_cast<NSBezelStyle>(1);

NSRect nsRect(const Rect& rect) {
  return NSMakeRect(rect.x, rect.y, rect.width, rect.height);
}

NSWindowStyleMask nsStyleMask(const WindowStyleMask& mask) {
  return (mask.titled ? NSWindowStyleMaskTitled : 0) |
         (mask.closable ? NSWindowStyleMaskClosable : 0) |
         (mask.miniaturizable ? NSWindowStyleMaskMiniaturizable : 0) |
         (mask.resizable ? NSWindowStyleMaskResizable : 0);
}

NSFontWeight nsFontWeight(FontWeight weight) {
  switch (weight) {
    case FontWeight::regular: return NSFontWeightRegular;
    case FontWeight::medium: return NSFontWeightMedium;
    case FontWeight::semibold: return NSFontWeightSemibold;
  }
}

NSFont* nsFont(const Font& font) {
  const NSFontWeight weight = nsFontWeight(font.weight);
  switch (font.design) {
    case FontDesign::system: return [NSFont systemFontOfSize:font.size weight:weight];
    case FontDesign::monospacedSystem:
      return [NSFont monospacedSystemFontOfSize:font.size weight:weight];
  }
}

}  // namespace

struct Window::Implementation {
  NSWindowController* controller = nil;                // owns the window, and that its views
  NSMutableArray<PellixActionTarget*>* targets = nil;  // the buttons hold them weakly
  NSButton* defaultButton = nil;
  std::map<std::string, NSButton*> buttons = {};  // by identifier

  NSView* nsView(const View& view);
  NSView* content(const PlainView& plain);
  NSView* content(const Label& label);
  NSView* content(const Button& button);
};

NSView* Window::Implementation::nsView(const View& view) {
  NSView* made = std::visit([this](const auto& kind) { return content(kind); }, view.content);
  made.frame = nsRect(view.frame);
  for (const auto& subview : view.subviews) [made addSubview:nsView(subview)];
  return made;
}

NSView* Window::Implementation::content(const PlainView& plain) {
  NSView* made = [[NSView alloc] initWithFrame:NSZeroRect];
  if (plain.layer) {
    made.wantsLayer = YES;
    NSColor* color = nsColor(plain.layer->backgroundColor);
    [NSApp.effectiveAppearance performAsCurrentDrawingAppearance:^{
      made.layer.backgroundColor = color.CGColor;
    }];
    made.layer.cornerRadius = plain.layer->cornerRadius;
  }
  return made;
}

NSView* Window::Implementation::content(const Label& label) {
  NSString* text = nsString(label.text);
  NSTextField* made = label.lineBreakMode == LineBreakMode::byWordWrapping
                          ? [NSTextField wrappingLabelWithString:text]
                          : [NSTextField labelWithString:text];
  if (label.font) made.font = nsFont(*label.font);
  made.lineBreakMode = static_cast<NSLineBreakMode>(label.lineBreakMode);
  made.toolTip = nsStringOrNil(label.toolTip);
  return made;
}

NSView* Window::Implementation::content(const Button& button) {
  PellixActionTarget* target = [[PellixActionTarget alloc] initWithAction:button.action];
  [targets addObject:target];
  NSButton* made = [NSButton buttonWithTitle:nsString(button.title)
                                      target:target
                                      action:@selector(performAction:)];
  made.bezelStyle = roundedBezelStyle;
  made.keyEquivalent = nsString(button.keyEquivalent);
  buttons[button.identifier] = made;
  if (button.keyEquivalent == "\r") defaultButton = made;
  return made;
}

Window::Window(const WindowContent& content) : implementation(std::make_unique<Implementation>()) {
  NSWindow* window = [[NSWindow alloc] initWithContentRect:nsRect(content.contentView.frame)
                                                 styleMask:nsStyleMask(content.styleMask)
                                                   backing:NSBackingStoreBuffered
                                                     defer:NO];
  window.title = nsString(content.title);
  window.releasedWhenClosed = NO;
  window.restorable = NO;  // its state would be kept on disk
  implementation->targets = [NSMutableArray array];
  implementation->controller = [[NSWindowController alloc] initWithWindow:window];
  implementation->controller.shouldCascadeWindows = NO;  // it stays where it was centred
  window.contentView = implementation->nsView(content.contentView);
  // Else a text that can be selected has the keyboard, and opens selected.
  window.initialFirstResponder = implementation->defaultButton;
}

Window::~Window() {
  // AppKit may hold a window on the screen a while longer; nobody should see one without owner.
  [implementation->controller.window orderOut:nil];
}

void Window::center() {
  [implementation->controller.window center];
}

void Window::makeKeyAndOrderFront() {
  [implementation->controller showWindow:nil];
  // The line above leaves it behind the windows of whoever is active.
  [implementation->controller.window orderFrontRegardless];
  // Unasked, AppKit passes a button over where the user does not navigate by keyboard.
  [implementation->controller.window makeFirstResponder:implementation->defaultButton];
}

void Window::close() {
  [implementation->controller.window close];
}

void Window::setButtonTitle(const std::string& identifier, const std::string& title) {
  implementation->buttons.at(identifier).title = nsString(title);
}

}  // namespace platform
