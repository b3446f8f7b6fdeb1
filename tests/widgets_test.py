# SPDX-License-Identifier: Apache-2.0
"""The companion on a device: what it shows, does and refuses. The words of the command line call it."""

import fcntl
import json
import os
import random
import sqlite3
import subprocess
import sys
import unittest

from device import (APPS, DATABASE, LABEL, STICK, TelevisionTest, calls, held_by_another, knows_our_platform,
                    mounted)

COMPANION = sys.argv[1:]
BESIDE = os.path.join(os.path.dirname(COMPANION[-1]), "zelmar-frontend")
EVENT_MANAGER = os.path.join(os.path.dirname(__file__), "../examples/event-manager")
ODD = STICK.parent / 'my & "stick"\n\r\v\f$HOME \\040'
NOBODY = ("unshare", "--user")  # another user, without root's powers
ABSENT, LOCAL = ["unavailable", None, 0, []], ["on-device", None, 0, []]
WHOLE, ODDLY = ["available", str(STICK), 4, []], ["available", str(ODD), 1, []]
UNPLUGGED = ["unavailable", str(STICK), 0, ["not-plugged"]]


def shell(script, folder="/opt"):
    subprocess.run(script, shell=True, check=True, cwd=folder)


def stick(place=STICK):
    return mounted(place, "-t", "tmpfs", "stick")


