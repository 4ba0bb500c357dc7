#include "tools/jlog/Options.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "reader/Text.h"

namespace JCam::Tool {

namespace {

void addPaths(CLI::App& command, Options& options) {
    command.add_option("PATH", options.paths, "Log files, or folders that hold some")
            ->required()
            ->type_name("");
}

void addPid(CLI::App& command, Options& options) {
    command.add_option("--pid", options.pid, "This process alone")->type_name("PID");
}

void addFilters(CLI::App& command, Options& options) {
    addPid(command, options);
    command.add_option("--tid", options.tid, "This thread alone")->type_name("TID");
    command.add_option("--module", options.module, "This module alone, by name or hexadecimal id")
            ->type_name("MODULE");
    command.add_option("--level", options.level, "Lines of this level and above: V D I W E F")
            ->check(CLI::IsMember({"V", "D", "I", "W", "E", "F"}).description(""))
            ->type_name("LEVEL");
}

void addSelection(CLI::App& command, Options& options) {
    command.add_option("--since", options.since, "From this time on: [[YYYY-]MM-DD ]hh:mm[:ss[.f]]")
            ->type_name("TIME");
    command.add_option("--until", options.until, "Up to this time")->type_name("TIME");
    addFilters(command, options);
}

void addLogcat(CLI::App& command, Options& options) {
    command.add_option("--logcat", options.logcat,
                       "The Android log of the same time: adb logcat -d -v threadtime -v usec")
            ->type_name("FILE");
}

void addSeconds(CLI::App& command, const char* name, double& seconds, const char* what) {
    constexpr double kMax = 1e6;
    command.add_option(name, seconds, what)
            ->check(CLI::Range(kMax).description(""))
            ->type_name("S")
            ->capture_default_str();
}

void addTimeZone(CLI::App& command, Options& options) {
    command.add_option("--tz", options.timeZone,
                       "The time zone of the device, like Asia/Taipei; else the machine's")
            ->type_name("ZONE");
}

void addJson(CLI::App& command, Options& options, const char* what) {
    command.add_flag("--json", options.json, what);
}

CLI::App& addCommand(CLI::App& app, Options& options, Command command, const char* name,
                     const char* what, const char* example) {
    CLI::App& added = *app.add_subcommand(name, what);
    added.footer(std::string("Example:\n  ") + example);
    added.callback([&options, command] { options.command = command; });
    return added;
}

void addCommands(CLI::App& app, Options& options) {
    CLI::App& report =
            addCommand(app, options, Command::REPORT, "report",
                       "What the files say: health, slowest scopes, gaps, errors, in flight",
                       "jlog report cam_ulog");
    addPaths(report, options);
    addSelection(report, options);
    addLogcat(report, options);
    report.add_flag("--strict", options.strict,
                    "Exit with status 1 if records are lost or damaged, or if it crashed");
    report.add_flag("--all", options.all,
                    "Every series in full; otherwise, of more than four, the newest");
    addJson(report, options, "One JSON document");

    CLI::App& requests =
            addCommand(app, options, Command::REQUESTS, "requests", "One line for each request",
                       "jlog requests cam_ulog --slow 10 --module Preview");
    addPaths(requests, options);
    addSelection(requests, options);
    requests.add_option("--slow", options.slow, "The N that took longest, the slowest first")
            ->type_name("N");
    addJson(requests, options, "One JSON object a line");

    CLI::App& show =
            addCommand(app, options, Command::SHOW, "show",
                       "One request through modules and threads, or what surrounds a line",
                       "jlog show cam_ulog --request 811\n"
                       "  jlog show cam_ulog --around 'statistics are damaged' --before 0.05");
    addPaths(show, options);
    addSelection(show, options);
    show.add_option("--request", options.request, "The request with this number")->type_name("N");
    show.add_option("--around", options.around,
                    "Lines around this time, or around lines with this text")
            ->type_name("TIME|TEXT");
    addSeconds(show, "--before", options.before, "Seconds in front of it");
    addSeconds(show, "--after", options.after, "Seconds behind it");
    addLogcat(show, options);
    addJson(show, options, "One JSON object a line");

    CLI::App& crash = addCommand(app, options, Command::CRASH, "crash",
                                 "The newest crash: its cause, and what was in flight",
                                 "jlog crash cam_ulog");
    addPaths(crash, options);
    addPid(crash, options);
    addLogcat(crash, options);
    addJson(crash, options, "One JSON document");

    CLI::App& merge = addCommand(app, options, Command::MERGE, "merge",
                                 "All lines in one stream in time, each with its year, none twice",
                                 "jlog merge cam_ulog --logcat logcat.txt > merged.txt");
    addPaths(merge, options);
    addSelection(merge, options);
    addLogcat(merge, options);
    addJson(merge, options, "One JSON object a line");

    CLI::App& diff = addCommand(app, options, Command::DIFF, "diff",
                                "Scopes and errors of two builds: counts, p50, p99, new and gone",
                                "jlog diff old/cam_ulog new/cam_ulog");
    diff.add_option("OLD", options.oldPath, "A file or folder of the build before")
            ->required()
            ->type_name("");
    diff.add_option("NEW", options.newPath, "One of the build that is compared with it")
            ->required()
            ->type_name("");
    addSelection(diff, options);
    diff.add_option("--threshold", options.threshold, "Smaller changes are none")
            ->check(CLI::NonNegativeNumber.description(""))
            ->type_name("PERCENT")
            ->capture_default_str();
    addJson(diff, options, "One JSON document");

    CLI::App& follow = addCommand(app, options, Command::FOLLOW, "follow",
                                  "Lines as they are written, over rotations and restarts",
                                  "jlog follow /data/vendor/cam_ulog --level W");
    follow.add_option("FOLDER", options.paths, "The folder of the log files")
            ->expected(1)
            ->required()
            ->type_name("");
    addFilters(follow, options);
    addJson(follow, options, "One JSON object a line");

    CLI::App& exported = addCommand(app, options, Command::EXPORT, "export",
                                    "A file for a trace viewer, a browser or a database",
                                    "jlog export html cam_ulog -o report.html\n"
                                    "  jlog export perfetto cam_ulog -o trace.pftrace");
    exported.add_option("FORMAT", options.format,
                        "perfetto, json (Chrome trace events), html or ndjson")
            ->check(CLI::IsMember({"perfetto", "json", "html", "ndjson"}).description(""))
            ->required();
    addPaths(exported, options);
    exported.add_option("-o,--output", options.outputFile, "The file to make; - is standard output")
            ->required()
            ->type_name("FILE");
    addSelection(exported, options);
    exported.add_flag("--scopes", options.scopesOnly, "Scopes alone, without details");
    exported.add_flag("--records", options.recordsOnly,
                      "ndjson: an object for each record, not scope");
    exported.add_option("--label", options.label,
                        "ndjson: a text for the column label, for example the build")
            ->type_name("TEXT");
    addTimeZone(exported, options);

    CLI::App& recovered =
            addCommand(app, options, Command::RECOVER, "recover",
                       "The text of a black box that no logger has recovered",
                       "jlog recover cam_jlog_4321_01.box -o box.txt --tz Asia/Taipei\n"
                       "  jlog crash cam_ulog box.txt");
    recovered.add_option("BOX", options.paths, "The file that the dead process has left")
            ->expected(1)
            ->required()
            ->type_name("");
    recovered
            .add_option("-o,--output", options.outputFile,
                        "The file to make; without it, or with -, standard output")
            ->type_name("FILE");
    addTimeZone(recovered, options);
}

bool isCommand(const CLI::App& app, const std::string& name) {
    const std::vector<const CLI::App*> commands =
            app.get_subcommands([](const CLI::App*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [&](const CLI::App* command) { return command->get_name() == name; });
}

}  // namespace

std::optional<int> parseOptions(int argc, char** argv, Options& options) {
    CLI::App app(
            "Reads the log files of the camera logger: what was in flight at a crash, which\n"
            "requests were slow, what is missing.");
    app.name("jlog");
    app.footer(
            "'jlog COMMAND --help' has the options of a command. 'jlog PATH...' is 'jlog report "
            "PATH...'.\nExit status: 0; 1 found something (diff, report --strict) or nothing "
            "(show, crash, recover);\n"
            "2 usage; 3 unreadable.");
    app.require_subcommand(1);
    addCommands(app, options);

    std::vector<std::string> arguments(argv + 1, argv + argc);
    // Without a command it is the first one.
    if (!arguments.empty() && !arguments.front().starts_with('-') &&
        !isCommand(app, arguments.front())) {
        arguments.insert(arguments.begin(), "report");
    }
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(std::move(reversed));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);  // help
        }
        throw std::invalid_argument(error.what());
    }
    if (options.command == Command::SHOW && options.request.has_value() != options.around.empty()) {
        throw std::invalid_argument("show takes either --request N or --around TIME|TEXT");
    }
    if (options.scopesOnly && options.recordsOnly) {
        throw std::invalid_argument("--scopes and --records exclude each other");
    }
    return std::nullopt;
}

