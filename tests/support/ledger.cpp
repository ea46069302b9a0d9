#include "tests/support/ledger.h"

#include <cstdlib>

#include "tests/support/fault_driver.h"

namespace ox::testing {

std::string ContentOf(const std::string& url, int versionOfBoth) {
  const int version = versionOfBoth % kRenewal;
  std::string content = url + "#" + std::to_string(version) + "#";
  // Some are shorter than a block of the disk, some longer.
  const std::size_t bytes = content.size() + 1 + static_cast<std::size_t>(version) * 397 % 2000;
  while (content.size() < bytes)
    content += static_cast<char>('a' + (content.size() * 7 + static_cast<unsigned>(version)) % 26);
  return content;
}

std::string MetadataOf(const std::string& url, int version) {
  return std::to_string(version) + " of " + url + std::string(version % 5 * 40U, '.');
}

void Ledger::Begin(const std::string& url, int version) {
  const FaultPause pause;
  auto& allowed = allowed_[url];
  if (allowed.empty()) allowed.insert(kAbsent);
  allowed.insert(version);
  if (onChange) onChange();
}

void Ledger::Committed(const std::string& url, int version) {
  const FaultPause pause;
  allowed_[url] = {version};
  if (onChange) onChange();
}

void Ledger::AnyMayBeGone() {
  for (auto& url : allowed_)
    url.second.insert(kAbsent);
}

std::string Ledger::Check(CacheSession& session) const {
  std::string wrong;
  auto all = allowed_;
  all["http://never/stored"] = {kAbsent};
  for (const auto& [url, versions] : all) {
    Error error;
    const int version = FetchVersion(session, url, &error);
    if (versions.count(version) != 0) continue;
    wrong += url + " gives " + std::to_string(version) + " (" + error.Message() + "), allowed:";
    for (const int allowed : versions)
      wrong += " " + std::to_string(allowed);
    wrong += "\n";
  }
  return wrong;
}

bool Store(CacheSession& session, const std::string& url, int version, Ledger* ledger) {
  std::string content;
  std::string metadata;
  {
    const FaultPause pause;
    content = ContentOf(url, version);
    metadata = MetadataOf(url, version);
  }
  Error error;
  const auto writer = Write(session, url, content, &error);
  if (writer == nullptr) return false;
  ledger->Begin(url, version);
  if (writer->Commit(metadata)) return false;
  ledger->Committed(url, version);
  return true;
}

void Renew(CacheSession& session, const std::string& url, Ledger* ledger) {
  const int latest = ledger->Latest(url);
  if (latest == kAbsent) return;
  const int version = latest + kRenewal;
  std::string metadata;
  {
    const FaultPause pause;
    metadata = MetadataOf(url, version);
  }
  ledger->Begin(url, version);
  if (!session.SetMetadata(url, metadata)) ledger->Committed(url, version);
}

void Produce(CacheSession& session, const std::string& url, int version, Ledger* ledger) {
  ledger->Begin(url, version);
  const auto produce = [&](StoreWriter& writer, std::string* metadata) {
    *metadata = MetadataOf(url, version);
    const std::string content = ContentOf(url, version);
    return writer.Write(content.data(), content.size());
  };
  Error error;
  if (session.FetchOrStore(url, produce, &error)) ledger->Committed(url, version);
}

void RemoveByUrl(CacheSession& session, const std::string& url, Ledger* ledger) {
  ledger->MayBeGone(url);
  std::uint64_t deleted = 0;
  const auto isUnwanted = [&](const session::ListedEntry& entry) { return entry.url == url; };
  const Error error = session.RemoveIf(isUnwanted, &deleted);
  if (!error && deleted == 1) ledger->IsGone(url);
}

void Remove(CacheSession& session, const std::string& url, Ledger* ledger) {
  ledger->MayBeGone(url);
  if (!session.Remove(url)) ledger->IsGone(url);
}

int FetchVersion(CacheSession& session, const std::string& url, Error* error) {
  const auto entry = session.Fetch(url, error);
  if (!entry) return error->kind == ErrorKind::kNotFound ? kAbsent : -1;
  const std::string content = ReadAll(entry->content.Get());
  const int version = std::atoi(entry->metadata.c_str());
  const bool isExact = version > 0 && entry->metadata == MetadataOf(url, version) &&
                       content == ContentOf(url, version);
  if (!isExact) error->detail = "got \"" + entry->metadata + "\", " + content.substr(0, 40);
  return isExact ? version : -1;
}

}  // namespace ox::testing
