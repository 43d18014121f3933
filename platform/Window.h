#pragma once

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Action.h"
#include "platform/Color.h"

namespace platform {

/// In points, the origin at the bottom left of the view around it.
struct Rect {
  double x = 0, y = 0, width = 0, height = 0;
  friend bool operator==(const Rect&, const Rect&) = default;
};

enum class FontDesign { system, monospacedSystem };
enum class FontWeight { regular, medium, semibold };

struct Font {
  FontDesign design = FontDesign::system;
  double size = 0;  ///< points
  FontWeight weight = FontWeight::regular;
  friend bool operator==(const Font&, const Font&) = default;
};

enum class LineBreakMode { byWordWrapping = 0, byClipping = 2, byTruncatingMiddle = 5 };

/// A view without content; its layer, if it has one, is its background.
struct PlainView {
  struct Layer {
    Color backgroundColor;
    double cornerRadius = 0;
    friend bool operator==(const Layer&, const Layer&) = default;
  };
  std::optional<Layer> layer = {};
  friend bool operator==(const PlainView&, const PlainView&) = default;
};

/// Text that cannot be edited, shown verbatim.
struct Label {
  std::string text = {};
  std::optional<Font> font = {};  ///< none: the platform's own font for labels
  LineBreakMode lineBreakMode = LineBreakMode::byClipping;
  std::string toolTip = {};
  friend bool operator==(const Label&, const Label&) = default;
};

/// A rounded push button.
struct Button {
  std::string identifier = {};  ///< names the button within its window
  std::string title = {};
  Action action = {};
  /// "\r": the default button, whichever control has the focus; at first it has it itself.
  std::string keyEquivalent = {};
  friend bool operator==(const Button&, const Button&) = default;
};

struct View {
  Rect frame = {};
  std::variant<PlainView, Label, Button> content = {};
  std::vector<View> subviews = {};
  friend bool operator==(const View&, const View&) = default;
};

struct WindowStyleMask {
  bool titled = false, closable = false, miniaturizable = false, resizable = false;
  friend bool operator==(const WindowStyleMask&, const WindowStyleMask&) = default;
};

/// A window as a value; its size is that of the content view's frame.
struct WindowContent {
  std::string title = {};
  WindowStyleMask styleMask = {};
  View contentView = {};
  friend bool operator==(const WindowContent&, const WindowContent&) = default;
};

/// One window, hidden at first. The user closing it only hides it; it goes with this object.
/// Main thread only.
class Window {
 public:
  explicit Window(const WindowContent& content);
  ~Window();
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  void center();
  /// Shows it in front of the application's other windows.
  void makeKeyAndOrderFront();
  void close();
  /// Changes the title of the button with that identifier, which must exist.
  void setButtonTitle(const std::string& identifier, const std::string& title);

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation;
};

}  // namespace platform
