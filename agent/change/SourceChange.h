#pragma once

#include <agent/change/Sources.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// What is to be written to make one list of a source say something else. Rules that come are those of the
/// new model, which lives at least as long; it may be moved.
struct ListChange {
  /// When packets ask the list for its rules. A list that a source of higher precedence has, too, is not
  /// asked; nor is one that is bound nowhere.
  enum class Asked : uint8_t {
    notBefore,  ///< not under the old configuration
    notAfter,   ///< under the old, but not under the new configuration
    always
  };

  Config::Model::ListKey key;
  const Config::List* list = nullptr;  ///< as it is to be; null: it goes
  bool comes = false;                  ///< there was none
  bool inForce = true;                 ///< no source of higher precedence has a list of the key
  Asked asked = Asked::always;
  std::vector<uint32_t> gone;  ///< numbers of rules that go or that another rule takes; ascending
  std::vector<const Config::Rule*> written;  ///< rules that come and those that are respelled; ascending

  // Of a list in force that comes or goes: that of a lower source, which it takes over from or leaves to.
  const Config::List* other = nullptr;
  std::string otherSource;

  /// The list that is in force then, when this one was or is to be; null: none.
  const Config::List* successor() const { return list ? list : other; }
  /// What carrying it out costs, in writes of a rule.
  size_t writes() const;
};

/// What is to be written to make a source say something else, as plain values: it is made and freed on other
/// threads than the loop's, where counted texts may not be touched.
struct SourceChange {
  std::string source;  ///< the name of an input; empty: the command line's
  bool goes = false;
  std::vector<ListChange> lists;
  std::vector<std::pair<Config::BindingKey, std::string>> bindings;  ///< empty: taken back

  size_t writes() const;
  /// The most octets of memory that carrying it out takes, with what follows from it for who shows and keeps
  /// the configuration.
  size_t memory() const;
};

/// What changes when one source says `now`; null: it goes. Reads only, so that any thread may call it while
/// nobody writes.
SourceChange sourceChange(const Sources& inForce, const std::string& source, const Config::Model* now);

}  // namespace Agent
