#pragma once

#include <agent/live/Descriptor.h>

namespace Agent {

/// Has SIGTERM and SIGINT arrive at a descriptor instead of ending the process, from here on: make it before
/// threads are started.
class Signals {
 public:
  /// While it lives, they end the process after all: nothing has begun that is to be ended in order. The
  /// calling thread starts no other meanwhile.
  class Ending {
   public:
    Ending();
    ~Ending();
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;
  };

  Signals();
  /// Readable when one has come.
  int fd() const { return fd_.get(); }

 private:
  Descriptor fd_;
};

}  // namespace Agent
