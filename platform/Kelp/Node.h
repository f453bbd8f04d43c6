#pragma once

#include <Kelp/Threads.h>

#include <atomic>
#include <cstdint>

namespace Kelp {

/// Where the memory of a node came from and goes back to.
class NodeHome {
 public:
  virtual void giveBack(void* place) = 0;

 protected:
  ~NodeHome() = default;
};

/// Flags that share the word of the reference count.
enum NodeFlag : uint32_t {
  nodeLive = 0x20000000,       ///< set from construction until destruction begins
  nodeNotifying = 0x40000000,  ///< change notification is on (state machines)
};

/// Base of everything that is held through Ptr: an intrusive reference count in one 32-bit word whose bits
/// 0x60000000 are flags. The count starts at 1, which the creator owns (see MemSlab::make); the object frees
/// itself when the count, masked with nodeCountMask, reaches zero. The count is atomic only while
/// Kelp::multiThreaded() holds. A Node on the stack works as long as nobody keeps a Ptr to it.
class Node {
 public:
  static constexpr uint32_t nodeCountMask = 0x9fffffff;

  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  void nodeFlagSet(NodeFlag flag, bool on);
  /// Set once by the code that has built the object in place. An object without a home is not freed by its
  /// count.
  void nodeHomeIs(NodeHome* home) { home_ = home; }

  bool nodeFlag(NodeFlag flag) const { return (word_.load(std::memory_order_relaxed) & flag) != 0; }
  uint32_t nodeUseCount() const { return word_.load(std::memory_order_relaxed) & nodeCountMask; }

  void nodeRetain() const {
    if (multiThreaded()) {
      word_.fetch_add(1, std::memory_order_relaxed);
    } else {
      word_.store(word_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }

  void nodeRelease() const {
    uint32_t left;
    if (multiThreaded()) {
      left = word_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = word_.load(std::memory_order_relaxed) - 1;
      word_.store(left, std::memory_order_relaxed);
    }
    if ((left & nodeCountMask) == 0) const_cast<Node*>(this)->lastUserGone();
  }

 protected:
  Node() = default;
  virtual ~Node() = default;

  /// Called when the last reference is dropped; destroys the object and gives its memory back. References
  /// taken and dropped while the destructors run do not start a second destruction.
  virtual void lastUserGone();

 private:
  mutable std::atomic<uint32_t> word_{nodeLive | 1};
  NodeHome* home_ = nullptr;
};

}  // namespace Kelp
