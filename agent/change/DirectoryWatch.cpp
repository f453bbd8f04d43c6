#include <agent/change/DirectoryWatch.h>
#include <agent/core/Output.h>
#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Agent {

namespace {

constexpr Kelp::Duration coalesceFor{0.1};
constexpr Kelp::Duration lookAgainAfter{1.0};
constexpr uint32_t fileEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr uint32_t directoryEvents = IN_DELETE_SELF | IN_MOVE_SELF;

}  // namespace

DirectoryWatch::DirectoryWatch(EventLoop& loop, std::string path, Changed changed)
    : loop_(loop),
      path_(std::move(path)),
      changed_(std::move(changed)),
      inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      task_(0, "DirectoryWatch " + path_, [this] { tell(); }) {
  if (inotify_ < 0) {
    complain(failureOf(fmt::format("changes in {} are seen once a second only", path_)));
  } else {
    loop_.fdIs(inotify_, EPOLLIN, [this](uint32_t) { handleEvents(); });
    watch();
  }
  // Files may have changed between the first reading of the directory and now.
  all_ = true;
  task_->scheduleTaskDelay(coalesceFor);
}

DirectoryWatch::~DirectoryWatch() {
  if (inotify_ < 0) return;
  loop_.fdDel(inotify_);
  close(inotify_);
}

void DirectoryWatch::watch() {
  watched_ = inotify_add_watch(inotify_, path_.c_str(), fileEvents | directoryEvents | IN_ONLYDIR);
}

void DirectoryWatch::handleEvents() {
  alignas(inotify_event) char buffer[16 * 1024];
  const ssize_t size = read(inotify_, buffer, sizeof buffer);
  for (ssize_t at = 0; at < size;) {
    const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
    at += static_cast<ssize_t>(sizeof *event + event->len);
    if (event->mask & (IN_Q_OVERFLOW | directoryEvents)) all_ = true;
    if (event->wd == watched_ && (event->mask & (IN_IGNORED | IN_MOVE_SELF))) {
      if (event->mask & IN_MOVE_SELF) inotify_rm_watch(inotify_, watched_);
      watched_ = -1;
      all_ = true;
    }
    if (event->len > 0 && !(event->mask & IN_ISDIR)) names_.insert(event->name);
  }
  if (all_ || !names_.empty()) task_->scheduleTaskDelay(coalesceFor);
}

void DirectoryWatch::tell() {
  if (inotify_ >= 0 && watched_ < 0) {
    watch();
    all_ = all_ || watched_ >= 0;
  }
  task_->scheduleTaskDelay(lookAgainAfter);
  const std::set<std::string> names = std::exchange(names_, {});
  changed_(names, std::exchange(all_, false));
}

}  // namespace Agent
