# SPDX-License-Identifier: Apache-2.0
"""Disturbs each action once at every system call that it makes: kills the tool there, or has the call fail."""

import os
import re
import shutil
from collections import namedtuple
from pathlib import Path

from device import DATABASE, STICK, TelevisionTest, calls

EVERY = int(os.environ.get("EVERY", 1))  # of how many points one is tried
AVAILABLE = ("--make-available", "--path", str(STICK), "a", "b")
UNAVAILABLE = ("--make-unavailable", "a", "b")
# What runs, what has run before, and what heals a failure; a kill is healed by what ran. A widget that kept a link but
# not its state is not in make-all-unavailable's list any more, so it has to be named.
ACTIONS = {
    "make-available": (AVAILABLE, ("--help",), AVAILABLE),
    "make-available, again": (AVAILABLE, AVAILABLE, AVAILABLE),
    "make-unavailable": (UNAVAILABLE, AVAILABLE, UNAVAILABLE),
    "make-all-unavailable": (("--make-all-unavailable",), AVAILABLE, UNAVAILABLE),
}
# What is injected into which calls. The kernel's brk tells of failure by staying where it is. Giving a lock back
# cannot fail on a device's own file systems, and is spared: SQLite would wait ten seconds for itself at each query.
FAULTS = {
    "kill": ("signal=KILL", r""),
    "EIO": ("error=EIO", r"(?!brk|exit_group|fcntl.*F_UNLCK)"),
    "ENOMEM": ("retval=0", r"brk"),
    "ENOSPC": ("error=ENOSPC", r"openat|pwrite|ftruncate|symlink|setxattr|f(data)?sync|syncfs"),
    "EROFS": ("error=EROFS", r"openat|access|p?write|ftruncate|symlink|unlink|setxattr|fchown"),
    "EINTR": ("error=EINTR", r"openat|p?(read|write)|ftruncate|fcntl(?!.*F_UNLCK)|f(data)?sync|close|connect|send"),
}
# A link or its target that cannot be looked at counts as missing, and one that cannot be removed stays: not promised.
UNPROMISED = r'.*(stat|unlink).*"(/opt/usr/apps|/opt/storage/usb/sda1)/\w+_img/'

STRACE = ("strace", "-qq", "-o", "/dev/shm/trace")
Widget = namedtuple("Widget", "available links path")


def allowed(action, fault, run, widget, now, before, after):
    """Whether the widget is as the run's end and output say."""
    making, again = action.startswith("make-available"), action.endswith("again")
    if fault == "kill":  # a link cannot be replaced in place, so the one in hand may be missing
        return not (making and now.available) or len(after.links.items() - now.links.items()) <= again
    if f"{widget},SUCCESS" in run.out:
        return now[:2] == after[:2] and (not making or now == after)  # a path that is not cleared is no failure
    unread = action == "make-all-unavailable" and "Database error" in str(run.log)
    if run.status == 0 and f"{widget}," not in run.out and not unread:
        return False
    if again:  # what this run did is undone; the links that it had replaced are not put back
        return now.links.items() <= after.links.items()
    if making:  # with the disk full, a path may not be cleared either
        return now == before or fault == "ENOSPC" and now[:2] == before[:2]
    return now.available or run.status == 255 and now == after


class SweepTest(TelevisionTest):
    def prepare(self, before):
        self.setUp()
        self.device.widget("a").widget("b").run(*before)

    def look(self):
        """Widgets, files in /opt and whether the database is sound, without touching what the next run will find."""
        files = {str(path) for path in Path("/opt").rglob("*")} - {f"{DATABASE}-wal", f"{DATABASE}-shm"}
        kept = shutil.copytree(DATABASE.parent, "/dev/shm/kept")
        sound = self.device.sql("PRAGMA integrity_check") == [("ok",)]
        widgets = {name: Widget(row.available, links, row.path or "")
                   for name, (row, links) in self.device.state().items()}
        shutil.rmtree(DATABASE.parent)
        shutil.move(kept, DATABASE.parent)
        return widgets, files, sound

    def test_each_action(self):
        for action, (words, prepare, _) in ACTIONS.items():
            self.prepare(prepare)
            before = self.look()
            self.device.run(*words, under=STRACE)
            after, traced = self.look(), list(calls(STRACE[-1]))
            ours = traced[next(at for at, (call, *_) in enumerate(traced) if "SIGPIPE" in call):]  # main's first
            points = [(fault, *call) for fault in FAULTS for call in ours if re.match(FAULTS[fault][1], call[0])]
            for fault, call, name, number in points[::EVERY]:
                with self.subTest(action, fault=fault, number=number, call=call):
                    self.prepare(prepare)
                    lasting = "+" if fault == "ENOSPC" else ""  # a full disk stays full
                    injection = f"inject={name}:{FAULTS[fault][0]}:when={number}{lasting}"
                    self.disturb(action, fault, call, injection, before, after)
            print(f"{action}: {len(points[::EVERY])} points tried", flush=True)

    def disturb(self, action, fault, call, injection, before, after):
        words, _, heal = ACTIONS[action]
        run = self.device.run(*words, under=(*STRACE, "-e", injection))
        widgets, files, _ = self.look()
        self.assertLessEqual(files, before[1] | after[1], "no other file is left")
        self.assertEqual(fault == "kill", run.status == -9, run)
        self.assertFalse(run.status == 255 and (run.out or not run.err), run)
        for w in "ab" if fault == "kill" or not re.match(UNPROMISED, call) else "":
            self.assertTrue(allowed(action, fault, run, w, widgets[w], before[0][w], after[0][w]), (w, widgets[w], run))
        healing = self.device.run(*(words if fault == "kill" else heal))
        self.assertEqual((0, after), (healing.status, self.look()), "one more run heals it")


SweepTest.main()
