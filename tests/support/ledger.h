// What a cache may hold after a history that a fault, a kill or a power cut ended somewhere.
//
// Content and metadata of an entry are made from its URL and a version, so whatever a cache serves
// tells where it came from.
#ifndef OX_TESTS_SUPPORT_LEDGER_H_
#define OX_TESTS_SUPPORT_LEDGER_H_

#include <functional>
#include <map>
#include <set>
#include <string>

#include "tests/support/session_rig.h"

namespace ox::testing {

constexpr int kAbsent = 0;  // the version of what is not there
// Added to a version for each renewal of its metadata; the content stays.
constexpr int kRenewal = 1 << 24;

std::string ContentOf(const std::string& url, int version);
std::string MetadataOf(const std::string& url, int version);

class Ledger {
 public:
  // A commit has begun: from here on it may be found.
  void Begin(const std::string& url, int version);
  // It was reported done: from here on nothing else may.
  void Committed(const std::string& url, int version);
  void MayBeGone(const std::string& url) { Begin(url, kAbsent); }
  void IsGone(const std::string& url) { Committed(url, kAbsent); }
  // Any entry may have been evicted.
  void AnyMayBeGone();

  // Called whenever something else is allowed.
  std::function<void()> onChange;

  // The latest version that may be there.
  int Latest(const std::string& url) const {
    const auto versions = allowed_.find(url);
    return versions == allowed_.end() ? kAbsent : *versions->second.rbegin();
  }

  // Fetches every URL of the ledger, and one that was never stored. Empty when all is as allowed,
  // otherwise what is not.
  std::string Check(CacheSession& session) const;

 private:
  std::map<std::string, std::set<int>> allowed_;
};

// Stores one version; true when every step succeeded. The ledger learns of each step.
bool Store(CacheSession& session, const std::string& url, int version, Ledger* ledger);

// Renews the metadata of a URL that was stored with one content alone.
void Renew(CacheSession& session, const std::string& url, Ledger* ledger);
// The same through FetchOrStore; the entry may not be there before.
void Produce(CacheSession& session, const std::string& url, int version, Ledger* ledger);
// Removes it as the one entry for which a predicate is true. Not where the URL is not known.
void RemoveByUrl(CacheSession& session, const std::string& url, Ledger* ledger);

void Remove(CacheSession& session, const std::string& url, Ledger* ledger);

// Which version a fetch gives: kAbsent when there is none, -1 for a failed fetch and for bytes that
// are not exactly those of one version of this URL.
int FetchVersion(CacheSession& session, const std::string& url, Error* error);

}  // namespace ox::testing

#endif
