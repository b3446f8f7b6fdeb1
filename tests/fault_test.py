# SPDX-License-Identifier: Apache-2.0
"""The tool in trouble: a database that fails it, another instance beside it."""

import random
import subprocess
import time

from device import DATABASE, STICK, TelevisionTest, held_by_another, mounted

BOTH, NONE = "a,SUCCESS:b,SUCCESS:\n", "a,FAIL,Unknown_Error:b,FAIL,Unknown_Error:\n"
UNATTACHED = "Cannot attach DBConnection to current thread\n"
EXCLUSIVE = "PRAGMA locking_mode = EXCLUSIVE; BEGIN; UPDATE widget SET handle = handle; COMMIT"


class FaultTest(TelevisionTest):
    def setUp(self):
        super().setUp()
        self.device.widget("a").widget("b")

    def run_in_time(self, seconds=0):
        """A run that says why if it failed, and has linked just the widgets that it says it has."""
        start = time.monotonic()
        run = self.device.available("a", "b")
        self.assertLess(time.monotonic() - start, seconds + 4)
        self.assertEqual((run.status == 255, run.status == 0), (bool(run.err), bool(run.out)), run)
        for widget in "ab":
            self.assertEqual(4 * (f"{widget},SUCCESS" in run.out), len(self.device.links(widget)), run)
        return run

    def test_a_database_held_by_others(self):
        for trouble, out, err, seconds in (
                (mounted(DATABASE.parent, "--bind", "-o", "ro", DATABASE.parent), "", UNATTACHED, 0),
                (held_by_another(EXCLUSIVE, 99), "", UNATTACHED, 5),
                (held_by_another("BEGIN IMMEDIATE", 99), NONE, "", 5),
                (held_by_another("BEGIN IMMEDIATE", 1), BOTH, "", 1),
                (held_by_another(EXCLUSIVE, 1), BOTH, "", 1)):
            with self.subTest(out=out, err=err, seconds=seconds):
                with trouble:
                    self.assertEqual((out, err), self.run_in_time(seconds)[1:3])
                for row, links in self.device.state().values():
                    self.assertEqual(row.available, bool(links))

    def test_a_broken_database(self):
        whole = DATABASE.read_bytes()
        for at, size in [(at, 2) for at in range(0, 100, 2)] + [(at, 512) for at in range(512, len(whole), 512)]:
            with self.subTest(at=at):
                self.setUp()
                DATABASE.write_bytes(whole[:at] + size * b"\xff" + whole[at + size:])
                self.run_in_time()

    def test_two_at_once(self):
        by_name = ("--make-available", "--path", STICK, "a", "b"), ("--make-unavailable", "a", "b")
        done = {words: self.device.run(*words) and self.device.state() for words in by_name}
        for _ in range(300):
            pair = random.choices((*by_name, ("--make-all-unavailable",)), k=2)
            processes = [subprocess.Popen([*self.device.tool, *words], stdout=subprocess.DEVNULL) for words in pair]
            self.assertEqual([0, 0], [process.wait(20) for process in processes])
            healing = random.choice(by_name)  # a link whose widget lost its state goes only by name
            self.assertEqual(0, self.device.run(*healing).status)
            self.assertEqual(done[healing], self.device.state())
            self.assertEqual([("ok",)], self.device.sql("PRAGMA integrity_check"))


FaultTest.main()
