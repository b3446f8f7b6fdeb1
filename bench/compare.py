# SPDX-License-Identifier: Apache-2.0
"""Times the tool and its rivals by turns on the /opt that it finds, and adds the rows to a CSV file."""

import argparse
import csv
import os
import re
import resource
import shutil
import sqlite3
import statistics
import subprocess
import sys
from contextlib import closing
from operator import truediv
from pathlib import Path

from device import APPS, DATABASE, LABEL, METADATA, SCHEMA, STICK

HERE = Path(__file__).parent
INPUTS = DATABASE.parent / "peer"
TEMPLATE = DATABASE.with_suffix(".new")
LOG = Path(f"{DATABASE}-wal")
TRACE = Path("/opt/trace")

START_UP_RUNS = 50
# The smallest and largest number of widgets for each contestant. Beyond the largest, the time for a widget is the same.
TIMED_FROM = {"no --": 1000}
TIMED_UP_TO = {"tool": 100000, "no --": 100000, "floor": 100000, "peer": 10000, "loop": 100}
TRACED_UP_TO = {"tool": 10000, "no --": 0, "floor": 10000, "peer": 10, "loop": 10}
# Contestants that are timed with a tenth of the widgets, too, and from how many widgets on.
LINEAR, LINEAR_FROM = ("tool", "no --"), 10000
# Where instructions are counted, in a run that takes twenty times as long.
COUNTED, COUNTED_AT = ("tool", "no --", "floor"), 1000
SYNCS = ("fsync", "fdatasync", "syncfs", "sync")
COLUMNS = ("file_system", "action", "widgets", "contestant", "runs", "min_ms", "median_ms", "us_per_widget", "to_floor",
           "to_peer", "to_tenth", "instructions_per_widget", "syscalls_per_widget", "syncs", "peak_kib", "log_file_kib",
           "log_lines")


def names(count):
    return [f"widget{number:06}" for number in range(count)]


def files(name):
    return (f"{name}.img",) + METADATA


def install(count):
    """So many widgets on a stick, none of them available yet."""
    for entry in Path("/opt").iterdir():
        if entry.is_dir() and not os.path.ismount(entry):
            shutil.rmtree(entry)
    for folder in (APPS, STICK, INPUTS):
        folder.mkdir(parents=True)
    for name in names(count):
        os.mkdir(f"{APPS}/{name}_img")
        os.mkdir(f"{STICK}/{name}_img")
        for file in files(name):
            os.close(os.open(f"{STICK}/{name}_img/{file}", os.O_CREAT | os.O_WRONLY))
    with closing(sqlite3.connect(TEMPLATE)) as database:
        database.executescript(SCHEMA.read_text())
        database.executemany("INSERT INTO widget (tizen_app_id, kx_app_id, installed_on_usb) VALUES (?, ?, 1)",
                             [(f"t.{name}", name) for name in names(count)])
        database.commit()
    write_inputs(count)


def write_inputs(count):
    """What the peer's programs read; its rows are never synced."""
    made, gone, rows = [], [], []
    for name in names(count):
        for file in files(name):
            link = f"{APPS}/{name}_img/{file}"
            made.append(f"L+ {link} - - - - {STICK}/{name}_img/{file}\nt {link} - - - - {LABEL}=_\n")
            gone.append(f"r {link}\n")
        rows.append(f"UPDATE widget SET external_storage_path = '{STICK}/{name}_img', available = 1"
                    f" WHERE kx_app_id = '{name}';\n")
    begin, commit = "PRAGMA synchronous = OFF; BEGIN;\n", "COMMIT;\n"
    (INPUTS / "available.conf").write_text("".join(made))
    (INPUTS / "available.sql").write_text(begin + "".join(rows) + commit)
    (INPUTS / "gone.conf").write_text("".join(gone))
    (INPUTS / "gone.sql").write_text(
        begin + "UPDATE widget SET external_storage_path = '', available = 0 WHERE available;\n" + commit)


