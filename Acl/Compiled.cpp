#include <Acl/Compiled.h>
#include <Zeb/TraceHandle.h>

#include <algorithm>

namespace Acl {

namespace {

const Zeb::TraceHandle& trace() {
  static const Zeb::TraceHandle handle("Acl::Compiled", __FILE__);
  return handle;
}

bool asksForQuad(const MacRuleConfig&) { return false; }
template <class Rule>
bool asksForQuad(const Rule& rule) {
  return asksQuad(rule.filter);
}

Classify::Projection projectionFor(
    std::span<const Zeb::MapEntry<Kiv::UniqueId, Ip6RuleConfig>* const> entries) {
  std::vector<const Ip6Filter*> filters;
  for (const auto* entry : entries) filters.push_back(&entry->value.filter);
  return projectionOf(filters);
}
template <class Entries>
Classify::Projection projectionFor(const Entries&) {
  return {};
}

}  // namespace

template <class Rule>
Compiled<Rule>::~Compiled() {
  if (job_) job_->handleDone = nullptr;
}

template <class Rule>
Compiled<Rule>::Compiled(std::span<const Entry* const> entries) : entries_(entries.begin(), entries.end()) {
  for (const Entry* entry : entries) sequences_.push_back(entry->value.sequence);
  rules_ = entries_.size();
  makeAnew();
}

template <class Rule>
uint32_t Compiled<Rule>::insert(const Entry* entry) {
  uint32_t slot = static_cast<uint32_t>(entries_.size());
  if (free_.empty()) {
    inOrder_ = inOrder_ && (slot == 0 || sequences_.back() < entry->value.sequence);
    entries_.push_back(entry);
    sequences_.push_back(entry->value.sequence);
  } else {
    slot = free_.back();
    free_.pop_back();
    inOrder_ = false;
    entries_[slot] = entry;
    sequences_[slot] = entry->value.sequence;
  }
  ++rules_;
  if (ready_) insertImages(imagesOf(entry->value, slot, projection_, forest_.wide()));
  if (job_) since_.push_back({true, slot, imagesOf(entry->value, slot, nextProjection_, job_->wide)});
  changed();
  return slot;
}

template <class Rule>
void Compiled<Rule>::erase(uint32_t slot) {
  const Entry* entry = std::exchange(entries_[slot], nullptr);
  --rules_;
  if (job_) since_.push_back({false, slot, imagesOf(entry->value, slot, nextProjection_, job_->wide)});
  if (ready_) eraseImages(slot, imagesOf(entry->value, slot, projection_, forest_.wide()));
  changed();
}

template <class Rule>
void Compiled<Rule>::insertImages(const std::vector<Classify::Image>& images) {
  const Classify::Order order{this, [](const void* context, uint32_t slot, uint32_t other) {
                                return static_cast<const Compiled*>(context)->precedes(slot, other);
                              }};
  for (const Classify::Image& image : images) forest_.insert(image, order);
}

template <class Rule>
void Compiled<Rule>::eraseImages(uint32_t slot, const std::vector<Classify::Image>& images) {
  if (forest_.shadows(slot)) {
    ++ghosts_;
    return;
  }
  for (const Classify::Image& image : images) forest_.erase(image);
  if (!job_) free_.push_back(slot);
}

template <class Rule>
bool Compiled<Rule>::precedes(uint32_t slot, uint32_t other) const {
  if (slot == other) return false;
  if (sequences_[slot] != sequences_[other]) return sequences_[slot] < sequences_[other];
  if (!entries_[slot] || !entries_[other]) return !entries_[slot];
  return entries_[slot]->key < entries_[other]->key;
}

template <class Rule>
std::vector<Classify::Image> Compiled<Rule>::imagesOf(const Rule& rule, uint32_t slot,
                                                      const Classify::Projection& projection,
                                                      bool wide) const {
  std::vector<Classify::Image> images;
  if constexpr (std::is_same_v<Rule, IpRuleConfig>) {
    addImages(rule.filter, slot, wide, images);
  } else if constexpr (std::is_same_v<Rule, Ip6RuleConfig>) {
    addImages(rule.filter, projection, slot, wide, images);
  } else {
    addImages(rule.filter, slot, images);
  }
  return images;
}

template <class Rule>
void Compiled<Rule>::changed() {
  refreshView();
  ++changes_;
  // With a thread a new form costs the loop little, and comes soon; without one it has to be worth its while.
  const bool threaded = Workshop::singleton().hasThread();
  const size_t tolerated = threaded ? 16 : 256;
  if (!job_ && (changes_ > rules_ / 2 + 64 || forest_.strays() + ghosts_ > tolerated)) makeAnew();
}

template <class Rule>
void Compiled<Rule>::makeAnew() {
  std::vector<uint32_t> order;
  for (uint32_t slot = 0; slot < entries_.size(); ++slot) {
    if (entries_[slot]) order.push_back(slot);
  }
  std::sort(order.begin(), order.end(), [this](uint32_t a, uint32_t b) {
    return sequences_[a] != sequences_[b] ? sequences_[a] < sequences_[b]
                                          : entries_[a]->key < entries_[b]->key;
  });
  inOrder_ = std::is_sorted(order.begin(), order.end());
  std::vector<const Entry*> entries;
  for (const uint32_t slot : order) entries.push_back(entries_[slot]);

  job_ = std::make_shared<BuildJob>();
  job_->slots = static_cast<uint32_t>(entries_.size());
  job_->wide = std::any_of(entries.begin(), entries.end(),
                           [](const Entry* entry) { return asksForQuad(entry->value); });
  nextProjection_ = projectionFor(std::span<const Entry* const>(entries));
  for (const uint32_t slot : order) {
    for (const Classify::Image& image : imagesOf(entries_[slot]->value, slot, nextProjection_, job_->wide)) {
      job_->images.push_back(image);
    }
  }
  job_->handleDone = [this] { takeNew(); };
  Workshop::singleton().build(job_);
}

template <class Rule>
void Compiled<Rule>::takeNew() {
  const std::shared_ptr<BuildJob> job = std::move(job_);
  job_ = nullptr;
  forest_ = std::move(job->forest);
  projection_ = nextProjection_;
  ready_ = true;
  changes_ = 0;
  ghosts_ = 0;
  for (const Change& change : std::exchange(since_, {})) {
    if (change.inserted) {
      insertImages(change.images);
    } else {
      eraseImages(change.slot, change.images);
    }
    ++changes_;
  }
  free_.clear();
  for (uint32_t slot = 0; slot < entries_.size(); ++slot) {
    if (!entries_[slot] && !forest_.shadows(slot)) free_.push_back(slot);
  }
  if (forest_.bounded()) {
    trace().trace(1, "takeNew", "{} rules would take too much memory, some are tried one by one", rules_);
  }
  refreshView();
}

template <class Rule>
void Compiled<Rule>::refreshView() {
  view_ = forest_.view();
  view_.sequences = inOrder_ ? nullptr : sequences_.data();
  view_.projection = projection_;
}

template <class Rule>
size_t Compiled<Rule>::bytes() const {
  return forest_.bytes() + entries_.size() * sizeof(const Entry*) + sequences_.size() * sizeof(uint32_t) +
         free_.size() * sizeof(uint32_t);
}

template <class Rule>
std::unique_ptr<CompiledRules<Rule>> compileRules(
    std::span<const Zeb::MapEntry<Kiv::UniqueId, Rule>* const> entries) {
  return std::make_unique<Compiled<Rule>>(entries);
}

template std::unique_ptr<CompiledRules<IpRuleConfig>> compileRules(
    std::span<const Zeb::MapEntry<Kiv::UniqueId, IpRuleConfig>* const> entries);
template std::unique_ptr<CompiledRules<Ip6RuleConfig>> compileRules(
    std::span<const Zeb::MapEntry<Kiv::UniqueId, Ip6RuleConfig>* const> entries);
template std::unique_ptr<CompiledRules<MacRuleConfig>> compileRules(
    std::span<const Zeb::MapEntry<Kiv::UniqueId, MacRuleConfig>* const> entries);

template class Compiled<IpRuleConfig>;
template class Compiled<Ip6RuleConfig>;
template class Compiled<MacRuleConfig>;

}  // namespace Acl
