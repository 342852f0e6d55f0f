"""Rehearsals beside real runs.

    rehearse.py CASE PRODUCT-KIT INSTALLER EXAMPLES [ROUNDS]

Each case works in a directory of its own, in a mount namespace where it may have one. "user" before
its name has it done by an ordinary user. Exit status 77: this machine gives no private view.
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

USER = 12345  # whom nobody knows here
AS_USER = ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups"]
PYTHON = "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else sys.executable
directory = pathlib.Path(__file__).parent


def run(place, *command):
    return subprocess.run(command, cwd=place, stdin=subprocess.DEVNULL, capture_output=True,
                          timeout=60, check=False)


def compare(kit, place, top, programs, passed_over=()):
    """Rehearses programs, runs them, and compares what was listed with what differs then."""
    before, exactly = trees.snapshot(top), trees.snapshot(top, trees.times)
    words = [word for program in programs for word in ["--", *program]]
    rehearsal = run(place, kit, "rehearse", "--json", *words)
    assert trees.snapshot(top, trees.times) == exactly, "the rehearsal has changed something"
    for real in [run(place, *program).stdout for program in programs]:
        assert real in rehearsal.stderr, f"{rehearsal.stderr} has no {real}"
    told = trees.listed(rehearsal.stdout.decode())
    expected = trees.differences(before, trees.snapshot(top))
    wrong = {path: (told.get(path), expected.get(path)) for path in told.keys() | expected.keys()
             if told.get(path) != expected.get(path) and path not in passed_over}
    assert not wrong, f"rehearsed, real: {wrong}"
    return len(expected), rehearsal.returncode


def mount(place, kind, options="mode=777"):
    subprocess.run(["mount", "-t", kind, "-o", options, kind, place], check=True)


def product(place, name):
    shutil.copytree(examples / name, place)
    shutil.copy(installer, place / "install")
    return place


def program(place, text):
    """A program that only has to be run, in a directory of its own."""
    place.mkdir()
    (place / "work.dat").touch()
    (place / "work").write_text(f"#!/bin/sh\n{text}\n")
    (place / "work").chmod(0o755)
    return place


def random_trees(kit, scratch, rounds):
    total = 0
    kind = subprocess.check_output(["stat", "-fc", "%T", scratch])
    if os.getuid() == 0 and kind == b"overlayfs\n":  # keeps no file with several names together
        mount(scratch, "tmpfs")
    for seed in range(rounds):
        top = scratch / f"round{seed}" / "tree"
        place = program(top.parent, f"exec {PYTHON} '{directory}/trees.py' '{top}' {seed} 40")
        mounts = [top / "mounted", top / "mounted/below"]
        for path in [top] + (mounts if seed % 3 == 0 and os.getuid() == 0 else []):
            path.mkdir()
            if path != top:
                mount(path, "tmpfs")
        trees.Work(str(top), -seed - 1).do(60, lambda met: None)
        os.chdir(scratch)
        total += compare(kit, place, top, [["./work"]])[0]
    assert total > rounds, total
    print(f"{rounds} rounds, {total} differences, all as rehearsed")


def flows(kit, scratch, _):
    """Every flow of the sample and of the starter."""
    task = ["./install", "-special", "archive", "-automate"]
    install, remove = ["./install", "-automate"], ["./install", "-special", "remove", "-automate"]
    steps = {"guestbook": [[install, remove], [install], [install], [task], [remove]],
             "starter": [[install, remove], [install], [install], [remove]]}
    for name, flow in steps.items():
        place = product(scratch / name, name)
        if name == "guestbook":
            (place / "site/data").mkdir(parents=True)
            (place / "site/data/entries.txt").write_text("an entry\n")
            # The name would tell the second of the run.
            data = place / "install.dat"
            data.write_text(data.read_text().replace("%Y%m%d-%H%M%S", "archived"))
        # Numbers of processes, and times, are not of one length in two runs.
        log = str(place / "install.log")
        for programs in flow:
            count, status = compare(kit, place, place, programs, [log])
            assert count > 0 and status in (0, 2, 3), f"{name}: {programs}: status {status}"


def left_over(kit):
    """The processes of rehearsals."""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            words = process.read_bytes()
        except OSError:
            continue
        if words.startswith(str(kit).encode()):
            found.append(process.parent.name)
    return found


def killed(kit, scratch, _):
    """Killed at any moment, and of any of its processes, a rehearsal leaves nothing."""
    place = product(scratch / "product", "guestbook")
    room = scratch / "room"
    room.mkdir()
    if os.getuid() == 0:
        mount(room, "tmpfs")
    exactly = trees.snapshot(scratch, trees.times)
    mounts = pathlib.Path("/proc/self/mountinfo").read_text()
    for point in range(20):
        options = ["--scratch", str(room)] if point % 2 else []
        rehearsal = subprocess.Popen([kit, "rehearse", *options, "./install", "-automate"],
                                     cwd=place, stdin=subprocess.DEVNULL,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(0.002 * point)
        children = left_over(kit)
        victim = children[point // 2 % len(children)] if children else rehearsal.pid
        try:
            os.kill(int(victim), signal.SIGKILL)
        except ProcessLookupError:
            pass
        rehearsal.wait(30)
        deadline = time.monotonic() + 10
        while left_over(kit) and time.monotonic() < deadline:
            time.sleep(0.01)
        assert not left_over(kit), f"point {point}: a process is left"
        assert pathlib.Path("/proc/self/mountinfo").read_text() == mounts
        for path in room.iterdir():  # made, but not yet used when its maker was killed
            assert not list(path.iterdir()), f"point {point}: {list(path.iterdir())}"
            path.rmdir()
        os.utime(room, ns=(exactly[str(room)][3], exactly[str(room)][3]))
        now = trees.snapshot(scratch, trees.times)
        del now[str(room)]
        assert now == {path: face for path, face in exactly.items() if path != str(room)}, point


def words(kit, scratch, _):
    """What is said where something cannot be, and how a list looks."""
    place = program(scratch / "words", "echo two > 'a\tb'; chmod 600 kept; rm old; exit 3")
    for name in ("kept", "old"):
        (place / name).write_text("one\n")
        (place / name).chmod(0o644)
    shown = run(place, kit, "rehearse", "--diff", "./work").stdout.decode()
    lines = [re.sub(r" +\S+ +\S+ +(\d+) /.*/", r" \1 ", line) for line in shown.splitlines()]
    assert lines == ["", "This would differ on this machine:",
                     "created  -rw-r--r-- 4 a\\011b",
                     "--- /dev/null", f"+++ {place}/a\\011b", "@@ -0,0 +1 @@", "+two",
                     "changed  -rw------- 4 kept  (mode was 0644)",
                     "removed  -rw-r--r-- 4 old",
                     f"--- {place}/old", "+++ /dev/null", "@@ -1 +0,0 @@", "-one"], lines
    for arguments, sentence in (
            (["./none"], "there is no program './none'"),
            (["./kept"], "'./kept' is no program that can be run here"),
            (["--scratch", "/none", "./work"], "the scratch directory '/none' cannot be used"),
            ([], "usage: product-kit rehearse"),
            (["--nothing", "./work"], "usage: product-kit rehearse"),
            (["./work", "--"], "usage: product-kit rehearse")):
        ended = run(place, kit, "rehearse", *arguments)
        assert ended.returncode == 125 and sentence in ended.stderr.decode(), ended


# What a program does to an entry of its directory | what is said of it then
FACES = r"""
ln -s "$(printf 'to\376')" broken    | created  lrwxrwxrwx root root - broken -> to\xfe
mkfifo "$(printf 'new\nline')"       | created  prw-r--r-- root root - new\012line
mknod device c 1 3                   | created  crw-r--r-- root root 1,3 device
chmod 1777 directory                 | changed  drwxrwxrwt root root - directory  (mode was 0755)
chmod 6711 file1                     | changed  -rws--s--x root root 2 file1  (mode was 0644)
chown 1:2 file2                      | changed  -rw-r--r-- daemon bin 2 file2  (owner was root:root)
ln -sfn new link                     | changed  lrwxrwxrwx root root - link -> new  (target was old)
echo other >file3                    | changed  -rw-r--r-- root root 6 file3  (content)
echo b >file4                        | changed  -rw-r--r-- root root 2 file4  (content)
rm file5; mkfifo file5               | changed  prw-r--r-- root root - file5  (type was file)
rm file6; mkdir -m 644 file6         | changed  drw-r--r-- root root - file6  (type was file)
ln -sfn no link2; ln -sfn old link2  |
echo a >file7; touch -d @0 file7     |
rm -r gone                           | removed  drwxr-xr-x root root - gone
"""


def faces(kit, scratch, _):
    """Every kind of difference in words, and where nothing differs in the end none."""
    rows = [row.split("|") for row in FACES.strip().splitlines()]
    place = program(scratch / "faces", "\n".join(row[0] for row in rows))
    for name in ("directory", "gone"):
        (place / name).mkdir()
    for name in ("link", "link2"):
        (place / name).symlink_to("old")
    for number in range(1, 8):
        (place / f"file{number}").write_text("a\n")
    shown = run(place, kit, "rehearse", "./work").stdout.decode("latin-1")
    said = {re.sub(r" +", " ", line.replace(f"{place}/", "")) for line in shown.splitlines()[2:]}
    wanted = {re.sub(r" +", " ", row[1].strip().replace(r"\xfe", "\xfe")) for row in rows} - {""}
    assert said == wanted, said ^ wanted


def corners(kit, scratch, _):
    """An ordinary user, with mounts below mounts, and where no namespaces may be made."""
    place = program(scratch / "corners", "echo ready >&2; read go; echo 1 > mounted/new; "
                    "echo 2 > mounted/below/new; mv mounted/own/kept mounted/own/moved; "
                    "echo 3 > /tmp/rehearsed")
    mounted = place / "mounted"
    for path in (mounted, mounted / "below"):
        path.mkdir()
        mount(path, "tmpfs")
    own = mounted / "own"
    (own / "kept").mkdir(parents=True)
    (own / "kept/file").touch()
    for path in (place, own, own / "kept", own / "kept/file"):
        os.chown(path, USER, USER)
    leaves, comes = (pathlib.Path(tempfile.mkdtemp(dir="/tmp")) for _ in range(2))
    command = ["timeout", "60", *AS_USER, kit, "rehearse", "--json", "./work"]
    with subprocess.Popen(command, cwd=place, text=True, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE) as rehearsal:
        while rehearsal.stderr.readline() not in ("ready\n", ""):
            pass
        leaves.rmdir()
        comes.rmdir()
        comes.symlink_to("nowhere")
        told = trees.listed(rehearsal.communicate("go\n")[0])
    comes.unlink()
    assert {path: what[0] for path, what in told.items()} == {
        f"{mounted}/new": "created", f"{mounted}/below/new": "created",
        f"{own}/kept": "removed", f"{own}/kept/file": "removed",
        f"{own}/moved": "created", f"{own}/moved/file": "created",
        "/tmp/rehearsed": "created"}, told
    refused = run(place, "unshare", "-Ur", "sh", "-c",
                  "echo 0 > /proc/sys/user/max_user_namespaces; exec setpriv "
                  f"--bounding-set=-sys_admin --inh-caps=-sys_admin '{kit}' rehearse ./work")
    assert refused.returncode == 125 and "no private view can be made: " in refused.stderr.decode() \
        and "whoever starts it can allow it" in refused.stderr.decode(), refused
    alone = ["setpriv", "--reuid=54321", "--clear-groups", "prlimit", "--nproc=2"]
    refused = run(place, *alone, kit, "rehearse", "./work")
    assert refused.returncode == 125 and b"no process can be made" in refused.stderr, refused


def stacked(kit, scratch, _):
    """On an overlay, as the root of a container is one."""
    mount(scratch, "tmpfs")
    below, above, spare, top = (scratch / name for name in ("below", "above", "spare", "top"))
    for path in (below, above, spare, top):
        path.mkdir()
    place = program(below / "work", "echo two >> one; echo three > three")
    (place / "one").touch()
    (place / "other").hardlink_to(place / "one")
    mount(top, "overlay", f"lowerdir={below},upperdir={above},workdir={spare}")
    told = run(top / "work", kit, "rehearse", "--json", "./work")
    assert {path: what[0] for path, what in trees.listed(told.stdout.decode()).items()} == {
        f"{top}/work/one": "changed", f"{top}/work/three": "created"}, told
    assert f"changed below '{top}' has other names, under which it stays" in told.stderr.decode()
    refused = run(top / "work", kit, "rehearse", "--scratch", top, "./work")
    assert refused.returncode == 125 and not refused.stdout, refused
    assert "a file system that can take up no changes" in refused.stderr.decode(), refused
    assert not list(top.glob("product-kit*")), "something is left"


def contained(kit, scratch, _):
    """Root in a container that has users of its own, to whom nothing is foreign."""
    place = program(scratch / "contained", "chown 7:4 theirs; chgrp 4 own; rmdir shared")
    (place / "shared").mkdir()
    for name in ("theirs", "own"):
        (place / name).touch()
    for name in ("theirs", "shared"):
        os.chown(place / name, USER, USER)
    before = trees.snapshot(place)
    inside = 'echo ready >&2; read go; exec setpriv --groups=4 "$0" rehearse --json ./work'
    with subprocess.Popen(["unshare", "--user", "sh", "-c", inside, kit], cwd=place, text=True,
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as rehearsal:
        assert rehearsal.stderr.readline() == "ready\n"
        for kind in ("uid_map", "gid_map"):
            pathlib.Path(f"/proc/{rehearsal.pid}/{kind}").write_text("0 0 65536")
        told, said = rehearsal.communicate("go\n", timeout=60)
    run(place, "./work")
    assert trees.listed(told) == trees.differences(before, trees.snapshot(place)), (told, said)
    assert "although it may be" not in said, said


def foreign(kit, scratch, _):
    """An ordinary user, with files of another group and of others: as really, or no judgement."""
    alike = ["echo 2 >> file; chmod 700 inner; echo 3 > inner/new; mv file moved; rm inner/old",
             f"chgrp {USER} kept; rm ../sticky/others; chmod 700 ../sticky; mkdir ../sticky/own",
             "ln -s inner/open link; cp -a link copy; touch -h link; chgrp -h 12345 link",
             "chmod 600 inner/open; chgrp 54321 inner/open; chown 0 kept; chgrp 4 kept; "
             "rmdir ../full",
             "mkdir near; mv -nT near ../full; mv -n kept ../full/file; mv file ../full/moved; "
             "mkdir ../full/near; mv near ../full/near; mv -T inner/old ../full/near; "
             f"{PYTHON} -c 'import os; os.rename(\"nosuch\", \"../full/new\")' 2>&-"]
    unlike = {"echo 2 > ../far/off/file": "off/file' (12345:root) could",
              "chmod 600 ../far/off/file": "off/file' (",
              "mkdir ../far/off/new": "off' (12345:root) could",
              "echo 2 > inner/open": "(root:root)",
              "mv inner/open open": "inner/open' (root:root) could",
              "rmdir ../empty": "empty' could not be removed",
              "mv ../full ../moved": "'full' could not be renamed to 'moved'",
              "chgrp 54321 kept": "kept' could not be given the group 54321"}
    for number, text in enumerate([*alike, *unlike]):
        top = scratch / f"foreign{number}"
        top.mkdir()
        place = program(top / "work", text)
        for name in ("file", "kept", "inner/old", "inner/open", "../far/off/file",
                     "../sticky/others", "../full/file"):
            (place / name).parent.mkdir(parents=True, exist_ok=True)
            (place / name).write_text("1\n")
        (top / "empty").mkdir()
        for path in (top, top / "empty", top / "full", top / "far/off", top / "far/off/file",
                     place, *place.rglob("*")):
            os.chown(path, 0 if path.name == "open" else USER, 0)
        (place / "inner/open").chmod(0o666)
        (top / "sticky").chmod(0o1777)
        user = ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--groups=54321"]
        before = trees.snapshot(top)
        rehearsal = run(place, *user, kit, "rehearse", "--json", "./work")
        assert trees.snapshot(top) == before, "the rehearsal has changed something"
        if text in unlike:
            said = rehearsal.stderr.decode()
            assert rehearsal.returncode == 125 and unlike[text] in said, f"{text}: {said}"
            continue
        real = run(place, *user, "./work")
        assert real.stderr in rehearsal.stderr, (real, rehearsal)
        told = trees.listed(rehearsal.stdout.decode())
        assert told == trees.differences(before, trees.snapshot(top)), f"{text}: {told}"


SAMPLE_KEEPS = [word for path in ("site", "site/htdocs", "site/cgi-bin", "site/data*", "installed*")
                for word in ("--keeps", path)]

# product | file | what is changed there | into | what a proof says then
MISTAKES = r"""
starter   | .cpy | RmDir     $(dir)/hello    | RmFile    $(dir)/hello | left +\S+/hello$
starter   | .q   | Error     present   -      | #                      | lost +\S+/hello/somebodys.txt$
starter   | .cpy | Chmod     $(dir)/hello     | #                      | changed +\S+/hello  \(mode 0700
starter   | .cpy | [remove] | Ini hello.conf.in $(dir)/hello/hello.conf\n[remove] | changed +\S+/hello.conf  \(content
starter   | .cpy | WFile     installed        | #                      | product-kit: the removal does nothing
starter   | .dat | yes                        | no                     | install.q:\d+: stopped
starter   | .cpy | CopyFile  pages            | CopyFile  none         | the install does not succeed
guestbook | .cpy | WFile    $(record_dir)/cgi_dir | #                  | left +\S+/cgi_dir/guestbook2$
guestbook | .cpy | RmDir    $(web_root)/$(folder)  -                   made | RmDir $(web_root)/$(folder) - | lost
guestbook | .cpy | RmDir    $(cgi_dir)/$(folder)   -                   made | # | behind install.cpy:\d+
"""


def proofs(kit, scratch, _):
    """What a proof says of the starter and of the sample, and which it refuses."""
    for name, keeps, lives in (("starter", [], 24), ("guestbook", SAMPLE_KEEPS, 112)):
        place = product(scratch / name, name)
        exactly = trees.snapshot(scratch, trees.times)
        proof = run(scratch, kit, "prove", place, *keeps)
        assert trees.snapshot(scratch, trees.times) == exactly, "the proof has changed something"
        assert proof.returncode == 0 and not proof.stderr, proof
        assert f"\n{lives} lives, 0 differ\n" in proof.stdout.decode(), proof
    refused = product(scratch / "refused", "starter")
    (refused / "install.dat").write_text((refused / "install.dat").read_text().replace("yes", "no"))
    assert run(scratch, kit, "prove", "refused", "--set", "sure=true").returncode == 0
    (refused / "install").unlink()
    # One that is installed on this machine would do as well.
    for arguments, sentence in ((["none"], "there is no folder 'none'"), (["."], "no product"),
                                (["refused"], "there is no program 'install' in 'refused'"),
                                (["--set", "x"], "usage: product-kit prove")):
        ended = run(scratch, "env", "PATH=/nowhere", kit, "prove", *arguments)
        assert ended.returncode == 125 and sentence in ended.stderr.decode(), ended


def mistakes(kit, scratch, _):
    """What a proof says of either with one mistake in it."""
    for number, line in enumerate(MISTAKES.strip().splitlines()):
        name, ending, old, new, expected = (field.strip() for field in line.split("|"))
        place = product(scratch / f"mistake{number}", name)
        file = place / f"install{ending}"
        text = file.read_text()
        assert old in text, line
        file.write_text(text.replace(old, new.replace("\\n", "\n"), 1))
        proof = run(scratch, kit, "prove", place, *(SAMPLE_KEEPS if name == "guestbook" else []))
        said = (proof.stdout + proof.stderr).decode()
        assert proof.returncode != 0 and re.search(expected, said, re.M), f"{line}: {said}"


# What root sets up for an ordinary user, or for a container of one's own users.
FOR_USERS = ("corners", "contained", "foreign")


def again(case, scratch, arguments):
    """This script once more, as the case asks for it: in a mount namespace, by an ordinary user."""
    for name in ("trees.py", "rehearse.py"):
        shutil.copy(directory / name, scratch)
    kit = shutil.copy(arguments[0], scratch / "product-kit")
    # Counts of what it reaches, which a build for that writes, would be among the differences.
    shutil.copy(os.environ.get("UNCOUNTED_INSTALLER", arguments[1]), scratch / "install")
    shutil.copytree(arguments[2], scratch / "examples")
    scratch.chmod(0o777)
    command = [PYTHON, scratch / "rehearse.py", "--here", case.removeprefix("user-"), kit,
               scratch / "install", scratch / "examples", *arguments[3:]]
    before = [] if os.getuid() != 0 else AS_USER if case.startswith("user-") else ["unshare", "-m"]
    program(scratch / "probe", "exit 0")
    probe = run(scratch / "probe", *(AS_USER if case in FOR_USERS else before),
                kit, "rehearse", "./work")
    reason = probe.stderr.decode()
    if "no private view" in reason or (os.getuid() != 0 and
                                       case in ("faces", "stacked", *FOR_USERS)):
        print(f"skipped: {reason or 'only root can set this up'}")
        return 1 if os.environ.get("CI") == "true" else 77
    return subprocess.run([*before, *command], check=False).returncode


if sys.argv[1] == "--here":
    sys.path.insert(0, str(directory))
    sys.dont_write_bytecode = True
    import trees
    cases = {"trees": random_trees, "flows": flows, "killed": killed, "words": words,
             "faces": faces, "stacked": stacked, "corners": corners, "contained": contained,
             "foreign": foreign, "proofs": proofs, "mistakes": mistakes}
    installer, examples = (pathlib.Path(path) for path in sys.argv[4:6])
    os.umask(0o22)
    work = directory / "work"
    work.mkdir()
    cases[sys.argv[2]](directory / "product-kit", work, int((sys.argv[6:] or ["12"])[0]))
else:
    with tempfile.TemporaryDirectory(prefix="rehearse.") as made:
        sys.exit(again(sys.argv[1], pathlib.Path(made), sys.argv[2:]))
