#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/log/LogEvent.h>
#include <agent/show/Shows.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Agent {

/// Writes what `velo show status` shows to the log. The document is made a slice a turn; the lines are made
/// from it on another thread.
class StatusLog {
 public:
  using Tell = std::function<void(std::function<std::vector<LogEvent>()> make)>;

  explicit StatusLog(World world);
  StatusLog(const StatusLog&) = delete;
  StatusLog& operator=(const StatusLog&) = delete;

  /// Nothing happens while an earlier one is under way.
  void begin(Tell tell);

 private:
  void run();
  /// False when there is more to come.
  bool collect();

  const World world_;
  Kiv::OwnedTask task_;
  std::unique_ptr<Document> document_;
  std::string text_;
  Tell tell_;
};

}  // namespace Agent
