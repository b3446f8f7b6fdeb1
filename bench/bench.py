# SPDX-License-Identifier: Apache-2.0
"""Counts what the tool and the other contestants do on the /opt that it finds, times them, and writes a table, as CSV."""

import argparse
import csv
import os
import re
import shutil
import socket
import sqlite3
import statistics
import subprocess
import sys
import time
from collections import Counter
from contextlib import closing
from pathlib import Path

from device import APPS, DATABASE, LABEL, METADATA, SCHEMA, STICK

HERE = Path(__file__).parent
INPUTS = DATABASE.parent / "peer"
TEMPLATE = DATABASE.with_suffix(".new")
TRACE = Path("/opt/trace")

# The most widgets with which each contestant is counted and timed. With more, the cost of a widget stays the same.
COUNTED_UP_TO = {"tool": 10000, "floor": 10000, "peer": 100}
TIMED_UP_TO = {"peer": 10000, "loop": 100}
COUNTS = ("system_calls", "log_lines", "bytes_written", "instructions")
RATIOS = ("low", "median", "high")  # the quartiles
COLUMNS = ("commit", "file_system", "action", "widgets", "contestant", *COUNTS, "syncs", *RATIOS)
FILE_SYSTEM = subprocess.check_output(["findmnt", "-no", "FSTYPE", "-T", "/opt"], text=True).strip()


def names(count):
    return [f"widget{number:06}" for number in range(count)]


def actions(count):
    """The arguments of both actions; the second removes what the first made."""
    return {"available": ["--make-available", "--path", STICK, "--", *names(count)],
            "all-unavailable": ["--make-all-unavailable"]}


def install(count):
    """So many widgets on a stick that was plugged before, and what the peer's programs read."""
    for folder in (APPS, STICK, INPUTS):
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
    update = "UPDATE widget SET external_storage_path = '{}', available = {} WHERE kx_app_id = '{}';\n"
    made, gone, rows = [], [], []
    for name in names(count):
        place, content = APPS / f"{name}_img", STICK / f"{name}_img"
        place.mkdir()
        content.mkdir()
        for file in (f"{name}.img", *METADATA):
            (content / file).touch()
            made.append(f"L+ {place}/{file} - - - - {content}/{file}\nt {place}/{file} - - - - {LABEL}=_\n")
            gone.append(f"r {place}/{file}\n")
        rows.append(update.format(content, 1, name))
    clear = "UPDATE widget SET external_storage_path = '', available = 0 WHERE available;\n"
    for action, files, changes in (("available", made, rows), ("all-unavailable", gone, [clear])):
        (INPUTS / f"{action}.conf").write_text("".join(files))
        (INPUTS / f"{action}.sql").write_text(
            "".join(("PRAGMA synchronous = OFF; BEGIN;\n", *changes, "COMMIT;\n")))
    TEMPLATE.unlink(missing_ok=True)
    with closing(sqlite3.connect(TEMPLATE)) as database:
        database.executescript(SCHEMA.read_text())
        database.executemany("INSERT INTO widget (tizen_app_id, kx_app_id, installed_on_usb, external_storage_path)"
                             " VALUES (?, ?, 1, ?)",
                             [(f"t.{name}", name, f"{STICK}/{name}_img") for name in names(count)])
        database.execute("UPDATE widget SET external_storage_path = ''")
        database.commit()


def check(count, available):
    """Stops unless every link, label and row is as the action leaves it."""
    for name in names(count):
        place, content = f"{APPS}/{name}_img", f"{STICK}/{name}_img"
        links = {file: (os.readlink(f"{place}/{file}"), os.getxattr(f"{place}/{file}", LABEL, follow_symlinks=False))
                 for file in os.listdir(place)}
        wanted = {file: (f"{content}/{file}", b"_") for file in (f"{name}.img", *METADATA)} if available else {}
        if links != wanted:
            raise SystemExit(f"bench: wrong links in {place}: {links}")
    # A connection that may write would fold the write-ahead log into the database.
    with closing(sqlite3.connect(f"file:{DATABASE}?mode=ro", uri=True)) as database:
        rows = database.execute("SELECT kx_app_id, available, external_storage_path FROM widget ORDER BY handle")
        if rows.fetchall() != [(name, available, f"{STICK}/{name}_img" if available else "") for name in names(count)]:
            raise SystemExit("bench: wrong rows")


def read_log():
    """Reads /dev/log as a system's logger would, in a process of its own."""
    log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    log.bind("/dev/log")
    if os.fork() == 0:
        while True:
            log.recv(1)


def run(*words):
    """Returns the seconds that it takes."""
    start = time.perf_counter()
    silent = [(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)]
    process = os.posix_spawnp(words[0], words, os.environ, file_actions=silent)
    if os.waitpid(process, 0)[1] != 0:
        raise SystemExit(f"bench: failed: {words[:9]}")
    return time.perf_counter() - start


