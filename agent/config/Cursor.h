#pragma once

#include <agent/warnings/Catalogue.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Config {

/// Reads the words of one statement from left to right, and keeps the mistake that was found in it, if any.
///
/// Every function that reads returns false when it fails, after it has kept the mistake. Its caller then only
/// returns false in turn. The line must outlive the cursor. One cursor is used for all lines of a text, so
/// that memory is not allocated for each line.
class Cursor {
 public:
  struct Problem {
    size_t column;  ///< from 1
    std::string found;
    std::string expected;
  };

  /// Something odd in a statement that can be carried out all the same.
  struct Oddity {
    size_t position;  ///< of the word
    Agent::WarningCode code;
    std::string text;
  };

  /// Starts over with another line, given without its line end. False if it has bytes that no statement has.
  bool lineIs(std::string_view line);

  bool atEnd() const { return next_ == words_.size(); }
  /// The next word, or one behind it; empty at the end of the line.
  std::string_view peek(size_t ahead = 0) const {
    return next_ + ahead < words_.size() ? words_[next_ + ahead] : std::string_view();
  }
  /// The word of a position, which must be one of the line.
  std::string_view wordAt(size_t position) const { return words_[position]; }
  std::string_view take() { return atEnd() ? std::string_view() : words_[next_++]; }
  /// Takes the next word if it is `word`.
  bool takeIf(std::string_view word);
  void skip(size_t words) { next_ += words; }
  size_t position() const { return next_; }
  /// Of the next word, or of the end of the line; from 1.
  size_t column() const { return columnOf(next_); }
  size_t columnOf(size_t position) const;
  size_t wordsLeft() const { return words_.size() - next_; }

  /// The rest of the line as typed, without blanks at its ends.
  std::string_view rest() const;
  /// The words from the one at `position` on, with single blanks between them.
  std::string textFrom(size_t position) const;

  /// Takes the next word, which must be `word`.
  bool keyword(std::string_view word);
  /// Takes a name: printable ASCII without blanks. `what` is what a mistake says was expected.
  bool name(std::string_view what, std::string* out);
  /// Takes a decimal number without leading zeros, from `low` to `high`. `what` as for name().
  bool number(std::string_view what, uint32_t low, uint32_t high, uint32_t* out);
  /// The line must end here.
  bool end();

  /// Keeps a mistake at the next word, or at the end of the line, and returns false. `note` follows the word,
  /// as in: found "syn" a second time.
  bool fail(std::string expected, std::string_view note = {}) {
    return failAt(next_, std::move(expected), note);
  }
  /// The same at the word of a position.
  bool failAt(size_t position, std::string expected, std::string_view note = {});

  /// Keeps a mistake that somebody else has found in this line, and returns false.
  bool failAs(std::optional<Problem> problem) {
    problem_ = std::move(problem);
    return false;
  }

  const std::optional<Problem>& problem() const { return problem_; }

  /// Keeps something odd about the word of a position.
  void warn(size_t position, Agent::WarningCode code, std::string text) {
    oddities_.push_back({position, code, std::move(text)});
  }
  const std::vector<Oddity>& oddities() const { return oddities_; }

 private:
  bool failAtByte(size_t offset);

  std::string_view line_;
  std::vector<std::string_view> words_;
  size_t next_ = 0;
  std::optional<Problem> problem_;
  std::vector<Oddity> oddities_;
};

bool isBlank(char c);
bool isDigits(std::string_view word);
bool isName(std::string_view word);
/// A decimal number without leading zeros.
std::optional<uint32_t> decimal(std::string_view word);
/// A number written 0x and one or more digits.
std::optional<uint32_t> hexadecimal(std::string_view word);
inline bool looksHexadecimal(std::string_view word) { return word.starts_with("0x"); }

}  // namespace Config
