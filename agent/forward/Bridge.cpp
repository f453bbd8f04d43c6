#include <Kelp/Hash.h>
#include <agent/forward/Bridge.h>

#include <algorithm>

namespace Agent {

namespace {

constexpr uint64_t reservedAddresses = 0x0180c2000000;  // and the 15 behind it
constexpr uint64_t groupBit = 0x010000000000;

constexpr int vlanAt = 48;

uint64_t keyOf(Nimnet::EthAddr address, uint16_t vlan) { return uint64_t{vlan} << vlanAt | address.value(); }

}  // namespace

Bridge::Bridge(std::vector<End*> ends, const Kiv::Clock& clock)
    : ends_(std::move(ends)), clock_(clock), table_(std::make_unique<Station[]>(stations)) {}

std::span<Bridge::Station, Bridge::bucketSize> Bridge::bucketOf(uint64_t key) const {
  const size_t bucket = (uint64_t{Kelp::keyHash(key)} * buckets) >> 32;
  return std::span<Station, bucketSize>(&table_[bucket * bucketSize], bucketSize);
}

void Bridge::learn(End& from, Nimnet::EthAddr source, uint16_t vlan) {
  if (source.value() == 0 || isGroup(source)) return;  // not the address of a station
  const uint64_t key = keyOf(source, vlan);
  const auto bucket = bucketOf(key);
  auto place = std::find_if(bucket.begin(), bucket.end(), [key](const Station& s) { return s.key == key; });
  if (place == bucket.end()) {
    // A free place first, otherwise that of the station not heard of for the longest time.
    place = std::min_element(bucket.begin(), bucket.end(), [](const Station& a, const Station& b) {
      return a.key == 0 || b.key == 0 ? a.key == 0 && b.key != 0 : a.heard < b.heard;
    });
  }
  *place = {key, &from, clock_.now()};
}

std::span<End* const> Bridge::targets(const End&, const Nimnet::EthHdr& eth, uint16_t vlan) const {
  const Nimnet::EthAddr destination = eth.destination();
  if (isGroup(destination)) {
    if ((destination.value() & ~uint64_t{0xf}) == reservedAddresses) return {};
    return ends_;
  }
  if (const Station* station = stationOf(keyOf(destination, vlan))) return {&station->end, 1};
  return ends_;
}

bool Bridge::isGroup(Nimnet::EthAddr address) { return (address.value() & groupBit) != 0; }

bool Bridge::isHeard(const Station& station) const {
  return station.key != 0 && clock_.now() - station.heard <= ageingTime;
}

Bridge::Station* Bridge::stationOf(uint64_t key) const {
  for (Station& station : bucketOf(key)) {
    if (station.key == key) return isHeard(station) ? &station : nullptr;
  }
  return nullptr;
}

Bridge::Heard Bridge::heard(const Station& station) const {
  return {Nimnet::EthAddr::fromValue(station.key), static_cast<uint16_t>(station.key >> vlanAt), station.end,
          clock_.now() - station.heard};
}

std::optional<Bridge::Heard> Bridge::heardOf(Nimnet::EthAddr address, uint16_t vlan) const {
  const Station* station = stationOf(keyOf(address, vlan));
  return station ? std::optional(heard(*station)) : std::nullopt;
}

std::optional<Bridge::Heard> Bridge::next(size_t& at, size_t places) const {
  for (const size_t end = std::min(at + places, stations); at < end;) {
    const Station& station = table_[at++];
    if (isHeard(station)) return heard(station);
  }
  return std::nullopt;
}

void Bridge::forget(const End& end) {
  for (size_t i = 0; i < stations; ++i) {
    if (table_[i].end == &end) table_[i] = {};
  }
  forgotten_[&end] = clock_.now();
}

Kelp::Duration Bridge::forgotten(const End& end) const {
  const auto known = forgotten_.find(&end);
  return known == forgotten_.end() ? Kelp::Duration(-1) : known->second;
}

size_t Bridge::known() const {
  return static_cast<size_t>(
      std::count_if(&table_[0], &table_[stations], [](const Station& s) { return s.key != 0; }));
}

}  // namespace Agent
