# SPDX-License-Identifier: Apache-2.0
"""The companion on a device: what it shows, does and refuses. The words of the command line call it."""

import fcntl
import json
import os
import subprocess
import sys

from device import APPS, DATABASE, LABEL, STICK, TelevisionTest, held_by_another, mounted

COMPANION = sys.argv[1:]
ODD = STICK.parent / 'my & "stick"\n$HOME \\040'
PLAIN = ("setpriv", "--bounding-set=-all", "--inh-caps=-all", "--no-new-privs")  # root without root's powers
ABSENT, LOCAL = ["unavailable", None, 0, []], ["on-device", None, 0, []]
WHOLE, ODDLY = ["available", str(STICK), 4, []], ["available", str(ODD), 1, []]
TABLE = """IDENTIFIER     STATE      STICK                  LINKS  WRONG
[a,b]          available  /opt/storage/usb/sda1  4      -
line\\x0abreak  available  /opt/storage/usb/sda1  4      -
колобок        available  /opt/storage/usb/sda1  4      -
"""
INSTALLING = """zelmar-widgets: there is no database /opt/usr/zelmar/widgets.db; 'zelmar-widgets init' creates it
created the widget database
kept the widget database
zelmar-widgets: the database has a widget a already; choose another, or remove that widget first
zelmar-widgets: the application t.a belongs to another widget; choose another, or remove that widget first
zelmar-widgets: --app is required; see 'zelmar-widgets --help'
zelmar-widgets: the identifier 'b/c' has a slash; choose another
zelmar-widgets: the identifier is empty; choose another
zelmar-widgets: permission denied on /opt/usr/zelmar/widgets.db; call it as root
"""
REFUSALS = """zelmar-widgets: no directory: '/nowhere'; name the one where the stick is mounted
zelmar-widgets: no mount point: ''; name a directory
zelmar-widgets: the database knows no widget 'z'; 'zelmar-widgets status' lists them
zelmar-widgets: the database knows no widget 'z'; 'zelmar-widgets status' lists them
zelmar-widgets: no command; see 'zelmar-widgets --help'
zelmar-widgets: The following argument was not expected: zork; see 'zelmar-widgets --help'
zelmar-widgets: MOUNT_POINT is required; see 'zelmar-widgets --help'
zelmar-widgets: cannot run /opt/zelmar-frontend: No such file or directory; install it there
zelmar-widgets: cannot write to standard output; free some space, or redirect it elsewhere
zelmar-widgets: cannot write to standard output; free some space, or redirect it elsewhere
zelmar-widgets: another process has held the database for 5 s; end that process, or call again
"""
FAILURES = """c: failed: its image directory /opt/usr/apps/c_img is missing; run 'zelmar-widgets heal'
c: failed: a link in /opt/usr/apps/c_img could not be made or labelled; move away what stands there, or see \
'journalctl -t ZELMAR_INSTALLER'; then call again
c: failed: the database took no change: another process has held it too long, or the disk is full; call again
c: failed: it has been removed from the database meanwhile; add it again
c: failed: the database could not be asked; see 'journalctl -t ZELMAR_INSTALLER', then call again
zelmar-widgets: the result line of zelmar-frontend is not understood: c; install both programs from one release
zelmar-widgets: the result line of zelmar-frontend is not understood: ; install both programs from one release
zelmar-widgets: /opt/zelmar-frontend was ended by signal 9; run 'zelmar-widgets heal'
zelmar-widgets: /opt/zelmar-frontend: Why; see 'journalctl -t ZELMAR_INSTALLER', then call again
"""


def shell(script, folder):
    subprocess.run(script, shell=True, check=True, cwd=folder)


