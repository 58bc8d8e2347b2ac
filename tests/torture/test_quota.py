"""A user whose quota is used up in mid-copy."""
import os
import pwd
import subprocess

import pytest

from outcome import Tree, complete, finished, start
from server import Client
from volumes import run, syncfs

pytestmark = pytest.mark.root

USER = "games"  # an account that every Debian has
QUOTA_EXCEEDED = 415


class OfTheUser:
    """ext4's quota for one user."""

    @staticmethod
    def make(make_volume):
        try:
            return make_volume("ext4", "dst", 64, ",usrquota", ["-O", "quota"])
        except AssertionError as reason:
            if str(reason).startswith("mount"):
                pytest.skip("this kernel's ext4 has no quota")
            raise

    @staticmethod
    def limit(volume, more):
        """At most `more` bytes beyond what is used; None: no limit."""
        syncfs(volume.folder)
        words = subprocess.run(["quota", "-u", USER, "-w", "-p", "-v"], capture_output=True,
                               text=True).stdout.split()
        used = int(words[-8].rstrip("*"))
        limit = 0 if more is None else max(1, used + more // 1024)
        run("setquota", "-u", USER, "0", str(limit), "0", "0", str(volume.folder))


class OfTheSubvolume:
    """btrfs's quota for a subvolume, whoever writes there."""

    @staticmethod
    def make(make_volume):
        volume = make_volume("btrfs", "dst", 256)
        run("btrfs", "quota", "enable", str(volume.folder))
        return volume

    @staticmethod
    def limit(volume, more):
        if more is None:
            limit = "none"
        else:
            shown = run("btrfs", "qgroup", "show", "--raw", "--sync", str(volume.folder))
            used = next(line for line in shown.splitlines() if line.startswith("0/5"))
            limit = str(int(used.split()[1]) + more)
        run("btrfs", "qgroup", "limit", limit, str(volume.folder))


def give(root, user):
    record = pwd.getpwnam(user)
    for folder, _, files in os.walk(root):
        for path in [folder, *(os.path.join(folder, name) for name in files)]:
            os.chown(path, record.pw_uid, record.pw_gid, follow_symlinks=False)


def client_of(make_server, place, shares):
    token = place / "token"
    token.write_text(f"{USER:x<32}\n")
    token.chmod(0o600)
    server = make_server(shares, f'[[token]]\nuser = "{USER}"\nfile = "{token}"\n')
    return Client(server.port, f"{USER:x<32}")


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("quota", [OfTheUser, OfTheSubvolume], ids=["ext4", "btrfs"])
def test_quota(make_volume, make_server, place, rounds, tally, quota, move):
    source = make_volume("folder", "src")
    target = quota.make(make_volume)
    client = client_of(make_server, place, {"src": source.folder, "dst": target.folder})
    for number, rng in rounds(3):
        told = f"round {number}"
        tree = Tree(source.folder / str(number), target.folder / str(number), rng)
        tree.parents[1].mkdir(exist_ok=True)
        for parent in tree.parents:
            give(parent, USER)
        paths = f"/src/{number}/t", f"/dst/{number}"
        quota.limit(target, rng.randrange(5 << 20))
        record = finished(client, start(client, *paths, move)[0])
        codes = {error["code"] for error in record["data"].get("errors", [])}
        tally["used up" if codes else "fitted"] += 1
        tree.check_nothing_lost(move, told)
        client.wait(record["id"])
        if codes:
            assert QUOTA_EXCEEDED in codes, f"{told}: {codes}"
        else:
            tree.check_done(move, told)
        quota.limit(target, None)
        complete(client, tree, *paths, move, told)
        tree.remove()
