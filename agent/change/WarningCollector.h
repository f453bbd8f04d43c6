#pragma once

#include <agent/warnings/Warning.h>
#include <fmt/format.h>

#include <map>
#include <string_view>
#include <utility>

namespace Agent {

/// Collects warnings: a hundred of each code, and how many more there are. A configuration may have any
/// number of them, and nobody reads so many.
class WarningCollector {
 public:
  /// `text()` gives the text, and is only asked for one that is kept.
  template <class Text>
  void add(WarningCode code, const Place& place, const Text& text) {
    size_t& count = counts_[code.kind().code];
    if (++count <= most) warnings_.push_back({code, place, text()});
  }
  void add(const Warning& warning) {
    add(warning.code, warning.place, [&] { return warning.text; });
  }
  Warnings take() {
    for (const auto& [code, count] : counts_) {
      if (count > most)
        warnings_.push_back({"more-warnings", {}, fmt::format("{} more of {}", count - most, code)});
    }
    return std::move(warnings_);
  }

 private:
  static constexpr size_t most = 100;

  Warnings warnings_;
  std::map<std::string_view, size_t> counts_;
};

}  // namespace Agent
