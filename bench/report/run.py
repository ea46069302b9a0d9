#!/usr/bin/env python3
"""Runs oxbench for every case and writes results.json, performance.md and its charts.

  run.py SOURCE BUILD --tmpfs DIRECTORY --disk DIRECTORY --disk-is TEXT
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import cases  # noqa: E402
import charts  # noqa: E402
import machine  # noqa: E402
import render  # noqa: E402
import trace  # noqa: E402


def oxbench(build, *arguments):
    done = subprocess.run([os.path.join(build, "oxbench"), *arguments], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(done.stderr.strip())
    return json.loads(done.stdout)


def measure(build, case, directories):
    with tempfile.TemporaryDirectory(dir=directories[case["where"]]) as directory:
        results = oxbench(build, case["subject"], "--base", case["base"], "--directory", directory,
                          "--entries", str(case["entries"]), "--content", str(case["content"]),
                          "--operations", case["operations"])
    return [dict(result, where=case["where"]) for result in results]


def count(build, subject, entries, directory, chosen=None):
    """Heap and kernel allocations of each operation, and its system calls where strace works."""
    with tempfile.TemporaryDirectory(dir=directory) as scratch:
        # The bare interface has no replacing.
        chosen = chosen or (cases.ALL if subject in ("linux-host", "plain-host") else None)
        operations = ["--operations", chosen] if chosen else []
        arguments = [subject, "--count", "--directory", scratch, "--entries", str(entries), *operations]
        results = oxbench(build, *arguments)
    if shutil.which("strace") is None:
        return results
    with tempfile.TemporaryDirectory(dir=directory) as scratch:
        path = os.path.join(scratch, "trace")
        command = ["strace", "-f", "-o", path, os.path.join(build, "oxbench"), subject, "--count",
                   "--directory", scratch, "--entries", str(entries), *operations]
        if subprocess.run(command, capture_output=True).returncode != 0:
            return results
        calls = trace.count(path)
    return [dict(result, system_calls=calls[result["operation"]])
            if result["operation"] in calls else result for result in results]


def parts(build):
    done = subprocess.run([os.path.join(build, "oxbench_parts"), "--benchmark_format=json",
                           "--benchmark_repetitions=5", "--benchmark_min_time=0.05"],
                          capture_output=True, text=True, check=True)
    return {run["run_name"]: run["cpu_time"] for run in json.loads(done.stdout)["benchmarks"]
            if run.get("aggregate_name") == "median"}


def openings(build, directory):
    """Openings of large caches, beside a bare scan of the same directory."""
    results = []
    for entries, rounds in cases.LARGE:
        print(f"Opening {entries:,} entries ...", flush=True)
        with tempfile.TemporaryDirectory(dir=directory) as scratch:
            done = subprocess.run([os.path.join(build, "oxbench_scale"), "--directory", scratch,
                                   "--entries", str(entries), "--rounds", str(rounds)],
                                  capture_output=True, text=True, check=True)
        results.append(json.loads(done.stdout))
    return results


def threads(build, directory):
    """What a second thread adds to the fetches of the first."""
    with tempfile.TemporaryDirectory(dir=directory) as scratch:
        done = subprocess.run([os.path.join(build, "oxbench_threads"), "--directory", scratch],
                              capture_output=True, text=True, check=True)
    return json.loads(done.stdout)


def run_all(options):
    directories = {"tmpfs": options.tmpfs, "disk": options.disk}
    results = {"machine": machine.describe(options.source, {"tmpfs": options.tmpfs_is,
                                                            "disk": options.disk_is})}
    available = oxbench(options.build, "--list")
    planned = cases.cases(available)
    timings, failures = [], []
    start = time.monotonic()
    for number, case in enumerate(planned, 1):
        label = f"{case['subject']} {case['entries']} {case['where']}"
        print(f"[{number}/{len(planned)}] {time.monotonic() - start:4.0f} s  {label}", flush=True)
        try:
            timings += measure(options.build, case, directories)
        except RuntimeError as error:
            failures.append(f"{label}: {error}")
            print(f"  failed: {error}", file=sys.stderr)
    results["timings"] = timings
    print("Counting system calls and allocations ...", flush=True)
    results["counts"] = [one for subject in cases.counted(available)
                         for one in count(options.build, subject, 200, options.tmpfs)]
    # Which calls it needs depends on the file system.
    results["counts"] += count(options.build, "session-power", 200, options.disk, "store,replace")
    results["parts_ns"] = parts(options.build)
    results["threads"] = threads(options.build, options.tmpfs)
    results["openings"] = openings(options.build, options.tmpfs)
    results["failures"] = failures
    results["seconds"] = round(time.monotonic() - start)
    results["machine"]["Load after the run"] = " ".join(f"{load:.2f}" for load in os.getloadavg())
    return results


def main():
    parser = argparse.ArgumentParser(description="Runs the benchmarks and writes the report.")
    parser.add_argument("source")
    parser.add_argument("build")
    parser.add_argument("--tmpfs", required=True, help="a directory in memory")
    parser.add_argument("--tmpfs-is", default="tmpfs", help="its description")
    parser.add_argument("--disk", required=True, help="a directory on a disk")
    parser.add_argument("--disk-is", default="disk", help="its description")
    parser.add_argument("--render", action="store_true", help="only write the report again")
    options = parser.parse_args()

    raw = os.path.join(options.build, "results.json")
    if not options.render:
        with open(raw, "w", encoding="utf-8") as file:
            json.dump(run_all(options), file, indent=1)
    with open(raw, encoding="utf-8") as file:
        results = json.load(file)
    template = os.path.join(options.source, "bench", "report", "performance.md.in")
    with open(template, encoding="utf-8") as file:
        text = render.render(file.read(), results)
    with open(os.path.join(options.build, "performance.md"), "w", encoding="utf-8") as file:
        file.write(text)
    charts.write(text, os.path.join(options.build, "charts"))
    print(f"{options.build}/performance.md, results.json and the charts are written.")
    return 1 if results["failures"] else 0


if __name__ == "__main__":
    sys.exit(main())
