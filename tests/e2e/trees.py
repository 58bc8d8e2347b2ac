"""Folders to copy, and what makes two of them the same."""
import os
import pathlib
import random
import stat


def make_tree(root, files=200, seed=1):
    """A tree with all that must survive: hidden names, links, holes, times, attributes."""
    rng = random.Random(seed)
    root.mkdir(parents=True)
    for i in range(files):
        folder = root / f"d{i % 17}" / f"e{i % 3}"
        folder.mkdir(parents=True, exist_ok=True)
        file = folder / f"f{i}"
        file.write_bytes(rng.randbytes(min(60000, int(rng.lognormvariate(7, 1.5)))))
        os.utime(file, ns=(1_600_000_000_123_456_789 + i, 1_500_000_000_987_654_321 + i))
    (root / ".hidden").write_text("kept")
    (root / "empty folder").mkdir()
    (root / "empty").write_bytes(b"")
    (root / "link").symlink_to("d0/e0/f0")
    (root / "dangling").symlink_to("../nowhere")
    os.link(root / "d0/e0/f0", root / "second name")
    (root / "script").write_text("#!/bin/sh\n")
    (root / "script").chmod(0o750)
    with open(root / "sparse", "wb") as sparse:
        sparse.seek(8 << 20)
        sparse.write(b"end")
    for name in ["a b", "quote'\"", "back\\slash", "tab\tline\nfeed", "ünï,cödé", "<img src=x>"]:
        (root / name).write_text(name)
    (pathlib.Path(os.fsdecode(os.fsencode(root) + b"/latin\xe9"))).write_text("not UTF-8")
    try:
        os.setxattr(root / "script", "user.note", b"kept")
    except OSError:
        pass
    os.utime(root / "d1", ns=(1_600_000_000_000_000_001, 1_400_000_000_000_000_001))
    return root


def describe(root, times=True):
    """Everything a copy must keep, by relative path."""
    found = {}
    first_name = {}
    for folder, folders, files in os.walk(root):
        for name in folders + files + [""]:
            path = os.path.join(folder, name) if name else folder
            info = os.lstat(path)
            relative = os.path.relpath(path, root)
            entry = {"mode": stat.filemode(info.st_mode), "owner": (info.st_uid, info.st_gid)}
            if stat.S_ISREG(info.st_mode):
                with open(path, "rb") as file:
                    entry["data"] = file.read()
                entry["link"] = first_name.setdefault(info.st_ino, relative) if info.st_nlink > 1 else ""
            if stat.S_ISLNK(info.st_mode):
                entry["target"] = os.readlink(path)
            else:
                entry["xattrs"] = {n: os.getxattr(path, n) for n in os.listxattr(path)}
            if times:
                entry["mtime"] = info.st_mtime_ns
            found[relative] = entry
    return found


def assert_same(copy, original_description):
    """Names first, so that a difference is readable."""
    copied = describe(copy)
    assert copied.keys() == original_description.keys()
    # Which of two hard-linked names is met first may differ; that they are linked may not.
    for name, entry in original_description.items():
        ours = dict(copied[name])
        theirs = dict(entry)
        assert bool(ours.pop("link", "")) == bool(theirs.pop("link", "")), name
        assert ours == theirs, name


def leftovers(root):
    """Temporary names of the copier below a folder."""
    return [os.path.join(folder, name) for folder, folders, files in os.walk(root)
            for name in folders + files if name.startswith(".fennox-")]
