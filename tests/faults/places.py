"""Runs the installer in full and odd places, inside a mount namespace of its own.

    unshare -m places.py PROGRAM EXAMPLE SCRATCH

Each case sets up a place, runs the installer there and checks what it said, logged and left.
"""

import os
import pathlib
import re
import resource
import shutil
import socket
import stat
import subprocess
import sys

program, example, scratch = sys.argv[1:]
NOBODY = 65534
here = pathlib.Path(scratch)


def run(place, *arguments, nobody=False, descriptors=None):
    """Output of one run, which must end by itself, and with status 0."""
    def limit():
        if descriptors:
            resource.setrlimit(resource.RLIMIT_NOFILE, (descriptors, descriptors))
        if nobody:
            os.setgroups([])
            os.setgid(NOBODY)
            os.setuid(NOBODY)
    result = subprocess.run(["./install", *(arguments or ("-special", "work")), "-automate"],
                            cwd=place, timeout=60, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, check=False, preexec_fn=limit)
    assert result.returncode == 0, f"ended with status {result.returncode}"
    return result.stdout.decode("latin-1")


def product(place, commands, data=""):
    """A product whose special section "work" runs the commands; gives its folder."""
    place.mkdir(parents=True, exist_ok=True)
    shutil.copy(program, place / "install")
    (place / "install.dat").write_text(f"product Places\n{data}\n")
    (place / "install.int").write_text("")
    (place / "install.q").write_text("[work]\n")
    (place / "install.cpy").write_text(f"[work]\n{commands}\n")
    return place


def log(place):
    return (place / "install.log").read_text(encoding="latin-1")


def sample(place):
    shutil.copytree(example, place)
    shutil.copy(program, place / "install")
    return place


def tree(place):
    """Every path below a directory with its content, as bytes; links by their targets."""
    found = {}
    for above, directories, files in os.walk(os.fsencode(place)):
        for name in directories + files:
            path = os.path.join(above, name)
            key = path[len(os.fsencode(place)):]
            mode = os.lstat(path).st_mode
            found[key] = pathlib.Path(os.fsdecode(path)).read_bytes() if stat.S_ISREG(mode) else b""
    return found


def mounted(place, options):
    place.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", place], check=True)
    return place


def disk_full(place, options):
    """Installs where the disk runs full, then where it has been given room again."""
    clean = sample(place / "clean")
    run(clean, "-automate")
    full = sample(place / "full")
    target = mounted(place / "disk", options)
    data = (full / "install.dat").read_text()
    (full / "install.dat").write_text(data.replace("$(current_dir)/site", str(target)))
    output = run(full, "-automate")
    assert "]\nFailed" in output, output
    assert "No space left on device" in log(full)
    subprocess.run(["mount", "-o", "remount,size=4m,nr_inodes=1000", target], check=True)
    run(full, "-automate")
    sites = {name: text for name, text in tree(clean / "site").items() if b"path" not in name}
    assert {name: text.replace(bytes(target), bytes(clean / "site"))
            for name, text in tree(target).items() if b"path" not in name} == sites


def blocks_used_up(place):
    disk_full(place, "size=20k")


def inodes_used_up(place):
    disk_full(place, "size=4m,nr_inodes=9")


def log_runs_full(place):
    target = mounted(place / "disk", "size=256k")
    product(target, "\n".join(["Exist /etc/passwd found"] * 200), "kept value")
    output = run(target)
    assert "Success 200 files done." in output, output


def log_is_dev_full(place):
    product(place, f"MkDir {place}/made")
    (place / "install.log").symlink_to("/dev/full")
    assert "Success 1 files done." in run(place)
    assert (place / "made").is_dir() and stat.S_ISCHR(os.stat("/dev/full").st_mode)


def settings_file_is_dev_full(place):
    product(place, f"Ini {place}/install.dat /dev/full\nWFile /dev/full text\n"
            f"CopyFile {place}/install.dat - {place}/out")
    (place / "out").mkdir()
    (place / "out/install.dat").symlink_to("/dev/full")
    assert "Success 0 files done." in run(place)
    for message in ("Error writing ini file '/dev/full'", "Failed to write (/dev/full)",
                    f"Error writing to '{place}/out/install.dat'"):
        assert f"{message}, No space left on device" in log(place), message


def read_only(place):
    sample(place / "product")
    site = mounted(place / "product/site", "size=1m,ro")
    output = run(place / "product", "-automate")
    assert "]\nFailed" in output and "Read-only file system" in log(place / "product")
    assert not any(site.iterdir())


def file_for_directory(place):
    product(place, f"MkDir {place}/file/below\nCopyDir {place}/src - {place}/out\n"
            f"CopyFile {place}/src/one - {place}/out")
    (place / "src/sub").mkdir(parents=True)
    (place / "src/one").write_text("1")
    (place / "src/sub/two").write_text("2")
    (place / "out/src").mkdir(parents=True)
    for name in ("file", "out/src/sub"):
        (place / name).write_text("kept")
    (place / "out/one").mkdir()
    run(place)
    assert (place / "file").read_text() == (place / "out/src/sub").read_text() == "kept"
    assert (place / "out/src/one").read_text() == "1" and not any((place / "out/one").iterdir())
    for reason in ("Not a directory", "Is a directory"):
        assert reason in log(place), reason


