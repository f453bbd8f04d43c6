#pragma once

#include <Kiv/UniqueId.h>
#include <agent/change/Sources.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// What has to be written to change one list of a source. It points to rules of the new model, which must
/// live at least as long, but may be moved.
struct ListChange {
  /// When packets ask the list. They do not ask a list that is bound nowhere, or that a source of higher
  /// precedence has, too.
  enum class Asked : uint8_t {
    notBefore,  ///< not under the old configuration
    notAfter,   ///< under the old configuration, but not under the new one
    always      ///< under both
  };

  Config::Model::ListKey key;
  const Config::List* list = nullptr;  ///< what it will be; null: it is deleted
  bool comes = false;                  ///< it is new
  bool inForce = true;                 ///< no source of higher precedence has a list with this key
  Asked asked = Asked::always;
  /// A rule that is new, or that has another number or other words.
  struct Written {
    static constexpr uint32_t fresh = 0;

    const Config::Rule* rule;
    uint32_t from;       ///< the number before, by which it keeps its id; `fresh`: it gets a new one
    Kiv::UniqueId id{};  ///< the new one if it is known already
  };
  std::vector<uint32_t> gone;    ///< numbers of rules that are deleted or replaced; ascending
  std::vector<Written> written;  ///< ascending by number
  size_t combinations = 0;       ///< of members of groups, that written rules stand for

  // When a list in force is new or deleted: the list with this key of the next lower source that has one. It
  // was in force before, or is from now on.
  const Config::List* other = nullptr;
  std::string otherSource;

  /// The list that is in force after the change; null: none.
  const Config::List* successor() const { return list ? list : other; }
  /// How much work the change is, counted in writes of a rule.
  size_t writes() const;
};

/// What has to be written to change a source, as plain values: it is made and freed on other threads than the
/// loop's, where counted texts must not be touched.
struct SourceChange {
  std::string source;                         ///< the name of an input; empty: the command line's
  bool goes = false;                          ///< it is deleted
  std::shared_ptr<const std::string> text{};  ///< what it says then, for others who carry out the change, too
  // Both are ascending by key. What becomes of one does not depend on the others: any order would do.
  std::vector<ListChange> lists;
  std::vector<std::pair<Config::BindingKey, std::string>> bindings;  ///< an empty name takes a binding back

  size_t writes() const;
  /// The most octets of memory that carrying it out takes, together with what it makes others allocate that
  /// show or keep the configuration.
  size_t memory() const;
};

/// The change of one source to `now`; null: it is deleted. Only reads, so that any thread may call it while
/// nobody writes.
SourceChange sourceChange(const Sources& inForce, const std::string& source, const Config::Model* now);

}  // namespace Agent
