"""The acts of the demo; tools/demo builds the tool and calls this in a private /opt."""

import shlex
import sys
from pathlib import Path
from textwrap import indent

from device import APPS, STICK, Device

device = Device(sys.argv[1:])
COLOUR = sys.stdout.isatty()


def title(text):
    print(f"\n\033[1m{text}\033[0m" if COLOUR else f"\n== {text} ==")


def show_device():
    print("\n  In the database:")
    for name, available, usb, path in device.sql(
            "SELECT kx_app_id, available, installed_on_usb, external_storage_path FROM widget ORDER BY handle"):
        state = "available" if available else "-"
        print(f"    {name:8} {state:10} {'on USB' if usb else 'local':7} {'(no path yet)' if path is None else repr(path)}")
    print(f"  Under {APPS}:")
    for folder in sorted(APPS.iterdir()):
        name = folder.name.removesuffix("_img")
        links = device.links(name)
        print(f"    {folder.name}/" + ("" if links else "  (empty)"))
        for file, link in sorted(links.items()):
            print(f"      {file:15} " + (f"-> {link.target}  label {link.label}" if link else "a file of the widget's own"))


def call(*words):
    print("\n  $ zelmar-frontend " + " ".join(map(shlex.quote, words)))
    run = device.run(*words)
    print(indent((run.out + run.err).rstrip("\n"), "  "))
    print(f"  (status {run.status})")


def show_log():
    print("\n  As /dev/log received it:")
    print(indent("\n".join(device.log.received), "    "))


title("A television with five widgets, and a stick at " + str(STICK))
device.widget("chess").widget("radio", files=["image"]).widget("clock", usb=False).widget("atlas")
(device.place("atlas") / "config.xml").write_text("real")
print("""
  chess  on USB, all its files on the stick
  radio  on USB, only its image there
  clock  on local storage
  ghost  not installed
  atlas  on USB, but a real file stands where a link belongs""")
show_device()

title("The stick is plugged in")
call("--make-available", "--path", str(STICK), "chess", "radio", "clock", "ghost", "atlas")
show_device()
show_log()

title("The stick is pulled")
STICK.rename("/opt/pulled")
call("--make-all-unavailable")
show_device()
show_log()

title("It is back, for one widget by name")
Path("/opt/pulled").rename(STICK)
call("--make-available", "--path", str(STICK), "chess")
show_device()
call("--make-unavailable", "chess")
show_device()

title("No action, no change: what the tool offers")
call("--help")
