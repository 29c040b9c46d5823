"""Slices on other machines, by GNU parallel (O. Tange, "GNU Parallel 2018", 2018).

Each machine does one slice at a time, on all its cores or as many as are asked for; with a few more
slices than machines, the faster ones take more.
"""

import os
import re
import shlex
import shutil
import signal
import subprocess

from .settings import Unfit

SLICES_PER_MACHINE = 4


def machines(hosts):
    """(number of threads or None, ssh login) of each machine of a list, or of a file of them."""
    if os.path.isfile(hosts):
        with open(hosts, encoding="utf-8") as file:
            logins = [line.strip() for line in file if line.strip() and line[0] != "#"]
    else:
        logins = [login.strip() for login in hosts.split(",") if login.strip()]
    found = []
    for login in logins:
        counted = re.fullmatch(r"(\d+)/(.+)", login)
        found.append((counted[1], counted[2]) if counted else (None, login))
    if not found:
        raise Unfit(f"--hosts {hosts}: there is no machine in it.")
    return found


def run(hosts, program, arguments):
    """Does all slices; `arguments` are those of the run, folders first. Returns the exit status of
    GNU parallel, or 130 after an interruption."""
    if not shutil.which("parallel"):
        raise Unfit("GNU parallel is not installed (Debian: parallel).")
    found = machines(hosts)
    count = SLICES_PER_MACHINE * len(found)
    # Of its own accord, a user's settings for GNU parallel do not apply.
    command = ["parallel", "--plain", "--will-cite", "--no-notice", "--keep-order"]
    for _, login in found:
        command += ["--sshlogin", "1/" + login]
    jobs = "".join(f"*{shlex.quote(login)}) jobs='-j {threads}';; "
                   for threads, login in found if threads)
    # The machine's own shell looks up how many threads it is to take.
    # Whole lines are handed out, for in a command there would be a meaning to {} in a name.
    command += [":::"] + [
        f'jobs=; case "$PARALLEL_SSHLOGIN" in {jobs}esac; '
        f"{shlex.join([program, *arguments[:2]])} --under $PPID --slice {part}/{count} $jobs "
        + shlex.join(arguments[2:]) for part in range(1, count + 1)]
    environment = {name: value for name, value in os.environ.items() if name != "PARALLEL"}
    environment["PARALLEL_SHELL"] = "/bin/sh"
    stop = {"preexec_fn": die_with_parent}
    with subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, **stop) as process:
        def end(*_):
            process.send_signal(signal.SIGTERM)
            process.send_signal(signal.SIGTERM)  # the first one would let running slices end
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            if signal.getsignal(number) != signal.SIG_IGN:
                signal.signal(number, end)
        status = process.wait()
    return 130 if status < 0 or status > 101 else status


def die_with_parent(under=None):
    """Has the system end this process when the one that began it ends, however it ends, and ends it
    at once if the process `under`, on whose behalf it runs, has ended already."""
    import ctypes
    ctypes.CDLL(None).prctl(1, signal.SIGTERM, 0, 0, 0)  # PR_SET_PDEATHSIG
    if under is not None and not os.path.exists(f"/proc/{under}"):
        os.kill(os.getpid(), signal.SIGTERM)
