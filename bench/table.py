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
    return float(next((row[column] for row in ROWS if key.items() <= row.items()), "nan"))


def least(who, action, widgets):
    return value("min_ms", who, action, widgets)


def judge(text, found, at_most=None, at_least=None):
    if math.isnan(found):
        return  # This run did not measure it.
    kept, limit = (found <= at_most, f"at most {at_most}") if at_most else (found >= at_least, f"at least {at_least}")
    print(f"{found:8.2f}  {'kept' if kept else 'MISSED'}, {limit}: {text}")


print_table()
print()
judge("start-up, times that of /bin/true", least("tool", "start-up", 0) / least("true", "start-up", 0), 3)
judge("1,000 widgets available, times that of the stock peer",
      least("tool", "available", 1000) / least("peer", "available", 1000), 0.5)
judge("per widget available, the shell loop's 100 by the tool's 1,000",
      least("loop", "available", 100) * 10 / least("tool", "available", 1000), at_least=40)
for action in "available", "all-unavailable":
    judge(f"1,000 widgets {action}, times that of the floor", value("to_floor", "tool", action, 1000), 1.35)
    judge(f"10,000 widgets {action}, times that of 1,000",
          least("tool", action, 10000) / least("tool", action, 1000), 10.5)
    judge(f"syncs for 1,000 widgets {action}", value("syncs", "tool", action, 1000), 6)
    judge(f"MiB at the peak, 10 widgets {action}", value("peak_kib", "tool", action, 10) / 1024, 9)
    judge(f"KiB at the peak for each further widget {action}",
          (value("peak_kib", "tool", action, 10000) - value("peak_kib", "tool", action, 10)) / 9990, 1)
    judge(f"MiB of the database's log, 10,000 widgets {action}", value("log_file_kib", "tool", action, 10000) / 1024, 8)
judge("100,000 widgets all-unavailable, times that of 10,000",
      least("tool", "all-unavailable", 100000) / least("tool", "all-unavailable", 10000), 10.5)
