// A library that could be a plugin, but registers none.
#include <Plugin/InterfaceVersion.h>

extern "C" int answer() { return 42; }
