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


class Machines:
    """The machines of a list, or of a file of them; `slices` is how many they are given."""

    def __init__(self, hosts):
        if os.path.isfile(hosts):
            with open(hosts, encoding="utf-8") as file:
                logins = [line.strip() for line in file if line.strip() and line[0] != "#"]
        else:
            logins = [login.strip() for login in hosts.split(",") if login.strip()]
        if not logins:
            raise Unfit(f"--hosts {hosts}: there is no machine in it.")
        if not shutil.which("parallel"):
            raise Unfit("GNU parallel is not installed (Debian: parallel).")
        self._found = []  # (number of threads or None, ssh login)
        for login in logins:
            counted = re.fullmatch(r"(\d+)/(.+)", login)
            self._found.append((counted[1], counted[2]) if counted else (None, login))
        self.slices = SLICES_PER_MACHINE * len(logins)

    def run(self, program, arguments):
        """Does all slices; `arguments` are those of the run, folders first. Returns whether it was
        interrupted."""
        # Of its own accord, a user's settings for GNU parallel do not apply.
        # A machine that is out of reach fails at once, again and again: others get its slices.
        command = ["parallel", "--plain", "--will-cite", "--no-notice", "--retries", "3"]
        for _, login in self._found:
            command += ["--sshlogin", "1/" + login]
        jobs = "".join(f"*{shlex.quote(login)}) jobs='-j {threads}';; "
                       for threads, login in self._found if threads)
        # The machine's own shell looks up how many threads it is to take.
        # Whole lines are handed out, for in a command there would be a meaning to {} in a name.
        # What a slice says is in its journal; that files failed (1) is no reason to do it again.
        command += [":::"] + [
            f'jobs=; case "$PARALLEL_SSHLOGIN" in {jobs}esac; '
            f"{shlex.join([program, *arguments[:2]])} --under $PPID --slice {part}/{self.slices} "
            f"$jobs {shlex.join(arguments[2:])} >/dev/null || [ $? -eq 1 ]"
            for part in range(1, self.slices + 1)]
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("PARALLEL")}
        environment["PARALLEL_SHELL"] = "/bin/sh"
        stopped = []
        with subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                              preexec_fn=die_with_parent) as process:
            def end(*_):
                stopped.append(True)
                process.send_signal(signal.SIGTERM)
                process.send_signal(signal.SIGTERM)  # the first would let running slices end
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                if signal.getsignal(number) != signal.SIG_IGN:
                    signal.signal(number, end)
            process.wait()
        return bool(stopped)


def die_with_parent(under=None):
    """Has the system end this process when the one that began it ends, however it ends, and ends it
    at once if the process `under`, on whose behalf it runs, has ended already."""
    import ctypes
    ctypes.CDLL(None).prctl(1, signal.SIGTERM, 0, 0, 0)  # PR_SET_PDEATHSIG
    if under is not None and not os.path.exists(f"/proc/{under}"):
        os.kill(os.getpid(), signal.SIGTERM)
