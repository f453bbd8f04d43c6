#include <Kelp/Assert.h>
#include <agent/ports/LivePort.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Agent {

LivePort::LivePort(Port& port, std::string_view kind, std::string device, std::unique_ptr<PortDevice> by)
    : port_(port), device_(std::move(device)), by_(std::move(by)) {
  state_.kind = kind;
  if (!by_->takesOffloads()) segments_ = std::make_unique<Segments>();
}

LivePort::~LivePort() = default;

PortState LivePort::state() const {
  PortState state = state_;
  state.name = port_.id.name().str();
  state.device = device_;
  state.how = by_->how();
  state.nowhere = port_.nowhere;
  const DeviceCounts counts = by_->counts();
  state.kernelDrops = counts.drops;
  state.rxTooLarge = counts.rxTooLarge;
  state.rxErrors = counts.rxErrors;
  return state;
}

std::optional<std::string> LivePort::linkIs(const Link& link) {
  auto wrong = by_->attach(link);
  state_.present = by_->isOpen();
  state_.up = state_.present && link.up;
  state_.mtu = state_.present ? link.mtu : 0;
  state_.wrong = wrong.value_or("");
  return wrong;
}

void LivePort::linkDel() {
  by_->detach();
  state_.present = state_.up = false;
  state_.mtu = 0;
  state_.wrong.clear();
}

LivePort::Received LivePort::receive() {
  const auto [count, more] = by_->receive(received_);
  const std::span<const LiveFrame> frames(received_.data(), count);
  state_.rxFrames += count;
  for (const LiveFrame& frame : frames) {
    state_.rxBytes += frame.bytes.size();
    state_.rxSegments += segmentsOf(frame);
  }
  return {frames, more};
}

void LivePort::send(const Nimnet::Pkt& pkt) {
  const LiveFrame* frame = liveFrameOf(pkt);
  KELP_ASSERT(frame, "a packet that is sent by a live port has come by one");
  if (!isOpen()) return countUnsent(ENODEV);
  if (!fits(*frame)) return countUnsent(EMSGSIZE);
  if (segments_ && frame->hasWork()) return sendFinished(*frame);
  if (collected_ == burst) sendCollected();
  toSend_[collected_++] = *frame;
}

bool LivePort::fits(const LiveFrame& frame) const {
  // A device may take larger frames than a wire with this MTU carries.
  return frame.offload.cut == Offload::notCut ? frame.bytes.size() <= state_.mtu + besideMtu
                                              : segmentsFit(frame, state_.mtu);
}

void LivePort::sendCollected() { sendNow({toSend_.data(), std::exchange(collected_, 0)}); }

void LivePort::sendNow(std::span<const LiveFrame> frames) {
  bool wasFull = false;
  while (!frames.empty()) {
    int error = 0;
    const size_t sent = by_->send(frames, error);
    for (const LiveFrame& frame : frames.first(sent)) {
      ++state_.txFrames;
      state_.txBytes += frame.bytes.size();
      state_.txSegments += segmentsOf(frame);
    }
    frames = frames.subspan(sent);
    if (frames.empty() || (sent > 0 && error == 0)) continue;
    if (error == ENOBUFS && by_->isFullForAll()) {
      // What was taken may have made room already: it is asked once more, and not for every frame.
      if (sent > 0 && !std::exchange(wasFull, true)) continue;
      state_.sendFailed += frames.size();
      return;
    }
    countUnsent(error);
    frames = frames.subspan(1);
  }
}

void LivePort::sendFinished(const LiveFrame& frame) {
  flush();  // order is kept
  auto pieces = segments_->of(frame);
  if (pieces.empty()) return countUnsent(EMSGSIZE);
  while (!pieces.empty()) {
    int error = 0;
    const size_t sent = by_->send(pieces.first(std::min(pieces.size(), burst)), error);
    if (sent == 0) return countUnsent(error);
    pieces = pieces.subspan(sent);
  }
  ++state_.txFrames;
  state_.txBytes += frame.bytes.size();
  state_.txSegments += segmentsOf(frame);
}

}  // namespace Agent
