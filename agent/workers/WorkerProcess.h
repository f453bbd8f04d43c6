#pragma once

#include <Kelp/Duration.h>
#include <agent/core/Descriptor.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// A worker as a process: this program once more, with the same command line and the word which worker it is.
/// It has the rights that this process has by now, and does not outlive this object, nor this process.
class WorkerProcess {
 public:
  /// Starts it with one end of a line, of which `channel` gets the other, and with descriptors of this
  /// process, where these are not -1. Null, with the reason in `wrong`, when that cannot be done.
  static std::unique_ptr<WorkerProcess> start(unsigned number, const std::vector<int>& handed,
                                              Descriptor& channel, std::string& wrong);
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  pid_t pid() const { return pid_; }
  /// Readable when it has ended.
  int fd() const { return ended_.get(); }
  void kill();
  /// How long it has had a processor, all threads together.
  Kelp::Duration used() const;
  /// How it has ended, in a few words for people. To be called once, when it has.
  std::string howEnded();

 private:
  WorkerProcess(pid_t pid, Descriptor ended) : pid_(pid), ended_(std::move(ended)) {}

  const pid_t pid_;
  const Descriptor ended_;
  bool gone_ = false;
};

/// To be called by a worker before anything else: it ends with the first process, however that ends, and by
/// no signal that was meant for that one. False when the first process is gone already.
bool workerBegins(int channel);

}  // namespace Agent
