#include "bench/workload.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>

namespace ox::bench {
namespace {

constexpr std::uint64_t kSeed = 20240611;
// More windows than any cache level holds would only measure the memory.
constexpr std::size_t kWindows = 64;

}  // namespace

Workload::Workload(std::size_t contentBytes) : contentBytes_(contentBytes) {
  metadata_ =
      "Content-Type: image/jpeg\nETag: \"5f3c-58a9\"\nCache-Control: max-age=86400\nX-Padding: ";
  metadata_.resize(kMetadataBytes, 'x');
  std::mt19937_64 random(kSeed);
  pool_.resize(contentBytes + kWindows);
  std::generate(pool_.begin(), pool_.end(), [&] { return static_cast<char>(random()); });
}

std::string Workload::Url(std::size_t number) const {
  // An odd multiplier keeps the texts different and spreads them.
  const std::uint64_t mixed = (number + 1) * 0x9E3779B97F4A7C15U;
  char text[96];
  std::snprintf(text, sizeof text, "https://media.example.com/catalog/%016llx/poster-%07zu.jpg",
                static_cast<unsigned long long>(mixed), number);
  return text;
}

std::string_view Workload::Content(std::size_t number) const {
  return std::string_view(pool_).substr(number % kWindows, contentBytes_);
}

std::vector<std::size_t> Shuffle::Draw(std::size_t count, std::size_t n) {
  std::uniform_int_distribution<std::size_t> any(0, n - 1);
  std::vector<std::size_t> numbers(count);
  for (std::size_t& number : numbers)
    number = any(random_);
  return numbers;
}

std::vector<std::size_t> Shuffle::DrawDistinct(std::size_t count, std::size_t n) {
  std::vector<std::size_t> numbers(n);
  std::iota(numbers.begin(), numbers.end(), std::size_t{0});
  std::shuffle(numbers.begin(), numbers.end(), random_);
  numbers.resize(std::min(count, n));
  return numbers;
}

}  // namespace ox::bench
