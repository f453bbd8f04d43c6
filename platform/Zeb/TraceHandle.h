#pragma once

#include <fmt/format.h>

#include <atomic>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Zeb {

namespace Impl {

/// What the handles of one facility share.
struct TraceFacility {
  explicit TraceFacility(std::string_view facilityName) : name(facilityName) {}
  const std::string name;
  std::atomic<int> enabledLevel{-1};  // the highest level that is on
  unsigned handles = 0;
};

}  // namespace Impl

/// A format text, checked when it is compiled, with the line of the call it stands in.
template <class... Args>
struct TraceFormat {
  template <class Text>
  requires std::convertible_to<const Text&, std::string_view>
  consteval TraceFormat(const Text& text, int at = __builtin_LINE()) : format(text), line(at) {}
  /// Of a text that stands in a table and was checked there.
  constexpr TraceFormat(const fmt::format_string<Args...>& checked, int at = __builtin_LINE())
      : format(checked), line(at) {}
  fmt::format_string<Args...> format;
  int line;
};

/// A trace facility with levels 0 to 9; a higher level tells more. A record goes to the dual trace (Plog)
/// when its level is on, and costs one test when it is not: nothing is formatted. Arguments are evaluated by
/// the caller in any case; ask on() first where they are dear.
///
/// Handles of the same name share their level. Levels are kept by name, so that they hold for handles made
/// later; nothing of a handle stays behind when it is destroyed. Levels change on the event-loop thread.
class TraceHandle {
 public:
  static constexpr int lowestLevel = 0;
  static constexpr int highestLevel = 9;
  /// Facilities that are on before they have handles, at most: whoever switches can name any.
  static constexpr size_t mostUnused = 100;

  /// `source` names the file that this handle's records come from, as a path of the tree without its
  /// extension; it is the handle's own, not the facility's, and is copied.
  explicit TraceHandle(std::string_view name, std::string_view source = {});
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const std::string& name() const { return facility_->name; }
  const std::string& source() const { return source_; }

  bool on(int level) const { return level <= facility_->enabledLevel.load(std::memory_order_relaxed); }

  /// Writes a record, with the line of this call, when the level is on.
  template <class... Args>
  void trace(int level, std::string_view function, TraceFormat<std::type_identity_t<Args>...> text,
             Args&&... args) const {
    if (on(level)) [[unlikely]] {
      format(level, function, text.line, text.format, fmt::make_format_args(args...));
    }
  }
  /// The same with a line that the caller names.
  template <class... Args>
  void traceAt(int line, int level, std::string_view function, fmt::format_string<Args...> text,
               Args&&... args) const {
    if (on(level)) [[unlikely]] {
      format(level, function, line, text, fmt::make_format_args(args...));
    }
  }

  /// Switches on, for every facility that `spec` names, all levels up to the one named and no other, for
  /// handles present and to come. A spec is a list of NAME/LEVEL parted by commas, the level one digit;
  /// blanks around an element do not count, of several elements for one name the last holds, and the empty
  /// spec names nothing. A malformed spec, or one with which more than `mostUnused` facilities without
  /// handles would be on, changes nothing; returned is then what is wrong with which element.
  static std::optional<std::string> enable(std::string_view spec);
  /// Switches every level of every facility off, for handles to come, too.
  static void disableAll();

 private:
  void format(int level, std::string_view function, int line, fmt::string_view text,
              fmt::format_args args) const;

  Impl::TraceFacility* const facility_;
  const std::string source_;
};

}  // namespace Zeb
