#pragma once

#include <Kelp/Ptr.h>
#include <Kiv/TaskScheduler.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanTables.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

/// The state of a numbered scan over a tree of walkers, and the elements that it visits.
namespace Velo::VeloAcl {

/// A scan has its number, from 0 on, and one stream that it feeds.
inline constexpr int scanCount{streamScans.size()};

/// How far one walker is in one numbered scan.
enum class ScanProgress : uint8_t { notStarted = 0, yielded = 1, complete = 2, firstPassComplete = 3 };

template <class Key>
struct ScanPlace {
  ScanProgress progress = ScanProgress::notStarted;
  std::optional<Key> resumeKey;
  bool inFirstPass = false;  ///< the resume key is one of the first pass; the second pass starts over
};

/// The tasks of the scans of one tree, and how many runs of each scan its task is driving. Made by the top
/// walker, which alone writes it, and shared by all walkers below.
struct ScanTasks : Kelp::Node {
  std::array<Kelp::Ptr<Kiv::TimerTask>, scanCount> tasks;
  std::array<int, scanCount> driving{};
};

/// An attribute that names at most one element. It can be scanned like a collection.
class SingleElement {
 public:
  using Key = bool;

  explicit SingleElement(const void* element) : element_(element) {}
  size_t size() const { return element_ ? 1 : 0; }
  /// The value is different when the attribute names another element.
  uint64_t changes() const { return reinterpret_cast<uintptr_t>(element_); }
  uint32_t version() const { return 0; }

  struct Iterator {
    bool left;
    explicit operator bool() const { return left; }
    Key key() const { return true; }
    void next() { left = false; }
  };
  Iterator begin() const { return {element_ != nullptr}; }
  Iterator from(Key) const { return begin(); }

 private:
  const void* element_;
};

}  // namespace Velo::VeloAcl
