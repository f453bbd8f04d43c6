#pragma once

#include <agent/control/Operations.h>
#include <agent/control/ServerSocket.h>
#include <agent/core/Lane.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Agent {

/// What bounds the control server. Together they bound its memory: clients times (line + answer + a little),
/// and Operations::mostText.
struct ControlLimits {
  size_t clients = 32;           ///< further ones take the place of whoever has been quiet the longest
  size_t line = 64 * 1024;       ///< octets of a request
  size_t answer = 64 * 1024;     ///< octets of an answer that wait for the client; the rest is not made yet
  Kelp::Duration silence{60};    ///< without a request
  Kelp::Duration slowness{10};   ///< for the rest of a line, or without taking anything of an answer
  double strangerShare = 0.005;  ///< of the loop's time, for all that have not sent a request that was one
  double clientShare = 0.1;      ///< for all others
  Kelp::Duration strangerBurst{0.005};
  Kelp::Duration clientBurst{0.25};
};

/// Speaks the control protocol (docs/control.md) over a Unix stream socket, on the loop, without ever waiting
/// for anybody. A turn of the loop does one small thing for one client: takes a connection, reads 16 KiB, or
/// makes and writes one piece of an answer. Who sends what is no request is told so and closed.
class ControlServer {
 public:
  /// Loop and operations outlive it.
  ControlServer(EventLoop& loop, Operations& operations, ControlLimits limits = {});
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Listens at a path, with mode 0660. Returns what is wrong. The file goes with this object.
  std::optional<std::string> listen(const std::string& path);
  /// Takes a connected socket in as a client; closed when there is no memory for that (std::bad_alloc).
  void take(int fd, bool mayChange);

  size_t clientCount() const { return clients_.size(); }
  /// Octets in the buffers of all clients.
  size_t heldOctets() const;
  /// Seconds of the loop that went to those who have not sent a request, and to all others.
  double strangerSeconds() const { return strangers_.used(); }
  double clientSeconds() const { return known_.used(); }

 private:
  struct Client;

  void handle(int fd, uint32_t events);
  void serve(int fd, uint32_t events);
  void accept();
  void read(Client& client);
  /// Carries out the next line that is there, if the client is ready for it.
  void takeLine(Client& client);
  void answer(Client& client, Answer answer);
  void write(Client& client);
  /// Has the client watched for what it waits for.
  void arrange(Client& client);
  void drop(int fd);
  void makeRoom();
  void sweep();
  Kelp::Duration now() const { return loop_.turnClock().now(); }

  EventLoop& loop_;
  Operations& operations_;
  const ControlLimits limits_;
  ServerSocket socket_;
  std::map<int, std::unique_ptr<Client>> clients_;
  uint64_t lastClient_ = 0;
  Lane strangers_;
  Lane known_;
  const Kelp::Ptr<Kiv::TimerTask> task_;
};

}  // namespace Agent
