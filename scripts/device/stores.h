// What keeps entries, for the measure of wear: the session, and the two ways that a device maker
// would take instead.
#ifndef OX_SCRIPTS_DEVICE_STORES_H_
#define OX_SCRIPTS_DEVICE_STORES_H_

#include <memory>
#include <string>

namespace ox::device {

class EntryStore {
 public:
  virtual ~EntryStore() = default;
  // All end the program when they fail.
  virtual void Put(const std::string& url, const std::string& content,
                   const std::string& metadata) = 0;
  virtual bool Get(const std::string& url) = 0;  // reads the whole entry
  // Whether it is there and how many there are, without reading it.
  virtual bool Look(const std::string& url) = 0;
  // New metadata for the content that is there, as after "not modified".
  virtual void Renew(const std::string& url, const std::string& metadata) = 0;
};

// "none", "process", "power": a session; "rename", "rename-sync": one file for each entry, written
// and renamed into place; "sqlite", "sqlite-sync": a database with a log, without and with waiting
// for the medium.
std::unique_ptr<EntryStore> OpenStore(const std::string& kind, const std::string& directory);

std::unique_ptr<EntryStore> OpenSqlite(const std::string& directory, bool isSynchronised);

}  // namespace ox::device

#endif
