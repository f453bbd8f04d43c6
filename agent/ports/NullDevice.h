#pragma once

#include <agent/ports/IdleDevice.h>

namespace Agent {

/// Takes every frame and gives none: what is measured ends here. It is always there.
class NullDevice final : public IdleDevice {
 public:
  NullDevice() : IdleDevice(Link{.name = "null", .index = 0, .up = true, .mtu = anySize}) {}
};

}  // namespace Agent
