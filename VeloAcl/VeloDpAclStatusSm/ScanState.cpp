#include <VeloAcl/VeloDpAclStatusSm/ScanTables.h>

#include <algorithm>

namespace Velo::VeloAcl {

// Fields that no row has would be waited for by nobody. A stream has one field, a poll three; `idle` is of
// all.
static_assert(Zeb::attributeTable<InputSmScanState>.size() == streamScans.size() + 3 * pollScans.size() + 1,
              "a stream or a poll has no row in ScanTables.h, or is not in the list of them");

void InputSmScanState::handleIdle() {
  idleIs(std::all_of(pollScans.begin(), pollScans.end(),
                     [this](const PollScan* poll) { return (this->*poll->idle)(); }));
}

}  // namespace Velo::VeloAcl
