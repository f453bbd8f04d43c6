#pragma once

#include <agent/change/ConfigFiles.h>
#include <agent/change/History.h>
#include <agent/core/Background.h>
#include <agent/core/Texts.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Knows what the command line's source would be after a restart: what its files say by now.
///
/// Part of the configuration. The loop outlives it.
class Restart {
 public:
  Restart(EventLoop& loop, std::vector<std::string> files, TextLimits limits);

  /// Reads the files, unless they are those that were read last, and then calls `then`, from within or later.
  void look(std::function<void()> then);

  const std::vector<std::string>& files() const { return files_; }
  /// Why a restart would make another configuration than this text of the command line's source; empty if it
  /// would not. As the last look has found the files.
  std::vector<std::string> whyOther(const std::string& text,
                                    const std::optional<Unconfirmed>& unconfirmed) const;

 private:
  using Identities = std::vector<std::optional<FileIdentity>>;
  /// The files as they were read.
  struct Found {
    std::vector<std::string> wrong;
    std::string text;  ///< written from the model that they make
    Identities identities;
    bool settled = false;
  };

  Identities identities() const;
  static Found read(const std::vector<std::string>& files, TextLimits limits);
  void readAgain();

  const std::vector<std::string> files_;
  const TextLimits limits_;
  std::optional<Found> found_;
  std::vector<std::function<void()>> waiting_;
  Background background_;
};

/// At a start: what nobody has confirmed does not come into force, even if the files say it. What was before
/// takes its place then, and the sentence that is returned says so. Otherwise there is nothing unconfirmed in
/// the past any more.
std::optional<std::string> takeBackUnconfirmed(ConfigFiles& files, Past& past);

}  // namespace Agent
