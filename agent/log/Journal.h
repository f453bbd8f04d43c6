#pragma once

#include <agent/log/LogEvent.h>
#include <sys/uio.h>

#include <string>

namespace Agent {

/// The system's journal, by the library that systemd offers. It is opened at run time, so that the program
/// runs where there is none.
class Journal {
 public:
  Journal() = default;
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// Opens it when standard error goes to the journal (systemd.exec(5), JOURNAL_STREAM). False when it does
  /// not, or there is no library.
  bool open();
  /// Sends an event with its fields. May wait for the journal. False when it was not taken.
  bool send(const LogEvent& event) const;

 private:
  using SendV = int (*)(const iovec* fields, int count);

  void* library_ = nullptr;
  SendV send_ = nullptr;
};

/// Whether a file is the stream that the environment names as "DEVICE:INODE".
bool isJournalStream(int fd, const char* named);

}  // namespace Agent
