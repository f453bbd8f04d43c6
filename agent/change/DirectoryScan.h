#pragma once

#include <agent/change/ConfigFiles.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// One look at the files of a configuration directory. It compares each file with what was read last: by what
/// the file system says of it, and if that differs, by its content. Plain values, for a thread: the caller
/// fills in the question, calls run(), and takes the result.
struct DirectoryScan {
  /// A file that was read, or could not be.
  struct File {
    std::optional<FileContent> content;  ///< nothing: it could not be read, and must be read again
    std::optional<Config::Model> model;  ///< if the content is new and has no mistake
    std::vector<std::string> wrong;
    bool shortOfMemory = false;  ///< it can be read when there is more memory
  };

  // The question.
  std::string dir;
  TextLimits limits;
  std::set<std::string> due;  ///< files that are read in any case
  bool all = false;           ///< all files are read
  int64_t time = 0;           ///< fileTime() now, or before
  /// The content of the files that were read before; run() removes files that are gone.
  std::map<std::string, FileContent> seen;

  // The result.
  std::vector<std::string> unreadable;  ///< why the directory cannot be read; then the rest means nothing
  std::set<std::string> there;
  std::map<std::string, File> found;  ///< files whose content is new, or that were read again

  void run();

 private:
  void look(const std::string& path, const std::string& name, TextReader& reader);
  void read(const std::string& path, TextReader& reader, const FileContent* known, File& file) const;
};

}  // namespace Agent
