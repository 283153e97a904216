#!/usr/bin/env python3
"""Runs the benchmarks of a build and writes the page that compares their medians."""

import argparse
import collections
import datetime
import fnmatch
import json
import os
import pathlib
import platform
import re
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
GOALS = HERE / "goals.txt"
GROWTH = "growth: "
LIBRARY = "oxil"
FLOOR = "floor"

# What stands behind the contenders; the page names the versions of those that are installed.
ENGINES = {
    "GLib": "glib-2.0",
    "Lua": "lua5.1",
    "libxml2": "libxml-2.0",
    "libxslt": "libxslt",
    "Google Benchmark": "benchmark",
    "Qt": "Qt5Core",
    "nlohmann json": "nlohmann_json",
    "Abseil": "absl_strings",
    "FlatBuffers": "flatbuffers",
    "glibmm": "glibmm-2.4",
    "expat": "expat",
    "libxml++": "libxml++-2.6",
}
# Those that pkg-config does not know.
PACKAGES = {"msgpack-cxx": "libmsgpack-cxx-dev", "tolua++": "libtolua++5.1-dev"}


def tell(text):
    print(text, file=sys.stderr, flush=True)


def output_of(*command):
    """What a command prints; nothing if it can't be run or fails."""
    try:
        done = subprocess.run(command, capture_output=True, text=True, check=False)
    except OSError:
        return ""
    return done.stdout.strip() if done.returncode == 0 else ""


# ---- Running -------------------------------------------------------------------------------------


def run_program(program, arguments, core):
    """The runs of one program, as Google Benchmark reports them."""
    with tempfile.TemporaryDirectory() as folder:
        report = pathlib.Path(folder) / "report.json"
        command = [
            str(program),
            "--benchmark_enable_random_interleaving=true",
            f"--benchmark_repetitions={1 if arguments.check else 3 if arguments.quick else 15}",
            f"--benchmark_min_time={0 if arguments.check else 0.005 if arguments.quick else 0.02}",
            f"--benchmark_filter={arguments.only}",
            f"--benchmark_out={report}",
            "--benchmark_out_format=json",
        ]
        if shutil.which("taskset"):
            command = ["taskset", "-c", str(core), *command]
        done = subprocess.run(
            command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False
        )
        if done.returncode != 0:
            raise SystemExit(f"{program.name} failed:\n{done.stderr}")
        # A filter that fits nothing leaves no report, or an empty one.
        content = report.read_text() if report.exists() else ""
        return json.loads(content)["benchmarks"] if content.strip() else []


def nanoseconds(run):
    """Time of one item; a run without items is one."""
    if "error_occurred" in run:
        raise SystemExit(f"{run['name']}: {run.get('error_message', 'failed')}")
    if "items_per_second" in run:
        return 1e9 / run["items_per_second"]
    wall = re.search("/(manual|real)_time", run["run_name"])
    unit = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
    return run["real_time" if wall else "cpu_time"] * unit


def medians(runs):
    """{(operation, size or None): {contender: ns}} in the order in which they were registered."""
    samples = collections.defaultdict(lambda: collections.defaultdict(list))
    order = {}
    for run in runs:
        if run["run_type"] != "iteration":
            continue
        operation, contender, *rest = run["run_name"].split("/")
        size = int(rest[0]) if rest and rest[0].isdigit() else None
        samples[operation, size][contender].append(nanoseconds(run))
        order.setdefault(operation, run.get("family_index", 0))
        order[operation] = min(order[operation], run.get("family_index", 0))
    return {
        row: {contender: statistics.median(times) for contender, times in contenders.items()}
        for row, contenders in sorted(
            samples.items(), key=lambda item: (order[item[0][0]], item[0][1] or 0)
        )
    }


# ---- Goals ---------------------------------------------------------------------------------------


