#include <string>

#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/MergedRecords.h"
#include "tools/jlog/export/Json.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

int merge(const Logs& logs, const Logcat* logcat, const Selection& selection,
          const Options& options, Output& out) {
    Page page(out);
    std::string json;
    const auto onRecord = [&](const Analysis& log, const Entry& entry, const Scope* scope) {
        if (!selection.takes(log, entry, scope)) {
            return;
        }
        if (options.json) {
            json.clear();
            appendRecord(json, log, entry, scope, options.label);
            out.write(json);
        } else {
            printRecord(log, entry, page);
        }
    };
    const auto onLine = [&](const LogcatLine& line) {
        if (!takesLine(selection, line)) {
            return;
        }
        if (options.json) {
            json.clear();
            appendLine(json, line, options.label);
            out.write(json);
        } else {
            printLine(line, page);
        }
    };
    forEachMerged(logs, logcat, onRecord, onLine);
    return EXIT_FINE;
}

}  // namespace JCam::Tool
