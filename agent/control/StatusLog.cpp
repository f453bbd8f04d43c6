#include <Zeb/System.h>
#include <agent/control/StatusLog.h>
#include <agent/core/Document.h>
#include <agent/core/Memory.h>
#include <agent/core/Reserve.h>

#include <new>
#include <sstream>
#include <utility>

namespace Agent {

namespace {

std::vector<LogEvent> linesOfStatus(const std::string& document, double now) {
  TextStyle style;
  style.now = now;
  std::istringstream text(showOf("status")->text(*readDocument(document), style));
  std::vector<LogEvent> events;
  for (std::string line; std::getline(text, line);) {
    if (!line.empty()) events.push_back({Severity::info, line, {{"VELO_EVENT", "status"}}});
  }
  return events;
}

}  // namespace

StatusLog::StatusLog(World world) : world_(std::move(world)), task_(0, "StatusLog", [this] { run(); }) {}

void StatusLog::begin(Tell tell) {
  if (document_) return;
  tell_ = std::move(tell);
  document_ = showOf("status")->document(world_, {.summary = true});
  task_->scheduleTask();
}

void StatusLog::run() {
  Refusable memory;
  try {
    if (!collect()) return task_->scheduleTask();
    const double now = Zeb::System::currentTime().seconds();
    tell_([document = std::move(text_), now] { return linesOfStatus(document, now); });
    Refusable::check();
  } catch (const std::bad_alloc&) {
    tell_([] { return std::vector<LogEvent>{{Severity::error, std::string("the status: ") + outOfMemory}}; });
  }
  document_.reset();
  text_ = {};
}

bool StatusLog::collect() {
  do {
    const bool more = document_->next(text_);
    Refusable::check();
    if (!more) return true;
  } while (!task_->taskShouldYield());
  return false;
}

}  // namespace Agent
