#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/core/EventLoop.h>

#include <functional>
#include <set>
#include <string>

namespace Agent {

/// Reports which files of a directory were added, removed, or written and closed. A burst of changes is
/// reported once, a tenth of a second after the first one. A file that is still open for writing is not
/// reported. When nothing happens it reports that, too, once a second: the kernel does not see everything,
/// and it sees nothing when the user has as many watches as the system allows
/// (fs.inotify.max_user_instances).
class DirectoryWatch {
 public:
  /// `names` are names of files in the directory. `all`: any file may have changed, because changes were
  /// lost, or the directory itself came or went.
  using Changed = std::function<void(const std::set<std::string>& names, bool all)>;

  DirectoryWatch(EventLoop& loop, std::string path, Changed changed);
  ~DirectoryWatch();
  DirectoryWatch(const DirectoryWatch&) = delete;
  DirectoryWatch& operator=(const DirectoryWatch&) = delete;

 private:
  void watch();
  void handleEvents();
  void tell();

  EventLoop& loop_;
  const std::string path_;
  const Changed changed_;
  const int inotify_;  // under 0 when the system allows no more of them
  int watched_ = -1;   // under 0 while the directory is not there
  Kiv::OwnedTask task_;
  std::set<std::string> names_;
  bool all_ = false;
};

}  // namespace Agent
