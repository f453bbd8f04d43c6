#include <agent/log/Journal.h>
#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace Agent {

bool isJournalStream(int fd, const char* named) {
  struct stat file {};
  if (!named || fstat(fd, &file) != 0) return false;
  return fmt::format("{}:{}", file.st_dev, file.st_ino) == named;
}

Journal::~Journal() {
  if (library_) dlclose(library_);
}

bool Journal::open() {
  if (!isJournalStream(STDERR_FILENO, std::getenv("JOURNAL_STREAM"))) return false;
  library_ = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
  if (library_) send_ = reinterpret_cast<SendV>(dlsym(library_, "sd_journal_sendv"));
  return send_ != nullptr;
}

bool Journal::send(const LogEvent& event) const {
  std::vector<std::string> fields = {"MESSAGE=" + event.text,
                                     fmt::format("PRIORITY={}", static_cast<int>(event.severity)),
                                     "SYSLOG_IDENTIFIER=velo"};
  for (const auto& [name, value] : event.fields) fields.push_back(fmt::format("{}={}", name, value));
  std::vector<iovec> vectors;
  for (std::string& field : fields) vectors.push_back({field.data(), field.size()});
  return send_(vectors.data(), static_cast<int>(vectors.size())) == 0;
}

}  // namespace Agent
