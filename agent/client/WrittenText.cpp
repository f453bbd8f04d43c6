#include <agent/client/StateTree.h>
#include <agent/client/WrittenText.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/models/Writer.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

namespace Agent {

CLI::Option* addFormat(CLI::App& app, const char* option, const char* purpose, std::string* format,
                       bool* lossy) {
  app.add_flag("--lossy", *lossy,
               "leave out what the format cannot say, unless something would pass then that is dropped now");
  return app.add_option(option, *format, purpose)
      ->check([](const std::string& name) {
        return Models::formatOf(name) ? std::string() : fmt::format("no format: {}", name);
      })
      ->type_name(Models::formatNames());
}

Exit printAs(const Config::Model& model, const std::string& format, bool lossy, bool json,
             const nlohmann::ordered_json* shown) {
  auto written = Models::write(model, *Models::formatOf(format), lossy);
  if (shown && written.refused.empty()) {
    auto document = nlohmann::ordered_json::parse(written.document);
    written.document = withState(std::move(document), *Models::formatOf(format), *shown).dump(2) + "\n";
  }
  const Exit exit = written.refused.empty() ? exitDone : exitUsage;
  if (json) {
    const nlohmann::ordered_json document{
        {"document", exit == exitDone ? nlohmann::ordered_json(written.document) : nullptr},
        {"refused", written.refused},
        {"leftOut", written.leftOut}};
    return print(linesOf(document)) ? exit : exitUnread;
  }
  for (const auto& sentence : written.leftOut) complain(fmt::format("left out: {}", sentence));
  for (const auto& sentence : written.refused) complain(sentence);
  if (exit != exitDone) return exit;
  return print(written.document) ? exitDone : exitUnread;
}

}  // namespace Agent
