// One history on the module and on the model: every result, every limit and every byte on the disk
// must agree after every step. What happens next is picked from outside: at random, or by a fuzzer.
#ifndef OX_TESTS_SUPPORT_MODEL_HISTORY_H_
#define OX_TESTS_SUPPORT_MODEL_HISTORY_H_

#include <functional>
#include <map>
#include <string>

#include "tests/support/cache_rig.h"
#include "tests/support/model.h"

namespace ox::testing {

class ModelHistory {
 public:
  // A number from 0 to one below its argument.
  using Picker = std::function<unsigned(unsigned)>;

  explicit ModelHistory(Picker picker);

  void Step();

 private:
  unsigned Pick(unsigned below) { return picker_(below); }
  std::string PickUrl();
  const std::string& PathOf(const std::string& url) { return paths_[url]; }
  std::map<std::string, std::string> Disk() const;

  void Create();
  void WriteContent();
  void Commit();
  void Get();
  void RemoveOrAbandon();
  void SetLimit();
  void Restart();
  void LoseSomething();

  Picker picker_;
  CacheRig rig_;
  Model model_;
  std::map<std::string, std::string> paths_;
  // Null or stale after eviction: asked only via the model.
  std::map<std::string, core::cache::CacheValue*> values_;
};

}  // namespace ox::testing

#endif
