# SPDX-License-Identifier: Apache-2.0
"""A television in the private /opt: widgets, a stick, the widget database and the system log, all real."""

import os
import re
import shutil
import socket
import sqlite3
import subprocess
import sys
import threading
import unittest
from collections import namedtuple
from contextlib import closing, contextmanager
from pathlib import Path
from queue import SimpleQueue

if os.environ.get("PRIVATE_OPT") != "1":
    raise SystemExit("This empties /opt: run it through tests/private-opt.")

APPS = Path("/opt/usr/apps")
STICK = Path("/opt/storage/usb/sda1")
DATABASE = Path("/opt/usr/zelmar/widgets.db")
SCHEMA = Path(__file__).parent.parent / "src/platform/widget_db.sql"
METADATA = ("widget.info", "config.xml", "config.xml.spm")
LABEL = "security.SMACK64"

Run = namedtuple("Run", "status out err log")
Link = namedtuple("Link", "target label")
Row = namedtuple("Row", "available path")


class SystemLog:
    """Whoever reads /dev/log on a real system."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        Path("/dev/log").unlink(missing_ok=True)
        self.socket.bind("/dev/log")
        self.lines = SimpleQueue()
        self.received = []
        self.watch = None  # called with each line as it comes, if set
        self.stalled = threading.Lock()  # whoever holds it keeps the lines from being read
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        while True:
            with self.stalled:
                pass
            line = self.socket.recv(1 << 20)
            if not line:  # the socket was shut down
                return
            if self.watch:
                self.watch(line)
            self.lines.put(line.decode("utf-8", "backslashreplace"))

    def take(self):
        """The lines since the last call, as "<priority> message"."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.sendto(b"end", "/dev/log")  # when it has come, so have all before it
        self.received = [re.sub(r"<(\d+)>ZELMAR_INSTALLER: ", lambda m: f"<{int(m[1]) % 8}> ", line)
                         for line in iter(self.lines.get, "end")]
        return self.received


class Device:
    log = None

    def __init__(self, tool):
        self.tool = tool
        Device.log = Device.log or SystemLog()
        self.log.take()
        for folder in (APPS, STICK, DATABASE.parent):
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)
        subprocess.run(["sqlite3", DATABASE], input=SCHEMA.read_text(), text=True, check=True, capture_output=True)

    def __str__(self):
        rows = subprocess.run(["sqlite3", "-readonly", DATABASE, "SELECT * FROM widget LIMIT 20"], capture_output=True)
        files = [f"{path} -> {os.readlink(path)} [{label(path)}]" if path.is_symlink() else f"{path}"
                 for path in [*APPS.rglob("*"), *STICK.rglob("*")][:100]]
        parts = {"Rows": [(rows.stdout + rows.stderr).decode()], "Files": files, "Last log": self.log.received[-30:]}
        return "".join(f"{part}:\n  " + "\n  ".join(lines) + "\n" for part, lines in parts.items())

    def sql(self, statement, *values):
        with closing(sqlite3.connect(DATABASE, isolation_level=None)) as database:
            return database.execute(statement, values).fetchall()

    def widget(self, name, usb=True, files=("image",) + METADATA):
        """Installs a widget, the first with handle 0; `files` of its content are on the stick, if it is one on USB."""
        self.sql("INSERT INTO widget SELECT count(*), ?, ?, ?, 0, NULL FROM widget", f"t.{name}", name, usb)
        self.place(name).mkdir()
        if usb:
            self.content(name, files)
        return self

    def content(self, name, files, stick=STICK):
        folder = stick / f"{name}_img"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        for file in files:
            (folder / (f"{name}.img" if file == "image" else file)).write_text(file)
        if "image" in files:
            os.truncate(folder / f"{name}.img", 5 << 30)  # images outgrow 32 bits

    def place(self, name):
        return APPS / f"{name}_img"

    def run(self, *words, under=(), **options):
        """Calls the tool, `under` another such as strace; `options` are those of subprocess.run."""
        done = subprocess.run([*under, *self.tool, *words], **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                                                       "timeout": 100, **options})
        out, err = ((text or b"").decode("utf-8", "backslashreplace") for text in (done.stdout, done.stderr))
        assert done.returncode in (0, 255) or done.returncode < 0, err  # else what it runs under has found something
        return Run(done.returncode, out, err, self.log.take())

    def available(self, *names, **options):
        return self.run("--make-available", "--path", str(STICK), "--", *names, **options)

    def unavailable(self, *names, **options):
        return self.run("--make-unavailable", "--", *names, **options)

    def links(self, name):
        """What stands in the widget's image directory: links with target and label, other files as None."""
        return {entry.name: Link(os.readlink(entry), label(entry)) if entry.is_symlink() else None
                for entry in self.place(name).iterdir()}

    @staticmethod
    def linked(name, files=METADATA, **others):
        """The state of an available widget with these files on the stick, and these others in its image directory."""
        content = STICK / f"{name}_img"
        links = {file: Link(str(content / file), "_") for file in (f"{name}.img", *files)}
        return Row(True, str(content)), {**links, **others}

    def state(self):
        """All that a run may change."""
        rows = self.sql("SELECT kx_app_id, available, external_storage_path FROM widget ORDER BY handle")
        return {name: (Row(bool(available), path), self.links(name)) for name, available, path in rows}


class TelevisionTest(unittest.TestCase):
    """Each test has a television of its own and shows it if it fails. The words of the command line call the tool."""

    device = "No device."

    def setUp(self):
        self.device = Device(sys.argv[1:])

    def run(self, result=None):
        before = len(result.failures + result.errors)
        super().run(result)
        if len(result.failures + result.errors) > before:
            print(f"\n{self.id()} failed on this device:\n{self.device}", file=sys.stderr)

    @staticmethod
    def main():
        unittest.main(argv=sys.argv[:1], verbosity=2)


@contextmanager
def held_by_another(script, seconds):
    """The database as another process has it after `script`, for so many seconds or as long as the block lasts."""
    holder = sqlite3.connect(DATABASE, isolation_level=None, check_same_thread=False)
    holder.executescript(script)
    release = threading.Timer(seconds, holder.close)
    release.start()
    try:
        yield
    finally:
        release.cancel()
        holder.close()


@contextmanager
def mounted(place, *options):
    subprocess.run(["mount", *options, place], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", place], check=True)


def label(link):
    try:
        return os.getxattr(link, LABEL, follow_symlinks=False).decode()
    except OSError:
        return None
