#pragma once

#include <Zeb/Entity.h>
#include <Zeb/OrderedMap.h>
#include <fmt/format.h>

#include <array>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

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

namespace Zeb {

/// An entry of a type's table: a function that returns the attribute.
using AttributeEntry = const Attribute& (*)();

/// The place of a row: its line in the header that declares the type, which is the same in every file that
/// includes the header.
template <class Self, int line>
struct RowAt {};
/// How many lines below ZEB_ENTITY a row may stand.
inline constexpr int rowLines = 160;

template <class T>
concept Formattable = fmt::is_formattable<T>::value;

template <class T>
std::string textOf(const T& value) {
  if constexpr (Formattable<T>) {
    return fmt::format("{}", value);
  } else if constexpr (Kelp::isPtr<T>) {
    return value ? "set" : "null";
  } else {
    return "?";
  }
}

/// A single value with a plain setter.
template <class Self, auto Member>
class ValueAttribute final : public Attribute {
 public:
  using T = std::remove_cvref_t<decltype(std::declval<Self&>().*Member)>;
  using Setter = bool (Self::*)(T);

  constexpr explicit ValueAttribute(std::string_view name, Setter setter = nullptr)
      : Attribute(name, Kind::value), setter_(setter) {}
  std::any get(const Reflected& object) const override { return static_cast<const Self&>(object).*Member; }
  bool set(Reflected& object, const std::any& value) const override {
    const T* typed = std::any_cast<T>(&value);
    if (!typed || !setter_) return false;
    (static_cast<Self&>(object).*setter_)(*typed);
    return true;
  }
  std::string text(const Reflected& object) const override {
    return textOf(static_cast<const Self&>(object).*Member);
  }

 private:
  Setter setter_;
};

/// A single owned entity, read through reflection as Kelp::Ptr to const.
template <class Self, auto Member>
class ChildAttribute final : public Attribute {
 public:
  constexpr explicit ChildAttribute(std::string_view name) : Attribute(name, Kind::value) {}
  std::any get(const Reflected& object) const override {
    return (static_cast<const Self&>(object).*Member).ptr();
  }
  bool set(Reflected&, const std::any&) const override { return false; }
  std::string text(const Reflected& object) const override {
    return static_cast<const Self&>(object).*Member ? "set" : "null";
  }
};

template <class Self, auto Member>
class CollectionAttribute final : public Attribute {
 public:
  constexpr explicit CollectionAttribute(std::string_view name) : Attribute(name, Kind::collection) {}
  std::any get(const Reflected& object) const override { return &(static_cast<const Self&>(object).*Member); }
  bool set(Reflected&, const std::any&) const override { return false; }
  std::string text(const Reflected& object) const override {
    return std::to_string((static_cast<const Self&>(object).*Member).size());
  }
};

template <class Self, int line>
concept HasRowAt = requires {
  Self::zebRow(RowAt<Self, Self::zebFirstLine + line>());
};

/// Adds the row of a line to the table, if that line has one.
template <class Self, int line>
constexpr void addRowAt(auto& table, size_t& filled) {
  if constexpr (HasRowAt<Self, line>)
    table[filled++] = Self::zebRow(RowAt<Self, Self::zebFirstLine + line>());
}

/// The attributes that a type declares itself, in the order of their rows.
template <class Self>
inline constexpr auto attributeTable = []<int... line>(std::integer_sequence<int, line...>) {
  std::array<AttributeEntry, (size_t{0} + ... + HasRowAt<Self, line>)> table{};
  size_t filled = 0;
  (addRowAt<Self, line>(table, filled), ...);
  return table;
}
(std::make_integer_sequence<int, rowLines>());

/// The description of a type that ZEB_ENTITY declares.
template <class Self>
const TypeData& typeDataOf() {
  if constexpr (requires { typename Self::ZebBase; }) {
    static const std::vector<const Attribute*> rows = [] {
      std::vector<const Attribute*> all;
      for (const AttributeEntry entry : attributeTable<Self>) all.push_back(&entry());
      return all;
    }();
    std::span<const Operation> operations;
    if constexpr (requires { Self::zebOperations; }) operations = Self::zebOperations;
    const TypeData* base = nullptr;
    if constexpr (requires { typename Self::ZebBase::ZebBase; }) base = &typeDataOf<typename Self::ZebBase>();
    static const TypeData data(MemSlab::typeName<Self>(), base, rows, operations);
    return data;
  }
}

}  // namespace Zeb

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
