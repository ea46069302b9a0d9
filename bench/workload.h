// The entries that every measurement works with, the same in each run.
#ifndef OX_BENCH_WORKLOAD_H_
#define OX_BENCH_WORKLOAD_H_

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace ox::bench {

inline constexpr std::size_t kMetadataBytes = 200;

class Workload {
 public:
  explicit Workload(std::size_t contentBytes);

  // About 70 bytes, another text for each number.
  std::string Url(std::size_t number) const;
  // 200 bytes of ASCII.
  const std::string& Metadata() const { return metadata_; }
  std::size_t ContentBytes() const { return contentBytes_; }
  // Bytes that do not compress, another window of them for each number.
  std::string_view Content(std::size_t number) const;

 private:
  std::size_t contentBytes_;
  std::string metadata_;
  std::string pool_;
};

// Numbers in random order, from a fixed seed.
class Shuffle {
 public:
  explicit Shuffle(std::size_t seed) : random_(seed) {}
  // Any of 0 to n - 1, repeats included.
  std::vector<std::size_t> Draw(std::size_t count, std::size_t n);
  // `count` different ones of 0 to n - 1.
  std::vector<std::size_t> DrawDistinct(std::size_t count, std::size_t n);

 private:
  std::mt19937_64 random_;
};

}  // namespace ox::bench

#endif
