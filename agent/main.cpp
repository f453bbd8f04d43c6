#include <agent/core/Memory.h>
#include <agent/program/CommandLine.h>

int main(int argc, char** argv) {
  Agent::useLargePages();
  return Agent::carryOutCommandLine(argc, argv);
}
