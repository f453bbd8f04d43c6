#pragma once

#include <agent/ports/IdleDevice.h>

namespace Agent {

/// A device that other processes have: here it is only known whether it is there.
class HeldDevice final : public IdleDevice {
 public:
  using IdleDevice::IdleDevice;
};

}  // namespace Agent
