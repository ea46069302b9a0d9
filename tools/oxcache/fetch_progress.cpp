#include "tools/oxcache/fetch_progress.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "tools/oxcache/text.h"

namespace ox::tools {
namespace {

constexpr std::chrono::milliseconds kDrawInterval{100};
constexpr std::size_t kBarWidth = 30;

// Servers may promise any number of bytes.
std::uint64_t SaturatedSum(std::uint64_t a, std::uint64_t b) {
  return a > std::numeric_limits<std::uint64_t>::max() - b
             ? std::numeric_limits<std::uint64_t>::max()
             : a + b;
}

std::size_t FilledWidth(std::uint64_t received, std::uint64_t total) {
  if (total == 0) return 0;
  const double share = static_cast<double>(received) / static_cast<double>(total);
  return std::min(kBarWidth, static_cast<std::size_t>(share * kBarWidth));
}

}  // namespace

FetchProgress::FetchProgress(std::size_t files, bool isShown) : isShown_(isShown), files_(files) {}

FetchProgress::~FetchProgress() {
  Erase();
}

void FetchProgress::Update(std::size_t file, std::uint64_t received, std::uint64_t total) {
  const std::lock_guard<std::mutex> lock(mutex_);
  files_[file].received = received;
  files_[file].total = total;
  if (isShown_ && Clock::now() - drawn_ >= kDrawInterval) Draw();
}

void FetchProgress::Finish(std::size_t file) {
  const std::lock_guard<std::mutex> lock(mutex_);
  files_[file].isFinished = true;
}

void FetchProgress::Erase() {
  if (!isOnScreen_) return;
  std::fputs("\r\033[K", stderr);
  isOnScreen_ = false;
}

void FetchProgress::Draw() {
  std::fputs(("\r" + Line() + "\033[K").c_str(), stderr);
  drawn_ = Clock::now();
  isOnScreen_ = true;
}

std::string FetchProgress::Line() const {
  std::uint64_t received = 0;
  std::uint64_t total = 0;
  for (const File& file : files_) {
    received = SaturatedSum(received, file.received);
    total = SaturatedSum(total, std::max(file.received, file.total));
  }
  const auto finished =
      std::count_if(files_.begin(), files_.end(), [](const File& file) { return file.isFinished; });
  const double seconds =
      std::max(0.001, std::chrono::duration<double>(Clock::now() - start_).count());
  const auto speed = static_cast<std::uint64_t>(static_cast<double>(received) / seconds);
  const std::size_t filled = FilledWidth(received, total);
  return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " +
         std::to_string(finished) + "/" + std::to_string(files_.size()) + " files, " +
         SizeText(received) + " of " + SizeText(total) + ", " + SizeText(speed) + "/s";
}

}  // namespace ox::tools
