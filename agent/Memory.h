#pragma once

namespace Agent {

/// Has the process keep what it frees, for its next large configuration, and put it in order at once. Both
/// take milliseconds when there is much of it, and the C library would do them in the middle of some call
/// that frees a little: packets would wait for it. To be called before there are threads.
void keepFreedMemory();

/// Has what large lists are compiled into put into large pages, if the system has any to give (Linux:
/// madvise(2)). To be called before there are threads.
void useLargePages();

}  // namespace Agent
