#pragma once

#include <nlohmann/json.hpp>

namespace Agent {

class Configuration;

/// The sources with their sizes and times, and the files that are bad: for the status.
nlohmann::ordered_json configurationReport(const Configuration& configuration);
/// What is in force, and what a restart would read: `files` of the command line; whether a restart would make
/// the `same`, and `why` not; `save`: whether saving would help; `refused`: why an agent would not start, or
/// null; `opens`: what a start would open; `looking`: for how many seconds the files are being looked at, if
/// that is waited for no more. As the last look has found the files.
nlohmann::ordered_json restartReport(const Configuration& configuration);

}  // namespace Agent
