#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/control/Operations.h>
#include <agent/control/ServerSocket.h>
#include <agent/core/Lane.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Agent {

/// The limits of the control server. They also bound its memory: for each client a line, an answer and a
/// little more, and Operations::mostText for all together.
struct ControlLimits {
  size_t clients = 32;          ///< a further client replaces the one that was quiet for the longest time
  size_t line = 64 * 1024;      ///< octets of a request
  size_t answer = 64 * 1024;    ///< octets of an answer that are made before the client has read some of them
  Kelp::Duration silence{60};   ///< how long a client may send no request
  Kelp::Duration slowness{10};  ///< how long it may send no rest of a line, or read nothing of an answer
  double strangerShare = 0.005;  ///< of the loop's time, for all clients without a valid request so far
  double clientShare = 0.1;      ///< of the loop's time, for all other clients
  Kelp::Duration strangerBurst{0.005};
  Kelp::Duration clientBurst{0.25};
};

/// Speaks the control protocol (docs/control.md) over a Unix stream socket, on the loop. It never waits for a
/// client. A turn of the loop does one small thing for one client: it accepts a connection, reads 16 KiB, or
/// makes and writes one piece of an answer. A client that sends something that is not a request gets an error
/// and is closed.
class ControlServer {
 public:
  /// Loop and operations outlive the server.
  ControlServer(EventLoop& loop, Operations& operations, ControlLimits limits = {});
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Listens at a path; the socket file has mode 0660 and is deleted with this object. Returns what is wrong.
  std::optional<std::string> listen(const std::string& path);
  /// Takes a connected socket as a client. When there is no memory it closes the socket and throws
  /// std::bad_alloc.
  void take(int fd, bool mayChange);

  size_t clientCount() const { return clients_.size(); }
  /// Octets in the buffers of all clients.
  size_t heldOctets() const;
  /// Seconds of the loop that clients without a valid request have used.
  double strangerSeconds() const { return strangers_.used(); }
  /// Seconds of the loop that all other clients have used.
  double clientSeconds() const { return known_.used(); }

 private:
  struct Client;

  void handle(int fd, uint32_t events);
  void serve(int fd, uint32_t events);
  void accept();
  void read(Client& client);
  /// Carries out the next complete line of a client, if there is one.
  void takeLine(Client& client);
  void carryOut(Client& client, Request request);
  /// Answers with an error, and closes the connection behind it.
  void refuse(Client& client, std::string_view code, std::string why);
  void answer(Client& client, Answer answer);
  void write(Client& client);
  /// Watches the client's socket for what it needs next.
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
  Kiv::OwnedTask task_;
};

}  // namespace Agent
