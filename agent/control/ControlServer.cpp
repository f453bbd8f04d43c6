#include <agent/control/ControlServer.h>
#include <agent/control/Peer.h>
#include <agent/core/Descriptor.h>
#include <agent/core/Reserve.h>
#include <agent/core/Version.h>
#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace Agent {

namespace {

constexpr size_t readAtOnce = 16 * 1024;
constexpr Kelp::Duration sweepEvery{1.0};

}  // namespace

/// One connection. A line is read, carried out and answered before the next one is.
struct ControlServer::Client {
  Client(Operations& operations, Descriptor taken, uint64_t number, bool changes, Kelp::Duration now)
      : socket(std::move(taken)),
        fd(socket.get()),
        id(number),
        mayChange(changes),
        session(operations),
        quietSince(now) {}

  const Descriptor socket;
  const int fd;
  const uint64_t id;  ///< never used again, unlike the number of a descriptor
  const bool mayChange;
  Session session;

  std::string in;                      ///< read and not yet carried out
  std::string out;                     ///< not yet written
  std::unique_ptr<Document> document;  ///< the rest of the answer, which is not in `out` yet
  bool known = false;                  ///< has sent a valid request
  bool waiting = false;                ///< for an answer that comes later
  bool closing = false;                ///< to be closed when everything is written
  Lane* lane = nullptr;                ///< where it is watched
  Kelp::Duration quietSince;  ///< the last request, the beginning of a line, or progress of an answer

  bool hasLine() const { return in.find('\n') != std::string::npos; }
  bool answering() const { return document || !out.empty(); }
};

ControlServer::ControlServer(EventLoop& loop, Operations& operations, ControlLimits limits)
    : loop_(loop),
      operations_(operations),
      limits_(limits),
      strangers_(loop, "ControlStrangers", limits.strangerShare, limits.strangerBurst,
                 [this](int fd, uint32_t events) { handle(fd, events); }),
      known_(loop, "ControlClients", limits.clientShare, limits.clientBurst,
             [this](int fd, uint32_t events) { handle(fd, events); }),
      task_(0, "ControlSweep", [this] { sweep(); }) {}

ControlServer::~ControlServer() {
  while (!clients_.empty()) drop(clients_.begin()->first);
}

std::optional<std::string> ControlServer::listen(const std::string& path) {
  if (auto wrong = socket_.listen(path)) return wrong;
  strangers_.fdIs(socket_.fd(), EPOLLIN);
  return std::nullopt;
}

size_t ControlServer::heldOctets() const {
  size_t octets = 0;
  for (const auto& [fd, client] : clients_) octets += client->in.capacity() + client->out.capacity();
  return octets;
}

void ControlServer::handle(int fd, uint32_t events) {
  Refusable memory;
  try {
    serve(fd, events);
    Refusable::check();
  } catch (const std::bad_alloc&) {
    // This also frees the memory that is kept for the client.
    drop(fd);
  }
}

void ControlServer::serve(int fd, uint32_t events) {
  if (fd == socket_.fd()) return accept();
  const auto at = clients_.find(fd);
  if (at == clients_.end()) return;
  Client& client = *at->second;
  // The other end is closed, so that nobody would read an answer.
  if (events & EPOLLERR || (events & EPOLLHUP && !(events & EPOLLIN))) return drop(fd);
  if (events & EPOLLOUT) return client.answering() ? write(client) : takeLine(client);
  if (events & EPOLLIN) read(client);
}

void ControlServer::accept() {
  const int fd = accept4(socket_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd < 0) {
    // There is no descriptor left: the client that was quiet for the longest time gives way.
    if (errno == EMFILE || errno == ENFILE) makeRoom();
    return;
  }
  take(fd, peerMayChange(fd, socket_.group()));
}

void ControlServer::take(int fd, bool mayChange) {
  Descriptor socket(fd);
  Refusable memory;
  if (clients_.size() >= limits_.clients) makeRoom();
  auto made = std::make_unique<Client>(operations_, std::move(socket), ++lastClient_, mayChange, now());
  made->session.peerIs(peerOf(fd));
  Client& client = *clients_.insert_or_assign(fd, std::move(made)).first->second;
  arrange(client);
  try {
    if (!task_->taskWorkQueued()) task_->scheduleTaskDelay(sweepEvery);
    Refusable::check();
  } catch (const std::bad_alloc&) {
    drop(fd);
    throw;
  }
}

