// Counts what an operation asks of the heap and marks where it begins and ends in a trace of system
// calls.
#ifndef OX_BENCH_COUNTING_H_
#define OX_BENCH_COUNTING_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace ox::bench {

// Calls of malloc, calloc and realloc on any thread of this program, its libraries included, and
// the bytes asked for.
struct HeapCounts {
  std::uint64_t calls;
  std::uint64_t bytes;
};
HeapCounts CountedHeap();

// Off until then: the count costs a little on each call.
void CountHeap(bool isOn);

// Bytes of the heap in use, as the C library rounds them, and the most since ForgetHeapPeak.
// Counted from the start of the program on.
std::size_t HeapInUse();
std::size_t HeapPeak();
void ForgetHeapPeak();

// A system call that does nothing, found in the trace by its text.
void MarkTrace(const std::string& text);

}  // namespace ox::bench

#endif