def reset_database():
    for left in DATABASE.parent.glob(f"{DATABASE.name}-*"):  # a log that was kept is another database's now
        left.unlink()
    shutil.copyfile(TEMPLATE, DATABASE)


def actions(who, count):
    """The arguments of both actions; the second undoes the first."""
    separator = [] if who == "no --" else ["--"]
    return {"available": ["--make-available", "--path", STICK, *separator, *names(count)],
            "all-unavailable": ["--make-all-unavailable"]}


def check(count, available):
    """Stops unless every link, label and row is as the action leaves it."""
    for name in names(count):
        place, content = f"{APPS}/{name}_img", f"{STICK}/{name}_img"
        links = {file: (os.readlink(f"{place}/{file}"), os.getxattr(f"{place}/{file}", LABEL, follow_symlinks=False))
                 for file in os.listdir(place)}
        if links != ({file: (f"{content}/{file}", b"_") for file in files(name)} if available else {}):
            raise SystemExit(f"bench: wrong links in {place}: {links}")
    with closing(sqlite3.connect(DATABASE)) as database:
        rows = database.execute("SELECT kx_app_id, available, external_storage_path FROM widget ORDER BY handle")
        if rows.fetchall() != [(name, available, f"{STICK}/{name}_img" if available else "") for name in names(count)]:
            raise SystemExit("bench: wrong rows")


class Measured:
    """One contestant at one action."""

    def __init__(self):
        self.seconds, self.tenth, self.peak_kib, self.log_lines = [], [], 0, 0
        self.calls = self.syncs = self.log_file_bytes = None  # not traced
        self.instructions = None  # not counted

    def to(self, seconds):
        """The median of the ratios to others' seconds, each pair measured one right after the other."""
        return f"{statistics.median(map(truediv, self.seconds, seconds)):.2f}" if seconds else ""

    def add(self, seconds, peak_kib, log_lines):
        self.seconds.append(float(seconds))
        self.peak_kib = max(self.peak_kib, int(peak_kib))
        self.log_lines = int(log_lines)


