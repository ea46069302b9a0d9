// oxhostcheck against the Linux host and against hosts with one fault each.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
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

std::vector<std::string> NamesOf(const json& report, const std::string& result) {
  std::vector<std::string> names;
  for (const json& finding : report["findings"]) {
    if (finding["result"] == result) names.push_back(finding["name"].get<std::string>());
  }
  return names;
}

// The other faults of a line, and what the finding says of some of them.
struct Fault {
  std::string word;
  std::string line;
  std::string detail;
};

std::vector<Fault> AllFaults(const std::vector<std::string>& lines) {
  std::vector<Fault> faults = {
      {"crash ", "kernel: is handed over", "crashed"},
      {"hang ", "kernel: is handed over", "did not come back"},
      {"2 ", "Write: gives the number of bytes", "4294967297"},
      {"2 ", "EnumerateDirectory: paths keep the bound path byte for byte", "instead of"}};
  for (const std::string& line : lines)
    faults.push_back({line == "CreateFile: gives objects" ? "no " : "", line, ""});
  // Words of one character, and a part of the line.
  std::istringstream others(
      "2 is given;2 aligns;2345 MemSet;23 MemCopy;2 StrLen16;2345 StrCmp;2 StrCpy;234 StrStr;"
      "01234 reads decimal;567 no digit;8 the number ended;2 until Unlock;2 as Lock;2 Exists:;"
      "2 to another path;2 makes none;23 makes a;2 empties;2 Delete: removes;23 Delete: leaves;"
      "2 Write: puts;2 for 0 bytes;2 Read: gives what;2 Read: goes;2 GetSize: needs;23 Close:;"
      "345 files:;2 visits;2 marks;23 paths are;3 paths keep;2 entries answer;"
      "23 the entry was deleted;2345 lets the callback");
  for (std::string other; std::getline(others, other, ';');) {
    const std::size_t end = other.find(' ');
    for (const std::string& line : lines) {
      if (line.find(other.substr(end + 1)) == std::string::npos) continue;
      for (const char word : other.substr(0, end))
        faults.push_back({{word, ' '}, line, ""});
    }
  }
  return faults;
}

bool FailsOnItsLineOnly(const Fault& fault, const Result& result) {
  if (result.status != 1 || result.output.find(fault.detail) == std::string::npos) return false;
  return NamesOf(json::parse(result.output), "fail") == std::vector<std::string>{fault.line};
}

Result RunWith(const Fault& fault, const std::string& seconds) {
  return RunTool("--json --timeout " + seconds + " '" OX_BROKEN_HOST_PATH "' 2>/dev/null",
                 fault.word + fault.line);
}

// Every line that can pass fails, and fails alone, on the host that breaks it.
TEST(HostCheck, EachFaultFailsOnItsOwnLineOnly) {
  const json sound = json::parse(RunTool("--json '" OX_POSIX_HOST_PATH "'").output);
  const std::vector<Fault> faults = AllFaults(NamesOf(sound, "ok"));
  // The runs mostly wait, for threads and child processes.
  constexpr std::size_t kAtOnce = 4;
  std::vector<std::future<void>> workers;
  std::vector<Result> results(faults.size());
  for (std::size_t first = 0; first < kAtOnce; ++first) {
    workers.push_back(std::async(std::launch::async, [&, first] {
      for (std::size_t i = first; i < faults.size(); i += kAtOnce)
        results[i] = RunWith(faults[i], "4");
    }));
  }
  for (std::future<void>& worker : workers)
    worker.get();
  for (std::size_t i = 0; i < faults.size(); ++i) {
    // A busy machine makes other checks late, too: those are left time on their own.
    if (!FailsOnItsLineOnly(faults[i], results[i])) results[i] = RunWith(faults[i], "60");
    EXPECT_TRUE(FailsOnItsLineOnly(faults[i], results[i]))
        << faults[i].word << faults[i].line << "\n"
        << results[i].output;
  }
}

TEST(HostCheck, TheManualExplainsEachLine) {
  std::ifstream file(OX_HOST_CHECK_MANUAL);
  const std::string manual{std::istreambuf_iterator<char>(file), {}};
  const json report = json::parse(RunTool("--json '" OX_POSIX_HOST_PATH "'").output);
  for (const json& finding : report["findings"]) {
    const std::string line = finding["name"];
    EXPECT_NE(manual.find("`" + line + "`"), std::string::npos) << line;
  }
}

TEST(HostCheck, PrintsALineForEachCheckAndTheReasonOfAFailure) {
  const struct {
    const char* library;
    const char* fault;
    int status;
    const char* part;
  } cases[] = {
      {OX_POSIX_HOST_PATH, "", 0, " ok, 0 failed, "},
      {OX_BROKEN_HOST_PATH, "no fault: what is gone is not visited", 0, " ok, 0 failed, "},
      {OX_BROKEN_HOST_PATH, "", 0, "ok   Lock: keeps other threads out until Unlock\n"},
      {OX_BROKEN_HOST_PATH, "GetInterface: gives the file system for", 1,
       "\nFAIL GetInterface: gives the file system for IFileSystem: "
       "GetInterface gave null for IFileSystem\n"},
      {OX_BROKEN_HOST_PATH, "GetInterface: gives the file system for", 1,
       "\nskip CreateFile: gives objects: needs \"GetInterface: "},
      {OX_BROKEN_HOST_PATH, "names: UTF-8", 1, "\"caf\\xC3\\xA9\""},
  };
  for (const auto& c : cases) {
    const Result result = RunTool(std::string(c.library) + " 2>/dev/null", c.fault);
    EXPECT_EQ(result.status, c.status) << result.output;
    EXPECT_NE(result.output.find(c.part), std::string::npos) << c.part << "\n" << result.output;
  }
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
      {"--directory /tmp " OX_POSIX_HOST_PATH, 0},
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
