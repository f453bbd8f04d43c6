#pragma once

#include <agent/change/Sources.h>

#include <string>
#include <vector>

namespace Agent {

/// What is probably not meant by sources without a mistake, a sentence each with what follows from it. A
/// further warning is a row of the table in Warnings.cpp with its function.
std::vector<std::string> warningsOf(const Sources& sources);

}  // namespace Agent
