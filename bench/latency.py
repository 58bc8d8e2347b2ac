"""How long single requests take."""
import os
import tempfile
import time

import report
import stack

# Slow enough that a task outlives all questions about it.
SLOW = '[bandwidth]\ndefault = "64kB"\n'


def timed(call):
    begin = time.perf_counter()
    result = call()
    return time.perf_counter() - begin, result


def measure_start(folder, requests):
    """Starts of a small copy, each waited for before the next."""
    times = []
    with stack.server({"in": f"{folder}/in", "out": f"{folder}/out"}) as client:
        for _ in range(requests):
            seconds, task = timed(lambda: client.start(["/in/small"], "/out", overwrite=True))
            client.wait(task)
            times.append(seconds)
    return times


def measure_status(folder, requests):
    """Questions about one running task, and calls that only show who asks."""
    with stack.server({"in": f"{folder}/in", "out": f"{folder}/out"}, SLOW) as client:
        task = client.start(["/in/big"], "/out")
        status = [timed(lambda: client.call("status", taskid=task)) for _ in range(requests)]
        if any(answer["finished"] for _, answer in status):
            raise stack.Refused("the task ended while it was asked about")
        client.call("stop", taskid=task)
        whoami = [timed(lambda: client.host("whoami"))[0] for _ in range(requests)]
    return [seconds for seconds, _ in status], whoami


def run(arguments):
    with tempfile.TemporaryDirectory(prefix="fennox-bench-", dir=arguments.backing) as folder:
        os.mkdir(f"{folder}/in")
        os.mkdir(f"{folder}/out")
        with open(f"{folder}/in/small", "wb") as file:
            file.write(b"x" * 1000)
        with open(f"{folder}/in/big", "wb") as file:
            file.write(b"x" * (64 << 20))
        start = measure_start(folder, arguments.requests)
        status, whoami = measure_status(folder, arguments.requests)
    groups = {"one kept connection": {"start": start, "status": status, "whoami": whoami}}
    result = report.result("latency", {"requests": arguments.requests}, groups, [])
    for row in result["rows"]:
        row["p50"] = report.percentile(row["seconds"], 0.50)
        row["p99"] = report.percentile(row["seconds"], 0.99)
    return result


def table(result):
    report.heading(result)
    print(f"\n    {'':8}  {'p50':>9}  {'p99':>9}  {'max':>9}")
    for row in result["rows"]:
        print(f"    {row['program']:8}  {row['p50'] * 1000:6.2f} ms  {row['p99'] * 1000:6.2f} ms  "
              f"{max(row['seconds']) * 1000:6.2f} ms")
