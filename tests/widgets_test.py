# SPDX-License-Identifier: Apache-2.0
"""The companion on a device: what it shows, does and refuses. The words of the command line call it."""

import fcntl
import json
import os
import shutil
import subprocess
import sys

from device import APPS, DATABASE, LABEL, METADATA, STICK, TelevisionTest, held_by_another, mounted

COMPANION = sys.argv[1:]
USB, FILES = STICK.parent, ("image",) + METADATA
ODD = USB / 'my & "stick"\n$HOME \\040'
AWKWARD = ("x,FAIL,y:z", "line\nbreak", "-dash", "\x1b[2J", "колобок", "[a,b]", "heal")
PLAIN = ("setpriv", "--bounding-set=-all", "--inh-caps=-all", "--no-new-privs")  # root without root's powers
ABSENT, WHOLE, LOCAL = ["unavailable", None, 0, []], ["available", str(STICK), 4, []], ["on-device", None, 0, []]
TABLE = """IDENTIFIER     STATE      STICK                  LINKS  WRONG
[a,b]          available  /opt/storage/usb/sda1  4      -
line\\x0abreak  available  /opt/storage/usb/sda1  4      -
колобок        available  /opt/storage/usb/sda1  4      -
"""


class WidgetsTest(TelevisionTest):
    def setUp(self):
        shutil.rmtree(USB, ignore_errors=True)
        super().setUp()

    def start(self, *words, before=(), **options):
        return subprocess.Popen([*before, *COMPANION, *words], text=True, errors="backslashreplace",
                                **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options})

    def call(self, status, *words, **options):
        with self.start(*words, **options) as process:
            out, err = process.communicate(timeout=100)
        self.assertEqual((status, status > 1), (process.returncode, bool(err)), (words, out, err))
        return err or out

    def shown(self, **options):
        """State, stick, number of links and faults of each widget."""
        with self.start("status", "--json", **options) as process:
            facts = [fact.values() for fact in json.load(process.stdout)["widgets"]]
        self.assertEqual(int(any(wrong for *_, wrong in facts)), process.returncode)
        return {name: rest for name, *rest in facts}

    def test_the_life_of_two_sticks(self):
        absent = {name: ABSENT for name in ("a", "b", "idle", *AWKWARD)}
        for name in absent:
            self.device.widget(name)
        shutil.rmtree(USB)
        for stick in STICK, ODD:
            stick.mkdir(parents=True)
        with mounted(ODD, "-t", "tmpfs", "none"):
            self.device.content("a", ["image"], ODD)
            one_left = {**absent, "a": ["available", str(ODD), 1, []]}
            with mounted(STICK, "-t", "tmpfs", "none"):
                plugged = {name: WHOLE if name != "idle" else ABSENT for name in absent}
                for name in set(absent) - {"idle"}:
                    self.device.content(name, FILES)
                self.assertEqual(len(absent) - 1, self.call(0, "plug", "--dry-run", STICK).count(": planned\n"))
                self.assertEqual(absent, self.shown())
                for words, folder, after in ((("plug", STICK), "/", plugged),
                                             (("plug", ODD), "/", {**plugged, "a": one_left["a"]}),
                                             (("unplug", f"{STICK.name}/"), USB, one_left),
                                             (("plug", f"../{STICK.name}/"), ODD, plugged)):
                    self.call(0, *words, cwd=folder)
                    self.assertEqual(after, self.shown())
                self.assertEqual(TABLE, self.call(0, "status", "[a,b]", "line\nbreak", "колобок"))
                self.device.sql("UPDATE widget SET installed_on_usb = 0 WHERE kx_app_id = 'b'")
            self.call(0, "unplug", str(STICK)[:-1])
            self.assertEqual([*WHOLE[:3], ["content-gone"]], self.shown()["heal"])
            self.call(0, "unplug", STICK)
            self.assertEqual({**one_left, "b": LOCAL}, self.shown())
        self.assertEqual("a: unavailable\n", self.call(0, "heal"))
        self.assertEqual({**absent, "b": LOCAL}, self.shown())

    def test_what_is_wrong_and_what_heals(self):
        place, own = self.device.place, APPS / "stranger_img/widget.info"
        wrong = {"missing": ["link-missing"], "elsewhere": ["link-elsewhere"], "unlabelled": ["link-unlabelled"],
                 "left": ["link-left"], "gone": ["content-gone"], "bare": ["no-image", "link-elsewhere"],
                 "dirless": ["directory-missing"], "stranger": ["unknown-widget"], "moved": ["link-left"]}
        for name in wrong:
            self.device.widget(name)
        self.call(0, "plug", STICK)
        subprocess.run(["rm", "-r", own, place("missing") / "config.xml", STICK / "elsewhere_img/config.xml",
                        STICK / "bare_img/bare.img", STICK / "gone_img", place("dirless")], check=True)
        os.removexattr(place("unlabelled") / "config.xml", LABEL, follow_symlinks=False)
        own.symlink_to(STICK / "../../elsewhere")
        self.device.sql("UPDATE widget SET available = 0 WHERE kx_app_id = 'left'")
        self.device.sql("UPDATE widget SET installed_on_usb = 0 WHERE kx_app_id = 'moved'")
        self.device.sql("DELETE FROM widget WHERE kx_app_id = 'stranger'")
        self.assertEqual(wrong, {name: faults for name, (*_, faults) in self.shown().items()})

        self.call(0, "heal")
        self.assertEqual({"missing": WHOLE, "elsewhere": ["available", str(STICK), 3, []], "unlabelled": WHOLE,
                          "left": WHOLE, "gone": ABSENT, "bare": ABSENT, "dirless": WHOLE,
                          "moved": ["on-device", str(STICK), 0, []]}, self.shown())
        self.assertEqual([own], list(place("stranger").iterdir()))
        place("gone").rmdir()
        for file in place("gone"), place("left") / "config.xml":
            file.unlink(missing_ok=True)
            file.write_text("in the way")
        self.assertRegex(self.call(1, "heal"), "^gone: failed: not a directory on /opt/usr/apps/gone_img; .*\n")
        outcomes = [[*entry.values()] for entry in json.loads(self.call(1, "plug", "--json", STICK))["widgets"]]
        self.assertIn(["left", "failed", None, "Synlinks_Create_Error"], [outcome[:4] for outcome in outcomes])
        self.assertEqual(ABSENT, self.shown()["left"])

    def test_installing_and_readers_without_privileges(self):
        DATABASE.unlink()
        self.assertIn("'zelmar-widgets init' creates it", self.call(3, "status"))
        for status, *words in ((0, "init"), (0, "add", "a", "--app", "t.a"), (0, "init"),
                               (2, "add", "a", "--app", "t.b"), (2, "add", "b", "--app", "t.a"), (2, "add", "b"),
                               (2, "add", "b/c", "--app", "t.c"), (2, "add", "", "--app", "t.c"),
                               (0, "add", "--on-device", "--app=t.d", "--", "-d")):
            self.call(status, *words)
        DATABASE.chmod(0o444)
        DATABASE.parent.chmod(0o555)
        self.assertIn("permission denied on /opt/", self.call(3, "plug", STICK, before=PLAIN))
        for change in "", "PRAGMA wal_checkpoint":  # who closes the database last leaves no log to read
            self.device.sql(change)
            self.assertEqual({"a": ABSENT, "-d": LOCAL}, self.shown(before=PLAIN))

        self.device.content("a", FILES)
        self.call(0, "plug", STICK)
        self.call(0, "remove", "a")
        (APPS / "-d_img/page").touch()
        with self.start("remove", "--", "-d") as process:
            self.assertIn("/opt/usr/apps/-d_img holds other things", process.stderr.read())
        self.assertEqual((1, [APPS / "-d_img"], {}), (process.returncode, list(APPS.iterdir()), self.shown()))

    def test_bad_input_and_a_hostile_stick(self):
        before = self.device.widget("a").widget("b").widget("c").state()
        odd = os.fsencode(STICK) + b"/\xff"
        os.makedirs(odd + b"/a_img")
        alone = shutil.copy(COMPANION[-1], "/opt/alone")
        for status, message, words, options in (
                (2, "no directory: '/nowhere';", ["plug", "/nowhere"], {}), (2, "no mount point", ["unplug", ""], {}),
                (2, "knows no widget 'z'", ["status", "a", "z"], {}), (2, "'z'", ["remove", "z"], {}),
                (2, "no command", [], {}), (2, "zork", ["zork"], {}), (2, "MOUNT_POINT", ["plug"], {}),
                (3, "Not well-formed UTF-8", ["plug", odd], {}),
                (3, "/opt/zelmar-frontend: No such file", ["plug", STICK], {"executable": alone}),
                (3, "cannot write to standard output", ["status"], {"stdout": os.open("/dev/full", os.O_WRONLY)}),
                (3, "cannot write to standard output", ["status"], {"preexec_fn": lambda: os.close(1)})):
            self.assertIn(message, self.call(status, *words, **options))
        with held_by_another("PRAGMA locking_mode = EXCLUSIVE; BEGIN IMMEDIATE", 99):
            self.assertIn("another process has held the database for 5 s", self.call(3, "plug", STICK))

        subprocess.run('mv a_img b_img .. && ln -s ../a_img && mkfifo b_img && ln -sf /dev/zero c_img/config.xml',
                       shell=True, check=True, cwd=STICK)
        self.assertEqual(f"c: available from {STICK}\n", self.call(0, "plug", STICK))
        after = {**before, "c": self.device.linked("c", ["widget.info", "config.xml.spm"])}
        self.assertEqual(after, self.device.state())
        self.device.sql("PRAGMA user_version = 0")
        self.assertIn("schema version 0 instead of 1", self.call(3, "status"))

    def test_several_at_once(self):
        for name in [f"w{number}" for number in range(100)]:
            self.device.widget(name).content(name, ["image"], ODD)
        cleared = self.shown()
        with open("/run/zelmar-widgets.lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            with self.start("plug", STICK) as waiting:
                self.call(0, "plug", "--dry-run", STICK)
                self.assertEqual((cleared, None), (self.shown(), waiting.poll()))
                fcntl.flock(lock, fcntl.LOCK_UN)
        for _ in range(5):
            with self.start("plug", STICK) as one, self.start("plug", ODD) as other:
                self.assertEqual((0, 0), (one.wait(), other.wait()))
            self.assertEqual(1, len({(stick, links) for _, stick, links, wrong in self.shown().values() if not wrong}))

        # Ended in the middle, it takes the tool along. What both began is found by its rows and links.
        with self.start("plug", STICK) as victim:
            self.device.log.watch = lambda line: b"widget: w50 ====" in line and victim.kill()
        self.device.log.watch = None
        for stick in STICK, ODD:
            self.call(0, "unplug", stick)
        self.assertEqual((-9, cleared), (victim.returncode, self.shown()))


TelevisionTest.main()
