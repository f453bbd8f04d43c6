#pragma once

#include <Kelp/Duration.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zeb {

/// The recommended action of a message that needs no action.
inline constexpr char logNoAction[] = "\x01";

/// A log message of the system. Texts are not owned; they live as long as the handles made from the
/// descriptor.
struct LogDescriptor {
  const char* name;
  const char* format;  ///< printf style, with %s for every field
  const char* explanation;
  const char* action;  ///< what the operator should do, or logNoAction
  int severity;        ///< syslog severity, 0 to 7 (RFC 5424, section 6.2.1)
  uint32_t zero = 0;   ///< reserved
};

/// "emergency" to "debug", the keyword of a syslog severity 0 to 7.
std::string_view logSeverityName(int severity);

/// Keeps a message in the process-wide catalogue as long as it lives. It also says how often the message may
/// be logged.
class LogHandle {
 public:
  /// `minInterval`: the least time between two messages, zero for no limit. `intervalFactor`: by how much the
  /// interval grows after each message that was held back, 1 for a constant interval. `burst`: how many
  /// messages are allowed at once before the interval counts, zero for one. `emissionLimit`: how many
  /// messages there may be in the life of the process, zero for no limit.
  LogHandle(const LogDescriptor& descriptor, Kelp::Duration minInterval, double intervalFactor,
            unsigned burst, unsigned emissionLimit);
  ~LogHandle();
  LogHandle(const LogHandle&) = delete;
  LogHandle& operator=(const LogHandle&) = delete;

  const LogDescriptor& descriptor() const { return descriptor_; }
  /// The recommended action in words, "No action required." for logNoAction.
  std::string_view actionText() const;

  Kelp::Duration minInterval() const { return minInterval_; }
  double intervalFactor() const { return intervalFactor_; }
  unsigned burst() const { return burst_; }
  unsigned emissionLimit() const { return emissionLimit_; }

  /// The handles that are alive, in the order in which they were made. Valid until a handle is made or
  /// destroyed.
  static const std::vector<const LogHandle*>& catalogue();

 private:
  const LogDescriptor descriptor_;
  const Kelp::Duration minInterval_;
  const double intervalFactor_;
  const unsigned burst_;
  const unsigned emissionLimit_;
};

}  // namespace Zeb
