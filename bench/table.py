# SPDX-License-Identifier: Apache-2.0
"""Prints a table of tools/bench, and how the tool does by the figures that it is to keep to, on tmpfs."""

import csv
import math
import sys

with open(sys.argv[1], newline="") as results:
    ROWS = list(csv.DictReader(results))


def print_table():
    lines = [[title.replace("_", " ").replace("us ", "µs ") for title in ROWS[0]]] + [row.values() for row in ROWS]
    widths = [max(map(len, column)) for column in zip(*lines)]
    for line in lines:
        print("  ".join(cell.rjust(width) for cell, width in zip(line, widths)))


def value(column, who, action, widgets):
    """Not a number, if it was not measured."""
    key = {"file_system": "tmpfs", "action": action, "widgets": str(widgets), "contestant": who}
    return float(next((row[column] for row in ROWS if key.items() <= row.items()), "") or "nan")


def judge(text, found, at_most=None, at_least=None):
    if math.isnan(found):
        return  # This run did not measure it.
    kept, limit = (found >= at_least, f"at least {at_least}") if at_least else (found <= at_most, f"at most {at_most}")
    print(f"{found:9.2f}  {'kept' if kept else 'MISSED'}, {limit}: {text}")


print_table()
print()
judge("start-up, times that of /bin/true",
      value("median_ms", "tool", "start-up", 0) / value("median_ms", "true", "start-up", 0), 3)
judge("1,000 widgets available, times that of the stock peer", value("to_peer", "tool", "available", 1000), 0.45)
judge("per widget available, the shell loop's 100 by the tool's 1,000",
      value("us_per_widget", "loop", "available", 100) / value("us_per_widget", "tool", "available", 1000), at_least=40)
for action in "start-up", "no change":
    judge(f"syncs, {action}", value("syncs", "tool", action, 0), 0)
for action in "available", "all-unavailable":
    for count in 1000, 10000:
        judge(f"{count:,} widgets {action}, times that of the floor", value("to_floor", "tool", action, count), 1.5)
    for who in "tool", "no --":
        for count in 10000, 100000:
            judge(f"{count:,} widgets {action}, {who}, times that of a tenth",
                  value("to_tenth", who, action, count), 10.5)
        judge(f"instructions for a widget {action}, {who}",
              value("instructions_per_widget", who, action, 1000), 150000)
    for count, syncs in (1, 2), (10, 2), (100, 2), (1000, 5):
        judge(f"syncs for {count:,} widgets {action}", value("syncs", "tool", action, count), syncs)
    judge(f"MiB at the peak, 10 widgets {action}", value("peak_kib", "tool", action, 10) / 1024, 9)
    judge(f"KiB at the peak for each further widget {action}",
          (value("peak_kib", "tool", action, 10000) - value("peak_kib", "tool", action, 10)) / 9990, 1)
    for count in 1000, 10000:
        judge(f"MiB of the database's log after {count:,} widgets {action}",
              value("log_file_kib", "tool", action, count) / 1024, 2)
