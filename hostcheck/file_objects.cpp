// File objects: binding, opening, closing, deleting.
#include <array>

#include "hostcheck/check.h"

namespace ox::hostcheck::internal {
namespace {

void CreatesFiles(Run& run) {
  std::array<File*, 3> files;
  for (File*& file : files) {
    file = run.FileSystem().CreateFile();
    Expect(file != nullptr, "CreateFile gave null");
  }
  for (File* file : files)
    run.FileSystem().DestroyFile(file);
}

void TellsExisting(Run& run) {
  PutOnDisk(run.Path("there"), "x");
  Expect(HostFile(run, run.Path("there"))->Exists() != 0, "Exists gave 0 for a file");
  Expect(HostFile(run, run.Path("missing"))->Exists() == 0, "Exists gave nonzero for no file");
}

void KeepsObjectsApart(Run& run) {
  PutOnDisk(run.Path("there"), "x");
  HostFile there(run, run.Path("there"));
  HostFile missing(run, run.Path("missing"));
  Expect(there->Exists() != 0 && missing->Exists() == 0,
         "of two objects, the first answers for the path of the second");
}

void AcceptsPaths(Run& run) {
  PutOnDisk(run.Path("there"), "x");
  for (const std::string& path : {run.Path("there"), run.Path("missing"), run.Directory()}) {
    HostFile file(run, path);
    Expect(file->SetPath(path.c_str()) != 0, "SetPath gave 0 for " + Quote(path));
  }
}

// Removing an entry takes one object for both of its files.
void BindsAgain(Run& run) {
  const std::string first = run.Path("first");
  const std::string second = run.Path("second");
  PutOnDisk(first, "x");
  PutOnDisk(second, "x");
  HostFile file(run, first);
  file->Delete(0);
  file->SetPath(second.c_str());
  Expect(file->Exists() != 0, "the object did not come to the second path");
  file->Delete(0);
  Expect(!IsOnDisk(second), "Delete did not remove the file at the second path");
}

void OpensExisting(Run& run) {
  PutOnDisk(run.Path("there"), "text");
  Expect(HostFile(run, run.Path("there"))->Open(File::kOpenRead) != 0, "Open gave 0");
}

void FailsOnMissing(Run& run) {
  const std::string path = run.Path("missing");
  Expect(HostFile(run, path)->Open(File::kOpenRead) == 0, "Open gave success for no file");
  Expect(!IsOnDisk(path), "Open made a file");
}

void LeavesContent(Run& run) {
  const std::string path = run.Path("there");
  PutOnDisk(path, "text");
  HostFile(run, path)->Open(File::kOpenRead);
  Expect(ContentOnDisk(path) == "text", "the file changed");
}

void CreatesMissing(Run& run) {
  const std::string path = run.Path("new");
  Expect(HostFile(run, path)->Open(File::kOpenWrite) != 0, "Open gave 0");
  Expect(ContentOnDisk(path).empty(), "the new file is not empty");
}

void EmptiesExisting(Run& run) {
  const std::string path = run.Path("there");
  PutOnDisk(path, "a text from before");
  {
    HostFile file(run, path);
    Expect(file->Open(File::kOpenWrite) != 0, "Open gave 0");
    file->Write(3, "new");
    file->Close();
  }
  const std::string content = ContentOnDisk(path);
  Expect(content.find("from before") == std::string::npos,
         "3 bytes written over a longer file leave " + Quote(content));
}

void FailsWithoutDirectory(Run& run) {
  Expect(HostFile(run, run.Path("none/new"))->Open(File::kOpenWrite) == 0,
         "Open gave success in a directory that is missing");
}

void Deletes(Run& run) {
  const std::string path = run.Path("there");
  PutOnDisk(path, "x");
  Expect(HostFile(run, path)->Delete(0) != 0, "Delete gave 0");
  Expect(!IsOnDisk(path), "the file is still there");
}

void FailsToDeleteMissing(Run& run) {
  Expect(HostFile(run, run.Path("missing"))->Delete(0) == 0, "Delete gave success for no file");
}

void FreesPath(Run& run) {
  const std::string path = run.Path("there");
  PutOnDisk(path, "x");
  HostFile file(run, path);
  file->Delete(0);
  Expect(file->Exists() == 0, "after Delete, Exists gave nonzero");
  Expect(file->Open(File::kOpenWrite) != 0, "after Delete, Open could not make the file");
  Expect(IsOnDisk(path), "after Delete, Open made no file");
}

// One character in both of its Unicode forms, and one beyond 16 bits.
void KeepsNames(Run& run) {
  for (const char* name : {"caf\xC3\xA9", "cafe\xCC\x81", "\xF0\x9F\x98\x80"}) {
    const std::string path = run.Path(name);
    HostFile(run, path)->Open(File::kOpenWrite);
    Expect(IsOnDisk(path), "no file of the name " + Quote(name) + " was made");
  }
}

}  // namespace

Checks FileObjectChecks() {
  return {
      {kCreatesFiles, {kGivesFileSystem}, CreatesFiles},
      {kTellsExisting, {kCreatesFiles}, TellsExisting},
      {kKeepsObjectsApart, {kTellsExisting}, KeepsObjectsApart},
      {"SetPath: accepts paths of files and directories", {kCreatesFiles}, AcceptsPaths},
      {kOpensExisting, {kCreatesFiles}, OpensExisting},
      {"Open 2: fails on a missing file and makes none", {kCreatesFiles}, FailsOnMissing},
      {kLeavesContent, {kOpensExisting}, LeavesContent},
      {kCreatesMissing, {kCreatesFiles}, CreatesMissing},
      {kEmptiesExisting, {kCreatesMissing}, EmptiesExisting},
      {"Open 0x35: fails when the directory is missing", {kCreatesFiles}, FailsWithoutDirectory},
      {kDeletes, {kCreatesFiles}, Deletes},
      {"Delete: fails on a missing file", {kCreatesFiles}, FailsToDeleteMissing},
      {"Delete: leaves the path free for a new file",
       {kDeletes, kCreatesMissing, kTellsExisting},
       FreesPath},
      {"SetPath: binds an object to another path", {kDeletes, kTellsExisting}, BindsAgain},
      {"names: UTF-8 is kept byte for byte", {kCreatesMissing}, KeepsNames},
  };
}

}  // namespace ox::hostcheck::internal
