"""Turns the JSON files of the benchmarks into a table and a picture of ratios.

usage: table.py --picture SVG [--document MARKDOWN] JSON...

Prints the table, draws the picture, and replaces the table between the markers of the document.
"""

import argparse
import html
import json
import math
import pathlib
import re
import statistics
from dataclasses import dataclass

BEGIN, END = "<!-- scripts/bench: begin -->\n", "<!-- scripts/bench: end -->\n"


@dataclass
class Row:
    """What is measured, and what it is compared with. A ratio above 1 means that the library is slower."""

    operation: str
    against: str
    name: str
    base: str
    goal: float | None = None
    # A benchmark whose time is subtracted from both.
    without: str | None = None
    # Rows that compare the library with itself and those of the example are left out of the picture.
    in_picture: bool = True


def itself(operation: str, against: str, name: str, base: str, goal: float | None = None) -> Row:
    return Row(operation, against, name, base, goal, in_picture=False)


def thread_rows(count: int) -> list[Row]:
    def name(of: str, threads: int) -> str:
        return f"{of}_threads/real_time/threads:{threads}"

    label = f"`append_message`, {count} thread{'s' if count > 1 else ''}"
    rows = [
        Row(label, "`std::ofstream` per line under a mutex", name("append_message", count), name("ofstream", count), 1),
        Row(label, "spdlog, opened per line", name("append_message", count), name("spdlog", count), 1),
    ]
    if count > 1:
        rows.append(itself(label, "1 thread, time for each entry", name("append_message", count),
                           name("append_message", 1), 1.25))
    return rows


def text_rows(direction: str, label: str) -> list[Row]:
    return [
        Row(f"{label}, 1 MiB, {kind}", against, f"{direction}/{kind.lower()}", f"{peer}_{direction}/{kind.lower()}", goal)
        for kind in ("ASCII", "Latin", "Chinese", "emoji")
        for against, peer, goal in (("ICU", "icu", 1.25), ("`std::codecvt_utf8_utf16`", "codecvt", 1))
    ]


def parse_rows(label: str, case: str, goals: dict[str, float]) -> list[Row]:
    peers = {"inih": "inih into a `std::map`", "gkeyfile": "GLib's GKeyFile, a hash table",
             "property_tree": "Boost.PropertyTree", "poco": "POCO's property file"}
    return [
        Row(label, against, f"parse/{case}", f"parse_{peer}/{case}", goals.get(peer, 1))
        for peer, against in peers.items()
    ]


def record_row(operation: str, name: str) -> Row:
    return Row(f"{operation}: the records alone", "the same, written directly", f"{name}_records/12",
               f"{name}_core_records", 1.3, f"{name}_records/0")


def example_rows(case: str, label: str) -> list[Row]:
    return [
        itself(f"the example installer, {label}: {what}", "bsdtar and sync", f"example_{what}/{case}/real_time",
               f"bsdtar_{what}/{case}/real_time", goal)
        for what, goal in (("time", 1.25), ("memory", 1.5))
    ]


