#include <Kelp/Assert.h>
#include <Zeb/LogHandle.h>

#include <iterator>

namespace Zeb {

namespace {

constexpr std::string_view severityNames[] = {"emergency", "alert",  "critical",      "error",
                                              "warning",   "notice", "informational", "debug"};

// Never destroyed: the handles are globals, which are destroyed in any order.
std::vector<const LogHandle*>& handles() {
  static auto& instance = *new std::vector<const LogHandle*>;
  return instance;
}

}  // namespace

std::string_view logSeverityName(int severity) {
  KELP_ASSERT(severity >= 0 && severity < static_cast<int>(std::size(severityNames)),
              "a log severity outside 0 to 7");
  return severityNames[severity];
}

LogHandle::LogHandle(const LogDescriptor& descriptor, Kelp::Duration minInterval, double intervalFactor,
                     unsigned burst, unsigned emissionLimit)
    : descriptor_(descriptor),
      minInterval_(minInterval),
      intervalFactor_(intervalFactor),
      burst_(burst),
      emissionLimit_(emissionLimit) {
  logSeverityName(descriptor.severity);
  handles().push_back(this);
}

LogHandle::~LogHandle() { std::erase(handles(), this); }

std::string_view LogHandle::actionText() const {
  const std::string_view action = descriptor_.action;
  return action == logNoAction ? "No action required." : action;
}

const std::vector<const LogHandle*>& LogHandle::catalogue() { return handles(); }

}  // namespace Zeb
