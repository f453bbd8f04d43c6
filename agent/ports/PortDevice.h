#pragma once

#include <agent/ports/LiveFrame.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace Agent {

/// A network device as the kernel, or the driver of a port, shows it.
struct Link {
  std::string name;
  int index = 0;
  bool up = false;  ///< administratively, and the carrier is there
  uint32_t mtu = 0;
  bool isOn = false;  ///< administratively; a new carrier is told up to a second later than frames pass
  bool operator==(const Link&) const = default;
};

/// What a frame may have beside the octets that the MTU counts: addresses, type and a tag.
inline constexpr uint32_t besideMtu = 18;
/// The MTU of what takes frames of any size.
inline constexpr uint32_t anySize = 65535;

/// What a device counts itself: frames that never came to the agent.
struct DeviceCounts {
  uint64_t drops = 0;       ///< there was no room for them
  uint64_t rxTooLarge = 0;  ///< they could not be read to their end
  uint64_t rxErrors = 0;    ///< they came damaged
};

/// What a port sends and receives by: the one interface of all kinds of ports. A device may be missing, go
/// away and come back.
///
/// A burst is receive() of one device, then send() of any, then release() of the first. Received frames stay
/// where they are until release(), so that they need not be copied to be sent. A frame that tells its home
/// (LiveFrame::home) can be taken over by devices of the same home, for longer than the burst.
///
/// Nothing here is called by another thread than the loop's. Between attach() and detach() nothing allocates.
class PortDevice {
 public:
  /// How many frames are received or sent at once.
  static constexpr size_t burst = 64;
  using Frames = std::span<LiveFrame, burst>;

  struct Received {
    size_t count = 0;
    bool more = false;  ///< there may be more at once
  };

  virtual ~PortDevice() = default;

  /// Makes the device if this kind makes its own, before anybody looks for it, and gets ready what takes
  /// rights that the agent gives up later. Returns what went wrong.
  virtual std::optional<std::string> make() { return std::nullopt; }
  /// How the device is now, asked several times a second: of kinds whose devices the kernel does not tell of
  /// (PortKind::followed). Nothing: it is not there.
  virtual std::optional<Link> look() { return std::nullopt; }
  /// Of a device that other processes have, of such a kind: how it is with them. It is looked at then.
  virtual void toldIs(const std::optional<Link>&) {}
  /// The device is there, or has changed: makes sure that it is open. Returns what went wrong.
  virtual std::optional<std::string> attach(const Link& link) = 0;
  /// Closes it; it may be closed already.
  virtual void detach() = 0;
  virtual bool isOpen() const = 0;

  /// The descriptor to wait for when there is nothing to receive; -1: there is none.
  virtual int fd() const { return -1; }
  /// Whether frames come that no descriptor tells of, so that the device is to be asked again and again.
  virtual bool isSilent() const { return false; }
  /// Receives the frames that are there, into the beginning of `frames`.
  virtual Received receive(Frames frames) = 0;
  /// Gives the received frames back.
  virtual void release() {}
  /// Sends frames, in order, and returns how many. If these are not all, `error` says why the next one was
  /// not sent.
  virtual size_t send(std::span<const LiveFrame> frames, int& error) = 0;
  /// Whether ENOBUFS of send() says that there is no room for any frame. If not, it may be about the one.
  virtual bool isFullForAll() const { return false; }
  /// Whether work that the sender of a frame left to a device can be left to this one. If not, no such frame
  /// is sent by it.
  virtual bool takesOffloads() const { return false; }
  /// Clears the error that the descriptor has.
  virtual void clearError() {}
  /// From now on no new frame is received; those that have arrived already still can be.
  virtual void stopReceiving() = 0;

  /// Of a device that is kept for other processes (PortKind::keep): the descriptor that they need for theirs;
  /// -1: they need none.
  virtual int handedOn() const { return -1; }

  virtual DeviceCounts counts() const { return {}; }
  /// How frames get to and from the device, in a few words for people; empty when the kind says it all.
  virtual std::string how() const { return {}; }
};

}  // namespace Agent