ROWS = [
    Row("`append_message`", "open + write + close", "append_message", "floor_line", 1.15),
    Row("`append_message`", "`std::ofstream` per line", "append_message", "ofstream_line", 1),
    Row("`append_message`", "spdlog, opened per line", "append_message", "spdlog_line_opened", 1),
    Row("`append_message`", "spdlog, file kept open (a removed file is not recreated)", "append_message", "spdlog_line_kept_open"),
    Row("`append_message`, UTF-16", "open + write + close", "append_message_utf16", "floor_line"),
    itself("`append_message`, 1 KiB", "44 characters", "append_message_of_size/1024", "append_message"),
    itself("`append_message`, 64 KiB", "44 characters", "append_message_of_size/65536", "append_message"),
    Row("`append_message`, fallback", "geteuid + open + fstat + write + close", "append_message_fallback",
        "floor_fallback", 1.3),
    *(row for count in (1, 2, 4, 8, 16) for row in thread_rows(count)),
    Row("`append_file`, 32 MiB", "read whole + write whole", "append_file/32", "floor_copy/32", 4),
    itself("`append_file`, 32 MiB", "4 MiB", "append_file/32", "append_file/4"),
    *parse_rows("`parse`, 60 lines", "ascii/60", {"gkeyfile": 0.9}),
    *parse_rows("`parse`, 2,000 Chinese values", "chinese/2000", {"gkeyfile": 1.5}),
    *parse_rows("`parse`, 200,000 lines", "ascii/200000", {"gkeyfile": 1.5}),
    Row("`parse`, 200,000 lines", "filling the map alone, in random order", "parse/ascii/200000",
        "map_alone/200000"),
    itself("product lines, 32,000", "4,000 product lines", "product_lines/32000", "product_lines/4000", 10),
    record_row("`append_message`", "append_message"),
    record_row("`parse`, 60 lines", "parse"),
    record_row("`set`", "set"),
    *text_rows("from_utf8", "UTF-8 to UTF-16"),
    *text_rows("to_utf8", "UTF-16 to UTF-8"),
    Row("`is_set`", "a call that loads an atomic", "is_set", "floor_atomic_load", 1.5),
    Row("`throw_if_set`", "a call that loads an atomic", "throw_if_set", "floor_atomic_load", 1.5),
    Row("loading the library", "loading Boost.Log", "run/load/real_time", "run/floor_load/real_time", 1.1),
    *example_rows("small_files", "20,000 small files"),
    *example_rows("large_file", "a file of 400 MB"),
]
COUNTERS = [
    ("`append_file`, 32 MiB: peak memory, in sizes of the file", "append_file_memory", "times_the_file"),
    ("`compareVersionNumbers`: allocations", "compare_versions", "allocations"),
    ("`validate_args`, three rules: allocations", "validate_arguments", "allocations"),
]


class Results:
    def __init__(self, paths: list[pathlib.Path]) -> None:
        self._times: dict[str, list[float]] = {}
        self._counters: dict[tuple[str, str], float] = {}
        for path in paths:
            # A filter that matches nothing leaves an empty file.
            text = path.read_text(encoding="utf-8").strip()
            for run in json.loads(text)["benchmarks"] if text else []:
                if run["run_type"] == "iteration" and not run.get("error_occurred"):
                    self._add(run)

    def _add(self, run: dict) -> None:
        name = re.sub(r"/(iterations|repeats):\d+", "", run["name"])
        # Processor time is less affected by other processes, but is meaningless for several threads
        # or a child process. Those benchmarks use real time.
        time = run["real_time" if "/real_time" in name else "cpu_time"]
        self._times.setdefault(name, []).append(time)
        for _, counted, counter in COUNTERS:
            if name == counted and counter in run:
                self._counters[name, counter] = run[counter]

    def ratios(self) -> list[tuple[Row, float]]:
        """Returns the rows whose two operations were both measured, with their ratios."""
        def median(name: str) -> float:
            return statistics.median(self._times[name])

        def ratio(row: Row) -> float:
            without = median(row.without) if row.without else 0
            return (median(row.name) - without) / (median(row.base) - without)

        return [(row, ratio(row)) for row in ROWS
                if {row.name, row.base, row.without} - {None} <= self._times.keys()]

    def counters(self) -> list[tuple[str, float]]:
        return [(label, self._counters[name, counter])
                for label, name, counter in COUNTERS if (name, counter) in self._counters]


def table(results: Results) -> str:
    lines = ["| Operation | Measured against | Ratio | Missed goal |", "|---|---|---|---|"]
    for row, ratio in results.ratios():
        missed = row.goal is not None and round(ratio, 2) > row.goal
        lines.append(f"| {row.operation} | {row.against} | {ratio:.2f} | {f'{row.goal:g}' if missed else ''} |")
    lines += [f"| {label} | | {value:.2g} | |" for label, value in results.counters()]
    return "\n".join(lines) + "\n"


