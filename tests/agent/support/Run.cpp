#include "Run.h"

#include "CaptureBytes.h"
#include "Schema.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace TestSupport {

TempDir::TempDir() : TempDir(std::filesystem::temp_directory_path().string()) {}

TempDir::TempDir(const std::string& parent) {
  std::string form = parent + "/velo-test-XXXXXX";
  if (!mkdtemp(form.data())) throw std::runtime_error("no directory could be made at " + form);
  path_ = form;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Ran runVelo(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment,
            const std::string& outTo, const std::vector<std::pair<decltype(RLIMIT_AS), rlim_t>>& limits,
            const std::string& input) {
  const TempDir dir;
  const std::string out = outTo.empty() ? dir / "out" : outTo;
  const std::string err = dir / "err";
  const std::string program = std::string(VELO_BIN_DIR) + "/velo";
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    unsetenv("VELO_TRACE");
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    dup2(open(input.c_str(), O_RDONLY), STDIN_FILENO);
    dup2(open(out.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    for (const auto& [resource, limit] : limits) {
      const rlimit both{limit, limit};
      setrlimit(resource, &both);
    }
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) throw std::runtime_error("waitpid failed");
  Ran ran;
  ran.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  if (outTo.empty()) ran.out = readFile(out);
  ran.err = readFile(err);
  const auto document = nlohmann::ordered_json::parse(ran.out, nullptr, false);
  if (document.is_object()) expectOfSchema(kindOf(arguments), document);
  return ran;
}

std::string withoutOpenings(const std::string& err) {
  std::istringstream lines(err);
  std::string rest;
  for (std::string line; std::getline(lines, line);) {
    if (line.find(": opening: ") == line.npos) rest += line + "\n";
  }
  return rest;
}

}  // namespace TestSupport
