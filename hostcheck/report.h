// How the findings are printed.
#ifndef OX_HOSTCHECK_REPORT_H_
#define OX_HOSTCHECK_REPORT_H_

#include <ostream>
#include <vector>

#include <oxfilecache/host_check.h>

namespace ox::hostcheck::internal {

// One line each and a line with the totals.
void PrintLines(const std::vector<Finding>& findings, std::ostream& out);

// {"passed": n, "failed": n, "skipped": n, "findings": [{"name", "result", "detail"}, ...]}, where
// the result is "ok", "fail" or "skip".
void PrintJson(const std::vector<Finding>& findings, std::ostream& out);

}  // namespace ox::hostcheck::internal

#endif
