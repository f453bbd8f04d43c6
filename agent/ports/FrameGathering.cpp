#include <agent/ports/Ethtool.h>
#include <agent/ports/FrameGathering.h>
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

std::string FrameGathering::attach(const Link& link) {
  inForce_ = 0;
  if (!link.isOn || gather(link) || wanted_.value_or(0) == 0) return {};
  return "frames cannot be gathered (gather)";
}

bool FrameGathering::gather(const Link& link) {
  const uint32_t microseconds = wanted_.value_or(isVeth(link.name) ? usual : 0);
  std::vector<Napi> napis;
  if (!napis_.read(link.index, napis)) return false;
  device_ = link.index;
  // Those that have gone, or that somebody else has set since, are no longer ours to put back.
  std::erase_if(before_, [&](const Napi& before) {
    return std::none_of(napis.begin(), napis.end(),
                        [&](const Napi& napi) { return napi.id == before.id && isOurs(napi); });
  });
  for (const Napi& napi : napis) {
    if (!gatherAt(napi, microseconds)) return false;
  }
  if (!before_.empty()) inForce_ = microseconds;
  errno = EOPNOTSUPP;
  return !napis.empty();
}

const Napi* FrameGathering::knownBefore(const Napi& napi) const {
  const auto known =
      std::find_if(before_.begin(), before_.end(), [&](const Napi& each) { return each.id == napi.id; });
  return known == before_.end() ? nullptr : &*known;
}

bool FrameGathering::gatherAt(const Napi& napi, uint32_t microseconds) {
  const Napi* known = knownBefore(napi);
  const Napi before = known ? *known : isOurs(napi) ? Napi{napi.id} : napi;
  const bool othersMayStay = !wanted_ || microseconds == 0;
  if (othersMayStay && before.pause != 0) return true;
  // Noted first: it is put back also when the next one cannot be had.
  if (!known && microseconds != 0) before_.push_back(before);
  const Napi wanted = gathering(napi.id, microseconds);
  return napi == wanted || napis_.napiIs(wanted);
}

void FrameGathering::detach() {
  std::vector<Napi> now;
  if (!before_.empty()) napis_.read(device_, now);
  for (const Napi& napi : now) {
    if (const Napi* before = knownBefore(napi); before && isOurs(napi)) napis_.napiIs(*before);
  }
  before_.clear();
  inForce_ = 0;
}

std::string FrameGathering::how() const {
  return inForce_ == 0 ? std::string() : fmt::format(", gathers {} us", inForce_);
}

}  // namespace Agent
