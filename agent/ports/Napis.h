#pragma once

#include <agent/core/Descriptor.h>

#include <cstdint>
#include <vector>

namespace Agent {

/// What the kernel receives frames of a device by (Linux: Documentation/networking/napi.rst): it takes them
/// when the device says that there are some, and looks again until there are none.
struct Napi {
  uint32_t id = 0;
  uint32_t emptyLooks = 0;  ///< so often it looks in vain before the device is to speak up again
  uint64_t pause = 0;       ///< nanoseconds before each of these looks
  bool operator==(const Napi&) const = default;
};

/// Reads and changes them, by netlink. Changes need CAP_NET_ADMIN and Linux 6.13.
class Napis {
 public:
  /// Those that a device has now. False if they cannot be told (errno).
  bool read(int device, std::vector<Napi>& napis);
  /// False if it cannot be had (errno).
  bool napiIs(const Napi& napi);

 private:
  bool open();

  Descriptor socket_;
  uint16_t family_ = 0;
};

}  // namespace Agent
