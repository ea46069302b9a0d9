// The file-system service: its directory, releasing file objects, threads.
#include <atomic>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <thread>

#include "hostcheck/check.h"
#include <oxfilecache/string.h>

namespace ox::hostcheck::internal {
namespace {

void KnowsDefaultDirectory(Run& run) {
  OxString directory;
  Expect(run.FileSystem().GetDefaultDirectory(directory) != 0, "GetDefaultDirectory gave 0");
}

void GivesDefaultDirectory(Run& run) {
  OxString directory;
  run.FileSystem().GetDefaultDirectory(directory);
  Expect(directory.UTF8() == run.Directory(),
         "the text is " + Quote(directory.UTF8()) + " instead of " + Quote(run.Directory()));
}

void TakesNullBack(Run& run) {
  run.FileSystem().DestroyFile(nullptr);
}

int CountDescriptors() {
  std::error_code error;
  std::filesystem::directory_iterator descriptors("/proc/self/fd", error);
  if (error) throw Skipped("/proc/self/fd cannot be read");
  return static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
}

void OpenAndDestroy(Run& run, const std::string& path, int mode) {
  HostFile file(run, path);
  Expect(file->Open(mode) != 0, "the file could not be opened");
}

// The reader of metadata files never calls Close.
void ClosesOpenFiles(Run& run) {
  constexpr int kRounds = 8;
  PutOnDisk(run.Path("file"), "text");
  for (const int mode : {File::kOpenRead, File::kOpenWrite}) {
    // What the host opens once and for all is no leak.
    OpenAndDestroy(run, run.Path("file"), mode);
    const int before = CountDescriptors();
    for (int i = 0; i < kRounds; ++i)
      OpenAndDestroy(run, run.Path("file"), mode);
    const int more = CountDescriptors() - before;
    Expect(more < kRounds, std::to_string(kRounds) +
                               " objects were destroyed while open, and the process has " +
                               std::to_string(more) + " descriptors more than before");
  }
}

void WriteAndDelete(Run& run, const std::string& path, std::atomic<int>* failures) {
  try {
    const std::string text(500, path.back());
    for (int i = 0; i < 20; ++i) {
      HostFile writer(run, path);
      Expect(writer->Open(File::kOpenWrite) != 0, "Open failed");
      Expect(writer->Write(text.size(), text.data()) == text.size(), "Write failed");
      writer->Close();
      Expect(ContentOnDisk(path) == text, "the content is another one");
      Expect(writer->Delete(0) != 0, "Delete failed");
    }
  } catch (const std::exception&) {
    ++*failures;
  }
}

void WorksOnThreads(Run& run) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (const char* name : {"1", "2", "3", "4"}) {
    threads.emplace_back([&, name] { WriteAndDelete(run, run.Path(name), &failures); });
  }
  for (std::thread& thread : threads)
    thread.join();
  Expect(failures == 0, std::to_string(failures) +
                            " of 4 threads could not write, read and delete files of their own");
}

constexpr char kKnowsDirectory[] = "GetDefaultDirectory: succeeds";

}  // namespace

Checks FileSystemChecks() {
  return {
      {kKnowsDirectory, {kGivesFileSystem}, KnowsDefaultDirectory},
      {"GetDefaultDirectory: gives the directory that the host was given",
       {kKnowsDirectory, kTakesNoSource},
       GivesDefaultDirectory},
      {"DestroyFile: does nothing for null", {kGivesFileSystem}, TakesNullBack},
      {"DestroyFile: closes an open file", {kOpensExisting, kCreatesMissing}, ClosesOpenFiles},
      {"files: work on several threads at once",
       {kCloseCompletes, kCountsWritten, kDeletes, kKeepsObjectsApart},
       WorksOnThreads},
  };
}

}  // namespace ox::hostcheck::internal
