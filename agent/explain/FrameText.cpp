#include <agent/config/Mistake.h>
#include <agent/config/Names.h>
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

std::string anyOf(std::span<const FrameWord> words) {
  std::vector<std::string_view> names;
  for (const FrameWord& each : words) names.push_back(each.word);
  return Config::anyOf(names);
}

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

bool readAll(Cursor& at, Draft& draft) {
  const FrameWord* kind = find(frameKinds(), at.peek());
  if (!kind) return at.fail(anyOf(frameKinds()));
  at.take();
  if (!kind->read(at, draft)) return false;
  while (!at.atEnd()) {
    const FrameWord* modifier = find(frameModifiers(), at.peek());
    if (!modifier) return at.fail(anyOf(frameModifiers()));
    at.take();
    if (!modifier->read(at, draft)) return false;
  }
  const bool ports =
      draft.protocol && Config::hasPorts(*draft.protocol) && !draft.anyProtocol && !draft.fragmentOffset;
  if (ports && !(draft.sourcePort && draft.destinationPort))
    return at.failAt(1, "a port behind both addresses, as in 192.0.2.1:80 or [2001:db8::1]:80");
  return true;
}

}  // namespace

std::optional<Frame> readFrameText(std::string_view text, std::string* wrong) {
  Cursor at;
  Draft draft;
  if (!at.lineIs(text) || !readAll(at, draft)) {
    const auto& problem = *at.problem();
    *wrong =
        fmt::format("column {}: {}", problem.column, Config::mistakeText(problem.found, problem.expected));
    return std::nullopt;
  }
  Frame frame{draft.octets(), 0};
  frame.wireLength = static_cast<uint32_t>(frame.octets.size());
  return frame;
}

bool isFrameText(std::string_view text) {
  Cursor at;
  return at.lineIs(text) && find(frameKinds(), at.peek()) != nullptr;
}

}  // namespace Agent
