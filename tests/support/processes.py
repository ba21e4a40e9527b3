"""Processes that tests start: each ends with the test, and begins with an environment of which all is known."""

import os
import subprocess
import time
from pathlib import Path

# nothing of the environment around the tests changes what they measure
BARE_ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "PYTHONDONTWRITEBYTECODE": "1"}


def wait_until(condition, within, what):
    """What the condition gives as soon as it holds."""
    deadline = time.monotonic() + within
    while not (result := condition()):
        assert time.monotonic() < deadline, f"not within {within} s: {what}"
        time.sleep(0.01)
    return result


def processor_seconds(pid):
    """What a process has used so far, with the threads that have ended."""
    fields = Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Child(subprocess.Popen):
    """A process that does not outlive this one, and that a `with` block or an ExitStack ends."""

    def __init__(self, command, **options):
        options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("env", BARE_ENVIRONMENT)
        super().__init__(["setpriv", "--pdeathsig", "KILL", *map(str, command)], **options)

    def __exit__(self, *_):
        if self.poll() is None:
            self.terminate()
            try:
                self.wait(5)
            except subprocess.TimeoutExpired:
                self.kill()
        super().__exit__(None, None, None)


class Tool(Child):
    """A child that obeys one line at a time and answers each with one line."""

    def __init__(self, command, **options):
        super().__init__(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1, **options)
        started = self.stdout.readline().strip()
        assert started == "ready", f"{command[0]} did not start: {started}"

    def ask(self, line):
        self.stdin.write(line + "\n")
        answer = self.stdout.readline().strip()
        assert answer and not answer.startswith("error"), f"{line}: {answer}"
        return answer


class Place:
    """Where processes run: here, unless a subclass knows the command line that goes elsewhere."""

    def inside(self, command):
        """The command line that runs `command` in this place."""
        return command

    def run(self, command, **options):
        return subprocess.run([*map(str, self.inside(command))], **{"check": True, "env": BARE_ENVIRONMENT} | options)

    def popen(self, command, kind=Child, **options):
        return kind(self.inside(command), **options)


HERE = Place()
