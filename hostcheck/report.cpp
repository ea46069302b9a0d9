#include "hostcheck/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace ox::hostcheck::internal {
namespace {

auto Count(const std::vector<Finding>& findings, Outcome outcome) {
  return std::count_if(findings.begin(), findings.end(),
                       [=](const Finding& finding) { return finding.outcome == outcome; });
}

const char* Label(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed:
      return "ok   ";
    case Outcome::kFailed:
      return "FAIL ";
    case Outcome::kSkipped:
      break;
  }
  return "skip ";
}

const char* JsonResult(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed:
      return "ok";
    case Outcome::kFailed:
      return "fail";
    case Outcome::kSkipped:
      break;
  }
  return "skip";
}

}  // namespace

void PrintLines(const std::vector<Finding>& findings, std::ostream& out) {
  for (const Finding& finding : findings) {
    out << Label(finding.outcome) << finding.name;
    if (!finding.detail.empty()) out << ": " << finding.detail;
    out << '\n';
  }
  out << Count(findings, Outcome::kPassed) << " ok, " << Count(findings, Outcome::kFailed)
      << " failed, " << Count(findings, Outcome::kSkipped) << " skipped\n";
}

void PrintJson(const std::vector<Finding>& findings, std::ostream& out) {
  using nlohmann::ordered_json;
  ordered_json list = ordered_json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"name", finding.name},
                    {"result", JsonResult(finding.outcome)},
                    {"detail", finding.detail}});
  }
  const ordered_json report = {{"passed", Count(findings, Outcome::kPassed)},
                               {"failed", Count(findings, Outcome::kFailed)},
                               {"skipped", Count(findings, Outcome::kSkipped)},
                               {"findings", list}};
  // ASCII, so that no control character reaches a terminal. The texts of a host may not be UTF-8.
  out << report.dump(2, ' ', true, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace ox::hostcheck::internal
