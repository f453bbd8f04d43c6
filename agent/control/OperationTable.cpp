#include <agent/control/Operations.h>

namespace Agent {

namespace {

std::vector<Operations::Operation> withCommonMembers(std::vector<Operations::Operation> operations) {
  const auto common = Operations::common();
  for (auto& operation : operations)
    operation.members.insert(operation.members.begin(), common.begin(), common.end());
  return operations;
}

std::vector<RequestMember> withMembersOfChanges(std::vector<RequestMember> members) {
  const auto more = Operations::ofChanges();
  members.insert(members.end(), more.begin(), more.end());
  return members;
}

}  // namespace

std::span<const RequestMember> Operations::common() {
  static const RequestMember members[] = {
      {"do", MemberKind::name, "", "what is to be done"},
      {"id", MemberKind::anything, "null", "comes back with the answer"},
  };
  return members;
}

std::span<const RequestMember> Operations::ofChanges() {
  static const RequestMember members[] = {
      {"dryRun", MemberKind::flag, "false", "only tell what would change"},
      {"allowOpen", MemberKind::flag, "false", "carry out openings, too"},
      {"strict", MemberKind::flag, "false", "refuse for any warning"},
      {"confirm", MemberKind::number, "null",
       "seconds after which the change is taken back unless `confirm` comes"},
  };
  return members;
}

std::span<const Operations::Operation> Operations::all() {
  using Kind = MemberKind;
  static const std::vector<Operation> operations = withCommonMembers({
      {"show",
       false,
       &Operations::show,
       "see below",
       {{"what", Kind::name, "", "what to show, see below"},
        {"name", Kind::name, "null", "a list, where it says [NAME] below; without it all"},
        {"interface", Kind::name, "null", "of `access-lists`: those that frames of this interface meet"},
        {"source", Kind::name, "null",
         "a source of configuration, with `configuration` and `access-lists`; without it all of them"},
        {"hit", Kind::flag, "false", "of `access-lists`: the rules that have matched a packet"},
        {"unused", Kind::flag, "false", "of `access-lists`: the rules that have not"},
        {"summary", Kind::flag, "false",
         "of `status`: of each list how many `rules` it has and `packets` they and its drop have counted, without `ruleStatus`"}}},
      {"text",
       true,
       &Operations::text,
       "`octets` held by now. "
       "Pieces of one name in a row are one text; several texts are read in order as one",
       {{"name", Kind::name, "", "what mistakes call the text"},
        {"text", Kind::text, "", "a piece of a configuration text for the `apply` to come"}}},
      {"apply", true, &Operations::apply,
       "`applied`, `refused`, `prepareSeconds`, `commitSeconds`, `confirmWithin`, `survives`, `restart`, `warnings`, `difference`: the texts that were sent replace the command line's configuration",
       withMembersOfChanges({{"revision", Kind::number, "null",
                              "of the configuration: when it is another one by now, nothing is applied"}})},
      {"edit", true, &Operations::edit,
       "as of `apply`: the texts that were sent are commands for one list, a command a line",
       withMembersOfChanges({{"list", Kind::name, "", "the list, of the command line's configuration"},
                             {"type", Kind::name, "null",
                              "`ip`, `ipv6` or `mac`; without it there must be one list of the name"}})},
      {"rollback", true, &Operations::rollback,
       "as of `apply`: the command line's configuration is what it was behind a change",
       withMembersOfChanges(
           {{"number", Kind::number, "null", "of the change; without it the one before the last"}})},
      {"confirm", true, &Operations::confirm, "`confirmed`: true", {}},
      {"saved",
       true,
       &Operations::saved,
       "empty: who has saved the command line's configuration, or has tried to, says so for the log",
       {{"file", Kind::name, "null", "where"}, {"wrong", Kind::name, "null", "what went wrong, if it did"}}},
      {"explain",
       false,
       &Operations::explain,
       "which lists the frame meets, and why",
       {{"port", Kind::name, "", "where the frame comes in"},
        {"frame", Kind::text, "", "its octets in hexadecimal, or a text as below"},
        {"wireLength", Kind::number, "null",
         "of a frame in hexadecimal that a capture cut short: its octets on the wire"},
        {"etherType", Kind::number, "null",
         "of a frame in hexadecimal without an Ethernet header: what type its octets are of"}}},
      {"clear",
       true,
       &Operations::clear,
       "`cleared`: the time",
       {{"name", Kind::name, "null", "a list; without it everything"}}},
      {"trace",
       true,
       &Operations::trace,
       "empty; one of `facility`, `off` and `fast` is needed",
       {{"facility", Kind::name, "null",
         "facilities with the highest level that is to be on: \"NAME/LEVEL,...\""},
        {"off", Kind::flag, "false", "switch every facility off"},
        {"fast", Kind::name, "null", "the facility whose fast traces are switched"},
        {"on", Kind::flag, "true", "with `fast`: on or off"}}},
      {"tail",
       true,
       &Operations::tail,
       "`following`: true. From now on `frames` tells of those that are judged",
       {{"list", Kind::name, "null", "frames that this list has judged; without it all"},
        {"rule", Kind::name, "null", "and that met this rule of it: a number, or `implicit`"},
        {"drops", Kind::flag, "false", "frames that were dropped, also at one of several ports"},
        {"octets", Kind::number, "0", "of each frame so many are told, too; at most 16384"}}},
      {"frames",
       true,
       &Operations::frames,
       "`frames` that were judged since the last request, see below, and `passedOver`: how many more there were behind them. "
       "As long as there are none the answer waits",
       {}},
  });
  return operations;
}

}  // namespace Agent
