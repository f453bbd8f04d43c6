#pragma once

#include <agent/config/Cursor.h>
#include <agent/explain/FrameDraft.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// A word in the text of a frame. `read` reads what stands behind the word; false when that is wrong, and the
/// cursor has the mistake then.
struct FrameWord {
  std::string_view word;
  bool (*read)(Config::Cursor& at, Draft& draft);
};

/// The words that a text can begin with: they say what kind of frame it is.
std::span<const FrameWord> frameKinds();
/// The words that can follow the addresses, in any order.
std::span<const FrameWord> frameModifiers();

const FrameWord* find(std::span<const FrameWord> words, std::string_view word);
/// The words as a list for mistakes: "tcp, udp or sctp".
std::string anyOf(std::span<const FrameWord> words);

// For the functions that read words.

/// Takes the next word, which means `value`. If that is nothing the word is a mistake.
template <class T>
bool readAs(Config::Cursor& at, std::string_view expected, std::optional<T> value, T* out) {
  if (!value) return at.fail(std::string(expected));
  *out = *value;
  at.take();
  return true;
}

bool readMac(Config::Cursor& at, Nimnet::EthAddr* out);
bool readNumber(Config::Cursor& at, std::string_view what, uint32_t high, uint8_t* out);

}  // namespace Agent
