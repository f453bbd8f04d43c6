#include <agent/ports/Napis.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>

namespace Agent {

namespace {

// Numbers of the family "netdev". The headers of older systems do not have them.
constexpr std::string_view familyOfDevices = "netdev";
constexpr uint8_t getNapis = 11, setNapi = 14;
enum NapiAttribute : uint16_t { napiDevice = 1, napiId = 2, napiEmptyLooks = 5, napiPause = 6 };

using EachAttribute = std::function<void(uint16_t type, const rtattr& attribute)>;

class Request {
 public:
  Request(uint16_t family, uint16_t flags, uint8_t command) {
    header().nlmsg_len = NLMSG_LENGTH(GENL_HDRLEN);
    header().nlmsg_type = family;
    header().nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    *static_cast<genlmsghdr*>(NLMSG_DATA(&header())) = {command, 1, 0};
  }
  Request& with(uint16_t type, const void* data, size_t size) {
    auto* at = reinterpret_cast<rtattr*>(bytes_.data() + NLMSG_ALIGN(header().nlmsg_len));
    at->rta_type = type;
    at->rta_len = static_cast<uint16_t>(RTA_LENGTH(size));
    std::memcpy(RTA_DATA(at), data, size);
    header().nlmsg_len = static_cast<uint32_t>(NLMSG_ALIGN(header().nlmsg_len) + RTA_ALIGN(at->rta_len));
    return *this;
  }
  Request& with(uint16_t type, uint32_t value) { return with(type, &value, sizeof value); }
  nlmsghdr& header() { return *reinterpret_cast<nlmsghdr*>(bytes_.data()); }

 private:
  alignas(nlmsghdr) std::array<char, 128> bytes_{};
};

template <class Number>
Number valueOf(const rtattr& attribute) {
  Number value{};
  std::memcpy(&value, RTA_DATA(&attribute), sizeof value);
  return value;
}

/// The kernel writes a number of 64 bits with 32 where these are enough.
uint64_t numberOf(const rtattr& attribute) {
  switch (RTA_PAYLOAD(&attribute)) {
    case sizeof(uint16_t):
      return valueOf<uint16_t>(attribute);
    case sizeof(uint32_t):
      return valueOf<uint32_t>(attribute);
    case sizeof(uint64_t):
      return valueOf<uint64_t>(attribute);
    default:
      return 0;
  }
}

/// Takes what is in one piece of an answer. Returns the error at the end of the answer, nothing before it.
std::optional<int> take(const char* piece, size_t size, const std::function<void()>& begin,
                        const EachAttribute& each) {
  auto left = static_cast<unsigned>(size);
  for (const auto* message = reinterpret_cast<const nlmsghdr*>(piece); NLMSG_OK(message, left);
       message = NLMSG_NEXT(message, left)) {
    if (message->nlmsg_type == NLMSG_DONE)
      return message->nlmsg_len < NLMSG_LENGTH(sizeof(int)) ? 0
                                                            : -*static_cast<const int*>(NLMSG_DATA(message));
    if (message->nlmsg_type == NLMSG_ERROR) return -static_cast<const nlmsgerr*>(NLMSG_DATA(message))->error;
    begin();
    const auto* data = static_cast<const char*>(NLMSG_DATA(message)) + GENL_HDRLEN;
    size_t inside = message->nlmsg_len - NLMSG_LENGTH(GENL_HDRLEN);
    for (const auto* at = reinterpret_cast<const rtattr*>(data); RTA_OK(at, inside);
         at = RTA_NEXT(at, inside))
      each(at->rta_type & NLA_TYPE_MASK, *at);
  }
  return std::nullopt;
}

/// The kernel answers at once. `begin` is called for each message, then `each` for its attributes.
bool ask(int socket, Request& request, const std::function<void()>& begin, const EachAttribute& each) {
  if (send(socket, &request.header(), request.header().nlmsg_len, 0) < 0) return false;
  alignas(nlmsghdr) char piece[32768];
  std::optional<int> error;
  while (!error) {
    const ssize_t got = recv(socket, piece, sizeof piece, 0);
    if (got >= 0) error = take(piece, static_cast<size_t>(got), begin, each);
    if (got < 0 && errno != EINTR) return false;
  }
  errno = *error;
  return *error == 0;
}

}  // namespace

bool Napis::open() {
  if (family_ != 0) return true;
  socket_ = Descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC));
  if (!socket_) return false;
  Request request(GENL_ID_CTRL, 0, CTRL_CMD_GETFAMILY);
  request.with(CTRL_ATTR_FAMILY_NAME, familyOfDevices.data(), familyOfDevices.size() + 1);
  return ask(
      socket_.get(), request, [] {},
      [this](uint16_t type, const rtattr& attribute) {
        if (type == CTRL_ATTR_FAMILY_ID) family_ = static_cast<uint16_t>(numberOf(attribute));
      });
}

bool Napis::read(int device, std::vector<Napi>& napis) {
  if (!open()) return false;
  Request request(family_, NLM_F_DUMP, getNapis);
  request.with(napiDevice, static_cast<uint32_t>(device));
  return ask(
      socket_.get(), request, [&] { napis.emplace_back(); },
      [&](uint16_t type, const rtattr& attribute) {
        const uint64_t number = numberOf(attribute);
        if (type == napiId) napis.back().id = static_cast<uint32_t>(number);
        if (type == napiEmptyLooks) napis.back().emptyLooks = static_cast<uint32_t>(number);
        if (type == napiPause) napis.back().pause = number;
      });
}

bool Napis::napiIs(const Napi& napi) {
  if (!open()) return false;
  Request request(family_, 0, setNapi);
  request.with(napiId, napi.id).with(napiEmptyLooks, napi.emptyLooks);
  request.with(napiPause, &napi.pause, sizeof napi.pause);
  return ask(
      socket_.get(), request, [] {}, [](uint16_t, const rtattr&) {});
}

}  // namespace Agent
