#pragma once

#include <agent/config/Cursor.h>
#include <agent/config/Model.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

namespace Agent {

/// One change of the rules of a list that no configuration text can say. What it says is read from a line of
/// commands, whose mistakes the cursor keeps. Rules keep their places in the text. List and cursor outlive
/// it.
class ListEdit {
 public:
  ListEdit(Config::Cursor& at, Config::Model& model, const Config::ListKey& key)
      : at_(at), key_(key), rules_(model.lists.at(key).rules), places_(model.notices.rules) {}
  /// Hands the places of rules to their new numbers.
  ~ListEdit();
  ListEdit(const ListEdit&) = delete;
  ListEdit& operator=(const ListEdit&) = delete;

  /// `NUMBER before|after NUMBER`. False when there is a mistake; so below.
  bool move();
  /// `[START [STEP]]`.
  bool resequence();

 private:
  using Rules = std::map<uint32_t, Config::Rule>;

  bool readRuleNumber(uint32_t* number);
  bool moveBetween(size_t place, uint32_t from, bool before, Rules::iterator to);
  void renumber(Rules::node_type&& rule, uint32_t number);

  Config::Cursor& at_;
  const Config::ListKey& key_;
  Rules& rules_;
  std::map<std::pair<Config::ListKey, uint32_t>, Config::Spot>& places_;
  std::map<uint32_t, uint32_t> renumbered_;  // the number before, and after
};

}  // namespace Agent
