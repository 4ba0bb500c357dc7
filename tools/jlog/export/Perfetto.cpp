#include "tools/jlog/export/Perfetto.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <protozero/buffer_fixed.hpp>
#include <protozero/pbf_writer.hpp>
#include <protozero/varint.hpp>

#include "tools/jlog/export/Timeline.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

using protozero::pbf_writer;

// Field numbers of the public definitions, message by message.
namespace Trace {
constexpr protozero::pbf_tag_type kPacket = 1;
}
namespace TracePacket {
constexpr protozero::pbf_tag_type kClockSnapshot = 6;
constexpr protozero::pbf_tag_type kTimestamp = 8;
constexpr protozero::pbf_tag_type kSequenceId = 10;
constexpr protozero::pbf_tag_type kTrackEvent = 11;
constexpr protozero::pbf_tag_type kInternedData = 12;
constexpr protozero::pbf_tag_type kSequenceFlags = 13;
constexpr protozero::pbf_tag_type kAndroidLog = 39;
constexpr protozero::pbf_tag_type kTimestampClockId = 58;
constexpr protozero::pbf_tag_type kTrackDescriptor = 60;
constexpr protozero::pbf_tag_type kFirstPacketOnSequence = 87;
}  // namespace TracePacket
namespace ClockSnapshot {
constexpr protozero::pbf_tag_type kClocks = 1;
constexpr protozero::pbf_tag_type kClockId = 1;
constexpr protozero::pbf_tag_type kTimestamp = 2;
}  // namespace ClockSnapshot
namespace TrackDescriptor {
constexpr protozero::pbf_tag_type kUuid = 1;
constexpr protozero::pbf_tag_type kName = 2;
constexpr protozero::pbf_tag_type kProcess = 3;
constexpr protozero::pbf_tag_type kThread = 4;
constexpr protozero::pbf_tag_type kParentUuid = 5;
constexpr protozero::pbf_tag_type kPid = 1;          // of a process or thread
constexpr protozero::pbf_tag_type kTid = 2;          // of a thread
constexpr protozero::pbf_tag_type kProcessName = 6;  // of a process
}  // namespace TrackDescriptor
namespace InternedData {
constexpr protozero::pbf_tag_type kCategories = 1;
constexpr protozero::pbf_tag_type kEventNames = 2;
constexpr protozero::pbf_tag_type kAnnotationNames = 3;
constexpr protozero::pbf_tag_type kIid = 1;
constexpr protozero::pbf_tag_type kName = 2;
}  // namespace InternedData
namespace TrackEvent {
constexpr protozero::pbf_tag_type kCategoryIids = 3;
constexpr protozero::pbf_tag_type kAnnotations = 4;
constexpr protozero::pbf_tag_type kType = 9;
constexpr protozero::pbf_tag_type kNameIid = 10;
constexpr protozero::pbf_tag_type kTrackUuid = 11;
constexpr protozero::pbf_tag_type kName = 23;
constexpr protozero::pbf_tag_type kFlowIds = 47;
constexpr protozero::pbf_tag_type kTerminatingFlowIds = 48;
constexpr protozero::pbf_tag_type kCorrelationId = 52;
constexpr protozero::pbf_tag_type kAnnotationNameIid = 1;
constexpr protozero::pbf_tag_type kAnnotationUint = 3;
}  // namespace TrackEvent
namespace AndroidLog {
constexpr protozero::pbf_tag_type kEvents = 1;
constexpr protozero::pbf_tag_type kPid = 2;
constexpr protozero::pbf_tag_type kTid = 3;
constexpr protozero::pbf_tag_type kTimestamp = 5;
constexpr protozero::pbf_tag_type kTag = 6;
constexpr protozero::pbf_tag_type kPriority = 7;
constexpr protozero::pbf_tag_type kMessage = 8;
}  // namespace AndroidLog

constexpr uint32_t kClockRealtime = 1;
constexpr uint32_t kClockBoottime = 6;
constexpr uint32_t kStateCleared = 1;
constexpr uint32_t kNeedsState = 2;

