#!/usr/bin/env python3
"""Runs the benchmarks of a build and writes the page that compares them.

A benchmark is called "operation/contender" or "operation/contender/size". One contender is the
library, one the floor ("floor", or "floor: what it is"), all others are peers; a peer that does not
do the same work says so behind a comma ("std::map, sorted"). An operation at a size that only the
library is measured at shows how its time grows.
"""

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
LIBRARY = "oxil"
FLOOR = "floor"
CORE = max(os.sched_getaffinity(0))

# Each round measures every operation, in a process of its own, with all contenders in turn. So a
# ratio compares what ran within the same second, and neither a busy spell of the machine nor the
# luck of one layout of the memory decides it.
ROUNDS = 9
QUICK_ROUNDS = 3

SAME = 0.95  # of a time: what is less than that is more than chance

# How the row of an operation's bytes is called; everything else is a time.
BYTES = ": bytes instead of ns"

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


def run_program(program, *options):
    """What a program prints."""
    command = [str(program), *options]
    if shutil.which("taskset"):
        command = ["taskset", "-c", str(CORE), *command]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise SystemExit(f"{program.name} failed:\n{done.stderr}")
    return done.stdout


def parts_of(name):
    """Operation and size, which may be None, and the contender."""
    operation, contender, *rest = name.split("/")
    return (operation, int(rest[0]) if rest and rest[0].isdigit() else None), contender


def read_rows(program, only):
    """{(operation, size): [name]} in the order of registration, the sizes of an operation together."""
    rows = collections.defaultdict(list)
    for name in run_program(program, "--benchmark_list_tests=true").splitlines():
        rows[parts_of(name)[0]].append(name)
    operations = list(dict.fromkeys(operation for operation, _ in rows))
    in_order = sorted(rows, key=lambda row: (operations.index(row[0]), row[1] or 0))
    return {row: rows[row] for row in in_order if any(re.search(only, name) for name in rows[row])}


def nanoseconds(run):
    """Time of one item; a run without items is one."""
    if "items_per_second" in run:
        return 1e9 / run["items_per_second"]
    wall = re.search("/(manual|real)_time", run["run_name"])
    unit = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
    return run["real_time" if wall else "cpu_time"] * unit


def measure(program, names, repetitions, seconds):
    """{(operation, size): {contender: median of the repetitions in ns}}, with a row of its own for
    the bytes that an operation makes, if it says how many."""
    one_of_them = "|".join(re.sub(r"[^\w/ ]", ".", name) for name in names)
    with tempfile.TemporaryDirectory() as folder:
        report = pathlib.Path(folder) / "report.json"
        run_program(
            program,
            "--benchmark_enable_random_interleaving=true",
            f"--benchmark_repetitions={repetitions}",
            f"--benchmark_min_time={seconds}",
            f"--benchmark_filter=^({one_of_them})$",
            f"--benchmark_out={report}",
            "--benchmark_out_format=json",
        )
        runs = json.loads(report.read_text())["benchmarks"]
    runs = [run for run in runs if run["run_type"] == "iteration"]
    wrong = {f"{run['run_name']}: {run['error_message']}" for run in runs if "error_message" in run}
    if wrong:
        raise SystemExit("\n".join(sorted(wrong)))
    times = collections.defaultdict(lambda: collections.defaultdict(list))
    for run in runs:
        row, contender = parts_of(run["run_name"])
        times[row][contender].append(nanoseconds(run))
        if "bytes" in run:
            times[(row[0] + BYTES, row[1])][contender].append(run["bytes"])
    return {
        row: {contender: statistics.median(all_ns) for contender, all_ns in contenders.items()}
        for row, contenders in times.items()
    }


def measure_all(rows, quick):
    """{program: {(operation, size): {contender: [ns of each round]}}}"""
    rounds, repetitions, seconds = (QUICK_ROUNDS, 1, 0.005) if quick else (ROUNDS, 3, 0.02)
    results = {
        program: {row: collections.defaultdict(list) for row in rows[program]} for program in rows
    }
    for number in range(1, rounds + 1):
        for program in rows:
            tell(f"round {number} of {rounds}: {program.name}")
            for row, names in rows[program].items():
                for measured, contenders in measure(program, names, repetitions, seconds).items():
                    figures = results[program].setdefault(measured, collections.defaultdict(list))
                    for contender, figure in contenders.items():
                        figures[contender].append(figure)
    return results


# ---- Figures -------------------------------------------------------------------------------------


