#include "tools/jlog/export/Html.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "reader/Line.h"
#include "tools/jlog/analysis/Statistics.h"
#include "tools/jlog/export/DetailBlock.h"
#include "tools/jlog/export/Lanes.h"
#include "tools/jlog/export/Packer.h"
#include "tools/jlog/export/Page.h"

namespace JCam::Tool {

namespace {

using Json = nlohmann::json;

// What a scope lacks, as page/Log.js reads it.
constexpr uint64_t kNoExit = 1;
constexpr uint64_t kNoEnter = 2;
constexpr uint64_t kInFlight = 4;

[[nodiscard]] std::string escape(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '<':
                escaped += "&lt;";
                break;
            case '&':
                escaped += "&amp;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

[[nodiscard]] std::string pack(const Json& json) {
    return deflateToBase64(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

/// One series in the page.
class SeriesPart {
  public:
    SeriesPart(const Analysis& log, const Selection& selection, size_t index)
            : mLog(log), mSelection(selection), mIndex(index), mNumbers(log.scopes.size(), kNone) {
        for (uint32_t i = 0; i < log.scopes.size(); ++i) {
            if (selection.takesScope(log, log.scopes[i])) {
                mNumbers[i] = static_cast<uint32_t>(mScopes.size());
                mScopes.push_back(i);
            }
        }
    }

    [[nodiscard]] Json describe() const;
    void writeScopes(Output& out) const;
    void writeDetails(Output& out) const;

  private:
    [[nodiscard]] int64_t sinceBegin(int64_t time) const {
        return time == kNoTime ? 0 : time - mLog.firstTime;
    }
    [[nodiscard]] std::vector<uint32_t> numbersOf(const std::vector<uint32_t>& scopes) const;
    [[nodiscard]] Json describeLast(const Thread& thread) const;
    void writeBlock(const DetailBlock& block, Output& out) const;

    const Analysis& mLog;
    const Selection& mSelection;
    const size_t mIndex;
    std::vector<uint32_t> mScopes;   // those selected
    std::vector<uint32_t> mNumbers;  // the reverse: the number in the page, or kNone
};

std::vector<uint32_t> SeriesPart::numbersOf(const std::vector<uint32_t>& scopes) const {
    std::vector<uint32_t> numbers;
    for (const uint32_t i : scopes) {
        if (mNumbers[i] != kNone) {
            numbers.push_back(mNumbers[i]);
        }
    }
    return numbers;
}

Json SeriesPart::describeLast(const Thread& thread) const {
    const std::string bytes = mLog.read(thread.lastRecord);
    std::string_view text = bytes;
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    std::string_view reason;
    const auto line = Reader::parseLine(text, reason);
    Json json = {{"time", sinceBegin(thread.lastTime)}, {"level", "V"}, {"text", text}};
    if (line) {
        json["level"] = std::string(1, line->level);
        json["text"] = fmt::format("{}: {}", line->tag, line->text);
    }
    return json;
}

Json SeriesPart::describe() const {
    Json json = {{"pid", mLog.files.pid},
                 {"start", mLog.files.start},
                 {"files", Json::array()},
                 {"problems", mLog.files.problems},
                 {"threads", Json::array()},
                 {"names", Json::array()},
                 {"tags", mLog.tags},
                 {"steps", Json::array()},
                 {"complaints", Json::array()},
                 {"crashes", Json::array()},
                 {"statistics", Json::array()},
                 {"cadences", Json::array()},
                 {"scopes", mScopes.size()},
                 {"events", mLog.events},
                 {"firstTime", mLog.firstTime == kNoTime ? 0 : mLog.firstTime},
                 {"span", sinceBegin(mLog.lastTime)}};
    for (size_t i = 0; i < mLog.files.files.size(); ++i) {
        const Reader::LogFile& file = mLog.files.files[i];
        json["files"].push_back({{"name", file.path.filename().string()},
                                 {"bytes", mLog.files.sizes[i]},
                                 {"isCrash", file.isCrash},
                                 {"isBlackBox", file.isBlackBox}});
    }
    // The page shows what was in flight at the last crash, and threads that had logged by then.
    const std::vector<Thread>& ended =
            mLog.crashes.empty() ? mLog.threads : mLog.crashes.back().threads;
    for (size_t i = 0; i < mLog.threads.size(); ++i) {
        const Thread& thread = mLog.threads[i];
        json["threads"].push_back({{"tid", thread.tid},
                                   {"records", thread.records},
                                   {"last", i < ended.size() ? describeLast(ended[i]) : Json()}});
    }
    for (const ScopeName& name : mLog.names) {
        json["names"].push_back({name.module, name.moduleId, name.name, name.crossesThreads});
    }
    for (const ClockStep& step : mLog.steps) {
        json["steps"].push_back({sinceBegin(step.time), step.offset});
    }
    for (const Complaint& complaint : mLog.complaints) {
        json["complaints"].push_back({{"level", std::string(1, complaint.level)},
                                      {"tag", complaint.tag},
                                      {"count", complaint.count},
                                      {"text", complaint.text},
                                      {"wall", complaint.firstWall}});
    }
    for (const Crash& crash : mLog.crashes) {
        Json threads = Json::array();
        for (const InFlight& thread : findInFlight(mLog, crash.ordinal)) {
            threads.push_back({{"thread", thread.thread}, {"scopes", numbersOf(thread.scopes)}});
        }
        json["crashes"].push_back({{"cause", crash.cause},
                                   {"isBlackBox", mLog.isBlackBox(crash)},
                                   {"time", sinceBegin(crash.time)},
                                   {"threads", std::move(threads)}});
    }
    for (const ScopeStatistics& statistics : summariseScopes(mLog, mSelection)) {
        json["statistics"].push_back({{"name", statistics.name},
                                      {"count", statistics.count},
                                      {"p50", statistics.p50},
                                      {"p99", statistics.p99},
                                      {"max", statistics.max},
                                      {"slowest", mNumbers[statistics.slowest]}});
    }
    for (const Cadence& cadence : findGaps(mLog, mSelection)) {
        Json gaps = Json::array();
        for (const Gap& gap : cadence.gaps) {
            gaps.push_back({{"interval", gap.interval}, {"scope", mNumbers[gap.scope]}});
        }
        Json absent = Json::array();
        for (const NumberRange& range : cadence.absent) {
            absent.push_back({{"first", range.first}, {"last", range.last}});
        }
        json["cadences"].push_back({{"module", cadence.module},
                                    {"requests", cadence.requests},
                                    {"median", cadence.median},
                                    {"limit", cadence.limit},
                                    {"gaps", std::move(gaps)},
                                    {"absent", std::move(absent)}});
    }
    const Health& health = mLog.health;
    json["health"] = {{"records", health.records},
                      {"continuations", health.continuations},
                      {"torn", health.torn},
                      {"skippedBytes", health.skippedBytes},
                      {"cutTexts", health.cutTexts},
                      {"lost", health.lost},
                      {"oddSerials", health.oddSerials},
                      {"repeats", mLog.files.repeats}};
    return json;
}

void SeriesPart::writeScopes(Output& out) const {
    const std::vector<Slice> slices = sliceScopes(mLog);
    // Column by column, so that like stands beside like. The request differs little from the one
    // before it in its lane, the rest from that of the scope before.
    Packer lanes, names, depths, flags, requests, begins, durations, serials, exits;
    std::vector<uint32_t> lastRequests(mLog.threads.size() + mLog.names.size());
    int64_t lastBegin = mLog.firstTime;
    uint32_t lastSerial = 0;
    for (const uint32_t i : mScopes) {
        const Scope& scope = mLog.scopes[i];
        const Slice& slice = slices[i];
        lanes.add(scope.thread);
        names.add(scope.name);
        depths.add(slice.depth);
        flags.add((scope.isOpen() ? kNoExit : 0) | (scope.enter == kNone ? kNoEnter : 0) |
                  (slice.isInFlight ? kInFlight : 0));
        requests.addSigned(int64_t{scope.request} - lastRequests[slice.lane]);
        lastRequests[slice.lane] = scope.request;
        begins.addSigned(slice.begin - lastBegin);
        lastBegin = slice.begin;
        durations.add(static_cast<uint64_t>(slice.end - slice.begin));
        const uint32_t serial = mLog.serialOf(std::min(scope.enter, scope.exit));
        serials.addSigned(int64_t{serial} - lastSerial);
        lastSerial = serial;
        if (mLog.names[scope.name].crossesThreads) {
            exits.add(scope.exitThread == kNone ? scope.thread : scope.exitThread);
        }
    }
    Packer all;
    for (const Packer* column :
         {&lanes, &names, &depths, &flags, &requests, &begins, &durations, &serials, &exits}) {
        all.append(*column);
    }
    out.write(R"(<script type="text/plain" class="scopes">)");
    out.write(deflateToBase64(all.bytes()));
    out.write("</script>\n");
}

void SeriesPart::writeBlock(const DetailBlock& block, Output& out) const {
    out.write(fmt::format(R"(<script type="text/plain" class="details" data-series="{}" )"
                          R"(data-records="{}" data-from="{}" data-to="{}">)",
                          mIndex, block.records(), block.firstTime(), block.lastTime()));
    out.write(block.pack());
    out.write("</script>\n");
}

void SeriesPart::writeDetails(Output& out) const {
    std::optional<DetailBlock> block(std::in_place);
    mLog.forEachRecord([&](const Entry& entry, uint32_t scope) {
        if (entry.kind != Kind::DETAILS || !mSelection.takes(mLog, entry, scope)) {
            return;
        }
        block->add(entry, sinceBegin(entry.time), scope == kNone ? kNone : mNumbers[scope]);
        if (block->isFull()) {
            writeBlock(*block, out);
            block.emplace();
        }
    });
    if (!block->isEmpty()) {
        writeBlock(*block, out);
    }
}

}  // namespace

void writeHtml(const std::vector<std::unique_ptr<Analysis>>& logs, const Selection& selection,
               const std::string& title, bool hasDetails, Output& out) {
    std::vector<SeriesPart> parts;
    Json about = {{"title", title}, {"hasDetails", hasDetails}, {"series", Json::array()}};
    for (const auto& log : logs) {
        if (selection.takesSeries(*log)) {
            parts.emplace_back(*log, selection, parts.size());
            about["series"].push_back(parts.back().describe());
        }
    }
    // The scopes stand before the script, which draws them while the browser still reads the
    // details.
    std::string_view page = kPage;
    const auto writeUntil = [&](std::string_view mark) {
        const size_t end = page.find(mark);
        if (end == std::string_view::npos) {
            throw std::logic_error("the page has no " + std::string(mark));
        }
        out.write(page.substr(0, end));
        page.remove_prefix(end + mark.size());
    };
    writeUntil("<!--TITLE-->");
    out.write(escape(title));
    writeUntil("<!--SCOPES-->");
    out.write(R"(<script type="text/plain" id="about">)");
    out.write(pack(about));
    out.write("</script>\n");
    for (const SeriesPart& part : parts) {
        part.writeScopes(out);
    }
    writeUntil("<!--DETAILS-->");
    if (hasDetails) {
        for (const SeriesPart& part : parts) {
            part.writeDetails(out);
        }
    }
    out.write(page);
}

}  // namespace JCam::Tool
