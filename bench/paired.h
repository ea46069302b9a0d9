// The paired measurement: base and subject run in short blocks by turns, and the figure is the
// median of the ratios of neighbouring blocks. What slows the machine for longer than a block slows
// both and leaves the ratio alone.
#ifndef OX_BENCH_PAIRED_H_
#define OX_BENCH_PAIRED_H_

#include <cstddef>
#include <functional>

namespace ox::bench {

// One side. Only `run` is timed; it is called with 0 to count - 1.
struct Operation {
  std::function<void(std::size_t count)> prepare;
  std::function<void(std::size_t index)> run;
  std::function<void()> finish;
};

struct BlockLimits {
  std::size_t rounds;    // pairs of blocks
  std::size_t maxCount;  // operations of one block
};

// Nanoseconds of one operation.
struct Times {
  double median;  // of the blocks' means
  double p99;     // of operations timed one by one
  double worst;
  // The worst of the calmest round: what other programs do to single operations is gone, what the
  // operation does to itself shows in every round.
  double calmWorst;
};

// Subject / base over the rounds.
struct Ratio {
  double median;
  double lowest;
  double p10;
  double p90;
  double highest;
};

struct Paired {
  std::size_t rounds;
  std::size_t count;  // operations of one block
  std::size_t timed;  // operations timed one by one, on each side
  Times base;
  Times subject;
  Ratio ratio;
};

Paired MeasurePaired(const Operation& base, const Operation& subject, const BlockLimits& limits);

}  // namespace ox::bench

#endif
