#pragma once

#include <string_view>

namespace JCam::Tool {

/// tools/jlog/page/page.html with its styles, D3 and scripts in place. CMake makes it.
extern const std::string_view kPage;

}  // namespace JCam::Tool
