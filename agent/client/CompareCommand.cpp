#include <agent/client/Command.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/commands/Arguments.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/study/PacketComparison.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

constexpr const char* compareHelp =
    "OLD and NEW are each a configuration text or document, a directory of such files, or running: what the\n"
    "agent has in force. Each line of the answer is written like the fields of a rule.\n"
    "\nExit status: 0 the verdicts are the same, 1 some differ, 2 bad usage or configuration, or it could not be found out within the limits.";

class CompareCommand final : public Command {
 public:
  explicit CompareCommand(CLI::App& root)
      : Command(root, "compare", "Tell for which packets two configurations decide otherwise.") {
    app().footer(compareHelp);
    app().add_option("old", old_, "what was")->required()->type_name("OLD");
    app().add_option("new", new_, "what is to be")->required()->type_name("NEW");
    app()
        .add_option("--boxes", limits_.boxes, "so many lines of each change at most")
        ->check(CLI::Range(size_t{1}, size_t{1000000}))
        ->capture_default_str()
        ->type_name("N");
    proof_.addTo(app());
    addTextLimits(app(), texts_);
    addControl();
  }

  Exit whenItRunsOut() const override { return exitUsage; }
  Exit run(const std::string&) const override {
    const ConfigurationReader reader(texts_, control());
    std::vector<std::string> mistakes;
    const auto before = reader.read(old_, mistakes), after = reader.read(new_, mistakes);
    if (!before || !after) return notAnswered(mistakes);
    CompareLimits limits = limits_;
    limits.proof = proof_.limits();
    const auto document = packetComparison(before->layers(), after->layers(), limits);
    const auto is = [&document](const char* member) { return document.at(member) == true; };
    const Exit exit = is("same") ? exitDone : is("different") ? exitUnread : exitUsage;
    const bool printed = Agent::print(json() ? linesOf(document) : packetComparisonText(document));
    return printed ? exit : exitUsage;
  }

 private:
  std::string old_, new_;
  CompareLimits limits_;
  ProofOptions proof_;
  TextLimits texts_;
};

}  // namespace

std::unique_ptr<Command> compareCommand(CLI::App& app) { return std::make_unique<CompareCommand>(app); }

}  // namespace Agent
