#include <agent/core/Output.h>
#include <agent/manual/Manual.h>
#include <agent/manual/ManualCommand.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <fstream>

namespace Agent {

namespace {

class ManualCommand final : public ProgramCommand {
 public:
  explicit ManualCommand(CLI::App& program)
      : ProgramCommand(program, "manual", "Write the manual pages of all commands."), program_(program) {
    app().group("");
    app().add_option("dir", dir_, "where to write them")->required()->type_name("DIR");
  }

  Exit run(const std::string&) const override {
    if (!write(program_)) return exitUnread;
    for (const CLI::App* command : program_.get_subcommands([](const CLI::App*) { return true; })) {
      if (!command->get_group().empty() && !write(*command)) return exitUnread;
    }
    return exitDone;
  }

 private:
  bool write(const CLI::App& command) const {
    const std::string path = fmt::format("{}/{}.1", dir_, pageName(program_, command));
    std::ofstream file(path);
    file << manualPage(program_, command);
    if (file.flush()) return true;
    complain(path + ": cannot be written");
    return false;
  }

  const CLI::App& program_;
  std::string dir_;
};

}  // namespace

std::unique_ptr<ProgramCommand> manualCommand(CLI::App& program) {
  return std::make_unique<ManualCommand>(program);
}

}  // namespace Agent
