"""script/bench: what the application costs, beside the least that it could cost and beside what
somebody would use instead.

Each figure stands beside its rival's from the same run: the two take turns, so that whatever else
the machine does meets both alike. Figures are medians.
"""

import argparse
import json
import os
import platform
import re
import resource
import subprocess
import sys
import time
from statistics import median

from bench import probes
from bench.probes import Callgrind, Site, tool
from desktop.product import POLL_INTERVAL

KIB, MIB = 1024, 1024 * 1024
MARGIN = 5  # seconds around a poll within which it is over

LAUNCH_GOAL = 1.30  # times the floor's
MEMORY_GOAL = 1.35  # times the floor's
POLL_GOAL = 1 / 20  # of curl | jq
GROWTH_GOAL = 2  # times as much for a byte of the largest text as for one of the next smaller

# What somebody would use instead, as a few lines of shell in an icon of its own.
TRAY_SCRIPT = """
for ((i = 0; i < {count}; i++)); do
  state=$(curl -s --max-time 4 {url} | jq -r .state)
  echo "tooltip:$state"
  sleep {pause}
done | yad --notification --listen
"""


class Table:
    """Prints row by row: what, the application's figure, the rival's, the ratio, the goal."""

    def __init__(self):
        self.failed = []

    def head(self, title, rival=""):
        print(f"\n{title:<46}{'application':>14}{rival:>16}{'ratio':>9}  goal", flush=True)

    def row(self, what, value, unit, rival=None, goal=None):
        """`goal` is the largest ratio, or without a rival the largest value."""
        line = f"  {what:<44}{figure(value, unit):>14}"
        ratio = value if rival is None else value / rival
        if rival is not None:
            line += f"{figure(rival, unit):>16}{ratio:>9.3g}"
        if goal is not None:
            met = ratio <= goal
            line += f"  <= {goal:g}: {'met' if met else 'NOT MET'}"
            if not met:
                self.failed.append(what)
        print(line, flush=True)


def figure(value, unit):
    digits = f"{value:,.0f}" if value >= 1000 or value == int(value) else f"{value:.3g}"
    return f"{digits} {unit}".rstrip()


def medians(rows):
    return [median(column) for column in zip(*rows)]


def launch(site, table, rounds, where):
    floors, programs, children = [], [], []
    for _ in range(rounds):
        for program, rows in ((tool("floor"), floors), (site.program, programs)):
            run = site.launch(program)
            run.stop()
            rows.append((run.item * 1e3, run.menu * 1e3, (run.request or 0) * 1e3))
        line = subprocess.run([tool("children"), site.launchctl, site.guard, "1"],
                              env=site.environment, check=True, capture_output=True, text=True)
        children.append([float(value) / 1e3 for value in line.stdout.split()])
    floor, program, each = medians(floors), medians(programs), medians(children)
    waited = median(map(sum, children))
    table.head(f"1 Launch, from exec, files {where}", "floor")
    table.row("to the item", program[0], "ms", floor[0])
    table.row("to the first GET", program[2], "ms")
    table.row("to the item with its rendered menu", program[1], "ms", floor[1])
    for name, time_taken in zip(("bootout", "bootstrap", "kickstart", "velmor-guard id"), each):
        table.row(f"of which waiting for {name}", time_taken, "ms")
    table.row("without its four child processes", program[1] - waited, "ms", floor[1],
              goal=LAUNCH_GOAL)


def shell_loop(url, count):
    """What an administrator would write."""
    return (f"for ((i = 0; i < {count}; i++)); do "
            f"curl -s --max-time 4 {url} | jq -r .state; done")


