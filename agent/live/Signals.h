#pragma once

#include <agent/live/Descriptor.h>

namespace Agent {

/// Has SIGTERM and SIGINT arrive at a descriptor instead of ending the process, from here on: make it before
/// threads are started.
class Signals {
 public:
  Signals();
  /// Readable when one has come.
  int fd() const { return fd_.get(); }

 private:
  Descriptor fd_;
};

}  // namespace Agent
