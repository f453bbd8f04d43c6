#include <agent/ports/XdpMemory.h>
#include <sys/mman.h>

namespace Agent {

std::shared_ptr<XdpMemory> XdpMemory::shared() {
  static std::weak_ptr<XdpMemory> last;
  auto memory = last.lock();
  if (!memory) last = memory = std::make_shared<XdpMemory>();
  return memory;
}

XdpMemory::~XdpMemory() {
  if (base_) munmap(base_, size());
}

bool XdpMemory::open() {
  if (base_) return true;
  void* memory =
      mmap(nullptr, wanted_ * chunkSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return false;
  base_ = static_cast<uint8_t*>(memory);
  uses_.assign(wanted_, 0);
  free_.reserve(wanted_);
  for (auto chunk = static_cast<uint32_t>(wanted_); chunk > 0; --chunk) free_.push_back(chunk - 1);
  return true;
}

}  // namespace Agent
