#pragma once

#include <agent/models/Documents.h>
#include <agent/models/Leaves.h>

#include <cstddef>
#include <string>

namespace Models {

/// An entry of a list that is being read: what the entries of all models have.
struct EntryDraft {
  RuleWords words{};
  DraftRule rule{};

  /// Completes the rule by its words. To be called when all leaves are read.
  void wordsAreRead(const Found& found) {
    rule.words = words.text(found);
    rule.isEverything = words.isEverything();
  }
  /// Whether the rule drops every packet, and does nothing else.
  bool dropsAll() const { return rule.words == "deny " + everything(words.list); }
};

/// Reads the leaves of an entry, which is derived from EntryDraft, by the table of its model. False when one
/// of them was refused.
template <class Entry, size_t size>
bool readEntry(const Found& found, Acl::AclType list, const Row<Entry> (&table)[size], Entry& entry) {
  entry.words.list = list;
  entry.rule.where = {found.node.at, found.path};
  const size_t before = found.mistakes();
  readLeaves(found, table, entry);
  return found.mistakes() == before;
}

}  // namespace Models
