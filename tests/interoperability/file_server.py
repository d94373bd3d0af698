"""A file server for Macs on this machine, for as long as the tests run: Samba, as an ordinary process on a free port, with
everything that it keeps in a temporary folder."""
import contextlib
import os
import pathlib
import pwd
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SERVER = shutil.which("smbd", path=os.environ["PATH"] + ":/usr/sbin:/usr/local/sbin")
CLIENT = shutil.which("smbclient")
START_SECONDS = 60
END_SECONDS = 30

# What decides about the layout is named even where it is the default. Without attributes of its own the server takes the
# creation date from where Macs' servers keep it.
CONFIGURATION = """
[global]
    server role = standalone server
    netbios name = TAVPORT
    disable netbios = yes
    smb ports = {port}
    interfaces = lo
    bind interfaces only = yes
    map to guest = bad user
    guest account = {user}
    load printers = no
    disable spoolss = yes
    printing = bsd
    printcap name = /dev/null
    log file = {state}/log
    private dir = {state}
    lock directory = {state}
    state directory = {state}
    cache directory = {state}
    pid directory = {state}
    ncalrpc dir = {state}/ncalrpc
    binddns dir = {state}
    vfs objects = fruit streams_xattr
    fruit:metadata = netatalk
    fruit:resource = file
    store dos attributes = no
[share]
    path = {share}
    guest ok = yes
    read only = no
"""


def modules():
    """Whether both modules are there; they are in a package of their own."""
    said = subprocess.run([SERVER, "--build-options"], capture_output=True, text=True, check=True).stdout
    folder = pathlib.Path(re.search(r"^ *MODULESDIR: (.*)$", said, re.MULTILINE).group(1), "vfs")
    return (folder / "fruit.so").exists() and (folder / "streams_xattr.so").exists()


def missing():
    """Why there can be no server; None when there can."""
    if not SERVER or not CLIENT or not modules():
        return "Samba is not installed (packages samba, samba-vfs-modules and smbclient)"
    try:
        pwd.getpwuid(os.geteuid())
    except KeyError:
        return "Samba needs a user who has a name"
    with tempfile.NamedTemporaryFile(prefix="tavport-test-") as file:
        try:
            os.setxattr(file.name, "user.org.netatalk.Metadata", b"x")
        except OSError as error:
            return f"extended attributes: {error}"
    return None


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def session_members(session):
    """The processes of a session that still run; children outlive the one that began it."""
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            with contextlib.suppress(FileNotFoundError, ProcessLookupError):
                state, _, _, its = (entry / "stat").read_text(errors="replace").rpartition(")")[2].split()[:4]
                if int(its) == session and state not in "ZX":
                    yield int(entry.name)


def await_session(session, seconds=END_SECONDS):
    """Returns when no process of the session runs; what still runs after that time is killed."""
    deadline = time.monotonic() + seconds
    while members := list(session_members(session)):
        for process in members:
            with contextlib.suppress(ProcessLookupError):
                ended = os.pidfd_open(process)
                readable, _, _ = select.select([ended], [], [], max(0, deadline - time.monotonic()))
                if not readable:
                    signal.pidfd_send_signal(ended, signal.SIGKILL)
                os.close(ended)


