#include <Nimnet/IntfId.h>

#include <mutex>
#include <unordered_set>

namespace Nimnet {

namespace {

/// Never destroyed, because ids may be used until the very end of the process. The address of an element
/// never changes.
struct Names {
  std::mutex mutex;
  std::unordered_set<Kelp::String> names;
};

Names& allNames() {
  static auto& names = *new Names;
  return names;
}

}  // namespace

IntfId::IntfId(const Kelp::String& name) {
  if (name.empty()) return;
  Names& all = allNames();
  const std::lock_guard lock(all.mutex);
  const auto known = all.names.find(name);
  // A separate copy of the text: the caller's may be counted on another thread.
  name_ = known != all.names.end() ? &*known : &*all.names.insert(Kelp::String(name.view())).first;
}

IntfId IntfId::known(const Kelp::String& name) {
  IntfId id;
  Names& all = allNames();
  const std::lock_guard lock(all.mutex);
  const auto known = all.names.find(name);
  if (known != all.names.end()) id.name_ = &*known;
  return id;
}

}  // namespace Nimnet
