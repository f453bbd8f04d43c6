#include <agent/metrics/Ledger.h>

namespace Agent {

namespace {

/// Entries that are looked at in a go.
constexpr int entriesAtOnce = 256;

/// A count below the one before is that of a counter that began again.
uint64_t risen(uint64_t count, uint64_t last) { return count < last ? count : count - last; }

}  // namespace

Ledger::Counted Ledger::told(const Series& series, const Kiv::UniqueId& rule, const Counted& now) {
  Entry& known = rules_[{rule, series.direction}];
  Entry& entry = series_[series];
  entry.counted.packets += risen(now.packets, known.counted.packets);
  entry.counted.bytes += risen(now.bytes, known.counted.bytes);
  known = {now, round_};
  entry.round = round_;
  return entry.counted;
}

bool Ledger::tidy() {
  if (tidy(series_, fromSeries_) || tidy(rules_, fromRule_)) return true;
  fromSeries_.reset();
  fromRule_.reset();
  ++round_;
  return false;
}

template <class Map>
bool Ledger::tidy(Map& map, std::optional<typename Map::key_type>& from) const {
  auto at = from ? map.lower_bound(*from) : map.begin();
  for (int looked = 0; map.size() > most_ && at != map.end(); ++looked) {
    if (looked == entriesAtOnce) {
      from = at->first;
      return true;
    }
    at = at->second.round == round_ ? std::next(at) : map.erase(at);
  }
  if (at != map.end()) from = at->first;
  return false;
}

}  // namespace Agent
