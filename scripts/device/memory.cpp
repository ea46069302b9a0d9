// Resident memory and heap of a session and of the module alone, by the number of entries.
#include <malloc.h>
#include <unistd.h>

#include <fstream>

#include "scripts/device/device.h"
#include <oxfilecache/host.h>

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

void Measure(const std::string& when, int entries) {
  const struct mallinfo2 heap = mallinfo2();
  Tell("memory " + when + " " + std::to_string(entries) + " resident " +
       std::to_string(Status("VmRSS")) + " private " + std::to_string(Status("RssAnon")) +
       " heap " + std::to_string(heap.uordblks + heap.hblkhd));
}

std::string UrlOf(int number) {
  return "http://device.example/some/path/of/a/picture/" + std::to_string(10000 + number);
}

const std::string kMetadata(200, 'm');

void Fill(session::CacheSession& session, int first, int last) {
  for (int i = first; i < last; ++i) {
    Error error;
    const auto writer = session.Store(UrlOf(i), &error);
    if (writer == nullptr || (error = writer->Write("content", 7)) ||
        (error = writer->Commit(kMetadata))) {
      Tell("! " + error.Message());
      return;
    }
  }
}

int SessionMemory(const std::string& directory, int entries) {
  const auto session = OpenSession(directory, session::Durability::kProcess);
  const auto there = static_cast<int>(session->Statistics().entries);
  Measure("session-opened", there);
  if (there >= entries) return 0;
  Fill(*session, there, entries);
  Measure("session-stored", entries);
  return 0;
}

int ModuleMemory(const std::string& directory, int entries) {
  host::PosixKernel kernel(directory);
  std::string error;
  const auto module = host::LoadedModule::Load("libox_file_cache.so", kernel, &error);
  if (!module) return Tell("! " + error), 1;
  host::ManagerReference cache(*module);
  if (!cache) return Tell("! no manager"), 1;
  const bool isThere = cache->Get(UrlOf(entries - 1).c_str()) != nullptr;
  if (isThere) {
    Measure("module-opened", entries);
    return 0;
  }
  for (int i = 0; i < entries; ++i) {
    auto* const entry = cache->CreateCacheValue(UrlOf(i).c_str(), 7, kMetadata.c_str());
    if (entry == nullptr) return Tell("! no entry"), 1;
    std::ofstream(entry->GetFile().UTF8()) << "content";
    cache->Add(entry);
  }
  Measure("module-stored", entries);
  return 0;
}

}  // namespace

// With ENTRIES above what is there it stores the rest and measures, otherwise it only opens.
int Memory(const Arguments& arguments) {
  const std::string& directory = arguments.at(0);
  const int entries = std::stoi(arguments.at(1));
  Configure(directory, 400 << 20, 20000, 1 << 20);
  Measure("before", 0);
  return arguments.at(2) == "module" ? ModuleMemory(directory, entries)
                                     : SessionMemory(directory, entries);
}

}  // namespace ox::device
