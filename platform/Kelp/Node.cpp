#include <Kelp/Assert.h>
#include <Kelp/Node.h>

#include <cstdio>
#include <cstdlib>

namespace Kelp {

bool Threads::present = false;

void fatal(std::string_view text, const char* file, int line) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s:%d: Assertion failed: %.*s\n", file, line, static_cast<int>(text.size()),
               text.data());
  std::fflush(stderr);
  std::abort();
}

void Node::nodeFlagSet(NodeFlag flag, bool on) {
  if (on) {
    word_.fetch_or(flag, std::memory_order_relaxed);
  } else {
    word_.fetch_and(~static_cast<uint32_t>(flag), std::memory_order_relaxed);
  }
}

void Node::lastUserGone() {
  KELP_ASSERT(home_ != nullptr, "the last reference to a node without a home was dropped");
  nodeFlagSet(nodeLive, false);
  // A destructor may take and drop references to the object. From here on they count from one again, so that
  // dropping them does not lead back here.
  word_.fetch_add(1, std::memory_order_relaxed);
  NodeHome* home = home_;
  void* place = dynamic_cast<void*>(this);
  this->~Node();
  home->giveBack(place);
}

}  // namespace Kelp
