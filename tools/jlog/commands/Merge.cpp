#include <string>

#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/MergedRecords.h"
#include "tools/jlog/export/Json.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

int merge(const Logs& logs, const Selection& selection, const Options& options, Output& out) {
    Page page(out);
    std::string json;
    forEachMerged(logs, [&](const Analysis& log, const Entry& entry, const Scope* scope) {
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
    });
    return EXIT_FINE;
}

}  // namespace JCam::Tool
