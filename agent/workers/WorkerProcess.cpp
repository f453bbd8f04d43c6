#include <agent/core/Output.h>
#include <agent/workers/WorkerProcess.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fstream>
#include <iterator>
#include <vector>

namespace Agent {

namespace {

constexpr const char* thisProgram = "/proc/self/exe";

/// The command line of this process.
std::vector<std::string> commandLineWords() {
  std::ifstream file("/proc/self/cmdline");
  std::vector<std::string> words;
  for (std::string word; std::getline(file, word, '\0');) words.push_back(std::move(word));
  return words;
}

/// Has the next program keep the rights of this one: a user's process loses them otherwise. Between fork()
/// and exec only calls of the system are allowed.
void rightsStay() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capget, &header, data) != 0) return;
  for (auto& part : data) part.inheritable = part.permitted;
  if (syscall(SYS_capset, &header, data) != 0) return;
  for (unsigned capability = 0; capability <= CAP_LAST_CAP; ++capability) {
    if ((data[CAP_TO_INDEX(capability)].permitted & CAP_TO_MASK(capability)) != 0)
      prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0);
  }
}

/// What a worker is told on its command line: the descriptor of its line, its number, and what it is handed.
std::string workerText(int fd, unsigned number, const std::vector<int>& handed) {
  std::string text = fmt::format("--worker={},{}", fd, number);
  for (const int other : handed) text += fmt::format(",{}", other);
  return text;
}

}  // namespace

std::unique_ptr<WorkerProcess> WorkerProcess::start(unsigned number, const std::vector<int>& handed,
                                                    Descriptor& channel, std::string& wrong) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    wrong = failureOf("no line to a worker");
    return nullptr;
  }
  channel = Descriptor(ends[0]);
  const Descriptor theirs(ends[1]);
  std::vector<std::string> words = commandLineWords();
  words.push_back(workerText(theirs.get(), number, handed));
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  const pid_t pid = fork();
  if (pid == 0) {
    fcntl(theirs.get(), F_SETFD, 0);
    for (const int other : handed) {
      if (other >= 0) fcntl(other, F_SETFD, 0);
    }
    rightsStay();
    execv(thisProgram, arguments.data());
    _exit(1);
  }
  if (pid < 0) {
    wrong = failureOf("no process for a worker");
    return nullptr;
  }
  Descriptor ended(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (!ended) wrong = failureOf("no descriptor of a worker");
  std::unique_ptr<WorkerProcess> made(new WorkerProcess(pid, std::move(ended)));
  return made->ended_ ? std::move(made) : nullptr;
}

WorkerProcess::~WorkerProcess() {
  if (gone_) return;
  kill();
  howEnded();
}

void WorkerProcess::kill() { ::kill(pid_, SIGKILL); }

Kelp::Duration WorkerProcess::used() const {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &time) != 0) return {};
  return Kelp::Duration(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9);
}

std::string WorkerProcess::howEnded() {
  gone_ = true;
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) return fmt::format("was ended by signal {}", WTERMSIG(status));
  return fmt::format("has ended with status {}", WEXITSTATUS(status));
}

bool workerBegins(int channel) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGPIPE}) std::signal(signal, SIG_IGN);
  prctl(PR_SET_NAME, "velo");
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  fcntl(channel, F_SETFD, FD_CLOEXEC);
  // If the first process died before, nobody has been told.
  pollfd line{channel, 0, 0};
  return poll(&line, 1, 0) >= 0 && (line.revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

}  // namespace Agent
