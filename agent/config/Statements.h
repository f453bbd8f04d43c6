#pragma once

#include <agent/config/Cursor.h>
#include <agent/config/Model.h>

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Config {

/// Stands for any number in the table of statements; no word of a text has blanks.
inline constexpr std::string_view aNumber = "a rule number";

/// A name for a list: any but the two words that say a list's form.
bool readListName(Cursor& at, std::string* name);

/// Carries out the statements of configuration texts on a model, one line after the other.
///
/// A line is taken whole or leaves the model as it was, and the cursor has the mistake. The mode, which
/// decides what a line may say, follows the text even through mistakes: the rules below a list's faulty first
/// line are still checked, and go nowhere.
class Statements {
 public:
  explicit Statements(Model start);

  /// Takes the statement that the cursor stands in front of.
  bool take(Cursor& at);

  Model takeModel() { return std::move(model_); }

 private:
  enum class Mode { top, list, interface };
  using Handler = bool (Statements::*)(Cursor&, Acl::AclType);
  struct Row;
  static const Row rows[];

  bool failUnknown(Cursor& at, bool undo) const;

  // The handlers of the table, each for what follows the statement's words; of a rule, for all of it.
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

  bool readNumber(Cursor& at, uint32_t* sequence) const;
  bool readRule(Cursor& at, uint32_t sequence, Rule* rule) const;
  bool checkMembers(Cursor& at, size_t first, const std::string& name,
                    const std::vector<std::string>& members);
  void forgetMembers(const std::string& name);

  Model model_;
  std::map<std::string, std::string> channelOf_;  ///< the port-channel of each member

  Mode mode_ = Mode::top;
  List* list_ = nullptr;  ///< the open list: one of the model's, or nowhere_
  List nowhere_;          ///< takes the rules below a list's faulty first line
  std::string interface_;
};

}  // namespace Config
