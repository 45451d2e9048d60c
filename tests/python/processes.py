"""Programs that the tests run."""

import contextlib
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile

# Ends a test that hangs. No test depends on the speed of the machine.
TIME_OUT = 300.0


class RunningServer:
    """A process of `vantor_server`, or of another server, with these arguments. It ends with the context."""

    def __init__(self, *arguments, program=("VANTOR_SERVER",)):
        command = [os.environ[program[0]], *program[1:], *arguments]
        self._process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        line = self._process.stdout.readline()
        assert line.startswith("listening on "), line
        self.address = line.removeprefix("listening on ").strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill(signal.SIGTERM)
        self._process.communicate(timeout=TIME_OUT)

    def kill(self, number):
        """Sends a signal."""
        if self._process.poll() is None:
            self._process.send_signal(number)


def check_types(cache, *arguments):
    """mypy --strict on programs that use the installed package, or on a package; returns what it prints."""
    command = ["/usr/bin/mypy", "--strict", "--cache-dir", cache, "--python-executable", sys.executable, *arguments]
    checked = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=TIME_OUT)
    assert checked.returncode == 0, checked.stdout
    return checked.stdout


def campaign(whole, sample):
    """The size of a long test: a sample, or all of it if VANTOR_CAMPAIGN is set accordingly."""
    return whole if os.environ.get("VANTOR_CAMPAIGN") == "whole" else sample


@contextlib.contextmanager
def few_descriptors(free):
    """A context in which only this many further files can be opened."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    used = [os.dup(0)]
    try:
        resource.setrlimit(resource.RLIMIT_NOFILE, (max(map(int, os.listdir("/proc/self/fd"))) + 1 + free, hard))
        with contextlib.suppress(OSError):
            while True:
                used.append(os.dup(0))
        for _ in range(free):
            os.close(used.pop())
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))
        for descriptor in used:
            os.close(descriptor)


@contextlib.contextmanager
def ordinary_user():
    """A context of a user who is not the superuser, and a directory that everyone can read."""
    directory = pathlib.Path(tempfile.mkdtemp())
    directory.chmod(0o755)
    user = os.geteuid()
    try:
        yield directory, (lambda: os.seteuid(65534)) if user == 0 else (lambda: None)
    finally:
        os.seteuid(user)
        subprocess.run(["chmod", "-R", "u+rwx", directory], check=True)
        shutil.rmtree(directory)
