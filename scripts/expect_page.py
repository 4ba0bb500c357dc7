#!/usr/bin/env python3
"""Prints what the page of a log has to show, as the driver of test_page.sh notes it.

usage: expect_page.py REQUEST FILE...

Reads the lines by itself. The log is whole, each record is a line, and scopes nest.
"""

import re
import sys

LINE = re.compile(r"\S+ (\S+)\s+\d+\s+(\d+) ([VDIWEF]) ([^:]*?)\s*: (.*)")
SCOPE = re.compile(r"R AppRequest:(\d+) M\[(.*):\w+\] ([+-])  :(.*) #\d+")


def microseconds(stamp):
    hours, minutes, seconds, fraction = map(int, re.split("[:.]", stamp))
    return ((hours * 60 + minutes) * 60 + seconds) * 1000000 + fraction


def ms(duration):
    return f"{duration / 1000:,.3f}"


def words(duration):
    return f"{duration} µs" if duration < 1000 else f"{duration / 1000:.3f} ms"


class Scope:
    def __init__(self, request, module, name, tid, begin):
        self.request, self.module, self.tid, self.begin = request, module, tid, begin
        self.full = f"{module} › {name}"
        self.end = None


def read(files):
    """Its scopes, its details as (time, tid, level, tag, text, scope), each thread's last text, the
    cause of a crash, and the time of the last record."""
    scopes, details, lasts, stacks, cause, last_time = [], [], {}, {}, None, 0
    for file in files:
        for line in open(file, encoding="utf-8"):
            line = line.rstrip("\n")
            match = LINE.match(line)
            if not match:
                cause = line
                continue
            time, tid = microseconds(match[1]), match[2]
            last_time = max(last_time, time)
            lasts[tid] = f"{match[3]} {match[4]}: {match[5]}"
            stack = stacks.setdefault(tid, [])
            scope = SCOPE.match(match[5]) if match[4] == "JLog" else None
            if not scope:
                scope = stack[-1] if stack else None
                details.append((time, tid, match[3], match[4], match[5], scope))
            elif scope[3] == "+":
                stack.append(Scope(int(scope[1]), scope[2], scope[4], tid, time))
                scopes.append(stack[-1])
            else:
                stack.pop().end = time
    return scopes, details, lasts, cause, last_time


def summarise(scopes):
    names = {}
    for scope in scopes:
        if scope.end is not None:
            names.setdefault(scope.full, []).append(scope)
    rows = []
    for name, group in names.items():
        durations = sorted(scope.end - scope.begin for scope in group)
        rank = lambda percent: durations[max(0, (len(durations) * percent + 99) // 100 - 1)]
        slowest = next(scope for scope in group if scope.end - scope.begin == durations[-1])
        rows.append((rank(99), durations[-1],
                     f"{name}|{len(group):,}|{ms(rank(50))}|{ms(rank(99))}|{ms(durations[-1])}|"
                     f"{slowest.request}"))
    rows.sort(key=lambda row: row[:2], reverse=True)
    return [row[2] for row in rows]


def main():
    wanted = int(sys.argv[1])
    files = sorted(sys.argv[2:], key=lambda file: "_NE_" in file)
    scopes, details, lasts, cause, last_time = read(files)
    # Lines are in the order of calls, which is not quite that of stamps.
    by_begin = sorted(scopes, key=lambda scope: scope.begin)
    numbers = list(dict.fromkeys(scope.request for scope in by_begin))
    print("health serials complete")
    if cause:
        signal, address = cause.split(" : addr = ")
        print(f"crash {signal} address {address}")
        # Threads that were in a scope first.
        stacks = {tid: [scope for scope in scopes if scope.tid == tid and scope.end is None]
                  for tid in lasts}
        for tid in sorted(lasts, key=lambda tid: not stacks[tid]):
            stack = "".join(f"#{scope.request} {scope.full} open for "
                            f"{words(last_time - scope.begin)}, " for scope in stacks[tid])
            print(f"Thread {tid}: {stack}{lasts[tid]}")
    print(f"requests {len(numbers)}", *summarise(scopes), "lanes drawn", sep="\n")

    own = [scope for scope in by_begin if scope.request == wanted]
    found = [detail for detail in details if detail[5] in own]
    begin = min(scope.begin for scope in own)
    duration = max(scope.end for scope in own) - begin
    seconds, fraction = divmod(begin, 1000000)
    clock = f"{seconds // 3600:02}:{seconds // 60 % 60:02}:{seconds % 60:02}.{fraction:06}"
    modules = ", ".join(dict.fromkeys(scope.module for scope in own))
    print(f"Request {wanted} · {clock} · {words(duration)} · {len(own)} scopes · "
          f"{len(found)} records of details · {modules}")
    for scope in own:
        print(f"{ms(scope.begin - begin)}|{scope.tid}|{scope.full}|{ms(scope.end - scope.begin)}")
    for time, tid, level, tag, text, scope in found:
        print(f"{ms(time - begin)}|{tid}|{level}|{scope.full}|{tag}|{text}")

    said = {scope.request for _, _, _, _, text, scope in details
            if scope and "done seq=t2:4" in text.lower()}
    captures = {scope.request for scope in scopes if "capture" in scope.full.lower()}
    print(f"next #request={numbers[numbers.index(wanted) + 1]}", f"back #request={wanted}",
          "focus filter", f"capture {len(captures)}", f"text {len(captures & said)}",
          f"all {len(numbers)}", "none #tab=request",
          f"first {numbers[0]} met", sep="\n")


main()
