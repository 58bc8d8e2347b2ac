"""The whole table of targets, each row measured by its own command."""
import json
import pathlib
import time

import report

# In the order of the table.
ROWS = [
    "tree", "tree --fs xfs", "tree --two-fs", "tree --two-fs --fs xfs",
    "tree --two-fs --cold", "tree --two-fs --cold --fs xfs",
    "scale --rounds 3", "scale --rounds 3 --fs xfs",
    "large", "large --fs xfs",
    "sparse", "sparse --fs xfs",
    "reflink",
    "move", "move --fs xfs",
    "rename", "rename --fs xfs",
    "latency",
    "count", "count --fs xfs", "count --cold --rounds 3", "count --cold --rounds 3 --fs xfs",
]


def trial(arguments):
    """What the caller set, for every row."""
    words = ["--backing", arguments.backing, "--disk", arguments.disk]
    for name in arguments.without:
        words += ["--without", name]
    return words


def failed(row, reason):
    return {"benchmark": row, "rows": [],
            "checks": [{"what": f"`bench/run {row}` failed: {reason}", "value": float("nan"),
                        "limit": 0, "unit": "", "at_least": False, "met": False}]}


def run(arguments, parse, one):
    """Whether all targets were met. Rows run one after the other; one that fails stops no other."""
    results = []
    for row in ROWS:
        if arguments.only and row.split()[0] not in arguments.only:
            continue
        print(f"\n== bench/run {row} ({time.strftime('%H:%M:%S')})", flush=True)
        begin, done = time.monotonic(), []
        try:
            one(parse(row.split() + trial(arguments)), done)
        except (RuntimeError, OSError, ValueError) as reason:
            print(f"failed: {reason}")
            done = [failed(row, reason)]
        done[0]["row_command"] = f"bench/run {row}"
        print(f"\n  took {time.monotonic() - begin:.0f} s", flush=True)
        results += done
        if arguments.json:
            pathlib.Path(arguments.json).write_text(json.dumps(results, indent=2) + "\n",
                                                    encoding="utf-8")
    markdown(results)
    return all(check["met"] for result in results for check in result.get("checks", []))


def markdown(results):
    print("\n| what | command | measured | target | |\n|---|---|---|---|---|")
    for result in results:
        for check in result.get("checks", []):
            print(f"| {check['what']} | `{result['row_command']}` | "
                  f"{report.figure(check['value'], check['unit'])} | {report.target(check)} | "
                  f"{'met' if check['met'] else '**missed**'} |")
