// A plain model of the cache manager, written for reading: what it lists, and every byte on the
// disk. ASCII only, so that bytes and units are the same.
#ifndef OX_TESTS_SUPPORT_MODEL_H_
#define OX_TESTS_SUPPORT_MODEL_H_

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace ox::testing {

struct ModelEntry {
  std::string path;
  std::string metaData;  // as held in memory
  std::uint32_t declared;
  bool isPending;
};

class Model {
 public:
  std::map<std::string, std::string> disk;
  std::uint32_t maxSize = 0;
  std::uint32_t maxEntries = 0;
  std::uint32_t maxEntrySize = 0;

  void Start(std::uint32_t size, std::uint32_t entries, std::uint32_t entrySize,
             const std::vector<std::string>& order);
  void Stop();
  bool Create(const std::string& path, std::uint32_t declared, const std::string& metaData);
  bool Commit(const std::string& path);
  const ModelEntry* Get(const std::string& path);
  void Remove(const std::string& path);
  void FitSize(std::uint32_t extra);
  void FitCount(std::uint32_t more);
  void FitEntrySize();
  ModelEntry* Find(const std::string& path);
  std::uint32_t ContentSize(const std::string& path) const;

 private:
  std::list<ModelEntry>::iterator Position(const std::string& path);
  std::uint32_t SizeOf(const ModelEntry& entry) const;
  bool Admit(const ModelEntry& entry);
  void DeleteFiles(const ModelEntry& entry);

  // Committed entries, oldest first.
  std::vector<std::string> Evictable() const;
  void Scan(const std::string& name);

  std::list<ModelEntry> list_;  // newest first
  // What admissions added less what removals asked for, never what lies on disk. May wrap.
  std::uint32_t total_ = 0;
  bool fits_ = true;
};

}  // namespace ox::testing

#endif
