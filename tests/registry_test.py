# SPDX-License-Identifier: Apache-2.0
"""The widget database in the companion's hands: made, replaced, not to be used, and watched while it changes."""

import fcntl
import json
import os
import re
import signal
import statistics
import subprocess
import sys
import time
from datetime import datetime, timezone
from itertools import product
from pathlib import Path
from select import select

from device import DATABASE, SCHEMA, STICK, TelevisionTest, calls

TODAY, ROWS = f"{datetime.now(timezone.utc):%F}", "SELECT kx_app_id FROM widget"
OWN = {"widgets.db", "widgets.db-wal", "widgets.db-shm"}
CREATED, KEPT, ASIDE = "created the widget database", "kept the widget database", "set aside FILE.TODAY"
BROKEN = ("; run 'zelmar-widgets init --replace' for an empty one; or, while no process uses it, put back widgets.db, "
          "widgets.db-wal and widgets.db-shm, and remove what the copy lacks")
VERSION = "FILE has schema version {}, this release has version 1; install the release that made it"
NEWER, STRACE = ", or a newer one", "strace -qqyo/opt/trace"

# The case; what befalls a database with the widget "a" before; what the call is under; its words; the status; what is
# told; the files beside the database's own after a status of 0.
CASES = (
    ("sound", "", "", "init", 0, KEPT, ""),
    ("killed", "for part in '' -wal -journal; do ln widgets.db widgets.db.new$part; done", "", "init", 0, KEPT, ""),
    ("only a log", "rm widgets.db; touch widgets.db-wal.orphaned", "", "init", 0,
     f"set aside FILE-wal.orphaned.2\n{CREATED}", "widgets.db-wal.orphaned widgets.db-wal.orphaned.2"),
    ("replaced", "rm *-shm; touch widgets.db.$(date -u +%F)", "", "init --replace", 0,
     f"{ASIDE}.2\n{ASIDE}.2-wal\n{CREATED}", "widgets.db.TODAY widgets.db.TODAY.2 widgets.db.TODAY.2-wal"),
    ("foreign", "echo Some other file >widgets.db", "", "init", 3, f"FILE: file is not a database{BROKEN}", ""),
    ("empty", "rm *; touch widgets.db", "", "status", 3, f"FILE: not a widget database{BROKEN}", ""),
    ("damaged", "sqlite3 widgets.db 'DROP TABLE widget'", "", "init", 3, f"FILE: no such table: widget{BROKEN}", ""),
    ("older", "sqlite3 widgets.db 'PRAGMA user_version = 0'", "", "status", 3, VERSION.format(0), ""),
    ("newer", "sqlite3 widgets.db 'PRAGMA user_version = 2'", "", "init", 3, VERSION.format(2) + NEWER, ""),
    ("few descriptors", "", "prlimit --nofile=5", "status", 3,
     "too many open files on FILE; end other processes, then call again", ""),
    ("bad disk", "", f"{STRACE} -einject=pread64:error=EIO", "init", 3,
     "FILE: disk I/O error; remove the cause ('dmesg' tells of a failing disk), then call again", ""),
    ("full disk", "", f"{STRACE} -einject=pwrite64:error=ENOSPC", "add b --app t.b", 3,
     "no space left on device on FILE; make room, then call again", ""),
)


class RegistryTest(TelevisionTest):
    def setUp(self):
        super().setUp()
        self.device.widget("a")
        self.call("init")  # makes the log

    def call(self, words, under=""):
        run = subprocess.run([*under.split(), *self.device.tool, *words.split()], capture_output=True, text=True)
        told = (run.stdout + run.stderr).replace(str(DATABASE), "FILE").removeprefix("zelmar-widgets: ").strip()
        return run.returncode, told.replace(TODAY, "TODAY")

    def test_each_case(self):
        for name, before, under, words, status, told, beside in CASES:
            with self.subTest(name):
                self.setUp()
                subprocess.run(before, shell=True, cwd=DATABASE.parent, check=True)
                self.assertEqual((status, told), self.call(words, under))
                if status == 0:
                    files, rows = set(beside.replace("TODAY", TODAY).split()), [("a",)] if told == KEPT else []
                    self.assertEqual((OWN | files, rows), (set(os.listdir(DATABASE.parent)), self.device.sql(ROWS)))

    def test_locks_that_others_keep_taking(self):
        with open(f"{DATABASE}-shm", "r+b") as shm:
            fcntl.lockf(shm, fcntl.LOCK_EX, 5, 123)  # all marks of readers
            told = "another process has held the database for 5 s; end that process, or call again"
            self.assertEqual((3, told), self.call("status", f"{STRACE} -einject=clock_nanosleep:retval=0"))

    def test_a_replacement_that_is_cut_off(self):
        self.call("init --replace", STRACE)
        points = [f"{name}:{{}}:when={number}" for call, name, number in calls("/opt/trace")
                  if re.match("pwrite64|ftruncate|fsync|fdatasync.*widgets|renameat2", call)]
        for point, (fault, ends) in product(points, (("error=EIO", 3), ("signal=KILL", -9))):
            with self.subTest(point.format(fault)):
                self.setUp()
                self.assertEqual(ends, self.call("init --replace", f"{STRACE} -einject={point.format(fault)}")[0])
                self.assertEqual((0, [("ok",)]), (self.call("init")[0], self.device.sql("PRAGMA integrity_check")))
                files = [*DATABASE.parent.iterdir()]
                self.assertEqual((True, []), (any(b"t.a" in file.read_bytes() for file in files),
                                              [file for file in files if ".new" in file.name]), "rows kept, draft gone")


