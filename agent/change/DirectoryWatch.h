#pragma once

#include <Kiv/TaskScheduler.h>
#include <agent/core/EventLoop.h>

#include <functional>
#include <set>
#include <string>

namespace Agent {

/// Says which files of a directory have come, gone or been written to their end. A burst of changes is told
/// once, a tenth of a second after its first one. A file that is still open for writing is not told. When
/// nothing happens that is told, too, once a second: the kernel does not say everything, and nothing at all
/// when a user has as many watches as the system allows (fs.inotify.max_user_instances).
class DirectoryWatch {
 public:
  /// `names` are file names in the directory; `all`: any file may have changed (changes were lost, or the
  /// directory itself came or went).
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
  const int inotify_;  // under 0 when the system has no more of them
  int watched_ = -1;   // under 0 while the directory is not there
  const Kelp::Ptr<Kiv::TimerTask> task_;
  std::set<std::string> names_;
  bool all_ = false;
};

}  // namespace Agent