class Figure:
    """
    The median of what the rounds gave, and its spread, from the lowest to the highest.

    Of nine rounds the lowest and the highest don't count: what lies between is where the median of
    any number of rounds would be, in 96 of 100 cases.
    """

    def __init__(self, values):
        ordered = sorted(values)
        if len(ordered) >= ROUNDS:
            ordered = ordered[1:-1]
        self.median = round(statistics.median(ordered), 2)
        self.low = round(ordered[0], 2)
        self.high = round(ordered[-1], 2)

    @staticmethod
    def of_ratio(times, contender, base):
        return Figure([a / b for a, b in zip(times[contender], times[base])])

    def text(self, mark=""):
        return f"{mark}{self.median:.2f}{mark} ({self.low:.2f} to {self.high:.2f})"

    def verdict(self, limit):
        """A limit that lies within the spread is neither met nor missed."""
        return MET if self.high <= limit else MISSED if self.low > limit else CLOSE


def floor_of(times):
    return next((name for name in times if name.split(": ")[0] == FLOOR), None)


# ---- Goals ---------------------------------------------------------------------------------------

MET, CLOSE, MISSED = VERDICTS = "met", "too close to call", "**missed**"


class Goal:
    def __init__(self, line):
        fields = [field.strip() for field in line.split("|")] + [""] * 3
        self.operation = fields[0]
        self.size = int(fields[1]) if fields[1] else None
        self.ratio = float(fields[2])
        self.further = fields[3]
        self.reason = fields[4]
        condition = re.fullmatch(r"at most ([\d.]+) (?:(ns)|of (.+))", self.further or "at most 0 ns")
        if not condition:
            raise SystemExit(f"{GOALS.name}: can't read {self.further!r}")
        self.limit, self.in_time, self.peer = condition.groups()

    def fits(self, operation, size):
        return fnmatch.fnmatchcase(operation, self.operation) and self.size in (None, size)

    def judge(self, times):
        """What to say of it, and the verdict: that of the condition that is met least."""
        verdict = Figure.of_ratio(times, LIBRARY, floor_of(times)).verdict(self.ratio)
        text = f"{self.ratio:g}: {verdict}"
        peer = next((name for name in times if name.split(",")[0] == self.peer), None)
        if self.further and (self.in_time or peer):
            figure = Figure.of_ratio(times, LIBRARY, peer) if peer else Figure(times[LIBRARY])
            further = figure.verdict(float(self.limit))
            text += f"<br>{self.further}: {figure.text()}, {further}"
            verdict = max(verdict, further, key=VERDICTS.index)
        return text, verdict


def read_goals():
    lines = GOALS.read_text().splitlines()
    return [Goal(line) for line in lines if line.strip() and not line.startswith("#")]


# ---- The page ------------------------------------------------------------------------------------


TEXT_COLUMNS = ("goal", "peers' ratios")  # beside the first


def table(header, rows):
    align = ["---"] + ["---" if title in TEXT_COLUMNS else "---:" for title in header[1:]]
    return ["| " + " | ".join(row) + " |" for row in [header, align, *rows]] + [""]


def time_text(times):
    ns = statistics.median(times)
    return f"{ns:,.1f}" if ns < 1000 else f"{ns:,.0f}"


def size_text(size):
    return "" if size is None else f"{size:,}"


def peers_text(times):
    """The quickest first; in bold who is quicker than the floor, for certain and at the same work."""
    figures = {
        name: Figure.of_ratio(times, name, floor_of(times))
        for name in times
        if name not in (LIBRARY, floor_of(times))
    }
    return "<br>".join(
        f"{name}: " + figure.text("**" if figure.high < SAME and "," not in name else "")
        for name, figure in sorted(figures.items(), key=lambda item: item[1].median)
    )


def contest(results, goals, verdicts):
    """The table of one program, and the reasons of its goals; the verdicts are counted."""
    rows = []
    reasons = {}
    with_size = any(size is not None for _, size in results)
    for (operation, size), times in results.items():
        if LIBRARY not in times or floor_of(times) is None:
            raise SystemExit(f"{operation}: measured without {LIBRARY} or {FLOOR}")
        floor = floor_of(times)
        goal = next((goal for goal in goals if goal.fits(operation, size)), None)
        judgement = ""
        if goal:
            judgement, verdict = goal.judge(times)
            verdicts[verdict] += 1
            if goal.reason:
                reasons[f"- {goal.operation}: {goal.reason}"] = True
        row = [
            operation,
            time_text(times[LIBRARY]),
            " ".join([*floor.split(": ")[1:], time_text(times[floor])]),
            Figure.of_ratio(times, LIBRARY, floor).text("**"),
            judgement,
            peers_text(times),
        ]
        rows.append(row[:1] + [size_text(size)] * with_size + row[1:])
    header = ["operation", "oxil ns", "floor, ns", "ratio", "goal", "peers' ratios"]
    lines = table(header[:1] + ["size"] * with_size + header[1:], rows)
    return lines + ([*reasons, ""] if reasons else [])


