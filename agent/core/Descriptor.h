#pragma once

#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

namespace Agent {

/// Owns a file descriptor, or none (-1).
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset() {
    if (fd_ >= 0) close(std::exchange(fd_, -1));
  }

 private:
  int fd_ = -1;
};

/// Raises the limit of open descriptors as far as the process may: it can have been started with a lower one.
void raiseDescriptorLimit();

/// Why the process cannot open `count` more descriptors; nothing if it can. Opens them for a moment.
std::optional<std::string> whyNoDescriptors(size_t count);

}  // namespace Agent
