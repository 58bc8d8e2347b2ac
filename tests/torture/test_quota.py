"""A user whose quota is used up in mid-copy."""
import os
import pwd
import subprocess

import pytest

from accounts import ALICE as USER, token_of
from outcome import Round
from server import Client
from volumes import run, syncfs

pytestmark = pytest.mark.root

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


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("quota", [OfTheUser, OfTheSubvolume], ids=["ext4", "btrfs"])
def test_quota(make_volume, make_server, place, rounds, tally, quota, move):
    shares = {"src": make_volume("folder", "src").folder}
    target = quota.make(make_volume)
    shares["dst"] = target.folder
    token, table = token_of(place, USER)
    client = Client(make_server(shares, table).port, token)
    for number, rng in rounds(3):
        this = Round(client, shares, number, rng, move)
        for folder in (this.source, this.target):
            give(folder, USER)
        quota.limit(target, rng.randrange(5 << 20))
        codes = {error["code"] for error in this.end()["data"].get("errors", [])}
        tally["used up" if codes else "fitted"] += 1
        this.check_nothing_lost()
        if codes:
            assert QUOTA_EXCEEDED in codes, f"{this.told}: {codes}"
        else:
            this.tree.check_done(move, this.told)
        quota.limit(target, None)
        this.complete()
