// A library that is no plugin.
extern "C" int answer() { return 42; }
