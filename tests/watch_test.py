# SPDX-License-Identifier: Apache-2.0
"""`zelmar-widgets watch`: what it tells of changes by whomever, how soon, at what cost, and when it ends."""

import json
import os
import signal
import statistics
import subprocess
import sys
import time
from pathlib import Path
from select import select

from device import DATABASE, SCHEMA, STICK, TelevisionTest

COMPANION = sys.argv[1]
CREATE = f"mkdir -p {DATABASE.parent}; sqlite3 {DATABASE} <{SCHEMA}"
ADD = f"{COMPANION} add chess --app t.chess; {COMPANION} add clock --app t.clock --on-device"
PLUG = f"{Path(COMPANION).parent}/zelmar-frontend --make-available --path {STICK} -- chess"
UPDATE = f"sqlite3 {DATABASE} 'UPDATE widget SET available = not available'"
OFF, ON, LOCAL = ["chess", "unavailable", None], ["chess", "available", str(STICK)], ["clock", "on-device", None]
GONE = [[name, "removed", None] for name in ("chess", "clock")]
TOLD = (
    ("true", []),  # there is no database
    (f"{CREATE}; {ADD}", [OFF, LOCAL]),
    (PLUG, [ON]),
    # A slow disk: long after the write to the log, the change can be seen. Its process lives on.
    (f"strace -o /dev/null -e inject=fsync,fdatasync:delay_enter=300000 {UPDATE} '.shell sleep 6' & sleep 1.3", [OFF]),
    *((UPDATE, [state]) for state in 5 * (ON, OFF)),
    (f"rm {DATABASE}*; {CREATE}", GONE),
    (f"mv {DATABASE.parent} /opt/old; {CREATE}; {ADD}", [OFF, LOCAL]),
    (f"sqlite3 /opt/new <{SCHEMA}; rm {DATABASE}-*; mv /opt/new {DATABASE}", GONE),
)


class WatchTest(TelevisionTest):
    def watch(self, *words):
        plain = ("setpriv", "--bounding-set=-all", "--inh-caps=-all")  # root without root's powers
        return subprocess.Popen([*plain, COMPANION, "watch", *words], stdout=subprocess.PIPE, bufsize=0)

    def lines(self, watch, count):
        text = b""
        while text.count(b"\n") < count:
            self.assertTrue(select([watch.stdout], [], [], 9)[0], f"{count} lines expected, told: {text}")
            text += os.read(watch.stdout.fileno(), 4096)
        return text.decode().splitlines()

    def test_each_change_is_told_soon(self):
        self.device.content("chess", ["image"])
        DATABASE.unlink()
        DATABASE.parent.rmdir()
        waits = []
        with self.watch("--json") as watch:
            for script, expected in TOLD:
                subprocess.run(script, shell=True, check=True, stdout=subprocess.DEVNULL)
                start = time.monotonic()
                told = [list(json.loads(line).values()) for line in self.lines(watch, len(expected))]
                waits.append(time.monotonic() - start)
                self.assertEqual(expected, [[name, *facts] for _, name, _, *facts in told], script)
            watch.terminate()
            self.assertEqual(([], 0), (watch.stdout.readlines(), watch.wait(9)))
        self.assertLess(statistics.median(waits), 0.2)
        self.assertLess(max(waits), 3)  # on a busy machine

    def test_it_sleeps_until_it_is_interrupted_or_its_reader_goes(self):
        self.device.widget("a\n").sql("UPDATE widget SET available = 1, external_storage_path = '/s/a\n_img'")
        for end in (lambda watch: watch.stdout.close(), lambda watch: watch.send_signal(signal.SIGINT)):
            with self.watch() as watch:
                self.assertEqual(["a\\x0a: available from /s"], self.lines(watch, 1))
                time.sleep(0.3)
                status = Path(f"/proc/{watch.pid}/status")
                asleep = status.read_text()
                time.sleep(1)
                self.assertEqual(asleep, status.read_text())  # it was not even woken
                end(watch)
                self.assertEqual(0, watch.wait(9))


TelevisionTest.main()