def processor_time_of(arguments, count, environment=None):
    """Milliseconds of each of `count` polls made by a child process."""
    def used():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime
    before = used()
    subprocess.run(arguments, env=environment, check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return (used() - before) * 1e3 / count


def rounds_of_a_minute(site, table, rounds):
    """Memory, polls and idling of a program left alone, window closed."""
    url = f"http://127.0.0.1:{site.service.port}/status.json"
    sizes, scripts, polls, idles, calls = [], [], [], [], []
    for _ in range(rounds):
        none, some = (processor_time_of(["bash", "-c", TRAY_SCRIPT.format(
            url=url, count=count, pause=0)], 1, site.environment) for count in (0, 20))
        shell = processor_time_of(["bash", "-c", shell_loop(url, 20)], 20)
        bare = processor_time_of([tool("socket_poll"), str(site.service.port), "500"], 500)

        floor, run = site.launch(tool("floor")), site.launch(site.program)
        times, wakes, requests = [], [], []
        for poll in (0, 1):
            # The polls come at 0, 20, 40 and 60 seconds; these moments are half-way.
            for moment in (MARGIN, POLL_INTERVAL - MARGIN):
                run.wait_until(poll * POLL_INTERVAL + moment)
                times.append(probes.processor_time(run.pid))
                wakes.append(probes.wake_ups(run.pid))
                requests.append(site.polls())
        if requests[2] - requests[1] != 1 or requests[1] != requests[0]:
            raise RuntimeError("a poll came at an unexpected moment")
        polls.append((times[2] - times[1], shell, bare, (some - none) / 20))
        idles.append((times[1] - times[0], wakes[1] - wakes[0]))
        poll_calls = probes.system_calls(run.pid, 2 * MARGIN, site.desktop.folder)
        idle_calls = probes.system_calls(run.pid, 2 * MARGIN - 1, site.desktop.folder)
        calls.append((sum(poll_calls.values()), sum(idle_calls.values())))
        run.wait_until(3 * POLL_INTERVAL + 1)
        both = probes.memory(run.pid) + probes.memory(floor.pid)
        loaded = [probes.libraries(each.pid) for each in (run, floor)]
        floor.stop()
        alone = probes.memory(run.pid)
        run.stop()
        floor = site.launch(tool("floor"))
        floor.wait_until(MARGIN)
        sizes.append(both + alone + probes.memory(floor.pid))
        floor.stop()
        tray_script = site.start_script(TRAY_SCRIPT.format(url=url, count=100, pause=POLL_INTERVAL))
        scripts.append(probes.memory_of_tree(tray_script.pid))
        site.stop_script(tray_script)

    (proportional, own, floor_proportional, floor_own, alone, own_alone,
     floor_alone, floor_own_alone) = medians(sizes)
    script, own_script = medians(scripts)
    table.head("2 Memory after a minute, window closed", "floor")
    table.row("proportional", proportional, "KiB", floor_proportional,
              goal=MEMORY_GOAL)
    table.row("backed by no file", own, "KiB", floor_own)
    table.head("  Memory, each alone", "tray script")
    table.row("proportional", alone, "KiB", script, goal=1)
    table.row("the floor's", floor_alone, "KiB", script)
    table.row("backed by no file", own_alone, "KiB", own_script, goal=1)
    table.row("the floor's", floor_own_alone, "KiB", own_script)

    polled, shell, bare, scripted = medians(polls)
    poll_calls, idle_calls = medians(calls)
    table.head("3 One poll, processor time", "rival")
    table.row("beside curl | jq in a shell loop", polled, "ms", shell, goal=POLL_GOAL)
    table.row("beside the tray script", polled, "ms", scripted, goal=1)
    table.row("beside a bare socket", polled, "ms", bare)
    table.row("system calls", poll_calls, "")

    idle, wakes = medians(idles)
    table.head(f"4 Idle, {POLL_INTERVAL - 2 * MARGIN} s between two polls")
    table.row("system calls", idle_calls, "", goal=0)
    table.row("wake-ups", wakes, "", goal=0)
    table.row("processor time", idle, "ms", goal=0)
    return loaded


def instructions(site, table):
    """In user mode; hardly differ from run to run."""
    url = f"http://127.0.0.1:{site.service.port}/status.json"
    counted = {}
    for name, program in (("floor", tool("floor")), ("application", site.program)):
        callgrind = Callgrind(site, name)
        run = site.launch(program, *callgrind.prefix)
        time.sleep(1)
        counted[name] = callgrind.since_last(run.pid)
        if name == "application":
            run.wait_until(max(run.menu + MARGIN, POLL_INTERVAL - MARGIN))
            callgrind.since_last(run.pid)
            before = site.polls()
            run.wait_until(time.monotonic() - run.started_at + POLL_INTERVAL)
            polls = site.polls() - before
            counted["poll"] = callgrind.since_last(run.pid) / polls
        run.stop()
        callgrind.total()
    shell = Callgrind(site, "shell", "--trace-children=yes")
    once, thrice = (shell.run("bash", "-c", shell_loop(url, count)) for count in (1, 3))
    bare = Callgrind(site, "bare")
    few, many = (bare.run(tool("socket_poll"), str(site.service.port), count)
                 for count in ("1", "101"))
    table.head("  Instructions in user mode", "rival")
    table.row("launch, beside the floor", counted["application"] / 1e6, "M", counted["floor"] / 1e6)
    table.row("poll, beside curl | jq", counted["poll"] / 1e3, "k", (thrice - once) / 2 / 1e3,
              goal=POLL_GOAL)
    table.row("poll, beside a bare socket", counted["poll"] / 1e3, "k", (many - few) / 100 / 1e3)


def core(table, rounds):
    answer = subprocess.run([tool("core"), "--benchmark_format=json",
                             f"--benchmark_repetitions={max(rounds, 2)}", "--benchmark_min_time=0.05",
                             "--benchmark_enable_random_interleaving=true"],
                            check=True, capture_output=True, text=True)
    table.head("5 Core alone", "allocations")

    def order(result):
        name, _, size = result["run_name"].partition("/")
        return name, int(size or 0)
    for result in sorted(json.loads(answer.stdout)["benchmarks"], key=order):
        name = result["run_name"]
        if result.get("aggregate_name") == "median":
            print(f"  {name:<44}{figure(result['cpu_time'], 'ns'):>14}{result['allocations']:>16.0f}")
        elif result.get("aggregate_name") == "BigO":
            print(f"  {name:<44}{result['cpu_coefficient']:>11.3g} ns a byte")


def growth(site, table, rounds):
    for title, sizes, settings in (
            ("6 Growth with the device ID", (10, 32 * KIB, MIB, 8 * MIB),
             lambda size: {"device_id": "GEN-" + "x" * (size - 4)}),
            ("6 Growth with the answer", (200, 32 * KIB, MIB, 8 * MIB),
             lambda size: {"answer_size": size})):
        rows = {size: [] for size in sizes}
        for _ in range(rounds):
            for size in sizes:
                site.use(**settings(size))
                run = site.launch(site.program)
                time.sleep(0.5)
                rows[size].append((run.menu * 1e3, probes.processor_time(run.pid)))
                run.stop()
        site.use()
        smallest, *_, smaller, largest = (medians(rows[size]) for size in sizes)
        table.head(title, "smallest")
        for size in sizes:
            elapsed, used = medians(rows[size])
            table.row(f"{size:,} B: launch and first poll", elapsed, "ms", smallest[0])
            table.row("    processor time", used, "ms", smallest[1])
        each, earlier = ((used - smallest[1]) * 1e6 / (size - sizes[0])
                         for (_, used), size in ((largest, sizes[-1]), (smaller, sizes[-2])))
        table.row("each byte more, beside the smaller text", each, "ns", earlier, goal=GROWTH_GOAL)


def size(site, table, loaded):
    program, floor = loaded
    table.head("7 Size", "floor")
    table.row("the stripped program", os.path.getsize(site.program) / KIB, "KiB")
    table.row("libraries in memory, plug-ins included", len(program), "", len(floor))
    for name in sorted(set(program) ^ set(floor)):
        print(f"  {'only in the application' if name in program else 'only in the floor'}: {name}")


def machine():
    processor = re.search(r"^model name\s*:\s*(.*)$", probes.read("/proc/cpuinfo"), re.MULTILINE)
    qt = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", "libqt6core6"],
                        capture_output=True, text=True, check=False).stdout
    print(f"{os.cpu_count()} x {processor[1] if processor else platform.machine()}, "
          f"Linux {platform.release()}, Qt {qt}, load average {os.getloadavg()[0]:.2f}")


def main():
    parser = argparse.ArgumentParser(prog="script/bench", description=__doc__)
    parser.add_argument("--rounds", type=int, default=10,
                        help="figures behind each median (default: %(default)s, about 15 minutes)")
    rounds = parser.parse_args().rounds
    table = Table()
    machine()
    with Site(files_in_memory=True) as site:
        launch(site, table, 2 * rounds, "in memory")
    with Site() as site:
        launch(site, table, 2 * rounds, "on disk")
        loaded = rounds_of_a_minute(site, table, rounds)
        instructions(site, table)
        core(table, rounds)
        growth(site, table, rounds)
        size(site, table, loaded)
    print(f"\nLoad average {os.getloadavg()[0]:.2f}. "
          f"{'Not met: ' + ', '.join(table.failed) if table.failed else 'All goals met'}.")


if __name__ == "__main__":
    sys.exit(main())
