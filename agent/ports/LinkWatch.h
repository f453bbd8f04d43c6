#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/LivePort.h>

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace Agent {

/// Follows the network devices of the system by rtnetlink, and tells of those that it is asked for by name. A
/// device that is renamed is gone under its old name.
class LinkWatch {
 public:
  /// Hears of a device that is there, first of all or changed, or, without a link, that it is gone.
  using Handler = std::function<void(const std::string& name, const Link* link)>;

  explicit LinkWatch(Handler handler) : handler_(std::move(handler)) {}

  /// Subscribes, and tells of all devices before it returns. Returns what went wrong.
  std::optional<std::string> open();
  /// Wait for this to be readable, and then call read().
  int fd() const { return socket_.get(); }
  void read();

 private:
  /// Asks the kernel for all devices, and hears the answer.
  bool readAll();
  /// Reads one datagram; false when there is none.
  bool readOne(int flags, bool& done);
  void linkIs(const Link& link);
  void linkDel(int index);

  const Handler handler_;
  Descriptor socket_;
  std::map<int, std::string> names_;  // of the devices that were told of
};

}  // namespace Agent
