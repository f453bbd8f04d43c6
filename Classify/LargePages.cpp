#include <Classify/LargePages.h>

void (*Classify::adviseLargePages)(void* place, size_t bytes) = nullptr;