void ControlServer::makeRoom() {
  const auto rank = [](const auto& client) {
    // Strangers give way first, clients that are being served last.
    return std::tuple(client.second->waiting || client.second->answering(), client.second->known,
                      client.second->quietSince);
  };
  const auto quietest = std::min_element(clients_.begin(), clients_.end(),
                                         [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
  if (quietest != clients_.end()) drop(quietest->first);
}

void ControlServer::read(Client& client) {
  const size_t before = client.in.size();
  const size_t room = std::min(readAtOnce, limits_.line + 1 - std::min(before, limits_.line));
  client.in.resize(before + room);
  const ssize_t got = recv(client.fd, client.in.data() + before, room, MSG_DONTWAIT);
  client.in.resize(before + static_cast<size_t>(std::max<ssize_t>(got, 0)));
  if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) return drop(client.fd);
  if (before == 0 && got > 0) client.quietSince = now();
  takeLine(client);
}

void ControlServer::takeLine(Client& client) {
  const size_t end = client.in.find('\n');
  if (end == std::string::npos) {
    if (client.in.size() <= limits_.line) return arrange(client);
    return refuse(client, "too-large", fmt::format("a request has at most {} octets", limits_.line));
  }
  client.quietSince = now();
  std::string wrong;
  auto request = Request::read(std::string_view(client.in).substr(0, end), &wrong);
  if (!request) return refuse(client, "bad-request", std::move(wrong));
  if (!client.known) {
    // The first request of a client is carried out in the lane of known clients, so that it costs the
    // strangers no time.
    client.known = true;
    return arrange(client);
  }
  client.in.erase(0, end + 1);
  client.in.shrink_to_fit();
  carryOut(client, std::move(*request));
}

void ControlServer::refuse(Client& client, std::string_view code, std::string why) {
  client.closing = true;
  client.in.clear();
  client.in.shrink_to_fit();
  answer(client, Answer::failed(code, std::move(why)));
}

void ControlServer::carryOut(Client& client, Request request) {
  client.waiting = true;
  client.out = "{\"id\":" + lineOf(request.member("id")) + ",";
  const auto reply = [this, fd = client.fd, id = client.id](Answer given) {
    const auto at = clients_.find(fd);
    if (at == clients_.end() || at->second->id != id) return;
    Refusable memory;
    try {
      if (given.document || !given.error.is_null()) answer(*at->second, std::move(given));
      Refusable::check();
      if (!at->second->waiting) return;
    } catch (const std::bad_alloc&) {
      // The client goes, as it does without an answer.
    }
    drop(fd);
  };
  const int fd = client.fd;
  operations_.handle(std::move(request), client.session, client.mayChange, reply);
  // The client may be gone, if there was no memory for its answer.
  if (clients_.contains(fd)) arrange(client);
}

void ControlServer::answer(Client& client, Answer given) {
  client.waiting = false;
  client.quietSince = now();  // the client was not quiet while it waited for the answer
  client.document = std::move(given.document);
  if (client.out.empty()) client.out = "{\"id\":null,";
  client.out += fmt::format("\"ok\":{},\"version\":\"{}\",", client.document != nullptr, version());
  client.out += client.document ? "\"document\":" : "\"error\":" + lineOf(given.error) + "}\n";
  arrange(client);
}

void ControlServer::write(Client& client) {
  if (client.document && client.out.size() < limits_.answer / 2 && !client.document->next(client.out)) {
    client.document.reset();
    client.out += "}\n";
  }
  const ssize_t sent = send(client.fd, client.out.data(), client.out.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent < 0 && errno != EAGAIN && errno != EINTR) return drop(client.fd);
  if (sent > 0) {
    client.out.erase(0, static_cast<size_t>(sent));
    client.quietSince = now();
  }
  if (client.out.empty()) client.out.shrink_to_fit();
  if (!client.answering() && client.closing) return drop(client.fd);
  arrange(client);
}

void ControlServer::arrange(Client& client) {
  Lane& lane = client.known ? known_ : strangers_;
  if (client.lane && client.lane != &lane) client.lane->fdDel(client.fd);
  client.lane = &lane;
  uint32_t events = EPOLLIN;
  if (client.waiting) {
    events = 0;  // a hang-up is reported in any case
  } else if (client.answering() || client.hasLine()) {
    events = EPOLLOUT;
  }
  lane.fdIs(client.fd, events);
}

void ControlServer::drop(int fd) {
  const auto at = clients_.find(fd);
  if (at == clients_.end()) return;
  if (at->second->lane) at->second->lane->fdDel(fd);
  clients_.erase(at);
}

void ControlServer::sweep() {
  std::vector<int> gone;
  for (const auto& [fd, client] : clients_) {
    if (client->waiting) continue;
    const bool slow = client->answering() || !client->in.empty();
    const Kelp::Duration most = slow ? limits_.slowness : limits_.silence;
    if (now() - client->quietSince > most) gone.push_back(fd);
  }
  for (const int fd : gone) drop(fd);
  if (!clients_.empty()) task_->scheduleTaskDelay(sweepEvery);
}

}  // namespace Agent
