#include <agent/core/Output.h>
#include <agent/ports/LivePort.h>
#include <fmt/format.h>

#include <cerrno>

namespace Agent {

LivePort::LivePort(Port& port, std::string device, const LiveFrame& inHand)
    : port_(port), device_(std::move(device)), inHand_(inHand) {}

PortState LivePort::state() const {
  PortState state = state_;
  state.name = port_.id.name().str();
  state.device = device_;
  state.present = fd() >= 0;
  state.nowhere = port_.nowhere;
  return state;
}

std::optional<std::string> LivePort::linkIs(const Link& link) {
  auto wrong = attach(link);
  state_.up = isOpen() && link.up;
  state_.mtu = isOpen() ? link.mtu : 0;
  state_.wrong = wrong.value_or("");
  return wrong;
}

void LivePort::linkDel() {
  detach();
  descriptor_.reset();
  state_.up = false;
  state_.mtu = 0;
  state_.wrong.clear();
}

std::string LivePort::failed(std::string_view doing) {
  const int error = errno;
  detach();
  descriptor_.reset();
  errno = error;
  return failureOf(fmt::format("{}: {}", device_, doing));
}

void LivePort::countReceived(const LiveFrame& frame) {
  ++state_.rxFrames;
  state_.rxBytes += frame.bytes.size();
  state_.rxSegments += segmentsOf(frame);
}

void LivePort::countSent(const LiveFrame& frame) {
  ++state_.txFrames;
  state_.txBytes += frame.bytes.size();
  state_.txSegments += segmentsOf(frame);
}

void LivePort::countUnsent(int error) { ++(error == EMSGSIZE ? state_.tooLarge : state_.sendFailed); }

}  // namespace Agent
