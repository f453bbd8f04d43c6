#pragma once

#include <agent/change/ConfigFiles.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// One look at the files of a configuration directory: what is there is compared with what was read last, by
/// what the file system says of each file, and where that differs by the content. Plain values, for a thread:
/// what is asked is filled in, run() is called, and what was found is taken.
struct DirectoryScan {
  /// A file that was read, or could not be.
  struct File {
    std::optional<FileContent> content;  ///< nothing: it could not be read and is to be read again
    std::optional<Config::Model> model;  ///< of a content that is new and has no mistake
    std::vector<std::string> wrong;
    bool shortOfMemory = false;  ///< it may be read when there is more
  };

  // What is asked.
  std::string dir;
  TextLimits limits;
  std::set<std::string> due;  ///< read whatever the file system says of them
  bool all = false;           ///< all are due
  int64_t time = 0;           ///< fileTime() now, or before
  /// What was in the files that were read; comes back without those that have gone.
  std::map<std::string, FileContent> seen;

  // What was found.
  std::vector<std::string> unreadable;  ///< why the directory cannot be read; then nothing else is known
  std::set<std::string> there;
  std::map<std::string, File> found;  ///< files whose content is not the one that was seen

  void run();

 private:
  void look(const std::string& path, const std::string& name, TextReader& reader);
  void read(const std::string& path, TextReader& reader, const FileContent* known, File& file) const;
};

}  // namespace Agent