def growth(results):
    """The table of the time per item, with a column for every size."""
    sizes = sorted({size for _, size in results})
    operations = list(dict.fromkeys(operation for operation, _ in results))
    rows = []
    for operation in operations:
        times = [results.get((operation, size), {}).get(LIBRARY) for size in sizes]
        rows.append([operation] + [time_text(all_ns) if all_ns else "" for all_ns in times])
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


def page(build, results, arguments, load):
    goals = read_goals()
    body = []
    grown = {}
    verdicts = dict.fromkeys(VERDICTS, 0)
    for program, rows in results.items():
        growing = {operation for (operation, _), times in rows.items() if set(times) == {LIBRARY}}
        grown.update({row: times for row, times in rows.items() if row[0] in growing})
        rows = {row: times for row, times in rows.items() if set(times) != {LIBRARY}}
        if rows:
            title = program.name.removesuffix("Bench")
            body += [f"## {title}", "", *contest(rows, goals, verdicts)]
    if grown:
        body += [
            "## Growth",
            "",
            "Time per item: work that is linear keeps it, but for what no longer fits into the"
            " processor's caches. [The footprint](../doc/footprint.md) has the instructions per item.",
            "",
            *growth(grown),
        ]

    command = shlex.join(["bench/run.py", "BUILD_DIR", *arguments.for_page])
    if not arguments.for_page:
        command = "./dev bench"
    rounds = QUICK_ROUNDS if arguments.quick else ROUNDS
    head = TEXT.format(
        same=SAME,
        rounds=rounds,
        met=verdicts[MET],
        close=verdicts[CLOSE],
        missed=verdicts[MISSED],
        machine=f"{processor()}, {platform.machine()}, {os.cpu_count()} cores, core {CORE} used",
        load=f"{load:.2f}",
        system=f"{platform.system()} {platform.release()}",
        compiler=compiler(build),
        versions=versions(),
        commit=commit(),
        date=datetime.date.today().isoformat(),
        command=command,
    )
    return head + "\n".join(body).rstrip() + "\n"


TEXT = """# Benchmarks

The floor is the fastest plain code, or the raw engine, that does the same observable work, and its results are
compared with the library's before anything is timed. A ratio is a time divided by the floor's, so that less is
better. Peers are what else could be used; what stands behind a comma is how a peer's work differs. One in bold does
the same work in less than {same:.0%} of the floor's time, even where its spread ends: that floor is none.

Each figure is the median of {rounds} rounds, in which all contenders of an operation take turns; ratios are made
within a round. The spread in brackets is that of the rounds. If there are nine, the lowest and the highest don't
count, and the median of ever more rounds would be within, with a probability of 96 %. A goal is met if all of the
spread keeps to it, missed if none of it does, and otherwise too close to call.

Goals: {met} met, {missed} missed, {close} too close to call.

- Machine: {machine}
- Load when it began: {load}
- System: {system}
- Compiler: {compiler}
- Libraries: {versions}
- Commit: {commit}
- Made on {date} by `{command}`

"""


# --------------------------------------------------------------------------------------------------


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path, metavar="BUILD_DIR")
    parser.add_argument("--output", type=pathlib.Path, metavar="FILE", help="write the page there")
    parser.add_argument(
        "--only", default=".", metavar="REGEX", help="run the operations of which a name fits"
    )
    parser.add_argument("--quick", action="store_true", help="fewer and shorter rounds")
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
    load = os.getloadavg()[0]
    programs = sorted(path for path in (arguments.build / "bench").glob("*Bench") if path.is_file())
    if not programs:
        raise SystemExit(f"no benchmarks in {arguments.build / 'bench'}: build them first")
    rows = {program: read_rows(program, arguments.only) for program in programs}
    rows = {program: rows[program] for program in programs if rows[program]}

    if arguments.check:
        for program, operations in rows.items():
            tell(program.name)
            measure(program, sum(operations.values(), []), repetitions=1, seconds=0)
        tell(f"{sum(map(len, rows.values()))} operations give what they should")
        return

    text = page(arguments.build, measure_all(rows, arguments.quick), arguments, load)
    print(text)
    if arguments.output:
        arguments.output.write_text(text)
        tell(f"written: {arguments.output}")


if __name__ == "__main__":
    main()
