#pragma once

#include <agent/core/Terminal.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A key of a full-screen view.
enum class WatchKey : uint8_t { up, down, pageUp, pageDown, begin, end, next, previous, sort, unused, quit };

/// The keys in what a terminal has sent. What is no key of the view is passed over; the beginning of a
/// sequence that is not there to its end stays in `input`.
std::vector<WatchKey> takeKeys(std::string& input);

/// The part of a text that a screen shows, while the text is made again and again. Knows no terminal.
///
/// It keeps its place: a line that begins without a blank begins a section, which is known by its words up to
/// two blanks, as "ip access-list EDGE"; the first line that is shown stays as far behind the beginning of
/// its section as it was, wherever that has gone. But the screen stays filled: no line is shown first that
/// has fewer lines behind it than there is room for, unless there are no more.
class WatchView {
 public:
  /// The next text in place of the one before. Lines may have colours.
  void textIs(std::string_view text);
  /// Moves; nothing for the keys that do not.
  void move(WatchKey key, size_t shown);

  /// `shown` lines of at most `columns` characters, fewer at the end of the text.
  std::vector<std::string> lines(size_t shown, size_t columns) const;
  /// The numbers of the first and last line that lines() gives, and of all: "1-20 of 58".
  std::string placeText(size_t shown) const;

 private:
  struct Line {
    std::string text;
    std::string section;  ///< what it begins; empty: it is within one
  };
  void placeIs(size_t line);
  /// The first line that is shown on a screen of so many lines, and the last one that may be.
  size_t firstOf(size_t shown) const { return std::min(top_, lastFirstOf(shown)); }
  size_t lastFirstOf(size_t shown) const { return lines_.size() > shown ? lines_.size() - shown : 0; }
  size_t sectionFrom(size_t line, bool forward) const;

  std::vector<Line> lines_;
  size_t top_ = 0;  // the first line that is shown if enough follow
  // The place by words.
  std::string section_;
  size_t behind_ = 0;
};

}  // namespace Agent
