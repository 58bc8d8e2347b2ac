"""How long single requests take, from one client and from several at once."""
import base64
import contextlib
import json
import os
import secrets
import signal
import subprocess
import tempfile
import time

import clients
import peers
import report
import stack

# Slow enough that a task outlives all questions about it.
SLOW = '[bandwidth]\ndefault = "64kB"\n'
CLIENTS = 4
ONE, SEVERAL = "one kept connection", f"{CLIENTS} clients at once"
RCLONE = "rclone rcd job/status"
TARGETS = {(ONE, "start"): (5, 20), (SEVERAL, "status"): (2, 10)}  # p50, p99 in milliseconds


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


@contextlib.contextmanager
def long_task(folder):
    """(client, task): a copy that runs until the block ends."""
    with stack.server({"in": f"{folder}/in", "out": f"{folder}/out"}, SLOW) as client:
        task = client.start(["/in/big"], "/out")
        yield client, task
        client.call("stop", taskid=task)


def measure_status(folder, requests):
    """Questions about one running task, and calls that only show who asks."""
    with long_task(folder) as (client, task):
        status = [timed(lambda: client.call("status", taskid=task)) for _ in range(requests)]
        if any(answer["finished"] for _, answer in status):
            raise stack.Refused("the task ended while it was asked about")
        whoami = [timed(lambda: client.host("whoami"))[0] for _ in range(requests)]
    return [seconds for seconds, _ in status], whoami


def measure_status_together(folder, requests):
    with long_task(folder) as (client, task):
        request = client.post("status", taskid=task)
        return clients.together(CLIENTS, client.port, request, requests // CLIENTS,
                                b'"finished":false')


@contextlib.contextmanager
def rclone_server(bandwidth):
    """(port, authorization) of a throw-away `rclone rcd`."""
    port, password = peers.free_port(), secrets.token_hex(16)
    environment = dict(os.environ, RCLONE_CONFIG="/dev/null", RCLONE_RC_USER="bench",
                       RCLONE_RC_PASS=password, RCLONE_BWLIMIT=bandwidth)
    process = subprocess.Popen(["rclone", "rcd", "--rc-addr", f"127.0.0.1:{port}"],
                               env=environment, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        peers.wait_for_port(port, process)
        yield port, "Basic " + base64.b64encode(f"bench:{password}".encode()).decode()
    finally:
        process.send_signal(signal.SIGKILL)
        process.wait()


def measure_rclone(folder, requests):
    with rclone_server("64k") as (port, authorization):
        def ask(path, **params):
            return json.loads(clients.Connection(port).ask(clients.post(
                port, path, json.dumps(params), authorization))[1])

        job = ask("/sync/copy", srcFs=f"{folder}/in", dstFs=f"{folder}/rclone", _async=True)
        request = clients.post(port, "/job/status", json.dumps({"jobid": job["jobid"]}),
                               authorization)
        return clients.together(CLIENTS, port, request, requests // CLIENTS, b'"finished":false')


def run(arguments):
    groups = {ONE: {}, SEVERAL: {}}
    with tempfile.TemporaryDirectory(prefix="fennox-bench-", dir=arguments.backing) as folder:
        os.mkdir(f"{folder}/in")
        os.mkdir(f"{folder}/out")
        with open(f"{folder}/in/small", "wb") as file:
            file.write(b"x" * 1000)
        with open(f"{folder}/in/big", "wb") as file:
            file.write(b"x" * (64 << 20))
        groups[SEVERAL]["status"] = measure_status_together(folder, arguments.requests)
        if peers.available(["rclone rcd"]):
            groups[SEVERAL][RCLONE] = measure_rclone(folder, arguments.requests)
        groups[ONE]["status"], groups[ONE]["whoami"] = measure_status(
            folder, max(1, arguments.requests // 10))
        groups[ONE]["start"] = measure_start(folder, arguments.requests)
    result = report.result("latency", {"requests": arguments.requests}, groups, ["rclone rcd"])
    for row in result["rows"]:
        row["p50"] = report.percentile(row["seconds"], 0.50)
        row["p99"] = report.percentile(row["seconds"], 0.99)
        row["requests"] = len(row["seconds"])
        row["max"] = max(row.pop("seconds"))
        for name, limit in zip(("p50", "p99"), TARGETS.get((row["group"], row["program"]), ())):
            report.check(result, f"\"{row['program']}\" answered, {row['group']}, "
                         f"{row['requests']} requests: {name}", row[name] * 1000, limit, "ms")
    return result


def table(result):
    report.heading(result)
    width = max(len(row["program"]) for row in result["rows"])
    group = None
    for row in result["rows"]:
        if row["group"] != group:
            group = row["group"]
            print(f"\n  {group}\n    {'':{width}}  {'p50':>9}  {'p99':>9}  {'max':>9}")
        print(f"    {row['program']:{width}}  {row['p50'] * 1000:6.2f} ms  "
              f"{row['p99'] * 1000:6.2f} ms  {row['max'] * 1000:6.2f} ms")
