# SPDX-License-Identifier: Apache-2.0
"""The power is cut at each write of a run: of the blocks written since a file's last sync, any may be on the disk."""

import random
import re
import sqlite3
from contextlib import closing
from itertools import chain, combinations, product
from pathlib import Path

from device import STICK, TelevisionTest, held_by_another

FILES, CUT = ([Path(f"/opt/{folder}/widgets.db{part}") for part in ("", "-wal")] for folder in ("usr/zelmar", "cut"))
ROWS = "SELECT kx_app_id, available, external_storage_path FROM widget"
# So long that its row takes several pages, and a commit several blocks of any size.
LONG = STICK.joinpath(*(letter * 200 for letter in "abcdefghijklmno"))
AVAILABLE, ALL = ("--make-available", "--path", str(LONG), "a", "b"), ("--make-all-unavailable",)
# What another process did to the database's log: nothing; let the run write over what would spoil the database if it
# were read again; made it so long that the run folds it.
CHANGE = "PRAGMA user_version = 1;"  # as it was, yet a page of the log
PAGES = ("CREATE TABLE pages AS WITH n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 50)"
         "SELECT zeroblob(450) FROM n; PRAGMA wal_checkpoint;")
LOGS = {"fresh": "",
        "reused": f"{PAGES} DELETE FROM pages WHERE rowid = 1; DELETE FROM pages; {50 * CHANGE} PRAGMA wal_checkpoint",
        "long": f"PRAGMA wal_autocheckpoint = 0; PRAGMA synchronous = OFF; {PAGES} DELETE FROM pages; {4000 * CHANGE}"}
STRACE = ("strace", "-qqyxxo/opt/trace", "-s9999", "-etrace=pwrite64,ftruncate,fdatasync,fsync,syncfs")
CALL = re.compile(r'^(\w+)\(\d+<(.*?)>(?:, "(.*?)", \d+)?(?:, (\d+))?\)', re.M)


def on_disk(contents, writes):
    """What the files hold after these writes; one without data is a truncation."""
    contents = [bytearray(content) for content in contents]
    for file, _, start, data in writes:
        contents[file].extend(bytes(max(0, start - len(contents[file]))))
        contents[file][start:None if data is None else start + len(data)] = data or b""
    return tuple(map(bytes, contents))


def some_of(blocks, count):
    """All blocks, then all other sets of them if there are no more, else so many of any size."""
    if 2 ** len(blocks) <= count:
        return chain(*(combinations(blocks, some) for some in range(len(blocks), -1, -1)))
    shares = (1, *(random.random() for _ in range(count)))
    return ([block for block in blocks if random.random() < share] for share in shares)


def opened(contents):
    """What SQLite makes of these files: its verdict, and the rows."""
    for path, content in zip(CUT, contents):
        path.write_bytes(content)
    with closing(sqlite3.connect(CUT[0])) as database:
        return database.execute("PRAGMA integrity_check").fetchone()[0], database.execute(ROWS).fetchall()


class CrashStateTest(TelevisionTest):
    def test_each_log(self):
        CUT[0].parent.mkdir()
        for log, words in product(LOGS, (AVAILABLE, ALL)):
            self.setUp()
            self.device.widget("a", files=[]).widget("b", files=[])
            LONG.mkdir(parents=True)
            self.device.run(*(ALL if words is AVAILABLE else AVAILABLE))
            self.device.state()  # as the last one to close the database, it leaves no log
            with held_by_another(LOGS[log], 99):
                before = [path.read_bytes() if path.exists() else b"" for path in FILES]
                self.device.run(*words, under=STRACE)
                done = self.device.sql(ROWS)
            for size in (512, 4096):
                with self.subTest(log=log, run=words[0], size=size):
                    print(f"{self.cut(before, done, size)} states tried")

    def cut(self, before, done, size):
        disk, writes, passed, tried = before, [], [], set()  # a write: its file, its block, where it starts, data
        for call, path, data, at in CALL.findall(Path("/opt/trace").read_text()):
            path, data, at = *(bytes.fromhex(text.replace("\\x", "")) for text in (path, data)), int(at or 0)
            for file in (file for file in (0, 1) if call == "syncfs" or bytes(FILES[file]) == path):
                if call == "pwrite64":
                    starts = [at, *range(at - at % size + size, at + len(data), size), at + len(data)]
                    writes += [(file, start // size, start, data[start - at:end - at])
                               for start, end in zip(starts, starts[1:])]
                elif call == "ftruncate":
                    writes.append((file, -1, at, None))
                else:
                    disk = on_disk(disk, (write for write in writes if write[0] == file))
                    writes = [write for write in writes if write[0] != file]
            blocks = sorted({write[:2] for write in writes})
            for some in some_of(blocks, 3 + (1 << 20) // sum(map(len, before))):
                contents = on_disk(disk, (write for write in writes if write[:2] in some))
                if hash(contents) not in tried:
                    tried.add(hash(contents))
                    verdict, rows = opened(contents)
                    passed += [rows] if len(some) == len(blocks) else []
                    self.assertEqual(("ok", True), (verdict, rows in passed), (call, some))
        self.assertEqual(("ok", done), opened(disk))
        return len(tried)


CrashStateTest.main()
