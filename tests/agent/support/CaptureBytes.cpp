#include "CaptureBytes.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace TestSupport {

namespace {

/// Appends numbers in the byte order of a file.
struct Appender {
  Bytes& to;
  bool bigEndian;

  void number(uint64_t value, int octets) {
    for (int i = 0; i < octets; ++i) {
      const int shift = 8 * (bigEndian ? octets - 1 - i : i);
      to.push_back(static_cast<uint8_t>(value >> shift));
    }
  }
  void put16(uint64_t value) { number(value, 2); }
  void put32(uint64_t value) { number(value, 4); }
  void put(const Bytes& bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }
};

uint32_t get32(const std::string& text, size_t at) {
  if (at + 4 > text.size()) throw std::runtime_error("the capture is cut off");
  uint32_t value = 0;
  for (size_t i = 4; i-- > 0;) value = value << 8 | static_cast<uint8_t>(text[at + i]);
  return value;
}

}  // namespace

Bytes pcapBytes(const std::vector<Captured>& frames, PcapLayout layout) {
  Bytes file;
  Appender out{file, layout.bigEndian};
  out.put32(layout.nano ? 0xa1b23c4d : 0xa1b2c3d4);
  out.put16(2);
  out.put16(4);
  out.put32(0);
  out.put32(0);
  out.put32(262144);
  out.put32(layout.linkType);
  for (const Captured& each : frames) {
    out.put32(each.seconds);
    out.put32(layout.nano ? each.nanoseconds : each.nanoseconds / 1000);
    out.put32(each.frame.size());
    out.put32(each.wire);
    out.put(each.frame);
  }
  return file;
}

Bytes pcapngBytes(const std::vector<Captured>& frames, bool nano) {
  Bytes file;
  Appender out{file, false};
  const auto block = [&out](uint32_t type, const Bytes& body) {
    const size_t padded = (body.size() + 3) / 4 * 4;
    out.put32(type);
    out.put32(padded + 12);
    out.put(body);
    out.put(Bytes(padded - body.size()));
    out.put32(padded + 12);
  };
  Bytes section;
  Appender sectionOut{section, false};
  sectionOut.put32(0x1a2b3c4d);
  sectionOut.put16(1);
  sectionOut.put16(0);
  sectionOut.number(~0ull, 8);
  block(0x0a0d0d0a, section);

  Bytes interface;
  Appender interfaceOut{interface, false};
  interfaceOut.put16(1);
  interfaceOut.put16(0);
  interfaceOut.put32(262144);
  interfaceOut.put16(9);  // the resolution of the time stamps: 10^-9 or 10^0
  interfaceOut.put16(1);
  interfaceOut.put32(nano ? 9 : 0);
  interfaceOut.put32(0);
  block(1, interface);

  for (const Captured& each : frames) {
    const uint64_t time = nano ? each.seconds * 1000000000 + each.nanoseconds : each.seconds;
    Bytes packet;
    Appender packetOut{packet, false};
    packetOut.put32(0);
    packetOut.put32(time >> 32);
    packetOut.put32(time & 0xffffffff);
    packetOut.put32(each.frame.size());
    packetOut.put32(each.wire);
    packetOut.put(each.frame);
    block(6, packet);
  }
  return file;
}

std::vector<Captured> readPcap(const std::string& path) {
  const std::string text = readFile(path);
  if (get32(text, 0) != 0xa1b23c4d || get32(text, 20) != 1)
    throw std::runtime_error(path + ": another kind of file");
  std::vector<Captured> frames;
  for (size_t at = 24; at < text.size();) {
    Captured each{get32(text, at), get32(text, at + 4), {}, get32(text, at + 12)};
    const size_t size = get32(text, at + 8);
    if (at + 16 + size > text.size()) throw std::runtime_error(path + ": the last frame is cut off");
    each.frame.assign(text.begin() + static_cast<long>(at) + 16,
                      text.begin() + static_cast<long>(at + 16 + size));
    at += 16 + size;
    frames.push_back(std::move(each));
  }
  return frames;
}

void writeFile(const std::string& path, const Bytes& bytes) {
  writeFile(path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void writeFile(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text << std::flush;
  if (!file) throw std::runtime_error(path + " could not be written");
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path + " could not be read");
  std::ostringstream text;
  if (file.peek() != std::ifstream::traits_type::eof()) text << file.rdbuf();
  return text.str();
}

}  // namespace TestSupport
