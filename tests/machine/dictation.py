#!/usr/bin/env python3
"""A whole dictation with a real keyboard, in a virtual machine: dictation.py BUILD_FOLDER. The chord is pressed, a recorded
voice is heard by a microphone, and the words are in a terminal on sway. Prints a line for each step; ends at the first
that is not as it should be."""
import pathlib
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "rig/machine"))
from machine import Machine  # noqa: E402
from terminal import Terminal  # noqa: E402

PROGRAMS = (pathlib.Path(__file__).resolve().parent / "guest").iterdir()
USER = 2001
AS_USER = f"setpriv --reuid={USER} --regid={USER} --clear-groups env XDG_RUNTIME_DIR=/run/user/{USER}"
SPEECH = "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0880.wav"
WORDS = "Tout va bien."


def step(what):
    print(f"{time.monotonic() - begun:6.1f} s  {what}", flush=True)


def printed(machine, line, times=1):
    machine.wait(f"{line!r} from Nulo", lambda: times <= machine.text("/tmp/nulo.log").count(line))


def dictate(machine, number):
    machine.key("+alt", "+spc")
    printed(machine, "Recording started", number)
    machine.sh(f"{AS_USER} paplay --device=mic_in {SPEECH}")
    machine.key("-spc", "-alt")


def loudness(machine):
    """Of the recording that the service got, in dB below the loudest that there is."""
    heard = machine.sh("ffmpeg -hide_banner -i /tmp/recording.m4a -af volumedetect -f null - 2>&1 | grep max_volume")
    return float(heard.split("max_volume:")[1].split()[0])


def type_until_pasted(machine, terminal):
    """The words come in one piece and once, and no key is lost."""
    before, presses = terminal.text, 0
    while WORDS not in machine.text("/tmp/typed")[len(before):]:
        machine.key("+x", "-x")
        presses += 1
        time.sleep(0.1)
        assert presses < 600, f"no words: {machine.text('/tmp/typed')!r}"
    machine.wait("each key in the terminal",
                 lambda: len(machine.text("/tmp/typed")) >= len(before) + presses + len(WORDS))
    terminal.text = machine.text("/tmp/typed")
    typed = terminal.text.removeprefix(before)
    assert typed.replace(WORDS, "", 1) == "x" * presses, f"{presses} times x and the words became {typed!r}"


def run(machine):
    terminal = Terminal(machine)
    machine.sh("(keytap-start >/tmp/service.log 2>&1 &)")
    machine.wait("the terminal", machine.terminal_is_up)
    machine.sh(f"(setpriv --reuid={USER} --regid={USER} --clear-groups desktop-session /opt/build/bin/nulo </dev/null >/tmp/session.log 2>&1 &)")
    printed(machine, "Global key monitor started")
    assert "Key tap: nulo-keytap" in machine.text("/tmp/nulo.log"), machine.text("/tmp/nulo.log")
    printed(machine, "nulo-keytap has taken the keyboards over")
    step("Nulo listens by the key service")
    terminal.takes("typed")
    for number in (1, 2):
        dictate(machine, number)
        terminal.expect(WORDS)
        assert loudness(machine) > -30, "the recording is silent"
        step(f"dictation {number}: the words are in the terminal, and the voice was in the recording")
    dictate(machine, 3)
    type_until_pasted(machine, terminal)
    step("dictation 3: somebody types meanwhile, and nothing is lost")
    terminal.takes("after")
    machine.sh("pkill -TERM -x nulo")
    machine.wait("the keyboard to be given back", lambda: "nulo-keytap/" not in machine.text("/proc/bus/input/devices"))
    terminal.takes("end")
    step("Nulo ends, and the keyboard works")


if __name__ == "__main__":
    begun = time.monotonic()
    with Machine(sys.argv[1], PROGRAMS) as the_machine:
        step("the machine is up")
        try:
            run(the_machine)
        except BaseException:
            print(the_machine.text("/tmp/nulo.log"), flush=True)
            raise
    step("all as it should be")
