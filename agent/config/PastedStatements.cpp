#include <Kelp/Assert.h>
#include <agent/config/Nearest.h>
#include <agent/config/Statements.h>

// Statements that other systems' texts have, and what they come to here.
namespace Config {

namespace {

using Acl::AclType;

struct ListNumbers {
  uint32_t low, high;
  bool standard;
};
constexpr ListNumbers listNumbers[] = {
    {1, 99, true}, {100, 199, false}, {1300, 1999, true}, {2000, 2699, false}};

bool readListNumber(Cursor& at, std::string* name, bool* standard) {
  const auto number = decimal(at.peek());
  for (const auto& numbers : listNumbers) {
    if (!number || *number < numbers.low || *number > numbers.high) continue;
    *name = at.take();
    *standard = numbers.standard;
    return true;
  }
  return at.fail(
      "the number of a list: 1 to 99 or 1300 to 1999 of a standard, 100 to 199 or 2000 to 2699 of an extended one");
}

}  // namespace

bool Statements::nothing(Cursor& at, AclType) { return at.end(); }

bool Statements::numberedList(Cursor& at, AclType) {
  const size_t place = at.position();
  std::string name;
  nowhere_ = {};
  if (!readListNumber(at, &name, &nowhere_.standard)) return false;
  const bool remark = at.takeIf("remark");
  if (!remark && at.peek() != "permit" && at.peek() != "deny")
    return failNear(at, "permit, deny or remark", {"permit", "deny", "remark"});
  if (!openList(at, place, name)) return false;
  return remark ? this->remark(at, AclType::ip) : addRule(at, true);
}

/// With a rule behind the number other systems take back either the rule or the whole list.
bool Statements::noNumberedList(Cursor& at, AclType) {
  std::string name;
  bool standard = false;
  if (!readListNumber(at, &name, &standard)) return false;
  if (!at.atEnd()) {
    return at.fail("the end of the line: no access-list " + name +
                   " takes back the whole list, and no RULE below ip access-list " +
                   (standard ? "standard " : "") + name + " one rule");
  }
  forgetList({AclType::ip, name});
  return true;
}

bool Statements::placedRemark(Cursor& at, AclType) {
  uint32_t number = 0;
  if (!at.number(aNumber, 1, highestNumber, &number) || !at.keyword("remark")) return false;
  if (at.atEnd()) return at.fail("the text of the remark");
  placedRemarks_.add({list_->type, list_->name}, number, at.rest());
  return true;
}

bool Statements::noPlacedRemark(Cursor& at, AclType) {
  uint32_t number = 0;
  if (!at.number(aNumber, 1, highestNumber, &number) || !at.keyword("remark")) return false;
  placedRemarks_.del({list_->type, list_->name}, number, at.rest());
  return true;
}

bool Statements::description(Cursor& at, AclType) {
  if (at.atEnd()) return at.fail("the text of the description");
  model_.interfaceNotes[interface_].description = at.rest();
  return true;
}

bool Statements::noDescription(Cursor& at, AclType) {
  const auto notes = model_.interfaceNotes.find(interface_);
  if (notes == model_.interfaceNotes.end()) return true;
  if (at.atEnd() || notes->second.description == at.rest()) notes->second.description.clear();
  if (notes->second.isEmpty()) model_.interfaceNotes.erase(notes);
  return true;
}

bool Statements::shutdown(Cursor& at, AclType) {
  if (!at.end()) return false;
  model_.notices.shutdowns[interface_] = spotOf(at, at.position() - 1);
  shutdownIs(true);
  return true;
}

bool Statements::noShutdown(Cursor& at, AclType) {
  if (!at.end()) return false;
  shutdownIs(false);
  return true;
}

void Statements::shutdownIs(bool shutdown) {
  auto& notes = model_.interfaceNotes[interface_];
  notes.shutdown = shutdown;
  if (notes.isEmpty()) model_.interfaceNotes.erase(interface_);
}

}  // namespace Config
