# SPDX-License-Identifier: Apache-2.0
"""The power is cut, after a run and in the middle of one: what the disk holds at that instant is mounted again."""

import os
import subprocess
import sys
from glob import glob

if os.environ.get("PRIVATE_OPT") != "1":
    loops = [word for node in glob("/dev/loop*") for word in ("--dev-bind", node, node)]
    private = ["bwrap", "--unshare-pid", "--die-with-parent", "--cap-add", "ALL", "--ro-bind", "/", "/",
               "--dev", "/dev", *loops, "--proc", "/proc", "--tmpfs", "/opt", "--setenv", "PRIVATE_OPT", "1"]
    if os.getuid() != 0 or not loops or subprocess.run([*private, "true"]).returncode != 0:
        print("skipped: power cuts: only root may mount a disk, and it takes a loop device")
        sys.exit(77)
    os.execvp("bwrap", [*private, sys.executable, *sys.argv])
from device import STICK, TelevisionTest, calls, mounted  # in the private /opt only

EMPTY, PREPARED, DISK, CUT, TRACE = (f"/dev/shm/{name}" for name in ("empty", "prepared", "disk", "cut", "trace"))
WIDGETS = "abcde"
AVAILABLE = ("--make-available", "--path", str(STICK), *WIDGETS)
UNAVAILABLE, ALL = ("--make-unavailable", *WIDGETS), ("--make-all-unavailable",)
# What runs, what ran before, and what heals it.
ACTIONS = (AVAILABLE, ALL, AVAILABLE), (UNAVAILABLE, AVAILABLE, UNAVAILABLE), (ALL, AVAILABLE, UNAVAILABLE)


def on(image):
    return mounted("/opt", "-o", "loop", image)


def copy(image, to):
    subprocess.run(["cp", "--sparse=always", image, to], check=True)


class PowerCutTest(TelevisionTest):
    def test_links_and_rows_on_each_file_system(self):
        for system in "ext4", "xfs", "btrfs", "f2fs":
            make = f"rm -f $0; truncate -s 300M $0; mkfs.{system} -q $0 && mount -o loop $0 /opt && umount /opt"
            made = subprocess.run(["sh", "-c", make, EMPTY], capture_output=True, text=True)
            if made.returncode != 0:
                print(f"skipped: power cuts on {system}: {made.stderr.splitlines()[0]}")
            for action in ACTIONS if made.returncode == 0 else ():
                with self.subTest(system, action=action[0]):
                    self.cut(*action)

    def cut(self, words, before, healing):
        copy(EMPTY, PREPARED)
        with on(PREPARED):
            self.setUp()
            for widget in WIDGETS:
                self.device.widget(widget)
            self.device.run(*before)
        done = self.run_on_disk(words)
        with on(CUT):
            self.assertEqual(done, self.device.state())
        for _, name, number in calls(TRACE):
            if name in ("symlink", "unlink", "fsync", "fdatasync", "syncfs"):
                self.run_on_disk(words, "-e", f"inject={name}:signal=KILL:when={number}")
                with on(CUT):
                    self.device.run(*healing)
                    self.assertEqual(done, self.device.state(), (name, number))

    def run_on_disk(self, words, *kill):
        """The state after the run; what the disk held at its end is in CUT."""
        copy(PREPARED, DISK)
        with on(DISK):
            subprocess.run(["sync", "-f", "/opt"], check=True)
            self.device.run(*words, under=("strace", "-qq", "-o", TRACE, *kill))
            copy(DISK, CUT)
            return self.device.state()


TelevisionTest.main()
