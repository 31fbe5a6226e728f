"""A virtual machine with this machine's own system: its root, read only, under a layer that is forgotten at the end. For
what needs a kernel of its own: real keyboards, logind, a compositor on a screen."""
import json
import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

GUEST = pathlib.Path(__file__).resolve().parent / "guest"
SOURCE = GUEST.parent.parent.parent
MODULES = ["virtio_pci", "9pnet_virtio", "9p", "overlay"]
PATIENCE = 240  # seconds for anything; emulated processors on a busy machine are slow


def kernel():
    """The newest of Debian's kernels that is installed with its modules."""
    for image in sorted(pathlib.Path("/boot").glob("vmlinuz-*"), reverse=True):
        release = image.name.removeprefix("vmlinuz-")
        if pathlib.Path("/lib/modules", release).is_dir():
            return image, release
    raise RuntimeError("no kernel in /boot (tools/setup test)")


class Machine:
    """Runs until it is left; sway and a terminal come up in it, whose text is in /tmp/typed. The build folder is /opt/build
    there, nulo-keytap is started by keytap-start, and `programs` are in the guest's PATH."""

    def __init__(self, build, programs=()):
        self.build = pathlib.Path(build).resolve()
        files = {f"/usr/local/bin/{program.name}": program for program in programs}
        files["/etc/udev/rules.d/70-nulo-keytap.rules"] = SOURCE / "packaging/keytap/70-nulo-keytap.rules"
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nulo-machine-"))
        self.files = files
        self.calls = 0
        self.process = None

    def __enter__(self):
        try:
            self._start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def _start(self):
        image, release = kernel()
        self._make_ramdisk(release)
        at = self.folder
        self.log = at / "console"
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL",
             "qemu-system-x86_64", "-M", "q35", "-accel", "tcg,thread=multi", "-cpu", "max", "-smp", "2", "-m", "1024",
             "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot", "-vga", "virtio", "-device", "qemu-xhci",
             "-kernel", image, "-initrd", at / "ramdisk",
             "-append", "console=ttyS0 quiet panic=1 mitigations=off",
             "-virtfs", "local,path=/,mount_tag=root,security_model=none,readonly=on,multidevs=remap",
             "-virtfs", f"local,path={self.build},mount_tag=build,security_model=none,readonly=on",
             "-serial", f"file:{self.log}", "-serial", f"unix:{at}/shell,server=on,wait=off",
             "-qmp", f"unix:{at}/qmp,server=on,wait=off"],
            stderr=(at / "errors").open("w"))
        self.qmp_socket = self._connect("qmp")
        self.qmp_lines = self.qmp_socket.makefile("r")
        self.qmp_lines.readline()
        self.qmp("qmp_capabilities")
        self.shell_socket = self._connect("shell")
        self.wait("the machine to come up", lambda: "nulo-machine is up" in self.log.read_text(errors="replace"))

    def __exit__(self, *_):
        if self.process:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.folder)

    def _make_ramdisk(self, release):
        top = self.folder / "ramdisk.d"
        for name in ("proc", "sys", "dev", "mnt", "up", "modules", "guest"):
            (top / name).mkdir(parents=True)
        shutil.copy("/bin/busybox", top / "busybox")
        shutil.copy(GUEST / "init", top / "init")
        shutil.copytree(GUEST / "root", top / "guest", dirs_exist_ok=True)
        for inside, here in self.files.items():
            target = top / "guest" / inside.lstrip("/")
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(here, target)
        modules = []
        for name in MODULES:
            depends = subprocess.run(["modprobe", "--show-depends", "-S", release, name], check=True,
                                     capture_output=True, text=True).stdout
            modules += [line.split()[1] for line in depends.splitlines() if line.startswith("insmod")]
        for number, module in enumerate(dict.fromkeys(modules)):
            shutil.copy(module, top / "modules" / f"{number:02}.ko")
        subprocess.run("find . | busybox cpio -o -R 0:0 -H newc 2>/dev/null | gzip -1 >../ramdisk", shell=True, check=True,
                       cwd=top)
        shutil.rmtree(top)

    def _connect(self, name):
        end = time.monotonic() + PATIENCE
        while True:
            try:
                connection = socket.socket(socket.AF_UNIX)
                connection.settimeout(PATIENCE)
                connection.connect(str(self.folder / name))
                return connection
            except OSError:
                if time.monotonic() > end or self.process.poll() is not None:
                    raise RuntimeError((self.folder / "errors").read_text()) from None
                time.sleep(0.05)

    def wait(self, what, condition):
        """Returns the first answer that is true."""
        end = time.monotonic() + PATIENCE
        while not (answer := condition()):
            if time.monotonic() > end or self.process.poll() is not None:
                raise RuntimeError(f"waited in vain for {what}\n{self.log.read_text(errors='replace')[-3000:]}")
            time.sleep(0.2)
        return answer

    def sh(self, command):
        """What a command of root's writes, its errors too."""
        self.calls += 1
        begin, end = f"begin-of-{self.calls}\n", f"end-of-{self.calls}\n"
        self.shell_socket.sendall(
            f"echo begin''-of-{self.calls}; {{ {command}\n}} 2>&1; echo end''-of-{self.calls}\n".encode())
        answer = b""
        while end.encode() not in answer:
            answer += self.shell_socket.recv(65536) or self._gone()
        return answer.decode(errors="replace").split(begin, 1)[1].split(end)[0].removesuffix("\n")

    def text(self, file):
        """What is in a file, but for line breaks at its end; nothing when there is none. Starts no process there."""
        return self.sh(f'[ ! -e {file} ] || echo "$(<{file})"')

    def terminal_is_up(self):
        """Whether it has the focus: from then on it gets every key."""
        answer = self.sh("swaymsg --socket /run/user/2001/sway-ipc.* --raw --type get_tree 2>/dev/null")
        nodes = [json.loads(answer)] if answer.startswith("{") else []
        for node in nodes:
            nodes += node["nodes"]
        return any(node.get("app_id") == "foot" and node["focused"] for node in nodes)

    def _gone(self):
        raise RuntimeError("the machine is gone")

    def qmp(self, command, **arguments):
        self.qmp_socket.sendall((json.dumps({"execute": command, "arguments": arguments}) + "\n").encode())
        while True:
            answer = json.loads(self.qmp_lines.readline() or self._gone())
            if "error" in answer:
                raise RuntimeError(answer["error"])
            if "return" in answer:
                return answer["return"]

    def key(self, *changes):
        """Presses ("+alt") and releases ("-alt") keys of the keyboard that was plugged in last. At most eight at once:
        it keeps sixteen bytes for a machine that is busy."""
        for change in changes:
            self.qmp("input-send-event", events=[{"type": "key", "data": {
                "down": change[0] == "+", "key": {"type": "qcode", "data": change[1:]}}}])
