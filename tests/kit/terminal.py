"""What a terminal and others send while product-kit runs a program, and output that is lost.

    terminal.py PRODUCT-KIT
"""

import os
import pathlib
import pty
import select
import signal
import subprocess
import sys
import tempfile
import time

kit = os.path.abspath(sys.argv[1])

# Ends by itself after ten seconds, should nothing else end it.
PROGRAM = """
trap "$1" TERM
trap "$2" INT
trap "echo goes on" CONT
echo ready
count=0
while [ $count -lt 200 ]; do sleep 0.05; count=$((count + 1)); done
"""


def on_terminal(words, *steps):
    """Does each step when its text has been shown: types bytes, or calls with the process's
    number. All that was shown, and the exit status."""
    process, terminal = pty.fork()
    if process == 0:
        os.execvp(words[0], words)
    shown, seen, steps, deadline = "", 0, list(steps), time.monotonic() + 20
    while time.monotonic() < deadline:
        if not select.select([terminal], [], [], 0.1)[0]:
            continue
        try:
            shown += os.read(terminal, 4096).decode().replace("\r", "")
        except OSError:  # all have closed it
            break
        if steps and steps[0][0] in shown[seen:]:
            text, deed = steps.pop(0)
            seen = shown.index(text, seen) + len(text)
            deed(process) if callable(deed) else os.write(terminal, deed)
    else:
        os.kill(process, signal.SIGKILL)
    assert not steps, f"never shown: {steps[0][0]}, but: {shown}"
    os.close(terminal)
    return shown, os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])


def send(number):
    return lambda process: os.kill(process, number)


def main():
    interrupt, leave, terminate = b"\x03", b"\x1c", send(signal.SIGTERM)
    # what the program does at TERM and at INT | typed, or sent to the kit alone | what ends it
    for at_term, at_int, steps, told, status in (
            ("-", "-", [("ready", interrupt)], "ended by signal 2, Interrupt", 130),
            ("-", "-", [("ready", leave)], "ended by signal 3, Quit", 131),
            ("-", "-", [("ready", terminate)], "ended by signal 15, Terminated", 143),
            ("echo in order; exit", "-", [("ready", terminate)], "written nothing to", 125),
            ("-", "echo noted", [("ready", interrupt), ("noted", terminate)], "signal 15", 143)):
        shown, ended = on_terminal([kit, "run", "sh", "program", at_term, at_int], *steps)
        assert told in shown and ended == status, (shown, ended)
        assert shown.count("in order") == at_term.count("in order"), shown
        assert shown.count("noted") == at_int.count("noted"), shown
    for words, status in ((["help"], 125), (["--help"], 125), (["check", "--help"], 2),
                          (["check", "--rules"], 2)):
        with open("/dev/full", "wb") as full:
            lost = subprocess.run([kit, *words], stdout=full, stderr=subprocess.PIPE, check=False)
        assert lost.returncode == status and b"output cannot be written" in lost.stderr, lost
    shell = "\"$0\" run sh program - -; echo \"stopped, $?\"; fg; echo \"ended, $?\""
    shown, _ = on_terminal(["sh", "-mc", shell, kit], ("ready", b"\x1a"), ("goes on", interrupt))
    assert "stopped, 148" in shown and "ended, 130" in shown, shown


with tempfile.TemporaryDirectory(prefix="terminal.") as made:
    os.chdir(made)
    pathlib.Path("sh.dat").touch()
    pathlib.Path("program").write_text(PROGRAM)
    main()
