"""Runs the sample product with one system call failing, or killed at it, and looks at what is left.

    faults.py PROGRAM EXAMPLE SCRATCH EVERY

Of every call that a flow makes on a file, each EVERY-th occurrence fails once with each error that
applies. Such a run must end by itself with status 0, claim success only when everything is as after a
clean run, and say in its log why it is not; a second, undisturbed run must bring about just that.
"""

import collections
import errno
import os
import re
import shutil
import stat
import subprocess
import sys
import time

program, example, scratch, every = sys.argv[1:]
EVERY = int(every)
LIMIT = 20

ERRORS = {
    "openat": ["EACCES", "EIO", "ENOSPC", "EINTR"],
    "read": ["EIO", "EINTR"],
    "write": ["ENOSPC", "EIO", "EINTR"],
    "close": ["EIO", "ENOSPC", "EINTR"],
    "mkdir": ["ENOSPC", "EACCES", "EIO"],
    "rename": ["ENOSPC", "EACCES", "EIO"],
    "unlink": ["EACCES", "EIO"],
    "unlinkat": ["EACCES", "EIO"],
    "ftruncate": ["EACCES", "EIO"],
    "fchmod": ["EACCES", "EIO"],
    "fchmodat": ["EACCES", "EIO"],
    "fchownat": ["EACCES", "EIO"],
    "newfstatat": ["EACCES", "EIO"],
    "getdents64": ["EIO"],
    "readlink": ["EACCES", "EIO"],
    "KILL": ["KILL"],
}
CALLS = ",".join(call for call in ERRORS if call != "KILL")

Flow = collections.namedtuple("Flow", "name arguments success")
FLOWS = [
    Flow("install", ["-automate"], "]\nSuccess"),
    Flow("upgrade", ["-automate"], "]\nSuccess"),
    Flow("special", ["-special", "archive", "-automate"], None),
    Flow("remove", ["-special", "remove", "-automate"], None),
]
place = f"{scratch}/run"


def run(arguments, strace=()):
    """Output and status of one run; status 137 is a run that was killed on purpose."""
    result = subprocess.run([*strace, "./install", *arguments], cwd=place, timeout=LIMIT,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, check=False)
    return result.stdout.decode("latin-1"), result.returncode


def snapshot():
    """Everything in the product's folder but log and probe: kind, mode, owner, content by name."""
    found = {}
    for above, directories, files in os.walk(place):
        for name in directories + files:
            path = f"{above}/{name}"
            shown = re.sub(r"entries-[0-9-]+\.txt", "entries-DATE.txt", path[len(place):])
            # The probe is made anew by every run and taken away by those that have work to do.
            if re.match(r"/(install\.log|probe\.tmp)", shown):
                continue
            info = os.lstat(path)
            content = None
            if stat.S_ISREG(info.st_mode):
                with open(path, "rb") as file:
                    content = file.read()
            if shown.endswith("/archive_name"):
                content = None
            found[shown] = (info.st_mode, info.st_uid, info.st_gid, content)
    return found


def prepare(state):
    shutil.rmtree(place, ignore_errors=True)
    subprocess.run(["cp", "-a", state, place], check=True)


def traced_calls(flow):
    """The number of each call's first and last occurrence in the program's own work, with its line."""
    trace = f"{scratch}/trace"
    run(flow.arguments, ["strace", "-y", "-o", trace, "-e", "trace=" + CALLS])
    seen = collections.Counter()
    own = False
    with open(trace, encoding="latin-1") as lines:
        for line in lines:
            call = line.split("(")[0]
            if call not in ERRORS:
                continue
            seen[call] += 1
            own = own or "install.log" in line
            if own:
                yield call, seen[call], line


def points(flow):
    """What to inject: (call, number, error, traced line)."""
    for index, (call, number, line) in enumerate(traced_calls(flow)):
        if index % EVERY == 0:
            for error in ERRORS[call]:
                yield call, number, f"error={error}", line
        # Killing needs no more than points spread over the run.
        if index % (8 * EVERY) == 0:
            yield call, number, "signal=KILL", line


def judge(flow, point, clean):
    """What is wrong with one disturbed run and the one after it; nothing when all is well."""
    call, number, fault, line = point
    strace = ["strace", "-o", "/dev/null", "-e", "trace=" + call,
              "-e", f"inject={call}:{fault}:when={number}"]
    try:
        output, status = run(flow.arguments, strace)
    except subprocess.TimeoutExpired:
        return "did not end"
    killed = "KILL" in fault
    if status != 0 and not (killed and status in (-9, 137)):
        return f"ended with status {status}"
    same = snapshot() == clean
    if flow.success and flow.success in output and not same:
        return "claims success, but what it left differs"
    # Nothing can be said where the log or the terminal fails, nor where the C library takes an
    # unreadable account file for an unknown account.
    silent = re.search(r"install\.log|/etc/passwd|^(write|newfstatat)\(1<", line)
    if not same and not killed and not silent:
        reason = os.strerror(getattr(errno, fault[len("error="):]))
        with open(f"{place}/install.log", encoding="latin-1") as log:
            told = log.read()
        # The format has the removal of trees tell the person and not the log, that of single files
        # nobody.
        if call == "unlinkat":
            told += output
        single = call == "unlinkat" and re.search(r"/(run|installed)>", line)
        if reason not in told and not single:
            return f"the log does not say '{reason}'"
    run(flow.arguments)
    if snapshot() != clean:
        return "a second run does not repair it"
    return None


def differences(clean):
    now = snapshot()
    return sorted(name for name in clean.keys() | now.keys() if clean.get(name) != now.get(name))


def main():
    state = f"{scratch}/state"
    shutil.rmtree(state, ignore_errors=True)
    shutil.copytree(example, state)
    shutil.copy(program, f"{state}/install")
    with open(f"{state}/install.dat", "r+", encoding="utf-8") as data:
        # Chown takes part as well.
        text = re.sub(r"(?m)^give_data\s.*$", "give_data true", data.read())
        data.seek(0)
        data.write(text)
        data.truncate()
    total = wrong = 0
    for flow in FLOWS:
        prepare(state)
        if flow.name == "special":
            with open(f"{place}/site/data/entries.txt", "w", encoding="ascii") as entries:
                entries.write("an entry\n")
            shutil.rmtree(state)
            subprocess.run(["cp", "-a", place, state], check=True)
        output, status = run(flow.arguments)
        assert status == 0 and (not flow.success or flow.success in output), output
        clean = snapshot()
        subprocess.run(["cp", "-a", place, f"{scratch}/after"], check=True)
        prepare(state)
        began = time.time()
        runs = collections.Counter()
        for point in list(points(flow)):
            prepare(state)
            problem = judge(flow, point, clean)
            runs["KILL" if "KILL" in point[2] else point[0]] += 1
            if problem:
                wrong += 1
                print(f"{flow.name}: {point[0]} number {point[1]}, {point[2]}: {problem}\n"
                      f"    {point[3].strip()}\n    differing: {differences(clean)[:6]}")
        total += sum(runs.values())
        print(f"{flow.name}: {sum(runs.values())} disturbed runs in {time.time() - began:.0f} s: "
              + ", ".join(f"{call} {count}" for call, count in sorted(runs.items())))
        sys.stdout.flush()
        shutil.rmtree(state)
        os.rename(f"{scratch}/after", state)
    print(f"{total - wrong} passed, {wrong} failed")
    sys.exit(1 if wrong else 0)


main()
