#!/usr/bin/python3
"""Puts mistakes into the examples, one at a time, and sees which of them product-kit check names.

    seeds.py INSTALL KIT EXAMPLES SCRATCH [--full]
    seeds.py --draw SEED COUNT EXAMPLE              prints mistakes at random, for the list

The mistakes are those of mistakes.txt. With --full every product also leads the lives of runs.txt,
with the mistake and without, in a sandbox where there is nothing else: a mistake changes a run when
something else is printed, left on the disk, or logged as an error.
"""

import collections
import contextlib
import difflib
import multiprocessing.pool
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile

SECONDS = 20  # for one command
GOAL = 95  # per cent of the mistakes that change a run
FINDING = re.compile(r"(?m)^([^:\n]+):(\d+): (?:error|warning): (.*)$")
QUOTED = re.compile(r'"[^"]*"|\$\([^)]*\)')
WORD = re.compile(r"[\w.-]{2,}")
MACHINE = """mkdir -m 755 dev usr root etc var; ln -s usr/bin usr/lib usr/lib64 .; chmod 755 .
printf '%s\n' root:x:0:0::/root: www-data:x:33:33::/var: >etc/passwd
printf '%s\n' root:x:0: www-data:x:33: >etc/group"""

Mistake = collections.namedtuple("Mistake", "product file line what edits mark",
                                 defaults=["", 0, "", [], ""])


def paragraphs(name):
    """The paragraphs of a file, without comments: the number of the first line, and the lines."""
    text, found = (pathlib.Path(__file__).parent / name).read_text(), [[]]
    for number, line in enumerate(text.splitlines(), 1):
        if not line.strip():
            found.append([])
        elif not line.startswith("#"):
            found[-1].append((number, line))
    return [(lines[0][0], [line for _, line in lines]) for lines in found if lines]


def mistakes():
    for number, (head, *lines) in paragraphs("mistakes.txt"):
        where, what = head.split(": ", 1)
        mark = lines.pop()[2:] if lines[-1][0] == "!" else ""
        yield Mistake(*where.split(), number, what, lines, mark)


def lay_out(mistake, folder):
    """Lays out the product with the mistake; the numbers of the lines changed, and their words."""
    shutil.copytree(EXAMPLES / mistake.product, folder, symlinks=True)
    file = folder / mistake.file

    def lines():
        return file.read_bytes().decode("utf-8").split("\n") if file.is_file() else []

    before, numbers, words, at = lines(), set(), set(), 0
    for sign, text in ((edit[0], edit[1:]) for edit in mistake.edits):
        after = lines()
        if sign == "$":
            subprocess.run(["sh", "-ec", text], cwd=folder, check=True)
            words.add(file.name)
            continue
        if sign != "+":
            found = [line.split() for line in after[at:]]
            assert text.split() in found, f"mistakes.txt:{mistake.line}: not in {file.name}: {text}"
            at += found.index(text.split()) + (sign in " =")
        if sign == "-":
            del after[at]
        elif sign == "+":
            after.insert(at, text)
            at += 1
        elif sign == "=":
            numbers.add(at)
        file.write_text("\n".join(after), newline="")
    matcher = difflib.SequenceMatcher(None, before, after := lines(), False)
    for what, old, old_end, new, new_end in matcher.get_opcodes():
        if what != "equal":
            numbers |= set(range(new, new_end + 2))  # one more on either side
            if file.name not in words:
                words |= set(WORD.findall(" ".join(before[old:old_end] + after[new:new_end])))
    return numbers, words


