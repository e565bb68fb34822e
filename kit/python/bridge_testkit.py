"""Test kit: a switch of a test's own, with its server, its kernel's bridge module and the daemons under test.

    with World(time_scale=10) as world:
        daemon = world.start("./my_daemon")
        world.wait("client my_daemon registered")
        world.run("port add 3 access 10")
        assert world.run("port show")["ports"][0]["pvid"] == 10

Commands are those of `bridge-sandbox ctl help`; their answers are dictionaries. Durations in commands are in the world's
time, those of the functions here in seconds of the wall's clock. Several worlds share nothing.
"""

import glob
import itertools
import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time

PRELOAD = "libef_bridge_sim.so"
SHOWN_MESSAGES = 50
PATIENCE = 10  # seconds for a server to answer
PID_LIMIT = 1 << 22
_worlds = itertools.count(1)


class Refused(Exception):
    """A command that the server refused, or that waited in vain."""


def find_sandbox():
    """The program: $BRIDGE_SANDBOX, the one of the tree that this module is installed in, or the one of PATH."""
    here = os.path.dirname(os.path.realpath(__file__))
    installed = os.path.normpath(os.path.join(here, "..", "..", "..", "bin", "bridge-sandbox"))
    named = os.environ.get("BRIDGE_SANDBOX")
    found = named or (installed if os.access(installed, os.X_OK) else shutil.which("bridge-sandbox"))
    if not found:
        raise FileNotFoundError("no bridge-sandbox in PATH; BRIDGE_SANDBOX may name it")
    return os.path.realpath(found)


def find_preload(sandbox):
    """The directory of the library that daemons reach the kernel's bridge module by."""
    directory = os.path.dirname(sandbox)
    for place in (".", "../lib*", "../lib/*"):
        for path in glob.glob(os.path.join(glob.escape(directory), place, PRELOAD)):
            return os.path.dirname(path)
    raise FileNotFoundError(f"no {PRELOAD} beside {sandbox}")


class Process:
    """A process of a world with its output, both streams together, in a file."""

    def __init__(self, arguments, environment, path):
        self.path = path
        with open(path, "ab") as output:
            self._process = subprocess.Popen(
                arguments, env=environment, stdin=subprocess.DEVNULL, stdout=output, stderr=output
            )
        self.pid = self._process.pid

    @property
    def runs(self):
        return self._process.poll() is None

    @property
    def status(self):
        """Its exit status, 128 and the signal that ended it, or None while it runs."""
        code = self._process.poll()
        return 128 - code if code is not None and code < 0 else code

    @property
    def output(self):
        with open(self.path, encoding="utf-8", errors="backslashreplace") as file:
            return file.read()

    def prints(self, text, seconds=5):
        """Whether it prints the text within the time; what it has printed already counts."""
        end = time.monotonic() + seconds
        while True:
            runs = self.runs  # asked first: then what it wrote at its end is seen
            if text in self.output:
                return True
            if not runs or time.monotonic() >= end:
                return False
            time.sleep(0.002)

    def stop(self, number=signal.SIGTERM, seconds=5):
        """Sends the signal, SIGKILL after the time, and waits. Its status."""
        if self.runs:
            self._process.send_signal(number)
        try:
            self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        return self.status


