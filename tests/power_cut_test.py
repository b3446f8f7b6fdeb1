# SPDX-License-Identifier: Apache-2.0
"""The power is cut, after a run and in the middle of one: what the disk holds at that instant is mounted again."""

import os
import subprocess
import sys
from glob import glob
from itertools import product

if os.environ.get("PRIVATE_OPT") != "1":
    loops = [word for node in glob("/dev/loop*") for word in ("--dev-bind", node, node)]
    private = ["bwrap", "--unshare-pid", "--die-with-parent", "--cap-add", "ALL", "--ro-bind", "/", "/",
               "--dev", "/dev", *loops, "--proc", "/proc", "--tmpfs", "/opt", "--setenv", "PRIVATE_OPT", "1"]
    if os.getuid() != 0 or not loops or subprocess.run([*private, "true"]).returncode != 0:
        print("skipped: power cuts: only root may mount a disk, and it takes a loop device")
        sys.exit(77)
    os.execvp("bwrap", [*private, sys.executable, *sys.argv])
from device import LOGS, STICK, TelevisionTest, calls, held_by_another, mounted  # in the private /opt only

EMPTY, PREPARED, DISK, CUT, TRACE = (f"/dev/shm/{name}" for name in ("empty", "prepared", "disk", "cut", "trace"))
WIDGETS = "abcde"
AVAILABLE = ("--make-available", "--path", str(STICK), *WIDGETS)
UNAVAILABLE, ALL = ("--make-unavailable", *WIDGETS), ("--make-all-unavailable",)
# With the run before each and the one that heals it.
ACTIONS = ((AVAILABLE, ALL, AVAILABLE), (UNAVAILABLE, AVAILABLE, UNAVAILABLE), (ALL, AVAILABLE, UNAVAILABLE))
WRITING = "pwrite64", "ftruncate", "symlink", "unlink", "setxattr", "fsync", "fdatasync", "syncfs"


def on(image):
    return mounted("/opt", "-o", "loop", image)


def copy(image, to):
    subprocess.run(["cp", "--sparse=always", image, to], check=True)


class PowerCutTest(TelevisionTest):
    def test_each_action(self):
        for system in ("ext4", "xfs", "btrfs", "f2fs"):
            make = f"rm -f $0; truncate -s 300M $0; mkfs.{system} -q $0 && mount -o loop $0 /opt && umount /opt"
            made = subprocess.run(["sh", "-c", make, EMPTY], capture_output=True, text=True)
            if made.returncode != 0:
                print(f"skipped: power cuts on {system}: {made.stderr.splitlines()[0]}")
            for action, log in product(ACTIONS, LOGS) if made.returncode == 0 else ():
                with self.subTest(system, action=action[0], log=log):
                    self.cut(*action, log)

    def cut(self, words, before, healing, log):
        copy(EMPTY, PREPARED)
        with on(PREPARED):
            self.setUp()
            for widget in WIDGETS:
                self.device.widget(widget)
            self.device.run(*before)
        done = self.run_on_disk(words, log)
        with on(CUT):
            self.assertEqual(done, self.device.state())
        writing = [(name, number) for _, name, number in calls(TRACE) if name in WRITING]
        kills = [f"inject={name}:signal=KILL:when={number}" for at, (name, number) in enumerate(writing)
                 if at % 50 == 0 or "sync" in name or name == "ftruncate"]
        for kill in kills:
            self.run_on_disk(words, log, "-e", kill)
            with on(CUT):
                self.assertEqual([("ok",)], self.device.sql("PRAGMA integrity_check"), kill)
                self.device.run(*healing)
                self.assertEqual(done, self.device.state(), kill)

    def run_on_disk(self, words, log, *kill):
        """The state after the run; what the disk held at its end is in CUT."""
        copy(PREPARED, DISK)
        with on(DISK), held_by_another(LOGS[log], 99):
            subprocess.run(["sync", "-f", "/opt"], check=True)
            self.device.run(*words, under=("strace", "-qq", "-o", TRACE, *kill))
            copy(DISK, CUT)
            return self.device.state()


TelevisionTest.main()
