"""Describes the machine and the versions that the figures belong to."""
import datetime
import os
import platform
import re
import subprocess


def first_line(*command):
    try:
        done = subprocess.run(command, capture_output=True, text=True, check=True)
    except (OSError, subprocess.CalledProcessError):
        return ""
    return done.stdout.strip().split("\n")[0]


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        text = info.read()
    for key in ("model name", "Model", "Hardware"):
        if found := re.search(rf"^{key}\s*:\s*(.*)$", text, re.M):
            return found.group(1)
    return platform.machine()


def distribution():
    with open("/etc/os-release", encoding="utf-8") as release:
        return re.search(r'^PRETTY_NAME="?([^"\n]*)', release.read(), re.M).group(1)


def version(package):
    return first_line("dpkg-query", "-W", "-f", "${Version}", package) or "unknown"


def describe(source, places):
    packages = {"SQLite": "libsqlite3-dev", "LMDB": "liblmdb-dev", "LevelDB": "libleveldb-dev",
                "Qt": "qtbase5-dev", "Nettle": "nettle-dev"}
    facts = {
        "Date": datetime.date.today().isoformat(),
        "Commit": first_line("git", "-C", source, "rev-parse", "--short=12", "HEAD"),
        "Processor": f"{processor()}, {os.cpu_count()} logical",
        "Memory": f"{os.sysconf('SC_PAGE_SIZE') * os.sysconf('SC_PHYS_PAGES') >> 20} MiB",
        "System": f"{distribution()}, Linux {platform.release()}, {platform.machine()}",
        "Compiler": first_line("c++", "--version") + ", Release",
        "Load before the run": " ".join(f"{load:.2f}" for load in os.getloadavg()),
    }
    for where, place in places.items():
        facts[f"“{where}”"] = place
    facts["Libraries"] = ", ".join(f"{name} {version(package)}" for name, package in packages.items())
    return facts
