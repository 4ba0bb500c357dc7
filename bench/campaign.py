#!/usr/bin/env python3
"""Runs all benchmarks, prints one table of ratios and draws the charts.

It measures everything several times and takes the median. The loggers take turns, so that other load
on the machine affects all of them. The table compares each figure with its peer or its floor of the
same run, because absolute times depend on the machine and the moment.
"""

import argparse
import collections
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys
import time

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402  (after the choice of the back end)

THREADS = [1, 2, 4, 8, 16]
TEXT_BYTES = [0, 16, 60, 128, 256, 512, 1023]
NAMES = {"jlog": "jcam_jlog", "boxed": "with a black box", "ring": "ring by hand", "buffers": "buffers by hand",
         "spdlog": "spdlog async", "glog": "glog"}
COLOURS = {"jlog": "tab:blue", "spdlog": "tab:orange", "glog": "tab:green"}
CROWD = 64  # threads


class Campaign:
    def __init__(self, folder, rounds):
        self.load = folder / "jlog_loadbench"
        self.micro = folder / "jlog_microbench"
        self.rounds = rounds
        self.loggers = self._known_loggers()
        self.results = collections.defaultdict(list)

    def _known_loggers(self):
        text = subprocess.run([self.load, "bursts", "--help"], capture_output=True, text=True,
                              check=True).stdout
        return [name for name in NAMES if name in text]

    def run(self):
        for index in range(self.rounds):
            print(f"round {index + 1} of {self.rounds}", file=sys.stderr)
            self._calls()
            self._bursts()
            self._short_bursts()
            self._field()
            self._crowd()
            self._sustained()
            self._text_lengths()
        self._resources()

    def _known(self, *names):
        return [name for name in names if name in self.loggers]

    def _measure(self, key, command, *options):
        text = subprocess.run([self.load, command, *map(str, options)], capture_output=True,
                              text=True)
        if text.returncode != 0:
            sys.exit(f"{command} {options} failed: {text.stdout}{text.stderr}")
        self.results[key].append(json.loads(text.stdout))

    def _calls(self):
        text = subprocess.run([self.micro, "--benchmark_format=json",
                               "--benchmark_enable_random_interleaving=true",
                               "--benchmark_filter=-crash"],
                              capture_output=True, text=True, check=True).stdout
        for entry in json.loads(text)["benchmarks"]:
            if entry["run_type"] == "iteration":
                value = {"ns": entry["real_time"]}
                if "items_per_second" in entry:
                    value["ns"] = 1e9 / entry["items_per_second"]
                self.results[tuple(entry["name"].split("/")[:2])].append(value)

    def _bursts(self):
        for threads in THREADS:
            for logger in self._known("jlog", "boxed", "spdlog", "glog"):
                if logger == "glog" and threads not in (1, 4):
                    continue
                bursts = 1 if logger == "glog" else max(2, 10 // threads)
                self._measure(("bursts", logger, threads), "bursts", "--logger", logger,
                              "--threads", threads, "--calls", 20000, "--bursts", bursts)

    def _short_bursts(self):
        for threads in (1, 2, 4):
            for logger in ("jlog", "boxed", "ring", "buffers"):
                self._measure(("short", logger, threads), "bursts", "--logger", logger,
                              "--threads", threads, "--calls", 1000, "--bursts", 200,
                              "--pause-ms", 5, "--messages-only")

    def _field(self):
        for logger in self._known("jlog", "ring", "spdlog"):
            self._measure(("field", logger), "field", "--logger", logger, "--seconds", 2)

    def _crowd(self):
        for logger in ("jlog", "ring"):
            self._measure(("crowd", logger), "bursts", "--logger", logger, "--threads", CROWD,
                          "--calls", 20000, "--bursts", 3)

    def _sustained(self):
        for threads in (1, 4):
            for logger in self.loggers:
                lines = 400000 if logger in ("spdlog", "glog") else 4000000
                self._measure(("sustained", logger, threads), "sustained", "--logger", logger,
                              "--threads", threads, "--lines", lines)
        self._measure(("handwritten",), "handwritten", "--lines", 4000000)

    def _text_lengths(self):
        for length in TEXT_BYTES:
            for logger in self._known("jlog", "spdlog"):
                # Some 100 MB of text, or a third of a second of the slower logger.
                lines = 100000000 // (50 + length) if logger == "jlog" else 200000
                self._measure(("length", logger, length), "sustained", "--logger", logger,
                              "--messages-only", "--text-bytes", length, "--lines", lines)

    def _resources(self):
        for logger in self._known("jlog", "spdlog"):
            self._measure(("resources", logger), "resources", "--logger", logger)

    def value(self, key, field):
        values = [result[field] for result in self.results.get(key, [])]
        return statistics.median(values) if values else None


def ratio(numerator, denominator):
    if numerator is None or not denominator:
        return None
    return numerator / denominator


def number(value):
    if value is None:
        return "-"
    if value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def count(threads):
    return "1 thread" if threads == 1 else f"{threads} threads"


def rows(c):
    """Yields what is measured, the unit, our value, the peer, its value, and the goal of the ratio."""
    singles = {name: c.value(("primitive", name), "ns")
               for name in ("compare_exchange", "add", "clock", "fence", "copy_enter", "copy_details")}
    for kind in ("enter", "details"):
        total = sum(singles[name] for name in ("compare_exchange", "add", "clock", "fence",
                                               "copy_" + kind))
        yield (f"{kind} call, one core", "ns", c.value(("call_one_core", kind), "ns"),
               "sum of the primitives", total, "<= 1.15")
        yield (f"{kind} call", "ns", c.value(("call", kind), "ns"),
               "primitives in turn", c.value(("primitives", kind), "ns"), "<= 1.15")
    yield ("enter call with trace", "ns", c.value(("call", "enter_traced"), "ns"),
           "enter call", c.value(("call", "enter"), "ns"), "")
    yield ("wanted JLOGI", "ns", c.value(("call", "macro"), "ns"), "snprintf and details call",
           c.value(("format", "snprintf"), "ns") + c.value(("call", "details"), "ns"), "")
    for field, name, goals in (("mean_ns", "mean", ("<= 1.25", "<= 1.5", "<= 2")),
                               ("p999_ns", "p99.9", ("<= 2", "", "<= 2"))):
        for threads, goal in zip((1, 2, 4), goals):
            ours = c.value(("short", "jlog", threads), field)
            yield (f"details call, {count(threads)}, {name}", "ns", ours, NAMES["ring"],
                   c.value(("short", "ring", threads), field), goal)
            yield (f"details call, {count(threads)}, {name}", "ns", ours, NAMES["buffers"],
                   c.value(("short", "buffers", threads), field), "")
    for threads in (1, 2, 4):
        yield (f"details call, {count(threads)}, with a black box", "ns",
               c.value(("short", "boxed", threads), "mean_ns"), "without",
               c.value(("short", "jlog", threads), "mean_ns"), "<= 1.03")
    for threads in (1, 4):
        yield (f"burst, {count(threads)}, with a black box", "ns",
               c.value(("bursts", "boxed", threads), "mean_ns"), "without",
               c.value(("bursts", "jlog", threads), "mean_ns"), "<= 1.2")
    for field, name in (("mean_ns", "mean"), ("p999_ns", "p99.9")):
        for peer in ("ring", "spdlog"):
            yield (f"field load, 16 threads, {name}", "ns", c.value(("field", "jlog"), field),
                   NAMES[peer], c.value(("field", peer), field), "")
    for field, name in (("p9999_ns", "p99.99"), ("max_ns", "worst"),
                        ("longest_wait_ns", "longest wait")):
        yield (f"crowd of {CROWD} threads, {name}", "ns", c.value(("crowd", "jlog"), field),
               NAMES["ring"], c.value(("crowd", "ring"), field), "")
    yield (f"crowd of {CROWD} threads, waits", "", c.value(("crowd", "jlog"), "waits"),
           NAMES["ring"], c.value(("crowd", "ring"), "waits"), "")
    single = c.value(("bursts", "jlog", 1), "mean_ns")
    for threads in THREADS[1:]:
        yield (f"burst, {threads} threads, mean", "ns",
               c.value(("bursts", "jlog", threads), "mean_ns"),
               "1 thread", single, "<= 3" if threads == 4 else "")
    for threads in THREADS:
        for field, name in (("mean_ns", "mean"), ("p999_ns", "p99.9"), ("max_ns", "worst")):
            ours = c.value(("bursts", "jlog", threads), field)
            theirs = c.value(("bursts", "spdlog", threads), field)
            goal = ""
            if field == "p999_ns" and 1 < threads < 16:
                goal = "<= 0.01"
            elif field == "mean_ns" and threads == 1:
                goal = "<= 0.6"
            yield (f"burst, {count(threads)}, {name}", "ns", ours, "spdlog async", theirs, goal)
    yield ("burst, 4 threads, mean", "ns", c.value(("bursts", "jlog", 4), "mean_ns"),
           "glog", c.value(("bursts", "glog", 4), "mean_ns"), "")
    limit = c.value(("handwritten",), "lines_per_s")
    for threads in (1, 4):
        ours = c.value(("sustained", "jlog", threads), "lines_per_s")
        yield (f"lines to file, {count(threads)}", "M/s", ours / 1e6, "hand-written loop",
               limit / 1e6, ">= 0.5")
        for peer, goal in (("ring", ">= 0.75"), ("buffers", ""), ("spdlog", ""),
                           ("glog", "")):
            theirs = c.value(("sustained", peer, threads), "lines_per_s")
            yield (f"lines to file, {count(threads)}", "M/s", ours / 1e6, NAMES[peer],
                   theirs / 1e6 if theirs else None, goal)
    yield ("rendering a line", "ns", c.value(("render", "library"), "ns"), "copying it",
           c.value(("render", "copy"), "ns"), "<= 3")
    yield ("rendering a line", "ns", c.value(("render", "library"), "ns"), "by hand",
           c.value(("render", "by_hand"), "ns"), "")
    yield ("rendering a line", "ns", c.value(("render", "library"), "ns"), "printf",
           c.value(("render", "printf"), "ns"), "")
    yield ("clearing a line's record", "ns", c.value(("render", "clear"), "ns"),
           "a line to file, 1 thread", 1e9 / c.value(("sustained", "jlog", 1), "lines_per_s"),
           "<= 0.05")
    floor = ("a load, a comparison", c.value(("test", "floor"), "ns"))
    yield ("disabled JLOGD", "ns", c.value(("test", "macro"), "ns"), *floor, "1")
    yield ("disabled test, inlined", "ns", c.value(("test", "inlined"), "ns"), *floor, "")
    yield ("disabled test, exported", "ns", c.value(("test", "exported"), "ns"), *floor, "")
    ours, theirs = ("resources", "jlog"), ("resources", "spdlog")
    for field, name, unit, goal in (("idle_cpu_percent", "idle, processor time", "%", "0.0 %"),
                                    ("idle_wakeups", "idle, wake-ups in 10 s", "", "10"),
                                    ("steady_allocations", "allocations in 100,000 calls", "",
                                     "0"),
                                    ("steady_kib", "memory under steady load", "KiB", ""),
                                    ("burst_kib", "memory at the end of a burst", "KiB", ""),
                                    ("after_burst_kib", "memory 1.5 s after it", "KiB", "")):
        yield name, unit, c.value(ours, field), "spdlog async", c.value(theirs, field), goal


def format_table(c):
    header = ["what", "ours", "beside", "that", "ratio", "goal"]
    cells = [header]
    for name, unit, ours, beside, theirs, goal in rows(c):
        if ours is None or theirs is None:
            continue
        share = ratio(ours, theirs)
        cells.append([f"{name} ({unit})" if unit else name, number(ours), beside, number(theirs),
                      "-" if share is None else f"{share:.3f}" if share < 0.1 else f"{share:.2f}",
                      goal])
    widths = [max(len(row[i]) for row in cells) for i in range(len(header))]
    cells.insert(1, ["-" * width for width in widths])
    lines = []
    for row in cells:
        lines.append("| " + " | ".join(text.rjust(width) if i in (1, 3, 4) else text.ljust(width)
                                       for i, (text, width) in enumerate(zip(row, widths))) + " |")
    return "\n".join(lines)


def save(figure, path):
    figure.tight_layout()
    # Charts that are drawn anew from the same figures are the same files.
    figure.savefig(path, dpi=100, metadata={"Software": None})


def draw_threads(c, path):
    figure, panels = plt.subplots(1, 2, figsize=(10, 4), sharex=True)
    for panel, field, title in ((panels[0], "mean_ns", "mean"),
                                (panels[1], "p999_ns", "99.9th percentile")):
        for logger in c.loggers:
            points = [(threads, c.value(("bursts", logger, threads), field)) for threads in THREADS]
            points = [point for point in points if point[1] is not None]
            if not points:
                continue
            panel.plot(*zip(*points), marker="o", label=NAMES[logger], color=COLOURS[logger])
        panel.set(title=f"one call in a burst, {title}", xlabel="threads", ylabel="ns",
                  xscale="log", yscale="log", xticks=THREADS)
        panel.set_xticklabels(THREADS)
        panel.grid(True, which="major", alpha=0.3)
        panel.legend()
    save(figure, path)


def draw_lengths(c, path):
    figure, panel = plt.subplots(figsize=(6, 4))
    for logger in c.loggers:
        points = [(length, c.value(("length", logger, length), "lines_per_s"))
                  for length in TEXT_BYTES]
        points = [(length, rate / 1e6) for length, rate in points if rate is not None]
        if points:
            panel.plot(*zip(*points), marker="o", label=NAMES[logger], color=COLOURS[logger])
    panel.set(title="lines that reach the file, 1 thread", xlabel="bytes of text",
              ylabel="million lines per second", yscale="log")
    panel.grid(True, which="both", alpha=0.3)
    panel.legend()
    save(figure, path)


def machine():
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo")
                  if line.startswith("model name")), platform.machine())
    return f"{os.cpu_count()} cores of {model}, Linux {platform.release()}"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("binaries", type=pathlib.Path, help="folder of the benchmark programs")
    parser.add_argument("--charts", type=pathlib.Path, default=pathlib.Path("build/bench"),
                        help="folder for the charts and the raw results (default %(default)s)")
    parser.add_argument("--rounds", type=int, default=4, help="default %(default)s")
    options = parser.parse_args()
    begin = time.monotonic()
    campaign = Campaign(options.binaries, options.rounds)
    campaign.run()
    options.charts.mkdir(parents=True, exist_ok=True)
    draw_threads(campaign, options.charts / "threads.png")
    draw_lengths(campaign, options.charts / "lengths.png")
    table = format_table(campaign)
    (options.charts / "table.md").write_text(f"{table}\n\n{machine()}\n")
    (options.charts / "results.json").write_text(json.dumps(
        {"/".join(map(str, key)): values for key, values in campaign.results.items()}, indent=1))
    print(table)
    print(f"\n{machine()}; medians of {options.rounds} rounds; {time.monotonic() - begin:.0f} s")
    print(f"charts: {options.charts}/threads.png, {options.charts}/lengths.png")


if __name__ == "__main__":
    main()
