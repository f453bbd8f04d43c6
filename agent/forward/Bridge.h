#pragma once

#include <Kiv/Clock.h>
#include <agent/forward/Junction.h>

#include <map>
#include <memory>
#include <optional>

namespace Agent {

/// A bridge that learns where stations are, by VLAN and address (IEEE 802.1Q, 8.7 and 8.8). A frame to a
/// known station leaves by the end of that station only, every other frame by all ends. Frames to addresses
/// that no bridge forwards (01-80-C2-00-00-00 to -0F; IEEE 802.1Q, table 8-1) go nowhere.
///
/// The table has room for `stations`, is made with the bridge and never grows. When its bucket is full, a new
/// station replaces the one there that was not heard of for the longest time. A station that was not heard of
/// for `ageingTime` counts as unknown.
class Bridge final : public Junction {
 public:
  static constexpr size_t stations = 32768;
  static constexpr Kelp::Duration ageingTime{300};

  /// `clock` outlives the bridge.
  Bridge(std::vector<End*> ends, const Kiv::Clock& clock);

  void learn(End& from, const Nimnet::EthHdr& eth, uint16_t vlan) override {
    learn(from, eth.source(), vlan);
  }
  /// Somebody else has heard of a station there.
  void learn(End& from, Nimnet::EthAddr source, uint16_t vlan);
  std::span<End* const> targets(const End& from, const Nimnet::EthHdr& eth, uint16_t vlan) const override;
  void forget(const End& end) override;
  /// When that was done last; before all times: never.
  Kelp::Duration forgotten(const End& end) const;
  std::string text(const End&) const override { return "bridged"; }

  /// How many stations are in the table, including those that were not heard of for too long. Walks the
  /// table.
  size_t known() const;

  /// A station that has been heard of lately.
  struct Heard {
    Nimnet::EthAddr address;
    uint16_t vlan = 0;
    const End* end = nullptr;
    Kelp::Duration age;  ///< since it was heard of last
  };
  /// Where a frame to this address would go; nothing when it would go to all ends.
  std::optional<Heard> heardOf(Nimnet::EthAddr address, uint16_t vlan) const;
  /// The first station at place `at` of the table or behind it, looking at no more than `places`; `at` is
  /// then the place behind it, or where to go on. A place from `stations` on is the end of the table.
  std::optional<Heard> next(size_t& at, size_t places) const;
  std::span<End* const> ends() const { return ends_; }
  /// Whether an address is of a group of stations, the broadcast address included.
  static bool isGroup(Nimnet::EthAddr address);

 private:
  struct Station {
    uint64_t key = 0;  ///< VLAN and address; 0: a free place
    End* end = nullptr;
    Kelp::Duration heard;
  };
  // A station can only be in one bucket of the table, which its key decides.
  static constexpr size_t bucketSize = 8;
  static constexpr size_t buckets = stations / bucketSize;

  std::span<Station, bucketSize> bucketOf(uint64_t key) const;
  /// The station of a key; null when it is unknown.
  Station* stationOf(uint64_t key) const;
  bool isHeard(const Station& station) const;
  Heard heard(const Station& station) const;

  const std::vector<End*> ends_;
  const Kiv::Clock& clock_;
  const std::unique_ptr<Station[]> table_;
  std::map<const End*, Kelp::Duration> forgotten_;
};

}  // namespace Agent
