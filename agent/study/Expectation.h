#pragma once

#include <Kelp/Duration.h>
#include <Kiv/Clock.h>
#include <agent/change/Sources.h>
#include <agent/explain/FrameText.h>
#include <agent/proof/PacketSets.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What people expect of packets, a line of a text:
///
///   expect permit|pass|deny|drop PLACE: PACKET [by rule N | by no rule]
///   expect all|none permit|pass|deny|drop PLACE: CONDITION
///
/// PLACE is `on PORT in`, `on PORT out` or `from PORT to PORT`; PACKET is as `velo explain` takes it,
/// or as the octets of a frame; CONDITION as `velo find` does. One that only MAC lists could ask is about
/// them.
struct Expectation {
  int line = 0;
  std::string text;  ///< the line as it was written
  // Columns in it, from 1: of the ports, and of the packet or condition.
  size_t fromAt = 1, toAt = 1, whatAt = 1;

  bool passes = false;           ///< what is expected of the packet, or of each packet
  std::string from{}, to{};      ///< ports; empty: the lists there are not asked
  std::optional<Frame> frame{};  ///< nothing: it is about all packets of a condition
  std::string condition{};
  bool ofFrames = false;           ///< what the condition says is for MAC lists
  std::optional<uint32_t> rule{};  ///< that is to decide; 0: none
};

/// Reads a file of them; empty lines, and those that begin with `!` or `#`, say nothing. Mistakes are added
/// to `wrong`, each with its place.
std::vector<Expectation> readExpectations(const std::string& name, std::string_view text,
                                          std::vector<std::string>& wrong);

/// What came of one.
struct Fulfilment {
  bool holds = false;
  std::string why{};      ///< if it does not: a sentence
  std::string example{};  ///< and a packet that shows it, if there is one, as `velo explain` takes it
};

/// Why one could not be looked at, and the column of its line.
struct NotLookedAt {
  size_t column = 1;
  std::string why{};
};

/// Looks whether expectations hold of sources, of an agent with these ports. `plugin` is the library that
/// judges single packets; the limits are those of all expectations together.
class Expecting {
 public:
  Expecting(const Sources& sources, std::set<std::string> ports, std::string plugin, Proof::Limits limits)
      : sources_(sources), ports_(std::move(ports)), plugin_(std::move(plugin)), limits_(limits) {}

  /// Nothing, and what is wrong, when it cannot be looked at.
  std::optional<Fulfilment> fulfilled(const Expectation& expected, NotLookedAt* wrong) const;

 private:
  std::optional<Fulfilment> ofPacket(const Expectation& expected, std::string* wrong) const;
  std::optional<Fulfilment> ofAll(const Expectation& expected, std::string* wrong) const;
  std::optional<NotLookedAt> whyNoPort(const Expectation& expected) const;

  const Sources& sources_;
  const std::set<std::string> ports_;
  const std::string plugin_;
  const Proof::Limits limits_;
  const Kelp::Duration begin_ = Kiv::steadyClock().now();
};

}  // namespace Agent
