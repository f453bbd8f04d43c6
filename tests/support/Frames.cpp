#include "Frames.h"

#include <Nimnet/Addr.h>

#include "FrameBytes.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace TestSupport {

namespace {

template <class Address>
Address address(std::string_view text) {
  const auto parsed = Address::parse(text);
  if (!parsed) throw std::invalid_argument("no address: " + std::string(text));
  return *parsed;
}
void putEth(Bytes& to, std::string_view text) {
  for (uint8_t b : address<Nimnet::EthAddr>(text).bytes) put8(to, b);
}
void putIp(Bytes& to, std::string_view text) { put32(to, address<Nimnet::IpAddr>(text).value); }
void putIp6(Bytes& to, std::string_view text) {
  const auto a = address<Nimnet::Ip6Addr>(text);
  for (uint64_t half : {a.high, a.low}) {
    put32(to, static_cast<uint32_t>(half >> 32));
    put32(to, static_cast<uint32_t>(half));
  }
}

}  // namespace

FrameBuilder& FrameBuilder::add(Kind kind, Bytes head) {
  layers_.push_back({kind, std::move(head), {}, {}, {}, {}});
  return *this;
}

FrameBuilder::Layer& FrameBuilder::last(std::initializer_list<Kind> kinds, const char* what) {
  for (auto layer = layers_.rbegin(); layer != layers_.rend(); ++layer) {
    if (std::find(kinds.begin(), kinds.end(), layer->kind) != kinds.end()) return *layer;
  }
  throw std::logic_error(std::string("the frame has no layer for ") + what);
}

FrameBuilder& FrameBuilder::eth(std::string_view source, std::string_view destination) {
  Bytes head;
  putEth(head, destination.empty() ? "02:00:00:00:00:02" : destination);
  putEth(head, source.empty() ? "02:00:00:00:00:01" : source);
  put16(head, 0);
  return add(Kind::eth, std::move(head));
}

FrameBuilder& FrameBuilder::vlan(uint16_t id, uint16_t tpid, uint8_t priority) {
  // A tag stands before the type of what it tags, so the layer before it gets the tag's own type.
  last({Kind::eth, Kind::vlan, Kind::snap}, "a tag").next = tpid;
  Bytes head;
  put16(head, static_cast<uint32_t>(priority << 13 | id));
  put16(head, 0);
  return add(Kind::vlan, std::move(head));
}

FrameBuilder& FrameBuilder::llc(uint8_t dsap, uint8_t ssap, uint8_t control) {
  return add(Kind::llc, {dsap, ssap, control});
}

FrameBuilder& FrameBuilder::snap(uint32_t oui) {
  llc(0xaa, 0xaa, 0x03);
  Bytes head;
  put8(head, oui >> 16);
  put16(head, oui);
  put16(head, 0);
  return add(Kind::snap, std::move(head));
}

FrameBuilder& FrameBuilder::mpls(uint32_t label, uint8_t ttl) {
  Bytes head;
  put32(head, label << 12 | ttl);
  return add(Kind::mpls, std::move(head));
}

FrameBuilder& FrameBuilder::arp(std::string_view senderIp, std::string_view targetIp, uint16_t operation) {
  const Layer& outer = last({Kind::eth}, "arp");
  Bytes head;
  put16(head, 1);
  put16(head, 0x0800);
  put8(head, 6);
  put8(head, 4);
  put16(head, operation);
  head.insert(head.end(), outer.head.begin() + 6, outer.head.begin() + 12);
  putIp(head, senderIp);
  head.resize(head.size() + 6);
  putIp(head, targetIp);
  return add(Kind::arp, std::move(head));
}

FrameBuilder& FrameBuilder::ethType(uint16_t value) {
  last({Kind::eth, Kind::vlan, Kind::snap}, "a type").next = value;
  return *this;
}

FrameBuilder& FrameBuilder::ip4(std::string_view source, std::string_view destination) {
  Bytes head = {0x45, 0, 0, 0, 0, 0, 0, 0, 64, 0, 0, 0};
  putIp(head, source);
  putIp(head, destination);
  return add(Kind::ip4, std::move(head));
}

FrameBuilder& FrameBuilder::tos(uint8_t value) {
  last({Kind::ip4}, "a type of service").head[1] = value;
  return *this;
}

FrameBuilder& FrameBuilder::ttl(uint8_t value) {
  last({Kind::ip4}, "a time to live").head[8] = value;
  return *this;
}

FrameBuilder& FrameBuilder::options(Bytes options) {
  fillUp(options, 4);
  append(last({Kind::ip4}, "options").head, options);
  return *this;
}

FrameBuilder& FrameBuilder::ihl(uint8_t words) {
  last({Kind::ip4}, "a header length").words = words;
  return *this;
}

FrameBuilder& FrameBuilder::totalLength(uint16_t value) {
  last({Kind::ip4}, "a total length").length = value;
  return *this;
}

FrameBuilder& FrameBuilder::ip6(std::string_view source, std::string_view destination) {
  Bytes head = {0x60, 0, 0, 0, 0, 0, 0, 64};
  putIp6(head, source);
  putIp6(head, destination);
  return add(Kind::ip6, std::move(head));
}

FrameBuilder& FrameBuilder::trafficClass(uint8_t value) {
  Bytes& head = last({Kind::ip6}, "a traffic class").head;
  head[0] = static_cast<uint8_t>((head[0] & 0xf0) | value >> 4);
  head[1] = static_cast<uint8_t>((head[1] & 0x0f) | value << 4);
  return *this;
}

FrameBuilder& FrameBuilder::flowLabel(uint32_t value) {
  Bytes& head = last({Kind::ip6}, "a flow label").head;
  head[1] = static_cast<uint8_t>((head[1] & 0xf0) | (value >> 16 & 0x0f));
  set16(head, 2, value);
  return *this;
}

