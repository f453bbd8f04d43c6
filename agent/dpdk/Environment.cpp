#include <agent/dpdk/Environment.h>
#include <fmt/format.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <sched.h>

#include <algorithm>
#include <list>
#include <sstream>
#include <string_view>
#include <vector>

namespace Agent::Dpdk {

namespace {

/// Whether one of some options is given, as a word or as the beginning of "--option=value".
bool isGiven(const std::list<std::string>& words, std::initializer_list<std::string_view> options) {
  return std::any_of(words.begin(), words.end(), [&](const std::string& word) {
    return std::any_of(options.begin(), options.end(), [&](std::string_view option) {
      return word.starts_with(option) &&
             (word.size() == option.size() || option.size() == 2 || word[option.size()] == '=');
    });
  });
}

std::string firstProcessor(const cpu_set_t& allowed) {
  int cpu = 0;
  while (cpu < CPU_SETSIZE - 1 && !CPU_ISSET(cpu, &allowed)) ++cpu;
  return std::to_string(cpu);
}

/// Returns what went wrong.
std::optional<std::string> beginOnce(const std::string& arguments) {
  std::list<std::string> words;
  std::istringstream text(arguments);
  for (std::string word; text >> word;) words.push_back(word);
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  // One thread forwards; the others that it would have wait for work that never comes.
  if (!isGiven(words, {"-l", "-c", "--lcores"})) words.insert(words.end(), {"-l", firstProcessor(allowed)});
  // Nothing of it is left in the file system, however the process ends.
  if (isGiven(words, {"--no-huge", "--legacy-mem"}))
    words.emplace_back("--no-shconf");
  else if (!isGiven(words, {"--in-memory", "--file-prefix", "--proc-type"}))
    words.emplace_back("--in-memory");
  // Otherwise it takes all cards that are bound to a driver of its kind: those of other programs, and of
  // other workers. A port has its own card looked for itself. There is no card at this address.
  if (!isGiven(words, {"-a", "--allow", "-b", "--block", "--no-pci"}))
    words.insert(words.end(), {"-a", "ffff:ff:1f.7"});
  if (!isGiven(words, {"--no-telemetry", "--telemetry"})) words.emplace_back("--no-telemetry");
  if (!isGiven(words, {"--log-level"})) words.emplace_back("--log-level=lib.eal:warning");
  words.emplace_front("velo");
  std::vector<char*> argv;
  // Kept: the environment goes on pointing there.
  static std::list<std::string> kept;
  kept = std::move(words);
  for (std::string& word : kept) argv.push_back(word.data());
  argv.push_back(nullptr);
  const int done = rte_eal_init(static_cast<int>(argv.size()) - 1, argv.data());
  const int error = rte_errno;
  // It has pinned the thread to one processor.
  sched_setaffinity(0, sizeof allowed, &allowed);
  if (done < 0)
    return fmt::format("DPDK does not begin: {}; see its messages above, and --dpdk-args",
                       rte_strerror(error));
  return std::nullopt;
}

}  // namespace

std::optional<std::string> begin(const std::string& arguments) {
  // It can be begun once in a process, also when that has failed.
  static const std::optional<std::string> failed = beginOnce(arguments);
  return failed;
}

}  // namespace Agent::Dpdk
