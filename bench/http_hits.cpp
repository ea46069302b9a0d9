// A fresh hit through the library of HTTP beside a bare fetch of the session, on the same entry:
//   oxbench_http MODULE DIRECTORY URL
// The URL must give an answer that may be stored. Both are timed in turns, and the ratio is that of
// the medians.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include <oxfilecache/http.h>

namespace {

constexpr int kTurns = 400;
constexpr int kCallsOfATurn = 50;

template <typename Call>
double MicrosecondsOf(Call call) {
  const auto begun = std::chrono::steady_clock::now();
  for (int i = 0; i < kCallsOfATurn; ++i)
    call();
  const std::chrono::duration<double, std::micro> passed = std::chrono::steady_clock::now() - begun;
  return passed.count() / kCallsOfATurn;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int count, char** words) {
  if (count != 4) return 2;
  ox::session::SessionOptions options;
  options.modulePath = words[1];
  options.directory = words[2];
  options.limits.maxSize = 1 << 30;
  options.limits.maxEntries = 1000;
  ox::Error error;
  const auto session = ox::session::CacheSession::Open(options, &error);
  const auto client = session ? ox::http::Client::Open(*session, {}, &error) : nullptr;
  if (client == nullptr || !client->Get(words[3], {}, &error)) {
    std::fprintf(stderr, "%s\n", error.Message().c_str());
    return 1;
  }
  std::vector<double> bare;
  std::vector<double> hits;
  int misses = 0;
  for (int turn = 0; turn < kTurns; ++turn) {
    bare.push_back(MicrosecondsOf([&] { misses += session->Fetch(words[3], &error) ? 0 : 1; }));
    hits.push_back(MicrosecondsOf([&] {
      const auto answer = client->Get(words[3], {}, &error);
      misses += answer && answer->outcome == ox::http::Outcome::kHit ? 0 : 1;
    }));
  }
  std::printf("session %.2f us, hit %.2f us, ratio %.2f, not hit %d\n", Median(bare), Median(hits),
              Median(hits) / Median(bare), misses);
  return misses == 0 ? 0 : 1;
}
