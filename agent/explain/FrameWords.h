#pragma once

#include <agent/config/Cursor.h>
#include <agent/explain/FrameDraft.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// A word of the text of a frame. `read` takes what stands behind it, at which the cursor is; false when that
/// is something else, and the cursor tells.
struct FrameWord {
  std::string_view word;
  bool (*read)(Config::Cursor& at, Draft& draft);
};

/// What a frame is, by the first word of its text.
std::span<const FrameWord> frameKinds();
/// What may stand behind that, in any order.
std::span<const FrameWord> frameModifiers();

const FrameWord* find(std::span<const FrameWord> words, std::string_view word);
/// The words, for what is expected.
std::string anyOf(std::span<const FrameWord> words);

// For the readers of words.

/// Takes a word that means `value`; nothing: it means none.
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
