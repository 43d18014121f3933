#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace platform {

/// A class whose methods carry out the commands of menu items and buttons.
class Target {
 protected:
  ~Target() = default;
};

/// What picking a menu item or pressing a button does: one of its target's own methods, so that no
/// command can be named that its target does not have. The target is held weakly.
class Action {
 public:
  Action() = default;

  template <typename Receiver>
  Action(std::weak_ptr<std::type_identity_t<Receiver>> receiver, void (Receiver::*method)())
      : target(std::move(receiver)), command(static_cast<Command>(method)) {}

  /// Calls the method; nothing if the target is gone, which stays alive for the length of the call.
  /// Main thread.
  void perform() const {
    if (const auto receiver = target.lock()) (receiver.get()->*command)();
  }

  friend bool operator==(const Action& a, const Action& b) {
    return a.command == b.command && a.target.lock() == b.target.lock();
  }

 private:
  using Command = void (Target::*)();

  std::weak_ptr<Target> target = {};
  Command command = nullptr;
};

}  // namespace platform
