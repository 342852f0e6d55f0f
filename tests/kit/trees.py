"""Random work on random trees, what differs between two looks at a tree, and what a rehearsal says.

    trees.py TREE SEED COUNT     does so many random things to a tree, and prints what each met
"""

import json
import os
import pathlib
import random
import socket
import stat
import sys

NAMES = ["a", "b", "c d", "e:f", "g,h", "i\\j", "k\nl", "-m", "n\udcff", "o=p", "\u00e9"]


def entries(top):
    """Every path below a directory, sorted; links are not followed."""
    found = []
    for here, directories, files in os.walk(top):
        found += [os.path.join(here, name) for name in directories + files]
        directories[:] = [name for name in directories
                          if not os.path.islink(os.path.join(here, name))]
    return sorted(found)


def remove_tree(top):
    """In an order that is the same on every file system."""
    for path in reversed(entries(top)):
        (os.rmdir if os.path.isdir(path) and not os.path.islink(path) else os.unlink)(path)
    os.rmdir(top)


def content(path):
    with open(os.open(path, os.O_RDONLY | os.O_NONBLOCK), "rb") as file:
        return file.read()


def face(path):
    """What two entries must have in common to be the same."""
    info = os.lstat(path)
    kind = stat.S_IFMT(info.st_mode)
    return (kind, stat.S_IMODE(info.st_mode), info.st_uid, info.st_gid,
            content(path) if kind == stat.S_IFREG else None,
            os.readlink(path) if kind == stat.S_IFLNK else None, info.st_rdev)


def snapshot(top, look=face):
    return {path: look(path) for path in entries(top)}


def times(path):
    info = os.lstat(path)
    return face(path), info.st_ino, info.st_nlink, info.st_mtime_ns, info.st_ctime_ns


class Work:
    """Random things done to a tree. The same seed on the same tree does the same things."""

    def __init__(self, top, seed):
        self.top, self.chance, self.root = top, random.Random(seed), os.getuid() == 0

    def any(self):
        return self.chance.choice(entries(self.top) or [os.path.join(self.top, "none")])

    def directory(self):
        there = [path for path in entries(self.top) if os.path.isdir(path)]
        return self.chance.choice(there + [self.top])

    def new(self):
        return os.path.join(self.directory(), self.chance.choice(NAMES))

    def write(self, flags=os.O_TRUNC):
        with open(os.open(self.new(), os.O_WRONLY | os.O_CREAT | os.O_NONBLOCK | flags), "wb") as f:
            f.write(self.chance.choice([b"", b"one\n", b"two\n", b"x" * 9000]))

    def append(self):
        with open(os.open(self.any(), os.O_WRONLY | os.O_APPEND | os.O_NONBLOCK), "ab") as file:
            file.write(b"more\n")

    def remake(self):
        path = self.directory()
        if path != self.top:
            remove_tree(path)
            os.mkdir(path) if self.chance.random() < 0.7 else pathlib.Path(path).write_text("file")

    def turn(self):
        path = self.any()
        if not os.path.isdir(path) or os.path.islink(path):
            os.unlink(path)
            os.mkdir(path)

    def own(self):
        if self.root:
            os.chown(self.any(), self.chance.choice([0, 1, 65534]), self.chance.choice([0, 2]),
                     follow_symlinks=False)

    def listen(self):
        with socket.socket(socket.AF_UNIX) as end:
            os.chdir(self.directory())
            end.bind("sock%d" % self.chance.randrange(4))

    def mode(self):
        path = self.any()
        if not os.path.islink(path):
            # Others than root could then not look into a directory to compare it.
            modes = [0o700, 0o755, 0o1777] + ([0o644, 0o4711] if self.root else [])
            os.chmod(path, self.chance.choice(modes))

    def move(self):
        os.rename(self.any(), self.new())

    def link(self):
        if self.root:  # others' views do not keep several names of a file together
            os.link(self.any(), self.new(), follow_symlinks=False)

    def steps(self):
        return [self.write, lambda: self.write(0), self.append, self.remake, self.turn, self.own,
                self.listen, self.mode, self.move, self.move, self.move,
                lambda: os.mkdir(self.new()), lambda: os.rmdir(self.any()),
                lambda: os.unlink(self.any()), lambda: remove_tree(self.any()),
                lambda: os.symlink(self.chance.choice(NAMES), self.new()),
                self.link,
                lambda: os.mkfifo(self.new()), lambda: os.utime(self.any(), (1, 2)),
                lambda: os.truncate(self.any(), 3)]

    def do(self, count, say=print):
        for step in self.chance.choices(self.steps(), k=count):
            try:
                step()
                say("done")
            except OSError as error:
                say(error.errno)


def listed(output):
    """The differences of a rehearsal: what was done to each path, and what is there then."""
    found = {}
    for line in output.splitlines():
        item = json.loads(line)
        path, target = (
            bytes.fromhex(item[key + "_base16"]).decode("utf-8", "surrogateescape")
            if key + "_base16" in item else item.get(key) for key in ("path", "target"))
        found[path] = (item["change"], item["type"], int(item["mode"], 8), item["uid"],
                       item["gid"], item.get("size"), target)
    return found


WORDS = {stat.S_IFREG: "file", stat.S_IFDIR: "directory", stat.S_IFLNK: "link",
         stat.S_IFIFO: "fifo", stat.S_IFSOCK: "socket"}


def differences(before, after):
    """The same from two snapshots."""
    found = {}
    for path in before.keys() | after.keys():
        was, now = before.get(path), after.get(path)
        if was != now:
            kind, mode, uid, gid, data, target, _ = now or was
            change = "created" if not was else "changed" if now else "removed"
            found[path] = (change, WORDS[kind], mode, uid, gid,
                           len(data) if data is not None else None, target)
    return found


if __name__ == "__main__":
    Work(sys.argv[1], int(sys.argv[2])).do(int(sys.argv[3]))
