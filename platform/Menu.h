#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Action.h"

namespace platform {

/// One entry of a menu as a value. Titles and tool tips are shown verbatim.
struct MenuItem {
  std::string title = {};
  std::optional<Action> action = {};  ///< none: the entry does nothing
  std::string keyEquivalent = {};     ///< one lower-case letter, answered with Command; empty: none
  std::string toolTip = {};
  bool isEnabled = true;
  bool isSeparatorItem = false;

  static MenuItem separatorItem() { return {.isSeparatorItem = true}; }

  friend bool operator==(const MenuItem&, const MenuItem&) = default;
};

/// A menu as a value, entries from top to bottom.
struct Menu {
  std::vector<MenuItem> items = {};

  friend bool operator==(const Menu&, const Menu&) = default;
};

}  // namespace platform