class Goal:
    def __init__(self, line):
        fields = [field.strip() for field in line.split("|")]
        self.operation = fields[0]
        self.size = int(fields[1]) if fields[1] else None
        self.ratio = float(fields[2])
        self.limit = fields[3] if len(fields) > 3 else ""
        condition = re.fullmatch(r"at most ([\d.]+) (?:(ns)|of (.+))", self.limit or "at most 0 ns")
        if not condition:
            raise SystemExit(f"{GOALS.name}: can't read {self.limit!r}")
        self.factor, self.in_time, self.peer = condition.groups()

    def fits(self, operation, size):
        return fnmatch.fnmatchcase(operation, self.operation) and self.size in (None, size)

    def text(self):
        return f"{self.ratio:g}" + (f", {self.limit}" if self.limit else "")

    def is_met(self, times):
        # Times are compared as they are shown, to two decimals.
        met = round(times[LIBRARY] / times[FLOOR], 2) <= self.ratio
        if self.limit and self.in_time:
            met = met and times[LIBRARY] <= float(self.factor)
        elif self.limit and self.peer in times:
            met = met and round(times[LIBRARY] / times[self.peer], 2) <= float(self.factor)
        return met


def read_goals():
    lines = GOALS.read_text().splitlines()
    return [Goal(line) for line in lines if line.strip() and not line.startswith("#")]


# ---- The page ------------------------------------------------------------------------------------


def table(header, rows):
    align = ["---"] + ["---:"] * (len(header) - 1)
    return ["| " + " | ".join(row) + " |" for row in [header, align, *rows]] + [""]


def time_text(ns):
    return f"{ns:,.1f}" if ns < 1000 else f"{ns:,.0f}"


def size_text(size):
    return "" if size is None else f"{size:,}"


def contest(results, goals):
    """The table of one program, and how many goals it has and meets."""
    rows = []
    met = total = 0
    with_size = any(size is not None for _, size in results)
    for (operation, size), times in results.items():
        if LIBRARY not in times or FLOOR not in times:
            raise SystemExit(f"{operation}: measured without {LIBRARY} or {FLOOR}")
        floor = times[FLOOR]
        goal = next((goal for goal in goals if goal.fits(operation, size)), None)
        mark = ""
        if goal:
            total += 1
            met += goal.is_met(times)
            mark = goal.text() + (": met" if goal.is_met(times) else ": **missed**")
        peers = [
            f"{name} {time / floor:.2f}"
            for name, time in sorted(times.items(), key=lambda item: item[1])
            if name not in (LIBRARY, FLOOR)
        ]
        row = [
            operation,
            time_text(times[LIBRARY]),
            time_text(floor),
            f"**{times[LIBRARY] / floor:.2f}**",
            mark,
            ", ".join(peers),
        ]
        rows.append(row[:1] + [size_text(size)] * with_size + row[1:])
    header = ["operation", "oxil ns", "floor ns", "ratio", "goal", "peers' ratios"]
    return table(header[:1] + ["size"] * with_size + header[1:], rows), met, total


def growth(results):
    """The table of the time per item, with a column for every size."""
    sizes = sorted({size for _, size in results})
    operations = list(dict.fromkeys(operation for operation, _ in results))
    rows = []
    for operation in operations:
        times = [results.get((operation, size), {}).get(LIBRARY) for size in sizes]
        rows.append([operation[len(GROWTH) :]] + [time_text(ns) if ns else "" for ns in times])
    return table(["ns per item"] + [f"{size:,}" for size in sizes], rows)


def processor():
    for line in output_of("lscpu").splitlines():
        name, _, value = line.partition(":")
        if name.strip() == "Model name":
            return value.strip()
    return platform.processor() or platform.machine()


def compiler(build):
    cache = build / "CMakeCache.txt"
    found = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.+)$", cache.read_text(), re.M)
    flags = re.search(r"^CMAKE_BUILD_TYPE:\w+=(.+)$", cache.read_text(), re.M)
    version = output_of(found[1], "--version").splitlines() if found else []
    return (version[0] if version else "unknown") + (f", {flags[1]}" if flags else "")


