#include "tools/oxcache/fetch_progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tools/oxcache/text.h"

namespace ox::tools {
namespace {

constexpr std::chrono::milliseconds kDrawInterval{100};
constexpr std::size_t kBarWidth = 30;

std::size_t TerminalWidth() {
  constexpr std::size_t kUsualWidth = 80;
  winsize size{};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return isKnown ? size.ws_col : kUsualWidth;
}

std::size_t FilledWidth(std::uint64_t received, std::uint64_t total) {
  const double share = static_cast<double>(received) / static_cast<double>(total);
  return std::min(kBarWidth, static_cast<std::size_t>(share * kBarWidth));
}

}  // namespace

FetchProgress::FetchProgress(std::size_t files, bool isShown) : isShown_(isShown), files_(files) {}

FetchProgress::~FetchProgress() {
  Erase();
}

void FetchProgress::Update(std::size_t file, std::uint64_t received, std::uint64_t total) {
  const internal::MutexLock lock(mutex_);
  files_[file].received = received;
  files_[file].total = total;
  if (isShown_ && Clock::now() - drawn_ >= kDrawInterval) Draw();
}

void FetchProgress::Finish(std::size_t file, std::uint64_t bytes) {
  const internal::MutexLock lock(mutex_);
  files_[file] = {bytes, bytes, true};
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
  std::size_t finished = 0;
  bool isTotalKnown = true;
  for (const File& file : files_) {
    const bool isUnknown = !file.isFinished && file.received > 0 && file.total == 0;
    isTotalKnown = isTotalKnown && !isUnknown;
    // What a server promises is at most what one body may have, so the sum fits.
    received += file.received;
    total += std::max(file.received, file.total);
    finished += file.isFinished ? 1 : 0;
  }
  const double seconds =
      std::max(0.001, std::chrono::duration<double>(Clock::now() - start_).count());
  const auto speed = static_cast<std::uint64_t>(static_cast<double>(received) / seconds);
  std::string text = std::to_string(finished) + "/" + std::to_string(files_.size()) + " files, " +
                     SizeText(received) + (isTotalKnown ? " of " + SizeText(total) : "") + ", " +
                     SizeText(speed) + "/s";
  // The last column stays free: a terminal may begin a new line there.
  const std::size_t width = TerminalWidth() - 1;
  const std::size_t bar = kBarWidth + sizeof "[] " - 1;
  if (isTotalKnown && total > 0 && text.size() + bar <= width) {
    const std::size_t filled = FilledWidth(received, total);
    text = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " + text;
  }
  return text.substr(0, width);
}

}  // namespace ox::tools
