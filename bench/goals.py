# SPDX-License-Identifier: Apache-2.0
"""Prints a table of tools/bench, and whether the tool keeps its goals; fails if a count misses one, not for a time."""

import csv
import sys

with open(sys.argv[1], newline="") as results:
    ROWS = list(csv.DictReader(results))


def print_table():
    lines = [list(ROWS[0]), *(row.values() for row in ROWS)]
    widths = [max(map(len, column)) for column in zip(*lines)]
    for line in lines:
        print("  ".join(cell.rjust(width) for cell, width in zip(line, widths)))


def figure(name, who, action, widgets):
    key = {"file_system": "tmpfs", "action": action, "widgets": str(widgets), "contestant": who}
    return float(next((row[name] for row in ROWS if key.items() <= row.items()), "nan"))


def keeps(text, found, at_most):
    kept = found <= at_most
    print(f"{found:12,.2f}  {'kept' if kept else 'MISSED'}, at most {at_most:,}: {text}")
    return kept


print_table()
print()
kept = True
most = max(int(row["widgets"]) for row in ROWS if row["contestant"] == "tool")
for action, calls, instructions in ("available", 79, 135000), ("all-unavailable", 56, 110000):
    for name, at_most in ("system_calls", calls), ("instructions", instructions):
        found = figure(name, "tool", action, 1000)
        title = f"{name.replace('_', ' ')} a widget, {action}"
        kept &= keeps(f"{title}, of 1,000 widgets", found, at_most)
        # A tenfold number makes the tree of the database a little deeper; what is quadratic grows tenfold.
        growth = figure(name, "tool", action, most) / figure(name, "tool", action, most // 10)
        kept &= keeps(f"{title}, of {most:,} widgets by those of {most // 10:,}", growth, 1.1)
    written = [figure("bytes_written", who, action, 1000) for who in ("tool", "floor")]
    kept &= keeps(f"bytes written a widget, {action}, by those of the floor", written[0] / written[1], 1)
    for count in 1, 100:
        kept &= keeps(f"syncs in a run, {action}, {count} widgets", figure("syncs", "tool", action, count), 3)
if any(row["contestant"] == "peer" for row in ROWS):  # for root only
    keeps("1,000 widgets available, median of the times by those of the peer",
          figure("median", "peer", "available", 1000), 0.45)
sys.exit(not kept)
