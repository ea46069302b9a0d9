#include "http/deadline.h"

namespace ox::internal::http {

Deadline DeadlineOf(const ox::http::RequestOptions& options) {
  const auto now = std::chrono::steady_clock::now();
  const bool hasLimit =
      options.totalTimeout.count() > 0 &&
      options.totalTimeout <
          std::chrono::duration_cast<std::chrono::milliseconds>(Deadline::max() - now);
  return hasLimit ? now + options.totalTimeout : Deadline::max();
}

Error TimeLeft(Deadline deadline, std::chrono::milliseconds* left) {
  *left = {};
  if (deadline == Deadline::max()) return {};
  *left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                std::chrono::steady_clock::now());
  if (left->count() > 0) return {};
  return MakeError(ErrorKind::kInputOutput, "the time for this request is over");
}

}  // namespace ox::internal::http
