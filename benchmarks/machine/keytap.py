#!/usr/bin/env python3
"""What nulo-keytap costs, in a virtual machine: keytap.py BUILD_FOLDER writes rows of the table. Keys through it beside keys
that are read directly, in turns; its memory; how often it wakes."""
import json
import pathlib
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "rig/machine"))
from machine import Machine  # noqa: E402

TURNS, PRESSES = 4, 250
IDLE = 30  # seconds
REST = 5  # until what a new client sets going is over


def report(figure, unit, ours, bound, reference=None):
    row = {"figure": figure, "unit": unit, "ours": ours}
    judged = ours
    if reference:
        judged = ours / reference
        row |= {"reference": reference, "referenceName": "the same keyboard, read directly", "ratio": judged}
    if bound is not None:
        row |= {"atMost": bound, "reached": judged <= bound}
    print(json.dumps(row), flush=True)


def percentile(values, percent):
    return sorted(values)[max(0, -(-len(values) * percent // 100) - 1)]


class Client:
    count = 0

    def __init__(self, machine):
        Client.count += 1
        name = f"client{Client.count}"
        self.machine = machine
        machine.sh(f"(setpriv --reuid=2001 --regid=2001 --clear-groups keytap-client {name} "
                   f"</dev/null >/tmp/{name}.errors 2>&1 & echo $! >/tmp/{name}.pid)")
        machine.wait("the keyboards to be taken over", lambda: "serving" in machine.text(f"/tmp/{name}.log").split())
        self.stop = lambda: machine.sh(f"kill -KILL $(cat /tmp/{name}.pid)")


def presses(machine, *clone):
    lines = machine.sh(" ".join(["/opt/build/bin/bench-machine", str(PRESSES), *clone])).split()
    return [float(line) for line in lines]


def processes(machine):
    return machine.sh("pgrep nulo-keytap").split()


def memory(machine):
    """In KB, of all its processes: what is shared counted in shares, and what is their own."""
    text = machine.sh("cat /dev/null $(for p in $(pgrep nulo-keytap); do echo /proc/$p/smaps_rollup; done)")
    fields = [line.split() for line in text.splitlines()]
    return (sum(int(field[1]) for field in fields if field[0] == "Pss:"),
            sum(int(field[1]) for field in fields if field[0] in ("Private_Dirty:", "Private_Clean:")))


def wake_ups(machine):
    """How often they have gone to sleep, and at what time of the machine's."""
    text = machine.sh("cat /proc/uptime $(for p in $(pgrep nulo-keytap); do echo /proc/$p/status; done)")
    lines = text.splitlines()
    return (sum(int(line.split()[1]) for line in lines if line.startswith("voluntary_ctxt_switches")),
            float(lines[0].split()[0]))


def run(machine):
    machine.sh("(keytap-start >/tmp/service.log 2>&1 &)")
    machine.wait("the terminal", machine.terminal_is_up)
    client = Client(machine)
    time.sleep(REST)
    before, begin = wake_ups(machine)
    time.sleep(IDLE)
    after, end = wake_ups(machine)
    report("nulo-keytap: wake-ups a second with a client", "", (after - before) / (end - begin), 2)
    shared, own = memory(machine)
    report("nulo-keytap: memory of both its processes (PSS)", "KB", shared, 1500)
    report("nulo-keytap: of that its own, whatever else runs", "KB", own, None)
    client.stop()
    machine.wait("the service to end", lambda: not processes(machine))
    report("nulo-keytap: its processes without a client", "", len(processes(machine)), 0)
    direct, through = [], []
    for _ in range(TURNS):
        direct += presses(machine)
        client = Client(machine)
        through += presses(machine, "clone")
        client.stop()
    for percent, bound in ((50, 5), (99, None)):
        report(f"nulo-keytap: a key on its way through, p{percent}", "µs", percentile(through, percent), bound,
               percentile(direct, percent))


if __name__ == "__main__":
    with Machine(sys.argv[1]) as the_machine:
        run(the_machine)
