#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

/// How much a line of the log matters, by the numbers of syslog (RFC 5424, 6.2.1).
enum class Severity { error = 3, warning = 4, notice = 5, info = 6 };

/// Something that the log tells: one line for people, and fields for programs, which the journal keeps.
struct LogEvent {
  Severity severity = Severity::info;
  std::string text;
  std::vector<std::pair<std::string_view, std::string>> fields{};  ///< names in capitals, as VELO_RESULT
};

/// Where events go; may be empty, then nobody is told.
using TellLog = std::function<void(LogEvent event)>;

}  // namespace Agent
