#include <Kelp/Assert.h>
#include <agent/observe/Tails.h>
#include <agent/ports/LiveFrame.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// Octets that the line of a frame is made from: all headers, but for long chains of IPv6 extension headers.
constexpr uint32_t octetsOfLine = 256;

FrameQueue::Room roomFor(uint32_t octets) {
  FrameQueue::Room room;
  if (octets > octetsOfLine) room.octets = 1 << 20;
  return room;
}

}  // namespace

bool TailFilter::wants(const Fate& fate) const {
  const auto dropped = [](const Egress& egress) { return !egress.passed; };
  if (drops && fate.passed && std::none_of(fate.egress.begin(), fate.egress.end(), dropped)) return false;
  if (list.empty()) return true;
  return std::any_of(fate.hits.begin(), fate.hits.end(),
                     [this](const Hit& hit) { return hit.list == list && (!rule || hit.sequence == *rule); });
}

Tail::Tail(Tails& tails, TailFilter filter, uint32_t octets)
    : tails_(tails),
      filter_(std::move(filter)),
      octets_(octets),
      queue_(roomFor(octets), std::max(octets, octetsOfLine)) {
  KELP_ASSERT(octets <= mostOctets, "no more octets of a frame are asked for than can be kept");
  tails_.add(*this);
}

Tail::~Tail() { tails_.remove(*this); }

void Tail::wait(std::function<void()> ready) {
  if (hasSomething()) return ready();
  ready_ = std::move(ready);
}

Tails::Tails(Core& core, Forwarder& forwarder, EventLoop& loop)
    : core_(core), forwarder_(forwarder), loop_(loop) {
  tails_.reserve(most);
}

Tails::~Tails() { KELP_ASSERT(tails_.empty(), "nobody looks at frames any more"); }

Tails::Looking::Looking(Tails& tails)
    : owner(tails), recorder(tails.core_, tails.forwarder_, [&tails] { tails.take(); }) {
  // Behind the ports: frames are told of in the turn in which they have come.
  owner.loop_.pollerIs(&owner);
}

Tails::Looking::~Looking() { owner.loop_.pollerDel(&owner); }

void Tails::add(Tail& tail) {
  KELP_ASSERT(!full(), "whoever wants to look asks before whether there is room");
  if (!looking_) looking_.emplace(*this);
  tails_.push_back(&tail);
}

void Tails::remove(Tail& tail) {
  std::erase(tails_, &tail);
  if (tails_.empty()) looking_.reset();
}

void Tails::take() {
  const Fate& fate = looking_->recorder.fate();
  const LiveFrame* live = liveFrameOf(*forwarder_.context()->pkt());
  for (Tail* tail : tails_) {
    if (tail->filter_.wants(fate))
      tail->queue_.push(*forwarder_.context(), fate, live ? segmentsOf(*live) : 1);
  }
  looking_->recorder.begin();
}

bool Tails::poll() {
  const auto due = [](const Tail* tail) { return tail->ready_ && tail->hasSomething(); };
  // A call may destroy its tail and other tails.
  for (auto at = tails_.begin(); (at = std::find_if(tails_.begin(), tails_.end(), due)) != tails_.end();) {
    std::exchange((*at)->ready_, nullptr)();
  }
  return false;
}

}  // namespace Agent
