#include <agent/client/Command.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/client/ListOption.h>
#include <agent/commands/Arguments.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/study/ListChoice.h>
#include <agent/study/ListSimplification.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

constexpr const char* simplifyHelp =
    "Prints the list without rules that never match or change nothing, and with neighbours joined where one\n"
    "rule says the same; every packet is proven to meet the same verdict. What is lost is told on standard\n"
    "error. Nothing is applied: velo apply takes the text of --whole.\n"
    "\nExit status: 0 printed, 2 bad usage or configuration, or it could not be found out within the limits.";

class SimplifyCommand final : public Command {
 public:
  explicit SimplifyCommand(CLI::App& root)
      : Command(root, "simplify", "Print a list with fewer rules that does the same to all packets.") {
    app().footer(simplifyHelp);
    app().add_option("list", question_.list, "the list")->required()->type_name("LIST");
    app()
        .add_option("files", files_, "of these configuration texts, not of what the agent has in force")
        ->type_name("FILE...");
    addListType(app(), type_);
    app().add_flag("--whole", question_.whole, "print all that stands with the list, too");
    proof_.addTo(app());
    addTextLimits(app(), texts_);
    addControl();
  }

  Exit whenItRunsOut() const override { return exitUsage; }
  Exit run(const std::string&) const override {
    std::vector<std::string> mistakes;
    const auto sources = ConfigurationReader(texts_, control()).readAsOne(files_, mistakes);
    if (!sources) return notAnswered(mistakes);
    SimplificationQuestion question = question_;
    question.type = typeOfWord(type_);
    question.limits = proof_.limits();
    std::string wrong;
    const auto document = listSimplification(question, sources->layers(), &wrong);
    if (!document) return notAnswered({"simplify: " + wrong});
    if (json()) return Agent::print(linesOf(*document)) ? exitDone : exitUsage;
    fmt::print(stderr, "{}", listSimplificationText(*document));
    return Agent::print(document->at("text").get<std::string>()) ? exitDone : exitUsage;
  }

 private:
  SimplificationQuestion question_;
  std::string type_;
  std::vector<std::string> files_;
  ProofOptions proof_;
  TextLimits texts_;
};

}  // namespace

std::unique_ptr<Command> simplifyCommand(CLI::App& app) { return std::make_unique<SimplifyCommand>(app); }

}  // namespace Agent
