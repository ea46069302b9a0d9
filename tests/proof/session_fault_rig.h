// A cache that has entries and what killed processes leave, whose session is about to be disturbed.
#ifndef OX_TESTS_PROOF_SESSION_FAULT_RIG_H_
#define OX_TESTS_PROOF_SESSION_FAULT_RIG_H_

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "tests/support/ledger.h"
#include "tests/support/system_calls.h"

namespace ox::testing {

using Mode = FaultDriver::Mode;

inline const std::string kKept = "http://host/kept";
inline const std::string kReplaced = "http://host/replaced";
inline const std::string kRemoved = "http://host/removed";
inline const std::string kNew = "http://host/new";
inline const std::string kInterrupted = "http://host/interrupted";

struct Cache {
  explicit Cache(Durability durability);

  // What killed processes leave: half a file, and a commit that has to be finished.
  void LeaveBehind(int version);
  void Open();
  // At the lowest durability the old entry may go with a failed commit.
  void Replace(int version);

  CacheDirectory scratch{{100000, 9, 65536}};
  SessionOptions options;
  Ledger ledger;
  Error error;
  std::unique_ptr<CacheSession> session;
};

// The changes that a session makes to its directory, and what happens just before one of them.
extern FaultDriver changes;
extern std::function<void(Cache&)> beforeChange;

bool AllHaveSeals(const Cache& cache);
// No entry is lost, nothing has stayed behind, and every URL can be stored at once.
void CheckAtLast(Cache& cache);
// The session that was disturbed goes on, or another takes over.
void CheckBoth(Cache& cache, bool goesOn);

}  // namespace ox::testing

#endif
