#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Action.h"

/// A target that writes down what it is asked to do.
class Commands final : public platform::Target, public std::enable_shared_from_this<Commands> {
 public:
  static std::shared_ptr<Commands> make() { return std::make_shared<Commands>(); }

  void perform(const platform::Selector& selector) override {
    performed.push_back(selector);
    if (meanwhile) meanwhile();
  }

  platform::Action action(platform::Selector selector) {
    return {weak_from_this(), std::move(selector)};
  }

  std::vector<platform::Selector> performed = {};
  std::function<void()> meanwhile = {};  ///< what each command does
};