def versions():
    known = {name: output_of("pkg-config", "--modversion", key) for name, key in ENGINES.items()}
    for name, package in PACKAGES.items():
        known[name] = output_of("dpkg-query", "--show", "--showformat=${Version}", package)
    return ", ".join(f"{name} {version}" for name, version in known.items() if version)


def commit():
    git = ("git", "-C", str(HERE))
    name = output_of(*git, "describe", "--always", "--abbrev=12", "--exclude=*")
    changed = output_of(*git, "status", "--porcelain", "--untracked-files=no")
    return (name or "unknown") + (" and changes since" if changed else "")


def page(build, results, arguments, core):
    goals = read_goals()
    body = []
    grown = {}
    met = total = 0
    for program, rows in results.items():
        grown.update({row: times for row, times in rows.items() if row[0].startswith(GROWTH)})
        rows = {row: times for row, times in rows.items() if not row[0].startswith(GROWTH)}
        if rows:
            lines, met_here, total_here = contest(rows, goals)
            body += [f"## {program.removesuffix('Bench')}", "", *lines]
            met += met_here
            total += total_here
    if grown:
        body += [
            "## Growth",
            "",
            "Time per item: work that is linear keeps it, but for what no longer fits into the"
            " processor's caches. [The footprint](../doc/footprint.md) has the instructions per item,"
            " on ARM as well.",
            "",
            *growth(grown),
        ]

    command = shlex.join(["bench/run.py", "BUILD_DIR", *arguments.for_page])
    if not arguments.for_page:
        command = "./dev bench"
    head = [
        "# Benchmarks",
        "",
        "Medians of interleaved runs on one core. The floor is the raw engine or plain C++ that does"
        " the same observable work; a ratio is a time divided by the floor's, so that less is"
        f" better. {met} of {total} goals are met.",
        "",
        f"- Machine: {processor()}, {platform.machine()}, {os.cpu_count()} cores, core {core} used",
        f"- System: {platform.system()} {platform.release()}",
        f"- Compiler: {compiler(build)}",
        f"- Libraries: {versions()}",
        f"- Commit: {commit()}",
        f"- Made on {datetime.date.today().isoformat()} by `{command}`",
        "",
    ]
    return "\n".join(head + body).rstrip() + "\n"


# --------------------------------------------------------------------------------------------------


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, metavar="BUILD_DIR")
    parser.add_argument("--output", type=pathlib.Path, metavar="FILE", help="write the page there")
    parser.add_argument(
        "--only", default=".", metavar="REGEX", help="run the benchmarks whose names fit"
    )
    parser.add_argument("--quick", action="store_true", help="fewer and shorter repetitions")
    parser.add_argument(
        "--check", action="store_true", help="run each once, for its results alone; no page"
    )
    arguments = parser.parse_args()
    arguments.for_page = ["--only", arguments.only] * (arguments.only != ".") + [
        "--quick"
    ] * arguments.quick
    return arguments


def main():
    arguments = parse_arguments()
    programs = sorted(path for path in (arguments.build / "bench").glob("*Bench") if path.is_file())
    if not programs:
        raise SystemExit(f"no benchmarks in {arguments.build / 'bench'}: build them first")

    core = max(os.sched_getaffinity(0))
    results = {}
    for number, program in enumerate(programs, 1):
        tell(f"[{number}/{len(programs)}] {program.name}")
        results[program.name] = medians(run_program(program, arguments, core))

    if arguments.check:
        tell(f"{sum(map(len, results.values()))} operations give what they should")
        return

    text = page(arguments.build, results, arguments, core)
    print(text)
    if arguments.output:
        arguments.output.write_text(text)
        tell(f"written: {arguments.output}")


if __name__ == "__main__":
    main()
