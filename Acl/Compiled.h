#pragma once

#include <Acl/CompiledRules.h>
#include <Acl/MatchFields.h>
#include <Acl/Packets.h>
#include <Classify/Forest.h>

#include <memory>
#include <vector>

namespace Acl {

/// The rules of one list in the form that packets are judged by, kept up with every change. When many changes
/// have blunted the form it is made anew: at once, or beside the traffic when the workshop has a thread. When
/// there is no memory for that, a list that has a form keeps it, and the others are judged in their order.
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
  void upkeepIs(bool on) override;
  size_t bytes() const override;
  double buildSeconds() const override { return buildSeconds_; }

  /// Sets `found` to the first rule that matches a packet, null for none. False when the form does not know:
  /// then the rules have to be tried in their order. `packet()` makes the packet, one of those in Packets.h.
  /// It is called anew each time a packet is needed, so that usually no packet has to be kept in memory.
  template <class MakePacket>
  [[gnu::always_inline]] bool find(const MakePacket& packet, const Entry*& found) const {
    if (!ready_) [[unlikely]]
      return false;
    return take(look(packet(), view_), packet, found);
  }
  /// The same for up to Classify::burstMost packets at once. Where the form does not know, found[i] becomes
  /// otherwise(i).
  template <class PacketAt, class Otherwise>
  void find(uint32_t count, const PacketAt& packetAt, const Otherwise& otherwise, const Entry** found) const {
    uint32_t slots[Classify::burstMost], open = Classify::askBit;
    if (ready_) {
      look(count, packetAt, view_, slots);
      open = takeSure(count, slots, found);
    }
    if (!(open & Classify::askBit)) [[likely]]
      return;
    for (uint32_t i = 0; i < count; ++i) {
      const auto packet = [&packetAt, i] { return packetAt(i); };
      if (!ready_ || !take(slots[i], packet, found[i])) found[i] = otherwise(i);
    }
  }

  /// False until there is a first form, and while it is not kept up.
  bool ready() const override { return ready_; }
  bool settled() const override { return ready_ || gaveUp_; }

 private:
  using Filter = typename Rule::FilterType;
  class Job;
  /// Renews the view behind a change, also behind one for which memory ran out in the middle.
  struct ViewAtEnd {
    Compiled& form;
    ~ViewAtEnd() { form.refreshView(); }
  };
  /// A change that came while a new form is being made.
  struct Change {
    bool inserted;
    uint32_t slot;
    Filter filter;
  };

  /// Does the rest of find() with the answer of a quick look-up.
  template <class MakePacket>
  [[gnu::always_inline]] bool take(uint32_t slot, const MakePacket& packet, const Entry*& found) const {
    if (slot & Classify::askBit) [[unlikely]]
      slot = searchFrom(packet(), slot & ~Classify::askBit);
    if (slot == Classify::noSlot) {
      found = nullptr;
      return true;
    }
    found = entries_[slot];
    return found != nullptr;
  }

  /// Does the rest of find() for a burst as if all answers were sure, without a branch on a single packet.
  /// Sets askBit in what it returns if one may not have been.
  uint32_t takeSure(uint32_t count, const uint32_t* slots, const Entry** found) const {
    static constexpr const Entry* none = nullptr;
    uint32_t open = ghosts_ == 0 ? 0 : Classify::askBit;
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t slot = slots[i] & ~Classify::askBit;
      const bool nowhere = slot == Classify::noSlot;
      found[i] = *(nowhere ? &none : &entries_[slot]);
      open |= slots[i];
    }
    return open;
  }

  /// The thorough look-up, behind a quick one that stopped at `slot`: at a rule that must be tested itself,
  /// or at noSlot when the quick one cannot decide. Returns the slot of the first rule that matches.
  template <class Packet>
  [[gnu::noinline]] uint32_t searchFrom(const Packet& packet, uint32_t slot) const {
    struct Asked {
      const Compiled& form;
      const Packet& packet;
      bool meets(uint32_t asked) const {
        const Entry* entry = form.entries_[asked];
        return !entry || matchesFilter(entry->value.filter(), packet.fields());
      }
    };
    static constexpr Classify::Questions questions{
        [](const void* context, uint32_t one) { return static_cast<const Asked*>(context)->meets(one); },
        [](const void* context, uint32_t one, uint32_t other) {
          return static_cast<const Asked*>(context)->form.precedes(one, other);
        }};
    const Asked asked{*this, packet};
    if (slot != Classify::noSlot && asked.meets(slot)) return slot;
    return search(packet, view_, questions, &asked);
  }

  void makeAnew();
  void takeNew();
  /// There was no memory for a new form.
  void goOnWithout();
  void letGoOfJob();
  /// Notes a change for a form that is being made, unless its rules have still to be copied.
  void noteChange(bool inserted, uint32_t slot, const Rule& rule);
  /// Looks through all slots, for those that are free and for their order.
  void reviewSlots();
  void insertImages(std::span<const Classify::Image> images);
  void eraseImages(uint32_t slot, std::span<const Classify::Image> images);
  /// The order of trial.
  bool precedes(uint32_t slot, uint32_t other) const;
  Classify::Order order() const;
  /// In the form that is there; valid until the next call.
  std::span<const Classify::Image> imagesOf(const Filter& filter, uint32_t slot);
  void changed();
  bool isBlunt() const;
  void refreshView();

  std::vector<const Entry*> entries_;  // by slot; null when the rule is gone
  std::vector<uint32_t> sequences_;    // by slot
  bool inOrder_ = true;                // slots are in the order of trial
  std::vector<uint32_t> free_;         // slots that are nowhere in the forest
  Classify::Forest forest_;
  Classify::View view_;
  Classify::Projection projection_;
  bool ready_ = false;
  bool gaveUp_ = false;  // memory ran out the last time
  bool upkeep_ = true;
  double buildSeconds_ = 0;
  size_t rules_ = 0;
  size_t changes_ = 0;  // since the forest was made
  size_t ghosts_ = 0;   // rules that are gone; their images are still there for the rules that they hid

  std::shared_ptr<Job> job_;   // null: none is being made
  std::vector<Change> since_;  // changes that the job does not know

  std::vector<Classify::Image> images_;  // room for imagesOf()
};

}  // namespace Acl
