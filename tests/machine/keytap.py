#!/usr/bin/env python3
"""nulo-keytap with real keyboards, sway and a terminal, in a virtual machine: keytap.py BUILD_FOLDER. Prints a
line for each thing that was tried; ends at the first that is not as it should be."""
import pathlib
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "rig/machine"))
from machine import Machine  # noqa: E402
from terminal import Terminal  # noqa: E402

PROGRAMS = (pathlib.Path(__file__).resolve().parent / "guest").iterdir()
USER, OTHER_USER = 2001, 2002
PASTE = "02" + "00" * 9
CTRL_ALT_D = "0120" "3000" "0300" "0000" "0000"
EV_SYN, EV_KEY, EV_REL, EV_ABS, EV_LED = "0 0 0", 1, 2, 3, 17
LEFT_ALT, SPACE, RIGHT_BUTTON = 56, 57, 273


class Client:
    """A program of a user that is connected to the service."""
    count = 0

    def __init__(self, machine, user=USER):
        Client.count += 1
        self.machine, self.name, self.seen = machine, f"client{Client.count}", 0
        self.process = start(machine, f"setpriv --reuid={user} --regid={user} --clear-groups keytap-client {self.name}")

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

    def signal(self, name):
        self.machine.sh(f"kill -{name} {self.process}")

    def kill(self):
        self.signal("KILL")


class CompositeKeyboard:
    """A keyboard with everything on it, whose clone is read."""

    def __init__(self, machine, name):
        self.machine, self.name, self.seen = machine, name, 0
        self.process = start(machine, f"composite-keyboard {name}")
        machine.wait(f"keyboard {name}", lambda: self.abilities(clone=False))

    def abilities(self, clone):
        """What the kernel has of it."""
        for device in self.machine.text("/proc/bus/input/devices").split("\n\n"):
            if f'Name="{self.name}"' in device and ("Phys=nulo-keytap/" in device) == clone:
                return [line for line in device.splitlines() if line.startswith("B: ")]
        return None

    def send(self, *events):
        self.machine.sh(f"printf '%s\\n' {' '.join(map(repr, events))} >/tmp/{self.name}.in")

    def expect(self, *lines):
        """Programs have read these next, and nothing else."""
        def arrived():
            log = self.machine.text(f"/tmp/{self.name}.log").splitlines()
            new = [line for line in log if not line.startswith("lamp")][self.seen:]
            return new if len(new) >= len(lines) else None
        new = self.machine.wait(f"{lines} of {self.name}", arrived)
        assert new == list(lines), f"{self.name} has {new}, not {lines}"
        self.seen += len(lines)

    def unplug(self):
        self.machine.sh(f"kill -KILL {self.process}")


def start(machine, command):
    """Runs it in the background, and in a shell of its own: the other would tell of its end. Its process."""
    return machine.sh(f"({command} </dev/null >/dev/null 2>&1 & echo $!)")


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


def is_uncloned(machine):
    return "nulo-keytap/" not in machine.text("/proc/bus/input/devices")


