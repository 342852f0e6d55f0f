"""Times the installer beside other tools: bench/beside.py PROGRAM PLACE-ON-TMPFS [--quick].

Every work is timed turn by turn with hyperfine, each run on the same fresh tree; what is printed are
the medians and the ratio of the installer's to each peer's.
"""

import json
import os
import re
import shutil
import subprocess
import sys

program, place, *quick = sys.argv[1:]
os.chdir(place)
shutil.copy(program, "install")
OURS = "./install -special work -automate"
RUNS = 15
SMALLER = 100 if quick else 1


def write(name, text):
    with open(name, "w", encoding="ascii") as file:
        file.write(text)


def product(commands, data="product Bench\n"):
    """The four files of a product whose special section "work" runs the commands."""
    write("install.dat", data)
    write("install.int", "")
    write("install.q", "[work]\n[install]\n")
    write("install.cpy", "[work]\n" + commands + "\n")


def tree(root, directories, files, size):
    for directory in range(directories):
        path = f"{root}/d{directory}"
        os.makedirs(path)
        for file in range(files):
            with open(f"{path}/f{file}", "wb") as out:
                out.write(b"x" * size)


def medians(prepare, commands, runs=RUNS):
    """The median of each command in milliseconds; the commands take turns in rounds."""
    times = {command: [] for command in commands}
    rounds = 3
    runs = rounds if quick else runs
    for turn in range(rounds):
        call = ["hyperfine", "-w", "1" if turn == 0 else "0", "-r", str(max(1, runs // rounds))]
        call += ["--export-json", "times.json", "--prepare", prepare, "--style", "none"]
        call += ["-N"] if not any(c in command for command in commands for c in "|<>") else []
        subprocess.run(call + commands, check=True, capture_output=True)
        with open("times.json", encoding="utf-8") as file:
            for result in json.load(file)["results"]:
                times[result["command"]] += result["times"]
    return [sorted(times[command])[len(times[command]) // 2] * 1000 for command in commands]


def compare(work, prepare, peers, runs=RUNS, empty="true"):
    ours, *others = medians(prepare or empty, [OURS, *peers], runs)
    for peer, other in zip(peers, others):
        print(f"{work:34} {ours:9.2f} ms  {peer[:44]:44} {other:9.2f} ms  "
              f"ratio {ours / max(other, 0.01):.2f}")
    sys.stdout.flush()
    return ours


def calls_per_file(command, files):
    """System calls a file, from strace's count."""
    subprocess.run(["strace", "-f", "-c", "-o", "calls", *command.split()], check=True,
                   stdout=subprocess.DEVNULL)
    with open("calls", encoding="ascii") as file:
        total = [line.split() for line in file if line.rstrip().endswith("total")][0]
    return int(total[3 if len(total) > 4 else 2]) / files


def peak_memory(command):
    """The largest resident size in MiB."""
    result = subprocess.run(["/usr/bin/time", "-f", "%M", *command.split()], check=True,
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    return int(re.findall(r"\d+", result.stderr)[-1]) / 1024


def trees():
    tree("src", 200 // SMALLER, 50, 2048)
    os.mkdir("out")
    copying = f"CopyDir {place}/src - {place}/out"
    removing = f"RmDir {place}/out/src -"

    product(copying)
    clear = "rm -rf out/src"
    compare("copy 10,000 files of 2 KB", clear,
            ["cp -r src out/src", "rsync -a src out/",
             "sh -c 'tar -cf - src | tar -xf - -C out'"])
    print("  system calls a file copied:")
    for command, name in [(OURS, "install"), ("cp -r src out/src", "cp -r"),
                          ("rsync -a src out/", "rsync -a")]:
        subprocess.run(clear, shell=True, check=True)
        print(f"    {name:10} {calls_per_file(command, 10000 // SMALLER):.1f}")

    product(removing)
    compare("remove that tree", "cp -r src out/", ["rm -rf out/src"])
    print("  system calls a file removed:")
    for command, name in [(OURS, "install"), ("rm -rf out/src", "rm -rf")]:
        subprocess.run("cp -r src out/", shell=True, check=True)
        print(f"    {name:10} {calls_per_file(command, 10000 // SMALLER):.1f}")

    subprocess.run("cp -r src out/", shell=True, check=True)
    product(f"Chmod {place}/out/src - 755")
    compare("change mode of that tree", "chmod -R 700 out/src", ["chmod -R 755 out/src"])
    product(f"Chown {place}/out/src - nobody:nogroup")
    compare("change owner of that tree", "chown -R root:root out/src",
            ["chown -R nobody:nogroup out/src"])
    shutil.rmtree("out")
    shutil.rmtree("src")


def one_file():
    subprocess.run(f"head -c {512 // SMALLER}M /dev/zero > big; mkdir out", shell=True, check=True)
    product(f"CopyFile {place}/big - {place}/out")
    compare("copy one file of 512 MiB", "rm -f out/big",
            ["cp big out/big", "cp --reflink=never big out/big",
             "dd if=big of=out/big bs=8k status=none"], 9)
    os.remove("big")
    shutil.rmtree("out")


def start_to_end():
    product("")
    ours = compare("start to end, nothing to do", "", ["sh -c :"], 60)
    write("install.dat", "base /opt/x\n" + "".join(
        f"name{n} $(base)/$(name{max(0, n - 7)})\n" if n % 500 else f"name{n} $(base)/y\n"
        for n in range(5000)))
    many = medians("rm -f install.log*", [OURS])[0]
    print(f"{'data file of 5,000 settings':34} {many:9.2f} ms  ({many - ours:.2f} ms more)")


def settings_file():
    names = [f"name{n}" for n in range(20)]
    os.environ.update({name: "value-of-" + name for name in names}, base="/opt/product")
    data = "base /opt/product\n" + "".join(f"{name} value-of-{name}\n" for name in names)
    lines = [f"key{n} = $(base)/$(name{n % 20}) and more" for n in range(50000 // SMALLER)]
    write("ours.in", "\n".join(lines) + "\n")
    write("theirs.in", re.sub(r"\$\((\w+)\)", r"${\1}", "\n".join(lines) + "\n"))
    product(f"Ini {place}/ours.in {place}/ours", data)
    compare("settings file, 50,000 lines", "", ["sh -c 'envsubst < theirs.in > theirs'"])
    with open("ours", "rb") as ours, open("theirs", "rb") as theirs:
        assert ours.read() == theirs.read(), "the two settings files differ"


def growth():
    print("growth: files, copy a file (us), remove a file (us), peak memory of the copy (MiB)")
    for directories in [max(1, full // SMALLER) for full in (20, 200, 2000)]:
        files = directories * 50
        tree("src", directories, 50, 512)
        os.mkdir("out")
        product(f"CopyDir {place}/src - {place}/out")
        copying = medians("rm -rf out/src", [OURS], 3)[0]
        memory = peak_memory(OURS)
        product(f"RmDir {place}/out/src -")
        removing = medians("cp -r src out/", [OURS], 3)[0]
        print(f"  {files:7} {1000 * copying / files:6.2f} {1000 * removing / files:6.2f} {memory:5.1f}")
        sys.stdout.flush()
        shutil.rmtree("src")
        shutil.rmtree("out", ignore_errors=True)
    print("growth with depth: levels, copy a file (us)")
    for depth in (1, 10, 40):
        path = "src/" + "/".join("d" * 2 for _ in range(depth))
        os.makedirs(path)
        for file in range(1000):
            write(f"{path}/f{file}", "x" * 512)
        os.mkdir("out")
        product(f"CopyDir {place}/src - {place}/out")
        print(f"  {depth:3} {medians('rm -rf out/src', [OURS], 9)[0]:6.2f}")
        shutil.rmtree("src")
        shutil.rmtree("out")


if quick:
    print(f"Not measured but tried: the works are {SMALLER} times smaller than their lines say.")
for measure in (trees, one_file, start_to_end, settings_file, growth):
    measure()
