"""Results as a table and as JSON."""
import datetime
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys

import peers


def machine():
    model = "unknown"
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
    return {"cpu": model, "cores": len(os.sched_getaffinity(0)), "kernel": platform.release(),
            "memory_bytes": memory, "load_average": os.getloadavg()}


def revision():
    done = subprocess.run(["git", "-C", peers.ROOT, "describe", "--always", "--dirty"],
                          capture_output=True, text=True)
    return done.stdout.strip() or "unknown"


def versions(names):
    result = {"fennox": revision()}
    result.update((name, peers.version(name)) for name in names if peers.installed(name))
    return result


def percentile(values, share):
    """The smallest value that at least `share` of all do not exceed."""
    ordered = sorted(values)
    return ordered[max(0, -(-int(share * 1000) * len(ordered) // 1000) - 1)]


def result(benchmark, parameters, groups, names, bases=("cp -a",)):
    """`groups`: {title: {program: [seconds, …]}}. Ratios are to the group's program in `bases`."""
    rows = []
    for title, programs in groups.items():
        base = next((name for name in programs if name in bases), None)
        for program, seconds in programs.items():
            median = statistics.median(seconds)
            ratio = median / statistics.median(programs[base]) if base else None
            rows.append({"group": title, "program": program, "seconds": seconds, "median": median,
                         "base": base, "ratio": ratio})
    return {"benchmark": benchmark, "time": datetime.datetime.now().astimezone().isoformat(),
            "command": " ".join(sys.argv), "parameters": parameters, "machine": machine(),
            "versions": versions(names), "rows": rows}


def median_of(result, group, program):
    return next(row["median"] for row in result["rows"]
                if row["group"] == group and row["program"] == program)


def check(result, what, value, limit, unit="", at_least=False):
    """Holds a figure of the result against its target. NaN meets none."""
    met = value >= limit if at_least else value <= limit
    result.setdefault("checks", []).append(
        {"what": what, "value": value, "limit": limit, "unit": unit, "at_least": at_least,
         "met": met})


def figure(value, unit):
    digits = 2 if not unit or value < 10 else 1
    return f"{value:.{digits}f}{' ' + unit if unit else ''}"


def target(check):
    return f"{'at least' if check['at_least'] else 'at most'} {check['limit']:g} {check['unit']}".strip()


def verdicts(result):
    """Prints what was met and what was missed; whether all was met."""
    checks = result.get("checks", [])
    if checks:
        print()
    for one in checks:
        print(f"  {'met   ' if one['met'] else 'MISSED'}  {one['what']}: "
              f"{figure(one['value'], one['unit'])}, target {target(one)}")
    return all(one["met"] for one in checks)


def heading(report):
    facts = report["machine"]
    print(f"{report['benchmark']}: {facts['cpu']}, {facts['cores']} cores, kernel "
          f"{facts['kernel']}, load {facts['load_average'][0]:.2f}")
    print("  " + ", ".join(f"{key} {value}" for key, value in report["parameters"].items()))


def table(report):
    heading(report)
    width = max(len(row["program"]) for row in report["rows"])
    group = None
    for row in report["rows"]:
        if row["group"] != group:
            group = row["group"]
            print(f"\n  {group} (ratio to {row['base']})")
            print(f"    {'':{width}}  {'median':>10}  {'ratio':>6}  min … max")
        ratio = f"{row['ratio']:6.2f}" if row["ratio"] else " " * 6
        low, high = min(row["seconds"]), max(row["seconds"])
        print(f"    {row['program']:{width}}  {row['median'] * 1000:7.1f} ms  {ratio}  "
              f"{low * 1000:.1f} … {high * 1000:.1f}")


def save(report, path):
    if path:
        pathlib.Path(path).write_text(json.dumps(report, indent=2) + "\n", encoding="utf-8")
