#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Action.h"

/// A text that a template can be given.
template <std::size_t size>
struct Name {
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is one
  consteval Name(const char (&literal)[size]) { std::copy_n(literal, size, text); }
  char text[size] = {};
};

/// A target that writes down what it is asked to do.
class Commands final : public platform::Target, public std::enable_shared_from_this<Commands> {
 public:
  static std::shared_ptr<Commands> make() { return std::make_shared<Commands>(); }

  /// The command of that name: `commands->action<"quit">()`.
  template <Name name>
  platform::Action action() {
    return {weak_from_this(), &Commands::perform<name>};
  }

  std::vector<std::string> performed = {};
  std::function<void()> meanwhile = {};  ///< what each command does

 private:
  template <Name name>
  void perform() {
    performed.emplace_back(name.text);
    if (meanwhile) meanwhile();
  }
};
