#pragma once

#include <Zeb/AttributeKinds.h>
#include <Zeb/AttributeTable.h>
#include <Zeb/Entity.h>
#include <Zeb/OrderedMap.h>

#include <utility>
#include <variant>

/// How a type declares its attributes: ZEB_ENTITY first, then a row for each attribute. A row makes the
/// storage, the named operations and the reflected attribute `xAttribute()`. Class Entity compares, stores
/// and announces the values.
///
///   class AclTypeStatus : public Zeb::Entity {
///     ZEB_ENTITY(AclTypeStatus, Zeb::Entity)
///     ZEB_VALUE(bool, enabled)                  // enabled(), enabledIs(v)
///     ZEB_COLLECTION(intf, Zeb::HashMap2018<IntfId, String>)
///                                               // intf(), intf(k), intfIs(k, v), intfDel(k)
///     ZEB_CHILDREN(acl, Zeb::OrderedMap<String, Zeb::Owned<AclStatus>>)
///                                               // acl(), acl(k), aclIs(k), aclDel(k)
///     ZEB_SET(ruleIds, UniqueId)                // ruleIds(), ruleIds(k), ruleIdsIs(k), ruleIdsDel(k)
///     ZEB_CHILD(SubConfig, currCfg)             // currCfg(), currCfgIs(p), currCfgDel()
///   };
///
/// ZEB_HELD is for types that write their setters themselves: it declares storage, reader and row. ZEB_ROW
/// declares the row only. The rows of a type form its table, attributeTable<T>, in the order of their lines.

#define ZEB_ENTITY(Self, Base)                                   \
 public:                                                         \
  using ZebSelf = Self;                                          \
  using ZebBase = Base;                                          \
  [[maybe_unused]] static constexpr int zebFirstLine = __LINE__; \
  const ::Zeb::TypeData& typeData() const override { return ::Zeb::typeDataOf<Self>(); }

#define ZEB_ROW(name, ...)                                                                \
  static const ::Zeb::Attribute& name##Attribute() {                                      \
    static_assert(__LINE__ - zebFirstLine < ::Zeb::rowLines, "too far below ZEB_ENTITY"); \
    static constexpr __VA_ARGS__;                                                         \
    return row;                                                                           \
  }                                                                                       \
  static constexpr ::Zeb::AttributeEntry zebRow(::Zeb::RowAt<ZebSelf, __LINE__>) { return &name##Attribute; }

#define ZEB_VALUE(T, name, ...)                                                                   \
 public:                                                                                          \
  const T& name() const { return name##_; }                                                       \
  bool name##Is(T value) { return zebAssign(name##Attribute(), name##_, std::move(value)); }      \
  ZEB_ROW(name, ::Zeb::ValueAttribute<ZebSelf, &ZebSelf::name##_> row(#name, &ZebSelf::name##Is)) \
 private:                                                                                         \
  T name##_{__VA_ARGS__};                                                                         \
                                                                                                  \
 public:

#define ZEB_COLLECTION(name, ...)                                                                 \
 public:                                                                                          \
  using name##Map = __VA_ARGS__;                                                                  \
  const name##Map& name() const { return name##_; }                                               \
  const name##Map::Value* name(const name##Map::Key& key) const { return name##_.find(key); }     \
  bool name##Is(const name##Map::Key& key, name##Map::Value value) {                              \
    return zebPut(name##Attribute(), name##_, key, std::move(value));                             \
  }                                                                                               \
  bool name##Del(const name##Map::Key& key) { return zebErase(name##Attribute(), name##_, key); } \
  ZEB_ROW(name, ::Zeb::CollectionAttribute<ZebSelf, &ZebSelf::name##_> row(#name))                \
 private:                                                                                         \
  name##Map name##_;                                                                              \
                                                                                                  \
 public:

/// A set is a collection whose elements are their own keys.
#define ZEB_SET(name, K)                                                              \
 public:                                                                              \
  using name##Map = ::Zeb::HashMap2018<K, std::monostate>;                            \
  const name##Map& name() const { return name##_; }                                   \
  bool name(const K& key) const { return name##_.has(key); }                          \
  bool name##Is(const K& key) { return zebPut(name##Attribute(), name##_, key, {}); } \
  bool name##Del(const K& key) { return zebErase(name##Attribute(), name##_, key); }  \
  ZEB_ROW(name, ::Zeb::CollectionAttribute<ZebSelf, &ZebSelf::name##_> row(#name))    \
 private:                                                                             \
  name##Map name##_;                                                                  \
                                                                                      \
 public:

#define ZEB_CHILDREN(name, ...)                                                    \
 public:                                                                           \
  using name##Map = __VA_ARGS__;                                                   \
  using name##Type = name##Map::Value::Type;                                       \
  const name##Map& name() const { return name##_; }                                \
  ::Kelp::Ptr<const name##Type> name(const name##Map::Key& key) const {            \
    const auto* known = name##_.find(key);                                         \
    return known ? known->ptr() : nullptr;                                         \
  }                                                                                \
  ::Kelp::Ptr<name##Type> name(const name##Map::Key& key) {                        \
    auto* known = name##_.find(key);                                               \
    return known ? known->ptr() : nullptr;                                         \
  }                                                                                \
  ::Kelp::Ptr<name##Type> name##Is(const name##Map::Key& key) {                    \
    return zebChild(name##Attribute(), name##_, key);                              \
  }                                                                                \
  ::Kelp::Ptr<name##Type> name##Del(const name##Map::Key& key) {                   \
    return zebEraseChild(name##Attribute(), name##_, key);                         \
  }                                                                                \
  ZEB_ROW(name, ::Zeb::CollectionAttribute<ZebSelf, &ZebSelf::name##_> row(#name)) \
 private:                                                                          \
  name##Map name##_;                                                               \
                                                                                   \
 public:

#define ZEB_CHILD(T, name)                                                                 \
 public:                                                                                   \
  ::Kelp::Ptr<const T> name() const { return name##_.ptr(); }                              \
  ::Kelp::Ptr<T> name() { return name##_.ptr(); }                                          \
  bool name##Is(::Kelp::Ptr<T> child) {                                                    \
    if (name##_.get() == child.get()) return false;                                        \
    return zebAssign(name##Attribute(), name##_, ::Zeb::Owned<T>(this, std::move(child))); \
  }                                                                                        \
  ::Kelp::Ptr<T> name##Del() {                                                             \
    ::Kelp::Ptr<T> held = name##_.release();                                               \
    if (held) publishChange(name##Attribute());                                            \
    return held;                                                                           \
  }                                                                                        \
  ZEB_ROW(name, ::Zeb::ChildAttribute<ZebSelf, &ZebSelf::name##_> row(#name))              \
 private:                                                                                  \
  ::Zeb::Owned<T> name##_;                                                                 \
                                                                                           \
 public:

#define ZEB_HELD(T, name)                                                     \
 public:                                                                      \
  const ::Kelp::Ptr<T>& name() const { return name##_; }                      \
  ZEB_ROW(name, ::Zeb::ValueAttribute<ZebSelf, &ZebSelf::name##_> row(#name)) \
 private:                                                                     \
  ::Kelp::Ptr<T> name##_;                                                     \
                                                                              \
 public:
