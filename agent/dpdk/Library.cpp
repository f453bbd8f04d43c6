// What the program looks for in this library; see agent/ports/PortLibrary.h.
#include <agent/dpdk/DpdkDevice.h>
#include <agent/ports/PortLibrary.h>

extern "C" {

extern const char veloPortInterface[];
const char veloPortInterface[] = VELO_PORT_INTERFACE;

// The caller is C++, too: only the name is one of C.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wunknown-warning-option"
#pragma GCC diagnostic ignored "-Wreturn-type-c-linkage"
std::unique_ptr<Agent::PortDevice> veloMakePort(const Agent::PortWhat& what, const Agent::PortSetup& setup,
                                                std::string& wrong) {
  return Agent::DpdkDevice::of(what, setup, wrong);
}
#pragma GCC diagnostic pop
}

static_assert(std::is_same_v<decltype(&veloMakePort), Agent::MakePort>);
