#!/usr/bin/env python3
"""nulo-keytap with real keyboards, sway and a terminal, in a virtual machine: keytap.py BUILD_FOLDER. Prints a
line for each thing that was tried; ends at the first that is not as it should be."""
import pathlib
import sys
import time

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(SOURCE / "rig/machine"))
from machine import Machine  # noqa: E402
from terminal import Terminal  # noqa: E402

BUILD = pathlib.Path(sys.argv[1]).resolve()
HERE = pathlib.Path(__file__).resolve().parent
FILES = {
    **{f"/usr/local/bin/{program.name}": program for program in (HERE / "guest").iterdir()},
    "/etc/udev/rules.d/70-nulo-keytap.rules": SOURCE / "packaging/keytap/70-nulo-keytap.rules",
}
USER, OTHER_USER = 2001, 2002
PASTE = "02" + "00" * 9
CTRL_ALT_D = "0120" "3000" "0300" "0000" "0000"


class Client:
    """A program of a user that is connected to the service."""
    count = 0

    def __init__(self, machine, user=USER):
        Client.count += 1
        self.machine, self.name, self.seen = machine, f"client{Client.count}", 0
        # In a shell of its own: the other would tell of its end.
        machine.sh(f"(setpriv --reuid={user} --regid={user} --clear-groups keytap-client {self.name} "
                   f"</dev/null >/tmp/{self.name}.errors 2>&1 & echo $! >/tmp/{self.name}.pid)")

    def expect(self, *lines):
        """These are the next, with others of `starting` between at most."""
        def arrived():
            text = self.machine.text(f"/tmp/{self.name}.log")
            new = [line for line in text.splitlines() if line != "waiting starting"][self.seen:]
            return new if len(new) >= len(lines) else None
        new = self.machine.wait(f"{self.name} to hear {lines}", arrived)
        assert new[:len(lines)] == list(lines), f"{self.name} heard {new}, not {lines}"
        self.seen += len(lines)

    def send(self, packet):
        self.machine.sh(f"echo {packet} >/tmp/{self.name}.in")

    def kill(self):
        self.machine.sh(f"kill -KILL $(cat /tmp/{self.name}.pid)")


def step(what):
    print(f"{time.monotonic() - begun:6.1f} s  {what}", flush=True)


def chord(machine, client, *keys):
    *modifiers, key = keys or ("alt", "spc")
    machine.key(*("+" + modifier for modifier in modifiers), "+" + key)
    client.expect("chordDown")
    machine.key("-" + key)
    client.expect("chordUp")
    machine.key(*("-" + modifier for modifier in modifiers))


def processes(machine):
    """The watchdog, and who holds the keyboards."""
    return machine.sh("pgrep -o nulo-keytap; pgrep -n nulo-keytap").split()


def wait_for_uncloned(machine):
    machine.wait("the keyboard to be given back", lambda: "nulo-keytap/" not in machine.text("/proc/bus/input/devices"))


