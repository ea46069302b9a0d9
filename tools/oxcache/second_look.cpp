#include "tools/oxcache/second_look.h"

#include <sys/stat.h>

#include <chrono>
#include <map>
#include <thread>

#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

constexpr std::chrono::milliseconds kBetweenLooks{100};
constexpr int kMaxLooks = 5;

bool IsReplacedByCaches(const std::string& name) {
  return format::HasMetadataSuffix(name) || format::IsContentName(name);
}

// Tells a file from another one that had its name before. The number of a deleted file is soon
// given to a new one, so for files that a cache replaces the time of the last change counts too.
struct Identity {
  Identity(const std::string& directory, const std::string& name) {
    struct stat status {};
    exists = lstat((directory + "/" + name).c_str(), &status) == 0;
    number = status.st_ino;
    if (IsReplacedByCaches(name)) changed = status.st_ctim;
  }

  bool IsSameAs(const Identity& other) const {
    return exists && other.exists && number == other.number &&
           changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
  }

  bool exists;
  ino_t number;
  timespec changed{};
};

using Identities = std::map<std::string, Identity>;

OnlyThese NamesOf(const Identities& identities) {
  OnlyThese names(std::in_place);
  for (const auto& [name, identity] : identities)
    names->insert(name);
  return names;
}

}  // namespace

Error LookUntilConfirmed(const std::string& directory, const Look& look,
                         std::vector<Complaint>* complaints) {
  complaints->clear();
  std::vector<Complaint> found;
  if (Error error = look(std::nullopt, &found)) return error;
  Identities unconfirmed;
  for (const Complaint& complaint : found)
    unconfirmed.emplace(complaint.file, Identity(directory, complaint.file));
  for (int looks = 1; !unconfirmed.empty() && looks < kMaxLooks; ++looks) {
    WaitBetweenLooks();
    found.clear();
    if (Error error = look(NamesOf(unconfirmed), &found)) return error;
    Identities changed;
    for (Complaint& complaint : found) {
      const Identity now(directory, complaint.file);
      const auto before = unconfirmed.find(complaint.file);
      if (before == unconfirmed.end()) continue;
      if (now.IsSameAs(before->second)) {
        complaints->push_back(std::move(complaint));
      } else {
        changed.emplace(complaint.file, now);
      }
    }
    unconfirmed = std::move(changed);
  }
  return {};
}

void WaitBetweenLooks() {
  std::this_thread::sleep_for(kBetweenLooks);
}

}  // namespace ox::tools
