// oxbench_parts: what the parts of a lookup cost on their own.
#include <benchmark/benchmark.h>

#include "bench/workload.h"
#include "host/posix_mutex.h"
#include "md5/md5.h"
#include <oxfilecache/host.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/string.h>

namespace {

using ox::bench::Workload;

ox::host::PosixKernel kernel("");

const Workload& Entries() {
  static const Workload workload(4096);
  return workload;
}

void DigestOfUrl(benchmark::State& state) {
  const std::string url = Entries().Url(0);
  for (auto _ : state) {
    MD5_CTX context;
    unsigned char digest[16];
    MD5Init(&context);
    MD5Update(&context, reinterpret_cast<const unsigned char*>(url.data()), url.size());
    MD5Final(digest, &context);
    benchmark::DoNotOptimize(digest);
  }
}
BENCHMARK(DigestOfUrl);

void UrlFromUtf8(benchmark::State& state) {
  const std::string url = Entries().Url(0);
  for (auto _ : state) {
    const OxString text(url.c_str());
    benchmark::DoNotOptimize(text.Text());
  }
}
BENCHMARK(UrlFromUtf8);

// The difference to UrlFromUtf8 is the way back.
void UrlFromUtf8AndBack(benchmark::State& state) {
  const std::string url = Entries().Url(0);
  for (auto _ : state) {
    const OxString text(url.c_str());
    benchmark::DoNotOptimize(text.UTF8());
  }
}
BENCHMARK(UrlFromUtf8AndBack);

void MetadataInto(benchmark::State& state) {
  const std::string& metadata = Entries().Metadata();
  OxString text;
  for (auto _ : state) {
    text.AssignUTF8(metadata.data(), metadata.size(), metadata.size());
    benchmark::DoNotOptimize(text.Text());
  }
}
BENCHMARK(MetadataInto);

void MetadataCopy(benchmark::State& state) {
  const OxString metadata(Entries().Metadata().c_str());
  for (auto _ : state) {
    const OxString copy(metadata);
    benchmark::DoNotOptimize(copy.Text());
  }
}
BENCHMARK(MetadataCopy);

void KernelBlock(benchmark::State& state) {
  for (auto _ : state)
    kernel.Free(kernel.Allocate(64, nullptr, 0), nullptr, 0);
}
BENCHMARK(KernelBlock);

void KernelMutex(benchmark::State& state) {
  ox::internal::PosixMutex mutex;
  for (auto _ : state) {
    mutex.Lock();
    mutex.Unlock();
  }
}
BENCHMARK(KernelMutex);

}  // namespace

int main(int argc, char** argv) {
  ox::SetKernel(&kernel);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
