#include <MemSlab/Slab.h>
#include <Velo/ParsedPacket.h>
#include <agent/config/Mistake.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/explain/FrameLine.h>
#include <agent/explain/FrameText.h>
#include <agent/explain/FrameWords.h>
#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace Agent {

using Config::Cursor;

const FrameWord* find(std::span<const FrameWord> words, std::string_view word) {
  const auto at =
      std::find_if(words.begin(), words.end(), [&](const FrameWord& each) { return each.word == word; });
  return at == words.end() ? nullptr : &*at;
}

namespace {

std::vector<std::string_view> namesOf(std::span<const FrameWord> words) {
  std::vector<std::string_view> names;
  for (const FrameWord& each : words) names.push_back(each.word);
  return names;
}

}  // namespace

std::string anyOf(std::span<const FrameWord> words) { return Config::anyOf(namesOf(words)); }

bool readMac(Cursor& at, Nimnet::EthAddr* out) {
  return readAs(at, "a MAC address", Nimnet::EthAddr::parse(at.peek()), out);
}

bool readNumber(Cursor& at, std::string_view what, uint32_t high, uint8_t* out) {
  uint32_t value = 0;
  if (!at.number(what, 0, high, &value)) return false;
  *out = static_cast<uint8_t>(value);
  return true;
}

namespace {

bool readSizeWord(Cursor& at, Draft& draft) {
  constexpr uint32_t largest = 1 << 18;
  uint32_t size = 0;
  if (!at.number("a number of octets", 0, largest, &size) || !at.keyword("octets")) return false;
  draft.exactSize = size;
  return true;
}

/// "3 segments": to the lists a super-frame is one packet.
bool readSegments(Cursor& at, Draft& draft) {
  return at.number("a number of segments", 2, 1 << 18, &draft.segments) && at.keyword("segments");
}

bool readModifier(Cursor& at, Draft& draft) {
  if (at.peek(1) == "octets") return readSizeWord(at, draft);
  if (at.peek(1) == "segments") return readSegments(at, draft);
  const FrameWord* modifier = find(frameModifiers(), at.peek());
  if (!modifier)
    return at.fail(Config::orNearest(anyOf(frameModifiers()) + ", or a number of octets", at.peek(),
                                     namesOf(frameModifiers())));
  at.take();
  return modifier->read(at, draft);
}

bool readAll(Cursor& at, Draft& draft) {
  const FrameWord* kind = find(frameKinds(), at.peek());
  if (!kind) return at.fail(Config::orNearest(anyOf(frameKinds()), at.peek(), namesOf(frameKinds())));
  at.take();
  if (!kind->read(at, draft)) return false;
  while (!at.atEnd()) {
    if (!readModifier(at, draft)) return false;
  }
  const bool ports =
      draft.protocol && Config::hasPorts(*draft.protocol) && !draft.anyProtocol && !draft.fragmentOffset;
  if (ports && !(draft.sourcePort && draft.destinationPort))
    return at.failAt(1, "a port behind both addresses, as in 192.0.2.1:80 or [2001:db8::1]:80");
  return true;
}

/// Takes the reason off the end of a text, and " on PORT" behind it. Returns what is wrong.
std::optional<std::string> takeFault(std::string& text, Draft& draft) {
  constexpr std::string_view mark = "malformed:", port = " on ";
  const size_t at = text.find(mark);
  if (at == text.npos) return std::nullopt;
  std::string_view reason = std::string_view(text).substr(at + mark.size());
  if (const size_t on = reason.find(port); on != reason.npos) {
    draft.port = reason.substr(on + port.size());
    reason = reason.substr(0, on);
  }
  while (reason.starts_with(' ')) reason.remove_prefix(1);
  while (reason.ends_with(' ')) reason.remove_suffix(1);
  for (uint32_t fault = 1; fault < Velo::parseFaultCount; ++fault) {
    if (Velo::reason(static_cast<Velo::ParseFault>(fault)) != reason) continue;
    draft.fault = static_cast<Velo::ParseFault>(fault);
    text.resize(at);
    return std::nullopt;
  }
  return fmt::format(
      "column {}: {}", at + 1,
      Config::mistakeText(fmt::format("\"{}\"", reason), "a reason that velo show drops tells"));
}

/// Why a frame is not what a text says of its faults; nothing if it is.
std::optional<std::string> whyNotSo(const Frame& frame, const Draft& draft) {
  const auto pkt = MemSlab::make<Nimnet::Pkt>();
  frame.assignTo(*pkt);
  Velo::ParsedPacket parsed;
  parsed.reset(pkt.get());
  parsed.maybeDoFullParse();
  if (draft.fault != Velo::ParseFault::none && parsed.fault() != draft.fault)
    return fmt::format("a frame of these words cannot be malformed so: {}", reason(draft.fault));
  const auto* six = parsed.ipHdr() ? parsed.ipHdr()->ip6Hdr() : nullptr;
  if (draft.unknownProtocol && !(six && !six->protocolKnown()))
    return "the protocol is only unknown when the headers before it are malformed";
  return std::nullopt;
}

}  // namespace

void Frame::assignTo(Nimnet::Pkt& pkt) const {
  if (typeBefore)
    pkt.assignBehindType(*typeBefore, octets, wireLength, 0);
  else
    pkt.assign(octets, wireLength, 0);
}

std::optional<Frame> readFrameText(std::string_view text, std::string* wrong) {
  Cursor at;
  Draft draft;
  std::vector<std::string> notes;
  std::string words = frameTextOf(text, &notes);
  std::replace(words.begin(), words.end(), ',', ' ');
  const auto fail = [wrong](std::optional<std::string> why) {
    *wrong = std::move(*why);
    return std::nullopt;
  };
  if (auto why = takeFault(words, draft)) return fail(std::move(why));
  if (!at.lineIs(words) || !readAll(at, draft)) {
    const auto& problem = *at.problem();
    return fail(
        fmt::format("column {}: {}", problem.column, Config::mistakeText(problem.found, problem.expected)));
  }
  Frame frame{draft.octets(), 0, {}, draft.port};
  frame.wireLength = static_cast<uint32_t>(frame.octets.size());
  frame.octets.resize(draft.captured(frame.octets.size()));
  if (!draft.ethernet) frame.typeBefore = draft.typeBefore();
  if (auto why = whyNotSo(frame, draft)) return fail(std::move(why));
  frame.notes = std::move(notes);
  if (draft.segments > 1)
    frame.notes.push_back(
        fmt::format("a super-frame of {} segments is one packet to the lists", draft.segments));
  return frame;
}

bool isFrameText(std::string_view text) {
  Cursor at;
  std::string words = frameTextOf(text);
  std::replace(words.begin(), words.end(), ',', ' ');
  return at.lineIs(words) && find(frameKinds(), at.peek()) != nullptr;
}

}  // namespace Agent
