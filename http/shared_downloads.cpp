#include "http/shared_downloads.h"

#include <utility>

namespace ox::internal::http {

std::shared_ptr<SharedDownloads::Download> SharedDownloads::Join(const std::string& url,
                                                                 bool* isLeader) {
  auto download = std::make_shared<Download>();
  const MutexLock lock(mutex_);
  const auto [place, isNew] = downloads_.try_emplace(url, std::move(download));
  *isLeader = isNew;
  return place->second;
}

void SharedDownloads::End(const std::string& url, Download& download, DownloadEnd end) {
  const MutexLock lock(mutex_);
  const auto place = downloads_.find(url);
  // Invalidated ones have their end.
  if (!download.isDone) download.end = std::move(end);
  download.isDone = true;
  if (place != downloads_.end() && place->second.get() == &download) downloads_.erase(place);
  ended_.NotifyAll();
}

void SharedDownloads::Invalidate(const std::string& url) {
  const MutexLock lock(mutex_);
  const auto place = downloads_.find(url);
  if (place == downloads_.end()) return;
  place->second->isDone = true;
  downloads_.erase(place);
  ended_.NotifyAll();
}

bool SharedDownloads::WaitFor(Download& download, std::chrono::milliseconds time,
                              DownloadEnd* end) {
  MutexLock lock(mutex_);
  if (!ended_.WaitFor(lock, time, [&download] { return download.isDone; })) return false;
  *end = download.end;
  return true;
}

}  // namespace ox::internal::http