def act(count, words, under=()):
    """Runs both actions on a database of their own, and yields the name and the seconds of each once it has run."""
    for left in DATABASE.parent.glob(f"{DATABASE.name}*"):
        left.unlink()
    shutil.copyfile(TEMPLATE, DATABASE)
    for action, arguments in actions(count).items():
        if FILE_SYSTEM != "tmpfs":
            os.sync()  # what was written before is not for this run to wait for
        seconds = run(*under, *words, *arguments)
        check(count, action == "available")
        yield action, seconds


def count_calls(count, words):
    """Yields for each action what it asks of the system."""
    for action, _ in act(count, words, under=("strace", "-fqq", "-s0", "-o", TRACE)):
        trace = TRACE.read_text()
        calls = Counter(re.findall(r"^\d+ +(\w+)\(", trace, re.M))
        written = re.findall(r"^\d+ .*\bp?write(?:64|v)?(?:\(| resumed).* = (\d+)$", trace, re.M)
        yield action, {"system_calls": calls.total(), "log_lines": calls["sendto"],
                       "bytes_written": sum(map(int, written)),
                       "syncs": sum(calls[name] for name in ("fsync", "fdatasync", "syncfs", "sync"))}


def count_instructions(count, words):
    """Yields for each action how many instructions its processes take in user space."""
    # The C library would choose its string functions by the processor.
    under = ("env", "GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2", "TMPDIR=/dev/shm", "valgrind", "--tool=callgrind",
             "--trace-children=yes", "--callgrind-out-file=/dev/null", f"--log-file={TRACE}.%p")
    for action, _ in act(count, words, under):
        logs = list(TRACE.parent.glob(f"{TRACE.name}.*"))
        collected = [re.findall("Collected : ([0-9]+)", log.read_text()) for log in logs]
        for log in logs:
            log.unlink()
        yield action, {"instructions": sum(int(number) for numbers in collected for number in numbers)}


def count_all(count, words):
    """For each action all its counts."""
    calls, instructions = dict(count_calls(count, words)), dict(count_instructions(count, words))
    return {action: calls[action] | instructions[action] for action in calls}


def compare(count, runs, words, contestant):
    """For each action the quartiles of the ratios of the tool's time to that of the contestant, right after it."""
    pairs = [(dict(act(count, words)), dict(act(count, contestant))) for _ in range(runs)]
    return {action: statistics.quantiles([ours[action] / theirs[action] for ours, theirs in pairs], n=4,
                                         method="inclusive") for action in actions(count)}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--commit", required=True)
    parser.add_argument("--runs", type=int, required=True, help="of each pair that is timed")
    parser.add_argument("widgets", type=int, nargs="+", help="how many, first 1")
    arguments = parser.parse_args()
    contestants = {"tool": [arguments.build / "zelmar-frontend"], "floor": [arguments.build / "bench/floor"],
                   "peer": [HERE / "peer", INPUTS, DATABASE], "loop": [HERE / "loop", DATABASE]}
    if os.stat("/").st_uid != 0:  # another's, as a plain user's / is in here: systemd-tmpfiles refuses to work
        del contestants["peer"]
    table = csv.DictWriter(sys.stdout, COLUMNS, restval="", lineterminator="\n")
    if FILE_SYSTEM == "tmpfs":
        table.writeheader()

    read_log()
    first = {}
    for count in arguments.widgets:
        print(f"bench: {FILE_SYSTEM}, {count} widgets", file=sys.stderr)
        install(count)
        rows = {(action, who): {} for action in actions(count) for who in contestants}
        for who, words in contestants.items():
            if FILE_SYSTEM == "tmpfs" and count <= COUNTED_UP_TO.get(who, 0):
                for action, found in count_all(count, words).items():
                    rows[action, who] |= found
                    if count > 1:  # for each widget after the first
                        rows[action, who] |= {name: f"{(found[name] - first[action, who][name]) / (count - 1):.1f}"
                                              for name in COUNTS}
                    first.setdefault((action, who), found)
            if count <= TIMED_UP_TO.get(who, 0):
                for action, quartiles in compare(count, arguments.runs, contestants["tool"], words).items():
                    rows[action, who] |= {name: f"{ratio:.3f}" for name, ratio in zip(RATIOS, quartiles)}
        for action in actions(count):
            if rows[action, "tool"].get("log_lines") != rows[action, "floor"].get("log_lines"):
                raise SystemExit("bench: floor.cpp must log as many lines as the tool does; bring it up to date")
        for (action, who), row in rows.items():
            if row:
                table.writerow({"commit": arguments.commit, "file_system": FILE_SYSTEM, "action": action,
                                "widgets": count, "contestant": who, **row})
        sys.stdout.flush()


main()
