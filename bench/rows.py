"""Measures the agent beside bare programs that do the least there is to do, and beside its peers.

    rows.py BUILD_FOLDER [--peers] [--check] [--growth] [--write FILE] [WORD ...]

Every figure is a ratio: within a row the agent, the bare program and the peers take turns, and the best time of each
counts.  --check ends with 1 when a ratio falls short of what its row must reach; --write puts the tables into FILE
between its marks; WORDs choose the rows whose names hold one of them.
"""

import argparse
import datetime
import os
import pathlib
import random
import re
import secrets
import shutil
import socket
import subprocess
import sys
import tempfile
import time

MIB = 1 << 20


def output(*command, **more):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, **{"check": True, **more})
    return done.stdout.decode(errors="replace")


# Below those that the system hands out by itself: one of the peers takes no others.
def free_port():
    while True:
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", random.randrange(20000, 32000)))
                return probe.getsockname()[1]
            except OSError:
                continue


def wait_for_port(port):
    for _ in range(200):
        try:
            socket.create_connection(("127.0.0.1", port)).close()
            return
        except OSError:
            time.sleep(0.05)
    sys.exit(f"nothing listens on port {port}")


def status_field(pid, path, name):
    for line in pathlib.Path(f"/proc/{pid}/{path}").read_text().splitlines():
        if line.startswith(name):
            return int(line.split()[1])
    return 0


def threads(pid):
    return [f"{pid}/task/{task}" for task in os.listdir(f"/proc/{pid}/task")]


# All processes of a group: a daemon with children counts with them.
def family(pid):
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    return [pid] + [member for child in children for member in family(int(child))]


def processor_us(pid):
    ticks = 0
    for member in family(pid):
        fields = pathlib.Path(f"/proc/{member}/stat").read_text().rpartition(")")[2].split()
        ticks += int(fields[11]) + int(fields[12])
    return ticks * 1e6 / os.sysconf("SC_CLK_TCK")


def wake_ups(pid, seconds):
    def switches():
        return sum(status_field(task, "status", "voluntary_ctxt_switches")
                   for member in family(pid) for task in threads(member))
    before = switches()
    time.sleep(seconds)
    return (switches() - before) / seconds


class Server:
    """A program that is ended with the measurements."""

    running = []

    def __init__(self, *command, port=0, **more):
        self.port = port
        self.process = subprocess.Popen([str(word) for word in command], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL, **more)
        self.pid = self.process.pid
        Server.running.append(self)
        if port:
            wait_for_port(port)

    @staticmethod
    def end_all():
        for server in Server.running:
            server.process.kill()
            server.process.wait()


class Bench:
    def __init__(self, build, with_peers):
        self.build = pathlib.Path(build).resolve()  # the agent takes whole paths only
        self.tools = self.build / "bench"
        self.with_peers = with_peers
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tav-bench-"))
        self.password = self.folder / "password"
        self.password.write_text(secrets.token_hex(16) + "\n")
        self.agent = self.start_agent()
        self.made = {}

    def start_agent(self):
        port = free_port()
        config = self.folder / "tav.cfg"
        config.write_text(f"tavpath={self.build}/tav\ntmpdir={self.folder}\nhost=127.0.0.1\nport={port}\n"
                          f"password={self.password.read_text().strip()}\nlogfails=0\n")
        return Server(self.build / "tav", "-i", config, port=port)

    def ask(self, *words):
        answer = output(self.tools / "tav_ask", self.agent.port, self.password, 1, *words)
        us, _, reply = answer.partition(" ")
        if not reply.startswith("200"):
            sys.exit(f"{words[0]}: {reply}")
        return float(us)

    def files(self, *words):
        return float(output(self.tools / "tav_files", *words))

    # One second and a half of requests: how many a second, and how many in all.
    def load(self, server, clients, *words):
        password = self.password if server is self.agent else "-"
        # A peer that fails some requests is measured by all.
        mine = server is self.agent
        text = output(self.tools / "tav_load", server.port, password, clients, 1.5, *words, check=mine)
        return float(re.search(r"([\d.]+) requests/s", text)[1]), int(re.search(r"of (\d+)", text)[1])

    def rate(self, server, *words):
        return self.load(server, 8, *words)[0]

    def cost(self, server, *words):
        before = processor_us(server.pid)
        requests = self.load(server, 8, *words)[1]
        return (processor_us(server.pid) - before) / requests

    def server(self, name, start):
        if name not in self.made:
            self.made[name] = start()
        return self.made[name]

    def data(self, name, make):
        path = self.folder / name
        if name not in self.made:
            make(path)
            self.made[name] = path
            if path.is_file():
                self.files("read", 1, path)
        return path

    def log(self, mib):
        return self.data(f"{mib}.log", lambda path: subprocess.run(
            [self.tools / "tav_files", "make-log", path, str(mib)], check=True))

    # One byte more than whole blocks: a checksum of whole blocks is an error by the agent's rules.
    def odd_log(self, mib):
        def make(path):
            shutil.copyfile(self.log(mib), path)
            os.truncate(path, mib * MIB + 1)
        return self.data(f"odd-{mib}", make)

    def tree(self, folders, files):
        def make(path):
            path.mkdir()
            subprocess.run([self.tools / "tav_files", "make-tree", path, str(folders), str(files)], check=True)
        return self.data(f"tree-{folders}-{files}", make)


