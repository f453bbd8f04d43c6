#pragma once

#include <string_view>

// The build makes the version out of all headers that a plugin may include. While it does so there is none
// yet.
#ifdef VELO_INTERFACE_TEXT
#define VELO_INTERFACE_VERSION ""
#else
#include <velo-interface-version.h>
#endif

namespace Plugin {

/// Is different whenever something is different that a plugin and the agent share in memory: a header, the
/// compiler, the standard library. The build makes it (cmake/InterfaceVersion.cmake); nobody has to change it
/// by hand. It is compiled into both.
constexpr std::string_view interfaceVersion = VELO_INTERFACE_VERSION;

namespace Impl {

/// Lies in the file of every plugin, so that the loader can read the version from the file before it opens
/// the library. Code that runs when the library is opened already depends on the layouts that it was built
/// with.
[[gnu::used, gnu::visibility("hidden")]] inline constexpr char interfaceMark[] =
    "velo plugin interface " VELO_INTERFACE_VERSION;

}  // namespace Impl
}  // namespace Plugin