def findings(mistake):
    """What the checker says: findings that name the mistake, and others."""
    with tempfile.TemporaryDirectory(dir=SCRATCH) as scratch:
        folder = pathlib.Path(scratch, "product")
        numbers, words = lay_out(mistake, folder)
        said = subprocess.run([KIT, "check"], cwd=folder, timeout=SECONDS, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout
    named, others = [], []
    for file, line, text in FINDING.findall(said.decode("utf-8", "replace")):
        things = WORD.findall(" ".join(QUOTED.findall(text)))
        hit = file == mistake.file and int(line) in numbers or words.intersection(things)
        (named if hit else others).append(f"{file}:{line}: {text}")
    return named, others


def plain(text):
    """The bytes as a text without moments."""
    return re.sub(r"\d{4}-?\d\d-?\d\d(-\d{6})?", "(moment)", text.decode("latin-1"))


def run(root, command):
    """Runs a command of the shell on the machine; what it prints."""
    box = ["bwrap", "--unshare-pid", "--unshare-net", "--die-with-parent", "--bind", root, "/",
           "--dev", "/dev", "--ro-bind", "/usr", "/usr", "--chdir", "/srv",
           "sh", "-c", f"ulimit -f 8192; umask 022; {command}"]
    try:
        return plain(subprocess.run(box, timeout=SECONDS, stdin=subprocess.DEVNULL, check=False,
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout)
    except subprocess.TimeoutExpired:
        return "it does not end"


def tree(root):
    """All that a run may change, but the log."""
    found = {}
    for path in root.rglob("*"):
        if not path.name.startswith("install.log"):
            info, content = path.lstat(), ""
            if path.is_symlink():
                content = path.readlink()
            elif path.is_file():
                content = plain(path.read_bytes())
            name = plain(bytes(path.relative_to(root)))
            found[name] = (info.st_mode, info.st_uid, info.st_gid, content)
    return found


@contextlib.contextmanager
def machine(mistake):
    """A machine with two users, the product in /srv, and /usr from this one."""
    with tempfile.TemporaryDirectory(dir=SCRATCH) as scratch:
        root = pathlib.Path(scratch)
        subprocess.run(["sh", "-ec", MACHINE], cwd=root, check=True)
        lay_out(mistake, root / "srv")
        shutil.copy(INSTALL, root / "srv/install")
        yield root


def answered(product, commands):
    """What the checker finds in the product with the answers of the runs that did their work."""
    said = ""
    with machine(product) as root:
        shutil.copy(KIT, root / "kit")
        for command in commands:
            if "Success" in run(root, command):
                said += run(root, "/kit answers >/answers && cp -R . /copy && cd /copy &&"
                                  " mv /answers install.dat && /kit check; rm -rf /copy")
    assert "0 errors" in said, f"no data file with answers: {said}"
    return [":".join(one) + " (with answers)" for one in FINDING.findall(said)]


def life(mistake, commands):
    """What each of the commands prints, leaves on the disk, and logs as errors."""
    with machine(mistake) as root:
        now, logged = tree(root), 0
        for command in commands:
            yield "prints", command, run(root, command)
            before, now = now, tree(root)
            yield "leaves", command, [(name, now.get(name)) for name in sorted(before | now)
                                      if before.get(name) != now.get(name)]
            log = "".join(plain(path.read_bytes()) for path in (root / "srv").glob("install.log"))
            yield "logs", command, re.findall(r"\[\d+\] Error: (.*)", log[logged:])
            logged = len(log)


def change(mistake, lives):
    """The first thing that the mistake changes in the lives of its product, or nothing."""
    for commands, right in lives:
        for (kind, command, expected), (*_, got) in zip(right, life(mistake, commands)):
            if expected != got:
                return f"{kind} something else: {command}"
    return ""


def judge(mistake, lives):
    """Whether a mistake changes a run, is named, is other than the list says; and a report."""
    (named, others), mark = findings(mistake), mistake.mark.split(":")[0]
    effect = change(mistake, lives[mistake.product]) if lives else mark != "no change"
    wrong = [text for text, holds in [
        ("no run shows it", not effect and mark != "no change"),
        ("a run shows it", effect and mark == "no change"),
        ("it is named", mark == "missed" and named),
        ("it is not named", not mark and not named)] if holds]
    return bool(effect), bool(named), bool(wrong), "\n    ".join([
        f"mistakes.txt:{mistake.line}: {mistake.product} {mistake.file}: {mistake.what}",
        *([effect] if lives else []), *([mistake.mark] if mark else []),
        *(f"named: {one}" for one in named), *(f"beside it: {one}" for one in others),
        *(f"NOT AS LISTED: {one}" for one in wrong)])


def measure(full):
    lives, known, right = collections.defaultdict(list), [], True
    with multiprocessing.pool.ThreadPool(2) as pool:
        for _, (name, *commands) in paragraphs("runs.txt") if full else []:
            product = Mistake(name.split(",")[0])
            told, again = pool.map(lambda one: list(life(one, commands)), [product, product])
            assert told == again, f"runs.txt: {name}: not twice the same"
            lives[product.product].append((commands, told))
        for effect, named, wrong, report in pool.imap(lambda one: judge(one, lives), mistakes()):
            print(report, flush=True)
            known += [named] if effect else []
            right = right and not wrong
    for product in sorted({mistake.product for mistake in mistakes()}):
        alarms = findings(Mistake(product))[1]
        for commands, _ in lives[product]:
            alarms += answered(Mistake(product), commands)
        print(f"{product}: {len(alarms)} findings without a mistake", *alarms, sep="\n    ")
        right = right and not alarms
    percent = 100 * sum(known) / len(known)
    print(f"{len(known)} mistakes change a run, {sum(known)} of them are named: {percent:.1f} %")
    return right and percent >= GOAL


def draw(product):
    """Prints a mistake at random, in a line that its file has once; free text is left alone."""
    files = {file: [line for line in file.read_text().splitlines() if line[:1] not in ("", "#")]
             for file in sorted(product.glob("install.*"))}
    file, line = random.choice([(file, line) for file, lines in files.items() for line in lines
                                if lines.count(line) == 1])
    words, error = line.split(), line.startswith("Error")
    free = {".dat": 1 + ("$(" in line), ".q": 3 if error else 5, ".cpy": 2 if error else 9}
    one, other = (random.randrange(min(free.get(file.suffix, 9), len(words))) for _ in range(2))
    letter, swapped = random.randrange(len(words[one])), list(words)
    swapped[one], swapped[other] = words[other], words[one]
    kind, *new = random.choice([
        ("a letter dropped", *words[:one], words[one][:letter] + words[one][letter + 1:],
         *words[one + 1:]),
        ("a column dropped", *words[:one], *words[one + 1:]),
        ("a column doubled", *words[:one + 1], *words[one:]),
        ("two columns swapped", *swapped), ("a line dropped",), ("a line moved",)])
    if new == words:
        return draw(product)
    edits = ["-" + line] + (["+" + " ".join(new)] if new else [])
    if kind == "a line moved":
        lines = files[file]
        to = random.choice([to for to in lines if lines.count(to) == 1 and to != line])
        edits[lines.index(to) > lines.index(line):0] = [" " + to, "+" + line]
    return print(f"\n{product.name} {file.name}: {kind}", *edits, sep="\n")


if __name__ == "__main__":
    if sys.argv[1] == "--draw":
        random.seed(int(sys.argv[2]))
        for _ in range(int(sys.argv[3])):
            draw(pathlib.Path(sys.argv[4]))
    else:
        INSTALL, KIT, EXAMPLES, SCRATCH = (pathlib.Path(one).resolve() for one in sys.argv[1:5])
        sys.exit(not measure("--full" in sys.argv[5:]))