def timed(*command):
    begin = time.monotonic()
    subprocess.run([str(word) for word in command], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    return (time.monotonic() - begin) * 1e6


class Row:
    """One kind of work: `ours` and `bare` are measured in turn with the `peers`, all as costs or all as rates."""

    def __init__(self, name, ours, bare, limit, peers=None, rate=False, rounds=5, unit="x bare"):
        self.name, self.ours, self.bare, self.limit = name, ours, bare, limit
        self.peers, self.rate, self.rounds, self.unit = peers or {}, rate, rounds, unit

    def measure(self):
        works = {"tav": self.ours, "bare": self.bare, **self.peers}
        taken = {name: [] for name in works}
        for _ in range(self.rounds):
            for name, work in works.items():
                taken[name].append(work())
        best = {name: (max if self.rate else min)(values) for name, values in taken.items()}
        self.bare_figure = best.pop("bare")
        self.ratio = {name: value / self.bare_figure for name, value in best.items()}
        return self

    def reached(self):
        mine = self.ratio["tav"]
        return mine >= self.limit if self.rate else mine <= self.limit

    def line(self):
        rivals = sorted(((value, name) for name, value in self.ratio.items() if name != "tav"), reverse=self.rate)
        best = f"{rivals[0][1]} {rivals[0][0]:.2f}" if rivals else ""
        sign = ">=" if self.rate else "<="
        return [self.name, self.unit, f"{self.ratio['tav']:.2f}", best, f"{sign} {self.limit:g}",
                "" if self.reached() else "short"]


def log_row(bench, name, words, limit, peer):
    log = bench.log(256)
    request = ["TEST-TextLog2", log, 0, 1, 1, 1, *words, 0]
    peers = {"ripgrep": lambda: timed(*peer, log)} if isinstance(peer, list) else \
        {"two ripgreps": lambda: timed("sh", "-c", f"{peer[0]} {log} | {peer[1]}")}
    return Row(name, lambda: bench.ask(*request), lambda: bench.files("read", 1, log), limit,
               peers if bench.with_peers else {}, unit="x read")


def text_rows(bench):
    rg = ["rg", "--no-config", "-a", "-c"]
    yield log_row(bench, "log: a word, many hits", ["error", 0, 1, 0], 1.8, [*rg, "error"])
    yield log_row(bench, "log: a rare word", ["xylograph", 0, 1, 0], 1.8, [*rg, "xylograph"])
    yield log_row(bench, "log: many hits, ignoring case", ["error", 0, 0, 0], 3.2, [*rg, "-i", "error"])
    yield log_row(bench, "log: rare, ignoring case", ["xylograph", 0, 0, 0], 1.9, [*rg, "-i", "xylograph"])
    yield log_row(bench, "log: whole word, ignoring case", ["error", 0, 0, 1], 3.2, [*rg, "-iw", "error"])
    yield log_row(bench, "log: 'error' and not 'timeout'", ["'error' and not 'timeout'", 1, 1, 0], 4.8,
                  ("rg --no-config -a error", "rg --no-config -a -c -v timeout"))
    for name, case, limit, flags in (("", 1, 2.0, []), (", ignoring case", 0, 2.1, ["-i"])):
        log, text = bench.log(512), "tells of a xylograph"
        yield Row("text at the end of 512 MiB" + name,
                  lambda: bench.ask("TEST-FileCompare", 3, log, text, case, 0),
                  lambda: bench.files("read", 1, log), limit,
                  {"ripgrep": lambda: timed(*rg, *flags, "-F", text, log)} if bench.with_peers else {}, unit="x read")


def file_rows(bench):
    odd = bench.odd_log(512)
    processor = pathlib.Path("/proc/cpuinfo").read_text()
    limit = 1.4 if " vpclmulqdq" in processor else 2.3 if " pclmulqdq" in processor else 6
    isal = lambda: float(output(bench.tools / "tav_crypto", "crc", odd).split()[0])
    yield Row("FileCRC of 512 MiB", lambda: bench.ask("TEST-FileCRC", odd), lambda: bench.files("read", 1, odd), limit,
              {"ISA-L": isal} if bench.with_peers else {}, unit="x read")

    copy = bench.data("copy", lambda path: shutil.copyfile(odd, path))
    yield Row("contents of 2 x 512 MiB", lambda: bench.ask("TEST-FileCompare", 1, odd, copy, 0, 0, 1),
              lambda: bench.files("read-both", 1, odd, copy), 1.12,
              {"cmp -s": lambda: timed("cmp", "-s", odd, copy)} if bench.with_peers else {}, unit="x read both")

    tree = bench.tree(1000, 100)
    yield Row("FolderSize of 100,000 files", lambda: bench.ask("TEST-FolderSize", tree, 1),
              lambda: bench.files("walk", 1, tree), 1.06,
              {"du -sb": lambda: timed("du", "-sb", tree)} if bench.with_peers else {}, rounds=9, unit="x walk")
    yield Row("CountFiles of 100,000 files", lambda: bench.ask("TEST-CountFiles", tree, "*", 1, 1, 0),
              lambda: bench.files("walk", 1, tree), 1.18,
              {"find": lambda: timed("find", tree, "-type", "f", "-size", "-1M")} if bench.with_peers else {},
              rounds=9, unit="x walk")


def zabbix(bench):
    port = free_port()
    config = bench.folder / "zabbix.conf"
    config.write_text(f"Server=127.0.0.1\nServerActive=\nListenIP=127.0.0.1\nListenPort={port}\nHostname=bench\n"
                      f"PidFile={bench.folder}/zabbix.pid\nLogType=console\nStartAgents=8\nAllowRoot=1\n")
    return Server("zabbix_agentd", "-f", "-c", config, port=port)


def bare_server(bench):
    port = free_port()
    return Server(bench.tools / "tav_limits", "epoll", port, 4096, 120, port=port)


def request_rows(bench):
    request = ["TEST-UNC", "/"]
    bare = lambda: bench.server("bare", lambda: bare_server(bench))
    other = lambda: bench.server("zabbix", lambda: zabbix(bench))
    rates, costs = {}, {}
    if bench.with_peers:
        rates = {"zabbix-agent's ping": lambda: bench.rate(other(), "agent.ping"),
                 "zabbix-agent's file system size": lambda: bench.rate(other(), "vfs.fs.size[/]")}
        costs = {"zabbix-agent's ping": lambda: bench.cost(other(), "agent.ping")}
    yield Row("requests a second, 8 clients", lambda: bench.rate(bench.agent, *request),
              lambda: bench.rate(bare(), *request), 0.85, rates, rate=True, rounds=4)
    yield Row("processor time of a request", lambda: bench.cost(bench.agent, *request),
              lambda: bench.cost(bare(), *request), 1.8, costs, rounds=4)


def crypto_rows(bench):
    figures = {}
    for line in output(bench.tools / "tav_crypto").splitlines():
        work, who, figure = line.split()
        figures.setdefault(work, {})[who] = float(figure)

    def row(name, work, peer, limit, rate):
        if peer in figures[work]:
            yield Row(name, lambda: figures[work]["tav"], lambda: figures[work][peer], limit, rate=rate, rounds=1,
                      unit="x " + peer)
    yield from row("CFB-8 decryption", "decrypt", "LibTomCrypt", 1.68, True)
    yield from row("CFB-8 encryption", "encrypt", "LibTomCrypt", 1.0, True)
    yield from row("key set-up", "key", "libgcrypt", 0.94, False)


def idle_rows(bench):
    seconds = 20
    peers = {}
    time.sleep(13)  # threads of earlier requests end
    if bench.with_peers:
        port = free_port()
        config = bench.folder / "nrpe.cfg"
        config.write_text(f"server_address=127.0.0.1\nserver_port={port}\nallowed_hosts=127.0.0.1\n"
                          f"pid_file={bench.folder}/nrpe.pid\nnrpe_user=nobody\nnrpe_group=nogroup\n")
        other = Server("nrpe", "-f", "-n", "-c", config)
        time.sleep(1)
        peers["NRPE"] = lambda: wake_ups(other.pid, seconds)
    yield Row("wake-ups a second, idle", lambda: wake_ups(bench.agent.pid, seconds), lambda: 1, 0, peers, rounds=1,
              unit="a second")


SECTIONS = (text_rows, file_rows, request_rows, crypto_rows, idle_rows)


def table(heads, rows):
    widths = [max(len(line[i]) for line in [heads, *rows]) for i in range(len(heads))]
    form = lambda cells: "| " + " | ".join(cell.ljust(width) for cell, width in zip(cells, widths)) + " |"
    return "\n".join([form(heads), "|" + "|".join("-" * (width + 2) for width in widths) + "|", *map(form, rows)])


# What a tenfold, hundredfold ... amount of work costs, against the first: factors of time, or of memory.
def growth_rows(bench):
    def factors(name, sizes, cost):
        costs = [cost(size) for size in sizes]
        return [name, " ".join(f"{size:,}" for size in sizes), " ".join(f"{value / costs[0]:.1f}" for value in costs)]

    def best(*words):
        return min(bench.ask(*words) for _ in range(3))

    def expression(operands):
        text = " or ".join(f"'word{i}'" for i in range(operands))
        return best("TEST-TextLog2", bench.log(16), 0, 1, 1, 1, text, 1, 1, 0, 0)

    def clients(count):
        return 1 / max(bench.load(bench.agent, count, "TEST-UNC", "/")[0] for _ in range(2))

    def memory(connections):
        held = [socket.create_connection(("127.0.0.1", bench.agent.port)) for _ in range(connections)]
        time.sleep(0.5)
        kib = status_field(bench.agent.pid, "smaps_rollup", "Private_Dirty")
        for one in held:
            one.close()
        time.sleep(0.5)
        return kib

    yield factors("entries of a list", (1_000, 10_000, 100_000),
                  lambda n: best("GetFilesList", bench.tree(1, n) / "folder0" / "*", "", 0, 1, 1, 1, 1, 0, 0))
    yield factors("files of a tree", (1_000, 10_000, 100_000, 1_000_000),
                  lambda n: best("TEST-FolderSize", bench.tree(n // 100, 100), 1))
    yield factors("MiB of a log", (16, 128, 1024, 2048),
                  lambda n: best("TEST-TextLog2", bench.log(n), 0, 1, 1, 1, "xylograph", 0, 1, 0, 0))
    yield factors("alternatives of an expression", (10, 100, 1_000, 10_000), expression)
    yield factors("clients at once: time for each request", (1, 10, 100, 1_000), clients)
    yield factors("idle connections: memory", (1, 100, 900), memory)


def machine():
    def first(pattern, text):
        found = re.search(pattern, text)
        return found[1].strip() if found else "?"
    return (f"Processor: {first('model name[^:]*:(.*)', pathlib.Path('/proc/cpuinfo').read_text())}, "
            f"{os.cpu_count()} cores; {output('uname', '-sr').strip()}; "
            f"{output('c++', '--version').splitlines()[0]}; {datetime.date.today()}.")


def write(path, text):
    page = pathlib.Path(path)
    old = page.read_text()
    begin, end = "<!-- measured -->\n", "<!-- /measured -->"
    head, _, rest = old.partition(begin)
    page.write_text(head + begin + "\n" + text + "\n\n" + end + rest.partition(end)[2])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--peers", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--growth", action="store_true")
    parser.add_argument("--write")
    parser.add_argument("words", nargs="*")
    chosen = parser.parse_intermixed_args()
    bench = Bench(chosen.build, chosen.peers)
    rows, growth = [], []
    try:
        for section in SECTIONS:
            for row in section(bench):
                if not chosen.words or any(word in row.name for word in chosen.words):
                    rows.append(row.measure())
                    print("  ".join(row.line()), flush=True)
        if chosen.growth:
            growth = list(growth_rows(bench))
    finally:
        Server.end_all()
        shutil.rmtree(bench.folder, ignore_errors=True)
    if not rows:
        sys.exit("no row is called so")
    heads = ["work", "unit", "tav", "best peer", "must reach", ""]
    parts = [machine(), table(heads, [row.line() for row in rows])]
    if growth:
        parts.append(table(["growth of", "sizes", "factors"], growth))
    print("\n" + "\n\n".join(parts))
    if chosen.write:
        write(chosen.write, "\n\n".join(parts))
    short = [row.name for row in rows if not row.reached()]
    if chosen.check and short:
        sys.exit("falls short: " + "; ".join(short))


main()
