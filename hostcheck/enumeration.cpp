// Enumeration of directories, with callbacks that delete files and use other objects as the scan of
// the cache does.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <set>
#include <utility>

#include "hostcheck/check.h"
#include <oxfilecache/format.h>
#include <oxfilecache/string.h>

namespace ox::hostcheck::internal {
namespace {

// More than a system call hands out at once, so that the host is still reading while files go.
constexpr int kManyPairs = 300;
constexpr const char* kSuffix = format::kMetadataSuffix;

struct Visit {
  std::string path;
  std::string name;  // behind the last slash
  bool isDirectory;
};

using Act = std::function<bool(File& entry, const Visit& visit)>;

// A global, because whether the host hands over the context is a check of its own.
struct Enumeration {
  Act act;
  std::vector<Visit> visits;
  std::exception_ptr failure;
};
Enumeration* current = nullptr;

std::string PathOf(File& entry) {
  OxString path;
  entry.GetPath(path);
  return path.UTF8();
}

bool OnEntry(File& entry, bool isDirectory, void*) {
  // Nothing may be thrown through the host.
  try {
    const std::string path = PathOf(entry);
    current->visits.push_back({path, path.substr(path.rfind('/') + 1), isDirectory});
    return current->act(entry, current->visits.back());
  } catch (...) {
    current->failure = std::current_exception();
    return false;
  }
}

bool GoOn(File&, const Visit&) {
  return true;
}

// The visits without "." and "..", which do no harm when they are marked as directories.
std::vector<Visit> Enumerate(const Run& run, const std::string& path, Act act = GoOn) {
  Enumeration enumeration{std::move(act), {}, nullptr};
  current = &enumeration;
  HostFile(run, path)->EnumerateDirectory(OnEntry, nullptr, 0);
  if (enumeration.failure) std::rethrow_exception(enumeration.failure);
  std::vector<Visit>& visits = enumeration.visits;
  visits.erase(std::remove_if(visits.begin(), visits.end(),
                              [](const Visit& visit) {
                                return visit.isDirectory &&
                                       (visit.name == "." || visit.name == "..");
                              }),
               visits.end());
  return visits;
}

std::multiset<std::string> Names(const std::vector<Visit>& visits) {
  std::multiset<std::string> names;
  for (const Visit& visit : visits)
    names.insert(visit.name);
  return names;
}

// Pairs named as the cache names them, a content file and its metadata file.
std::multiset<std::string> PutPairs(const Run& run, int pairs) {
  std::multiset<std::string> names;
  for (int i = 0; i < pairs; ++i) {
    char content[33];
    std::snprintf(content, sizeof content, "%032X", static_cast<unsigned>(i) * 2654435761U);
    for (const std::string& name : {std::string(content), content + std::string(kSuffix)}) {
      PutOnDisk(run.Path(name), "x");
      names.insert(name);
    }
  }
  return names;
}

void ExpectEachOnce(const std::vector<Visit>& visits, const std::multiset<std::string>& expected) {
  const std::multiset<std::string> names = Names(visits);
  for (const std::string& name : expected) {
    const std::size_t times = names.count(name);
    Expect(times == 1, Quote(name) + ", one of " + std::to_string(expected.size()) +
                           " entries, was visited " + std::to_string(times) + " times");
  }
}

void VisitsEachOnce(Run& run) {
  std::multiset<std::string> names = PutPairs(run, kManyPairs);
  std::filesystem::create_directory(run.Path("directory"));
  names.insert("directory");
  ExpectEachOnce(Enumerate(run, run.Directory()), names);
}

void MarksDirectories(Run& run) {
  std::filesystem::create_directory(run.Path("directory"));
  PutOnDisk(run.Path("file"), "x");
  PutOnDisk(run.Path("empty"), "");
  for (const Visit& visit : Enumerate(run, run.Directory())) {
    Expect(
        visit.isDirectory == (visit.name == "directory"),
        Quote(visit.name) + (visit.isDirectory ? " was" : " was not") + " marked as a directory");
  }
}

void DoesNotDescend(Run& run) {
  std::filesystem::create_directories(run.Path("directory/below"));
  PutOnDisk(run.Path("directory/inner"), "x");
  for (const Visit& visit : Enumerate(run, run.Directory())) {
    Expect(visit.name == "directory",
           "an entry of a subdirectory was visited: " + Quote(visit.path));
  }
}

void ExpectPathsBelow(const Run& run, const std::string& bound, const std::string& name) {
  const std::string expected = bound + "/" + name;
  bool isFound = false;
  for (const Visit& visit : Enumerate(run, bound)) {
    if (visit.name != name) continue;
    isFound = true;
    Expect(visit.path == expected,
           "the path is " + Quote(visit.path) + " instead of " + Quote(expected));
  }
  Expect(isFound, Quote(expected) + " was not visited");
}

void FormsPaths(Run& run) {
  PutOnDisk(run.Path("file"), "x");
  std::filesystem::create_directory(run.Path("directory"));
  ExpectPathsBelow(run, run.Directory(), "file");
  ExpectPathsBelow(run, run.Directory(), "directory");
}

void KeepsBoundPath(Run& run) {
  std::filesystem::create_directories(run.Path("a/b"));
  std::filesystem::create_symlink("a", run.Path("link"));
  PutOnDisk(run.Path("a/file"), "x");
  for (const char* bound : {"a/", "a//", "a/.", "a/b/..", "./a", "/a", "link"}) {
    ExpectPathsBelow(run, run.Path(bound), "file");
  }
}

void KeepsNames(Run& run) {
  const std::multiset<std::string> names = {"caf\xC3\xA9", "cafe\xCC\x81", "\xF0\x9F\x98\x80"};
  for (const std::string& name : names)
    PutOnDisk(run.Path(name), "x");
  ExpectEachOnce(Enumerate(run, run.Directory()), names);
}

void StopsWhenAsked(Run& run) {
  PutPairs(run, 10);
  int calls = 0;
  Enumerate(run, run.Directory(), [&](File&, const Visit&) { return ++calls < 3; });
  Expect(calls == 3, "the callback answered false in call 3 and was called " +
                         std::to_string(calls) + " times");
}

// Counts the call in the int behind the context.
bool CountCall(File&, bool, void* context) {
  if (context != nullptr) ++*static_cast<int*>(context);
  return true;
}

void HandsContext(Run& run) {
  PutPairs(run, 2);
  int calls = 0;
  HostFile(run, run.Directory())->EnumerateDirectory(CountCall, &calls, 0);
  Expect(calls >= 4, "of 4 calls, " + std::to_string(calls) + " had the context");
}

void CallsNothing(Run& run) {
  std::filesystem::create_directory(run.Path("empty"));
  for (const char* name : {"empty", "missing"}) {
    const std::size_t visits = Enumerate(run, run.Path(name)).size();
    Expect(visits == 0, "the callback was called " + std::to_string(visits) +
                            " times for a directory that is " + name);
  }
}

void AnswersForEntries(Run& run) {
  for (const char* name : {"file", "file.ox_meta"})
    PutOnDisk(run.Path(name), std::string(1234, 'x'));
  Enumerate(run, run.Directory(), [](File& entry, const Visit&) {
    Expect(entry.Exists() != 0, "Exists of an entry gave 0");
    Expect(entry.GetSize() == 1234,
           "GetSize of an entry of 1234 bytes gave " + std::to_string(entry.GetSize()));
    return true;
  });
}

void SurvivesDeletionOfCurrent(Run& run) {
  const std::multiset<std::string> names = PutPairs(run, kManyPairs);
  const std::vector<Visit> visits = Enumerate(run, run.Directory(), [](File& entry, const Visit&) {
    Expect(entry.Delete(0) != 0, "Delete of an entry gave 0");
    return true;
  });
  ExpectEachOnce(visits, names);
  Expect(std::filesystem::is_empty(run.Directory()), "files are left that were deleted");
}

std::string PartnerOf(const std::string& name) {
  const std::size_t suffix = name.rfind(kSuffix);
  return suffix != std::string::npos ? name.substr(0, suffix) : name + kSuffix;
}

// Half of the pairs lose a file whose turn is still to come, the others one that had its turn. Of
// the former the host may have known already, so that a visit is no fault.
void SurvivesDeletionOfOthers(Run& run) {
  std::multiset<std::string> expected = PutPairs(run, kManyPairs);
  std::set<std::string> visited;
  const std::vector<Visit> visits = Enumerate(run, run.Directory(), [&](File&, const Visit& visit) {
    visited.insert(visit.name);
    const std::string partner = PartnerOf(visit.name);
    const bool isAhead = visited.count(partner) == 0;
    const bool deletesAhead = std::min(visit.name, partner).back() % 2 == 0;
    if (isAhead != deletesAhead) return true;
    HostFile(run, run.Path(partner))->Delete(0);
    if (isAhead) expected.erase(partner);
    return true;
  });
  ExpectEachOnce(visits, expected);
}

void LetsOthersBeUsed(Run& run) {
  std::filesystem::create_directory(run.Path("other"));
  std::filesystem::create_directory(run.Path("scanned"));
  for (const char* name : {"scanned/a", "scanned/b", "scanned/c"})
    PutOnDisk(run.Path(name), "x");
  const std::string other = run.Path("other/file");
  const std::vector<Visit> visits = Enumerate(run, run.Path("scanned"), [&](File&, const Visit&) {
    HostFile file(run, other);
    Expect(file->Open(File::kOpenWrite) != 0 && file->Write(4, "text") == 4,
           "another object could not write in the callback");
    file->Close();
    Expect(ContentOnDisk(other) == "text", "another object wrote something else");
    Expect(HostFile(run, other)->GetSize() == 4, "GetSize of another object is wrong");
    return true;
  });
  ExpectEachOnce(visits, {"a", "b", "c"});
}

constexpr char kFormsPaths[] = "EnumerateDirectory: paths are the bound path, a slash and the name";
constexpr char kVisitsEachOnce[] = "EnumerateDirectory: visits each entry once";
constexpr char kLetsOthersBeUsed[] =
    "EnumerateDirectory: lets the callback make and use other file objects";

}  // namespace

Checks EnumerationChecks() {
  return {
      {kVisitsEachOnce, {kCreatesFiles, kTakesNoSource}, VisitsEachOnce},
      {"EnumerateDirectory: marks directories and nothing else",
       {kVisitsEachOnce},
       MarksDirectories},
      {"EnumerateDirectory: does not go into directories", {kVisitsEachOnce}, DoesNotDescend},
      {kFormsPaths, {kVisitsEachOnce}, FormsPaths},
      {"EnumerateDirectory: paths keep the bound path byte for byte",
       {kFormsPaths},
       KeepsBoundPath},
      {"EnumerateDirectory: names in UTF-8 are kept byte for byte", {kVisitsEachOnce}, KeepsNames},
      {"EnumerateDirectory: stops when the callback gives false",
       {kVisitsEachOnce},
       StopsWhenAsked},
      {"EnumerateDirectory: hands the context to the callback", {kVisitsEachOnce}, HandsContext},
      {"EnumerateDirectory: calls nothing for an empty or missing directory",
       {kCreatesFiles, kTakesNoSource},
       CallsNothing},
      {"EnumerateDirectory: entries answer Exists and GetSize",
       {kVisitsEachOnce, kTellsExisting, kSizesUnopened},
       AnswersForEntries},
      {kLetsOthersBeUsed,
       {kVisitsEachOnce, kCountsWritten, kCloseCompletes, kEmptiesExisting, kSizesUnopened,
        kKeepsObjectsApart},
       LetsOthersBeUsed},
      {"EnumerateDirectory: goes on after the entry was deleted in the callback",
       {kVisitsEachOnce, kDeletes},
       SurvivesDeletionOfCurrent},
      {"EnumerateDirectory: goes on after other files were deleted in the callback",
       {kVisitsEachOnce, kDeletes, kLetsOthersBeUsed},
       SurvivesDeletionOfOthers},
  };
}

}  // namespace ox::hostcheck::internal
