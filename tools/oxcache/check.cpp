// "check": the real module starts over a file system that records deletions instead of making them.
// The module decides what a start would delete. The reasons are worked out here, from the files
// that the module asked about and the order in which it asked.
#include <cstdint>
#include <nlohmann/json.hpp>

#include "tools/oxcache/dry_run_file_system.h"
#include "tools/oxcache/reports.h"
#include "tools/oxcache/second_look.h"
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

struct Prediction {
  std::uint64_t kept = 0;  // entries
  std::vector<Complaint> deletions;
};

Error StartWithoutDeleting(const GlobalOptions& options, DryRun* run) {
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

// Follows the start from file to file and keeps the two totals that the module decides by.
class Predictor {
 public:
  explicit Predictor(const CacheLimits& limits) : limits_(limits) {}

  void Add(const DryVisit& visit) {
    if (!visit.deletions.empty()) {
      const std::string reason = Reason(visit);
      for (const DryDeletion& deletion : visit.deletions) {
        prediction_.deletions.push_back({NameOf(deletion.path), reason, deletion.bytes});
      }
    } else if (visit.partnerBytes) {
      ++prediction_.kept;
      // A start counts only the content of the entries that it finds.
      total_ += *visit.partnerBytes;
    }
  }

  Prediction Take() { return std::move(prediction_); }

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
    if (prediction_.kept >= limits_.maxEntries) {
      return "the number of entries has reached its limit, " + std::to_string(limits_.maxEntries);
    }
    return "the total size would be " + std::to_string(total_ + size) + ", above its limit, " +
           std::to_string(limits_.maxSize);
  }

  const CacheLimits& limits_;
  Prediction prediction_;
  std::uint64_t total_ = 0;  // bytes
};

Prediction Predict(const DryRun& run) {
  Predictor predictor(run.limits);
  for (const DryVisit& visit : run.visits)
    predictor.Add(visit);
  return predictor.Take();
}

std::string Text(const Prediction& prediction) {
  std::string text;
  for (const Complaint& deletion : prediction.deletions) {
    text += FirstLine(deletion.file) + ": " + deletion.what + "\n";
  }
  return text;
}

json Json(const CacheLimits& limits, const Prediction& prediction, const internal::Survey& survey) {
  json deletions = json::array();
  for (const Complaint& deletion : prediction.deletions) {
    deletions.push_back(
        {{"file", deletion.file}, {"bytes", deletion.bytes}, {"reason", deletion.what}});
  }
  return {{"limits", LimitsJson(limits)},
          {"kept", prediction.kept},
          {"deletions", deletions},
          {"blocked_commits", survey.blockedCommits}};
}

}  // namespace

ExitStatus Check(Context& context, bool asJson) {
  // To the module a directory that cannot be read is an empty one.
  CacheLimits limits;
  internal::Survey survey;
  if (Error error = context.Inspect(&limits, &survey)) return context.Fail(error);
  Prediction prediction;
  const auto look = [&](const OnlyThese&, std::vector<Complaint>* found) {
    DryRun run;
    if (Error error = StartWithoutDeleting(context.Options(), &run)) return error;
    limits = run.limits;
    Prediction now = Predict(run);
    prediction.kept = now.kept;
    *found = std::move(now.deletions);
    return Error{};
  };
  if (Error error = LookUntilConfirmed(limits.cacheDirectory, look, &prediction.deletions)) {
    return context.Fail(error);
  }
  const auto& deletions = prediction.deletions;
  const ExitStatus printed =
      context.Print(asJson ? JsonLine(Json(limits, prediction, survey)) : Text(prediction));
  for (const std::string& commit : survey.blockedCommits) {
    context.Tell(commit + ": " + kBlockedCommit);
  }
  context.Tell("a start would keep " + EntriesText(prediction.kept) +
               "; files it would delete: " + std::to_string(deletions.size()));
  return Worse(printed, deletions.empty() ? ExitStatus::kDone : ExitStatus::kNotDone);
}

}  // namespace ox::tools
