# SPDX-License-Identifier: Apache-2.0
"""The tool itself on a device, and in trouble there: real database, links, labels and log."""

import os
import random
import re
import shutil
import socket
import sqlite3
import subprocess
import sys
import time
import unittest
from pathlib import Path

from device import (APPS, DATABASE, METADATA, STICK, Device, Link, Row, SystemLog, TelevisionTest, held_by_another,
                    label, mounted)

TOOL = sys.argv[1:]
INSTRUMENTED = "INSTRUMENTED" in os.environ or len(TOOL) > 1
STRACE = ("strace", "-qqo/opt/trace")
BOTH, NONE = "a,SUCCESS:b,SUCCESS:\n", "a,FAIL,Unknown_Error:b,FAIL,Unknown_Error:\n"
UNATTACHED = "Cannot attach DBConnection to current thread\n"
EXCLUSIVE = "PRAGMA locking_mode = EXCLUSIVE; BEGIN; UPDATE widget SET handle = handle; COMMIT"


natively = unittest.skipIf(INSTRUMENTED, "its system calls and its memory are not the tool's own")


def after(script):
    """What a run is to be under, so that a shell prepares the device and the run's descriptors for it."""
    return ["sh", "-ec", f'{script}; exec "$@"', "sh"]


class DeviceTest(TelevisionTest):
    def test_the_life_of_a_stick(self):
        device, a, b = self.device, "--a", "%s%n; $(b) 'колобок😀'\n"
        device.widget(a).widget(b, files=["image", "config.xml"]).widget("bare", files=[]).widget("local", usb=False)
        (device.place(a) / "own").symlink_to("/elsewhere")
        own = {"own": Link("/elsewhere", None)}
        before = device.state()

        run = device.available(a, "missing", b, "bare", "local", a)
        self.assertEqual((0, f"{a},SUCCESS:missing,FAIL,Widget_Is_Not_Installed:{b},SUCCESS:bare,SUCCESS:"
                             f"local,FAIL,Local_Storage_Used:{a},SUCCESS:\n", ""), run[:3])
        plugged = {**before, a: device.linked(a, **own), b: device.linked(b, ["config.xml"]),
                   "bare": (Row(True, f"{STICK}/bare_img"), {})}
        self.assertEqual(plugged, device.state())

        # Again, in another order, from where a folder has the stick's name: it is found where sticks are mounted.
        Path("/opt/here", STICK.name).mkdir(parents=True)
        run = device.run("--make-available", "--path", STICK.name, "--", "bare", b, a, cwd="/opt/here")
        self.assertEqual((f"bare,SUCCESS:{b},SUCCESS:{a},SUCCESS:\n", plugged), (run.out, device.state()))

        shutil.rmtree(STICK.parent)
        run = device.run("--make-all-unavailable")
        self.assertEqual((0, f"{a},SUCCESS:{b},SUCCESS:bare,SUCCESS:\n", ""), run[:3])
        cleared = {name: (Row(False, ""), links) for name, (_, links) in before.items()} | {"local": before["local"]}
        self.assertEqual(cleared, device.state())

        # Changed while away: what the content no longer asks for is gone.
        device.content(a, ["image", "widget.info"])
        device.content(b, METADATA)
        device.available(b, a)
        changed = {a: device.linked(a, ["widget.info"], **own), b: (Row(True, f"{STICK}/{b}_img"), {})}
        self.assertEqual({**cleared, **changed}, device.state())

    def test_a_result_that_nobody_can_read_is_taken_back(self):
        device = self.device.widget("a").widget("atlas")
        (device.place("atlas") / "config.xml").write_text("real")
        for output, reason in (("mkfifo /opt/pipe; exec 3<>/opt/pipe >/opt/pipe 3>&-", "Broken pipe"),
                               ("truncate -s 1M /opt/big; ulimit -f 2048; exec >>/opt/big", "File too large"),
                               ("exec <&- >&-", "Bad file descriptor")):
            with self.subTest(reason):
                run = device.available("a", "atlas", under=after(output))
                self.assertEqual((255, "", f"Cannot write the result line to standard output: {reason}\n"), run[:3])
                self.assertEqual({"a": (Row(False, ""), {}), "atlas": (Row(False, None), {"config.xml": None})},
                                 device.state())

    def test_attachment_says_what_is_wrong_with_the_database(self):
        unattached = "Cannot attach DBConnection to current thread"
        for spoil, reason in ((f"sqlite3 {DATABASE} 'PRAGMA user_version = 0'", "schema version 0 instead of 1"),
                              (f"sqlite3 {DATABASE} 'PRAGMA user_version = 2'", "schema version 2 instead of 1"),
                              (f"sqlite3 {DATABASE} 'PRAGMA application_id = 1'", "not a widget database"),
                              (f"echo 'Some other file' >{DATABASE}", "file is not a database"),
                              (f"rm {DATABASE}", "No such file or directory")):
            log = [f"<15> db_connection_wrapper: attachToThread(40) > SqlException caught: Open {DATABASE}: {reason}",
                   f"<11> main: main(41) > {unattached}"]
            run = self.device.run("--make-all-unavailable", under=after(spoil))
            self.assertEqual((255, "", f"{unattached}\n", log), run)
        if not INSTRUMENTED:  # valgrind has messages of its own
            run = self.device.run("--make-all-unavailable", under=after("exec 2>&-"))
            self.assertEqual((255, "", "", log), run, "what is for standard error is in no socket opened instead")

    def test_words_and_rows_that_nobody_expects(self):
        device, ill_formed = self.device.widget("a").widget("odd"), "Not well-formed UTF-8: \\xc3("
        device.sql("UPDATE widget SET tizen_app_id = CAST(X'C328' AS TEXT), available = 1 WHERE kx_app_id = 'odd'")
        before = device.state()
        missing = f'boost::filesystem::canonical: No such file or directory: "{STICK.parent}/opt"'
        unstorable = b"/opt/\xc3("
        os.makedirs(unstorable + b"/a_img")
        os.mknod(unstorable + b"/a_img/a.img")
        for path, name, message in ((STICK, b"\xc3(", ill_formed), ("opt", "a", missing),
                                    (STICK, "odd", f"Find a widget by its KxAppId: {ill_formed}"),
                                    (unstorable, "local", "Not well-formed UTF-8: /opt/\\xc3(")):
            run = device.run("--make-available", "--path", path, "a", name, cwd="/")
            err = run.err.replace(" [generic:2]", "")  # as newer libraries name the error, too
            self.assertEqual((255, "", f"{message}\n", before), (run.status, run.out, err, device.state()))
        self.assertFalse([line for line in run.log if "Preparing link" in line], "no link leads where no row can")
        run = device.run("--make-available", "--path", unstorable, "unknown")
        self.assertEqual((0, "unknown,FAIL,Widget_Is_Not_Installed:\n", ""), run[:3])
        device.available("a")
        device.widget("unnamed").sql("UPDATE widget SET kx_app_id = NULL, available = 1 WHERE kx_app_id = 'unnamed'")
        run = device.run("--make-all-unavailable")
        self.assertEqual((0, "a,SUCCESS:\n", ""), run[:3])
        told = [line.partition(" > ")[2] for line in run.log if "make_all" in line]
        odd = f"Database error: Read a widget's TizenAppId: {ill_formed}"
        self.assertEqual(["Dao handle: t.a", odd, "Dao handle: t.unnamed", "Action's clean is not required."], told)
        for refused in ("a/b", "a\0b", "a"):  # the last of two widgets
            with self.assertRaises(sqlite3.IntegrityError):
                device.sql("UPDATE widget SET kx_app_id = ?", refused)

    @natively
    def test_a_run_is_on_the_disk_when_it_ends(self):
        device, names = self.device, [f"w{number}" for number in range(100)]
        log, folder = f"{DATABASE}-wal", str(DATABASE.parent)
        for name in names:
            device.widget(name, files=["image"])

        def synced(*words, inject=()):
            self.told = device.run(*words, under=[*STRACE, "-y", "-etrace=fsync,fdatasync,syncfs", *inject])
            return re.findall("<(.*)>", Path("/opt/trace").read_text())[-3:]
        make = "--make-available", "--path", STICK
        refuse = "CREATE TRIGGER refuse BEFORE UPDATE ON widget BEGIN SELECT RAISE(FAIL, ''); END"
        for before, words, last in (("", [*make, "w0"], [log, folder, folder]),  # the log begins
                                    ("", [*make, *names], [folder]), ("", ["--make-unavailable", *names], [folder]),
                                    ("", ["--make-all-unavailable"], []),
                                    ("PRAGMA journal_mode = DELETE", [*make, "w0"], [log, folder, folder]),
                                    (refuse, ["--make-unavailable", "w0"], [folder])):  # links went all the same
            device.sql(before)
            self.assertEqual((last, 0), (synced(*words), self.told.status), (before, words))
        device.sql("DROP TRIGGER refuse")
        # Links on a file system of their own come before the rows that rely on them; a failed sync is told.
        with mounted(APPS, "-t", "tmpfs", "none"):
            device.place("w0").mkdir()
            self.assertEqual([str(APPS), folder], synced(*make, "w0", inject=["-einject=syncfs:error=EIO:when=1"]))
        self.assertEqual((0, "w0,SUCCESS:\n", ""), self.told[:3])
        self.assertIn(f"caught: Sync the links and {DATABASE}: Input/output error", self.told.log[-1])
        # What others left in the write-ahead log is folded into the database, at the second attempt if the first fails.
        filling = 2 * "UPDATE widget SET external_storage_path = hex(randomblob(9999));"
        with held_by_another(f"PRAGMA wal_autocheckpoint = 0; {filling}", 99):
            synced(*make, "w0", "w1", inject=["-einject=fdatasync:error=EIO:when=1"])
            self.assertEqual("w0,SUCCESS:w1,SUCCESS:\n", self.told.out)
            self.assertLessEqual(os.path.getsize(log), 2 << 20)

    @natively
    def test_a_link_that_is_not_there_and_one_that_is_swapped(self):
        device, file = self.device.widget("a"), Path("/opt/file")
        link, failed = device.place("a") / "a.img", ("a,FAIL,Synlinks_Create_Error:\n", Row(False, None))
        run = device.available("a", under=[*STRACE, "-einject=symlink:retval=0:when=2"])
        self.assertEqual((*failed, {}), (run.out, *device.state()["a"]))
        self.assertIn(" > Symlink create failed: [No such file or directory]", "\n".join(run.log))
        self.assertRegex(Path("/opt/trace").read_text(), f'faccessat2.*"{DATABASE}", R_OK.W_OK, AT_EACCESS')

        file.touch()
        device.log.watch = lambda line: b"Preaparing" in line and file.exists() and file.rename(link)
        delay = "-einject=openat,lsetxattr,setxattr:delay_enter=300000"
        run = device.available("a", under=[*STRACE, "-P", link, delay])
        self.assertEqual((*failed, {"a.img": None}, None), (run.out, *device.state()["a"], label(link)))

    def test_no_logger_holds_the_tool(self):
        device, old = self.device.widget("a"), self.device.log
        names = [f"missing{number}" for number in range(300)]
        start = time.monotonic()
        usual, seconds = device.unavailable(*names).log, time.monotonic() - start
        old.watch = lambda line: time.sleep(0.002)
        self.assertEqual(usual, device.unavailable(*names).log)

        # A logger that takes over in mid-run gets the rest, whole.
        def take_over(line):
            old.watch, Device.log = None, SystemLog()
            old.socket.shutdown(socket.SHUT_RD)
        old.watch = take_over
        rest = device.unavailable(*names).log
        self.assertEqual((len(usual), usual[-len(rest):]), (old.lines.qsize() + len(rest), rest))
        # A line that the socket does not take arrives cut.
        run = device.unavailable("x" * 120000, "y" * 120000)
        self.assertTrue(f"<15> main: main(88) > chosenAction result : {run.out}".startswith(run.log[-1]))
        self.assertGreater(len(run.log[-1]), 150000)

        def assert_soon_done():
            call, start = [*TOOL, "--make-available", "--path", STICK, "a"], time.monotonic()
            self.assertEqual(b"a,SUCCESS:\n", subprocess.run(call, stdout=subprocess.PIPE, timeout=9).stdout)
            self.assertLess(time.monotonic() - start, seconds + 2.5)
        device.log.watch = lambda line: time.sleep(99)  # stalls
        assert_soon_done()
        device.log.socket.shutdown(socket.SHUT_RD)  # refuses
        assert_soon_done()
        Path("/dev/log").unlink()  # is gone
        assert_soon_done()


@unittest.skipIf(len(TOOL) > 1, "it would take too long")
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


TelevisionTest.main()
