#include <nlohmann/json.hpp>
#include <vector>

#include "session/session_names.h"
#include "session/utf8.h"
#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/reports.h"
#include "tools/oxcache/text.h"
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using nlohmann::json;
using session::CacheLimits;
using internal::Survey;
using internal::SurveyedEntry;

struct Problem {
  std::string name;
  std::string what;
};

class Verifier {
 public:
  explicit Verifier(std::string directory) : directory_(std::move(directory)) {}

  void Verify(const Survey& survey) {
    for (const SurveyedEntry& entry : survey.entries)
      VerifyEntry(entry);
    AddAll(survey.contentWithoutMetaData, "content without metadata, which nothing counts");
    AddAll(survey.metaDataWithoutContent, "metadata without content");
    AddAll(survey.strangers, "a stranger: not of this cache");
  }

  const std::vector<Problem>& Problems() const { return problems_; }

 private:
  void Add(const std::string& name, const std::string& what) { problems_.push_back({name, what}); }

  void AddAll(const std::vector<std::string>& names, const char* what) {
    for (const std::string& name : names)
      Add(name, what);
  }

  void VerifyEntry(const SurveyedEntry& entry) {
    if (!format::IsContentName(entry.name)) {
      Add(entry.name, "not a name of 32 digits 0-9 and A-F: no URL leads to it");
    }
    if (Error error = VerifyContent(entry)) Add(entry.name, error.Message());
    VerifyMetadata(entry);
  }

  Error VerifyContent(const SurveyedEntry& entry) {
    Error error;
    const auto input = Input::OpenEntryFile(directory_ + "/" + entry.name, &error);
    if (input == nullptr) return error;
    std::vector<char> piece(kPieceBytes);
    std::uint64_t total = 0;
    std::size_t bytes = 0;
    do {
      if (error = input->Read(piece.data(), piece.size(), &bytes); error) return error;
      total += bytes;
    } while (bytes > 0);
    if (total == 0) Add(entry.name, "empty content");
    return {};
  }

  void VerifyMetadata(const SurveyedEntry& entry) {
    std::string metadata;
    const std::string name = entry.name + format::kMetaDataSuffix;
    if (Error error = ReadMetadata(directory_, entry.name, format::kTextBytes + 1, &metadata)) {
      return Add(name, error.Message());
    }
    if (metadata.empty()) Add(name, "empty metadata");
    if (metadata.size() > format::kTextBytes) {
      return Add(name, "longer than 1024 bytes: the rest does not come back");
    }
    if (metadata.find('\0') != std::string::npos) {
      return Add(name, "holds a NUL: what follows does not come back");
    }
    if (!internal::IsStrictUtf8(metadata)) Add(name, "not valid UTF-8");
  }

  std::string directory_;
  std::vector<Problem> problems_;
};

std::string Text(const std::vector<Problem>& problems) {
  std::string text;
  for (const Problem& problem : problems) {
    text += FirstLine(problem.name) + ": " + WithoutControls(problem.what) + "\n";
  }
  return text;
}

json Json(const Survey& survey, const std::vector<Problem>& problems) {
  json list = json::array();
  for (const Problem& problem : problems) {
    list.push_back({{"name", problem.name}, {"problem", problem.what}});
  }
  return {{"entries", survey.entries.size()}, {"problems", list}};
}

}  // namespace

ExitStatus Verify(Context& context, bool asJson) {
  CacheLimits limits;
  Survey survey;
  if (Error error = context.Inspect(&limits, &survey)) return context.Fail(error);
  Verifier verifier(limits.cacheDirectory);
  verifier.Verify(survey);
  const auto& problems = verifier.Problems();
  const ExitStatus printed =
      context.Print(asJson ? JsonLine(Json(survey, problems)) : Text(problems));
  context.Tell(EntriesText(survey.entries.size()) +
               " read, problems: " + std::to_string(problems.size()));
  return Worse(printed, problems.empty() ? ExitStatus::kDone : ExitStatus::kNotDone);
}

}  // namespace ox::tools
