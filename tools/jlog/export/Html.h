#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Selection.h"
#include "tools/jlog/Output.h"

namespace JCam::Tool {

/// Writes a page that shows the logs in a browser, and needs nothing else: neither files beside it
/// nor a network. The logs are data in it, deflated and in base64; its script, which is in
/// tools/jlog/page, unpacks them. Without details a page of many scopes stays small.
void writeHtml(const std::vector<std::unique_ptr<Analysis>>& logs, const Selection& selection,
               const std::string& title, bool hasDetails, Output& out);

}  // namespace JCam::Tool
