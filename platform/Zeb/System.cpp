#include <Zeb/System.h>

namespace Zeb {

namespace {
const Kiv::Clock* replacement = nullptr;
}

Kelp::Duration System::currentTime() { return replacement ? replacement->now() : Kiv::wallClock().now(); }

void System::clockIs(const Kiv::Clock* clock) { replacement = clock; }

}  // namespace Zeb
