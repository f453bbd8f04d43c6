#include <agent/change/ConfigFiles.h>
#include <agent/client/Command.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/client/ListOption.h>
#include <agent/commands/Arguments.h>
#include <agent/config/Cursor.h>
#include <agent/config/Mistake.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/study/ListChoice.h>
#include <agent/study/OffLine.h>
#include <agent/study/PacketSearch.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

using What = PacketQuestion::What;

constexpr const char* findHelp =
    "  velo find permit LIST [where CONDITION]         a packet that the list permits\n"
    "  velo find deny LIST [where CONDITION]           one that it drops\n"
    "  velo find match LIST:N [where CONDITION]        one that rule N decides about\n"
    "  velo find permit|deny --port A --to B [where CONDITION]\n"
    "  velo find match LIST:N --port A --to B          one that comes to the rule on that way\n"
    "CONDITION is written like the fields of a rule, with any number of not behind them, as in\n"
    "  tcp 10.0.0.0/8 any eq 22 not established not host 10.0.0.1 any\n"
    "Without --config it is about what the agent has in force.\n"
    "\nExit status: 0 there is such a packet, 1 there is none, 2 bad usage or configuration, or it could not be found out within the limits.";

class FindCommand final : public Command {
 public:
  explicit FindCommand(CLI::App& root)
      : Command(root, "find", "Look for a packet that a list or a way through ports permits or drops.") {
    app().footer(findHelp);
    app().add_option("words", words_, "what is looked for")->required()->type_name("WORD...");
    app().add_option("--port", question_.from, "where the packets come in")->type_name("NAME");
    app().add_option("--to", question_.to, "where they leave")->type_name("NAME");
    addListType(app(), type_, " (ip and ipv6 for ports)");
    app().add_flag("--all", question_.all, "all such packets, each line written like the fields of a rule");
    app()
        .add_option("--boxes", question_.boxes, "with --all: so many lines at most")
        ->check(CLI::Range(size_t{1}, size_t{1000000}))
        ->capture_default_str()
        ->type_name("N");
    app().add_option("--config", file_, "look in this configuration text or directory")->type_name("FILE");
    proof_.addTo(app());
    addTextLimits(app(), texts_);
    addControl();
  }

  Exit whenItRunsOut() const override { return exitUsage; }
  Exit run(const std::string&) const override {
    std::string wrong;
    const auto question = read(&wrong);
    if (!question) return notAnswered({"find: " + wrong});
    const ConfigurationReader reader(texts_, control());
    std::vector<std::string> mistakes;
    const auto sources = reader.read(file_, mistakes);
    if (!sources) return notAnswered(mistakes);
    const auto document = packetSearch(*question, sources->layers(), &wrong);
    if (!document) return notAnswered({"find: " + wrong});
    for (const auto ports = reader.portsOf(file_); const std::string& port : {question->from, question->to}) {
      if (const auto assumed = assumedOf(port, *sources, ports)) complain(*assumed);
    }
    const bool found = document->at("found") == true, whole = document->at("whole") == true;
    if (!Agent::print(json() ? linesOf(*document) : packetSearchText(*document))) return exitUsage;
    return found ? exitDone : whole ? exitUnread : exitUsage;
  }

 private:
  std::optional<PacketQuestion> read(std::string* wrong) const {
    PacketQuestion question = question_;
    question.limits = proof_.limits();
    question.type = typeOfWord(type_);
    const std::string text = fmt::format("{}", fmt::join(words_, " "));
    Config::Cursor at;
    if (!at.lineIs(text)) return failed(at, wrong);
    if (at.takeIf("permit"))
      question.what = What::permit;
    else if (at.takeIf("deny"))
      question.what = What::deny;
    else if (at.takeIf("match"))
      question.what = What::match;
    else
      return at.fail("permit, deny or match"), failed(at, wrong);
    if (!at.atEnd() && at.peek() != "where") question.list = at.take();
    if (!readPlace(question, wrong)) return std::nullopt;
    if (at.atEnd()) return question;
    if (!at.keyword("where")) return failed(at, wrong);
    question.where = at.rest();
    if (question.where.empty()) return at.fail("a condition"), failed(at, wrong);
    return question;
  }
  static std::nullopt_t failed(const Config::Cursor& at, std::string* wrong) {
    *wrong = Config::mistakeText(at.problem()->found, at.problem()->expected);
    return std::nullopt;
  }

  static bool readPlace(PacketQuestion& question, std::string* wrong) {
    if (question.what == What::match) {
      const size_t colon = question.list.rfind(':');
      const auto rule = colon == std::string::npos
                            ? std::nullopt
                            : Config::decimal(std::string_view(question.list).substr(colon + 1));
      if (!rule) return *wrong = "match needs LIST:N, a rule of a list", false;
      question.rule = *rule;
      question.list.resize(colon);
    }
    const bool ports = !question.from.empty() || !question.to.empty();
    const bool both = ports && !question.list.empty(), none = !ports && question.list.empty();
    if (none || (both && question.what != What::match) || question.from.empty() != question.to.empty())
      return *wrong = "either a list or --port and --to says where", false;
    return true;
  }

  std::vector<std::string> words_;
  std::string type_, file_ = ConfigurationReader::running;
  PacketQuestion question_;
  ProofOptions proof_;
  TextLimits texts_;
};

}  // namespace

std::unique_ptr<Command> findCommand(CLI::App& app) { return std::make_unique<FindCommand>(app); }

}  // namespace Agent
