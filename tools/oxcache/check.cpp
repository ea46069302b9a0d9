// "check": the real module starts over a file system that only writes deletions down. What it would
// delete is its own word; the reasons are worked out here from what it looked at, in its order.
#include <cstdint>
#include <nlohmann/json.hpp>

#include "tools/oxcache/dry_run_file_system.h"
#include "tools/oxcache/reports.h"
#include "tools/oxcache/text.h"
#include <oxfilecache/host.h>

namespace ox::tools {
namespace {

using nlohmann::json;
using session::CacheLimits;

struct DryRun {
  CacheLimits limits;
  std::vector<DryVisit> visits;
};

struct Deletion {
  std::string file;  // without the directory
  std::uint64_t bytes;
  std::string reason;
};

struct Verdict {
  std::uint64_t kept = 0;  // entries
  std::vector<Deletion> deletions;
};

Error StartDry(const GlobalOptions& options, DryRun* run) {
  host::PosixKernel kernel(options.directory);
  DryRunFileSystem fileSystem(options.directory);
  kernel.UseFileSystem(&fileSystem);
  std::string reason;
  const auto module = host::LoadedModule::Load(options.modulePath, kernel, &reason);
  if (module == nullptr) {
    return MakeError(ErrorKind::kModule, "cannot load the module: " + reason);
  }
  host::ManagerReference manager(*module);
  if (!manager) return MakeError(ErrorKind::kOutOfMemory, "out of memory");
  run->limits.maxSize = static_cast<std::uint32_t>(manager->GetMaxSize());
  run->limits.maxEntries = static_cast<std::uint32_t>(manager->GetMaxEntries());
  run->limits.maxEntrySize = static_cast<std::uint32_t>(manager->GetMaxCacheValueSize());
  run->limits.cacheDirectory = fileSystem.EnumeratedDirectory();
  run->visits = fileSystem.Visits();
  return {};
}

// Follows the start through the files and keeps the two totals that it judges by.
class Judge {
 public:
  explicit Judge(const CacheLimits& limits) : limits_(limits) {}

  void Look(const DryVisit& visit) {
    if (!visit.deletions.empty()) {
      const std::string reason = Reason(visit);
      for (const DryDeletion& deletion : visit.deletions) {
        verdict_.deletions.push_back({NameOf(deletion.path), deletion.bytes, reason});
      }
    } else if (visit.partnerBytes) {
      ++verdict_.kept;
      // An entry found by a start counts without its metadata.
      total_ += *visit.partnerBytes;
    }
  }

  Verdict Take() { return std::move(verdict_); }

 private:
  static std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

  std::string Reason(const DryVisit& visit) const {
    if (!visit.partnerBytes) return "metadata whose content file is not found";
    if (*visit.partnerBytes == 0) return "empty content";
    const std::uint64_t size = *visit.partnerBytes + visit.ownBytes.value_or(0);
    if (limits_.maxEntries == 0) {
      return "the configuration admits no entry: MAX_CACHE_ENTRIES is 0 or missing";
    }
    if (size > limits_.maxEntrySize) {
      return std::to_string(size) + " bytes are above the limit of one entry, " +
             std::to_string(limits_.maxEntrySize);
    }
    if (verdict_.kept >= limits_.maxEntries) {
      return "the number of entries has reached its limit, " + std::to_string(limits_.maxEntries);
    }
    return "the total size would be " + std::to_string(total_ + size) + ", above its limit, " +
           std::to_string(limits_.maxSize);
  }

  const CacheLimits& limits_;
  Verdict verdict_;
  std::uint64_t total_ = 0;  // bytes
};

Verdict JudgeAll(const DryRun& run) {
  Judge judge(run.limits);
  for (const DryVisit& visit : run.visits)
    judge.Look(visit);
  return judge.Take();
}

std::string Text(const Verdict& verdict) {
  std::string text;
  for (const Deletion& deletion : verdict.deletions) {
    text += FirstLine(deletion.file) + ": " + deletion.reason + "\n";
  }
  return text;
}

json Json(const CacheLimits& limits, const Verdict& verdict) {
  json deletions = json::array();
  for (const Deletion& deletion : verdict.deletions) {
    deletions.push_back(
        {{"file", deletion.file}, {"bytes", deletion.bytes}, {"reason", deletion.reason}});
  }
  return {{"limits", LimitsJson(limits)}, {"kept", verdict.kept}, {"deletions", deletions}};
}

}  // namespace

ExitStatus Check(Context& context, bool asJson) {
  // A directory that cannot be read looks empty to the module.
  CacheLimits limits;
  internal::Survey survey;
  if (Error error = context.Inspect(&limits, &survey)) return context.Fail(error);
  DryRun run;
  if (Error error = StartDry(context.Options(), &run)) return context.Fail(error);
  const Verdict verdict = JudgeAll(run);
  const ExitStatus printed =
      context.Print(asJson ? JsonLine(Json(run.limits, verdict)) : Text(verdict));
  context.Tell("a start would keep " + EntriesText(verdict.kept) +
               "; files it would delete: " + std::to_string(verdict.deletions.size()));
  return Worse(printed, verdict.deletions.empty() ? ExitStatus::kDone : ExitStatus::kNotDone);
}

}  // namespace ox::tools