class World:
    """A directory, a VSDID, a server and a kernel's bridge module; end() or leaving the context removes them."""

    def __init__(self, time_scale=None, sandbox=None):
        self.sandbox = os.path.realpath(sandbox) if sandbox else find_sandbox()
        self.vsdid = os.getpid() % PID_LIMIT + (next(_worlds) - 1) % 63 * PID_LIMIT + PID_LIMIT
        self.server = None
        self.kernel = None
        self.daemons = []
        self._control = None
        self._files = itertools.count(1)
        self._traces = []
        preload = find_preload(self.sandbox)
        self.tmpdir = tempfile.mkdtemp(prefix="btk.")
        before = os.environ.get("LD_LIBRARY_PATH")
        self.environment = dict(
            os.environ,
            TMPDIR=self.tmpdir,
            VSDID=str(self.vsdid),
            LD_PRELOAD=PRELOAD,
            LD_LIBRARY_PATH=preload + (":" + before if before else ""),
        )
        if time_scale:
            self.environment["QV_THREAD_TIME_SCALE"] = f"{time_scale:g}"
        try:
            self._start_kernel()
            self.start_server()
        except BaseException:
            self.end()
            raise

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        self.end()

    def end(self):
        """Ends its processes, daemons first, and removes the directory and the tables in shared memory."""
        if not os.path.isdir(self.tmpdir):
            return
        for process in [*self.daemons, self.server, self.kernel]:
            if process is not None:
                process.stop()
        self._disconnect()
        subprocess.run([self.sandbox, "clean"], env=self.environment, stdout=subprocess.DEVNULL, check=False)
        shutil.rmtree(self.tmpdir)

    # Commands

    def run(self, command):
        """Runs a command and gives its answer; raises Refused with the reason."""
        if "\n" in command:
            raise Refused("a command is one line")
        if self._control is None:
            raise Refused("there is no server")
        try:
            self._control.sendall(f"json {command}\n".encode())
            ok, size = self._answers.readline().split()
            text = self._answers.read(int(size))
        except (OSError, ValueError) as error:
            self._disconnect()
            raise Refused("the server has gone") from error
        answer = json.loads(text)
        if ok != b"ok":
            raise Refused(f"{command}: {answer['error']}")
        return answer

    def wait(self, condition, within=None):
        """Waits until it happens or is so, `within` seconds of the world's time."""
        return self.run(f"wait {condition}" + (f" within {within}" if within is not None else ""))

    def never(self, condition, seconds):
        """Raises Refused as soon as it happens or is so, during that much of the world's time."""
        return self.run(f"never {condition} for {seconds}")

    def expect(self, *conditions, within=None):
        """Waits for what happens in this order."""
        return self.run("expect " + " then ".join(conditions) + (f" within {within}" if within is not None else ""))

    # Processes

    def start(self, *arguments):
        """Starts a daemon in the world."""
        self.daemons.append(self._start(arguments))
        return self.daemons[-1]

    def start_server(self):
        """Starts the server, again after kill_server(), and waits until it answers."""
        if self.server is not None and self.server.runs:
            return
        self._traces.append(os.path.join(self.tmpdir, f"trace.{next(self._files)}"))
        self.server = self._start((self.sandbox, "--quiet", "--trace", self._traces[-1]))
        end = time.monotonic() + PATIENCE
        while not self._connect():
            if not self.server.runs or time.monotonic() >= end:
                raise RuntimeError(f"no server: {self.server.output}")
            time.sleep(0.002)

    def kill_server(self):
        """kill -9: the tables and the kernel's bridge module stay."""
        self._disconnect()
        return self.server.stop(signal.SIGKILL)

    # What happened

    def trace(self):
        """Everything that happened at the servers of this world, oldest first, as dictionaries."""
        return [json.loads(line) for line in self._trace_lines()]

    def report(self):
        """The last messages and what the daemons printed, for people."""
        text = "the last messages:\n" + "".join(line + "\n" for line in self._trace_lines()[-SHOWN_MESSAGES:])
        for daemon in self.daemons:
            text += f"output of process {daemon.pid}:\n{daemon.output}"
        return text

    def _trace_lines(self):
        lines = []
        for path in self._traces:
            with open(path, encoding="utf-8") as file:
                # The last line of a server that was killed may lack its end.
                lines += [line[:-1] for line in file if line.endswith("\n")]
        return lines

    def _start(self, arguments):
        path = os.path.join(self.tmpdir, f"output.{next(self._files)}")
        return Process([os.fspath(argument) for argument in arguments], self.environment, path)

    def _start_kernel(self):
        self.kernel = self._start((self.sandbox, "kernel"))
        if not self.kernel.prints("listening", PATIENCE):
            raise RuntimeError(f"no kernel: {self.kernel.output}")

    def _connect(self):
        control = socket.socket(socket.AF_UNIX)
        try:
            control.connect(os.path.join(self.tmpdir, "bridge", ".control"))
        except OSError:
            control.close()
            return False
        self._control = control
        self._answers = control.makefile("rb")
        return True

    def _disconnect(self):
        if self._control is not None:
            self._answers.close()
            self._control.close()
            self._control = None
