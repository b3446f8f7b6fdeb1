# SPDX-License-Identifier: Apache-2.0
"""The tool in trouble: a database that fails it, another instance beside it."""

import random
import subprocess
import sys
import time
from contextlib import nullcontext
from pathlib import Path

from device import DATABASE, STICK, TelevisionTest, held_by_another, mounted

TOOL = sys.argv[1:]
BOTH, NONE = "a,SUCCESS:b,SUCCESS:\n", "a,FAIL,Unknown_Error:b,FAIL,Unknown_Error:\n"
ONLY_B, UNATTACHED = "a,FAIL,Unknown_Error:b,SUCCESS:\n", "Cannot attach DBConnection to current thread\n"
EXCLUSIVE = "PRAGMA locking_mode = EXCLUSIVE; BEGIN; UPDATE widget SET handle = handle; COMMIT"
REFUSAL = "CREATE TRIGGER t BEFORE UPDATE OF %s ON widget WHEN OLD.kx_app_id = 'a' BEGIN SELECT RAISE(ABORT, 'no'); END"


class FaultTest(TelevisionTest):
    def setUp(self):
        super().setUp()
        self.device.widget("a").widget("b")

    def run_in(self, trouble=nullcontext(), seconds=0):
        """A run that ends in time, says why if it failed, and has linked just the widgets that it says it has."""
        with trouble:
            start = time.monotonic()
            run = self.device.available("a", "b")
            self.assertLess(time.monotonic() - start, seconds + 4)
        self.assertEqual((run.status == 255, run.status == 0), (bool(run.err), bool(run.out)), run)
        for widget in "ab":
            self.assertEqual(4 * (f"{widget},SUCCESS" in run.out), len(self.device.links(widget)), run)
        return run

    def assert_nothing_lost(self, run=None):
        """The database is sound and says the same as the run did; the next run goes well."""
        self.assertEqual([("ok",)], self.device.sql("PRAGMA integrity_check"))
        for widget, (row, _) in self.device.state().items() if run else ():
            self.assertEqual(f"{widget},SUCCESS" in run.out, row.available, run)
        self.device.sql("DROP TRIGGER IF EXISTS t")
        self.assertEqual(BOTH, self.run_in().out)
        self.device.unavailable("a", "b")

    def test_a_database_held_by_others(self):
        for trouble, out, err, seconds in (
                (held_by_another("BEGIN IMMEDIATE", 1), BOTH, "", 1),
                (held_by_another("BEGIN IMMEDIATE", 99), NONE, "", 5),
                (held_by_another(EXCLUSIVE, 1), BOTH, "", 1),
                (held_by_another(EXCLUSIVE, 99), "", UNATTACHED, 5),
                (mounted(DATABASE.parent, "--bind", "-o", "ro", DATABASE.parent), "", UNATTACHED, 0),
                (held_by_another(REFUSAL % "external_storage_path", 0), ONLY_B, "", 0),
                (held_by_another(REFUSAL % "available", 0), ONLY_B, "", 0)):
            with self.subTest(out=out, err=err, seconds=seconds):
                run = self.run_in(trouble, seconds)
                self.assertEqual((out, err), run[1:3])
                self.assert_nothing_lost(run)

    def test_a_full_disk(self):
        # With large pages each change needs a block of its own.
        script = "PRAGMA journal_mode = DELETE; PRAGMA page_size = 4096; VACUUM; PRAGMA journal_mode = WAL"
        subprocess.run(["sqlite3", DATABASE, script], stdout=subprocess.DEVNULL)
        kept, verdicts = DATABASE.read_bytes(), set()
        for free in range(16):
            with mounted(DATABASE.parent, "-t", "tmpfs", "-o", "size=256k", "none"):
                DATABASE.write_bytes(kept)
                filler = DATABASE.parent / "filler"
                filler.write_bytes(bytes((64 - free) * 4096 - len(kept)))
                run = self.run_in()
                filler.unlink()
                self.assert_nothing_lost(run)
                verdicts.add(run.out + run.err)
        self.assertLessEqual({UNATTACHED, NONE, "a,SUCCESS:b,FAIL,Unknown_Error:\n", BOTH}, verdicts)

    def test_a_broken_database(self):
        kept = DATABASE.read_bytes()
        for at, size in [(at, 2) for at in range(0, 100, 2)] + [(at, 512) for at in range(512, len(kept), 512)]:
            DATABASE.write_bytes(kept[:at] + bytes([255]) * size + kept[at + size:])
            self.run_in()
            Path(f"{DATABASE}-wal").unlink(missing_ok=True)
            DATABASE.write_bytes(kept)
            self.assert_nothing_lost()

    def test_two_at_once(self):
        lines = (("--make-available", "--path", STICK, "a", "b"), ("--make-unavailable", "a", "b"),
                 ("--make-all-unavailable",))
        done = [self.device.run(*words) and self.device.state() for words in lines]
        for _ in range(300):
            pair = random.choices(range(3), k=2)
            processes = [subprocess.Popen([*TOOL, *lines[action]], stdout=subprocess.DEVNULL) for action in pair]
            self.assertEqual([0, 0], [process.wait(20) for process in processes])
            healing = min(random.choice(pair), 1)  # a link whose widget lost its state goes only by name
            self.assertEqual(0, self.device.run(*lines[healing]).status)
            self.assertEqual(done[healing], self.device.state())
            self.assertEqual([("ok",)], self.device.sql("PRAGMA integrity_check"))


FaultTest.main()
