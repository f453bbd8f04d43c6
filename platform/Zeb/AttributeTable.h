#pragma once

#include <MemSlab/Slab.h>
#include <Zeb/Reflect.h>

#include <array>
#include <span>
#include <utility>
#include <vector>

namespace Zeb {

// The table of a type's attributes, collected from the rows that its declaration has (see Attributes.h).

/// An entry of a type's table: a function that returns the attribute.
using AttributeEntry = const Attribute& (*)();

/// The place of a row: its line in the header that declares the type, which is the same in every file that
/// includes the header.
template <class Self, int line>
struct RowAt {};
/// How many lines below ZEB_ENTITY a row may stand.
inline constexpr int rowLines = 160;

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
