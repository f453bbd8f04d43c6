#include <agent/metrics/ChangeCounts.h>

namespace Agent {

void ChangeCounts::note(const LogEvent& event, double now) {
  for (const auto& [name, value] : event.fields) {
    if (name != "VELO_RESULT") continue;
    if (value == "applied") ++applied;
    if (value == "refused") ++refused, lastRefused = now;
  }
}

}  // namespace Agent