FrameBuilder& FrameBuilder::hopLimit(uint8_t value) {
  last({Kind::ip6}, "a hop limit").head[7] = value;
  return *this;
}

FrameBuilder& FrameBuilder::payloadLength(uint16_t value) {
  last({Kind::ip6}, "a payload length").length = value;
  return *this;
}

namespace {
/// One PadN option (RFC 8200, 4.2) behind the two fixed octets.
Bytes paddedExtension(size_t size) {
  Bytes head(size);
  head.at(1) = static_cast<uint8_t>(size / 8 - 1);
  head.at(2) = 1;
  head.at(3) = static_cast<uint8_t>(size - 4);
  return head;
}
}  // namespace

FrameBuilder& FrameBuilder::hopByHop(size_t size) { return add(Kind::hopByHop, paddedExtension(size)); }

FrameBuilder& FrameBuilder::destinationOptions(size_t size) {
  return add(Kind::destination, paddedExtension(size));
}

FrameBuilder& FrameBuilder::routing(size_t size) {
  Bytes head(size);
  head.at(1) = static_cast<uint8_t>(size / 8 - 1);
  head.at(2) = 253;  // an experimental type (RFC 4727, 3.3) with no segments left
  return add(Kind::routing, std::move(head));
}

FrameBuilder& FrameBuilder::ah(size_t size) {
  Bytes head(size);
  head.at(1) = static_cast<uint8_t>(size / 4 - 2);
  return add(Kind::ah, std::move(head));
}

FrameBuilder& FrameBuilder::extLength(uint8_t value) {
  last({Kind::hopByHop, Kind::destination, Kind::routing, Kind::ah, Kind::fragment}, "an extension length")
      .head[1] = value;
  return *this;
}

FrameBuilder& FrameBuilder::version(uint8_t value) {
  Bytes& head = last({Kind::ip4, Kind::ip6}, "a version").head;
  head[0] = static_cast<uint8_t>((head[0] & 0x0f) | value << 4);
  return *this;
}

FrameBuilder& FrameBuilder::fragment(uint16_t offset, bool more, uint32_t identification) {
  Layer& ip = last({Kind::ip4, Kind::ip6}, "a fragment");
  if (ip.kind == Kind::ip4) {
    set16(ip.head, 4, identification);
    set16(ip.head, 6, static_cast<uint32_t>((more ? 0x2000 : 0) | offset));
    return *this;
  }
  Bytes head(4);
  set16(head, 2, static_cast<uint32_t>(offset << 3 | (more ? 1 : 0)));
  put32(head, identification);
  return add(Kind::fragment, std::move(head));
}

FrameBuilder& FrameBuilder::protocol(uint8_t value) {
  last({Kind::ip4, Kind::ip6, Kind::hopByHop, Kind::destination, Kind::routing, Kind::ah, Kind::fragment},
       "a protocol")
      .next = value;
  return *this;
}

FrameBuilder& FrameBuilder::tcp(uint16_t sourcePort, uint16_t destinationPort) {
  Bytes head;
  put16(head, sourcePort);
  put16(head, destinationPort);
  put32(head, 0);
  put32(head, 0);
  put16(head, 0x5000);
  put16(head, 0xffff);
  put32(head, 0);
  return add(Kind::tcp, std::move(head));
}

FrameBuilder& FrameBuilder::flags(uint8_t tcpFlags) {
  last({Kind::tcp}, "flags").head[13] = tcpFlags;
  return *this;
}

FrameBuilder& FrameBuilder::tcpOptions(Bytes options) {
  fillUp(options, 4);
  append(last({Kind::tcp}, "options").head, options);
  return *this;
}

FrameBuilder& FrameBuilder::dataOffset(uint8_t words) {
  last({Kind::tcp}, "a data offset").words = words;
  return *this;
}

FrameBuilder& FrameBuilder::udp(uint16_t sourcePort, uint16_t destinationPort) {
  Bytes head;
  put16(head, sourcePort);
  put16(head, destinationPort);
  put32(head, 0);
  return add(Kind::udp, std::move(head));
}

FrameBuilder& FrameBuilder::udpLength(uint16_t value) {
  last({Kind::udp}, "a length").length = value;
  return *this;
}

FrameBuilder& FrameBuilder::sctp(uint16_t sourcePort, uint16_t destinationPort) {
  Bytes head;
  put16(head, sourcePort);
  put16(head, destinationPort);
  put32(head, 1);
  put32(head, 0);
  return add(Kind::sctp, std::move(head));
}

FrameBuilder& FrameBuilder::icmp(uint8_t type, uint8_t code) {
  return add(Kind::icmp, {type, code, 0, 0, 0, 0, 0, 0});
}

FrameBuilder& FrameBuilder::icmp6(uint8_t type, uint8_t code) {
  return add(Kind::icmp6, {type, code, 0, 0, 0, 0, 0, 0});
}

FrameBuilder& FrameBuilder::checksum(uint32_t value) {
  last({Kind::ip4, Kind::tcp, Kind::udp, Kind::sctp, Kind::icmp, Kind::icmp6}, "a checksum").checksum = value;
  return *this;
}

FrameBuilder& FrameBuilder::payload(size_t size, uint8_t fill) { return raw(Bytes(size, fill)); }

FrameBuilder& FrameBuilder::payload(std::string_view text) { return raw(Bytes(text.begin(), text.end())); }

FrameBuilder& FrameBuilder::raw(Bytes bytes) { return add(Kind::payload, std::move(bytes)); }

FrameBuilder& FrameBuilder::padTo(size_t size) {
  padTo_ = size;
  return *this;
}

}  // namespace TestSupport
