#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/jlog/analysis/Statistics.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/Describe.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

using Align = Table::Align;
using Json = nlohmann::ordered_json;

/// Shorter differences are the noise of a clock that counts microseconds, and of a scheduler.
constexpr int64_t kMinChangeUs = 50;

struct Side {
    size_t count = 0;
    int64_t p50 = 0;
    int64_t p99 = 0;
};

/// The same scope in two builds.
struct Row {
    std::string name;
    std::optional<Side> before;
    std::optional<Side> after;
};

/// Of several series of a build, each name's longest: a start of a camera has many short ones.
using Sides = std::map<std::string, Side>;

Sides collect(const Logs& logs, const Selection& selection) {
    Sides sides;
    for (const auto& log : logs) {
        for (const ScopeStatistics& row : summariseScopes(*log, selection)) {
            Side& side = sides[nameOf(*log, row.name)];
            if (row.count > side.count) {
                side = {row.count, row.p50, row.p99};
            }
        }
    }
    return sides;
}

bool isChange(int64_t before, int64_t after, double threshold) {
    const int64_t change = std::llabs(after - before);
    return change >= kMinChangeUs &&
           static_cast<double>(change) * 100 >
                   threshold * static_cast<double>(std::max<int64_t>(before, 1));
}

bool isChanged(const Row& row, double threshold) {
    return !row.before || !row.after || isChange(row.before->p50, row.after->p50, threshold) ||
           isChange(row.before->p99, row.after->p99, threshold);
}

std::string describeChange(int64_t before, int64_t after) {
    const double percent = static_cast<double>(after - before) * 100 /
                           static_cast<double>(std::max<int64_t>(before, 1));
    const bool isSeen = std::llabs(after - before) >= kMinChangeUs && std::fabs(percent) >= 0.5;
    return isSeen ? fmt::format("{:+.0f} %", percent) : "";
}

/// Kinds of warnings and errors: level, tag, and the text without its numbers.
std::map<std::string, uint64_t> countComplaints(const Logs& logs, const Selection& selection) {
    std::map<std::string, uint64_t> counts;
    for (const auto& log : logs) {
        for (const Complaint& complaint : log->complaints) {
            if (!isAsImportant(complaint.level, selection.level)) {
                continue;
            }
            std::string kind = fmt::format("{} {}: ", complaint.level, log->tags[complaint.tag]);
            for (const char c : complaint.text) {
                if (c < '0' || c > '9') {
                    kind += c;
                } else if (kind.back() != '#') {
                    kind += '#';
                }
            }
            counts[kind] += complaint.count;
        }
    }
    return counts;
}

void printRows(const std::vector<Row>& rows, double threshold, Page& page) {
    Table table({Align::LEFT, Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::RIGHT,
                 Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::LEFT});
    table.addRow({"scope", "count", "new", "p50", "new", "", "p99", "new", "", ""});
    for (const Row& row : rows) {
        const auto count = [](const std::optional<Side>& side) {
            return side ? formatCount(side->count) : "-";
        };
        const auto time = [](const std::optional<Side>& side, int64_t Side::*member) {
            return side ? formatDuration(*side.*member) : "-";
        };
        const auto change = [&](int64_t Side::*member) {
            return row.before && row.after ? describeChange(*row.before.*member, *row.after.*member)
                                           : "";
        };
        table.addRow({row.name, count(row.before), count(row.after), time(row.before, &Side::p50),
                      time(row.after, &Side::p50), change(&Side::p50), time(row.before, &Side::p99),
                      time(row.after, &Side::p99), change(&Side::p99),
                      !row.before                 ? "new"
                      : !row.after                ? "gone"
                      : isChanged(row, threshold) ? "changed"
                                                  : ""});
    }
    table.print(page, true);
}

Json toJson(const std::optional<Side>& side) {
    return side ? Json{{"count", side->count}, {"p50_us", side->p50}, {"p99_us", side->p99}}
                : Json();
}

}  // namespace

int diff(const Logs& before, const Logs& after, const Selection& selection, const Options& options,
         Output& out) {
    std::map<std::string, Row> byName;
    for (const auto& [name, side] : collect(before, selection)) {
        byName[name].before = side;
    }
    for (const auto& [name, side] : collect(after, selection)) {
        byName[name].after = side;
    }
    std::vector<Row> rows;
    rows.reserve(byName.size());
    for (const auto& [name, row] : byName) {
        rows.push_back({name, row.before, row.after});
    }
    // What has changed first, the largest p99 in front.
    std::stable_sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) {
        const auto rank = [&](const Row& row) {
            return std::pair(
                    isChanged(row, options.threshold),
                    std::max(row.before ? row.before->p99 : 0, row.after ? row.after->p99 : 0));
        };
        return rank(a) > rank(b);
    });
    const std::map<std::string, uint64_t> oldKinds = countComplaints(before, selection);
    const std::map<std::string, uint64_t> newKinds = countComplaints(after, selection);
    const auto onlyIn = [](const auto& kinds, const auto& others) {
        std::map<std::string, uint64_t> only;
        std::copy_if(kinds.begin(), kinds.end(), std::inserter(only, only.end()),
                     [&](const auto& kind) { return !others.contains(kind.first); });
        return only;
    };
    const auto newOnly = onlyIn(newKinds, oldKinds);
    const auto goneOnly = onlyIn(oldKinds, newKinds);

    if (options.json) {
        Json document = {{"scopes", Json::array()},
                         {"new_errors", Json::object()},
                         {"gone_errors", Json::object()}};
        for (const Row& row : rows) {
            document["scopes"].push_back({{"name", toUtf8(row.name)},
                                          {"old", toJson(row.before)},
                                          {"new", toJson(row.after)},
                                          {"changed", isChanged(row, options.threshold)}});
        }
        for (const auto& [kind, count] : newOnly) {
            document["new_errors"][toUtf8(kind)] = count;
        }
        for (const auto& [kind, count] : goneOnly) {
            document["gone_errors"][toUtf8(kind)] = count;
        }
        out.write(document.dump(2) + "\n");
    } else {
        Page page(out);
        printRows(rows, options.threshold, page);
        const auto print = [&](const auto& kinds, std::string_view what, Colour colour) {
            for (const auto& [kind, count] : kinds) {
                page.add(fmt::format("{:<6}{:>9} x ", what, formatCount(count)), colour)
                        .addLogged(kind)
                        .endLine();
            }
        };
        print(newOnly, "new", Colour::RED);
        print(goneOnly, "gone", Colour::GREEN);
    }
    const bool isDifferent = !newOnly.empty() || !goneOnly.empty() ||
                             std::any_of(rows.begin(), rows.end(), [&](const Row& row) {
                                 return isChanged(row, options.threshold);
                             });
    return isDifferent ? EXIT_FOUND : EXIT_FINE;
}

}  // namespace JCam::Tool
