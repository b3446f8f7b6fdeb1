# SPDX-License-Identifier: Apache-2.0
"""A television in the private /opt: widgets, a stick, the widget database and the system log, all real."""

import os
import random
import re
import resource
import shutil
import socket
import sqlite3
import subprocess
import sys
import threading
import time
import unittest
from collections import Counter, namedtuple
from contextlib import closing, contextmanager, suppress
from pathlib import Path
from queue import SimpleQueue

if os.environ.get("PRIVATE_OPT") != "1":
    raise SystemExit("This empties /opt: run it through tools/private-opt.")

# Few open files, so that a leaked one a widget shows.
resource.setrlimit(resource.RLIMIT_NOFILE, (64, 64))

APPS = Path("/opt/usr/apps")
STICK = Path("/opt/storage/usb/sda1")
DATABASE = Path("/opt/usr/zelmar/widgets.db")
SCHEMA = Path(__file__).parent.parent / "src/platform/widget_db.sql"
# Another platform than ours is built: its database, labels and log are unknown.
FOREIGN = "FOREIGN_PLATFORM" in os.environ
METADATA = ("widget.info", "config.xml", "config.xml.spm")
LABEL = "security.SMACK64"

Run = namedtuple("Run", "status out err log")
Link = namedtuple("Link", "target label")
Row = namedtuple("Row", "available path")


knows_our_platform = unittest.skipIf(FOREIGN, "It knows the database, labels or log of our platform.")


class SystemLog:
    """Whoever reads /dev/log on a real system."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        Path("/dev/log").unlink(missing_ok=True)
        self.socket.bind("/dev/log")
        self.lines, self.received = SimpleQueue(), []
        self.watch = None  # called with each line as it comes, if set
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        with self.socket:
            while line := self.socket.recv(1 << 20):  # until the socket is shut down
                if self.watch:
                    self.watch(line)
                self.lines.put(line.decode("utf-8", "backslashreplace").replace(">ZELMAR_INSTALLER: ", "> "))

    def take(self):
        """The lines since the last call, as "<facility + priority> message"."""
        self.socket.sendto(b"end", "/dev/log")  # when it has come, so have all before it
        self.received = list(iter(lambda: self.lines.get(timeout=20), "end"))
        return self.received


class Device:
    log = None

    def __init__(self, tool):
        self.tool = tool
        Device.log = Device.log or SystemLog()
        for folder in list(Path("/opt").iterdir()) if FOREIGN else (APPS, STICK, DATABASE.parent):
            shutil.rmtree(folder, ignore_errors=True)
        for folder in (APPS, STICK, DATABASE.parent):
            folder.mkdir(parents=True)
        if FOREIGN:
            subprocess.run([*tool, "init"], check=True)
            return
        subprocess.run(["sqlite3", DATABASE], input=SCHEMA.read_text(), text=True, check=True, capture_output=True)

    def __str__(self):
        rows = subprocess.run(["sqlite3", "-readonly", DATABASE, "SELECT * FROM widget LIMIT 20"], capture_output=True,
                              encoding="utf-8", errors="backslashreplace")
        files = [f"{path} -> {os.readlink(path)} [{label(path)}]" if path.is_symlink() else f"{path}"
                 for path in [*APPS.rglob("*"), *STICK.rglob("*")][:100]]
        return "\n".join(["Rows:", rows.stdout + rows.stderr, "Files:", *files, "Last log:", *self.log.received[-30:]])

    def sql(self, statement, *values):
        with closing(sqlite3.connect(DATABASE, isolation_level=None)) as database:
            return database.execute(statement, values).fetchall()

    def widget(self, name, usb=True, files=("image",) + METADATA):
        """Installs a widget, the first with handle 0; `files` of its content are on the stick, if it is one on USB."""
        if FOREIGN:
            subprocess.run([*self.tool, "add", f"--app=t.{name}", "--", name], check=True)
        else:
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
            with open(folder / (f"{name}.img" if file == "image" else file), "w") as content:
                content.truncate(5 << 30)  # images outgrow 32 bits

    def place(self, name):
        return APPS / f"{name}_img"

    def run(self, *words, under=(), timeout=100, **options):
        """Calls the tool, `under` another such as strace; `options` are those of subprocess.run."""
        done = subprocess.run([*under, *self.tool, *words], capture_output=True, encoding="utf-8",
                              errors="backslashreplace", timeout=timeout, **options)
        assert done.returncode in (0, 255) or done.returncode < 0, done.stderr  # else a finding of what it runs under
        return Run(done.returncode, done.stdout, done.stderr, self.log.take())

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
        Device.log = None  # what the test before left may be in any state
        before = len(result.failures + result.errors)
        super().run(result)
        if len(result.failures + result.errors) > before:
            print(f"\n{self.id()} failed on this device:\n{self.device}", file=sys.stderr)

    @staticmethod
    def main():
        seed = os.environ.get("SEED", str(time.time_ns() % 10**6))
        print(f"SEED={seed}")  # of the random choices
        random.seed(seed)
        chosen = ["-k", os.environ["CASE"]] if "CASE" in os.environ else []
        unittest.main(argv=[*sys.argv[:1], *chosen], verbosity=2)


@contextmanager
def held_by_another(script, seconds):
    """The database as another process has it after `script`, for so many seconds or as long as the block lasts."""
    with closing(sqlite3.connect(DATABASE, isolation_level=None, check_same_thread=False)) as holder:
        holder.executescript(script)
        release = threading.Timer(seconds, holder.close)
        release.start()
        try:
            yield
        finally:
            release.cancel()


@contextmanager
def mounted(place, *options):
    subprocess.run(["mount", *options, place], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", place], check=True)


def calls(trace):
    """Of each call in it: the whole, its name, and how many of that name there are by then."""
    numbers = Counter()
    for call, name in re.findall(r"^((\w+)\(.*)", Path(trace).read_text(errors="replace"), re.M):
        numbers[name] += 1
        yield call, name, numbers[name]


def label(link):
    """The label of the file itself, be it a link; None if it has none."""
    with suppress(OSError):
        return os.getxattr(link, LABEL, follow_symlinks=False).decode()
