#pragma once

#include <agent/config/Groups.h>
#include <agent/config/LinePlace.h>
#include <agent/config/Model.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Config {

/// While texts are read: which rules name object-groups, and where members of groups stand. What a group
/// comes to may change until the end, so rules get it then.
class GroupUses {
 public:
  /// A rule is read. `names`: the groups that it names, if any.
  void ruleIs(const ListKey& list, uint32_t sequence, const GroupNames& names, LinePlace place);
  /// The groups that a rule names. A rule that was taken away may still have some here.
  GroupNames of(const ListKey& list, uint32_t sequence) const;
  void forgetList(const ListKey& list) { rules_.erase(list); }

  /// A member of a group is read. `column`: of its last word.
  void memberIs(const std::string& group, const std::string& member, LinePlace place, size_t column) {
    members_[group][member] = {place, column};
  }
  void forgetGroup(const std::string& group) { members_.erase(group); }

  /// Has all rules match what their groups stand for. The mistakes are in no order, at most one a line.
  std::vector<LateMistake> expand(Model& model) const;

 private:
  struct Use {
    GroupNames names;
    LinePlace place;
  };
  struct MemberPlace {
    LinePlace place;
    size_t column = 1;
  };
  MemberPlace placeOf(const GroupMistake& wrong) const;

  std::map<ListKey, std::map<uint32_t, Use>> rules_;
  std::map<std::string, std::map<std::string, MemberPlace>> members_;  // by group and member
};

}  // namespace Config
