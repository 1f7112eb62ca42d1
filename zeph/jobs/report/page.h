// The HTML page of an adjustment's report.
#ifndef ZEPH_JOBS_REPORT_PAGE_H
#define ZEPH_JOBS_REPORT_PAGE_H

#include <string>
#include <string_view>

#include "zeph/jobs/report/figures.h"

namespace zeph {

/// One page, complete in itself.
std::string adjustmentPage(const ReportContents& contents);

/// The text with all that HTML would read as markup written out.
std::string escaped(std::string_view text);

}  // namespace zeph

#endif
