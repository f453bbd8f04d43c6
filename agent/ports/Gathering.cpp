#include <agent/ports/Ethtool.h>
#include <agent/ports/Gathering.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace Agent {

namespace {

/// A nanosecond more than whole microseconds: so a pause is known that this program has set.
constexpr uint64_t mark = 1;

Napi gathering(uint32_t id, uint32_t microseconds) {
  // One look in vain is the end of it: who sends seldom does not wait.
  return microseconds == 0 ? Napi{id} : Napi{id, 1, uint64_t{microseconds} * 1000 + mark};
}

bool isOurs(const Napi& napi) { return napi.emptyLooks == 1 && napi.pause % 1000 == mark; }

bool isVeth(const std::string& device) {
  ethtool_drvinfo driver{};
  driver.cmd = ETHTOOL_GDRVINFO;
  return ethtoolAnswers(device, &driver) && std::string_view(driver.driver) == "veth";
}

}  // namespace

Napi Gathering::beforeOf(const Napi& napi) const {
  const auto known =
      std::find_if(before_.begin(), before_.end(), [&](const Napi& each) { return each.id == napi.id; });
  if (known != before_.end()) return *known;
  return isOurs(napi) ? Napi{napi.id} : napi;
}

std::string Gathering::attach(const Link& link) {
  inForce_ = 0;
  if (!link.isOn || gather(link) || wanted_.value_or(0) == 0) return {};
  return "frames cannot be gathered (gather)";
}

bool Gathering::gather(const Link& link) {
  const uint32_t microseconds = wanted_.value_or(isVeth(link.name) ? usual : 0);
  std::vector<Napi> napis;
  if (!napis_.read(link.index, napis)) return false;
  std::vector<Napi> set;
  for (const Napi& napi : napis) {
    const Napi before = beforeOf(napi);
    const bool othersMayStay = !wanted_ || microseconds == 0;
    if (othersMayStay && before.pause != 0) continue;
    if (const Napi ours = gathering(napi.id, microseconds); napi != ours && !napis_.napiIs(ours))
      return false;
    set.push_back(before);
  }
  before_ = std::move(set);
  if (!before_.empty()) inForce_ = microseconds;
  errno = EOPNOTSUPP;
  return !napis.empty();
}

void Gathering::detach() {
  for (const Napi& each : before_) napis_.napiIs(each);
  before_.clear();
  inForce_ = 0;
}

std::string Gathering::how() const {
  return inForce_ == 0 ? std::string() : fmt::format(", gathers {} us", inForce_);
}

}  // namespace Agent
