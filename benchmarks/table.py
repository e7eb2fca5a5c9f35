"""Prints what the benchmarks measured as a table of ratios, from their files of JSON."""

import json
import statistics
import sys

# Operation, what is measured, what it is measured against, and the goal. A ratio above 1 is slower.
ROWS = [
    ("`append_message`", "append_message", "floor_line", "open + write + close", "at most 1.25"),
    ("`append_message`", "append_message", "ofstream_line", "`std::ofstream` per line", "below 1"),
    ("`append_message`", "append_message", "spdlog_line_opened", "spdlog, opened per line", "below 1"),
    ("`append_message`", "append_message", "spdlog_line_kept_open", "spdlog, kept open: loses a removed file", "none"),
    ("`append_message`, UTF-16", "append_message_utf16", "floor_line", "open + write + close", "none"),
    ("`append_message`, 1 KiB", "append_message_of_size/1024", "append_message", "44 characters", "none"),
    ("`append_message`, 64 KiB", "append_message_of_size/65536", "append_message", "44 characters", "none"),
    ("`append_message`, fallback", "append_message_fallback", "floor_line", "open + write + close", "at most 1.6"),
    ("`append_message`, 2 threads", "append_message_threads/real_time/threads:2",
     "append_message_threads/real_time/threads:1", "1 thread, time for each entry", "at most 1"),
    ("`append_file`, 32 MiB", "append_file/32", "floor_copy/32", "read whole + write whole", "at most 4"),
    ("`append_file`, 32 MiB", "append_file/32", "append_file/4", "4 MiB", "none"),
    ("`parse`, 60 lines", "parse/60", "inih/60", "inih into a `std::map`", "below 1"),
    ("`parse`, 60 lines", "parse/60", "gkeyfile/60", "GLib's GKeyFile", "below 1"),
    ("`parse`, 60 lines", "parse/60", "property_tree/60", "Boost.PropertyTree", "below 1"),
    ("`parse`, 60 lines", "parse/60", "poco/60", "POCO's property file", "below 1"),
    ("`parse`, 200,000 lines", "parse/200000", "inih/200000", "inih into a `std::map`", "below 1"),
    ("`parse`, 200,000 lines", "parse/200000", "gkeyfile/200000", "GLib's GKeyFile, a hash table", "close"),
    ("`parse`, 200,000 lines", "parse/200000", "property_tree/200000", "Boost.PropertyTree", "below 1"),
    ("`parse`, 200,000 lines", "parse/200000", "poco/200000", "POCO's property file", "below 1"),
    ("`parse`, 200,000 lines", "parse/200000", "map_alone/200000", "filling the map alone, in the file's order", "none"),
    ("product lines, 32,000", "product_lines/32000", "product_lines/4000", "4,000 product lines", "at most 10"),
    ("`is_set`", "is_set", "floor_atomic_load", "a call that loads an atomic", "at most 1.5"),
    ("`throw_if_set`", "throw_if_set", "floor_atomic_load", "a call that loads an atomic", "at most 1.5"),
    ("loading the library", "run/load/real_time", "run/floor_load/real_time", "loading Boost.Log", "at most 1.1"),
]
COUNTERS = [
    ("`append_file`, 32 MiB: peak memory, in sizes of the file", "append_file_memory/iterations:1", "times_the_file"),
    ("`compareVersionNumbers`: allocations", "compare_versions", "allocations"),
    ("`validate_args`, three rules: allocations", "validate_arguments", "allocations"),
]


def main() -> None:
    times: dict[str, list[float]] = {}
    counters: dict[tuple[str, str], float] = {}
    for path in sys.argv[1:]:
        with open(path, encoding="utf-8") as file:
            for run in json.load(file)["benchmarks"]:
                if run["run_type"] != "iteration":
                    continue
                times.setdefault(run["name"].removesuffix("/repeats:9"), []).append(run["real_time"])
                for _, name, counter in COUNTERS:
                    if run["name"] == name and counter in run:
                        counters[name, counter] = run[counter]

    print("| Operation | Measured against | Ratio | Goal |")
    print("|---|---|---|---|")
    for operation, name, base, against, goal in ROWS:
        if name in times and base in times:
            ratio = statistics.median(times[name]) / statistics.median(times[base])
            print(f"| {operation} | {against} | {ratio:.2f} | {goal} |")
    for operation, name, counter in COUNTERS:
        if (name, counter) in counters:
            print(f"| {operation} | | {counters[name, counter]:.2g} | |")


if __name__ == "__main__":
    main()
