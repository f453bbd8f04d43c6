#include "FrameText.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace TestSupport {

namespace {

[[noreturn]] void wrong(const std::string& what) { throw std::runtime_error("frame: " + what); }

/// The words of a line, taken one by one.
class Words {
 public:
  explicit Words(std::string_view line) {
    std::istringstream text{std::string(line)};
    words_.assign(std::istream_iterator<std::string>(text), {});
  }

  bool done() const { return at_ == words_.size(); }
  std::string next() {
    if (done()) wrong("something is missing at the end");
    return words_[at_++];
  }
  /// Takes the next word if it is this one.
  bool take(std::string_view word) {
    if (done() || words_[at_] != word) return false;
    ++at_;
    return true;
  }
  uint32_t number() {
    const std::string word = next();
    size_t used = 0;
    unsigned long value = 0;
    try {
      value = std::stoul(word, &used, 0);
    } catch (const std::exception&) {
    }
    if (used != word.size()) wrong("\"" + word + "\" is no number");
    return static_cast<uint32_t>(value);
  }
  uint16_t number16() { return static_cast<uint16_t>(number()); }
  uint8_t number8() { return static_cast<uint8_t>(number()); }

 private:
  std::vector<std::string> words_;
  size_t at_ = 0;
};

/// Which header a word belongs to.
enum class Layer { link, ip, l4, behind };

struct Word {
  const char* word;
  Layer layer;
  void (*apply)(FrameBuilder& frame, Words& arguments);
};

using F = FrameBuilder;
using W = Words;

// clang-format off
constexpr Word table[] = {
    {"vlan",        Layer::link,   [](F& f, W& w) { f.vlan(w.number16()); }},
    {"priority",    Layer::link,   [](F& f, W& w) { f.vlan(0, 0x8100, w.number8()); }},
    {"tag",         Layer::link,   [](F& f, W& w) { const auto tpid = w.number16(); f.vlan(w.number16(), tpid); }},
    {"snap",        Layer::link,   [](F& f, W&) { f.snap(); }},
    {"llc",         Layer::link,   [](F& f, W&) { f.llc(0x42, 0x42, 0x03); }},
    {"mpls",        Layer::link,   [](F& f, W& w) { f.mpls(w.number()); }},
    {"type",        Layer::link,   [](F& f, W& w) { f.ethType(w.number16()); }},
    {"ttl",         Layer::ip,     [](F& f, W& w) { f.ttl(w.number8()); }},
    {"tos",         Layer::ip,     [](F& f, W& w) { f.tos(w.number8()); }},
    {"class",       Layer::ip,     [](F& f, W& w) { f.trafficClass(w.number8()); }},
    {"hops",        Layer::ip,     [](F& f, W& w) { f.hopLimit(w.number8()); }},
    {"options",     Layer::ip,     [](F& f, W& w) { f.options(Bytes(w.number(), 1)); }},
    {"fragment",    Layer::ip,     [](F& f, W& w) { const auto at = w.number16(); f.fragment(at, w.take("more")); }},
    {"ihl",         Layer::ip,     [](F& f, W& w) { f.ihl(w.number8()); }},
    {"total",       Layer::ip,     [](F& f, W& w) { f.totalLength(w.number16()); }},
    {"version",     Layer::ip,     [](F& f, W& w) { f.version(w.number8()); }},
    {"proto",       Layer::ip,     [](F& f, W& w) { f.protocol(w.number8()); }},
    {"length",      Layer::ip,     [](F& f, W& w) { f.payloadLength(w.number16()); }},
    {"hop-by-hop",  Layer::ip,     [](F& f, W&) { f.hopByHop(); }},
    {"routing",     Layer::ip,     [](F& f, W&) { f.routing(); }},
    {"destination", Layer::ip,     [](F& f, W&) { f.destinationOptions(); }},
    {"ah",          Layer::ip,     [](F& f, W& w) { f.ah(w.number()); }},
    {"data-offset", Layer::l4,     [](F& f, W& w) { f.dataOffset(w.number8()); }},
    {"udp-length",  Layer::l4,     [](F& f, W& w) { f.udpLength(w.number16()); }},
    {"payload",     Layer::behind, [](F& f, W& w) { f.payload(w.number()); }},
    {"pad",         Layer::behind, [](F& f, W& w) { f.padTo(w.number()); }},
};
// clang-format on

constexpr std::pair<const char*, uint8_t> flagTable[] = {{"syn", Syn}, {"ack", Ack}, {"fin", Fin},
                                                         {"rst", Rst}, {"psh", Psh}, {"urg", Urg}};

const std::string_view kinds[] = {"tcp", "udp", "sctp", "icmp", "icmp6", "ip", "arp", "eth", "bytes"};

/// "A", "A:PORT" or "[A]:PORT".
struct End {
  std::string address;
  uint16_t port = 0;
  bool six = false;
};

End readEnd(const std::string& word, bool withPort) {
  End end;
  std::string rest = word;
  if (withPort) {
    const size_t colon = word.rfind(':');
    if (colon == std::string::npos) wrong("\"" + word + "\" has no port");
    end.port = static_cast<uint16_t>(std::stoul(word.substr(colon + 1)));
    rest = word.substr(0, colon);
  }
  if (rest.starts_with('[') && rest.ends_with(']')) rest = rest.substr(1, rest.size() - 2);
  end.six = rest.find(':') != std::string::npos;
  end.address = rest;
  return end;
}

Bytes readHex(const std::string& hex) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

void readStamp(const std::string& word, Captured& captured) {
  const size_t dot = std::min(word.find('.'), word.size());
  captured.seconds = std::stoull(word.substr(0, dot));
  std::string fraction = dot < word.size() ? word.substr(dot + 1) : "";
  if (fraction.size() > 9) wrong("the time " + word + " is finer than nanoseconds");
  fraction.resize(9, '0');
  captured.nanoseconds = static_cast<uint32_t>(std::stoul(fraction));
}

/// What a line says behind its kind and ends, sorted by header.
struct Modifiers {
  std::string from, to;
  uint8_t flags = 0;
  bool hasFlags = false;
  std::optional<uint32_t> cut, shortTo;
  std::vector<std::pair<const Word*, Words>> words;  // each with the line as it stood behind the word