std::optional<int64_t> parseTime(const std::string& text, int64_t near) {
    using namespace std::chrono;
    std::string_view rest = text;
    const sys_time<microseconds> nearTime{microseconds(near)};
    year_month_day date(floor<days>(nearTime));
    const auto number = [&rest](size_t digits) {
        int value = 0;
        std::string_view taken = rest.substr(0, digits);
        static_cast<void>(Reader::takeNumber(taken, value));
        rest.remove_prefix(digits);
        return value;
    };
    if (Reader::hasShape(rest, "0000-00-00 ")) {
        date = year(number(4)) / date.month() / date.day();
        rest.remove_prefix(1);
    }
    if (Reader::hasShape(rest, "00-00 ")) {
        const auto dayMonth = month(static_cast<unsigned int>(number(2)));
        rest.remove_prefix(1);
        date = date.year() / dayMonth / day(static_cast<unsigned int>(number(2)));
        rest.remove_prefix(1);
    }
    if (!date.ok() || !Reader::hasShape(rest, "00:00")) {
        return std::nullopt;
    }
    const int hours = number(2);
    rest.remove_prefix(1);
    const int minutes = number(2);
    int seconds = 0;
    int64_t micros = 0;
    if (Reader::hasShape(rest, ":00")) {
        rest.remove_prefix(1);
        seconds = number(2);
        if (Reader::take(rest, ".")) {
            for (int64_t unit = 100000; !rest.empty() && rest[0] >= '0' && rest[0] <= '9';
                 unit /= 10) {
                micros += (rest[0] - '0') * unit;
                rest.remove_prefix(1);
            }
        }
    }
    if (!rest.empty() || hours > 23 || minutes > 59 || seconds > 59) {
        return std::nullopt;
    }
    const sys_seconds time = sys_days(date) + std::chrono::hours(hours) +
                             std::chrono::minutes(minutes) + std::chrono::seconds(seconds);
    return microseconds(time.time_since_epoch()).count() + micros;
}

}  // namespace JCam::Tool
