#include <agent/workers/Channel.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

/// In front of every text.
struct Head {
  uint64_t length;
  MessageKind kind;
};

constexpr size_t octetsAPiece = 64 * 1024;

}  // namespace

Channel::Channel(EventLoop& loop, Descriptor socket, Handler handler)
    : loop_(loop),
      socket_(std::move(socket)),
      handler_(std::move(handler)),
      alive_(std::make_shared<bool>(true)) {
  arrange();
}

Channel::~Channel() {
  *alive_ = false;
  if (!closed_) loop_.fdDel(socket_.get());
}

void Channel::send(MessageKind kind, const std::string& text) {
  if (closed_) return;
  Head head{};
  head.length = text.size();
  head.kind = kind;
  out_.append(reinterpret_cast<const char*>(&head), sizeof head);
  out_ += text;
  write();
}

void Channel::write() {
  while (sent_ < out_.size()) {
    const ssize_t count =
        ::send(socket_.get(), out_.data() + sent_, out_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
    // That the other end is closed, reading will tell.
    if (count < 0 && errno != EINTR) break;
    if (count > 0) sent_ += static_cast<size_t>(count);
  }
  if (sent_ == out_.size()) {
    out_.clear();
    sent_ = 0;
  }
  arrange();
}

void Channel::flush() {
  while (!closed_ && !out_.empty()) {
    pollfd room{socket_.get(), POLLOUT, 0};
    if (poll(&room, 1, -1) > 0 && (room.revents & (POLLERR | POLLHUP)) != 0) return;
    write();
  }
}

void Channel::arrange() {
  if (closed_) return;
  const uint32_t events = out_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT;
  loop_.fdIs(socket_.get(), events, [this](uint32_t happened) { handle(happened); });
}

void Channel::handle(uint32_t events) {
  if ((events & EPOLLOUT) != 0) write();
  // One piece a turn: packets go on while a large text comes.
  if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) readPiece();
}

void Channel::read() {
  while (readPiece()) {
  }
}

bool Channel::readPiece() {
  if (closed_) return false;
  const size_t before = in_.size();
  in_.resize(before + octetsAPiece);
  const ssize_t got = recv(socket_.get(), in_.data() + before, octetsAPiece, MSG_DONTWAIT);
  in_.resize(before + static_cast<size_t>(std::max<ssize_t>(got, 0)));
  if (got > 0) return takeAll();
  if (got < 0 && (errno == EINTR || errno == EAGAIN)) return errno == EINTR;
  closed_ = true;
  loop_.fdDel(socket_.get());
  handler_(std::nullopt);
  return false;
}

bool Channel::takeAll() {
  const auto alive = alive_;
  size_t at = 0;
  for (Head head{}; in_.size() - at >= sizeof head;) {
    std::memcpy(&head, in_.data() + at, sizeof head);
    if (in_.size() - at - sizeof head < head.length) break;
    Message message{head.kind, in_.substr(at + sizeof head, head.length)};
    at += sizeof head + head.length;
    handler_(std::move(message));
    if (!*alive) return false;
  }
  in_.erase(0, at);
  return true;
}

}  // namespace Agent