class FileServer:
    """Serves `share`, an existing folder, once start() is through, until stop() or the end of this process."""

    def __init__(self, share):
        self.folder = tempfile.TemporaryDirectory(prefix="tavport-test-")
        self.state = pathlib.Path(self.folder.name).resolve()
        self.share = share
        self.configuration = self.state / "smb.conf"
        self.process = None

    def start(self):
        # Somebody else may take the port before the server does.
        for _ in range(3):
            self.port = free_port()
            if self.started():
                return
        raise AssertionError(f"smbd does not start\n{self.log()}")

    def started(self):
        user = pwd.getpwuid(os.geteuid()).pw_name
        self.configuration.write_text(CONFIGURATION.format(port=self.port, user=user, state=self.state, share=self.share),
                                      encoding="utf-8")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as ready:
            where = self.state / "ready"
            where.unlink(missing_ok=True)
            ready.bind(str(where))
            # In the foreground it makes a session of its own, and ends with all its children when this pipe closes, so
            # also when this process is killed.
            self.process = subprocess.Popen([SERVER, "--foreground", f"--configfile={self.configuration}",
                                             f"--log-basename={self.state}"], stdin=subprocess.PIPE,
                                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                            env={**os.environ, "NOTIFY_SOCKET": str(where)})
            if self.says_ready(ready) and self.listens():
                return True
        self.stop()
        return False

    def says_ready(self, ready):
        ended = os.pidfd_open(self.process.pid)
        try:
            while True:
                readable, _, _ = select.select([ready, ended], [], [], START_SECONDS)
                if ready not in readable:
                    return False
                if b"READY=1" in ready.recv(4096):
                    return True
        finally:
            os.close(ended)

    def listens(self):
        """It may say that it is ready a moment before it listens."""
        ended = os.pidfd_open(self.process.pid)
        deadline = time.monotonic() + START_SECONDS
        try:
            while time.monotonic() < deadline:
                with contextlib.suppress(ConnectionRefusedError), socket.create_connection(("127.0.0.1", self.port)):
                    return True
                if select.select([ended], [], [], 0.01)[0]:
                    return False
            return False
        finally:
            os.close(ended)

    def stop(self):
        if self.process is None:
            return
        self.process.stdin.close()
        try:
            self.process.wait(END_SECONDS)
        except subprocess.TimeoutExpired:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(self.process.pid, signal.SIGKILL)
            self.process.kill()
            self.process.wait()
        await_session(self.process.pid)  # its children still write
        self.process = None

    def remove(self):
        self.stop()
        self.folder.cleanup()

    def log(self):
        return "".join(path.read_text(errors="replace") for path in sorted(self.state.glob("log*")))

    def command(self, text):
        """What the server's own client prints when it does this; it is an error when it cannot."""
        result = subprocess.run([CLIENT, "//127.0.0.1/share", "--no-pass", f"--port={self.port}", f"--command={text}",
                                 f"--configfile={self.configuration}"], capture_output=True, timeout=60, text=True,
                                check=False, env={**os.environ, "TZ": "UTC"})
        if result.returncode != 0 or "NT_STATUS_" in result.stdout:
            raise AssertionError(f"smbclient: {text}: {result.stdout}{result.stderr}")
        return result.stdout

    def read(self, name):
        with tempfile.TemporaryDirectory(prefix="tavport-test-") as folder:
            self.command(f'get "{name}" "{folder}/read"')
            return pathlib.Path(folder, "read").read_bytes()

    def write(self, name, content):
        with tempfile.NamedTemporaryFile(prefix="tavport-test-") as file:
            file.write(content)
            file.flush()
            self.command(f'put "{file.name}" "{name}"')

    def names(self):
        return sorted(name for name in re.findall(r"^  (.*?) +[A-Z]+ +\d+  ", self.command("ls"), re.MULTILINE)
                      if name not in (".", ".."))

    def streams(self, name):
        """Name and size of everything that has a size."""
        found = re.findall(r"^stream: \[:(.*?):\$DATA\], (\d+) bytes", self.command(f'allinfo "{name}"'), re.MULTILINE)
        return {stream: int(size) for stream, size in found}

    def create_times(self):
        """The create time of each entry in seconds from 1970."""
        (self.state / ".smb").mkdir(exist_ok=True)
        shutil.copy(self.configuration, self.state / ".smb")
        result = subprocess.run([sys.executable, "-B", pathlib.Path(__file__).with_name("list_folder.py"),
                                 f"smb://guest@127.0.0.1:{self.port}/share/"], capture_output=True, timeout=60, text=True,
                                check=False, env={**os.environ, "HOME": str(self.state)})
        if result.returncode != 0:
            raise AssertionError(f"libsmbclient: {result.stderr}")
        return {name: int(seconds) for name, seconds in (line.rsplit(" ", 1) for line in result.stdout.splitlines())}
