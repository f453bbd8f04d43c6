#include "classbench/Run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace Bench {

Run::Run()
    : coloured_(isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR")), onTerminal_(isatty(STDERR_FILENO)) {}

void Run::tableIs(const Table& table) {
  progress("");
  if (table.empty()) return;
  fmt::print("{}\n", table.text(coloured_));
  std::fflush(stdout);
  tables_.push_back(table.json());
}

void Run::progress(const std::string& what) {
  if (onTerminal_) fmt::print(stderr, "\r\x1b[K{}", what);
}

bool Run::isAgainst(const std::string& peer) const {
  return std::find(against.begin(), against.end(), peer) != against.end();
}

Table Run::goals() const {
  Table table("Goals", {"what", "reached", "goal", ""});
  for (const Goal& goal : goals_) {
    table.rowIs({goal.what, Number{goal.reached, 2},
                 fmt::format("{} {}", goal.atLeast ? "at least" : "at most", goal.limit),
                 Verdict{goal.met()}});
  }
  return table;
}

nlohmann::json Run::json() const {
  return {{"rounds", rounds}, {"seed", seed}, {"tables", tables_}, {"goals", goals().json()["rows"]}};
}

}  // namespace Bench
