#include <agent/ports/CaptureDevice.h>
#include <agent/ports/HeldDevice.h>
#include <agent/ports/NullDevice.h>
#include <agent/ports/PacketDevice.h>
#include <agent/ports/PortKinds.h>
#include <agent/ports/PortLibrary.h>
#include <agent/ports/TapDevice.h>
#include <agent/ports/XdpDevice.h>
#include <agent/ports/XdpKeeper.h>
#include <fmt/format.h>
#include <linux/capability.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

namespace Agent {

namespace {

std::unique_ptr<PortDevice> packet(const PortWhat& what, const PortSetup& setup, std::string&) {
  return std::make_unique<PacketDevice>(what.device, setup.workers > 1);
}

std::unique_ptr<PortDevice> tap(const PortWhat& what, const PortSetup& setup, std::string&) {
  return std::make_unique<TapDevice>(what.device,
                                     setup.workers > 0 ? TapDevice::Queue::one : TapDevice::Queue::only);
}

std::unique_ptr<PortDevice> keptTap(const PortWhat& what) {
  return std::make_unique<TapDevice>(what.device, TapDevice::Queue::none);
}

/// Of a device that the kernel tells of.
std::unique_ptr<PortDevice> heldByOthers(const PortWhat&) { return std::make_unique<HeldDevice>(); }

/// Of one that is always there.
std::unique_ptr<PortDevice> heldAlways(const PortWhat& what) {
  return std::make_unique<HeldDevice>(Link{.name = what.device, .index = 0, .up = true, .mtu = anySize});
}

std::unique_ptr<PortDevice> null(const PortWhat&, const PortSetup&, std::string&) {
  return std::make_unique<NullDevice>();
}

std::unique_ptr<PortDevice> capture(const PortWhat& what, const PortSetup& setup, std::string& wrong) {
  uint64_t repeat = 1;
  const auto given = what.options.find("repeat");
  const auto endless = what.options.find("endless");
  if (endless != what.options.end()) {
    repeat = CaptureDevice::endless;
    if (given != what.options.end()) wrong = "repeat and endless exclude each other";
    if (!endless->second.empty()) wrong = "endless has no value";
  } else if (given != what.options.end()) {
    const auto number = wholeNumber(given->second);
    if (number.value_or(0) == 0) wrong = fmt::format("repeat={} is no number from 1 on", given->second);
    repeat = number.value_or(1);
  }
  if (!wrong.empty()) return nullptr;
  auto made = std::make_unique<CaptureDevice>(what.device, repeat);
  if (setup.workers > 0) made->shareIs(setup.worker, setup.workers);
  return made;
}

/// "3" or "0-3".
XdpDevice::Queues queuesOf(std::string_view text) {
  const size_t dash = std::min(text.find('-'), text.size());
  const auto first = wholeNumber(text.substr(0, dash));
  const auto last = dash == text.size() ? first : wholeNumber(text.substr(dash + 1));
  if (!first || !last || *first > *last || *last >= XdpProgram::mostQueues) return std::nullopt;
  return XdpProgram::Range{static_cast<uint32_t>(*first), static_cast<uint32_t>(*last)};
}

/// Microseconds; nothing where they are not given, or are none.
FrameGathering::Wanted gatherOf(const PortWhat& what) {
  const auto given = what.options.find("gather");
  const auto number = given == what.options.end() ? std::nullopt : wholeNumber(given->second);
  if (!number || *number > FrameGathering::most) return std::nullopt;
  return static_cast<uint32_t>(*number);
}

std::unique_ptr<PortDevice> xdp(const PortWhat& what, const PortSetup& setup, std::string& wrong) {
  XdpDevice::Queues queues;
  XdpMode mode = XdpMode::any;
  const FrameGathering::Wanted gather = gatherOf(what);
  for (const auto& [name, value] : what.options) {
    if (name == "queue") {
      queues = queuesOf(value);
      if (!queues)
        wrong = fmt::format("queue={} is no queue and no range of queues below {}", value,
                            XdpProgram::mostQueues);
      continue;
    }
    if (name == "gather") {
      if (!gather)
        wrong = fmt::format("gather={} is no number of microseconds up to {}", value, FrameGathering::most);
      continue;
    }
    if (!value.empty()) wrong = fmt::format("{} has no value", name);
    if (mode != XdpMode::any) wrong = "copy and zerocopy exclude each other";
    mode = name == "copy" ? XdpMode::copy : XdpMode::zerocopy;
  }
  if (!wrong.empty()) return nullptr;
  if (setup.worker == 0) return std::make_unique<XdpDevice>(what.device, queues, mode, gather);
  const auto handed = setup.handed.find(what.device);
  const int sockets = handed == setup.handed.end() ? -1 : handed->second;
  return std::make_unique<XdpDevice>(what.device, queues, mode, gather,
                                     XdpDevice::Share{setup.worker, setup.workers, sockets});
}

std::unique_ptr<PortDevice> keptXdp(const PortWhat& what) {
  const auto queue = what.options.find("queue");
  return std::make_unique<XdpKeeper>(
      what.device, queue == what.options.end() ? std::nullopt : queuesOf(queue->second), gatherOf(what));
}

/// Processes that shared a device of DPDK would share its locks, too, and one that dies would stop the
/// others: so each has a device of its own.
std::unique_ptr<PortDevice> dpdk(const PortWhat& what, const PortSetup& setup, std::string& wrong) {
  constexpr std::string_view number = "%w";
  PortWhat own = what;
  for (size_t at; setup.workers > 0 && (at = own.device.find(number)) != std::string::npos;)
    own.device.replace(at, number.size(), std::to_string(setup.worker - 1));
  if (setup.workers > 0 && own.device == what.device) {
    wrong = fmt::format(
        "with --workers each process needs a dpdk: device of its own; {} stands for its number, from 0 on",
        number);
    return nullptr;
  }
  const bool others = setup.workers > 0 && setup.worker == 0;
  return others ? heldAlways(what) : deviceOfLibrary("VeloDpdk.so", own, setup, wrong);
}

template <int... capability>
std::set<int> needs() {
  return {capability...};
}

constexpr std::string_view ofCapture[] = {"repeat", "endless"};
constexpr std::string_view ofXdp[] = {"queue", "copy", "zerocopy", "gather"};
constexpr std::string_view ofDpdk[] = {"queues"};

/// The first row is meant by a text without a kind.
constexpr PortKind kinds[] = {
    {.name = "packet",
     .form = "[packet:]DEV",
     .options = {},
     .make = packet,
     .capabilities = needs<CAP_NET_RAW>,
     .keep = heldByOthers,
     .followed = true,
     .exclusive = true,
     .ofHost = true},
    {.name = "tap",
     .form = "tap:NAME",
     .options = {},
     .make = tap,
     .capabilities = needs<CAP_NET_ADMIN>,
     .keep = keptTap,
     .followed = true,
     .exclusive = true},
    {.name = "xdp",
     .form = "xdp:DEV[,queue=N|,queue=N-M][,copy|,zerocopy][,gather=US]",
     .options = ofXdp,
     .make = xdp,
     .capabilities = needs<CAP_NET_RAW, CAP_NET_ADMIN, CAP_BPF, CAP_IPC_LOCK>,
     .keep = keptXdp,
     .followed = true,
     .exclusive = true,
     .ofHost = true},
    {.name = "dpdk",
     .form = "dpdk:PCI|VDEV[,queues=N]",
     .options = ofDpdk,
     .make = dpdk,
     .capabilities = needs<>,
     .toMake = needs<CAP_NET_RAW, CAP_NET_ADMIN, CAP_BPF, CAP_IPC_LOCK, CAP_SYS_RAWIO>,
     .keep = heldAlways,
     .exclusive = true},
    {.name = "pcap",
     .form = "pcap:FILE[,repeat=N|,endless]",
     .options = ofCapture,
     .make = capture,
     .capabilities = needs<>,
     .keep = heldAlways},
    {.name = "null",
     .form = "null:",
     .options = {},
     .make = null,
     .capabilities = needs<>,
     .keep = heldAlways,
     .onNothing = true},
};

/// Takes the options from the end of a text, as far as they are of the kind: what it is on may have commas,
/// too.
PortWhat whatOf(std::string_view text, const PortKind& kind) {
  PortWhat what;
  for (size_t comma; (comma = text.rfind(',')) != std::string_view::npos; text = text.substr(0, comma)) {
    const std::string_view option = text.substr(comma + 1);
    const size_t equals = std::min(option.find('='), option.size());
    const std::string_view name = option.substr(0, equals);
    if (std::count(kind.options.begin(), kind.options.end(), name) == 0) break;
    what.options.emplace(name, option.substr(std::min(equals + 1, option.size())));
  }
  what.device = text;
  return what;
}

}  // namespace

PortText portTextOf(std::string_view text, std::string& wrong) {
  const size_t colon = text.find(':');
  // No device of the kernel has a colon in its name.
  const bool named = colon != std::string_view::npos;
  const auto* kind =
      named ? std::find_if(std::begin(kinds), std::end(kinds),
                           [name = text.substr(0, colon)](const PortKind& each) { return each.name == name; })
            : std::begin(kinds);
  if (kind == std::end(kinds)) {
    wrong = fmt::format("there is no kind of port {} (there are {})", text.substr(0, colon), portForms());
    return {};
  }
  PortText port{kind, whatOf(named ? text.substr(colon + 1) : text, *kind)};
  if (port.what.device.empty() != kind->onNothing) {
    wrong = kind->onNothing ? fmt::format("{} has no device", kind->form) : "no device is named";
    return {};
  }
  if (kind->onNothing) port.what.device = kind->name;
  return port;
}

std::string portForms() {
  std::string forms;
  for (const PortKind& kind : kinds) forms += fmt::format("{}{}", forms.empty() ? "" : ", ", kind.form);
  return forms;
}

}  // namespace Agent
