// The files page.html, page.css and page.js of this folder.
#ifndef ZEPH_JOBS_REPORT_ASSETS_H
#define ZEPH_JOBS_REPORT_ASSETS_H

#include <string_view>

namespace zeph {

extern const std::string_view kReportPage;  ///< with places {{name}} to be filled
extern const std::string_view kReportStyle;
extern const std::string_view kReportScript;

}  // namespace zeph

#endif
