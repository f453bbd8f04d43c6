#include <agent/core/Output.h>
#include <agent/ports/LivePorts.h>
#include <agent/ports/PortKinds.h>
#include <fmt/format.h>
#include <sys/epoll.h>

#include <algorithm>

namespace Agent {

namespace {

constexpr Kelp::Duration untilNextTry{1};

}  // namespace

LivePorts::LivePorts(Forwarder& forwarder, EventLoop& loop)
    : forwarder_(forwarder),
      loop_(loop),
      links_([this](const std::string& name, const Link* link) { handleLink(name, link); }),
      again_(0, "LivePorts", [this] { tryAgain(); }) {
  forwarder_.newPortsUpIs(false);
}

LivePorts::~LivePorts() {
  if (links_.fd() >= 0) loop_.fdDel(links_.fd());
  for (const auto& member : members_) {
    member->port->port().sink = nullptr;
    loop_.pollerDel(member.get());
    if (member->watched >= 0) loop_.fdDel(member->watched);
  }
}

std::optional<std::string> LivePorts::portIs(const std::string& name, const std::string& device) {
  std::string_view link;
  const PortKind& kind = portKindOf(device, &link);
  if (link.empty()) return fmt::format("{}: no device is named", name);
  for (const auto& member : members_) {
    if (member->port->device() == link) {
      return fmt::format("{} and {} cannot both be on {}", member->port->port().id.name(), name, link);
    }
  }
  capabilities_.insert(kind.capability);
  portIs(kind.make(forwarder_.portIs(name), std::string(link), inHand_));
  return std::nullopt;
}

void LivePorts::portIs(std::unique_ptr<LivePort> port) {
  port->port().sink = port.get();
  members_.push_back(std::make_unique<Member>(*this, std::move(port)));
  loop_.pollerIs(members_.back().get());
}

std::optional<std::string> LivePorts::open() {
  opening_ = true;
  for (const auto& member : members_) {
    if (auto wrong = member->port->open()) return wrong;
    update(*member);
  }
  if (auto wrong = links_.open()) return wrong;
  opening_ = false;
  if (wrong_) return wrong_;
  loop_.fdIs(links_.fd(), EPOLLIN, [this](uint32_t) { links_.read(); });
  for (const auto& member : members_) {
    if (member->port->fd() >= 0) continue;
    complain(fmt::format("{}: no device {} yet", member->port->port().id.name(), member->port->device()));
  }
  return std::nullopt;
}

void LivePorts::handleLink(const std::string& name, const Link* link) {
  for (const auto& member : members_) {
    if (member->port->device() != name) continue;
    if (link) {
      linkIs(*member, *link);
    } else {
      member->refused.reset();
      member->port->linkDel();
    }
    update(*member);
  }
}

void LivePorts::linkIs(Member& member, const Link& link) {
  const std::string before = member.port->state().wrong;
  const auto wrong = member.port->linkIs(link);
  member.refused.reset();
  if (!wrong) return;
  if (opening_) {
    wrong_ = wrong;
    return;
  }
  if (*wrong != before) complain(*wrong);
  member.refused = link;
  again_->scheduleTaskDelay(untilNextTry);
}

void LivePorts::tryAgain() {
  for (const auto& member : members_) {
    if (!member->refused) continue;
    linkIs(*member, Link(*member->refused));
    update(*member);
  }
}

void LivePorts::update(Member& member) {
  LivePort& port = *member.port;
  forwarder_.portUpIs(port.port(), port.state().up);
  tellState(member);
  if (member.watched >= 0) loop_.fdDel(member.watched);
  member.watched = port.fd();
  if (member.watched < 0) return;
  // This only wakes the loop: the frames are taken when the port is polled in the same turn.
  loop_.fdIs(member.watched, EPOLLIN, [&port](uint32_t events) {
    if ((events & EPOLLERR) != 0) port.clearError();
  });
}

void LivePorts::tellState(Member& member) {
  const PortState state = member.port->state();
  const bool comes = state.present != member.present, link = state.up != member.up;
  member.present = state.present;
  member.up = state.up;
  if (!tell_ || opening_ || (!comes && !link)) return;
  const std::string_view what =
      comes ? (state.present ? "is back" : "has gone") : (state.up ? "is up" : "is down");
  tell_({state.up ? Severity::notice : Severity::warning,
         fmt::format("port {}: its device {} {}", state.name, state.device, what),
         {{"VELO_EVENT", "device"}, {"VELO_PORT", state.name}, {"VELO_DEVICE", state.device}}});
}

void LivePorts::receive(Port& port, const LiveFrame& frame) {
  inHand_ = frame;
  const auto size = static_cast<uint32_t>(frame.bytes.size());
  forwarder_.packet().assign(frame.bytes, size, loop_.turnWall().now().seconds());
  totals_.add(forwarder_.receive(port), size);
}

bool LivePorts::burstFrom(LivePort& port) {
  const bool more = port.receive(*this);
  for (const auto& member : members_) member->port->flush();
  port.release();
  return more;
}

void LivePorts::drain() {
  for (const auto& member : members_) member->port->stopReceiving();
  for (const auto& member : members_) {
    while (burstFrom(*member->port)) {
    }
  }
}

std::vector<PortState> LivePorts::states() const {
  std::vector<PortState> states;
  for (const auto& member : members_) states.push_back(member->port->state());
  return states;
}

}  // namespace Agent
