#pragma once

#include <memory>
#include <string>

namespace platform {

/// The name of a method that a menu item or a button reaches in its target.
using Selector = std::string;

/// Receives the commands of menu items and buttons.
class Target {
 public:
  /// Carries out `selector`. Main thread. Called only while the target is alive, and it stays alive
  /// for the length of the call. Selectors it does not know are ignored.
  virtual void perform(const Selector& selector) = 0;

 protected:
  ~Target() = default;
};

/// What picking a menu item or pressing a button does. The target is held weakly: an action whose
/// target is gone does nothing.
struct Action {
  std::weak_ptr<Target> target = {};
  Selector selector = {};

  friend bool operator==(const Action& a, const Action& b) {
    return a.selector == b.selector && a.target.lock() == b.target.lock();
  }
};

}  // namespace platform
