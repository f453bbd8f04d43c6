#pragma once

#include <Kelp/String.h>

namespace Nimnet {

/// The identifier of an interface: its name, shared and hashed once. The empty id names no interface.
class IntfId {
 public:
  IntfId() = default;
  explicit IntfId(Kelp::String name) : name_(std::move(name)) {}

  bool empty() const { return name_.empty(); }
  const Kelp::String& name() const { return name_; }
  /// The name as it is written in traces; the names of this agent are short already.
  const Kelp::String& shortName() const { return name_; }
  uint32_t hash() const { return name_.hash(); }
  bool operator==(const IntfId&) const = default;
  auto operator<=>(const IntfId& other) const { return name_ <=> other.name_; }

 private:
  Kelp::String name_;
};

}  // namespace Nimnet

template <>
struct fmt::formatter<Nimnet::IntfId> : fmt::formatter<Kelp::String> {
  template <class Context>
  auto format(const Nimnet::IntfId& id, Context& ctx) const {
    return fmt::formatter<Kelp::String>::format(id.name(), ctx);
  }
};
