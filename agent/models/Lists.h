#pragma once

#include <agent/config/Notices.h>
#include <agent/models/RuleWords.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Models {

/// A place in a document, and its path there.
struct Where {
  At at{};
  std::string path{};
};

/// The configuration text that a document comes to, and where each line of it comes from. Whatever roots the
/// document has, there is one list of a kind and name in it, and one at a place.
class Lines {
 public:
  /// A line with control characters would be several: it is a mistake.
  void add(const std::string& line, const Where& where, Report& report);
  /// Keeps that the document has a list, which is written next; refuses it when it has one of that kind and
  /// name already.
  bool begin(const Config::ListKey& list, const Where& where, Report& report);
  /// Binds a list. One list a kind and direction; refuses a second one at `found`.
  void bind(const Config::BindingKey& key, const std::string& list, const Found& found);

  /// The lists, each with its place.
  const std::map<Config::ListKey, At>& lists() const { return lists_; }
  const std::string& text() const { return text_; }
  /// Of a line of the text, from 1.
  At placeOf(int line) const;

 private:
  std::string text_;
  std::vector<At> places_;
  std::map<Config::ListKey, At> lists_;
  std::set<Config::BindingKey> bindings_;
};

/// A rule of a document that is being read.
struct DraftRule {
  std::string words{};  ///< as behind a number; empty: a mistake has been kept
  std::string name{};   ///< by which the document tells rules apart
  uint32_t number = 0;  ///< 0: the order counts
  std::vector<std::string> remarks{};
  Where where{};
  bool isEverything = false;  ///< it is for every packet
  bool isEnd = false;  ///< it says what becomes of what no rule matches, and has the name that we give that
};

/// A list of a document that is being read, in the order in which its rules are tried.
struct DraftList {
  Acl::AclType type = Acl::AclType::ip;
  std::string name{};
  Where where{};
  std::vector<DraftRule> rules{};
  /// What no rule matches passes; else the document does not say, and it is dropped.
  bool restPasses = false;
};

/// Writes a list as a configuration text. A document has the whole list: what earlier texts say of a list of
/// its name is lost. Rules without numbers get those that their names are, if that is their order and leaves
/// room for the end, and else 10, 20 and so on, with their names as remarks.
void write(DraftList list, Lines& lines, Report& report);

/// Whether an interface and so on can have the name; refuses it at `found` when it cannot.
bool checkName(std::string_view name, const Found& found);
/// The same for a list.
bool checkListName(std::string_view name, const Found& found);

}  // namespace Models
