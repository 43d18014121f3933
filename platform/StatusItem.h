#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Color.h"
#include "platform/Image.h"
#include "platform/Menu.h"

namespace platform {

/// What a status item's button shows, as a value. Without an image the title stands in the bar.
struct StatusBarButton {
  std::optional<Image> image = {};
  std::string title = {};
  std::optional<Color> contentTintColor = {};  ///< none: the bar's own colouring
  std::string toolTip = {};

  friend bool operator==(const StatusBarButton&, const StatusBarButton&) = default;
};

inline constexpr double variableStatusItemLength = -1.0;  ///< as wide as its content

/// One item in the system status bar, there as long as this object. Main thread only.
class StatusItem {
 public:
  explicit StatusItem(double length);
  ~StatusItem();
  StatusItem(const StatusItem&) = delete;
  StatusItem& operator=(const StatusItem&) = delete;

  /// Whether the status bar gave the item a button.
  bool hasButton() const;
  /// Shows `button`. Must not be called on an item without a button.
  void setButton(const StatusBarButton& button);

  /// Replaces the menu. One that is open stays open and working; the next opening shows the new
  /// one.
  void setMenu(const Menu& menu);

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation;
};

}  // namespace platform
