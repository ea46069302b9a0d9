// oxhostcheck against the Linux host and against hosts with one fault each.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace {

using nlohmann::json;

struct Result {
  int status;
  std::string output;
};

// Works with thousands of small files: in memory where that can be.
Result RunTool(const std::string& arguments, const std::string& fault = "") {
  const std::string scratch = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
  const std::string command =
      "TMPDIR=" + scratch + " OX_BROKEN_HOST='" + fault + "' '" OX_HOSTCHECK_PATH "' " + arguments;
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return {-1, ""};
  std::string output;
  char part[4096];
  while (const std::size_t got = std::fread(part, 1, sizeof part, pipe))
    output.append(part, got);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

std::set<std::string> NamesOf(const json& report, const std::string& result) {
  std::set<std::string> names;
  for (const json& finding : report["findings"]) {
    if (finding["result"] == result) names.insert(finding["name"].get<std::string>());
  }
  return names;
}

struct Fault {
  const char* name;
  const char* line;
  const char* detail = "";  // a part of it
};

const Fault kFaults[] = {
    {"crashes at the start", "kernel: is handed over", "crashed"},
    {"hangs at the start", "kernel: is handed over", "did not come back"},
    {"hands over nothing", "kernel: is handed over"},
    {"crashes at the end", "kernel: is given back", "crashed"},
    {"no file system", "GetInterface: gives the file system for IFileSystem"},
    {"any name is known", "GetInterface: gives null for a name it does not know"},
    {"file system only once", "GetInterface: gives the file system again after ReleaseInterface"},
    {"Allocate aligns to 4", "Allocate: aligns blocks to 8 bytes"},
    {"one block for all", "Allocate: keeps blocks apart and what is written in them"},
    {"Allocate reads the file name", "Allocate: takes a null file name and line 0", "crashed"},
    {"Allocate on one thread", "Allocate: works on several threads at once"},
    {"Free does nothing", "Free: gives memory back"},
    {"MemSet sets one more", "MemSet: sets exactly the bytes asked for"},
    {"MemCopy stops at NUL", "MemCopy: copies exactly the bytes asked for"},
    {"StrLen counts the NUL", "StrLen: counts the bytes before the NUL"},
    {"StrLen16 measures bytes", "StrLen16: counts the units before the 0"},
    {"StrCmp ignores case", "StrCmp: is 0 for equal texts only"},
    {"StrCpy omits the NUL", "StrCpy: copies the text and its NUL, nothing else"},
    {"StrStr finds the last", "StrStr: finds the first place or nothing"},
    {"StrToUL takes base 0", "StrToUL: reads decimal numbers without an end pointer"},
    {"StrToUL refuses letters", "StrToUL: stops at the first character that is no digit"},
    {"StrToUL tells no end", "StrToUL: tells where the number ended"},
    {"StrToUL wraps", "StrToUL: gives the largest number for one too large"},
    {"mutex is made locked", "CreateMutex: gives an unlocked mutex"},
    {"one mutex for all", "CreateMutex: gives a mutex of its own each time"},
    {"mutex does nothing", "Lock: keeps other threads out until Unlock"},
    {"mutex is not recursive", "Lock: lets the thread that holds the mutex in again",
     "not recursive"},
    {"mutex does not count", "Unlock: lets others in after as many calls as Lock"},
    {"CreateFile gives null", "CreateFile: gives objects"},
    {"Exists always", "Exists: tells a file from a missing one"},
    {"one object for all", "CreateFile: gives objects with paths of their own"},
    {"SetPath refuses missing files", "SetPath: accepts paths of files and directories"},
    {"SetPath binds once", "SetPath: binds an object to another path"},
    {"Open 2 refuses", "Open 2: opens an existing file"},
    {"Open 2 makes files", "Open 2: fails on a missing file and makes none"},
    {"Open 2 empties", "Open 2: leaves the content as it is"},
    {"Open 0x35 makes no file", "Open 0x35: makes a missing file"},
    {"Open 0x35 keeps the content", "Open 0x35: empties an existing file"},
    {"Open 0x35 always succeeds", "Open 0x35: fails when the directory is missing"},
    {"Delete does nothing", "Delete: removes the file"},
    {"Delete always succeeds", "Delete: fails on a missing file"},
    {"unusable after Delete", "Delete: leaves the path free for a new file"},
    {"names are converted", "names: UTF-8 is kept byte for byte"},
    {"Write gives 1", "Write: gives the number of bytes"},
    {"Write gives rubbish above 32 bits", "Write: gives the number of bytes"},
    {"Write in text mode", "Write: puts the bytes into the file as they are"},
    {"Write of nothing fails", "Write: gives 0 for 0 bytes"},
    {"Close does not flush", "Close: leaves the file complete and the object usable"},
    {"Read gives half", "Read: gives what the file holds, up to the count"},
    {"Read ends with a NUL", "Read: writes no further than the count"},
    {"Read starts over", "Read: goes on where it stopped, and gives 0 at the end"},
    {"Read fails with -1", "Read: gives 0 when it fails"},
    {"GetSize needs Open", "GetSize: needs no Open"},
    {"GetSize fails with -1", "GetSize: gives 0 for a missing file"},
    {"GetSize is remembered", "GetSize: follows what was written"},
    {"no default directory", "GetDefaultDirectory: succeeds"},
    {"default directory ends with a slash",
     "GetDefaultDirectory: gives the directory that the host was given"},
    {"DestroyFile crashes on null", "DestroyFile: does nothing for null", "crashed"},
    {"DestroyFile does not close", "DestroyFile: closes an open file"},
    {"CreateFile on one thread", "files: work on several threads at once"},
    {"entries come twice", "EnumerateDirectory: visits each entry once"},
    {"nothing is a directory", "EnumerateDirectory: marks directories and nothing else"},
    {"descends", "EnumerateDirectory: does not go into directories"},
    {"entries have bare names",
     "EnumerateDirectory: paths are the bound path, a slash and the name"},
    {"entries drop a slash", "EnumerateDirectory: paths keep the bound path byte for byte"},
    {"entries are resolved", "EnumerateDirectory: paths keep the bound path byte for byte"},
    {"names are skipped", "EnumerateDirectory: names in UTF-8 are kept byte for byte"},
    {"enumeration never stops", "EnumerateDirectory: stops when the callback gives false"},
    {"context is lost", "EnumerateDirectory: hands the context to the callback"},
    {"missing directories have entries",
     "EnumerateDirectory: calls nothing for an empty or missing directory"},
    {"crashes on missing directories",
     "EnumerateDirectory: calls nothing for an empty or missing directory", "crashed"},
    {"entries have no size", "EnumerateDirectory: entries answer Exists and GetSize"},
    {"no objects in enumerations",
     "EnumerateDirectory: lets the callback make and use other file objects"},
    {"stops after a deleted entry",
     "EnumerateDirectory: goes on after the entry was deleted in the callback"},
    {"stops at a vanished entry",
     "EnumerateDirectory: goes on after other files were deleted in the callback"},
};

Result RunBroken(const Fault& fault) {
  return RunTool("--json --timeout 4 '" OX_BROKEN_HOST_PATH "' 2>/dev/null", fault.name);
}

void ExpectOnlyItsLine(const Fault& fault, const Result& result) {
  SCOPED_TRACE(fault.name);
  ASSERT_EQ(result.status, 1) << result.output;
  const json report = json::parse(result.output);
  EXPECT_EQ(NamesOf(report, "fail"), std::set<std::string>{fault.line}) << result.output;
  for (const json& finding : report["findings"]) {
    if (finding["result"] != "fail") continue;
    EXPECT_NE(finding["detail"].get<std::string>().find(fault.detail), std::string::npos)
        << finding;
  }
}

// AddressSanitizer holds freed memory back itself, so that the check of it is skipped.
bool CanBeSeen(const Fault& fault) {
#if defined(__SANITIZE_ADDRESS__)
  return fault.line != std::string("Free: gives memory back");
#else
  static_cast<void>(fault);
  return true;
#endif
}

TEST(HostCheck, EachFaultFailsOnItsOwnLineOnly) {
  // The runs mostly wait, for threads and child processes.
  constexpr std::size_t kAtOnce = 4;
  std::vector<std::future<void>> workers;
  std::vector<Result> results(std::size(kFaults));
  for (std::size_t first = 0; first < kAtOnce; ++first) {
    workers.push_back(std::async(std::launch::async, [&results, first] {
      for (std::size_t i = first; i < results.size(); i += kAtOnce)
        results[i] = RunBroken(kFaults[i]);
    }));
  }
  for (std::future<void>& worker : workers)
    worker.get();
  for (std::size_t i = 0; i < results.size(); ++i) {
    if (CanBeSeen(kFaults[i])) ExpectOnlyItsLine(kFaults[i], results[i]);
  }
}

// Every line can fail, and the manual explains it.
TEST(HostCheck, EachLineHasAFaultAndAnExplanation) {
  const json report = json::parse(RunTool("--json '" OX_POSIX_HOST_PATH "'").output);
  std::set<std::string> lines;
  for (const json& finding : report["findings"])
    lines.insert(finding["name"].get<std::string>());
  std::set<std::string> tried;
  for (const Fault& fault : kFaults)
    tried.insert(fault.line);
  EXPECT_EQ(lines, tried);

  std::ifstream file(OX_HOST_CHECK_MANUAL);
  const std::string manual{std::istreambuf_iterator<char>(file), {}};
  for (const std::string& line : lines)
    EXPECT_NE(manual.find("`" + line + "`"), std::string::npos) << line;
}

TEST(HostCheck, HostsWithoutAFaultPass) {
  for (const char* library : {OX_POSIX_HOST_PATH, OX_BROKEN_HOST_PATH}) {
    const Result result = RunTool(library);
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(result.output.find("FAIL"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("ok   Lock: keeps other threads out"), std::string::npos);
  }
}

TEST(HostCheck, FailuresAreLinesWithTheReason) {
  const Result result = RunTool(OX_BROKEN_HOST_PATH " 2>/dev/null", "no file system");
  EXPECT_NE(result.output.find("\nFAIL GetInterface: gives the file system for IFileSystem: "
                               "GetInterface gave null for IFileSystem\n"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("\nskip CreateFile: gives objects: needs \"GetInterface: "),
            std::string::npos)
      << result.output;
}

TEST(HostCheck, WrongUseAndMissingLibrariesHaveTheirStatus) {
  const struct {
    const char* arguments;
    int status;
  } cases[] = {
      {"", 2},
      {"--timeout 0 " OX_POSIX_HOST_PATH, 2},
      {"--directory /nonexistent " OX_POSIX_HOST_PATH, 2},
      {"--directory /proc " OX_POSIX_HOST_PATH, 2},
      {"/nonexistent/library.so", 3},
      {OX_MODULE_PATH, 3},  // a library, but no host
      {OX_POSIX_HOST_PATH " >/dev/full", 2},
      {OX_POSIX_HOST_PATH " >&-", 2},
      {"--help", 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(RunTool(std::string(">/dev/null 2>&1 ") + c.arguments).status, c.status)
        << c.arguments;
}

}  // namespace
