#pragma once

#include <fmt/format.h>

#include <atomic>
#include <concepts>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Zeb {

namespace Impl {

/// The data that all handles of one facility share.
struct TraceFacility {
  explicit TraceFacility(std::string_view facilityName) : name(facilityName) {}
  const std::string name;
  std::atomic<int> enabledLevel{-1};  // the highest level that is on
  unsigned handles = 0;
};

}  // namespace Impl

/// A format text, which the compiler checks, with the line of the call that it is an argument of.
template <class... Args>
struct TraceFormat {
  template <class Text>
  requires std::convertible_to<const Text&, std::string_view>
  consteval TraceFormat(const Text& text, int at = __builtin_LINE()) : format(text), line(at) {}
  /// For a text that comes from a table, where it was checked.
  constexpr TraceFormat(const fmt::format_string<Args...>& checked, int at = __builtin_LINE())
      : format(checked), line(at) {}
  fmt::format_string<Args...> format;
  int line;
};

/// A trace facility with levels 0 to 9; a higher level tells more. A record goes to the dual trace (Plog)
/// when its level is on. When it is off, it costs one test and nothing is formatted; but the caller evaluates
/// the arguments in any case, so ask on() first when they are expensive.
///
/// Handles with the same name share their level. Levels are kept by name, so that they also hold for handles
/// that are made later. Levels change on the event-loop thread only.
class TraceHandle {
 public:
  static constexpr int lowestLevel = 0;
  static constexpr int highestLevel = 9;
  /// How many facilities without handles can be on, because any name is accepted.
  static constexpr size_t mostUnused = 100;

  /// `source` is the file that this handle's records come from, as a path in the tree without its extension.
  /// It belongs to the handle, not to the facility, and is copied.
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

  /// For every facility that `spec` names, switches on all levels up to the one that is named, and no other;
  /// this also holds for handles that are made later. A spec is a list of NAME/LEVEL separated by commas,
  /// with a level of one digit. Blanks around an element are ignored, the last element for a name counts, and
  /// the empty spec names nothing. A malformed spec changes nothing, nor does one with which more than
  /// `mostUnused` facilities without handles would be on; then it returns what is wrong with which element.
  /// `whyNot` is asked for every name, and what it says is wrong with one, too.
  using WhyNot = std::function<std::optional<std::string>(std::string_view name)>;
  static std::optional<std::string> enable(std::string_view spec, const WhyNot& whyNot = {});
  /// Switches off every level of every facility, also for handles that are made later.
  static void disableAll();

  struct Facility {
    std::string name;
    int level = -1;     ///< the highest level that is on; -1: none
    bool used = false;  ///< it has handles; without any it is only on, for handles that are made later
  };
  /// The facilities there are now, by name.
  static std::vector<Facility> facilities();

 private:
  void format(int level, std::string_view function, int line, fmt::string_view text,
              fmt::format_args args) const;

  Impl::TraceFacility* const facility_;
  const std::string source_;
};

}  // namespace Zeb