def wait_for_uncloned(machine):
    machine.wait("the keyboard to be given back", lambda: is_uncloned(machine))


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
    client = Client(machine)
    client.expect("serving")
    floods = [start(machine, f"setpriv --reuid={user} --regid={user} --clear-groups keytap-flood") for user in
              (USER, OTHER_USER)]
    terminal.takes("flood")
    chord(machine, client)
    machine.sh(f"kill -KILL {' '.join(floods)}")
    client.send("2000*" + CTRL_ALT_D)
    client.expect("refused badRequest", "gone")
    terminal.takes("direct")
    step("other users, second clients and rubbish without end are refused, and nobody else notices")

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

    machine.sh("echo 4608 >/proc/sys/net/core/wmem_default")  # the least that waits for a client
    client = Client(machine)
    client.expect("serving")
    machine.sh("echo 212992 >/proc/sys/net/core/wmem_default")
    client.signal("STOP")

    def is_let_go():
        machine.key("+alt", "+spc", "-spc", "-alt")
        return is_uncloned(machine)
    machine.wait("the client to be let go of", is_let_go)
    machine.key("+q", "-q")  # behind what went to the terminal when the keyboard was free
    terminal.text = machine.wait("the last key", lambda: (text := machine.text("/tmp/typed")).endswith("q") and text)
    terminal.takes("stopped")
    client.kill()
    step("a client that does not read is let go of")

    machine.sh("mkdir /run/udev/rules.d; echo 'SUBSYSTEM==\"input\", ATTRS{name}==\"elsewhere\", ENV{ID_SEAT}=\"seat1\"' "
               ">/run/udev/rules.d/99-seat.rules; udevadm control --reload")
    elsewhere = CompositeKeyboard(machine, "elsewhere")
    composite = CompositeKeyboard(machine, "composite")
    composite.send(f"{EV_KEY} {LEFT_ALT} 1", EV_SYN)
    client = Client(machine)
    client.expect("serving starting")
    chord(machine, client)
    composite.expect("cloned")
    composite.send(f"{EV_KEY} {LEFT_ALT} 0", EV_SYN)
    client.expect("serving")
    step("a keyboard with a key down is left until the key is up")

    abilities = composite.abilities(clone=False)
    assert composite.abilities(clone=True) == abilities, f"{composite.abilities(clone=True)}, not {abilities}"
    for frame in ([f"{EV_REL} 0 5", f"{EV_REL} 1 -3", EV_SYN], [f"{EV_REL} 8 -1", f"{EV_REL} 11 -120", EV_SYN],
                  [f"{EV_KEY} {RIGHT_BUTTON} 1", EV_SYN], [f"{EV_KEY} {RIGHT_BUTTON} 0", EV_SYN],
                  [f"{EV_KEY} 115 1", EV_SYN], [f"{EV_KEY} 115 0", EV_SYN], [f"{EV_ABS} 32 50", EV_SYN]):
        composite.send(*frame)
        composite.expect(*frame)
    composite.send(f"{EV_KEY} {LEFT_ALT} 1", EV_SYN, f"{EV_KEY} {SPACE} 1", EV_SYN)
    client.expect("chordDown")
    composite.send(f"{EV_KEY} {LEFT_ALT} 0", EV_SYN, f"{EV_KEY} {SPACE} 0", EV_SYN)
    client.expect("chordUp")
    composite.send(f"clone {EV_LED} 1 1", "clone " + EV_SYN)
    machine.wait("a lamp", lambda: f"lamp {EV_LED} 1 1" in machine.text("/tmp/composite.log").splitlines())
    assert elsewhere.abilities(clone=True) is None
    composite.unplug()
    elsewhere.unplug()
    client.kill()
    wait_for_uncloned(machine)
    step("what else is on a keyboard goes through, lamps come back, a second seat is left alone")

    client = Client(machine)
    for signal, victim in (("STOP", 1), ("KILL", 1), ("KILL", 0)):
        client.expect("serving")
        machine.key("+alt", "+spc")
        client.expect("chordDown")
        machine.sh(f"kill -{signal} {processes(machine)[victim]}")
        client.expect("gone")
        client = Client(machine)
        machine.key("-spc", "-alt")
        terminal.takes("alive")
        step(f"SIG{signal} to {('the watchdog', 'who holds the keyboard')[victim]}: the keyboard works")

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
    machine.sh(f"machine-session {OTHER_USER} {USER}")
    client.expect("chordUp", "waiting notActive")
    machine.key("-spc", "-alt")
    client.send(PASTE)
    client.expect("notPasted notActive")
    other = Client(machine, OTHER_USER)
    other.expect("serving")
    chord(machine, other)
    terminal.takes("other")
    machine.sh(f"machine-session {USER}")
    other.expect("refused otherSession", "gone")
    client.expect("serving")
    terminal.takes("back")
    step("whoever has the screen is served, and nobody else")

    start(machine, f"login-manager {USER}")
    machine.wait("the login manager", lambda: machine.sh("test -e /tmp/login.in && echo done"))
    for begin, end in (("lock", "unlock"), ("sleep", "wake")):
        machine.key("+alt", "+spc")
        client.expect("chordDown")
        machine.sh(f"echo {begin} >/tmp/login.in")
        client.expect("chordUp", "waiting locked")
        machine.key("-spc", "-alt")
        terminal.takes(begin)
        machine.sh(f"echo {end} >/tmp/login.in")
        client.expect("serving")
    step("a lock and a sleep end the chord and give the keyboard back until they are over")

    machine.key("+alt", "+spc")
    client.expect("chordDown")
    machine.sh("pkill -KILL -x sway")
    client.expect("chordUp")
    machine.key("-spc", "-alt")
    machine.sh("rm /tmp/typed")
    terminal.text = ""
    start(machine, "machine-sway")
    client.expect("serving")
    machine.wait("the terminal", lambda: machine.terminal_is_up())
    terminal.takes("again")
    chord(machine, client)
    step("a compositor that is started anew gets the keyboard")

    machine.sh("echo -n none >/sys/bus/serio/devices/serio0/drvctl")
    client.expect("waiting noKeyboard")
    machine.sh("echo -n atkbd >/sys/bus/serio/devices/serio0/drvctl")
    client.expect("serving")
    client.kill()
    wait_for_uncloned(machine)
    grabber = start(machine, "keyboard-grabber")
    machine.wait("another program's grab", lambda: machine.sh("test -e /tmp/grabbed && echo done"))
    client = Client(machine)
    client.expect("waiting keyboardTaken")
    machine.sh(f"kill -KILL {grabber}")
    client.expect("serving")
    client.kill()
    wait_for_uncloned(machine)
    machine.sh("chmod 0 /dev/uinput")
    client = Client(machine)
    client.expect("waiting noUinput")
    terminal.takes("dead")
    machine.sh("chmod 660 /dev/uinput")
    client.expect("serving")
    terminal.takes("end")
    step("no keyboard, one that another program has, and no way to make one are said, and waited for")


if __name__ == "__main__":
    begun = time.monotonic()
    with Machine(sys.argv[1], PROGRAMS) as the_machine:
        step("the machine is up")
        run(the_machine)
    step("all as it should be")
