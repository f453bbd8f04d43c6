#pragma once

#include <Kelp/Ptr.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace MemSlab {

/// Memory for the objects of one type, which is taken from the heap in chunks and used again; counts the
/// objects that are alive. A slab is made on first use and stays until the process ends: it outlives a plugin
/// that is closed, and is found again by its name when the plugin is opened again.
class Slab final : public Kelp::NodeHome {
 public:
  Slab(std::string name, size_t size, size_t align);
  Slab(const Slab&) = delete;
  Slab& operator=(const Slab&) = delete;

  void* take();
  void giveBack(void* place) override;

  const std::string& name() const { return name_; }
  size_t objectSize() const { return size_; }
  size_t alignment() const { return align_; }
  uint64_t liveCount() const { return live_; }
  /// How many bytes it has taken from the heap so far, for all objects, alive or not.
  size_t heldBytes() const { return heldBytes_; }

 private:
  struct Free {
    Free* next;
  };
  void* takeUnlocked();
  void grow();

  const std::string name_;
  const size_t size_;
  const size_t align_;
  uint64_t live_ = 0;
  size_t heldBytes_ = 0;
  Free* free_ = nullptr;
  std::mutex lock_;  // taken only while Kelp::multiThreaded()
};

/// The slab of a type; made when there is none with that name, size and alignment.
Slab& slab(std::string_view typeName, size_t size, size_t align);

/// Calls `visit` for every slab, in the order in which they were made.
void forEachSlab(const std::function<void(const Slab&)>& visit);

/// How many objects are alive in all slabs.
uint64_t liveCount();

/// A line "Type: N" for every type of which objects are alive; empty when there is none.
std::string liveReport();

namespace Impl {
template <class T>
constexpr std::string_view typeName() {
  std::string_view text = __PRETTY_FUNCTION__;
  size_t start = text.find("T = ") + 4;
  size_t end = text.find_first_of(";]", start);
  return text.substr(start, end - start);
}
}  // namespace Impl

/// The full name of a type as it is written in the source, namespaces included.
template <class T>
constexpr std::string_view typeName() {
  return Impl::typeName<T>();
}

template <class T>
Slab& slabOf() {
  static Slab& record = slab(typeName<T>(), sizeof(T), alignof(T));
  return record;
}

/// Creates a T in its slab; the returned reference is the only one.
template <class T, class... Args>
Kelp::Ptr<T> make(Args&&... args) {
  Slab& home = slabOf<T>();
  void* place = home.take();
  try {
    T* made = new (place) T(std::forward<Args>(args)...);
    made->nodeHomeIs(&home);
    return Kelp::Ptr<T>::adopt(made);
  } catch (...) {
    home.giveBack(place);
    throw;
  }
}

}  // namespace MemSlab
