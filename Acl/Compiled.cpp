#include <Acl/CompileJob.h>
#include <Acl/Workshop.h>
#include <Zeb/TraceHandle.h>

#include <utility>

namespace Acl {

namespace {

const Zeb::TraceHandle trace("Acl::Compiled", "Acl/Compiled");

}  // namespace

template <class Rule>
Compiled<Rule>::~Compiled() {
  letGoOfJob();
}

template <class Rule>
void Compiled<Rule>::letGoOfJob() {
  if (job_) job_->ownerDel();
  job_ = nullptr;
  since_.clear();
}

template <class Rule>
Compiled<Rule>::Compiled(std::span<const Entry* const> entries) : entries_(entries.begin(), entries.end()) {
  for (const Entry* entry : entries) sequences_.push_back(entry->value.sequence());
  rules_ = entries_.size();
  makeAnew();
}

template <class Rule>
uint32_t Compiled<Rule>::insert(const Entry* entry) {
  const ViewAtEnd viewAtEnd{*this};
  uint32_t slot = static_cast<uint32_t>(entries_.size());
  if (free_.empty()) {
    sequences_.resize(slot);  // longer where memory ran out for an entry
    inOrder_ = inOrder_ && (slot == 0 || sequences_.back() < entry->value.sequence());
    sequences_.push_back(entry->value.sequence());
    entries_.push_back(entry);
  } else {
    slot = free_.back();
    free_.pop_back();
    inOrder_ = false;
    entries_[slot] = entry;
    sequences_[slot] = entry->value.sequence();
  }
  ++rules_;
  if (!upkeep_) return slot;
  if (ready_) insertImages(imagesOf(entry->value.filter(), slot));
  noteChange(true, slot, entry->value);
  changed();
  return slot;
}

template <class Rule>
void Compiled<Rule>::erase(uint32_t slot) {
  const ViewAtEnd viewAtEnd{*this};
  const Entry* entry = std::exchange(entries_[slot], nullptr);
  --rules_;
  if (!upkeep_) return free_.push_back(slot);
  ++ghosts_;  // until its images are gone: when memory runs out before, packets that meet them see it
  noteChange(false, slot, entry->value);
  if (ready_) eraseImages(slot, imagesOf(entry->value.filter(), slot));
  --ghosts_;
  changed();
}

template <class Rule>
void Compiled<Rule>::noteChange(bool inserted, uint32_t slot, const Rule& rule) {
  if (job_ && job_->hasCopied(slot)) since_.push_back({inserted, slot, rule.filter()});
}

template <class Rule>
void Compiled<Rule>::upkeepIs(bool on) {
  if (on == upkeep_) return;
  upkeep_ = on;
  if (on) return makeAnew();
  letGoOfJob();
  ready_ = false;
  Workshop::singleton().dispose(std::exchange(forest_, {}));
}

template <class Rule>
Classify::Order Compiled<Rule>::order() const {
  return {this,
          [](const void* context, uint32_t slot, uint32_t other) {
            return static_cast<const Compiled*>(context)->precedes(slot, other);
          },
          [](const void* context, uint32_t slot) {
            return static_cast<const Compiled*>(context)->sequences_[slot];
          }};
}

template <class Rule>
void Compiled<Rule>::insertImages(std::span<const Classify::Image> images) {
  for (const Classify::Image& image : images) forest_.insert(image, order());
}

template <class Rule>
void Compiled<Rule>::eraseImages(uint32_t slot, std::span<const Classify::Image> images) {
  ++ghosts_;
  if (forest_.shadows(slot)) return;
  forest_.erase(images, order());
  --ghosts_;
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
std::span<const Classify::Image> Compiled<Rule>::imagesOf(const Filter& filter, uint32_t slot) {
  images_.clear();
  imagesFor(filter, slot, projection_, forest_.wide(), images_);
  return images_;
}

template <class Rule>
void Compiled<Rule>::changed() {
  ++changes_;
  if (!job_ && (!ready_ || isBlunt())) makeAnew();
}

/// With a thread a new form costs the loop little, and comes soon; without one it has to be worth its while.
/// A ghost may be what most packets meet, each of which is then tried rule by rule.
template <class Rule>
bool Compiled<Rule>::isBlunt() const {
  const bool threaded = Workshop::singleton().hasThread();
  return changes_ > rules_ / 2 + 64 || forest_.strays() > (threaded ? 16 : 256) ||
         ghosts_ > (threaded ? 0 : 256);
}

template <class Rule>
void Compiled<Rule>::makeAnew() {
  gaveUp_ = false;
  job_ = std::make_shared<Job>(*this);
  try {
    Workshop::singleton().build(job_);
  } catch (...) {
    // Memory ran out in the call, maybe while the form was taken: rules are tried in their order until the
    // next change has another one made.
    letGoOfJob();
    ready_ = false;
    gaveUp_ = true;
    refreshView();
    throw;
  }
}

template <class Rule>
void Compiled<Rule>::takeNew() {
  const std::shared_ptr<Job> job = std::move(job_);
  std::swap(forest_, job->forest);
  projection_ = job->projection;
  buildSeconds_ = job->seconds;
  ready_ = true;
  changes_ = 0;
  ghosts_ = 0;
  for (const Change& change : std::exchange(since_, {})) {
    const auto images = imagesOf(change.filter, change.slot);
    if (change.inserted) {
      insertImages(images);
    } else {
      eraseImages(change.slot, images);
    }
    ++changes_;
  }
  reviewSlots();
  if (forest_.bounded()) {
    trace.trace(1, "takeNew", "{} rules cannot be divided within bounds, some leaves stay long", rules_);
  }
  refreshView();
  if (isBlunt()) makeAnew();  // changes that the job did not know
}

/// The form that is there has been kept up; without one the rules are tried in their order. The next change
/// has another one tried.
template <class Rule>
void Compiled<Rule>::goOnWithout() {
  trace.trace(0, "goOnWithout", "no memory to compile {} rules, {}", rules_,
              ready_ ? "the form made before stays" : "they are tried one by one");
  letGoOfJob();
  gaveUp_ = true;
  reviewSlots();
  refreshView();
}

template <class Rule>
void Compiled<Rule>::reviewSlots() {
  free_.clear();
  inOrder_ = true;
  uint32_t last = 0;
  for (uint32_t slot = 0; slot < entries_.size(); ++slot) {
    if (entries_[slot] || forest_.shadows(slot)) {
      inOrder_ = inOrder_ && last < sequences_[slot];
      last = sequences_[slot];
    } else {
      free_.push_back(slot);
    }
  }
}

template <class Rule>
void Compiled<Rule>::refreshView() {
  view_ = forest_.view(inOrder_ ? nullptr : sequences_.data());
  view_.projection = projection_;
}

template <class Rule>
size_t Compiled<Rule>::bytes() const {
  return forest_.bytes() + entries_.size() * sizeof(const Entry*) + sequences_.size() * sizeof(uint32_t) +
         free_.size() * sizeof(uint32_t) + images_.capacity() * sizeof(Classify::Image);
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
