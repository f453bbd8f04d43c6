#pragma once

#include <Kelp/String.h>

namespace Nimnet {

/// The identifier of an interface: its name. Each name is kept once, for the life of the process, so that ids
/// are copied, compared and hashed as a word. The empty id names no interface.
class IntfId {
 public:
  IntfId() = default;
  /// Finds the name among all names that there ever were, or adds it. May be called on any thread.
  explicit IntfId(const Kelp::String& name);
  /// The id of a name, if one was made of it before; otherwise the empty id. For names that come from
  /// outside, which must not be kept. May be called on any thread.
  static IntfId known(const Kelp::String& name);

  bool empty() const { return name_ == nullptr; }
  const Kelp::String& name() const { return name_ ? *name_ : noName; }
  /// The name as it is written in traces; the names of this agent are short already.
  const Kelp::String& shortName() const { return name(); }
  uint32_t hash() const { return name().hash(); }
  bool operator==(const IntfId&) const = default;
  /// By name.
  auto operator<=>(const IntfId& other) const { return name() <=> other.name(); }

 private:
  static inline const Kelp::String noName;
  const Kelp::String* name_ = nullptr;
};

}  // namespace Nimnet

template <>
struct fmt::formatter<Nimnet::IntfId> : fmt::formatter<Kelp::String> {
  template <class Context>
  auto format(const Nimnet::IntfId& id, Context& ctx) const {
    return fmt::formatter<Kelp::String>::format(id.name(), ctx);
  }
};