enum EventType : int32_t { SLICE_BEGIN = 1, SLICE_END = 2, INSTANT = 3 };

/// Their place in the table, from 1 on.
enum Annotation : uint64_t {
    REQUEST = 1,
    SERIAL,
    MODULE_ID,
    TID,
    EXIT_SERIAL,
    EXIT_TID,
    IN_FLIGHT,
    EXIT_LOST
};
constexpr std::array<std::string_view, 8> kAnnotationNames = {
        "request",     "serial",   "module_id", "tid",
        "exit_serial", "exit_tid", "in_flight", "exit_lost"};

/// Those of the series follow.
constexpr uint32_t kClockSequence = 1;
constexpr size_t kLogBatchBytes = 65536;

/// Fields of a message that is made anew for each event. All that come from this file fit in; what
/// does not throws.
class SmallMessage {
  public:
    SmallMessage() : mBuffer(mBytes.data(), mBytes.size()), mWriter(mBuffer) {}
    SmallMessage(const SmallMessage&) = delete;
    SmallMessage& operator=(const SmallMessage&) = delete;

    auto* operator->() { return &mWriter; }
    auto& operator*() { return mWriter; }
    /// The begin of a field that the caller appends in its own place.
    void addLength(protozero::pbf_tag_type field, size_t length) {
        protozero::add_varint_to_buffer(&mBuffer, field << 3U | 2U);
        protozero::add_varint_to_buffer(&mBuffer, length);
    }
    void append(std::string_view fields) { mBuffer.append(fields.data(), fields.size()); }
    [[nodiscard]] const char* data() const { return mBuffer.data(); }
    [[nodiscard]] size_t size() const { return mBuffer.size(); }

  private:
    std::array<char, 192> mBytes;  // not initialised, as each event has some messages
    protozero::fixed_size_buffer_adaptor mBuffer;
    protozero::basic_pbf_writer<protozero::fixed_size_buffer_adaptor> mWriter;
};

/// `text`, or a copy of it in `buffer` without what is no UTF-8.
std::string_view validUtf8(std::string_view text, std::string& buffer) {
    const bool isAscii = std::all_of(text.begin(), text.end(),
                                     [](char c) { return static_cast<signed char>(c) >= 0; });
    return isAscii ? text : buffer = toUtf8(text);
}

template <typename Writer>
void addAnnotation(Writer& event, Annotation name, uint64_t value) {
    SmallMessage annotation;
    annotation->add_uint64(TrackEvent::kAnnotationNameIid, name);
    annotation->add_uint64(TrackEvent::kAnnotationUint, value);
    event.add_message(TrackEvent::kAnnotations, annotation.data(), annotation.size());
}

void addInterned(pbf_writer& data, protozero::pbf_tag_type table, uint64_t iid,
                 std::string_view text) {
    std::string buffer;
    const std::string_view valid = validUtf8(text, buffer);
    pbf_writer entry(data, table);
    entry.add_uint64(InternedData::kIid, iid);
    entry.add_string(InternedData::kName, valid.data(), valid.size());
}

/// A number that is the same whenever the same log is written, and another for all else, in this
/// trace and in those that it may be merged with: FNV-1a.
uint64_t hashOf(std::string_view text) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
    return hash;
}

int32_t priorityOf(char level) {
    return static_cast<int32_t>(std::string_view("VDIWEF").find(level)) + 2;
}

void writePacket(Output& out, std::string_view packet) {
    std::array<char, 1 + protozero::max_varint_length> head;
    head[0] = Trace::kPacket << 3U | 2U;
    const int size = protozero::add_varint_to_buffer(&head[1], packet.size());
    out.write({head.data(), 1 + static_cast<size_t>(size)});
    out.write(packet);
}

