#pragma once

#include <Acl/CompiledRules.h>
#include <Acl/Keys.h>
#include <Acl/MatchFields.h>
#include <Acl/Workshop.h>
#include <Classify/Find.h>
#include <Classify/Forest.h>

#include <vector>

namespace Acl {

/// The rules of one list in the form that packets are judged by, kept up with every change. When many changes
/// have blunted the form it is made anew: at once, or beside the traffic when the workshop has a thread.
template <class Rule>
class Compiled final : public CompiledRules<Rule> {
 public:
  using Entry = typename CompiledRules<Rule>::Entry;

  explicit Compiled(std::span<const Entry* const> entries);
  Compiled(const Compiled&) = delete;
  Compiled& operator=(const Compiled&) = delete;
  ~Compiled() override;

  uint32_t insert(const Entry* entry) override;
  void erase(uint32_t slot) override;
  size_t bytes() const override;

  /// The first rule that a packet meets, null for none. False, and nothing is found, when the form does not
  /// know, and the rules have to be tried in their order. The packet has find(view, questions,
  /// context), which asks the kernel, and fields() to be held against a rule whose images are not all of it.
  template <class Packet>
  bool find(const Packet& packet, const Entry*& found) const {
    if (!ready_) [[unlikely]]
      return false;
    struct Asked {
      const Compiled& form;
      const Packet& packet;
    };
    static constexpr Classify::Questions questions{
        [](const void* context, uint32_t slot) {
          const auto& asked = *static_cast<const Asked*>(context);
          const Entry* entry = asked.form.entries_[slot];
          return !entry || matchesFilter(entry->value.filter, asked.packet.fields());
        },
        [](const void* context, uint32_t slot, uint32_t other) {
          return static_cast<const Asked*>(context)->form.precedes(slot, other);
        }};
    const Asked asked{*this, packet};
    const uint32_t slot = packet.find(view_, questions, &asked);
    if (slot == Classify::noSlot) {
      found = nullptr;
      return true;
    }
    found = entries_[slot];
    return found != nullptr;
  }

  /// False until the first form is there.
  bool ready() const { return ready_; }

 private:
  /// A change that came while a new form is being made.
  struct Change {
    bool inserted;
    uint32_t slot;
    std::vector<Classify::Image> images;
  };

  void makeAnew();
  void takeNew();
  void insertImages(const std::vector<Classify::Image>& images);
  void eraseImages(uint32_t slot, const std::vector<Classify::Image>& images);
  bool precedes(uint32_t slot, uint32_t other) const;
  std::vector<Classify::Image> imagesOf(const Rule& rule, uint32_t slot,
                                        const Classify::Projection& projection, bool wide) const;
  void changed();
  void refreshView();

  std::vector<const Entry*> entries_;  // by slot; null when the rule is gone
  std::vector<uint32_t> sequences_;    // by slot
  std::vector<uint32_t> free_;         // slots that are nowhere in the forest
  Classify::Forest forest_;
  Classify::View view_;
  Classify::Projection projection_;
  bool ready_ = false;
  size_t rules_ = 0;
  size_t changes_ = 0;  // since the forest was made
  size_t ghosts_ = 0;   // rules that are gone, but whose images stand for what they hid

  std::shared_ptr<BuildJob> job_;  // null: none is being made
  Classify::Projection nextProjection_;
  std::vector<Change> since_;  // changes that the job does not know
};

}  // namespace Acl
