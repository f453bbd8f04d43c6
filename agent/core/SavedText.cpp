#include <agent/core/Descriptor.h>
#include <agent/core/Output.h>
#include <agent/core/SavedText.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace Agent {

namespace {

bool writeAll(int file, const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t put = write(file, text.data() + at, text.size() - at);
    if (put < 0 && errno != EINTR) return false;
    if (put > 0) at += static_cast<size_t>(put);
  }
  return fsync(file) == 0;
}

/// The file that a path leads to, through links; the path itself when nothing is there.
std::string targetOf(const std::string& path) {
  std::error_code none;
  const auto target = std::filesystem::canonical(path, none);
  return none ? path : target.string();
}

/// A file that is written aside, and goes unless it takes the place of the other one.
class Aside {
 public:
  explicit Aside(const std::string& target)
      : path_(target + ".XXXXXX"), file_(mkostemp(path_.data(), O_CLOEXEC)) {}
  ~Aside() {
    if (file_ && !placed_) unlink(path_.c_str());
  }
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;

  bool write(const std::string& text, const std::string& target) {
    constexpr mode_t ofNewFile = 0644, bits = 07777;
    if (!file_) return false;
    struct stat before {};
    const bool known = stat(target.c_str(), &before) == 0;
    // Whoever may not give a file away keeps it.
    if (known && fchown(file_.get(), before.st_uid, before.st_gid) != 0) errno = 0;
    return fchmod(file_.get(), known ? before.st_mode & bits : ofNewFile) == 0 && writeAll(file_.get(), text);
  }
  bool place(const std::string& target) {
    placed_ = rename(path_.c_str(), target.c_str()) == 0;
    return placed_;
  }

 private:
  std::string path_;
  const Descriptor file_;
  bool placed_ = false;
};

/// Has the content of a file under a second name, too.
bool keepBefore(const std::string& target) {
  const std::string kept = target + "~", made = kept + "new";
  unlink(made.c_str());
  if (link(target.c_str(), made.c_str()) != 0) return errno == ENOENT;
  return rename(made.c_str(), kept.c_str()) == 0;
}

}  // namespace

std::optional<std::string> saveText(const std::string& path, const std::string& text) {
  const std::string target = targetOf(path);
  struct stat there {};
  if (stat(target.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) return path + ": is no regular file";
  Aside aside(target);
  if (!aside.write(text, target) || !keepBefore(target) || !aside.place(target)) return failureOf(path);
  const auto folder = std::filesystem::path(target).parent_path();
  const Descriptor opened(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened || fsync(opened.get()) != 0) return failureOf(path);
  return std::nullopt;
}

}  // namespace Agent
