// The measured operations of one contender over its own entries.
#ifndef OX_BENCH_OPERATIONS_H_
#define OX_BENCH_OPERATIONS_H_

#include <cstddef>
#include <string>
#include <vector>

#include "bench/contender.h"
#include "bench/paired.h"
#include "bench/workload.h"

namespace ox::bench {

// All of them, in the order in which they may run: churn leaves other entries than it found.
const std::vector<std::string>& OperationNames();

// A contender that holds the first `entries` entries of the workload.
class Bench {
 public:
  // Makes the contender in a directory of its own below `parent`, fills it, and checks that each
  // entry comes back as it was stored.
  Bench(const std::string& name, const std::string& parent, std::size_t entries,
        std::size_t contentBytes, bool countsKernel = false);
  // Removes the directory.
  ~Bench();
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  Operation Make(const std::string& operation);
  Contender& Subject() { return *contender_; }

 private:
  Operation Fetching(Want want, std::size_t firstNumber, bool isThere);
  Operation Storing();
  Operation Replacing();
  Operation Removing();
  Operation Churning();
  Operation Starting();

  void Fill();
  void PrepareRandom(std::size_t count, std::size_t firstNumber);
  void PrepareDistinct(std::size_t count);
  void StoreAll(std::size_t count);
  void RemoveAll(std::size_t count);

  Workload workload_;
  std::size_t entries_;
  Shuffle shuffle_{7};
  Fetched fetched_;
  std::string directory_;
  std::unique_ptr<Contender> contender_;
  // What the index of an operation stands for.
  std::vector<std::size_t> numbers_;
  std::size_t nextNew_;
};

// At most this many operations of a block, so that stores and removals leave half of the entries.
BlockLimits LimitsOf(const std::string& operation, std::size_t entries);

}  // namespace ox::bench

#endif
