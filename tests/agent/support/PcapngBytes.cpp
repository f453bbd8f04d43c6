#include "PcapngBytes.h"

#include "CaptureBytes.h"

#include <map>
#include <stdexcept>
#include <string_view>

namespace TestSupport {

namespace {

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

/// Takes fields off the front of octets.
struct Fields {
  std::string_view left;

  std::string_view take(size_t octets) {
    require(left.size() >= octets, "a field is cut off");
    const auto taken = left.substr(0, octets);
    left.remove_prefix(octets);
    return taken;
  }
  uint64_t number(size_t octets) {
    uint64_t value = 0;
    const auto taken = take(octets);
    for (size_t i = octets; i-- > 0;) value = value << 8 | static_cast<uint8_t>(taken[i]);
    return value;
  }
  uint32_t number32() { return static_cast<uint32_t>(number(4)); }
  std::string_view padded(size_t octets) {
    const auto taken = take(octets);
    for (const char octet : take((4 - octets % 4) % 4)) require(octet == 0, "padding is not zero");
    return taken;
  }
  /// Options up to the end, which the last of them says.
  std::map<uint16_t, std::string> options() {
    std::map<uint16_t, std::string> all;
    for (;;) {
      const auto code = static_cast<uint16_t>(number(2));
      const auto size = static_cast<size_t>(number(2));
      if (code == 0) {
        require(size == 0 && left.empty(), "something is behind the end of the options");
        return all;
      }
      require(all.emplace(code, padded(size)).second, "an option twice");
    }
  }
};

void readSection(Fields body, CommentedFile& file) {
  require(body.number32() == 0x1a2b3c4d, "another byte order");
  require(body.number(2) == 1 && body.number(2) == 0, "another version");
  require(body.number(8) == ~0ull, "a section with a length");
  file.application = body.options().at(4);
}

void readInterface(Fields body, CommentedFile& file) {
  require(body.number(2) == 1, "not Ethernet");
  require(body.number(2) == 0 && body.number32() == 262144, "another snap length");
  auto options = body.options();
  require(options.at(9) == "\t", "the stamps are not of nanoseconds");
  file.interfaces.push_back(options.at(2));
}

void readFrame(Fields body, CommentedFile& file) {
  CommentedBlock frame;
  frame.interface = file.interfaces.at(body.number32());
  const uint64_t high = body.number32();
  frame.nanoseconds = high << 32 | body.number32();
  const size_t size = body.number32();
  frame.wire = body.number32();
  const auto octets = body.padded(size);
  frame.frame.assign(octets.begin(), octets.end());
  auto options = body.options();
  frame.comment = options.at(1);
  Fields flags{options.at(2)};
  frame.flags = flags.number32();
  require(options.size() == 2, "an option that is not expected");
  file.frames.push_back(std::move(frame));
}

}  // namespace

CommentedFile readPcapng(const std::string& path) {
  const std::string text = readFile(path);
  CommentedFile file;
  bool first = true;
  for (Fields rest{text}; !rest.left.empty(); first = false) {
    const uint32_t type = rest.number32(), length = rest.number32();
    require(length >= 12 && length % 4 == 0, "a block of a length that cannot be");
    const Fields body{rest.take(length - 12)};
    require(rest.number32() == length, "the lengths of a block differ");
    require((type == 0x0a0d0d0a) == first, "a section begins the file, and there is one");
    if (type == 0x0a0d0d0a)
      readSection(body, file);
    else if (type == 1)
      readInterface(body, file);
    else
      require(type == 6, "a block of another type"), readFrame(body, file);
  }
  return file;
}

}  // namespace TestSupport