# What is done, and what `watch` tells of it.
COMPANION = sys.argv[1]
CREATE = f"mkdir -p {DATABASE.parent}; sqlite3 {DATABASE} <{SCHEMA}"
ADD = f"{COMPANION} add chess --app t.chess; {COMPANION} add clock --app t.clock --on-device"
PLUG = f"{Path(COMPANION).parent}/zelmar-frontend --make-available --path {STICK} -- chess"
UPDATE = f"sqlite3 {DATABASE} 'UPDATE widget SET available = not available'"
OFF, ON, LOCAL = ["chess", "unavailable", None], ["chess", "available", str(STICK)], ["clock", "on-device", None]
GONE = [[name, "removed", None] for name in ("chess", "clock")]
TOLD = (
    ("true", []),  # there is no database
    (f"{CREATE}; {ADD}", [OFF, LOCAL]),
    (PLUG, [ON]),
    # A slow disk: long after the write to the log, the change can be seen. Its process lives on.
    (f"strace -o /dev/null -e inject=fsync,fdatasync:delay_enter=300000 {UPDATE} '.shell sleep 6' & sleep 1.3", [OFF]),
    *((UPDATE, [state]) for state in 5 * (ON, OFF)),
    (f"rm {DATABASE}*; {CREATE}", GONE),
    (f"mv {DATABASE.parent} /opt/old; {CREATE}; {ADD}", [OFF, LOCAL]),
    (f"sqlite3 /opt/new <{SCHEMA}; rm {DATABASE}-*; mv /opt/new {DATABASE}", GONE),
)


class WatchTest(TelevisionTest):
    def watch(self, *words):
        plain = ("setpriv", "--bounding-set=-all", "--inh-caps=-all")  # root without root's powers
        return subprocess.Popen([*plain, COMPANION, "watch", *words], stdout=subprocess.PIPE, bufsize=0)

    def lines(self, watch, count):
        text = b""
        while text.count(b"\n") < count:
            self.assertTrue(select([watch.stdout], [], [], 9)[0], f"{count} lines expected, told: {text}")
            text += os.read(watch.stdout.fileno(), 4096)
        return text.decode().splitlines()

    def test_each_change_is_told_soon(self):
        self.device.content("chess", ["image"])
        DATABASE.unlink()
        DATABASE.parent.rmdir()
        waits = []
        with self.watch("--json") as watch:
            for script, expected in TOLD:
                subprocess.run(script, shell=True, check=True, stdout=subprocess.DEVNULL)
                start = time.monotonic()
                told = [list(json.loads(line).values()) for line in self.lines(watch, len(expected))]
                waits.append(time.monotonic() - start)
                self.assertEqual(expected, [[name, *facts] for _, name, _, *facts in told], script)
            watch.terminate()
            self.assertEqual(([], 0), (watch.stdout.readlines(), watch.wait(9)))
        self.assertLess(statistics.median(waits), 0.2)
        self.assertLess(max(waits), 3)  # on a busy machine

    def test_it_sleeps_until_it_is_interrupted_or_its_reader_goes(self):
        self.device.widget("a\n").sql("UPDATE widget SET available = 1, external_storage_path = '/s/a\n_img'")
        for end in (lambda watch: watch.stdout.close(), lambda watch: watch.send_signal(signal.SIGINT)):
            with self.watch() as watch:
                self.assertEqual(["a\\x0a: available from /s"], self.lines(watch, 1))
                time.sleep(0.3)
                status = Path(f"/proc/{watch.pid}/status")
                asleep = status.read_text()
                time.sleep(1)
                self.assertEqual(asleep, status.read_text())  # it was not even woken
                end(watch)
                self.assertEqual(0, watch.wait(9))


TelevisionTest.main()
