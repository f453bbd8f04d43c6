#include <Velo/Burst.h>
#include <agent/core/Output.h>
#include <agent/ports/LivePorts.h>
#include <agent/ports/PortKinds.h>
#include <fmt/format.h>
#include <sys/epoll.h>

#include <algorithm>
#include <bit>

namespace Agent {

namespace {

constexpr Kelp::Duration untilNextTry{1};
constexpr Kelp::Duration untilNextLook{0.2};

}  // namespace

LivePorts::LivePorts(Forwarder& forwarder, EventLoop& loop, PortSetup setup)
    : forwarder_(forwarder),
      loop_(loop),
      links_([this](const std::string& name, const Link* link) { handleLink(name, link); }),
      setup_(std::move(setup)),
      look_(0, "LivePorts look", [this] { look(); }),
      again_(0, "LivePorts", [this] { tryAgain(); }) {
  forwarder_.newPortsUpIs(false);
}

LivePorts::~LivePorts() {
  if (links_.fd() >= 0) loop_.fdDel(links_.fd());
  for (const auto& member : members_) {
    member->port->port().sink = nullptr;
    loop_.pollerDel(member.get());
    if (member->watched >= 0) loop_.wakerDel(member->watched);
  }
}

std::optional<std::string> LivePorts::portIs(const std::string& name, const std::string& device) {
  std::string wrong;
  const auto [kind, what] = portTextOf(device, wrong);
  auto by = kind ? kind->make(what, setup_, wrong) : nullptr;
  if (by && setup_.workers > 0 && setup_.worker == 0) by = kind->keep(what);
  if (!wrong.empty()) return fmt::format("{}: {}", name, wrong);
  for (const auto& member : members_) {
    if (kind->exclusive && member->kind && member->kind->exclusive && member->port->device() == what.device)
      return fmt::format("{} and {} cannot both be on {}", member->port->port().id.name(), name, what.device);
  }
  capabilities_.merge(kind->capabilities());
  memberIs(kind, std::make_unique<LivePort>(forwarder_.portIs(name), kind->name, what.device, std::move(by)));
  return std::nullopt;
}

void LivePorts::portIs(const std::string& name, std::unique_ptr<PortDevice> by) {
  Member& member =
      memberIs(nullptr, std::make_unique<LivePort>(forwarder_.portIs(name), "", name, std::move(by)));
  member.isMade = true;
  if (const auto link = member.port->by().look()) handleLink(member, &*link);
}

LivePorts::Member& LivePorts::memberIs(const PortKind* kind, std::unique_ptr<LivePort> port) {
  port->port().sink = port.get();
  members_.push_back(std::make_unique<Member>(*this, kind, std::move(port)));
  loop_.pollerIs(members_.back().get());
  return *members_.back();
}

std::optional<std::string> LivePorts::open(Trouble trouble) {
  opening_ = true;
  trouble_ = trouble;
  for (const auto& member : members_) {
    if (auto wrong = make(*member)) return wrong;
    update(*member);
  }
  if (auto wrong = links_.open()) return wrong;
  look();
  opening_ = false;
  if (wrong_) return wrong_;
  loop_.fdIs(links_.fd(), EPOLLIN, [this](uint32_t) { links_.read(); });
  for (const auto& member : members_) {
    // Of several processes one says so.
    if (member->port->isOpen() || setup_.worker > 0) continue;
    complain(fmt::format("{}: no device {} yet", member->port->port().id.name(), member->port->device()));
  }
  return std::nullopt;
}

std::optional<std::string> LivePorts::make(Member& member) {
  const auto wrong = member.port->by().make();
  member.isMade = !wrong;
  if (!wrong) {
    member.port->wrongIs("");
    return std::nullopt;
  }
  if (trouble_ == Trouble::endsStart) return wrong;
  const std::string before = member.port->state().wrong;
  member.port->wrongIs(*wrong);
  complainOf(*wrong, before);
  return std::nullopt;
}

void LivePorts::complainOf(const std::string& wrong, const std::string& before) {
  if (wrong != before) complain(wrong);
  again_->scheduleTaskDelay(untilNextTry);
}

void LivePorts::look() {
  bool any = false;
  for (const auto& member : members_) {
    if (!member->kind || member->kind->followed) continue;
    any = true;
    look(*member);
  }
  if (any) look_->scheduleTaskDelay(untilNextLook);
}

void LivePorts::look(Member& member) {
  const auto link = member.port->by().look();
  if (link == member.seen) return;
  member.seen = link;
  handleLink(member, link ? &*link : nullptr);
}

void LivePorts::toldIs(const std::string& name, const std::optional<Link>& link) {
  for (const auto& member : members_) {
    if (!member->kind || member->kind->followed || member->port->port().id.name().str() != name) continue;
    member->port->by().toldIs(link);
    look(*member);
  }
}

void LivePorts::handleLink(const std::string& name, const Link* link) {
  for (const auto& member : members_) {
    if (member->kind && member->kind->followed && member->port->device() == name) handleLink(*member, link);
  }
}

void LivePorts::handleLink(Member& member, const Link* link) {
  // To open a device, and to close it again, can itself be told as a change of it. The next try comes in its
  // time.
  if (link && member.refused == *link) return;
  if (!member.isMade) {
    member.refused = link ? std::optional(*link) : std::nullopt;
    return;
  }
  if (link) {
    linkIs(member, *link);
  } else {
    member.refused.reset();
    member.port->linkDel();
  }
  update(member);
}

void LivePorts::linkIs(Member& member, const Link& link) {
  const std::string before = member.port->state().wrong;
  const auto wrong = member.port->linkIs(link);
  member.refused.reset();
  if (!wrong) return;
  if (opening_ && trouble_ == Trouble::endsStart) {
    wrong_ = wrong;
    return;
  }
  member.refused = link;
  complainOf(*wrong, before);
}

void LivePorts::tryAgain() {
  for (const auto& member : members_) {
    if (member->isMade && !member->refused) continue;
    if (!member->isMade) (void)make(*member);
    if (member->isMade && member->refused) linkIs(*member, Link(*member->refused));
    update(*member);
  }
}

void LivePorts::update(Member& member) {
  LivePort& port = *member.port;
  forwarder_.portUpIs(port.port(), port.state().up);
  tellState(member);
  if (member.watched >= 0) loop_.wakerDel(member.watched);
  member.watched = port.by().fd();
  loop_.pause().silentIs(std::any_of(members_.begin(), members_.end(), [](const auto& each) {
    return each->port->isOpen() && each->port->by().isSilent();
  }));
  if (member.watched < 0) return;
  loop_.wakerIs(member.watched, [&port] { port.by().clearError(); });
}

void LivePorts::tellState(Member& member) {
  const PortState state = member.port->state();
  const bool comes = state.present != member.present, link = state.up != member.up;
  member.present = state.present;
  member.up = state.up;
  // What the kernel tells of, it tells the first process, too.
  const bool ofFirst = setup_.worker > 0 && member.kind && member.kind->followed;
  if (!tell_ || opening_ || ofFirst || (!comes && !link)) return;
  const std::string who = setup_.worker > 0 ? fmt::format("worker {}: ", setup_.worker) : "";
  const std::string_view what =
      comes ? (state.present ? "is back" : "has gone") : (state.up ? "is up" : "is down");
  tell_({state.up ? Severity::notice : Severity::warning,
         fmt::format("{}port {}: its device {} {}", who, state.name, state.device, what),
         {{"VELO_EVENT", "device"}, {"VELO_PORT", state.name}, {"VELO_DEVICE", state.device}}});
}

bool LivePorts::burstFrom(LivePort& port) {
  static_assert(LivePort::burst <= Velo::PacketBurst::most);
  const auto [frames, more] = port.receive();
  Velo::PacketBurst& burst = forwarder_.burst();
  burst.countIs(static_cast<uint32_t>(frames.size()));
  const double now = loop_.turnWall().now().seconds();
  uint64_t octets = 0;
  for (uint32_t i = 0; i < frames.size(); ++i) {
    const auto size = static_cast<uint32_t>(frames[i].bytes.size());
    burst.pkt(i).refer(frames[i].bytes, size, now, &frames[i]);
    octets += size;
  }
  const Velo::PacketSet passed = forwarder_.receiveBurst(port.port());
  totals_.add(frames.size(), octets, static_cast<uint32_t>(std::popcount(passed)));
  for (const auto& member : members_) member->port->flush();
  port.release();
  return more;
}

void LivePorts::drain() {
  for (const auto& member : members_) member->port->by().stopReceiving();
  for (const auto& member : members_) {
    while (burstFrom(*member->port)) {
    }
  }
}

std::set<int> LivePorts::capabilitiesToMake() const {
  const bool byOthers = setup_.workers > 0 && setup_.worker == 0;
  std::set<int> all;
  for (const auto& member : members_) {
    if (member->kind && member->kind->toMake && (byOthers || !member->isMade))
      all.merge(member->kind->toMake());
  }
  return all;
}

std::vector<int> LivePorts::handedOn() const {
  std::vector<int> all;
  for (const auto& member : members_) all.push_back(member->port->by().handedOn());
  return all;
}

std::vector<PortState> LivePorts::states() const {
  std::vector<PortState> states;
  for (const auto& member : members_) states.push_back(member->port->state());
  return states;
}

}  // namespace Agent
