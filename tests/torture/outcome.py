"""What must hold for a tree after its copy or move was broken off."""
import os
import shutil
import time

from trees import describe, leftovers, make_tree

DIED = 480
SAME = ("mode", "data", "target", "mtime", "xattrs")
OLD_TIME = (1_300_000_000_000_000_000, 1_300_000_000_000_000_000)


def is_entry(entry):
    return entry is not None and ("data" in entry or "target" in entry)


def same(found, wanted):
    return is_entry(found) and is_entry(wanted) and all(
        found.get(key) == wanted.get(key) for key in SAME)


def visible(root):
    """Files and links under their final names."""
    return {name: entry for name, entry in describe(str(root)).items()
            if is_entry(entry) and not any(p.startswith(".fennox-") for p in name.split(os.sep))}


class Tree:
    """A source tree `t` with its destination, some of whose files will be overwritten."""

    def __init__(self, source, target, rng, files=150, megabytes=4):
        self.source, self.target = source / "t", target / "t"
        self.parents = (source, target)
        make_tree(self.source, files, rng.randrange(1 << 30))
        for number in range(megabytes):
            (self.source / f"d{number}" / "big").write_bytes(rng.randbytes(1 << 20))
        self.new = visible(self.source)
        self.merged = rng.random() < 0.5
        if self.merged:
            self.make_old(rng)
        self.old = visible(self.target)

    def make_old(self, rng):
        # Every folder exists, so that all files go straight into seen ones.
        for folder, _, _ in os.walk(self.source):
            (self.target / os.path.relpath(folder, self.source)).mkdir(parents=True, exist_ok=True)
        names = sorted(name for name, entry in self.new.items() if "data" in entry)
        for name in rng.sample(names, len(names) // 3) + ["d0/only here", "d16/only here"]:
            path = self.target / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(b"old content of " + os.fsencode(name) * rng.randrange(1, 200))
            os.utime(path, ns=OLD_TIME)

    def remove(self):
        for parent in self.parents:
            shutil.rmtree(parent)

    def check_sources(self, move, told=""):
        """Every file of the source is whole there, or, in a move, at the destination."""
        here, there = visible(self.source), visible(self.target)
        for name, entry in self.new.items():
            kept = same(here.get(name), entry)
            assert kept or (move and same(there.get(name), entry)), f"{told}: lost {name!r}"

    def torn(self):
        """Final names at the destination with neither the old nor the new file behind them."""
        there = visible(self.target)
        found = {name: brief(entry) for name, entry in there.items()
                 if not same(entry, self.new.get(name)) and not same(entry, self.old.get(name))}
        found.update({name: "gone" for name in self.old if name not in there})
        return found

    def check_nothing_lost(self, move, told=""):
        self.check_sources(move, told)
        assert self.torn() == {}, told

    def check_done(self, move, told=""):
        there = visible(self.target)
        for name, entry in self.new.items():
            assert same(there.get(name), entry), f"{told}: {name!r} is {brief(there.get(name))}"
        assert set(there) == set(self.new) | set(self.old), told
        if move:
            assert not self.source.exists(), f"{told}: left {sorted(visible(self.source))}"
        else:
            here = visible(self.source)
            assert set(here) == set(self.new) and all(same(here[n], e) for n, e in self.new.items())
        self.check_no_leftovers(told)

    def check_no_leftovers(self, told=""):
        left = [name for parent in self.parents for name in leftovers(parent)]
        assert left == [], f"{told}: left {left}"


def brief(entry):
    if entry is None:
        return "missing"
    return {key: value if key != "data" else f"{len(value)} bytes {value[:20]!r}"
            for key, value in entry.items()}


def start(client, source, target, move):
    """The task's id and its worker."""
    task = client.start([source], target, remove_src=move, overwrite=True).data["taskid"]
    record = client.wait_record(task, lambda r: r["finished"] or (r["data"] or {}).get("pid"))
    return task, record["data"]["pid"]


def finished(client, task, seconds=60):
    """The raw record of a task that has ended."""
    return client.wait_record(task, lambda r: r["finished"], seconds)


class Round:
    """A tree in the shares "src" and "dst", and the tasks that carry it."""

    def __init__(self, client, shares, name, rng, move, *shape):
        self.client, self.move, self.told = client, move, f"round {name}"
        self.source, self.target = shares["src"] / f"a{name}", shares["dst"] / f"b{name}"
        self.target.mkdir()
        self.tree = Tree(self.source, self.target, rng, *shape)
        self.paths = f"/src/a{name}/t", f"/dst/b{name}"

    def start(self):
        return start(self.client, *self.paths, self.move)

    def end(self, task=None):
        """The record of the task, of a new one without it, once it has ended; it is dropped."""
        record = finished(self.client, task or self.start()[0])
        self.client.wait(record["id"])
        return record

    def seconds(self):
        """How long a task lives that nobody disturbs."""
        begin = time.monotonic()
        assert self.end()["progress"] == 1, self.told
        taken = time.monotonic() - begin
        self.tree.check_done(self.move, self.told)
        self.tree.remove()
        return taken

    def check_nothing_lost(self):
        self.tree.check_nothing_lost(self.move, self.told)

    def check_after_cut(self, tally):
        """No source is lost, and what was overwritten is old or new. New names may be empty: they
        are not synced yet, and their sources are still there."""
        self.tree.check_sources(self.move, self.told)
        torn = self.tree.torn()
        tally["unsynced new names"] += sum(name not in self.tree.old for name in torn)
        assert [name for name in torn if name in self.tree.old] == [], self.told

    def complete(self):
        """A second run, which must put everything right."""
        if self.tree.source.exists():
            data = self.client.run([self.paths[0]], self.paths[1], remove_src=self.move, overwrite=True)
            assert not data.get("errors"), f"{self.told}: {data['errors']}"
        self.tree.check_done(self.move, self.told)
        self.tree.remove()


def pause_until(moment):
    while time.monotonic() < moment:
        time.sleep(min(0.001, max(0.0, moment - time.monotonic())))