class WidgetsTest(TelevisionTest):
    def start(self, *words, before=(), **options):
        return subprocess.Popen([*before, *COMPANION, *words], text=True, errors="backslashreplace",
                                **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options})

    def call(self, status, *words, timeout=20, **options):
        """What is printed, messages last, with "!" for the program's name."""
        with self.start(*words, **options) as process:
            out, err = process.communicate(timeout=timeout)
        self.assertIn(status, (process.returncode, None), (words, out, err))
        return (out or "") + (err or "").replace("zelmar-widgets:", "!")

    def says(self, *rows, **options):
        """Each row is the status, the words, and all that is printed."""
        for status, words, text in rows:
            with self.subTest(words):
                self.assertEqual(text, self.call(status, *words.split(" "), **options))

    def shown(self, status=0, *options):
        """What `status` tells of each widget: state, stick, number of links and faults."""
        widgets = json.loads(self.call(status, "status", "--json", *options))["widgets"]
        return {widget["identifier"]: [widget["state"], widget["stick"], len(widget["links"]), widget["faults"]]
                for widget in widgets}

    def test_the_life_of_two_sticks(self):
        names = "a", "idle", "heal", "x,FAIL,y:z", "line\nbreak", "-dash", "\x1b[2J", "колобок", "[a,b]"
        absent = dict.fromkeys(names, ABSENT)
        plugged = {**dict.fromkeys(names, WHOLE), "idle": ABSENT}
        unplugged = {**dict.fromkeys(names, UNPLUGGED), "idle": ABSENT, "a": ODDLY}
        ODD.mkdir(exist_ok=True)
        with stick(ODD):
            self.device.content("a", ["image"], ODD)
            with stick():
                for name in names:
                    self.device.widget(name)
                shell("rm -r idle_img", STICK)
                for words, folder, status, after in (
                        (["plug", STICK], "/", 0, plugged),
                        (["plug", ODD], "/", 0, {**plugged, "a": ODDLY}),
                        (["unplug", f"{STICK.name}/"], STICK.parent, 1, unplugged),
                        (["heal"], "/", 0, {**plugged, "a": ODDLY}),
                        (["plug", f"../{STICK.name}/"], ODD, 0, plugged)):
                    with self.subTest(words):
                        self.call(0, *words, cwd=folder)
                        self.assertEqual(after, self.shown(status))
                self.assertEqual("IDENTIFIER     STATE      STICK                  LINKS  FAULTS\n"
                                 "[a,b]          available  /opt/storage/usb/sda1  4      -\n"
                                 "line\\x0abreak  available  /opt/storage/usb/sda1  4      -\n"
                                 "колобок        available  /opt/storage/usb/sda1  4      -\n",
                                 self.call(0, "status", "[a,b]", "line\nbreak", "колобок"))
                for words in ("remove", "heal"), ("add", "heal", "--app=t.heal", "--on-device"):
                    self.call(0, *words)
                shell(f"ln -s {STICK}/heal_img/heal.img heal_img", APPS)
            self.assertEqual([*WHOLE[:3], ["content-gone"]], self.shown(1)["-dash"])
            self.call(0, "unplug", STICK)
            self.assertEqual({**absent, "a": ODDLY, "heal": LOCAL}, self.shown())
        self.says((0, "heal", "a: unavailable\n"), (0, "heal", "nothing to do\n"))
        self.assertEqual({**absent, "heal": LOCAL}, self.shown())

    @knows_our_platform
    def test_what_is_wrong_and_what_heals(self):
        wrong = {"missing": ["link-missing"], "elsewhere": ["link-elsewhere"], "unlabelled": ["link-unlabelled"],
                 "left": ["not-plugged"], "gone": ["content-gone"], "bare": ["no-image"],
                 "dirless": ["directory-missing"], "stranger": ["unknown-widget"], "moved": ["link-left"]}
        with stick():
            for name in wrong:
                self.device.widget(name)
            self.call(0, "plug", STICK)
            shell("rm -r gone_img elsewhere_img/config.xml bare_img/bare.img", STICK)
            shell(f"rm -r missing_img/config.xml dirless_img; ln -sf {STICK}/../../own stranger_img/widget.info", APPS)
            shell("ln -sf /bin/sh moved_img/moved.img; touch stranger_img/page", APPS)
            os.removexattr(APPS / "unlabelled_img/config.xml", LABEL, follow_symlinks=False)
            self.device.sql("UPDATE widget SET available = kx_app_id <> 'left', installed_on_usb = kx_app_id <> 'moved'")
            self.device.sql("DELETE FROM widget WHERE kx_app_id = 'stranger'")
            self.assertEqual(wrong, {name: faults for name, (*_, faults) in self.shown(1).items()})

            told = self.call(0, "heal", "--dry-run", before=NOBODY)
            self.assertEqual(told.replace("would be ", ""), self.call(0, "heal"))
            self.assertEqual({"missing": WHOLE, "elsewhere": [*WHOLE[:2], 3, []], "unlabelled": WHOLE, "left": WHOLE,
                              "gone": ABSENT, "bare": ABSENT, "dirless": WHOLE, "moved": [*LOCAL[:2], 1, []]},
                             self.shown())
            self.assertEqual({"page", "widget.info"}, set(os.listdir(APPS / "stranger_img")))

    def test_what_cannot_be_healed_is_told_each_time(self):
        real, file, folder = (f"{name}_img" for name in ("real", "file", "folder"))
        told = (f"file: failed: not a directory on {APPS}/{file}; move away what stands there, then call again\n",
                f"real: failed: a link in {APPS}/{real} could not be made or labelled; move away what stands there, or "
                "see 'journalctl -t ZELMAR_INSTALLER'; then call again\n")
        image = f"{STICK}/{folder} holds no image; copy it there, then plug again\n"
        with stick():
            for name in "real", "file", "folder":
                self.device.widget(name)
            shell(f"rmdir {file}; touch {file} {real}/config.xml", APPS)
            shell(f"rm {folder}/folder.img; rm -r {file}", STICK)
            self.says((1, "heal", "".join(told)),
                      (1, "heal", "".join(told)),
                      (1, f"plug --dry-run {STICK}", f"folder: would be unavailable: {image}"
                          f"real: would be available from {STICK}\n"),
                      (1, f"plug {STICK}", f"folder: unavailable: {image}{told[1]}"),
                      (1, f"remove {'real'}", f"! real is removed, but {APPS}/{real} holds other things; remove them if "
                          "nobody needs them\n"))

    def test_what_is_not_to_be_read(self):
        self.device.widget("a").widget("b")
        eio = ("env", "ASAN_OPTIONS=detect_leaks=0",  # which a tracer would disturb
               "strace", "-qqo/dev/null", f"-P{STICK}/a_img", "-einject=newfstatat:error=EIO")
        told = f"! input/output error on {STICK}/a_img; remove the cause, then call again\n"
        with stick():
            self.device.content("a", ["image"])
            self.device.content("b", ["image"])
            self.says((1, f"plug {STICK}", f"b: available from {STICK}\n{told}"),
                      (1, "status a", f"IDENTIFIER  STATE        STICK  LINKS  FAULTS\n"
                                      f"a           unavailable  -      0      -\n{told}"), before=eio)
            shell("chmod 000 a_img", APPS)
            self.says((1, "status", "IDENTIFIER  STATE        STICK                  LINKS  FAULTS\n"
                                    "a           unavailable  /opt/storage/usb/sda1  0      -\n"
                                    "b           available    /opt/storage/usb/sda1  1      -\n"
                                    f"! permission denied on {APPS}/a_img/a.img; call it as root\n"), before=NOBODY)
            with mounted(APPS / "b_img", "-t", "ramfs", "none"):  # takes no labels
                shell(f"ln -s {STICK}/b_img/b.img b_img", APPS)
                self.assertEqual([["not-plugged"], ["link-unlabelled"]], [self.shown(1)[name][3] for name in "ab"])

    @knows_our_platform
    def test_names_of_any_bytes(self):
        self.device.widget("a")
        self.call(0, "plug", STICK)
        before, bad = self.device.state(), STICK.parent / "\udcff"  # the byte ff, no UTF-8
        for name in b"\x9b", b"\x9c":
            os.mkdir(bytes(APPS) + b"/" + name + b"_img")
            os.symlink(STICK / "x", bytes(APPS) + b"/" + name + b"_img/config.xml")
        bad.mkdir()
        with stick(bad):
            refused = f"{STICK.parent}/\\xff is not UTF-8, so the database cannot hold it; mount the stick elsewhere\n"
            self.device.content("a", ["image"], bad)
            self.assertEqual(f"! {refused}", self.call(2, "plug", bad))
            self.assertEqual(before, self.device.state())
            self.assertIn(f"! {refused}", self.call(1, "heal", "--dry-run"))
            self.assertIn("\\x9b  ", self.call(1, "status"))
        self.assertEqual({"a", "\ufffd9b", "\ufffd9c"}, set(self.shown(1)))
        self.says((0, "heal", "\\x9b: cleared\n\\x9c: cleared\n"))

        # A name that no file and no command line can have spoils no other's removal.
        self.device.sql("INSERT INTO widget VALUES (9, 't', ?, 1, 1, ?)", 200000 * "x", f"{STICK}/{200000 * 'x'}_img")
        self.assertRegex(self.call(1, "unplug", STICK), "^a: unavailable\nxxx+: failed: file name too long on .*\n$")

    @knows_our_platform
    def test_installing(self):
        DATABASE.unlink()
        shell(f"rm -r {DATABASE.parent} {APPS}")
        os.umask(0o777)  # whatever it is, everybody may read what is made, and nobody else may write
        self.says((3, "status", f"! there is no database {DATABASE}; 'zelmar-widgets init' creates it\n"),
                  (0, "init", "created the widget database\n"),
                  (0, "add a --app t.a", "added a\n"),
                  (2, "add a --app t.b", "! the database has a widget a already; choose another, or remove that widget "
                                         "first\n"),
                  (2, "add b --app t.a", "! the application t.a belongs to another widget; choose another, or remove that "
                                         "widget first\n"),
                  (2, "add b", "! --app is required; see 'zelmar-widgets --help'\n"),
                  (2, "add b/c --app t.c", "! the identifier 'b/c' has a slash; choose another\n"),
                  (2, "add  --app t.c", "! the identifier is empty; choose another\n"),
                  (2, f"add {252 * 'x'} --app t.c", "! the identifier is longer than 251 bytes; choose another\n"),
                  (2, "add -- -d --app t.d", "! --app is required; see 'zelmar-widgets --help'\n"),
                  (0, "add --on-device --app=t.d -- -d", "added -d\n"))
        os.umask(0o022)
        self.assertEqual([0o755, 0o755, 0o644, 0o644],
                         [os.stat(path).st_mode & 0o777
                          for path in (APPS / "a_img", DATABASE.parent, DATABASE, f"{DATABASE}-wal")])
        shell("chmod 444 widgets.db && chmod 555 .", DATABASE.parent)
        self.assertEqual(f"! permission denied on {DATABASE}; call it as root\n",
                         self.call(3, "plug", STICK, before=NOBODY))
        self.device.content("a", ["image"])
        self.call(0, "plug", STICK)
        shell(f"rm -r a_img; touch -- -d_img/page; mkdir c_img; ln -s c_img b_img; mv {STICK}/a_img /opt", APPS)
        for name in "bc":
            self.call(0, "add", name, "--app", f"t.{name}")
        with mounted(APPS / "c_img", "-t", "tmpfs", "none"):
            self.says((0, "remove a", "removed a\n"),
                      (1, "remove -- -d", f"! -d is removed, but {APPS}/-d_img holds other things; remove them if nobody "
                                          "needs them\n"),
                      (1, "remove b", f"! b is removed, but not a directory on {APPS}/b_img; move away what stands there, "
                                      "then call again\n"),
                      (1, "remove c", f"! c is removed, but device or resource busy on {APPS}/c_img; unmount what is "
                                      "mounted there, then call again\n"))
        self.assertEqual({}, self.shown())

    def test_the_event_manager_of_the_examples(self):
        shell("mkdir bin; echo 'mv /opt/zelmar /opt/usr' >bin/sleep; chmod +x bin/sleep; rm -r usr/zelmar")

        def event(*words, status=0):
            done = subprocess.run([EVENT_MANAGER, *words], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                                  env={"PATH": f"/opt/bin:{os.path.dirname(BESIDE)}:{os.environ['PATH']}"})
            self.assertEqual(status, done.returncode, done.stderr)

        event("start")
        with stick():
            self.device.widget("a").widget("b")
            event("start")  # which plugs what is there
            self.assertEqual({"a": WHOLE, "b": WHOLE}, self.shown())
        with stick():  # another one, and nobody has told of the first one's end
            self.device.widget("c").content("b", ["image"])
            event("mounted", STICK)
            self.assertEqual({"a": ABSENT, "b": [*WHOLE[:2], 1, []], "c": WHOLE}, self.shown())
            event("unmounting", STICK)
            self.assertEqual({"a": ABSENT, "b": UNPLUGGED, "c": UNPLUGGED}, self.shown(1))
            event("mounted", STICK)
        shell("mv zelmar ..", "/opt/usr")
        event("unmounted", STICK)  # in vain, until a pause has brought the database back
        self.assertEqual(dict.fromkeys("abc", ABSENT), self.shown())
        event("mounted", status=2)
        event("zork", status=2)

    @knows_our_platform
    def test_what_a_support_person_runs_first(self):
        def checks(status, *lines, **options):
            self.assertEqual([f"program: {self.call(0, '--version').strip()}, {BESIDE}: ok",
                              f"kernel: Linux {os.uname().release}: ok", *lines],
                             self.call(status, "check", **options).splitlines())

        sound = f"database: {DATABASE} is sound, SQLite {sqlite3.sqlite_version}, schema version 1"
        room, log = "apps: /opt/usr/apps has room: ok", "log: a logger keeps the lines: ok"
        labels, sticks = "labels: links in /opt/usr/apps can be labelled: ok", f"sticks: {STICK.parent}"
        with stick(), held_by_another("BEGIN IMMEDIATE", 9):
            checks(0, f"{sound} (process {os.getpid()}, python3, holds it): ok", room, labels, log,
                   f"{sticks}: 1 mounted: ok", f"stick: {STICK} (tmpfs) can be read: ok")
        checks(0, f"{sound}: ok", room, labels, log, f"{sticks}: 0 mounted: ok")
        self.assertEqual([DATABASE.name], os.listdir(DATABASE.parent))  # no log came of that

        shell("mv storage real; ln -s real storage; rm /dev/log usr/zelmar/*")
        self.addCleanup(shell, "rm storage; mv real storage")
        missing = f"database: there is no database {DATABASE}; 'zelmar-widgets init' creates it"
        start = "start a syslog daemon: zelmar-frontend writes its reasons nowhere else"
        log, sticks = f"log: no logger keeps the lines; {start}", f"{sticks}, which is /opt/real/usb: 0 mounted: ok"
        checks(1, missing, room, "labels: only root can find out whether links in /opt/usr/apps can be labelled: ok", log, sticks,
               before=NOBODY)
        with mounted(APPS, "-t", "ramfs", "none"):
            checks(1, missing, room, "labels: links in /opt/usr/apps cannot be labelled; have a file system with extended attributes "
                   "there, and /proc mounted", log, sticks)
        self.assertEqual({"subject": "log", "finding": "no logger keeps the lines", "advice": start},
                         json.loads(self.call(1, "check", "--json"))["checks"][5])

    def test_json_field_by_field(self):
        self.device.widget("a", files=["image"])
        name, place = {"identifier": "a", "application": "t.a"}, f"{STICK}/a_img"
        plugged = {**name, "result": "available", "stick": str(STICK), "code": None, "advice": None}
        shown = {**name, "state": "available", "stick": str(STICK), "image_directory": f"{APPS}/a_img",
                 "content_directory": place, "links": {"a.img": {"target": f"{place}/a.img", "labelled": True}},
                 "faults": []}
        for words, told in ((("plug", "--dry-run", STICK), {"dry_run": True, "widgets": [plugged]}),
                            (("plug", STICK), {"dry_run": False, "widgets": [plugged]}),
                            (("status",), {"widgets": [shown]})):
            self.assertEqual({"format": 1, **told, "troubles": []}, json.loads(self.call(0, *words, "--json")))

    @knows_our_platform
    def test_a_root_that_is_a_link_and_a_stick_elsewhere(self):
        self.device.widget("a")
        shell(f"rm -r {STICK}/a_img; mv storage real; ln -s real storage; mkdir media")
        self.addCleanup(shell, "rm storage; mv real storage")
        for place, shown in (STICK, f"/opt/real/usb/{STICK.name}"), (STICK.parents[2] / "media", "/opt/media"):
            with stick(place):
                self.device.content("a", ["image"], place)
                self.says((0, f"plug {place}", f"a: available from {shown}\n"), (0, "heal", "nothing to do\n"),
                          (0, f"unplug {place}", "a: unavailable\n"), (0, f"plug {place}", f"a: available from {shown}\n"))
                self.assertEqual({"a": ["available", shown, 1, []]}, self.shown())
                self.device.sql("UPDATE widget SET external_storage_path = ?", f"{place}/a_img")  # unresolved
                self.assertEqual({"a": ["available", shown, 1, []]}, self.shown())
            self.assertEqual({"a": ["available", shown, 1, ["content-gone"]]}, self.shown(1))
            self.says((0, f"unplug {place}", "a: unavailable\n"), (0, "heal", "nothing to do\n"))

    def test_bad_command_lines(self):
        (STICK.parent / "gone").symlink_to("/opt/nowhere/stick")
        unknown = "! the database knows no widget 'z'; 'zelmar-widgets status' lists them\n"
        wrong = "see 'zelmar-widgets --help'\n"
        self.says((2, "plug /nowhere", "! no directory: '/nowhere'; name the one where the stick is mounted\n"),
                  (2, "unplug ", "! no mount point: ''; name a directory\n"),
                  (0, f"unplug {STICK}", "nothing to do\n"),
                  (2, "unplug /opt/sda1", "! '/opt/sda1' does not exist, and no widget leads to it; "
                                          "name the directory where the stick is or was mounted\n"),
                  (2, f"unplug {STICK.parent}/gone/", "! '/opt/nowhere/stick' does not exist, and no "
                   "widget leads to it; name the directory where the stick is or was mounted\n"),
                  (2, "status a z", unknown.replace("'z'", "'a'")), (2, "remove z", unknown),
                  (2, "zork", f"! The following argument was not expected: zork; {wrong}"),
                  (2, "plug", f"! MOUNT_POINT is required; {wrong}"))
        self.assertEqual(f"! no command; {wrong}", self.call(2))
        unwritten = "! cannot write to standard output; free some space, or redirect it elsewhere\n"
        for output in ("exec >/dev/full", "exec >&-", "truncate -s 1M /opt/big; ulimit -f 2048; exec >>/opt/big"):
            self.says((3, "status", unwritten), before=("sh", "-c", f'{output}; exec "$0" "$@"'))
        failure = json.loads(self.call(2, "plug", "--json", "/nowhere").partition("! ")[0])
        self.assertEqual({"format": 1, "failure": {"kind": "command-line", "message": "no directory: '/nowhere'",
                                                   "advice": "name the one where the stick is mounted"}}, failure)

    @knows_our_platform
    def test_a_hostile_stick(self):
        before = self.device.widget("a").widget("b").widget("c").state()
        shell("mv a_img b_img .. && ln -s ../a_img && mkfifo b_img && ln -sf /dev/zero c_img/config.xml", STICK)
        self.says((0, f"plug {STICK}", f"c: available from {STICK}\n"))
        before["c"] = self.device.linked("c", ["widget.info", "config.xml.spm"])
        self.assertEqual(before, self.device.state())

    def test_a_tool_that_fails(self):
        self.device.widget("c")
        subprocess.run(["cp", COMPANION[-1], "/opt/alone"], check=True)
        beside = "install both programs from one release"
        failed = "! /opt/zelmar-frontend"
        for status, script, text in (
                (3, "", "! cannot run /opt/zelmar-frontend: No such file or directory; install it there\n"),
                (1, "echo c,FAIL,Install_Dir_Not_Found:",
                 f"c: failed: its image directory {APPS}/c_img is missing; run 'zelmar-widgets heal'\n"),
                (1, "echo c,FAIL,Widget_Is_Not_Installed:",
                 "c: failed: it has been removed from the database meanwhile; add it again\n"),
                (1, "echo c,SUCCESS:", f"c: failed: it is still not-plugged; see what stands in {APPS}/c_img, then call "
                 "again\n"),
                (3, "echo c", f"! cannot understand the result line of zelmar-frontend: c; {beside}\n"),
                (3, "echo", f"! cannot understand the result line of zelmar-frontend: ; {beside}\n"),
                (3, "kill -9 $$", f"{failed} was ended by signal 9; run 'zelmar-widgets heal'\n"),
                (3, "echo Why >&2; exit 255", f"{failed}: Why; see 'journalctl -t ZELMAR_INSTALLER', then call again\n")):
            with self.subTest(script):
                if script:
                    shell(f"echo '#!/bin/sh\n{script}' >zelmar-frontend && chmod +x zelmar-frontend")
                told = self.call(status, "plug", STICK, executable="/opt/alone")
                self.assertEqual(text.replace("! ", "c: failed: ", 1) + text if status == 3 else text, told)

    @knows_our_platform
    def test_runs_of_the_tool_one_by_one(self):
        names = [f"w{number:04}" for number in range(1001)]  # takes two runs
        for name in names:
            self.device.widget(name, files=["image"])
        subprocess.run(["cp", COMPANION[-1], "/opt/alone"], check=True)
        tool = f"echo '#!/bin/sh\ncase $* in *w1000*) %s ;; esac; exec {BESIDE} \"$@\"' >zelmar-frontend"
        shell(f"{tool % 'kill $$'}; chmod +x zelmar-frontend")
        told = self.call(3, "plug", STICK, executable="/opt/alone")
        self.assertEqual((1000, 1), (told.count(": available from"), told.count(": failed: ")))
        # Who comes while one is at work waits for one run of it at most.
        self.call(0, "unplug", STICK)
        shell(tool % "sleep 2")
        self.device.log.take()
        with self.start("plug", STICK, executable="/opt/alone", stdout=subprocess.DEVNULL) as plug:
            self.device.log.lines.get(timeout=9)
            self.says((0, "add x --app t.x", "added x\n"))
            self.assertIsNone(plug.poll())
        self.assertEqual(1001, list(self.shown().values()).count([*WHOLE[:2], 1, []]))
        # Killed in the middle, it takes the tool along. What it has begun is found by its rows and links.
        self.call(0, "unplug", STICK)
        self.device.log.take()
        with self.start("plug", STICK, stdout=subprocess.DEVNULL) as victim:
            self.device.log.watch = lambda line: b"widget: w0010 ====" in line and victim.kill()
        self.device.log.watch = None
        told = "".join(self.device.log.take())
        self.assertEqual((-9, False), (victim.returncode, "widget: w0999 ====" in told))

    @unittest.skipIf("INSTRUMENTED" in os.environ, "thousands of its calls are not the companion's own")
    def test_a_kill_anywhere_is_seen_and_healed(self):
        other, trace = STICK.parent / "sdb1", "/dev/shm/trace"

        def call_under(command, *strace):
            """Of two sticks with one widget and one of them with another, the first is plugged or unplugged."""
            self.setUp()
            other.mkdir(exist_ok=True)
            for name in "ab":
                self.device.widget(name, files=())
            with stick(), stick(other):
                for name, place in (("a", STICK), ("b", STICK), ("a", other)):
                    self.device.content(name, ["image"], place)
                self.call(0, "plug", other if command == "plug" else STICK)
                self.start(command, STICK, before=("strace", "-qqo", trace, *strace)).communicate()
                wrong = any(faults for *_, faults in self.shown(None).values())
                self.assertEqual(wrong, self.call(0, "heal") != "nothing to do\n")
                self.assertEqual(2, sum(state == "available" for state, *_ in self.shown().values()))

        for command in "plug", "unplug":
            call_under(command)
            for _, name, number in list(calls(trace))[random.randrange(10)::10]:
                with self.subTest(f"{command}, killed at {name} {number}"):
                    call_under(command, f"-einject={name}:signal=KILL:when={number}")

    @knows_our_platform
    def test_a_database_that_another_process_holds(self):
        self.device.widget("a")
        with held_by_another("BEGIN IMMEDIATE", 8):
            self.says((0, f"plug {STICK}", f"a: available from {STICK}\n"))
        with held_by_another("PRAGMA locking_mode = EXCLUSIVE; BEGIN IMMEDIATE", 8):
            self.says((0, f"unplug {STICK}", "a: unavailable\n"))
        held = "the database could not be changed: another process has held it too long, or the disk is full; call again\n"
        with held_by_another("BEGIN IMMEDIATE", 99):
            self.says((3, f"plug {STICK}", f"a: failed: {held}! {held}"), timeout=90)
        with held_by_another("PRAGMA locking_mode = EXCLUSIVE; BEGIN IMMEDIATE", 99):
            self.says((3, "status", "! another process has held the database for 5 s; end that process, or call again\n"))

    def test_several_at_once(self):
        for name in [f"w{number}" for number in range(100)]:
            self.device.widget(name).content(name, ["image"], ODD)
        lock = open("/run/zelmar-widgets.lock", "w")
        fcntl.flock(lock, fcntl.LOCK_EX)
        waiting = [self.start(*words) for words in (("plug", STICK), ("remove", "w99"))]
        with lock:
            self.says((0, f"unplug {ODD.parent}/", "nothing to do\n"))
            self.assertEqual(100, self.call(0, "plug", "--dry-run", STICK).count(f": would be available from {STICK}\n"))
            self.assertEqual([None, None], [process.poll() for process in waiting])
        self.assertEqual(2 * [""], [process.communicate(timeout=9)[1] for process in waiting])
        left = self.shown()
        self.assertEqual(99, len(left))
        for _ in range(5):
            with self.start("plug", STICK) as one, self.start("plug", ODD) as other:
                self.assertEqual((0, 0), (one.wait(), other.wait()))
            self.assertLessEqual({str(facts) for facts in self.shown().values()}, {str(WHOLE), str(ODDLY)})
        with self.start("plug", STICK) as one, self.start("unplug", STICK) as other:
            self.assertIn((one.wait(), other.wait()), ((0, 0), (1, 0)))


TelevisionTest.main()