class Bench:
    def __init__(self, build, table):
        self.measure = build / "bench/measure"
        self.contestants = {"tool": [build / "zelmar-frontend"], "no --": [build / "zelmar-frontend"],
                            "floor": [build / "bench/floor"], "peer": [HERE / "peer", INPUTS, DATABASE],
                            "loop": [HERE / "loop", DATABASE]}
        if os.stat("/").st_uid != 0:
            print("bench: no peer: systemd-tmpfiles trusts no path where / is another's, as in a plain user's")
            del self.contestants["peer"]
        self.file_system = subprocess.check_output(["findmnt", "-no", "FSTYPE", "-T", "/opt"], text=True).strip()
        self.table = csv.DictWriter(table, COLUMNS, lineterminator="\n")

    def compare(self, count, runs, untraced):
        """Makes `count` widgets available and unavailable, the contestants by turns."""
        contestants = {who: words for who, words in self.contestants.items()
                       if TIMED_FROM.get(who, 0) <= count <= TIMED_UP_TO[who]}
        install(count)
        found = {(action, who): Measured() for action in ("available", "all-unavailable") for who in contestants}
        for number in range(runs):
            print(f"bench: {self.file_system}, {count} widgets, run {number + 1} of {runs}", file=sys.stderr)
            for who, words in contestants.items():
                reset_database()
                if who in LINEAR and count >= LINEAR_FROM:
                    for action, action_words in actions(who, count // 10).items():
                        found[action, who].tenth.append(float(self.call(*words, *action_words)[0]))
                for action, action_words in actions(who, count).items():
                    if self.file_system != "tmpfs":
                        os.sync()  # What was written before is not for this run to wait for.
                    found[action, who].add(*self.call(*words, *action_words))
                    check(count, available=action == "available")
        for who, words in contestants.items():
            reset_database()
            for action, action_words in actions(who, count).items():
                if not untraced and count <= TRACED_UP_TO[who]:
                    self.trace(found[action, who], *words, *action_words)
            if count == COUNTED_AT and who in COUNTED and not untraced:
                for action, action_words in actions(who, count).items():
                    found[action, who].instructions = self.count_instructions(*words, *action_words)
                for action, action_words in actions(who, 1).items():
                    found[action, who].instructions -= self.count_instructions(*words, *action_words)
        for action in actions("tool", count):
            if found[action, "tool"].log_lines != found[action, "floor"].log_lines:
                raise SystemExit("bench: floor.cpp must log as many lines as the tool does; bring it up to date")
            self.write(action, count, {who: found[action, who] for who in contestants})

    def start_up(self):
        """Calls that change nothing: one without words, and one that finds no widget to remove."""
        install(1)
        reset_database()
        contestants = {"tool": self.contestants["tool"], "floor": self.contestants["floor"], "true": ["/bin/true"]}
        for action, action_words in {"start-up": [], "no change": ["--make-all-unavailable"]}.items():
            found = {who: Measured() for who in contestants}
            for _ in range(START_UP_RUNS):
                for who, words in contestants.items():
                    found[who].add(*self.call(*words, *action_words))
            for who, words in contestants.items():
                self.trace(found[who], *words, *action_words)
            self.write(action, 0, found)

    def call(self, *words):
        """Runs the words under `measure` and returns its findings."""
        done = subprocess.run([self.measure, *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        if done.returncode != 0:
            raise SystemExit(f"bench: {words[0]} ended with {done.returncode}: {done.stderr}")
        return done.stdout.splitlines()[-1].split()

    def trace(self, measured, *words):
        """Counts system calls."""
        self.call("strace", "-f", "-c", "-U", "calls,name", "-o", TRACE, *words)
        measured.log_file_bytes = LOG.stat().st_size if LOG.exists() else 0
        lines = [line.split() for line in TRACE.read_text().splitlines()]
        calls = {line[-1]: int(line[0]) for line in lines if line and line[0].isdigit()}
        measured.calls = calls["total"]
        measured.syncs = sum(calls.get(name, 0) for name in SYNCS)

    def count_instructions(self, *words):
        """How many the words take in user space."""
        self.call("env", "TMPDIR=/dev/shm", "valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                  f"--log-file={TRACE}", *words)
        return int(re.search("Collected : ([0-9]+)", TRACE.read_text())[1])

    def write(self, action, count, found):
        for who, measured in found.items():
            median = statistics.median(measured.seconds)
            each = max(count, 1)
            traced, counted = measured.calls is not None, measured.instructions is not None
            self.table.writerow(dict(zip(COLUMNS, (
                self.file_system, action, count, who, len(measured.seconds),
                f"{min(measured.seconds) * 1e3:.2f}", f"{median * 1e3:.2f}", f"{median * 1e6 / each:.1f}",
                measured.to(found["floor"].seconds), measured.to(found["peer"].seconds if "peer" in found else []),
                measured.to(measured.tenth), round(measured.instructions / (count - 1)) if counted else "",
                f"{measured.calls / each:.1f}" if traced else "", measured.syncs, measured.peak_kib,
                measured.log_file_bytes // 1024 if traced else "", measured.log_lines))))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--results", required=True, help="the CSV file")
    parser.add_argument("--runs", type=int, required=True)
    parser.add_argument("--untraced", action="store_true", help="count no system calls, which takes long")
    parser.add_argument("widgets", type=int, nargs="+")
    arguments = parser.parse_args()

    # 100,000 identifiers are more than a command line holds by default.
    resource.setrlimit(resource.RLIMIT_STACK, (64 << 20, resource.getrlimit(resource.RLIMIT_STACK)[1]))
    with open(arguments.results, "a", newline="") as results:
        bench = Bench(arguments.build, results)
        if results.tell() == 0:
            bench.table.writeheader()
            bench.start_up()
        for count in arguments.widgets:
            bench.compare(count, arguments.runs, arguments.untraced)
            results.flush()


main()
