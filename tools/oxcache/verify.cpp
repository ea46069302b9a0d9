#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "session/crc32c.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/session_names.h"
#include "session/utf8.h"
#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/reports.h"
#include "tools/oxcache/second_look.h"
#include "tools/oxcache/text.h"
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using internal::Survey;
using internal::SurveyedEntry;
using nlohmann::json;
using session::CacheLimits;

// Looks at all files of one survey, or at some of them.
class Verifier {
 public:
  Verifier(std::string directory, const OnlyThese& only, std::vector<Complaint>* complaints)
      : directory_(std::move(directory)), only_(only), complaints_(complaints) {}

  void Verify(const Survey& survey) {
    for (const SurveyedEntry& entry : survey.entries)
      VerifyEntry(entry);
    AddContentWithoutMetadata(survey);
    AddAll(survey.metadataWithoutContent, "metadata without content");
    AddAll(survey.blockedCommits, kBlockedCommit);
    AddAll(survey.foreignFiles, "foreign file: not part of this cache");
  }

 private:
  bool IsWanted(const std::string& name) const { return !only_ || only_->count(name) > 0; }

  void Add(const std::string& name, const std::string& what) {
    if (IsWanted(name)) complaints_->push_back({name, what});
  }

  void AddAll(const std::vector<std::string>& names, const char* what) {
    for (const std::string& name : names)
      Add(name, what);
  }

  // While a store is being finished its metadata has the name of a commit file.
  void AddContentWithoutMetadata(const Survey& survey) {
    std::set<std::string> beingFinished;
    std::string entryName;
    std::string id;
    for (const std::string& name : survey.staging) {
      if (internal::ParseCommitFileName(name, &entryName, &id)) beingFinished.insert(entryName);
    }
    for (const std::string& name : survey.contentWithoutMetadata) {
      if (beingFinished.count(name) == 0) Add(name, "content without metadata: no entry uses it");
    }
  }

  void VerifyEntry(const SurveyedEntry& entry) {
    const std::string name(entry.name);
    if (!format::IsContentName(name)) {
      Add(name, "the name is not 32 digits 0-9 and A-F, so no URL leads to it");
    }
    if (IsWanted(name)) VerifyContent(name);
    const std::string metadataName = name + format::kMetadataSuffix;
    if (IsWanted(metadataName)) VerifyMetadata(name, metadataName);
  }

  void VerifyContent(const std::string& name) {
    Error error;
    const auto input = Input::OpenEntryFile(directory_ + "/" + name, &error);
    if (input == nullptr) return Add(name, error.Message());
    std::vector<char> piece(kPieceBytes);
    std::uint64_t total = 0;
    std::uint32_t sum = 0;
    std::size_t bytes = 0;
    do {
      if (error = input->Read(piece.data(), piece.size(), &bytes); error) {
        return Add(name, error.Message());
      }
      total += bytes;
      sum = internal::ExtendCrc32c(sum, piece.data(), bytes);
    } while (bytes > 0);
    if (total == 0) return Add(name, "empty content");
    CompareWithSeal(name, total, sum);
  }

  void CompareWithSeal(const std::string& name, std::uint64_t bytes, std::uint32_t sum) {
    const auto seal = internal::ReadSeal(directory_ + "/" + name + format::kMetadataSuffix);
    if (!seal) return;
    if (seal->contentBytes != bytes) {
      Add(name, "has " + std::to_string(bytes) + " bytes, and " +
                    std::to_string(seal->contentBytes) + " were committed");
    } else if (seal->contentSum != sum) {
      Add(name, "is not what was committed: the CRC-32C differs");
    }
  }

  void VerifyMetadata(const std::string& entryName, const std::string& name) {
    std::string metadata;
    if (Error error = ReadMetadata(directory_, name, format::kTextBytes + 1, &metadata)) {
      return Add(name, error.Message());
    }
    if (metadata.empty()) Add(name, "empty metadata");
    if (metadata.size() > format::kTextBytes) {
      return Add(name, "longer than " + std::to_string(format::kTextBytes) +
                           " bytes: the cache does not give back the rest");
    }
    if (metadata.find('\0') != std::string::npos) {
      return Add(name, "has a zero byte: the cache does not give back what follows it");
    }
    if (!internal::IsStrictUtf8(metadata)) return Add(name, "not valid UTF-8");
    const auto seal = internal::ReadSeal(directory_ + "/" + name);
    if (!seal) return;
    if (!seal->HasMetadata(metadata)) {
      Add(name, "is not what was committed: the CRC-32C differs");
    }
    if (!seal->url.empty() && internal::ContentName(seal->url) != entryName) {
      Add(name, "was committed for a URL whose entry has another name: " + seal->url);
    }
  }

  const std::string directory_;
  const OnlyThese& only_;
  std::vector<Complaint>* complaints_;
};

std::string Text(const std::vector<Complaint>& complaints) {
  std::string text;
  for (const Complaint& complaint : complaints) {
    text += FirstLine(complaint.file) + ": " + WithoutControls(complaint.what) + "\n";
  }
  return text;
}

json Json(std::size_t entries, const std::vector<Complaint>& complaints) {
  json list = json::array();
  for (const Complaint& complaint : complaints) {
    list.push_back({{"name", complaint.file}, {"problem", complaint.what}});
  }
  return {{"entries", entries}, {"problems", list}};
}

}  // namespace

ExitStatus Verify(Context& context, bool asJson) {
  CacheLimits limits;
  if (Error error = context.Limits(&limits)) return context.Fail(error);
  std::size_t entries = 0;
  std::vector<Complaint> complaints;
  const auto look = [&](const OnlyThese& only, std::vector<Complaint>* found) {
    Survey survey;
    if (Error error = SurveyIfThere(limits.cacheDirectory, &survey)) return error;
    if (!only) entries = survey.entries.size();
    Verifier(limits.cacheDirectory, only, found).Verify(survey);
    return Error{};
  };
  if (Error error = LookUntilConfirmed(limits.cacheDirectory, look, &complaints)) {
    return context.Fail(error);
  }
  const ExitStatus printed =
      context.Print(asJson ? JsonLine(Json(entries, complaints)) : Text(complaints));
  context.Tell(EntriesText(entries) + " read, problems: " + std::to_string(complaints.size()));
  return Worse(printed, complaints.empty() ? ExitStatus::kDone : ExitStatus::kNotDone);
}

}  // namespace ox::tools
