// Reading, writing and sizes.
#include <cstdint>

#include "hostcheck/check.h"
#include <oxfilecache/format.h>

namespace ox::hostcheck::internal {
namespace {

// What the module asks for in one call.
constexpr std::size_t kReadCount = format::kTextBytes;

// Every byte value, line ends and zeros among them, in no period that divides a buffer.
std::string Bytes(std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i)
    bytes += static_cast<char>(i * 7 + i / 251);
  return bytes;
}

std::uint64_t WriteFile(Run& run, const std::string& path, const std::string& bytes) {
  HostFile file(run, path);
  Expect(file->Open(File::kOpenWrite) != 0, "Open gave 0");
  const std::uint64_t written = file->Write(bytes.size(), bytes.data());
  file->Close();
  return written;
}

void CountsWritten(Run& run) {
  for (const std::size_t count : {std::size_t{1}, std::size_t{1000}, std::size_t{300000}}) {
    const std::uint64_t written = WriteFile(run, run.Path("file"), Bytes(count));
    Expect(written == count, "Write of " + std::to_string(count) + " bytes gave " +
                                 std::to_string(written) + " as a 64-bit number");
  }
}

void WritesBytes(Run& run) {
  const std::string path = run.Path("file");
  const std::string bytes = Bytes(70000);
  {
    HostFile file(run, path);
    Expect(file->Open(File::kOpenWrite) != 0, "Open gave 0");
    file->Write(1000, bytes.data());
    file->Write(bytes.size() - 1000, bytes.data() + 1000);
    file->Close();
  }
  const std::string content = ContentOnDisk(path);
  Expect(content.size() == bytes.size(),
         "70000 bytes in two calls made a file of " + std::to_string(content.size()) + " bytes");
  Expect(content == bytes, "the file holds other bytes than were written");
}

void WritesNothing(Run& run) {
  const std::uint64_t written = WriteFile(run, run.Path("file"), "");
  Expect(written == 0, "Write of 0 bytes gave " + std::to_string(written));
  Expect(ContentOnDisk(run.Path("file")).empty(), "Write of 0 bytes wrote some");
}

// Of any file the module takes what one call gives.
void ReadsBytes(Run& run) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{300}, kReadCount, std::size_t{5000}}) {
    const std::string bytes = Bytes(size);
    PutOnDisk(run.Path("file"), bytes);
    HostFile file(run, run.Path("file"));
    Expect(file->Open(File::kOpenRead) != 0, "Open gave 0");
    std::string buffer(8192, '.');
    const std::uint64_t read = file->Read(kReadCount, buffer.data());
    const std::size_t expected = size < kReadCount ? size : kReadCount;
    Expect(read == expected, "Read of 1024 bytes from a file of " + std::to_string(size) +
                                 " gave " + std::to_string(read));
    Expect(buffer.compare(0, expected, bytes, 0, expected) == 0,
           "the buffer holds other bytes than the file");
  }
}

void ReadsNoFurther(Run& run) {
  PutOnDisk(run.Path("file"), Bytes(5000));
  HostFile file(run, run.Path("file"));
  Expect(file->Open(File::kOpenRead) != 0, "Open gave 0");
  const std::string untouched(4096, '.');
  std::string buffer(kReadCount + untouched.size(), '.');
  file->Read(kReadCount, buffer.data());
  Expect(buffer.substr(kReadCount) == untouched, "bytes behind the 1024 asked for were changed");
}

void ReadsOn(Run& run) {
  const std::string bytes = Bytes(2500);
  PutOnDisk(run.Path("file"), bytes);
  HostFile file(run, run.Path("file"));
  Expect(file->Open(File::kOpenRead) != 0, "Open gave 0");
  std::string content;
  std::string buffer(8192, '.');
  for (int calls = 0; calls < 3; ++calls) {
    const std::uint64_t read = file->Read(kReadCount, buffer.data());
    content.append(buffer, 0, static_cast<std::size_t>(read));
  }
  Expect(content == bytes, "three calls did not give the 2500 bytes of the file in order");
  Expect(file->Read(kReadCount, buffer.data()) == 0, "Read at the end gave more than 0");
}

// A directory under the name of a metadata file. Hosts may refuse to open it.
void FailsWithZero(Run& run) {
  HostFile directory(run, run.Directory());
  if (directory->Open(File::kOpenRead) == 0) return;
  std::string buffer(8192, '.');
  const std::uint64_t read = directory->Read(kReadCount, buffer.data());
  Expect(read == 0, "Read of a directory gave " + std::to_string(read));
}

void ExpectSize(Run& run, const std::string& path, std::uint64_t expected) {
  const std::uint64_t size = HostFile(run, path)->GetSize();
  Expect(size == expected,
         "GetSize gave " + std::to_string(size) + " instead of " + std::to_string(expected));
}

void CloseCompletesFile(Run& run) {
  const std::string path = run.Path("new");
  HostFile file(run, path);
  Expect(file->Open(File::kOpenWrite) != 0, "Open gave 0");
  file->Write(4, "text");
  file->Close();
  Expect(ContentOnDisk(path) == "text", "after Close the file holds " + Quote(ContentOnDisk(path)));
  Expect(file->Exists() != 0, "after Close, Exists gave 0");
  Expect(file->Delete(0) != 0 && !IsOnDisk(path), "after Close, Delete failed");
}

void SizesUnopened(Run& run) {
  PutOnDisk(run.Path("file"), Bytes(70001));
  ExpectSize(run, run.Path("file"), 70001);
  PutOnDisk(run.Path("empty"), "");
  ExpectSize(run, run.Path("empty"), 0);
}

void SizesMissing(Run& run) {
  ExpectSize(run, run.Path("missing"), 0);
}

void SizesFollow(Run& run) {
  for (const std::size_t count : {std::size_t{5}, std::size_t{70000}, std::size_t{2}}) {
    WriteFile(run, run.Path("file"), Bytes(count));
    ExpectSize(run, run.Path("file"), count);
  }
}

}  // namespace

Checks FileContentChecks() {
  return {
      {kCountsWritten, {kCreatesMissing}, CountsWritten},
      {kWritesBytes, {kCreatesMissing}, WritesBytes},
      {"Write: gives 0 for 0 bytes", {kCreatesMissing}, WritesNothing},
      {kCloseCompletes, {kWritesBytes, kTellsExisting, kDeletes}, CloseCompletesFile},
      {kReadsBytes, {kOpensExisting, kLeavesContent}, ReadsBytes},
      {"Read: writes no further than the count", {kReadsBytes}, ReadsNoFurther},
      {"Read: goes on where it stopped, and gives 0 at the end", {kReadsBytes}, ReadsOn},
      {"Read: gives 0 when it fails", {kOpensExisting}, FailsWithZero},
      {kSizesUnopened, {kCreatesFiles}, SizesUnopened},
      {"GetSize: gives 0 for a missing file", {kCreatesFiles}, SizesMissing},
      {"GetSize: follows what was written",
       {kSizesUnopened, kWritesBytes, kEmptiesExisting},
       SizesFollow},
  };
}

}  // namespace ox::hostcheck::internal
