#include <Zeb/System.h>
#include <agent/change/History.h>
#include <agent/config/Digest.h>

#include <algorithm>
#include <utility>

namespace Agent {

const Change* History::find(uint64_t number) const {
  const auto found = std::find_if(past_.changes.begin(), past_.changes.end(),
                                  [number](const auto& change) { return change->number == number; });
  return found == past_.changes.end() ? nullptr : found->get();
}

uint64_t digestOf(std::string_view text) {
  Config::Digest digest;
  for (size_t at = 0; at < text.size(); at += sizeof(uint64_t)) {
    uint64_t word = 0;
    for (const char c : text.substr(at, sizeof word)) word = word << 8 | static_cast<unsigned char>(c);
    digest.add(word);
  }
  digest.add(text.size());
  return digest.value();
}

const Change* History::last(const std::string& source, size_t before) const {
  for (auto change = past_.changes.rbegin(); change != past_.changes.rend(); ++change) {
    if ((*change)->source == sourceTitle(source) && before-- == 0) return change->get();
  }
  return nullptr;
}

void History::add(Change change) {
  auto& all = past_.changes;
  if (past_.files && change.source != sourceTitle(commandLineName) &&
      change.source != sourceTitle(fleetName)) {
    if (change.text) {
      (*past_.files)[change.source] = digestOf(*change.text);
    } else {
      past_.files->erase(change.source);
    }
  }
  change.number = all.empty() ? 1 : all.back()->number + 1;
  change.time = Zeb::System::currentTime().seconds();
  all.push_back(std::make_shared<const Change>(std::move(change)));
  if (all.size() > mostChanges) all.erase(all.begin());
  forgetOldTexts();
  keep();
}

void History::unconfirmedIs(std::optional<Unconfirmed> unconfirmed) {
  if (!unconfirmed && !past_.unconfirmed) return;
  past_.unconfirmed = std::move(unconfirmed);
  keep();
}

void History::forgetOldTexts() {
  const Change *const newest = last(), *const second = last(1);
  size_t octets = 0;
  for (auto at = past_.changes.rbegin(); at != past_.changes.rend(); ++at) {
    const Change& change = **at;
    octets += (change.text ? change.text->size() : 0) + (change.difference ? change.difference->size() : 0);
    if (octets <= mostOctets || &change == newest || &change == second) continue;
    Change without = change;
    without.text = without.difference = nullptr;
    *at = std::make_shared<const Change>(std::move(without));
  }
}

}  // namespace Agent