STYLE = """
text { font: 12px system-ui, sans-serif; fill: #24292f }
.against, .axis { fill: #57606a }
.value { font-weight: 600 }
.faster { fill: #2da44e } .slower { fill: #d4762c }
.grid { stroke: #d0d7de } .one { stroke: #24292f; stroke-width: 1.5 }
@media (prefers-color-scheme: dark) {
  text { fill: #e6edf3 }
  .against, .axis { fill: #9198a1 }
  .faster { fill: #3fb950 } .slower { fill: #e3954f }
  .grid { stroke: #3d444d } .one { stroke: #e6edf3 }
}
"""
LEFT, PLOT, VALUE, LINE, TOP = 470, 400, 50, 18, 50
TICKS = (0.05, 0.1, 0.2, 0.5, 1, 2, 5)


def picture(ratios: list[tuple[Row, float]]) -> str:
    """Returns an SVG of bars on a logarithmic scale, which start at 1."""
    shown = [(row, ratio) for row, ratio in ratios if row.in_picture]
    low = min([TICKS[0], *(ratio for _, ratio in shown)])
    high = max([TICKS[-1], *(ratio for _, ratio in shown)])

    def x(ratio: float) -> float:
        return LEFT + PLOT * math.log(ratio / low) / math.log(high / low)

    def text(kind: str, position: float, y: float, anchor: str, words: str) -> str:
        plain = html.escape(words.replace("`", ""))
        return f'<text class="{kind}" x="{position:.0f}" y="{y:.0f}" text-anchor="{anchor}">{plain}</text>'

    bottom = TOP + LINE * len(shown)
    parts = [
        text("axis", 4, 16, "start", "time of the library / time of what it is compared with"),
        text("axis", x(1) - 12, 16, "end", "\u2190 the library is faster"),
        text("axis", x(1) + 12, 16, "start", "the library is slower \u2192"),
    ]
    for tick in TICKS:
        kind = "one" if tick == 1 else "grid"
        parts.append(f'<line class="{kind}" x1="{x(tick):.1f}" x2="{x(tick):.1f}" y1="{TOP - 6}" y2="{bottom}"/>')
        parts.append(text("axis", x(tick), TOP - 10, "middle", f"{tick:g}"))
    previous = ""
    for index, (row, ratio) in enumerate(shown):
        y = TOP + LINE * index + 13
        if row.operation != previous:
            parts.append(text("operation", 4, y, "start", row.operation))
        previous = row.operation
        parts.append(text("against", LEFT - 8, y, "end", row.against))
        start, end = sorted((x(1), x(ratio)))
        kind = "slower" if ratio > 1 else "faster"
        parts.append(f'<rect class="{kind}" x="{start:.1f}" y="{y - 10}" width="{end - start:.1f}" height="12" rx="2"/>')
        parts.append(text("value", LEFT + PLOT + VALUE, y, "end", f"{ratio:.2f}"))
    width, height = LEFT + PLOT + VALUE + 8, bottom + 10
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}">\n'
            f"<title>Ratios measured by scripts/bench</title>\n<style>{STYLE}</style>\n" + "\n".join(parts) + "\n</svg>\n")


def replace_table(document: pathlib.Path, new: str) -> None:
    before, rest = document.read_text(encoding="utf-8").split(BEGIN)
    after = rest.split(END)[1]
    document.write_text(before + BEGIN + "\n" + new + "\n" + END + after, encoding="utf-8")


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--picture", type=pathlib.Path, required=True)
    parser.add_argument("--document", type=pathlib.Path)
    parser.add_argument("results", type=pathlib.Path, nargs="+")
    arguments = parser.parse_args()

    results = Results(arguments.results)
    if not results.ratios() and not results.counters():
        print("No operation was measured together with what it is measured against.")
        return
    print(table(results), end="")
    arguments.picture.write_text(picture(results.ratios()), encoding="utf-8")
    if arguments.document:
        replace_table(arguments.document, table(results))


if __name__ == "__main__":
    main()
