#pragma once

#include <unistd.h>

#include <utility>

namespace platform {

/// Owns an open file, or none.
class Descriptor {
 public:
  Descriptor() = default;
  /// -1 is none, as the system's calls give it.
  explicit Descriptor(int opened) : number(opened) {}
  ~Descriptor() {
    if (number != -1) ::close(number);
  }
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number, other.number);
    return *this;
  }

  bool isOpen() const { return number != -1; }
  int get() const { return number; }

 private:
  int number = -1;
};

}  // namespace platform
