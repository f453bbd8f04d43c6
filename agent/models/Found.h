#pragma once

#include <agent/models/Report.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Models {

enum class Kind;

/// A node of a document on its way into the configuration.
struct Found {
  const Node& node;
  std::string path;  ///< from the root of the document, with the keys of entries
  Report& report;
  std::string_view module;  ///< the one that defines the leaves of the model
  std::string_view text{};  ///< of a leaf; of an identity without its module
  uint32_t number = 0;      ///< of a number

  /// The number of a leaf whose row allows none that is too high.
  uint8_t octet() const { return static_cast<uint8_t>(number); }
  uint16_t word() const { return static_cast<uint16_t>(number); }

  /// Keeps the mistake that the node cannot be carried over.
  void refuse(std::string expected) const {
    report.mistake(node.at, node.shown() + " at " + path, std::move(expected));
  }
  /// Keeps the mistake that something is not there.
  void miss(std::string what) const { report.mistake(node.at, path + " incomplete", std::move(what)); }
  /// How many mistakes are kept by now. What was refused is not said to be missing, too.
  size_t mistakes() const { return report.mistakes().size(); }
  void twice() const { report.mistake(node.at, path + " a second time", "it once"); }
  /// A member, for readLeaves(); the member must be there.
  Found below(const Node& member, std::string memberPath) const {
    return {member, std::move(memberPath), report, module, member.value};
  }
};

/// A row of a table without what it does, see Row.
struct Leaf {
  std::string_view path;
  Kind kind;
  std::string_view why;
  uint32_t low, high;
};

/// See readLeaves() of Leaves.h: `take` is told the index of the row.
void readLeaves(const Found& object, const std::vector<Leaf>& table,
                const std::function<void(size_t row, const Found&)>& take);

}  // namespace Models