def no_permission(place):
    """As an unprivileged user, with one directory after the other closed."""
    for closed in ("", "site", "site/htdocs", "site/cgi-bin", "site/data", "installed"):
        folder = sample(place / f"without-{closed.replace('/', '-')}")
        for name in ("site/htdocs", "site/cgi-bin", "site/data", "installed"):
            (folder / name).mkdir(parents=True)
        subprocess.run(["chown", "-R", f"{NOBODY}:{NOBODY}", folder], check=True)
        (folder / closed).chmod(0o555)
        (folder / "site/htdocs/mine").write_text("kept")
        output = run(folder, "-automate", nobody=True)
        writable = "]\nSuccess" in output
        assert writable == (closed == "site"), (closed, output)
        if closed not in ("", "site"):
            assert "Permission denied" in log(folder), closed
        assert (folder / "site/htdocs/mine").read_text() == "kept"


def few_descriptors(place):
    deep = place / "src" / "/".join("d" for _ in range(40))
    product(place, f"CopyDir {place}/src - {place}/out\nChmod {place}/out/src - 755\n"
            f"RmDir {place}/out/src -")
    deep.mkdir(parents=True)
    (deep / "leaf").write_text("leaf")
    (place / "out").mkdir()
    output = run(place, descriptors=64)
    # 41 directories and a file: made, changed, removed.
    assert f"Success {3 * 42} files done." in output and "Error" not in output, output
    # Too few for the depth: said, and nothing is lost.
    (deep / "leaf").write_text("new")
    kept = place / "out/src" / deep.relative_to(place / "src")
    kept.mkdir(parents=True)
    (kept / "leaf").write_text("old")
    product(place, f"CopyDir {place}/src - {place}/out\nChmod {place}/out/src - 700")
    run(place, descriptors=20)
    assert "Too many open files" in log(place) and (kept / "leaf").read_text() == "old"


def odd_names(place):
    names = ["a blank", "a,comma", "a\nnewline", "back\\slash", "..\\..\\up", "-dash", "$(name)",
             "caf\xe9", "x" * 80, ".hidden", "#comment", "star*", "tab\tin"]
    product(place, f"CopyDir {place}/src - {place}/out\nRmDir {place}/gone -")
    for root in ("src", "gone"):
        for name in names:
            below = os.fsencode(place / root) + b"/dir " + name.encode("latin-1")
            os.makedirs(below)
            with open(below + b"/" + name.encode("latin-1"), "wb") as file:
                file.write(name.encode("latin-1"))
    (place / "out").mkdir()
    run(place)
    subprocess.run(["cp", "-r", place / "src", place / "expected"], check=True)
    assert tree(place / "out/src") == tree(place / "expected") and not (place / "gone").exists()


def long_names(place):
    """A name of 255 bytes fits no path; of those around the limit just the long ones are left out."""
    product(place, f"CopyFile {place}/src/* - {place}/o")
    (place / "o").mkdir()
    (place / "src").mkdir()
    room = 255 - len(str(place / "src")) - 1
    for length in (room - 1, room, room + 1, 255):
        (place / "src" / ("n" * length)).write_text(str(length))
    run(place)
    assert sorted(len(name) for name in os.listdir(place / "o")) == [room - 1, room]
    assert log(place).count("is too long, passed over") == 2


def special_files(place):
    product(place, f"CopyDir {place}/src - {place}/out\nCopyFile {place}/src/* - {place}/out")
    for name in ("src", "out"):
        (place / name).mkdir()
    os.mkfifo(place / "src/fifo")
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(place / "src/socket"))
    os.mknod(place / "src/device", stat.S_IFCHR | 0o600, os.makedev(1, 5))
    (place / "src/plain").write_text("plain")
    run(place)
    assert tree(place / "out") == {b"/plain": b"plain", b"/src": b"", b"/src/plain": b"plain"}
    assert log(place).count("it is a FIFO, a socket or a device") == 6


def into_itself(place):
    product(place, f"CopyDir {place}/src - {place}/src/sub\nCopyDir {place}/src/* - {place}/src/sub\n"
            f"CopyDir {place}/src - {place}\nCopyFile {place}/links/* - {place}/src")
    (place / "src/sub").mkdir(parents=True)
    (place / "links").mkdir()
    (place / "src/one").write_text("one")
    (place / "src/hard").write_text("hard")
    (place / "links/one").symlink_to(place / "src/one")
    os.link(place / "src/hard", place / "links/hard")
    run(place)
    assert (place / "src/one").read_text() == "one" and (place / "src/hard").read_text() == "hard"
    assert (place / "src/sub/src/one").read_text() == (place / "src/sub/one").read_text() == "one"
    assert "into itself" in log(place) and "onto itself" in log(place)


CASES = [blocks_used_up, inodes_used_up, log_runs_full, log_is_dev_full, settings_file_is_dev_full,
         read_only, file_for_directory, no_permission, few_descriptors, odd_names, long_names,
         special_files, into_itself]

failed = 0
subprocess.run(["mount", "--make-rprivate", "/"], check=True)
for case in CASES:
    folder = here / case.__name__
    folder.mkdir(parents=True)
    folder.chmod(0o755)
    try:
        case(folder)
        print(f"{case.__name__.replace('_', ' ')}: ok")
    except (AssertionError, subprocess.SubprocessError, OSError) as problem:
        failed += 1
        print(f"{case.__name__.replace('_', ' ')}: FAILED {re.sub(chr(10), ' / ', str(problem))[:600]}")
print(f"{len(CASES) - failed} passed, {failed} failed")
sys.exit(1 if failed else 0)
