#pragma once

#include "../tests/support/Dice.h"

#include <string>
#include <string_view>

/// What every program of this folder has, whichever way it gets its inputs: from the fuzzer's library
/// (clang), or from files and at random (Driver.cpp).
namespace Fuzz {

using TestSupport::Dice;

/// One input, from a clean state to a clean state; each target defines it. Everything that is drawn comes out
/// of the dice, so that an input always does the same. A finding stops the process.
void run(Dice& dice);

/// A directory for files that are read back and thrown away, so that no input waits for a disk: in memory
/// where the machine has such a one.
std::string memoryPath();

/// Stops the process with the text unless `holds`.
void require(bool holds, std::string_view text);
/// For texts that are costly to make: they are made only to be shown.
template <class MakeText>
requires requires(const MakeText& make) { std::string_view(make()); }
void require(bool holds, const MakeText& text) {
  if (!holds) require(false, std::string_view(text()));
}

}  // namespace Fuzz
