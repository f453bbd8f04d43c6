#pragma once

namespace Velo::VeloAcl {

/// The operations of the numbered scans: doInputScan0(), shouldYield0(), inTask0() and inputScanComplete0(),
/// and so on up to 5. A walker has the operations of its numbers; they are those of Walker with the number as
/// an argument.
template <class W, int number>
struct ScanOperations;

#define VELO_ACL_SCAN_OPERATIONS(number)                                                                 \
  template <class W>                                                                                     \
  struct ScanOperations<W, number> {                                                                     \
    void doInputScan##number() { static_cast<W*>(this)->scan(number); }                                  \
    bool shouldYield##number() const { return static_cast<const W*>(this)->shouldYield(number); }        \
    bool inTask##number() const { return static_cast<const W*>(this)->inTask(number); }                  \
    bool inputScanComplete##number() const { return static_cast<const W*>(this)->scanComplete(number); } \
  }

VELO_ACL_SCAN_OPERATIONS(0);
VELO_ACL_SCAN_OPERATIONS(1);
VELO_ACL_SCAN_OPERATIONS(2);
VELO_ACL_SCAN_OPERATIONS(3);
VELO_ACL_SCAN_OPERATIONS(4);
VELO_ACL_SCAN_OPERATIONS(5);

#undef VELO_ACL_SCAN_OPERATIONS

}  // namespace Velo::VeloAcl
