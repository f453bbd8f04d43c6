#include <Kelp/Threads.h>
#include <MemSlab/Slab.h>

#include <algorithm>
#include <new>

// Under the address sanitizer every object is its own heap block, so that a use after free is seen.
#if defined(__SANITIZE_ADDRESS__)
#define MEMSLAB_PLAIN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MEMSLAB_PLAIN_HEAP 1
#endif
#endif

namespace MemSlab {

namespace {

constexpr size_t chunkBytes = 16384;

struct Registry {
  std::mutex lock;
  std::vector<std::unique_ptr<Slab>> slabs;
};

// Never destroyed: objects that other globals hold are given back later than this file's globals would be
// destroyed.
Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

}  // namespace

Slab::Slab(std::string name, size_t size, size_t align)
    : name_(std::move(name)),
      size_(std::max(size, sizeof(Free)) + (align - std::max(size, sizeof(Free)) % align) % align),
      align_(align) {}

void* Slab::take() {
  if (!Kelp::multiThreaded()) return takeUnlocked();
  std::lock_guard guard(lock_);
  return takeUnlocked();
}

void* Slab::takeUnlocked() {
#ifdef MEMSLAB_PLAIN_HEAP
  void* taken = ::operator new(size_, std::align_val_t(align_));
#else
  if (!free_) grow();
  Free* taken = free_;
  free_ = taken->next;
  if (free_) __builtin_prefetch(free_, 1);  // the next place is usually taken soon
#endif
  ++live_;
  return taken;
}

void Slab::giveBack(void* place) {
  std::unique_lock guard(lock_, std::defer_lock);
  if (Kelp::multiThreaded()) guard.lock();
  --live_;
#ifdef MEMSLAB_PLAIN_HEAP
  ::operator delete(place, std::align_val_t(align_));
#else
  free_ = new (place) Free{free_};
#endif
}

void Slab::grow() {
  const size_t count = std::max<size_t>(1, chunkBytes / size_);
  auto* chunk = static_cast<std::byte*>(::operator new(count* size_, std::align_val_t(align_)));
  heldBytes_ += count * size_;
  for (size_t i = count; i-- > 0;) free_ = new (chunk + i * size_) Free{free_};
}

Slab& slab(std::string_view typeName, size_t size, size_t align) {
  Registry& all = registry();
  std::lock_guard guard(all.lock);
  auto made = std::make_unique<Slab>(std::string(typeName), size, align);
  for (auto& known : all.slabs) {
    if (known->name() == typeName && known->objectSize() == made->objectSize() &&
        known->alignment() == made->alignment()) {
      return *known;
    }
  }
  return *all.slabs.emplace_back(std::move(made));
}

void forEachSlab(const std::function<void(const Slab&)>& visit) {
  for (const auto& known : registry().slabs) visit(*known);
}

uint64_t liveCount() {
  uint64_t sum = 0;
  forEachSlab([&](const Slab& s) { sum += s.liveCount(); });
  return sum;
}

std::string liveReport() {
  std::string text;
  forEachSlab([&](const Slab& s) {
    if (s.liveCount()) text += s.name() + ": " + std::to_string(s.liveCount()) + "\n";
  });
  return text;
}

}  // namespace MemSlab
