// Decides about stored answers, for a comparison with another library. Of each case on standard
// input, "TIME-SINCE-THE-ANSWER STATUS DATE-OF-THE-ANSWER", lines "<Name: value" of the answer and
// ">Name: value" of the request, and an empty line, it prints what may be done: "unstored",
// "fresh", "accepted" (stale), "meanwhile" (stale, while it is refreshed) or "ask".
#include <iostream>
#include <sstream>
#include <string>

#include "http/freshness.h"
#include "http/storability.h"

namespace {

using namespace ox::internal::http;

std::string Decide(const StoredAnswer& answer, const HeaderList& request, std::int64_t now) {
  if (WhyNotStored({}, answer, request) != nullptr) return "unstored";
  const Reuse reuse = JudgeReuse(answer, ParseCacheControl(request), now, true);
  if (reuse.isFresh) return "fresh";
  if (reuse.isStaleAccepted) return "accepted";
  return reuse.whileRevalidating ? "meanwhile" : "ask";
}

}  // namespace

int main() {
  std::string line;
  while (std::getline(std::cin, line)) {
    StoredAnswer answer;
    HeaderList request;
    std::int64_t passed = 0;
    std::istringstream(line) >> passed >> answer.status >> answer.responseTime;
    answer.requestTime = answer.responseTime;
    while (std::getline(std::cin, line) && !line.empty()) {
      const std::size_t colon = line.find(": ");
      Header header{line.substr(1, colon - 1), line.substr(colon + 2)};
      (line[0] == '<' ? answer.headers : request).push_back(std::move(header));
    }
    std::cout << Decide(answer, request, answer.responseTime + passed) << '\n';
  }
}
