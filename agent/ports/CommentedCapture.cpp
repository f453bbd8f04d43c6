#include <agent/core/Output.h>
#include <agent/core/Version.h>
#include <agent/ports/CommentedCapture.h>
#include <fmt/format.h>

#include <algorithm>
#include <concepts>

namespace Agent {

namespace {

constexpr uint32_t snapLength = 262144;
// The last second whose nanoseconds since the epoch have 64 bits.
constexpr int64_t lastSecondOfPcapng = 18446744072;

/// What may stand in a file at the top level.
enum BlockType : uint32_t { sectionHeader = 0x0a0d0d0a, interfaceDescription = 1, enhancedPacket = 6 };

enum OptionCode : uint16_t {
  endOfOptions = 0,
  optComment = 1,
  ifName = 2,
  epbFlags = 2,
  shbUserAppl = 4,
  ifTsResol = 9,
};

/// A block while it is put together: everything in it begins at a multiple of 32 bits.
class Block {
 public:
  explicit Block(BlockType type) {
    put<uint32_t>(type);
    put<uint32_t>(0);  // the length, as soon as it is known
  }
  template <std::integral Number>
  void put(Number value) {
    octets_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void padded(std::string_view octets) {
    octets_ += octets;
    octets_.resize((octets_.size() + 3) / 4 * 4);
  }
  void option(OptionCode code, std::string_view value) {
    put<uint16_t>(code);
    put(static_cast<uint16_t>(value.size()));
    padded(value);
  }
  template <std::integral Number>
  void option(OptionCode code, Number value) {
    option(code, std::string_view(reinterpret_cast<const char*>(&value), sizeof value));
  }
  /// The whole block. To be called once.
  const std::string& done() {
    option(endOfOptions, std::string_view());
    const auto length = static_cast<uint32_t>(octets_.size() + sizeof(uint32_t));
    put(length);
    octets_.replace(sizeof(uint32_t), sizeof length, reinterpret_cast<const char*>(&length), sizeof length);
    return octets_;
  }

 private:
  std::string octets_;
};

/// The text without what a shorter field would cut off; not cut within a character (RFC 3629, 3).
std::string_view shortened(std::string_view text, size_t most) {
  if (text.size() <= most) return text;
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80) --most;
  return text.substr(0, most);
}

}  // namespace

CommentedCapture::CommentedCapture(std::string path)
    : path_(std::move(path)), file_(path_, std::ios::trunc | std::ios::binary) {
  if (!file_) {
    wrong_ = failureOf(path_);
    return;
  }
  Block section(sectionHeader);
  section.put<uint32_t>(0x1a2b3c4d);  // tells the byte order
  section.put<uint16_t>(1);           // the version: 1.0
  section.put<uint16_t>(0);
  section.put<int64_t>(-1);  // the length of the section: not told
  section.option(shbUserAppl, fmt::format("velo {}", version()));
  file_ << section.done();
}

uint32_t CommentedCapture::interfaceOf(std::string_view port) {
  if (const auto known = interfaces_.find(port); known != interfaces_.end()) return known->second;
  Block interface(interfaceDescription);
  interface.put<uint16_t>(1);  // Ethernet
  interface.put<uint16_t>(0);  // reserved
  interface.put(snapLength);
  interface.option(ifName, port);
  interface.option(ifTsResol, uint8_t{9});  // 10^-9 s
  file_ << interface.done();
  const auto number = static_cast<uint32_t>(interfaces_.size());
  interfaces_.emplace(port, number);
  return number;
}

void CommentedCapture::write(const CommentedFrame& frame) {
  if (!wrong_.empty()) return;
  if (frame.stamp.seconds < 0 || frame.stamp.seconds > lastSecondOfPcapng) {
    wrong_ = fmt::format("{}: ends before a frame of a time that a pcapng file cannot hold: {}", path_,
                         frame.stamp.seconds < 0 ? "before 1970-01-01" : "after 2554-07-21");
    return;
  }
  const uint64_t stamp = static_cast<uint64_t>(frame.stamp.seconds) * uint64_t{Stamp::nanosecondsInSecond} +
                         static_cast<uint64_t>(frame.stamp.nanoseconds);
  const auto octets = frame.octets.first(std::min<size_t>(frame.octets.size(), snapLength));
  const uint32_t interface = interfaceOf(frame.port);
  Block packet(enhancedPacket);
  packet.put(interface);
  packet.put(static_cast<uint32_t>(stamp >> 32));
  packet.put(static_cast<uint32_t>(stamp));
  packet.put(static_cast<uint32_t>(octets.size()));
  packet.put(frame.wireLength);
  packet.padded({reinterpret_cast<const char*>(octets.data()), octets.size()});
  packet.option(optComment, shortened(frame.comment, mostComment));
  packet.option(epbFlags, uint32_t{1});  // received
  file_ << packet.done();
}

void CommentedCapture::flush() {
  file_.flush();
  if (!file_ && wrong_.empty()) wrong_ = path_ + ": could not be written to its end";
}

}  // namespace Agent
