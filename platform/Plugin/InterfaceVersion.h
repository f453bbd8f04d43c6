#pragma once

#include <string_view>

// Made by the build of all headers that a plugin may include; these headers alone have none.
#ifdef VELO_INTERFACE_TEXT
#define VELO_INTERFACE_VERSION ""
#else
#include <velo-interface-version.h>
#endif

namespace Plugin {

/// Differs whenever something differs that a plugin and the agent share in memory: a header, the compiler,
/// the standard library. Nobody raises it: the build makes it (cmake/InterfaceVersion.cmake). It is compiled
/// into both.
constexpr std::string_view interfaceVersion = VELO_INTERFACE_VERSION;

namespace Impl {

/// Lies in the file of every plugin, so that the loader can read the version there before any code of the
/// plugin runs: such code calls the agent when the library is opened, by the layouts that it was built with.
[[gnu::used, gnu::visibility("hidden")]] inline constexpr char interfaceMark[] =
    "velo plugin interface " VELO_INTERFACE_VERSION;

}  // namespace Impl
}  // namespace Plugin
