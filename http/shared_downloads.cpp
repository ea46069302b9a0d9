#include "http/shared_downloads.h"

namespace ox::internal::http {

std::shared_ptr<SharedDownloads::Download> SharedDownloads::Join(const std::string& url) {
  const MutexLock lock(mutex_);
  const auto [place, isNew] = downloads_.try_emplace(url);
  if (!isNew) return place->second;
  place->second = std::make_shared<Download>();
  return nullptr;
}

void SharedDownloads::End(const std::string& url, const DownloadEnd& end) {
  const MutexLock lock(mutex_);
  const auto place = downloads_.find(url);
  place->second->end = end;
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
