#include "bench/paired.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>
#include <vector>

namespace ox::bench {
namespace {

using Clock = std::chrono::steady_clock;

// Shorter than a scheduler's time slice, so that another program spoils few blocks and not most.
constexpr double kBlockNanoseconds = 5e5;
// Operations that a block of the base holds at least, however long they take.
constexpr std::size_t kMinCount = 5;
// A slow subject gets fewer rounds than asked for once it has taken this long.
constexpr double kSubjectNanoseconds = 8e8;
constexpr std::size_t kMinRounds = 9;
constexpr std::size_t kSingleRounds = 8;

double Since(Clock::time_point start) {
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// The mean of one block.
double RunBlock(const Operation& operation, std::size_t count) {
  operation.prepare(count);
  const auto start = Clock::now();
  for (std::size_t i = 0; i < count; ++i)
    operation.run(i);
  const double elapsed = Since(start);
  operation.finish();
  return elapsed / static_cast<double>(count);
}

// Operations timed one by one, in rounds.
struct Singles {
  std::vector<double> times;
  double calmWorst = std::numeric_limits<double>::infinity();
};

void RunSingly(const Operation& operation, std::size_t count, Singles* singles) {
  operation.prepare(count);
  double worst = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto start = Clock::now();
    operation.run(i);
    singles->times.push_back(Since(start));
    worst = std::max(worst, singles->times.back());
  }
  singles->calmWorst = std::min(singles->calmWorst, worst);
  operation.finish();
}

std::size_t ChooseCount(const Operation& base, std::size_t maxCount) {
  const std::size_t trial = std::min<std::size_t>(maxCount, 32);
  double each = RunBlock(base, trial);
  for (int i = 0; i < 4; ++i)
    each = std::min(each, RunBlock(base, trial));
  const auto wanted = static_cast<std::size_t>(kBlockNanoseconds / each);
  return std::min(std::max(wanted, kMinCount), maxCount);
}

double Quantile(const std::vector<double>& sorted, std::size_t percent) {
  return sorted[(sorted.size() - 1) * percent / 100];
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

Times Summarize(const std::vector<double>& blocks, Singles singles) {
  std::sort(singles.times.begin(), singles.times.end());
  return {Median(blocks), Quantile(singles.times, 99), singles.times.back(), singles.calmWorst};
}

}  // namespace

Paired MeasurePaired(const Operation& base, const Operation& subject, const BlockLimits& limits) {
  const std::size_t count = ChooseCount(base, limits.maxCount);
  RunBlock(subject, std::min<std::size_t>(count, 32));

  std::vector<double> baseBlocks;
  std::vector<double> subjectBlocks;
  std::vector<double> ratios;
  double spent = 0;
  for (std::size_t round = 0; round < limits.rounds; ++round) {
    if (round >= kMinRounds && spent > kSubjectNanoseconds) break;
    // Each side goes first in half of the rounds.
    const bool isBaseFirst = round % 2 == 0;
    if (isBaseFirst) baseBlocks.push_back(RunBlock(base, count));
    subjectBlocks.push_back(RunBlock(subject, count));
    if (!isBaseFirst) baseBlocks.push_back(RunBlock(base, count));
    ratios.push_back(subjectBlocks.back() / baseBlocks.back());
    spent += subjectBlocks.back() * static_cast<double>(count);
  }

  Singles baseSingles;
  Singles subjectSingles;
  for (std::size_t round = 0; round < kSingleRounds; ++round) {
    RunSingly(base, count, &baseSingles);
    RunSingly(subject, count, &subjectSingles);
  }

  std::sort(ratios.begin(), ratios.end());
  return {
      ratios.size(),
      count,
      subjectSingles.times.size(),
      Summarize(baseBlocks, std::move(baseSingles)),
      Summarize(subjectBlocks, std::move(subjectSingles)),
      {Median(ratios), ratios.front(), Quantile(ratios, 10), Quantile(ratios, 90), ratios.back()}};
}

}  // namespace ox::bench