class WidgetsTest(TelevisionTest):
    def start(self, *words, before=(), **options):
        return subprocess.Popen([*before, *COMPANION, *words], text=True, errors="backslashreplace",
                                **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options})

    def call(self, status, *words, **options):
        """What is printed: a message alone, or output alone."""
        with self.start(*words, **options) as process:
            out, err = process.communicate(timeout=9)
        self.assertEqual((status, status > 0 and not out), (process.returncode, bool(err)), (words, out, err))
        return err or out

    def shown(self, status=0, command=("status",), **options):
        """What a command tells of each widget; `status` tells state, stick, number of links and faults."""
        widgets = json.loads(self.call(status, *command, "--json", **options))["widgets"]
        return {name: facts for name, *facts in (widget.values() for widget in widgets)}

    def test_the_life_of_two_sticks(self):
        names = "a", "idle", "heal", "x,FAIL,y:z", "line\nbreak", "-dash", "\x1b[2J", "колобок", "[a,b]"
        absent = dict.fromkeys(names, ABSENT)
        plugged, one_left = {**dict.fromkeys(names, WHOLE), "idle": ABSENT}, {**absent, "a": ODDLY}
        ODD.mkdir(exist_ok=True)
        with mounted(ODD, "-t", "tmpfs", "none"):
            self.device.content("a", ["image"], ODD)
            with mounted(STICK, "-t", "tmpfs", "none"):
                for name in names:
                    self.device.widget(name)
                shell("rm -r idle_img", STICK)
                for command, stick, folder, after in (("plug", STICK, "/", plugged),
                                                      ("plug", ODD, "/", {**plugged, "a": ODDLY}),
                                                      ("unplug", f"{STICK.name}/", STICK.parent, one_left),
                                                      ("plug", f"../{STICK.name}/", ODD, plugged)):
                    self.call(0, command, stick, cwd=folder)
                    self.assertEqual(after, self.shown())
                self.assertEqual(TABLE, self.call(0, "status", "[a,b]", "line\nbreak", "колобок"))
                self.device.sql("UPDATE widget SET installed_on_usb = 0 WHERE kx_app_id = 'heal'")
            self.call(0, "unplug", str(STICK)[:-1])  # another's name, though the same begins it
            self.assertEqual([*WHOLE[:3], ["content-gone"]], self.shown(1)["-dash"])
            self.call(0, "unplug", STICK)
            self.assertEqual({**one_left, "heal": LOCAL}, self.shown())
        self.assertEqual("a: unavailable\n", self.call(0, "heal"))
        self.assertEqual({**absent, "heal": LOCAL}, self.shown())

    def test_what_is_wrong_and_what_heals(self):
        wrong = {"missing": ["link-missing"], "elsewhere": ["link-elsewhere"], "unlabelled": ["link-unlabelled"],
                 "left": ["link-left"], "gone": ["content-gone"], "bare": ["no-image", "link-elsewhere"],
                 "dirless": ["directory-missing"], "stranger": ["unknown-widget"], "moved": ["link-left"]}
        for name in wrong:
            self.device.widget(name)
        self.call(0, "plug", STICK)
        shell("rm -r gone_img elsewhere_img/config.xml bare_img/bare.img", STICK)
        shell(f"rm -r missing_img/config.xml dirless_img && ln -sf {STICK}/../../own stranger_img/widget.info", APPS)
        os.removexattr(APPS / "unlabelled_img/config.xml", LABEL, follow_symlinks=False)
        self.device.sql("UPDATE widget SET available = kx_app_id <> 'left', installed_on_usb = kx_app_id <> 'moved'")
        self.device.sql("DELETE FROM widget WHERE kx_app_id = 'stranger'")
        self.assertEqual(wrong, {name: faults for name, (*_, faults) in self.shown(1).items()})

        self.call(0, "heal")
        self.assertEqual({"missing": WHOLE, "elsewhere": ["available", str(STICK), 3, []], "unlabelled": WHOLE,
                          "left": WHOLE, "gone": ABSENT, "bare": ABSENT, "dirless": WHOLE,
                          "moved": ["on-device", str(STICK), 0, []]}, self.shown())
        self.assertEqual(["widget.info"], os.listdir(APPS / "stranger_img"))
        shell("rmdir gone_img && rm left_img/config.xml && touch gone_img left_img/config.xml", APPS)
        self.assertRegex(self.call(1, "heal"), "^gone: failed: not a directory on /opt/usr/apps/gone_img; .*\n")
        plugged = self.shown(1, ("plug", STICK))
        self.assertEqual(["failed", None, "Synlinks_Create_Error"], plugged["left"][:3])
        self.assertEqual(["available", str(STICK), None, f"{STICK}/bare_img holds no image; copy it there, then plug "
                                                         "again"], plugged["bare"])
        self.assertEqual(ABSENT, self.shown(1)["left"])

    def test_installing_and_readers_without_privileges(self):
        DATABASE.unlink()
        told = "".join(self.call(status, *words) for status, *words in (
            (3, "status"), (0, "init"), (0, "add", "a", "--app", "t.a"), (0, "init"), (2, "add", "a", "--app", "t.b"),
            (2, "add", "b", "--app", "t.a"), (2, "add", "b"), (2, "add", "b/c", "--app", "t.c"),
            (2, "add", "", "--app", "t.c"), (0, "add", "--on-device", "--app=t.d", "--", "-d")))
        shell("chmod 444 widgets.db && chmod 555 .", DATABASE.parent)
        self.assertEqual(INSTALLING, told + self.call(3, "plug", STICK, before=PLAIN))
        for change in "", "PRAGMA wal_checkpoint":  # who closes the database last leaves no log to read
            self.device.sql(change)
            self.assertEqual({"a": ABSENT, "-d": LOCAL}, self.shown(before=PLAIN))

        self.device.content("a", ["image"])
        self.call(0, "plug", STICK)
        shell("rm -r a_img", APPS)
        self.call(0, "remove", "a")
        (APPS / "-d_img/page").touch()
        self.assertIn("/opt/usr/apps/-d_img holds other things", self.call(1, "remove", "--", "-d"))
        self.assertEqual((["-d_img"], {}), (os.listdir(APPS), self.shown()))

    def test_bad_input_and_a_hostile_stick(self):
        before = self.device.widget("a").widget("b").widget("c").state()
        (STICK / "\udcff/a_img").mkdir(parents=True)  # the byte ff, no UTF-8
        subprocess.run(["cp", COMPANION[-1], "/opt/alone"], check=True)
        self.assertIn("Not well-formed UTF-8: /opt/storage/usb/sda1/\\xff;", self.call(3, "plug", STICK / "\udcff"))
        told = "".join(self.call(status, *words, **options) for status, words, options in (
            (2, ["plug", "/nowhere"], {}), (2, ["unplug", ""], {}), (2, ["status", "a", "z"], {}),
            (2, ["remove", "z"], {}), (2, [], {}), (2, ["zork"], {}), (2, ["plug"], {}),
            (3, ["plug", STICK], {"executable": "/opt/alone"}),
            (3, ["status"], {"stdout": os.open("/dev/full", os.O_WRONLY)}),
            (3, ["status"], {"preexec_fn": lambda: os.close(1)})))
        with held_by_another("PRAGMA locking_mode = EXCLUSIVE; BEGIN IMMEDIATE", 99):
            self.assertEqual(REFUSALS, told + self.call(3, "plug", STICK))

        shell("mv a_img b_img .. && ln -s ../a_img && mkfifo b_img && ln -sf /dev/zero c_img/config.xml", STICK)
        self.assertEqual(f"c: available from {STICK}\n", self.call(0, "plug", STICK))
        before["c"] = self.device.linked("c", ["widget.info", "config.xml.spm"])
        self.assertEqual(before, self.device.state())
        told = ""  # with another tool beside the copied companion
        codes = ("Install_Dir_Not_Found", "Synlinks_Create_Error", "Unknown_Error", "Widget_Is_Not_Installed",
                 "Local_Storage_Used")
        for status, script in [(1, f"echo c,FAIL,{code}:") for code in codes] + [
                (3, "echo c"), (3, "echo"), (3, "kill -9 $$"), (3, "echo Why >&2; exit 255")]:
            shell(f"echo '#!/bin/sh\n{script}' >zelmar-frontend && chmod +x zelmar-frontend", "/opt")
            told += self.call(status, "plug", STICK, executable="/opt/alone")
        self.assertEqual(FAILURES, told)

    def test_several_at_once(self):
        for name in [f"w{number}" for number in range(100)]:
            self.device.widget(name).content(name, ["image"], ODD)
        cleared = self.shown()
        lock = open("/run/zelmar-widgets.lock", "w")
        fcntl.flock(lock, fcntl.LOCK_EX)
        waiting = [self.start(*words) for words in (("heal",), ("unplug", ODD), ("plug", STICK))]
        with lock:
            self.assertEqual(len(cleared), self.call(0, "plug", "--dry-run", STICK).count(": planned\n"))
            self.assertEqual((cleared, 3 * [None]), (self.shown(), [process.poll() for process in waiting]))
        self.assertEqual(3 * [""], [process.communicate(timeout=9)[1] for process in waiting])
        for _ in range(5):
            with self.start("plug", STICK) as one, self.start("plug", ODD) as other:
                self.assertEqual((0, 0), (one.wait(), other.wait()))
            self.assertIn(self.shown(), [dict.fromkeys(cleared, whole) for whole in (WHOLE, ODDLY)])

        # Killed in the middle, it takes the tool along. What both began is found by its rows and links.
        self.device.log.take()
        with self.start("plug", STICK) as victim:
            self.device.log.watch = lambda line: b"widget: w10 ====" in line and victim.kill()
        self.device.log.watch = None
        for stick in STICK, ODD:
            self.call(0, "unplug", stick)
        told = "".join(self.device.log.take())
        self.assertEqual((-9, False, cleared), (victim.returncode, "widget: w99 ====" in told, self.shown()))


TelevisionTest.main()
