/// The page that `project-metadata report` makes, without its data. The build puts it together from report.html and
/// the style and scripts beside it.
#pragma once

#include <string_view>

namespace cli {

extern const std::string_view reportPageBegin;  ///< what stands before the data
extern const std::string_view reportPageEnd;    ///< what stands after it

}  // namespace cli
