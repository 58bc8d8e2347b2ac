"""Data to copy, always the same for the same seed, and the comparison of a copy with it."""
import filecmp
import math
import os
import pathlib
import random
import stat

SEED = 20260101
BLOCK = 1 << 20
SPARSE, SPARSE_SIZE, SPARSE_DATA = "sparse.bin", 4 << 30, 64 << 20


def make_tree(root, files=30000, mean=8192, seed=SEED):
    """A tree of small files, 100 in a folder: log-normal sizes of `mean` bytes on average."""
    dice = random.Random(seed)
    folders = max(1, files // 100)
    sigma = 1.5
    mu = math.log(mean) - sigma * sigma / 2
    noise = dice.randbytes(4 * BLOCK)
    root = pathlib.Path(root)
    places = []
    for number in range(folders):
        # Every third folder lies in an earlier one, so that the tree has some depth.
        parent = root if number % 3 or not places else dice.choice(places)
        place = parent / f"folder {number:03}"
        place.mkdir(parents=True)
        places.append(place)
    for number in range(files):
        size = min(int(dice.lognormvariate(mu, sigma)), len(noise) - 1)
        begin = dice.randrange(len(noise) - size)
        path = f"{places[number % folders]}/file-{number:05}.dat"
        with open(path, "wb", buffering=0) as file:
            file.write(noise[begin:begin + size])


def make_large(root, size=2 << 30, seed=SEED):
    """One file that cannot be compressed away."""
    block = random.Random(seed).randbytes(64 * BLOCK)
    os.makedirs(root)
    with open(f"{root}/large.bin", "wb", buffering=0) as file:
        left = size
        while left > 0:
            left -= file.write(block[:min(left, len(block))])


def make_sparse(root):
    """One file with a piece of data at the end of each of 64 equal stretches."""
    block = random.Random(SEED).randbytes(SPARSE_DATA // 64)
    os.makedirs(root)
    with open(f"{root}/{SPARSE}", "wb", buffering=0) as file:
        for number in range(1, 65):
            file.seek(SPARSE_SIZE // 64 * number - len(block))
            file.write(block)


def make_tiny(root, files, per_folder=1000):
    """Many files of a few bytes."""
    for number in range(files):
        folder = f"{root}/{number // per_folder:05}"
        if number % per_folder == 0:
            os.makedirs(folder)
        with open(f"{folder}/{number % per_folder:04}", "wb", buffering=0) as file:
            file.write(b"%d" % number)


def make_entries(root, count):
    """`count` small files side by side."""
    os.makedirs(root)
    for number in range(count):
        with open(f"{root}/entry-{number:05}", "wb", buffering=0) as file:
            file.write(b"%d" % number)


def count(root):
    """(files, folders, bytes) below `root`."""
    files = folders = size = 0
    pending = [root]
    while pending:
        with os.scandir(pending.pop()) as entries:
            for entry in entries:
                info = entry.stat(follow_symlinks=False)
                if stat.S_ISDIR(info.st_mode):
                    folders += 1
                    pending.append(entry.path)
                else:
                    files += 1
                    size += info.st_size
    return files, folders, size


def allocated(root):
    """Bytes in the blocks of the files below `root` that are not empty."""
    return sum(os.lstat(os.path.join(folder, name)).st_blocks * 512
               for folder, _, names in os.walk(root) for name in names)


class Different(RuntimeError):
    """A copy is not what it should be."""


def compare(source, copy):
    """Raises Different unless `copy` has the same names, kinds, sizes and contents as `source`."""
    filecmp.clear_cache()
    filecmp.BUFSIZE = BLOCK
    pending = [""]
    while pending:
        place = pending.pop()
        here, there = os.path.join(source, place), os.path.join(copy, place)
        names = sorted(os.listdir(here))
        if names != sorted(os.listdir(there)):
            raise Different(f"{there} does not hold the entries of {here}")
        for name in names:
            one, two = os.path.join(here, name), os.path.join(there, name)
            a, b = os.lstat(one), os.lstat(two)
            if stat.S_IFMT(a.st_mode) != stat.S_IFMT(b.st_mode):
                raise Different(f"{two} is of another kind than {one}")
            if stat.S_ISDIR(a.st_mode):
                pending.append(os.path.join(place, name))
            elif a.st_size != b.st_size or not filecmp.cmp(one, two, shallow=False):
                raise Different(f"{two} differs from {one}")


def extents(file):
    """[begin, end) of each piece of data between the holes."""
    found, end = [], 0
    while True:
        try:
            begin = os.lseek(file, end, os.SEEK_DATA)
        except OSError:
            return found  # only a hole is left
        end = os.lseek(file, begin, os.SEEK_HOLE)
        found.append((begin, end))


def read_extents(path):
    """What lies between the holes; brings it into the page cache."""
    with open(path, "rb", buffering=0) as file:
        return [(begin, os.pread(file.fileno(), end - begin, begin))
                for begin, end in extents(file.fileno())]


def compare_sparse(source, copy, blocks=True):
    """Raises Different unless size, data, holes and, with `blocks`, the number of blocks are the same."""
    for path in (source, copy):
        with open(path, "rb") as file:
            os.fsync(file.fileno())
    one, two = os.stat(source), os.stat(copy)
    if one.st_size != two.st_size or read_extents(source) != read_extents(copy):
        raise Different(f"{copy} differs from {source}")
    if blocks and one.st_blocks != two.st_blocks:
        raise Different(f"{copy} holds {two.st_blocks} blocks of 512 bytes, "
                        f"{source} {one.st_blocks}")
