"""Runs the installer while others work on the same trees, or stop listening.

    races.py PROGRAM SCRATCH ROUNDS

An attacker swaps a directory for a link out of the tree; entries come and go; readers leave.
"""

import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import threading
import time

program, scratch, rounds = sys.argv[1:]
ROUNDS = int(rounds)
NOBODY = 65534
here = pathlib.Path(scratch)


def product(place, commands):
    """A product whose special section "work" runs the commands; gives its folder."""
    shutil.rmtree(place, ignore_errors=True)
    place.mkdir(parents=True)
    shutil.copy(program, place / "install")
    (place / "install.dat").write_text("product Races\n")
    (place / "install.int").write_text("")
    (place / "install.q").write_text("[work]\n")
    (place / "install.cpy").write_text(f"[work]\n{commands}\n")
    return place


# Each of these calls is held up for a moment, so that others have their turn.
SLOWED = ["strace", "-o", "/dev/null", "-e", "trace=openat,unlinkat,fchmodat,fchownat",
          "-e", "inject=openat,unlinkat,fchmodat,fchownat:delay_enter=30"]
WINDOWS_SLOWED = ["strace", "-o", "/dev/null", "-e", "trace=munmap",
                  "-e", "inject=munmap:delay_enter=1000"]


def start(place, slowed=(), output=subprocess.DEVNULL):
    return subprocess.Popen([*slowed, "./install", "-special", "work", "-automate"], cwd=place,
                            stdin=subprocess.DEVNULL, stdout=output,
                            preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_DFL))


def finish(run):
    assert run.wait(timeout=60) == 0, f"ended with status {run.returncode}"


def fill(folder, files, text="page", owner=0):
    folder.mkdir(parents=True, exist_ok=True)
    for number in range(files):
        (folder / f"page{number}").write_text(text)
        os.chown(folder / f"page{number}", owner, owner)
    os.chown(folder, owner, owner)


def state(folder):
    """What is below a folder. (The folder itself is changed where a link to it is met as a link.)"""
    return sorted((path, os.lstat(path).st_mode, os.lstat(path).st_uid) for path in
                  folder.rglob("*"))


def swap(folder, foreign):
    """What the owner of a folder may do: its directory is elsewhere, and a link in its place."""
    os.seteuid(NOBODY)
    try:
        os.rename(folder / "mine", folder / "moved")
        os.symlink(foreign, folder / "mine")
    except OSError:
        pass
    finally:
        os.seteuid(0)


def attack(place, command, rounds_of):
    """The rounds in which a foreign tree was touched or read."""
    took = []
    lost = 0
    for number in range(rounds_of + 5):
        folder = product(place / "product", command)
        fill(folder / "web/user/mine", 20, owner=NOBODY)
        fill(folder / "web/user", 60, owner=NOBODY)
        (folder / "out").mkdir()
        shutil.rmtree(place / "foreign", ignore_errors=True)
        fill(place / "foreign", 20, "secret")
        before = state(place / "foreign")
        began = time.monotonic()
        run = start(folder, SLOWED)
        # The first runs are left alone and tell how long one takes.
        if number >= 5:
            time.sleep(random.uniform(0, sorted(took)[2]))
            swap(folder / "web/user", place / "foreign")
        finish(run)
        took.append(time.monotonic() - began)
        copied = any(path.is_file() and path.read_text() == "secret"
                     for path in (folder / "out").rglob("*"))
        lost += copied or state(place / "foreign") != before
    return lost


def attacked(place):
    for command in ("RmDir web -", "Chown web - nobody", "Chmod web - 755", "CopyDir web - ./out"):
        lost = attack(place, command, ROUNDS)
        print(f"    {command.split()[0]}: left its tree in {lost} of {ROUNDS} runs")
        assert lost == 0, f"{command} left its tree"


def coming_and_going(folder, ended):
    """Session files that others make and remove."""
    while not ended.is_set():
        for step in (pathlib.Path.touch, pathlib.Path.unlink):
            for number in range(20):
                step(folder / f"session{number}")


