#pragma once

#include <agent/core/Descriptor.h>

#include <initializer_list>

namespace Agent {

/// Takes signals off the mask of this thread: whoever started the process may have left them blocked.
void unblock(std::initializer_list<int> signals);

/// Has SIGTERM and SIGINT begin the deadline and arrive at a descriptor instead of ending the process at
/// once. The deadline begins in the signal's handler: it needs no thread that still does its work. One at a
/// time, within the life of a deadline; what comes afterwards is ignored. A signal that whoever started the
/// process has it ignore stays ignored.
class Signals {
 public:
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Readable when one has come.
  int fd() const { return fd_.get(); }

 private:
  Descriptor fd_;
};

}  // namespace Agent
