"""The tool itself on a device: real database, links, labels and log. The words of the command line call the tool."""

import os
import re
import shlex
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

from device import APPS, DATABASE, METADATA, STICK, Device, Link, Row, held_by_another, mounted

README = Path(__file__).parent.parent / "README.md"
TOOL = sys.argv[1:]


class DeviceTest(unittest.TestCase):
    def setUp(self):
        self.device = Device(TOOL)

    def test_the_life_of_a_stick(self):
        device = self.device
        device.widget("a").widget("b", files=["image", "config.xml"])
        device.widget("bare", files=[]).widget("local", usb=False)
        for name in ("a", "b"):
            (device.place(name) / "note").write_text("real")
            (device.place(name) / "own").symlink_to("/elsewhere")
        ours = {"note": None, "own": Link("/elsewhere", None)}
        before = device.state()

        run = device.available("a", "missing", "b", "bare", "local", "a")
        self.assertEqual((0, "a,SUCCESS:missing,FAIL,Widget_Is_Not_Installed:b,SUCCESS:bare,SUCCESS:"
                             "local,FAIL,Local_Storage_Used:a,SUCCESS:\n", ""), run[:3])
        self.assertEqual(device.linked("a", **ours), device.state()["a"])
        self.assertEqual(device.linked("b", ["config.xml"], **ours), device.state()["b"])
        self.assertEqual((Row(True, f"{STICK}/bare_img"), {}), device.state()["bare"])
        self.assertEqual(before["local"], device.state()["local"])
        plugged = device.state()

        # Again, in another order, the stick named from where sticks are mounted: the same.
        run = device.run("--make-available", "--path", STICK.name, "bare", "b", "a", cwd=STICK.parent)
        self.assertEqual("bare,SUCCESS:b,SUCCESS:a,SUCCESS:\n", run.out)
        self.assertEqual(plugged, device.state())

        shutil.rmtree(STICK.parent)
        run = device.run("--make-all-unavailable")
        self.assertEqual((0, "a,SUCCESS:b,SUCCESS:bare,SUCCESS:\n", ""), run[:3])
        cleared = {name: (Row(False, "" if plugged[name][0].available else None), links)
                   for name, (_, links) in before.items()}
        self.assertEqual(cleared, device.state())
        self.assertEqual((0, "\n", ""), device.run("--make-all-unavailable")[:3])
        self.assertEqual("a,SUCCESS:b,SUCCESS:\n", device.unavailable("a", "b").out)
        self.assertEqual(cleared, device.state())

        # Changed while away: what the content no longer asks for is gone.
        device.content("a", ["image", "widget.info"])
        device.content("b", METADATA)
        self.assertEqual("b,SUCCESS:a,SUCCESS:\n", device.available("b", "a").out)
        self.assertEqual(device.linked("a", ["widget.info"], **ours), device.state()["a"])
        self.assertEqual((Row(True, f"{STICK}/b_img"), ours), device.state()["b"])
        device.content("b", ["image"])

        # An image directory that is gone or read-only does not stop the run; the log tells of the link that stays.
        device.available("b")
        shutil.rmtree(device.place("a"))
        with mounted(device.place("b"), "--bind", "-o", "ro", device.place("b")):
            self.assertEqual("b,FAIL,Synlinks_Create_Error:\n", device.available("b").out)
            run = device.unavailable("a", "b")
        self.assertEqual("a,FAIL,Install_Dir_Not_Found:b,SUCCESS:\n", run.out)
        self.assertRegex("\n".join(run.log), "Cannot remove symlink: .*/b.img, error: Read-only file system")

    def test_bad_input_changes_nothing(self):
        before = self.device.widget("a").state()
        odd = os.fsencode(STICK) + b"/\xff"
        os.mkdir(odd)
        for words, message in ((["--path", odd, "a"], "Not well-formed UTF-8: /opt/storage/usb/sda1/\\xff"),
                               (["--path", STICK, "a", b"\xc3("], "Not well-formed UTF-8: \\xc3("),
                               (["--path", "a b", "a"], "the argument ('a b') for option '--path' is invalid")):
            with self.subTest(words):
                run = self.device.run("--make-available", *words)
                self.assertEqual((255, "", message + "\n"), run[:3])
                self.assertIn(f"<7> main: main(78) > Input parameters error: {message}", run.log)
                self.assertEqual(before, self.device.state())

    def test_the_readme_reads_a_result_line(self):
        self.device.widget("a:b").widget("x", usb=False)
        snippet = re.search(r"```sh\n(.*?)```", README.read_text(), re.S)[1]
        tool = f"zelmar-frontend() {{ {shlex.join(TOOL)} \"$@\"; }}; mount_point={STICK}; set -- a:b x; "
        told = subprocess.run(["bash", "-c", tool + snippet], capture_output=True, text=True, check=True).stdout
        self.assertEqual("a:b: done\nx: Local_Storage_Used\n", told)

    def test_a_result_that_nobody_can_read_is_taken_back(self):
        device = self.device.widget("a").widget("atlas")
        (device.place("atlas") / "config.xml").write_text("real")
        reader, broken_pipe = os.pipe()
        os.close(reader)
        for output, reason in (({"stdout": os.open("/dev/full", os.O_WRONLY)}, "No space left on device"),
                               ({"stdout": broken_pipe}, "Broken pipe"),
                               ({"preexec_fn": lambda: os.close(1)}, "Bad file descriptor")):
            with self.subTest(reason):
                run = device.available("a", "atlas", **output)
                self.assertEqual((255, "", f"Cannot write the result line to standard output: {reason}\n"), run[:3])
                self.assertEqual({"a": (Row(False, ""), {}), "atlas": (Row(False, None), {"config.xml": None})},
                                 device.state())

    def test_attachment_says_what_is_wrong_with_the_database(self):
        for spoil, reason in (("sqlite3 $0 'PRAGMA user_version = 0'", "schema version 0 instead of 1"),
                              ("sqlite3 $0 'PRAGMA application_id = 1'", "not a widget database"),
                              ("echo 'Some other file' >$0", "file is not a database"),
                              ("rm $0", "No such file or directory")):
            subprocess.run(["sh", "-c", spoil, DATABASE], check=True)
            run = self.device.run("--make-all-unavailable")
            self.assertEqual((255, "", "Cannot attach DBConnection to current thread\n"), run[:3])
            self.assertTrue(run.log[0].endswith(f"SqlException caught: Open {DATABASE}: {reason}"), run.log)
            self.assertEqual("<3> main: main(41) > Cannot attach DBConnection to current thread", run.log[1])
        self.assertFalse(DATABASE.exists())

    @unittest.skipIf("INSTRUMENTED" in os.environ, "its system calls are not the tool's own")
    def test_changes_are_seen_at_once_and_synced_once(self):
        names = [f"w{number}" for number in range(100)]
        for name in names:
            self.device.widget(name, files=["image"])
        seen = []

        def watch(line):
            if b"=== Processing widget" in line:
                seen.append(self.device.sql("SELECT count(*) FROM widget WHERE available")[0][0])
        self.device.log.watch = watch
        self.device.available(*names)
        self.device.log.watch = None
        self.assertEqual(100, len(seen))
        self.assertTrue(all(available >= before for before, available in enumerate(seen)), seen)

        trace = ["strace", "-qq", "-e", "trace=fsync,fdatasync,syncfs", "-o", "/opt/trace"]
        for some in (names[:1], names, ()):
            words = ("--make-unavailable", *some) if some else ("--make-all-unavailable",)
            subprocess.run([*trace, *TOOL, *words], check=True, capture_output=True)
            syncs = re.findall(r"^\w+", Path("/opt/trace").read_text(), re.M)
            self.assertEqual(["syncfs"] if some else [], syncs)

    @unittest.skipIf("INSTRUMENTED" in os.environ or len(TOOL) > 1, "its memory is not the tool's own")
    def test_a_widget_takes_less_than_800_bytes(self):
        self.device.sql("WITH RECURSIVE w(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM w LIMIT 25000) "
                        "INSERT INTO widget SELECT n, 't.' || n, 'widget' || n, 1, 1, '/x' FROM w")
        for number in range(25000):
            (APPS / f"widget{number}_img").mkdir()
        Path("/dev/log").unlink()  # without a reader the tool runs all the same
        Device.log = None
        limited = ["sh", "-c", f'ulimit -d {25000 * 800 // 1024} && "$@"', "sh", *TOOL, "--make-all-unavailable"]
        done = subprocess.run(limited, check=True, capture_output=True)
        self.assertEqual(25000, done.stdout.count(b",SUCCESS:"))


unittest.main(argv=sys.argv[:1], verbosity=2)
