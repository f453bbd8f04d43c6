#pragma once

#include <Kiv/OwnedTask.h>
#include <Nimnet/Addr.h>
#include <agent/forward/Bridge.h>
#include <agent/forward/Forwarder.h>

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Agent {

/// Has the bridges of all workers know the same stations: tells where stations have been heard of here, some
/// times a second, and learns where others have. Frames to a station that only another worker knows go to all
/// ends until then. The packets' way knows nothing of this: the tables are looked through, a piece a turn.
///
/// For the loop's thread. Forwarder and clock outlive it.
class Stations {
 public:
  static constexpr Kelp::Duration tellEvery{0.2};
  /// A station that goes on to be heard of here is told again after so long, before others forget it.
  static constexpr Kelp::Duration tellAgain{Bridge::ageingTime.seconds() / 4};

  using Send = std::function<void(const std::string& text)>;

  /// `task`: its name; two of this class in a process need two.
  Stations(const Forwarder& forwarder, const Kiv::Clock& clock, Send send, const char* task = "Stations");

  /// Others have heard of these.
  void learn(const std::string& text);
  /// The same for one who only shows what his workers have heard of.
  static void learn(const Forwarder& forwarder, const std::string& text);
  /// All stations that are known here, for one who begins.
  static std::string all(const Forwarder& forwarder);

 private:
  /// What others know of a station.
  struct Known {
    const End* end = nullptr;
    Kelp::Duration at{};
  };
  using KnownOf = std::unordered_map<uint64_t, Known>;  // by VLAN and address

  void run();
  /// Goes on in the table of a bridge; false when the slice is used up before its end.
  bool look(size_t bridge);

  const Forwarder& forwarder_;
  const Kiv::Clock& clock_;
  const Send send_;
  Kiv::OwnedTask task_;
  std::vector<KnownOf> known_;  // by bridge
  size_t bridge_ = 0, place_ = 0;
};

}  // namespace Agent
