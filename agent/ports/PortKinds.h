#pragma once

#include <agent/ports/PortDevice.h>
#include <agent/ports/PortWhat.h>

#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// A kind of port: "packet" in "--port eth1=packet:ens3". A further kind is a class and a row of the table in
/// PortKinds.cpp.
struct PortKind {
  std::string_view name;
  std::string_view form;  ///< for people
  /// Options that may stand behind what it is on.
  std::span<const std::string_view> options;
  /// Makes a device. Null, with what is `wrong`, when options do not mean anything.
  std::unique_ptr<PortDevice> (*make)(const PortWhat& what, const PortSetup& setup, std::string& wrong);
  /// The capabilities (CAP_*, capabilities(7)) that are needed to open a device again that has come back.
  std::set<int> (*capabilities)();
  /// Those that making a device may need besides, as far as the process has them: its driver knows. Null:
  /// none.
  std::set<int> (*toMake)() = nullptr;
  /// Makes what a process has of the port whose workers have the device.
  std::unique_ptr<PortDevice> (*keep)(const PortWhat& what);
  bool onNothing = false;  ///< nothing stands behind "KIND:"
  bool followed = false;   ///< its device is one of the kernel, which tells when it goes and comes
  bool exclusive = false;  ///< only one port can be on such a device
  bool ofHost = false;     ///< the host can use the device, too
};

/// A port as it is written: "ens3", "tap:NAME", "pcap:FILE,endless".
struct PortText {
  const PortKind* kind = nullptr;
  PortWhat what;
};

/// Reads the text of a port. Sets `wrong` when it means none; the kind is null then.
PortText portTextOf(std::string_view text, std::string& wrong);
/// All kinds as they are written, for the help.
std::string portForms();

}  // namespace Agent