def run(machine):
    terminal = Terminal(machine)
    machine.sh("(keytap-start >/tmp/service.log 2>&1 &)")
    machine.wait("the terminal", lambda: machine.terminal_is_up())
    step("sway and a terminal are up")
    terminal.takes("before")
    assert machine.sh("pgrep nulo-keytap") == ""
    step("nothing of it runs before there is a client")

    client = Client(machine)
    client.expect("serving")
    terminal.takes("hellothere")
    step("typing goes through")

    chord(machine, client)
    machine.key("+spc", "+alt", "-spc", "-alt")
    terminal.expect(" ")
    machine.key("+alt", "-alt", "+alt", "+spc")
    client.expect("chordDown")
    machine.key("-alt")
    client.expect("chordUp")
    machine.key("-spc", "+alt", "+x", "-x", "-alt")
    terminal.expect("^[x")
    terminal.takes("after")
    step("the chord is told, either key ends it, nothing of it is typed; Alt works otherwise")

    machine.sh(f"setpriv --reuid={USER} --regid={USER} --clear-groups env XDG_RUNTIME_DIR=/run/user/{USER} "
               "WAYLAND_DISPLAY=wayland-1 wl-copy --primary pasted >/dev/null 2>&1")
    client.send(PASTE)
    client.expect("pasted")
    terminal.expect("pasted")
    machine.key("+ctrl", "+a", "-a")
    terminal.expect("^A")
    client.send(PASTE)
    client.expect("notPasted modifierHeld")
    machine.key("-ctrl")
    terminal.takes("ctrl")
    step("it pastes, unless a modifier is held")

    for user, why in ((OTHER_USER, "otherSession"), (0, "otherSession"), (USER, "secondClient")):
        Client(machine, user).expect(f"refused {why}", "gone")
    client.send("ff" * 10)
    client.expect("refused badRequest", "gone")
    terminal.takes("direct")
    step("other users, second clients and rubbish are refused")

    client = Client(machine)
    client.expect("serving")
    client.send(CTRL_ALT_D)
    client.send(PASTE)
    client.expect("pasted")
    terminal.expect("pasted")
    chord(machine, client, "ctrl", "alt", "d")
    chord(machine, client, "alt", "ctrl_r", "d")
    machine.key("+ctrl", "+alt", "+x", "-x", "-alt", "+a", "-a", "-ctrl")
    terminal.expect("^[^X^A")
    machine.key("+alt", "+spc", "-spc", "-alt", "+d", "-d")
    terminal.expect("^[ d")
    client.send(CTRL_ALT_D)
    client.expect("refused badRequest", "gone")
    terminal.takes("named")
    step("another chord of two modifiers is told, and no other; it is named once")

    client = Client(machine)
    client.expect("serving")
    machine.key("+alt", "+spc")
    client.expect("chordDown")
    client.kill()
    wait_for_uncloned(machine)
    machine.key("-spc", "-alt")
    terminal.takes("free")
    step("a client that is killed with the chord down leaves a keyboard that works")

    for signal, victim in (("STOP", 1), ("KILL", 1), ("KILL", 0)):
        client = Client(machine)
        client.expect("serving")
        machine.key("+alt", "+spc")
        client.expect("chordDown")
        machine.sh(f"kill -{signal} {processes(machine)[victim]}")
        client.expect("gone")
        machine.key("-spc", "-alt")
        terminal.takes("alive")
        step(f"SIG{signal} to {('the watchdog', 'who holds the keyboard')[victim]}: the keyboard works")

    client = Client(machine)
    client.expect("serving")
    machine.qmp("device_add", driver="usb-kbd", id="second")
    client.expect("serving starting", "serving")
    terminal.takes("usb")
    chord(machine, client)
    machine.key("+alt", "+spc")
    client.expect("chordDown")
    machine.qmp("device_del", id="second")
    client.expect("chordUp")
    terminal.takes("unplugged")
    step("a keyboard is plugged in, and pulled out with the chord down")

    machine.key("+alt", "+spc")
    client.expect("chordDown")
    machine.sh(f"machine-session {OTHER_USER}")
    client.expect("chordUp", "refused otherSession", "gone")
    machine.key("-spc", "-alt")
    other = Client(machine, OTHER_USER)
    other.expect("serving")
    chord(machine, other)
    terminal.takes("other")
    machine.sh(f"machine-session {USER}")
    other.expect("refused otherSession", "gone")
    client = Client(machine)
    client.expect("serving")
    terminal.takes("back")
    step("whoever has the screen is served, and nobody else")

    client.kill()
    wait_for_uncloned(machine)
    machine.sh("(keyboard-grabber >/dev/null 2>&1 & echo $! >/tmp/grabber.pid)")
    machine.wait("another program's grab", lambda: machine.sh("test -e /tmp/grabbed && echo done"))
    client = Client(machine)
    client.expect("waiting keyboardTaken")
    machine.sh("kill -KILL $(cat /tmp/grabber.pid)")
    client.expect("serving")
    client.kill()
    wait_for_uncloned(machine)
    machine.sh("chmod 0 /dev/uinput")
    Client(machine).expect("waiting noUinput")
    terminal.takes("end")
    step("a keyboard that another program has, and no way to make one, are said")


if __name__ == "__main__":
    begun = time.monotonic()
    with Machine(BUILD, FILES) as the_machine:
        step("the machine is up")
        run(the_machine)
    step("all as it should be")
