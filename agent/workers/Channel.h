#pragma once

#include <agent/core/Descriptor.h>
#include <agent/core/EventLoop.h>
#include <agent/workers/Messages.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Agent {

/// One end of the line between the first process and a worker: messages, each as it was sent and in their
/// order. Both ends are this program, of the same build; nobody else can speak here.
///
/// Nothing waits: what the kernel does not take at once is kept here until it does.
class Channel {
 public:
  /// A message has come; without one the other end is closed, which is told once. The channel may be
  /// destroyed within.
  using Handler = std::function<void(std::optional<Message> message)>;

  /// The loop outlives the channel.
  Channel(EventLoop& loop, Descriptor socket, Handler handler);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  void send(MessageKind kind, const std::string& text = {});
  /// Takes what has come by now: of one who is gone, too.
  void read();
  /// Waits until all that was sent has been taken, or the other end is closed.
  void flush();

 private:
  void handle(uint32_t events);
  void write();
  void arrange();
  /// Reads a piece of what has come; false when there is nothing, or nobody is left to tell.
  bool readPiece();
  /// Hands the messages on that are complete; false when this object is destroyed within.
  bool takeAll();

  EventLoop& loop_;
  const Descriptor socket_;
  const Handler handler_;
  std::string in_, out_;
  size_t sent_ = 0;  // so much of `out_`
  bool closed_ = false;
  std::shared_ptr<bool> alive_;  // false when the channel has been destroyed within its handler
};

}  // namespace Agent
