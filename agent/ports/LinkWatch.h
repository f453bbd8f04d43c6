#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/PortDevice.h>

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace Agent {

/// Follows the network devices of the system by rtnetlink. A device that is renamed is reported as gone under
/// its old name, and as there under the new one.
class LinkWatch {
 public:
  /// Called for a device that is there now or has changed; with a null link for one that is gone.
  using Handler = std::function<void(const std::string& name, const Link* link)>;

  explicit LinkWatch(Handler handler) : handler_(std::move(handler)) {}

  /// Subscribes, and calls the handler for every device that is there. Returns what went wrong.
  std::optional<std::string> open();
  /// When this is readable, call read().
  int fd() const { return socket_.get(); }
  void read();

 private:
  /// Asks the kernel for all devices and reads its answer.
  bool readAll();
  /// Reads one datagram; false when there is none. Sets `done` at the end of an answer.
  bool readOne(int flags, bool& done);
  void linkIs(const Link& link);
  void linkDel(int index);

  const Handler handler_;
  Descriptor socket_;
  std::map<int, std::string> names_;  // of the devices that are there, by index
};

}  // namespace Agent
