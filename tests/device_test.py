# SPDX-License-Identifier: Apache-2.0
"""The tool itself on a device: real database, links, labels and log."""

import os
import resource
import shutil
import socket
import sqlite3
import subprocess
import sys
import time
import unittest
from pathlib import Path

from device import DATABASE, METADATA, STICK, Device, Link, Row, SystemLog, TelevisionTest, held_by_another, label

TOOL = sys.argv[1:]
INSTRUMENTED = "INSTRUMENTED" in os.environ or len(TOOL) > 1
UNATTACHED = "Cannot attach DBConnection to current thread\n"


natively = unittest.skipIf(INSTRUMENTED, "its system calls and its memory are not the tool's own")


class DeviceTest(TelevisionTest):
    def test_the_life_of_a_stick(self):
        device, a, b = self.device, "--a", "%s%n; $(b) 'колобок😀'\n"
        device.widget(a).widget(b, files=["image", "config.xml"])
        device.widget("bare", files=[]).widget("local", usb=False)
        for name in (a, b):
            (device.place(name) / "note").write_text("real")
            (device.place(name) / "own").symlink_to("/elsewhere")
        ours = {"note": None, "own": Link("/elsewhere", None)}
        before = device.state()

        run = device.available(a, "missing", b, "bare", "local", a)
        self.assertEqual((0, f"{a},SUCCESS:missing,FAIL,Widget_Is_Not_Installed:{b},SUCCESS:bare,SUCCESS:"
                             f"local,FAIL,Local_Storage_Used:{a},SUCCESS:\n", ""), run[:3])
        plugged = {a: device.linked(a, **ours), b: device.linked(b, ["config.xml"], **ours),
                   "bare": (Row(True, f"{STICK}/bare_img"), {}), "local": before["local"]}
        self.assertEqual(plugged, device.state())

        # Again, in another order, from where a folder has the stick's name: it is found where sticks are mounted.
        Path("/opt/here", STICK.name).mkdir(parents=True)
        run = device.run("--make-available", "--path", STICK.name, "--", "bare", b, a, cwd="/opt/here")
        self.assertEqual(f"bare,SUCCESS:{b},SUCCESS:{a},SUCCESS:\n", run.out)
        self.assertEqual(plugged, device.state())

        shutil.rmtree(STICK.parent)
        run = device.run("--make-all-unavailable")
        self.assertEqual((0, f"{a},SUCCESS:{b},SUCCESS:bare,SUCCESS:\n", ""), run[:3])
        cleared = {name: (Row(False, "" if plugged[name][0].available else None), links)
                   for name, (_, links) in before.items()}
        self.assertEqual(cleared, device.state())

        # Changed while away: what the content no longer asks for is gone.
        device.content(a, ["image", "widget.info"])
        device.content(b, METADATA)
        device.available(b, a)
        self.assertEqual(device.linked(a, ["widget.info"], **ours), device.state()[a])
        self.assertEqual((Row(True, f"{STICK}/{b}_img"), ours), device.state()[b])

    def test_a_result_that_nobody_can_read_is_taken_back(self):
        device = self.device.widget("a").widget("atlas")
        (device.place("atlas") / "config.xml").write_text("real")
        reader, broken_pipe = os.pipe()
        os.close(reader)
        full_grown = os.open("/opt/result", os.O_CREAT | os.O_WRONLY)
        os.lseek(full_grown, 1 << 30, os.SEEK_SET)

        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
        for output, reason in (({"stdout": broken_pipe}, "Broken pipe"),
                               ({"stdout": full_grown, "preexec_fn": limit_files}, "File too large"),
                               ({"preexec_fn": lambda: os.close(1)}, "Bad file descriptor"),
                               ({"preexec_fn": lambda: os.closerange(0, 3)}, None))[:-1 if INSTRUMENTED else None]:
            with self.subTest(reason):
                run = device.available("a", "atlas", **output)
                message = f"Cannot write the result line to standard output: {reason}\n" if reason else ""
                self.assertEqual((255, "", message), run[:3])
                self.assertEqual(1, "\n".join(run.log).count("Symlink create failed"))
                self.assertEqual({"a": (Row(False, ""), {}), "atlas": (Row(False, None), {"config.xml": None})},
                                 device.state())

    def test_attachment_says_what_is_wrong_with_the_database(self):
        for spoil, reason in (("sqlite3 $0 'PRAGMA user_version = 0'", "schema version 0 instead of 1"),
                              ("sqlite3 $0 'PRAGMA user_version = 2'", "schema version 2 instead of 1"),
                              ("sqlite3 $0 'PRAGMA application_id = 1'", "not a widget database"),
                              ("echo 'Some other file' >$0", "file is not a database"),
                              ("rm $0", "No such file or directory")):
            subprocess.run(["sh", "-c", spoil, DATABASE], check=True)
            run = self.device.run("--make-all-unavailable")
            self.assertEqual((255, "", UNATTACHED), run[:3])
            self.assertTrue(run.log[0].endswith(f"SqlException caught: Open {DATABASE}: {reason}"), run.log)
            self.assertEqual("<3> main: main(41) > Cannot attach DBConnection to current thread", run.log[1])
        self.assertFalse(DATABASE.exists())
        if not INSTRUMENTED:  # valgrind has messages of its own
            run = self.device.run("--make-all-unavailable", preexec_fn=lambda: os.close(2))
            self.assertEqual(2, len(run.log), run.log)  # no message for standard error is in a socket opened instead

    def test_words_and_rows_that_nobody_expects(self):
        device = self.device.widget("a").widget("odd").widget("unnamed")
        before = device.state()
        for words, message in (([STICK, "a", b"\xc3("], "Not well-formed UTF-8: \\xc3("),
                               (["opt", "a"], "boost::filesystem::canonical: No such file or directory: "
                                              f'"{STICK.parent}/opt"')):
            run = device.run("--make-available", "--path", *words, cwd="/")
            self.assertEqual((255, "", message + "\n", before), (*run[:3], device.state()))
        device.sql("UPDATE widget SET tizen_app_id = CAST(X'C328' AS TEXT), available = 1 WHERE kx_app_id = 'odd'")
        device.sql("UPDATE widget SET kx_app_id = NULL, available = 1 WHERE kx_app_id = 'unnamed'")
        run = device.available("a", "odd")
        self.assertEqual((255, "", "Find a widget by its KxAppId: Not well-formed UTF-8: \\xc3(\n"), run[:3])
        device.available("a")
        run = device.run("--make-all-unavailable")
        self.assertEqual((0, "a,SUCCESS:\n", ""), run[:3])
        told = [line.partition(" > ")[2] for line in run.log if "make_all" in line]
        odd = "Database error: Read a widget's TizenAppId: Not well-formed UTF-8: \\xc3("
        self.assertEqual(["Dao handle: t.a", odd, "Dao handle: t.unnamed", "Action's clean is not required."], told)
        for refused in ("a/b", "a\0b", "a"):  # the last of two widgets
            with self.assertRaises(sqlite3.IntegrityError):
                device.sql("UPDATE widget SET kx_app_id = ?", refused)

    @natively
    def test_a_run_is_on_the_disk_when_it_ends(self):
        names, device = [f"w{number}" for number in range(100)], self.device
        for name in names:
            device.widget(name, files=["image"])
        first = ["--make-available", "--path", STICK, "w0"]

        def run_and_count_syncs(*words):
            run = device.run(*words, under=["strace", "-qqo/opt/trace", "-etrace=fsync,fdatasync,syncfs"])
            self.assertNotIn("Error", "".join(run.log))
            return len(Path("/opt/trace").read_text().splitlines())
        for count in (1, 100):
            self.assertIn(run_and_count_syncs(*first[:3], *names[:count]), (1, 2))
            self.assertIn(run_and_count_syncs("--make-unavailable", *names[:count]), (1, 2))
        self.assertEqual(0, run_and_count_syncs("--make-all-unavailable"))
        # What others left in the write-ahead log is folded into the database.
        filling = 2 * "UPDATE widget SET external_storage_path = hex(randomblob(9999));"
        with held_by_another("PRAGMA wal_autocheckpoint = 0;" + filling, 99):
            self.assertGreater(os.path.getsize(f"{DATABASE}-wal"), 2 << 20)
            self.assertLessEqual(run_and_count_syncs(*first), 5)
            self.assertLessEqual(os.path.getsize(f"{DATABASE}-wal"), 2 << 20)

        # A failed sync is told: of the last, and of the first that a log needs which is written over in place.
        for before, failure in (("", "fsync,fdatasync,syncfs:error=EIO"),
                                (f"{filling} PRAGMA wal_checkpoint", "syncfs:error=EIO:when=1")):
            with held_by_another(before, 99):
                run = device.run(*first, under=["strace", "-qqo/opt/trace", f"-einject={failure}"])
            self.assertEqual((0, "w0,SUCCESS:\n", ""), run[:3])
            self.assertTrue(run.log[-1].endswith(f"caught: Sync the links and {DATABASE}: Input/output error"), run.log)
        # Whoever may only read the database can.
        device.run(*first)
        for path in (*DATABASE.parent.iterdir(), DATABASE.parent):
            path.chmod(0o555)
        query = "SELECT kx_app_id FROM widget WHERE available"
        reader = ["setpriv", "--bounding-set=-all", "sqlite3", "-readonly", DATABASE, query]
        self.assertEqual(b"w0\n", subprocess.run(reader, stdout=subprocess.PIPE).stdout)

    @natively
    def test_a_link_that_is_not_there_and_one_that_is_swapped(self):
        device, victim = self.device.widget("a"), Path("/opt/victim")
        link = device.place("a") / "a.img"
        run = device.available("a", under=["strace", "-o/opt/trace", "-einject=symlink:retval=0:when=2"])
        self.assertIn(" > Symlink create failed: [No such file or directory]", "\n".join(run.log))
        self.assertEqual(1, "\n".join(run.log).count("Preaparing smack labels"))
        self.assertEqual(("a,FAIL,Synlinks_Create_Error:\n", (Row(False, None), {})), (run.out, device.state()["a"]))
        self.assertRegex(Path("/opt/trace").read_text(), f'faccessat2.*"{DATABASE}", R_OK.W_OK, AT_EACCESS')
        victim.touch()

        def swap(line):
            if b"Preaparing" in line and victim.stat().st_nlink == 1:
                link.unlink()
                link.hardlink_to(victim)
        device.log.watch = swap
        delay = ["strace", "-qqo/opt/trace", "-P", link, "-einject=openat,lsetxattr,setxattr:delay_enter=300000"]
        self.assertEqual("a,FAIL,Synlinks_Create_Error:\n", device.available("a", under=delay).out)
        device.log.watch = None
        self.assertEqual((2, None), (victim.stat().st_nlink, label(victim)))

    def test_no_logger_holds_the_tool(self):
        device = self.device.widget("a")
        names = [f"missing{number}" for number in range(300)]
        start = time.monotonic()
        usual, seconds = device.unavailable(*names).log, time.monotonic() - start
        device.log.watch = lambda line: time.sleep(0.002)
        self.assertEqual(usual, device.unavailable(*names).log)

        # A logger that takes over in mid-run gets the rest, whole.
        old = device.log

        def take_over(line):
            old.watch, Device.log = None, SystemLog()
            old.socket.shutdown(socket.SHUT_RD)
        old.watch = take_over
        rest = device.unavailable(*names).log
        self.assertEqual((len(usual), usual[-len(rest):]), (old.lines.qsize() + len(rest), rest))
        # A line that the socket does not take arrives cut.
        names = ("x" * 120000, "y" * 120000)
        result, told = device.unavailable(*names).log[-1], ",FAIL,Widget_Is_Not_Installed:".join((*names, ""))
        self.assertEqual(f"<7> main: main(88) > chosenAction result : {told}"[:len(result)], result)
        self.assertGreater(len(result), 150000)

        def assert_soon_done():
            call, start = [*TOOL, "--make-available", "--path", STICK, "a"], time.monotonic()
            self.assertEqual(b"a,SUCCESS:\n", subprocess.run(call, stdout=subprocess.PIPE, timeout=9).stdout)
            self.assertLess(time.monotonic() - start, seconds + 2.5)
        with device.log.stalled:
            assert_soon_done()
        Path("/dev/log").unlink()
        assert_soon_done()
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as refusing:
            refusing.bind("/dev/log")
            refusing.shutdown(socket.SHUT_RD)
            assert_soon_done()
        Device.log = SystemLog()

DeviceTest.main()
