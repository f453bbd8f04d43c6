#pragma once

#include <agent/config/Cursor.h>
#include <agent/config/Model.h>

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Config {

/// Stands for any number in the table of statements. It cannot be mistaken for a word of a text: no word has
/// blanks.
inline constexpr std::string_view aNumber = "a rule number";

/// Reads the name of a list: any name except the two words that say the form of a list.
bool readListName(Cursor& at, std::string* name);

/// Carries out the statements of configuration texts on a model, one line after the other.
///
/// A line is either carried out as a whole, or it leaves the model as it was and the cursor keeps the
/// mistake. The mode says whether the following lines belong to a list or an interface. It changes even at a
/// line with a mistake: rules below a list whose first line is wrong are still checked, but are not kept.
class Statements {
 public:
  explicit Statements(Model start);

  /// Carries out the statement that the cursor stands in front of.
  bool take(Cursor& at);

  Model takeModel() { return std::move(model_); }

 private:
  enum class Mode { top, list, interface };
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

  bool readNumber(Cursor& at, uint32_t* sequence) const;
  bool readRule(Cursor& at, uint32_t sequence, Rule* rule) const;
  bool checkMembers(Cursor& at, size_t first, const std::string& name,
                    const std::vector<std::string>& members);
  void forgetMembers(const std::string& name);

  Model model_;
  std::map<std::string, std::string> channelOf_;  ///< by member: the port-channel it belongs to

  Mode mode_ = Mode::top;
  List* list_ = nullptr;  ///< the open list: one of the model's, or nowhere_
  List nowhere_;          ///< for the rules below a list whose first line is wrong
  std::string interface_;
};

}  // namespace Config