def beside(folder, others):
    """Runs the product while others work."""
    ended = threading.Event()
    thread = threading.Thread(target=others, args=(folder / "web", ended))
    thread.start()
    try:
        finish(start(folder, SLOWED))
    finally:
        ended.set()
        thread.join()


def entries_come_and_go(place):
    for command, failed in (("Chmod web - 711", "file_chmod failed"),
                            ("Chown web - nobody", "file_chown failed")):
        for _ in range(1 + ROUNDS // 5):
            folder = product(place / "product", command)
            fill(folder / "web", 500)
            beside(folder, coming_and_going)
            assert failed not in (folder / "install.log").read_text()
            for page in folder.glob("web/page*"):
                info = page.stat()
                assert info.st_uid == NOBODY or info.st_mode & 0o777 == 0o711, f"{command}: {page}"


def vanishing(folder, _ended):
    time.sleep(random.uniform(0, 0.05))
    shutil.rmtree(folder)


def sources_vanish(place):
    for command in ("CopyFile web/* - ./out", "CopyDir web/* - ./out", "CopyDir web - ./out"):
        for _ in range(1 + ROUNDS // 5):
            folder = product(place / "product", command)
            fill(folder / "web", 500, "new")
            fill(folder / "out", 500, "old")
            fill(folder / "out/web", 500, "old")
            beside(folder, vanishing)
            emptied = sum(not page.stat().st_size for page in folder.glob("out/**/page*"))
            assert not emptied, f"{command}: {emptied} emptied"


def source_shrinks(place):
    """Wherever the copy is by then, it has all that is left, and nothing that was never there."""
    for _ in range(1 + ROUNDS // 5):
        folder = product(place / "product", "CopyFile big - ./out")
        (folder / "out").mkdir()
        (folder / "big").write_bytes(b"x" * 16_000_000)
        run = start(folder, WINDOWS_SLOWED)
        time.sleep(random.uniform(0, 0.1))
        left = random.choice([300_000, 8_000_001, 15_900_000])
        os.truncate(folder / "big", left)
        finish(run)
        copied = (folder / "out/big").read_bytes()
        assert len(copied) >= left and copied == b"x" * len(copied), f"{left} left: {len(copied)}"


def readers_leave(place):
    folder = product(place / "screen", "CopyDir web - ./out\n" + "MkDir out/last\n" * 3)
    (folder / "out").mkdir()
    for number in range(300):
        fill(folder / f"web/{number}", 1)
    run = start(folder, output=subprocess.PIPE)
    run.stdout.close()
    finish(run)
    assert len(list(folder.glob("out/web/*/page0"))) == 300 and (folder / "out/last").is_dir()
    for leaves in (True, False):
        folder = product(place / "log", "MkDir made\n" + "Exist made found\n" * 2000)
        os.mkfifo(folder / "install.log")
        reader = os.open(folder / "install.log", os.O_RDONLY | os.O_NONBLOCK)
        run = start(folder)
        time.sleep(0.3)
        os.set_blocking(reader, True)
        told = os.read(reader, 1000)
        while not leaves and (piece := os.read(reader, 65536)):
            told += piece
        os.close(reader)
        finish(run)
        assert (folder / "made").is_dir()
        assert leaves or told.count(b"Processing [") == 2001, "the log lost lines"


CASES = [attacked, entries_come_and_go, sources_vanish, source_shrinks, readers_leave]

bad = 0
for case in CASES:
    try:
        case(here / case.__name__)
        print(f"{case.__name__.replace('_', ' ')}: ok")
    except (AssertionError, subprocess.SubprocessError) as problem:
        bad += 1
        print(f"{case.__name__.replace('_', ' ')}: FAILED {problem}")
    shutil.rmtree(here / case.__name__, ignore_errors=True)
print(f"{len(CASES) - bad} passed, {bad} failed")
sys.exit(1 if bad else 0)
