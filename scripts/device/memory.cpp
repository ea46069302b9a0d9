// Resident memory and heap of a session, by the number of entries.
#include <malloc.h>
#include <unistd.h>

#include <fstream>

#include "scripts/device/device.h"

namespace ox::device {
namespace {

long Status(const std::string& field) {
  std::ifstream file("/proc/self/status");
  for (std::string word; file >> word;) {
    long kibibytes = 0;
    if (word == field + ":" && file >> kibibytes) return kibibytes;
  }
  return 0;
}

void Measure(const char* when, int entries) {
  const struct mallinfo2 heap = mallinfo2();
  Tell(std::string("memory ") + when + " " + std::to_string(entries) + " resident " +
       std::to_string(Status("VmRSS")) + " private " + std::to_string(Status("RssAnon")) +
       " heap " + std::to_string(heap.uordblks + heap.hblkhd));
}

std::string UrlOf(int number) {
  return "http://device.example/some/path/of/a/picture/" + std::to_string(10000 + number);
}

void Fill(session::CacheSession& session, int first, int last) {
  const std::string metadata(200, 'm');
  for (int i = first; i < last; ++i) {
    Error error;
    const auto writer = session.Store(UrlOf(i), &error);
    if (writer == nullptr || (error = writer->Write("content", 7)) ||
        (error = writer->Commit(metadata))) {
      Tell("! " + error.Message());
      return;
    }
  }
}

}  // namespace

// With ENTRIES above what is there it stores the rest and measures, otherwise it only opens.
int Memory(const Arguments& arguments) {
  const std::string& directory = arguments.at(0);
  const int entries = std::stoi(arguments.at(1));
  Configure(directory, 400 << 20, 20000, 1 << 20);
  Measure("before", 0);
  const auto session = OpenSession(directory, session::Durability::kProcess);
  const auto there = static_cast<int>(session->Statistics().entries);
  Measure("opened", there);
  if (there >= entries) return 0;
  Fill(*session, there, entries);
  Measure("stored", entries);
  return 0;
}

}  // namespace ox::device
