#pragma once

namespace Velo::VeloAcl {

/// The operations of the numbered scans: doInputScan0(), shouldYield0(), inTask0() and inputScanComplete0(),
/// and so on up to 5. A walker has the operations of its numbers; they are those of Walker with the number as
/// an argument.
template <class W, int number>
struct ScanOperations;

// Written out, so that a search for any of the names ends here.

template <class W>
struct ScanOperations<W, 0> {
  void doInputScan0() { static_cast<W*>(this)->scan(0); }
  bool shouldYield0() const { return static_cast<const W*>(this)->shouldYield(0); }
  bool inTask0() const { return static_cast<const W*>(this)->inTask(0); }
  bool inputScanComplete0() const { return static_cast<const W*>(this)->scanComplete(0); }
};

template <class W>
struct ScanOperations<W, 1> {
  void doInputScan1() { static_cast<W*>(this)->scan(1); }
  bool shouldYield1() const { return static_cast<const W*>(this)->shouldYield(1); }
  bool inTask1() const { return static_cast<const W*>(this)->inTask(1); }
  bool inputScanComplete1() const { return static_cast<const W*>(this)->scanComplete(1); }
};

template <class W>
struct ScanOperations<W, 2> {
  void doInputScan2() { static_cast<W*>(this)->scan(2); }
  bool shouldYield2() const { return static_cast<const W*>(this)->shouldYield(2); }
  bool inTask2() const { return static_cast<const W*>(this)->inTask(2); }
  bool inputScanComplete2() const { return static_cast<const W*>(this)->scanComplete(2); }
};

template <class W>
struct ScanOperations<W, 3> {
  void doInputScan3() { static_cast<W*>(this)->scan(3); }
  bool shouldYield3() const { return static_cast<const W*>(this)->shouldYield(3); }
  bool inTask3() const { return static_cast<const W*>(this)->inTask(3); }
  bool inputScanComplete3() const { return static_cast<const W*>(this)->scanComplete(3); }
};

template <class W>
struct ScanOperations<W, 4> {
  void doInputScan4() { static_cast<W*>(this)->scan(4); }
  bool shouldYield4() const { return static_cast<const W*>(this)->shouldYield(4); }
  bool inTask4() const { return static_cast<const W*>(this)->inTask(4); }
  bool inputScanComplete4() const { return static_cast<const W*>(this)->scanComplete(4); }
};

template <class W>
struct ScanOperations<W, 5> {
  void doInputScan5() { static_cast<W*>(this)->scan(5); }
  bool shouldYield5() const { return static_cast<const W*>(this)->shouldYield(5); }
  bool inTask5() const { return static_cast<const W*>(this)->inTask(5); }
  bool inputScanComplete5() const { return static_cast<const W*>(this)->scanComplete(5); }
};

}  // namespace Velo::VeloAcl
