#pragma once

#include <agent/ports/PortDevice.h>
#include <agent/ports/PortWhat.h>

#include <memory>
#include <string>
#include <string_view>

namespace Agent {

/// Makes a device of a kind that lies in a shared library of its own beside the program, so that a program
/// without what that library needs runs as ever. Null, with what is `wrong`, when the library is missing,
/// cannot be opened or was built with other headers than this program.
std::unique_ptr<PortDevice> deviceOfLibrary(std::string_view library, const PortWhat& what,
                                            const PortSetup& setup, std::string& wrong);

// What such a library has, as C names: the digest of the headers that it was built with, and what makes a
// device.
inline constexpr const char* portInterfaceSymbol = "veloPortInterface";
inline constexpr const char* makePortSymbol = "veloMakePort";
using MakePort = std::unique_ptr<PortDevice> (*)(const PortWhat& what, const PortSetup& setup,
                                                 std::string& wrong);

}  // namespace Agent