  void read(Words& line) {
    while (!line.done()) {
      const std::string word = line.next();
      const auto flag = std::find_if(std::begin(flagTable), std::end(flagTable),
                                     [&](const auto& each) { return word == each.first; });
      if (flag != std::end(flagTable)) {
        flags |= flag->second;
        hasFlags = true;
      } else if (word == "from") {
        from = line.next();
      } else if (word == "to") {
        to = line.next();
      } else if (word == "cut") {
        cut = line.number();
      } else if (word == "short") {
        shortTo = line.number();
      } else {
        const auto known = std::find_if(std::begin(table), std::end(table),
                                        [&](const Word& each) { return word == each.word; });
        if (known == std::end(table)) wrong("the word \"" + word + "\" is not known");
        words.emplace_back(&*known, line);
        skip(*known, line);
      }
    }
  }
  void apply(Layer layer, FrameBuilder& frame) const {
    for (const auto& [word, arguments] : words) {
      Words copy = arguments;
      if (word->layer == layer) word->apply(frame, copy);
    }
  }

 private:
  /// Steps over a word's arguments, by applying it to a frame that has every header.
  static void skip(const Word& word, Words& line) {
    FrameBuilder all = frame().eth().ip4("0.0.0.0", "0.0.0.0").ip6("::", "::").tcp(0, 0).udp(0, 0);
    word.apply(all, line);
  }
};

}  // namespace

FrameText readFrame(std::string_view text) {
  Words line(text);
  FrameText result;
  result.port = line.next();
  readStamp(line.next(), result.captured);
  const std::string kind = line.next();
  if (std::find(std::begin(kinds), std::end(kinds), kind) == std::end(kinds))
    wrong("no kind of frame: " + kind);

  Bytes& bytes = result.captured.frame;
  Modifiers modifiers;
  if (kind == "bytes") {
    bytes = line.done() ? Bytes() : readHex(line.next());
    modifiers.read(line);
  } else {
    const bool hasPorts = kind == "tcp" || kind == "udp" || kind == "sctp";
    End a, b;
    uint16_t first = 0;
    uint8_t code = 0;
    if (kind == "eth") {
      first = line.number16();
    } else {
      a = readEnd(line.next(), hasPorts);
      if (!line.take(">")) wrong("\">\" is missing between the addresses");
      b = readEnd(line.next(), hasPorts);
      if (a.six != b.six) wrong("the addresses are of two kinds");
    }
    if (kind == "icmp" || kind == "icmp6") {
      first = line.number8();
      code = line.number8();
    }
    modifiers.read(line);

    FrameBuilder frame;
    frame.eth(modifiers.from, modifiers.to);
    modifiers.apply(Layer::link, frame);
    if (kind == "arp") {
      frame.arp(a.address, b.address);
    } else if (kind == "eth") {
      frame.ethType(first);
    } else {
      if (a.six)
        frame.ip6(a.address, b.address);
      else
        frame.ip4(a.address, b.address);
      modifiers.apply(Layer::ip, frame);
      if (kind == "tcp") frame.tcp(a.port, b.port);
      if (kind == "udp") frame.udp(a.port, b.port);
      if (kind == "sctp") frame.sctp(a.port, b.port);
      if (kind == "icmp") frame.icmp(static_cast<uint8_t>(first), code);
      if (kind == "icmp6") frame.icmp6(static_cast<uint8_t>(first), code);
      if (modifiers.hasFlags) frame.flags(modifiers.flags);
      modifiers.apply(Layer::l4, frame);
    }
    modifiers.apply(Layer::behind, frame);
    bytes = frame.bytes();
  }
  if (modifiers.shortTo) bytes = cut(bytes, *modifiers.shortTo);
  result.captured.wire = static_cast<uint32_t>(bytes.size());
  if (modifiers.cut) bytes = cut(bytes, *modifiers.cut);
  return result;
}

}  // namespace TestSupport
