#pragma once

#include <agent/config/Cursor.h>
#include <agent/config/GroupUses.h>
#include <agent/config/LinePlace.h>
#include <agent/config/Model.h>
#include <agent/config/PlacedRemarks.h>

#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Config {

/// Stands for any number in the table of statements. It cannot be mistaken for a word of a text: no word has
/// blanks.
inline constexpr std::string_view aNumber = "a rule number";
inline constexpr uint32_t highestNumber = std::numeric_limits<uint32_t>::max();

/// Reads the name of a list: any name except the two words that say the form of a list.
bool readListName(Cursor& at, std::string* name);

/// Carries out the statements of configuration texts on a model, one line after the other.
///
/// A line is either carried out as a whole, or it leaves the model as it was and the cursor keeps the
/// mistake. The mode says whether the following lines belong to a list or an interface. It changes even at a
/// line with a mistake: rules below a list whose first line is wrong are still checked, but are not kept.
class Statements {
 public:
  /// `texts` are the names of the texts that the places of lines refer to.
  explicit Statements(Model start, const std::vector<std::string>& texts = {});

  /// Carries out the statement that the cursor stands in front of.
  bool take(Cursor& at, LinePlace place = {});

  /// Behind the last line: gives remarks their rules, and rules what their groups stand for. The mistakes are
  /// in no order, at most one a line.
  std::vector<LateMistake> finish();
  Model takeModel() { return std::move(model_); }
  /// Keeps the oddities of a line that was carried out, but for what it takes back.
  void noticeOddities(const Cursor& at);

 private:
  enum class Mode { top, list, interface, group, anywhere };
  using Handler = bool (Statements::*)(Cursor&, Acl::AclType);
  struct Row;
  static const Row rows[];

  bool failUnknown(Cursor& at, bool undo) const;

  // The functions of the table. Each reads what follows the words of its row; that of a rule reads all of it.
  bool rule(Cursor& at, Acl::AclType);
  bool noRule(Cursor& at, Acl::AclType);
  bool remark(Cursor& at, Acl::AclType);
  bool noRemark(Cursor& at, Acl::AclType);
  bool accessList(Cursor& at, Acl::AclType type);
  bool noAccessList(Cursor& at, Acl::AclType type);
  bool interface(Cursor& at, Acl::AclType);
  bool noInterface(Cursor& at, Acl::AclType);
  bool accessGroup(Cursor& at, Acl::AclType type);
  bool noAccessGroup(Cursor& at, Acl::AclType type);
  bool portChannel(Cursor& at, Acl::AclType);
  bool noPortChannel(Cursor& at, Acl::AclType);
  bool mirrorSession(Cursor& at, Acl::AclType);
  bool noMirrorSession(Cursor& at, Acl::AclType);
  bool placedRemark(Cursor& at, Acl::AclType);
  bool noPlacedRemark(Cursor& at, Acl::AclType);
  bool numberedList(Cursor& at, Acl::AclType);
  bool noNumberedList(Cursor& at, Acl::AclType);
  bool description(Cursor& at, Acl::AclType);
  bool noDescription(Cursor& at, Acl::AclType);
  bool shutdown(Cursor& at, Acl::AclType);
  bool noShutdown(Cursor& at, Acl::AclType);
  bool nothing(Cursor& at, Acl::AclType);
  bool networkGroup(Cursor& at, Acl::AclType) { return openGroup(at, false); }
  bool serviceGroup(Cursor& at, Acl::AclType) { return openGroup(at, true); }
  bool noNetworkGroup(Cursor& at, Acl::AclType) { return forgetGroup(at, false); }
  bool noServiceGroup(Cursor& at, Acl::AclType) { return forgetGroup(at, true); }

  bool startsStatement(const Cursor& at) const;
  bool openGroup(Cursor& at, bool service);
  bool forgetGroup(Cursor& at, bool service);
  bool member(Cursor& at, bool undo);
  void forgetAlternatives(const Model::ListKey& key, List& list);

  Spot spotOf(const Cursor& at, size_t position) const;
  bool isGivenHere(const ListKey& key, uint32_t sequence);
  void noticeRule(Cursor& at, size_t position, const Rule& rule, const GroupNames& groups);
  void forgetList(const ListKey& key);
  bool openList(Cursor& at, size_t place, const std::string& name);
  bool addRule(Cursor& at, bool bareHosts);
  void shutdownIs(bool shutdown);
  bool readNumber(Cursor& at, uint32_t* sequence) const;
  bool readRule(Cursor& at, uint32_t sequence, bool bareHosts, Rule* rule, GroupNames* groups) const;
  bool checkMembers(Cursor& at, size_t first, const std::string& name,
                    const std::vector<std::string>& members);
  void forgetMembers(const std::string& name);

  Model model_;
  const size_t firstText_;  ///< index in the notices of the first text that is read
  std::map<ListKey, std::vector<uint32_t>> startRules_;          ///< numbers in the model before; ascending
  std::set<std::pair<ListKey, uint32_t>> startRulesGivenAgain_;  ///< those of them that a text has given
  std::map<std::string, std::string> channelOf_;  ///< by member: the port-channel it belongs to

  PlacedRemarks placedRemarks_;
  GroupUses groupUses_;
  ObjectGroup* group_ = nullptr;  ///< the open group: one of the model's, or nowhereGroup_
  std::string groupName_;
  ObjectGroup nowhereGroup_;

  LinePlace place_;
  Mode mode_ = Mode::top;
  List* list_ = nullptr;  ///< the open list: one of the model's, or nowhere_
  List nowhere_;          ///< for the rules below a list whose first line is wrong
  std::string interface_;
};

}  // namespace Config