/// Tells which clock the times of the trace are of. The viewer drops log events if it comes later.
void writeClocks(Output& out, int64_t time) {
    std::string packet;
    pbf_writer fields(packet);
    fields.add_uint32(TracePacket::kSequenceId, kClockSequence);
    pbf_writer snapshot(fields, TracePacket::kClockSnapshot);
    for (const uint32_t id : {kClockRealtime, kClockBoottime}) {
        pbf_writer clock(snapshot, ClockSnapshot::kClocks);
        clock.add_uint32(ClockSnapshot::kClockId, id);
        clock.add_uint64(ClockSnapshot::kTimestamp, static_cast<uint64_t>(time));
    }
    snapshot.commit();
    writePacket(out, packet);
}

/// Writes one series, as a packet sequence of its own.
class SeriesWriter : public Timeline::Writer {
  public:
    SeriesWriter(const Analysis& log, const Timeline& timeline, uint32_t sequence, Output& out)
            : mLog(log),
              mTimeline(timeline),
              mOut(out),
              mSequence(sequence),
              mSeries(fmt::format("jlog {} {} {}", log.files.pid, log.files.start, sequence)),
              mFlows(hashOf(mSeries + " flows")),
              mCorrelation(uint64_t{sequence} << 32U) {
        pbf_writer tail(mPacketTail);
        tail.add_uint32(TracePacket::kTimestampClockId, kClockRealtime);
        tail.add_uint32(TracePacket::kSequenceId, sequence);
        tail.add_uint32(TracePacket::kSequenceFlags, kNeedsState);
    }

    void writeAll(bool withDetails) {
        intern();
        describeProcess();
        for (uint32_t track = 0; track < mTimeline.tracks().size(); ++track) {
            describeTrack(track);
        }
        prepareFields();
        mTimeline.visit(*this, withDetails);
        writeLogEvents();
    }

    void begin(uint32_t i, int64_t time) override {
        const Scope& scope = mLog.scopes[i];
        SmallMessage event;
        addAnnotation(*event, REQUEST, scope.request);
        addAnnotation(*event, SERIAL, mLog.serialOf(scope.enter));
        if (mTimeline.isInLane(i)) {
            addAnnotation(*event, TID, tidOf(scope.thread));
        }
        if (scope.isOpen()) {
            addAnnotation(*event, mTimeline.mayHaveLostExit(i) ? EXIT_LOST : IN_FLIGHT, 1);
        }
        event->add_uint64(TrackEvent::kCorrelationId, mCorrelation + scope.request);
        if (mTimeline.hasSuccessor(i)) {
            event->add_fixed64(TrackEvent::kFlowIds, mFlows + i);
        }
        if (mTimeline.predecessorOf(i) != kNone) {
            event->add_fixed64(TrackEvent::kTerminatingFlowIds,
                               mFlows + mTimeline.predecessorOf(i));
        }
        writeEvent(i, time, mBegins[scope.name], event);
    }

    void end(uint32_t i, int64_t time) override {
        const Scope& scope = mLog.scopes[i];
        SmallMessage event;
        if (scope.isClosed()) {
            addAnnotation(*event, EXIT_SERIAL, mLog.serialOf(scope.exit));
            if (mTimeline.isInLane(i)) {
                addAnnotation(*event, EXIT_TID, tidOf(scope.exitThread));
            }
        }
        writeEvent(i, time, mEnds[scope.name], event);
    }

    void details(const Entry& entry, int64_t time) override {
        if (mLogEvents.empty()) {
            mLogTime = time;
        }
        const std::string_view text = validUtf8(entry.text, mText);
        SmallMessage fields;
        fields->add_uint64(AndroidLog::kTimestamp, static_cast<uint64_t>(time));
        fields->add_int32(AndroidLog::kPriority, priorityOf(entry.level));
        fields.addLength(AndroidLog::kMessage, text.size());
        pbf_writer(mLogEvents)
                .add_bytes_vectored(AndroidLog::kEvents, mLogOrigins[entry.thread],
                                    mLogTags[entry.name], fields, text);
        if (mLogEvents.size() >= kLogBatchBytes) {
            writeLogEvents();
        }
    }

