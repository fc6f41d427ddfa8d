#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the tables from what the programs have measured.

Usage: tables.py FOLDER

Reads FOLDER/*Bench.json, as Google Benchmark writes them, and FOLDER/growth.dat, and writes the
tables to FOLDER/library.md and FOLDER/stand-in.md. A figure is compared by the ratio of the medians
over the repetitions; the spread is the smallest and the largest ratio of two repetitions with the
same number. Exit code 1 when a benchmark failed, or when a figure that no busy machine excuses was
missed.
"""
import json
import re
import statistics
import sys
from pathlib import Path

HEADINGS = ("what", "figure", "floor or peer", "ratio", "spread", "wanted", "verdict")
SOCKETS = "the same bytes over a bare pair of sockets"

# What is shown, the benchmark, the text of the floor or peer, its benchmark, the greatest ratio
# wanted. A counter of a benchmark is named behind a colon.
FRAME = [
    ("frame, two cores", "engine/twoCores", "bare futex hand-off", "bare/twoCores", 1.25),
    ("frame, two cores", "engine/twoCores", "futex hand-off with time limits",
     "bare/twoCoresTimed", None),
    ("frame, two cores", "engine/twoCores", "queue of packaged tasks", "tasks/twoCores", 1.25),
    ("frame, one core", "engine/oneCore", "bare futex hand-off", "bare/oneCore", None),
    ("frame, one core", "engine/oneCore", "futex hand-off with time limits",
     "bare/oneCoreTimed", 1.25),
    ("frame, one core", "engine/oneCore", "queue of packaged tasks", "tasks/oneCore", 1.25),
    ("frame, one core", "engine/oneCore", "the entries called directly", "direct", None),
]
LIGHT = [
    ("`needVideoEnhance()`", "need", "atomic load in another library", "load", 2.0),
    ("frame refused for overload", "overloaded", "mutex lock and unlock", "lockUnlock", None),
    ("frame refused as unhealthy", "unhealthy", "mutex lock and unlock", "lockUnlock", None),
    ("frame refused as the worker is busy, with its warning", "busy", "mutex lock and unlock",
     "lockUnlock", None),
    ("suppressed log statement", "suppressed", "mutex lock and unlock", "lockUnlock", None),
]
SESSION = [
    ("frame offered in a session", "session", "`doVideoEnhance()`, with the messages it reads",
     "facade/logged", 1.25),
    ("frame offered in a session", "session", "`doVideoEnhance()`, without messages",
     "facade/silent", None),
]
ELEMENT = [
    ("frame through `displayenhance`", "element/enhance", "filter that copies each frame",
     "element/copy", None),
    ("frame that is not wanted", "element/passed", "filter that copies each frame",
     "element/copy", None),
]
DEADLINE = [
    (f"expired frame, {name}", f"longTailed:expired {percent}", "bare timed wait",
     f"longTailed:bare {percent}", 2.0)
    for name, percent in (("median", "50"), ("99 %", "99"), ("99.9 %", "99.9"),
                          ("99.99 %", "99.99"))
] + [
    ("any frame, longest", "longTailed:all 100", "bare timed wait", "longTailed:bare 100", 2.0),
    ("expired frame during `AisrDeinit`, median", "duringDeinit:expired 50", "bare timed wait",
     "duringDeinit:bare 50", 2.0),
    ("expired frame during `AisrDeinit`, 90 %", "duringDeinit:expired 90", "bare timed wait",
     "duringDeinit:bare 90", 2.0),
]
TRANSACTION = [
    (f"call, {place} cores".replace("one cores", "one core"), f"transaction/{name}", peer,
     f"{benchmark}/{name}", limit)
    for place, name in (("two", "twoCores"), ("one", "oneCore"))
    for peer, benchmark, limit in ((SOCKETS, "bytes", 1.4),
                                   ("sd-bus, directly connected", "busCall", 0.9))
] + [
    (f"calls of {threads} thread{'s' if threads > 1 else ''}, each",
     f"transactions/threads:{threads}", SOCKETS + (" each" if threads > 1 else ""),
     f"bytesOfThreads/threads:{threads}", None)
    for threads in (1, 2, 4, 8)
]


class Results:
    """What the programs wrote, as lists of values by repetition."""

    def __init__(self, folder):
        self.values = {}
        self.failed = False
        for file in sorted(folder.glob("*Bench.json")):
            for run in json.loads(file.read_text())["benchmarks"]:
                if run["run_type"] == "iteration":
                    self._add(run)

    def _add(self, run):
        name = re.sub(r"/(real_time|iterations:\d+|repeats:\d+)", "", run["run_name"])
        if run.get("error_occurred"):
            print(f"{name}: {run['error_message']}", file=sys.stderr)
            self.failed = True
            return
        for key, value in run.items():
            if isinstance(value, float):
                full_name = name if key == "real_time" else f"{name}:{key}"
                self.values.setdefault(full_name, []).append((run["repetition_index"], value))

    def of(self, name):
        return [value for _, value in sorted(self.values.get(name, []))]

    def median(self, name):
        values = self.of(name)
        if not values:
            sys.exit(f"{name} was not measured")
        return statistics.median(values)

    def compare(self, what, subject, peer_text, peer, limit):
        subjects, peers = self.of(subject), self.of(peer)
        wanted = "" if limit is None else f"at most {limit:.2f}"
        if not subjects or not peers:
            self.failed = True
            return (what, "not measured", peer_text, "", "", wanted, "FAILED")
        figure, floor = statistics.median(subjects), statistics.median(peers)
        ratios = [one / other for one, other in zip(subjects, peers)]
        spread = f"{number(min(ratios))} to {number(max(ratios))}" if len(ratios) > 1 else ""
        verdict = "" if limit is None else "met" if figure <= limit * floor else "MISSED"
        return (what, time(figure), f"{peer_text} {time(floor)}", number(figure / floor), spread,
                wanted, verdict)

    def must(self, what, figure, beside, wanted, is_met):
        """A row that fails the run when it is not met."""
        self.failed |= not is_met
        return (what, figure, beside, "", "", wanted, "met" if is_met else "FAILED")


def number(value):
    """Three significant digits, no more than two decimals."""
    digits = 1 if value < 1 else len(str(int(value)))
    return f"{value:.{min(max(3 - digits, 0), 2)}f}"


def time(nanoseconds):
    for size, unit in ((1e9, "s"), (1e6, "ms"), (1e3, "us")):
        if nanoseconds >= size:
            return f"{number(nanoseconds / size)} {unit}"
    return f"{number(nanoseconds)} ns"


def table(title, rows, note=""):
    widths = [max(len(row[column]) for row in [HEADINGS, *rows])
              for column in range(len(HEADINGS))]
    lines = [HEADINGS, ["-" * width for width in widths], *rows]
    text = "\n".join(
        "| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
        for line in lines)
    return f"### {title}\n\n{text}\n" + (f"\n{note}\n" if note else "")


def allocations(results):
    def of(name):
        values = [results.median(f"frames/{name}:{key}")
                  for key in ("all", "caller", "worker", "text")]
        return values[0], values[3], "{:.2f} (caller {:.2f}, worker {:.2f})".format(*values)

    usual, usual_text, usual_figure = of("usual")
    long, long_text, long_figure = of("longText")
    beside = "task, result, list node: 3; geometry text {:.0f}"
    return [
        results.must("frame of 1280x720, logs off", usual_figure, beside.format(usual_text),
                     "at most 4 beside the text", int(usual) - usual_text <= 4),
        results.must("frame whose geometry is long", long_figure, beside.format(long_text),
                     "no other text", long_text > 0 and int(long) - long_text == int(usual)),
        ("frame of 1280x720, debug messages on", of("logged")[2], "", "", "", "", ""),
    ]


def growth(results, file):
    """The last tenth beside the first, each by its median."""
    samples = [[float(value) for value in line.split()]
               for line in file.read_text().splitlines() if not line.startswith("#")]
    size = len(samples) // 10

    def tenths(column):
        return [statistics.median(sample[column] for sample in part)
                for part in (samples[:size], samples[-size:])]

    rows = []
    for side, first_column in (("client", 2), ("service", 5)):
        for offset, what, unit, may_grow in ((0, "memory", " KiB", 256), (1, "descriptors", "", 0),
                                             (2, "threads", "", 14)):
            first, last = tenths(first_column + offset)
            rows.append(results.must(f"{side}'s {what}", f"{last:.0f}{unit}",
                                     f"first tenth {first:.0f}{unit}",
                                     f"at most {may_grow}{unit} more", last - first <= may_grow))
    first, last = tenths(1)
    rows.append(("frame", time(1000 * last), f"first tenth {time(1000 * first)}",
                 number(last / first), "", "at most 1.25",
                 "met" if last <= 1.25 * first else "MISSED"))
    return rows


def main():
    if len(sys.argv) != 2 or sys.argv[1].startswith("-"):
        sys.exit(__doc__)
    folder = Path(sys.argv[1])
    results = Results(folder)
    tables = {
        "library.md": [
            table("A frame through `AisrEngine::enhance`",
                  [results.compare(*row) for row in FRAME],
                  "The processing library does nothing, and the logs are off. A hand-off is two "
                  "threads that wake each other by futex and sleep until woken, there and back. "
                  "The queue of packaged tasks has the engine's queue, mutex, condition variable "
                  "and future, and nothing else. All are pinned alike."),
            table("Heap allocations of a frame", allocations(results),
                  "The fraction is the queue's: it takes a block of memory for every 32 frames."),
            table("Calls that cost next to nothing", [results.compare(*row) for row in LIGHT]),
            table("A frame in a `VideoSession`", [results.compare(*row) for row in SESSION],
                  "Caller and worker share a core; the logger drops the messages."),
            table("A frame of 1280x720 in a GStreamer pipeline",
                  [results.compare(*row) for row in ELEMENT],
                  "Between two pads. Element and engine's worker share a core."),
            table("A call of `AisrEngine::enhance` beyond the abort limit",
                  [results.compare(*row) for row in DEADLINE],
                  "One core is kept busy by another thread. The abort limit is 2 ms. 20000 frames "
                  "have processing times of a Pareto distribution with the limit as its median; "
                  f"{results.median('longTailed:expired'):.0f} of them expired, each followed by "
                  "a bare wait of the same length. A frame whose result came in time counts by "
                  "when its caller got to run again. During `AisrDeinit`: 100 frames, each offered "
                  "while that entry is held for a second or until the caller is back."),
            table("Growth: the last tenth of a million frames beside the first",
                  growth(results, folder / "growth.dat"),
                  "Besides the frames, 1000 streams and 10000 callbacks, each registered with the "
                  "sample service and withdrawn again."),
        ],
        "stand-in.md": [
            table("A two-way transaction, `getSupported`",
                  [results.compare(*row) for row in TRANSACTION],
                  "Client and server are two processes. With several calling threads, the time is "
                  "that between two calls of all threads together, wherever the scheduler puts them; "
                  "each thread of the peer has a pair and a process of its own."),
        ],
    }
    for name, parts in tables.items():
        (folder / name).write_text("\n".join(parts))
    sys.exit(results.failed)


if __name__ == "__main__":
    main()
