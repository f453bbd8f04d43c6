#pragma once

#include <agent/change/Difference.h>
#include <agent/change/History.h>
#include <agent/change/SourceChange.h>
#include <agent/change/Warnings.h>

#include <optional>
#include <string>

namespace Agent {

/// What is found out about the change of one source before it begins. All of it is plain values: it is made
/// on a thread.
struct PreparedChange {
  /// What the change is compared with. Nobody writes it meanwhile.
  struct Before {
    const Sources& sources;
    const Warnings& warnings;  ///< that have been told
    const PortNames* ports;    ///< null: every interface may be one
  };
  struct Asked {
    std::string what, who;  ///< for the history, see Change
    Leave leave{};
    bool dryRun = false;  ///< only find out what would change
  };

  Warnings told{};                       ///< of the change, and of the configuration after it
  Warnings fresh{};                      ///< those of them that have not been told before
  Warnings lasting{};                    ///< what is warned of when it is in force
  SharedFilteredPorts filtered{};        ///< by what is in force then
  std::optional<std::string> refused{};  ///< why warnings keep it from being carried out
  // Empty unless it is carried out.
  SourceChange writes{};
  Change change{};  ///< as it is remembered; has neither number nor time yet

  /// Fills this in for the change of a source to `now`; null: it is deleted. `writes` points into it.
  Difference prepare(const Before& before, const std::string& source, const Config::Model* now,
                     const Asked& asked);
};

}  // namespace Agent