    void note(std::string_view text, int64_t time) override {
        std::string buffer;
        const std::string_view valid = validUtf8(text, buffer);
        std::string packet;
        pbf_writer fields(packet);
        fields.add_uint64(TracePacket::kTimestamp, static_cast<uint64_t>(time));
        packet += mPacketTail;
        pbf_writer event(fields, TracePacket::kTrackEvent);
        event.add_int32(TrackEvent::kType, INSTANT);
        event.add_uint64(TrackEvent::kTrackUuid, processUuid());
        event.add_string(TrackEvent::kName, valid.data(), valid.size());
        event.commit();
        writePacket(mOut, packet);
    }

  private:
    [[nodiscard]] uint64_t tidOf(uint32_t thread) const {
        return static_cast<uint64_t>(mLog.threads[thread].tid);
    }
    [[nodiscard]] uint64_t processUuid() const { return hashOf(mSeries + " process"); }
    [[nodiscard]] uint64_t uuidOf(uint32_t track) const {
        const uint32_t thread = mTimeline.tracks()[track].thread;
        return hashOf(thread != kNone ? fmt::format("{} tid {}", mSeries, tidOf(thread))
                                      : fmt::format("{} lane {}", mSeries, track));
    }

    void describeProcess() {
        std::string packet;
        pbf_writer fields(packet);
        packet += mPacketTail;
        pbf_writer descriptor(fields, TracePacket::kTrackDescriptor);
        descriptor.add_uint64(TrackDescriptor::kUuid, processUuid());
        pbf_writer process(descriptor, TrackDescriptor::kProcess);
        process.add_int32(TrackDescriptor::kPid, mLog.files.pid);
        process.add_string(TrackDescriptor::kProcessName, mTimeline.title());
        process.commit();
        descriptor.commit();
        writePacket(mOut, packet);
    }

    void describeTrack(uint32_t index) {
        const Track& track = mTimeline.tracks()[index];
        if (!track.isUsed) {
            return;
        }
        std::string packet;
        pbf_writer fields(packet);
        packet += mPacketTail;
        pbf_writer descriptor(fields, TracePacket::kTrackDescriptor);
        descriptor.add_uint64(TrackDescriptor::kUuid, uuidOf(index));
        descriptor.add_uint64(TrackDescriptor::kParentUuid, processUuid());
        if (track.thread != kNone) {
            pbf_writer thread(descriptor, TrackDescriptor::kThread);
            thread.add_int32(TrackDescriptor::kPid, mLog.files.pid);
            thread.add_int64(TrackDescriptor::kTid, mLog.threads[track.thread].tid);
        } else {
            const ScopeName& name = mLog.names[track.name];
            std::string buffer;
            const std::string text =
                    fmt::format("{}:{:x} {}", name.module, name.moduleId, name.name);
            const std::string_view valid = validUtf8(text, buffer);
            descriptor.add_string(TrackDescriptor::kName, valid.data(), valid.size());
        }
        descriptor.commit();
        writePacket(mOut, packet);
    }

    /// Categories and names have the numbers of Analysis::names, from 1 on. Each kind has a table
    /// of its own.
    void intern() {
        std::string packet;
        pbf_writer fields(packet);
        fields.add_uint32(TracePacket::kSequenceId, mSequence);
        fields.add_bool(TracePacket::kFirstPacketOnSequence, true);
        fields.add_uint32(TracePacket::kSequenceFlags, kStateCleared | kNeedsState);
        pbf_writer data(fields, TracePacket::kInternedData);
        for (size_t i = 0; i < mLog.names.size(); ++i) {
            addInterned(data, InternedData::kCategories, i + 1, mLog.names[i].module);
            addInterned(data, InternedData::kEventNames, i + 1, mLog.names[i].name);
        }
        for (size_t i = 0; i < kAnnotationNames.size(); ++i) {
            addInterned(data, InternedData::kAnnotationNames, i + 1, kAnnotationNames[i]);
        }
        data.commit();
        writePacket(mOut, packet);
    }

