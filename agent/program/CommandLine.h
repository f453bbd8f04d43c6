#pragma once

namespace Agent {

/// The command line of `velo` with all its commands: reads the arguments of main(), carries out what they ask
/// for, and says what is wrong with them on standard error. Returns the exit status, see `exitMeaning`.
int carryOutCommandLine(int argc, char** argv);

}  // namespace Agent