    /// What the events of a name, a track, a thread or a tag share.
    void prepareFields() {
        for (size_t i = 0; i < mLog.names.size(); ++i) {
            for (const auto& [type, fields] :
                 {std::pair(SLICE_BEGIN, &mBegins), {SLICE_END, &mEnds}}) {
                pbf_writer event(fields->emplace_back());
                event.add_int32(TrackEvent::kType, type);
                event.add_uint64(TrackEvent::kCategoryIids, i + 1);
                event.add_uint64(TrackEvent::kNameIid, i + 1);
            }
            pbf_writer event(mBegins.back());
            addAnnotation(event, MODULE_ID, mLog.names[i].moduleId);
        }
        for (uint32_t track = 0; track < mTimeline.tracks().size(); ++track) {
            pbf_writer(mTrackFields.emplace_back())
                    .add_uint64(TrackEvent::kTrackUuid, uuidOf(track));
        }
        for (const Thread& thread : mLog.threads) {
            pbf_writer origin(mLogOrigins.emplace_back());
            origin.add_int32(AndroidLog::kPid, mLog.files.pid);
            origin.add_int32(AndroidLog::kTid, thread.tid);
        }
        for (const std::string& tag : mLog.tags) {
            const std::string_view valid = validUtf8(tag, mText);
            pbf_writer(mLogTags.emplace_back())
                    .add_string(AndroidLog::kTag, valid.data(), valid.size());
        }
    }

    void writeEvent(uint32_t scope, int64_t time, std::string_view nameFields,
                    const SmallMessage& event) {
        SmallMessage packet;
        packet->add_uint64(TracePacket::kTimestamp, static_cast<uint64_t>(time));
        packet.append(mPacketTail);
        packet->add_bytes_vectored(TracePacket::kTrackEvent, nameFields,
                                   mTrackFields[mTimeline.trackOf(scope)], event);
        writePacket(mOut, {packet.data(), packet.size()});
    }

    void writeLogEvents() {
        if (mLogEvents.empty()) {
            return;
        }
        std::string packet;
        pbf_writer fields(packet);
        fields.add_uint64(TracePacket::kTimestamp, static_cast<uint64_t>(mLogTime));
        packet += mPacketTail;
        fields.add_message(TracePacket::kAndroidLog, mLogEvents);
        writePacket(mOut, packet);
        mLogEvents.clear();
    }

    const Analysis& mLog;
    const Timeline& mTimeline;
    Output& mOut;
    const uint32_t mSequence;
    const std::string mSeries;         // a name that no other has
    const uint64_t mFlows;             // the flow that begins in the first scope
    const uint64_t mCorrelation;       // of request 0
    std::string mPacketTail;           // fields that each packet has
    std::vector<std::string> mBegins;  // fields of an event of Analysis::names
    std::vector<std::string> mEnds;
    std::vector<std::string> mTrackFields;  // of an event in Timeline::tracks()
    std::vector<std::string> mLogOrigins;   // of a log event of Analysis::threads
    std::vector<std::string> mLogTags;      // of a log event of Analysis::tags
    std::string mLogEvents;                 // that are not written yet
    int64_t mLogTime = 0;                   // of the first of them
    std::string mText;
};

}  // namespace

void writePerfetto(const std::vector<std::unique_ptr<Analysis>>& logs, const Selection& selection,
                   const TraceOptions& options, Output& out) {
    setTimeZone(options.timeZone);
    uint32_t sequence = kClockSequence;
    for (const std::unique_ptr<Analysis>& log : logs) {
        if (log->firstTime == kNoTime || !selection.takesSeries(*log)) {
            continue;
        }
        const Timeline timeline(*log, selection);
        if (sequence == kClockSequence) {
            writeClocks(out, UtcClock(*log).nanoseconds(log->firstTime));
        }
        SeriesWriter(*log, timeline, ++sequence, out).writeAll(!options.scopesOnly);
    }
}

}  // namespace JCam::Tool
