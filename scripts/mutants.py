"""The two halves of scripts/mutants: weaving the faults of tests/mutants into a copy of the tree, and trying them."""
import argparse, collections, concurrent.futures, hashlib, json, os, pathlib, re, shutil, signal, subprocess, sys
import tempfile, threading, time

BUILD = pathlib.Path("build/mutants/build/tests")
KILLERS = pathlib.Path("build/mutants/killers.json")
TIMES = pathlib.Path("build/mutants/times.json")
LIMIT = 150  # seconds for one suite; it takes less than half of that on a busy machine
SWITCH = """#pragma once
#include <stdlib.h>
inline bool TavFault(int n) {
  static const int chosen = getenv("TAV_FAULT") == nullptr ? 0 : atoi(getenv("TAV_FAULT"));
  return n == chosen;
}
"""
Fault = collections.namedtuple("Fault", "number file old new what equivalent")


# A fault a line: file, old text, new text, what it is, and why nobody can notice it, if so; tabs between them.
def read_list():
    faults = []
    for line in open("tests/mutants"):
        if line.strip() and line[0] != "#":
            fields = line.rstrip("\n").split("\t") + [""]
            if len(fields) < 5:
                sys.exit("tests/mutants: not four fields: " + line)
            faults.append(Fault(len(faults) + 1, *fields[:5]))
    return faults


# ---- weaving ----

# An old text that ends in ";" is a statement, any other an expression.  Faults of the same text share its place.
def selection(old, faults):
    if old.endswith(";"):
        text = "{ " + old + " }"
        for fault in faults:
            text = f"if (TavFault({fault.number})) {{ {fault.new} }} else {text}"
        return "{ " + text + " }"
    text = f"({old})"
    for fault in faults:
        text = f"(TavFault({fault.number}) ? ({fault.new}) : {text})"
    return text


def woven(tree, path, text, faults):
    places, wrong = {}, []
    for fault in faults:
        if text.count(fault.old) != 1:
            wrong.append(f"{fault.number}: {path}: {text.count(fault.old)} times: {fault.old}")
        else:
            places.setdefault((text.index(fault.old), fault.old), []).append(fault)
    end = len(text)
    for (at, old), sharing in sorted(places.items(), reverse=True):
        if at + len(old) > end:
            wrong.append(f"{sharing[0].number}: {path}: overlaps another fault: {old}")
            continue
        text = text[:at] + selection(old, sharing) + text[at + len(old):]
        end = at
    return f'#include "{tree.resolve()}/tavfault.h"\n#line 1\n' + text, wrong


def weave(tree):
    by_file = collections.defaultdict(list)
    for fault in read_list():
        by_file[fault.file].append(fault)
    wrong, written = [], {tree / "tavfault.h"}
    files = {name: pathlib.Path(name).read_bytes() for name in sys.stdin.read().split("\0") if os.path.isfile(name)}
    files["tavfault.h"] = SWITCH.encode()
    wrong += [f"{by_file[name][0].number}: no file {name}" for name in by_file if name not in files]
    for name, content in files.items():
        if name in by_file:
            text, faulty = woven(tree, name, content.decode(), by_file[name])
            content, wrong = text.encode(), wrong + faulty
        target = tree / name
        written.add(target)
        if target.is_file() and target.read_bytes() == content:
            continue  # keeps its time: nothing to build
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content)
        shutil.copymode(name, target) if os.path.exists(name) else None
    for old in [path for path in tree.rglob("*") if path.is_file() and path not in written]:
        old.unlink()
    if wrong:
        sys.exit("Faults that do not fit:\n" + "\n".join(wrong))


# ---- trying ----

# One suite of a test program, run under one fault in a temporary folder and process group of its own.
class Run:
    def __init__(self, fault, program, pattern):
        self.mark = f"TAV_FAULT_RUN={os.getpid()}.{threading.get_ident()}.{time.monotonic_ns()}"
        self.folder = tempfile.mkdtemp(prefix="tm", dir="/tmp") + "/"
        name, value = self.mark.split("=")
        env = dict(os.environ, TAV_FAULT=str(fault), TEST_TMPDIR=self.folder, **{name: value})
        command = [str(BUILD / program), "--gtest_filter=" + pattern, "--gtest_fail_fast", "--gtest_color=no"]
        self.process = subprocess.Popen(command, env=env, start_new_session=True, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    # Empty when all passed, else the test that noticed something.
    def noticed_by(self):
        try:
            output = self.process.communicate(timeout=LIMIT)[0].decode(errors="replace")
        except subprocess.TimeoutExpired:
            os.killpg(self.process.pid, signal.SIGKILL)
            output = self.process.communicate()[0].decode(errors="replace")
        self.sweep()
        if self.process.returncode == 0:
            return ""
        failed = re.findall(r"^\[  FAILED  \] (\S+?)[,\s]", output, re.M)
        begun = re.findall(r"^\[ RUN      \] (\S+)", output, re.M)
        return (failed or begun[-1:] or ["start"])[0]

    # Agents that outlive a test program that was killed; all that it started carries its mark.
    def sweep(self):
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if entry.name.isdigit() and self.mark.encode() in (entry / "environ").read_bytes():
                    os.kill(int(entry.name), signal.SIGKILL)
            except OSError:
                pass
        shutil.rmtree(self.folder, ignore_errors=True)


def tests_of(program):
    listing = subprocess.run([str(BUILD / program), "--gtest_list_tests"], stdout=subprocess.PIPE, check=True)
    return re.findall(r"^(\w+)\.", listing.stdout.decode(), re.M)


# The programs' suites with the time that each takes, the quickest first; all must pass without a fault.
def suites(only, pool):
    found = []
    for path in sorted(BUILD.rglob("*_test")):
        program = str(path.relative_to(BUILD))
        for suite in tests_of(program):
            if only in ("", suite) or only in path.name:
                found.append((program, suite + ".*"))
    known = json.loads(TIMES.read_text()) if TIMES.exists() else {}

    def seconds(suite):
        stamp = f"{suite[0]} {suite[1]} {(BUILD / suite[0]).stat().st_mtime_ns}"
        if stamp not in known:
            since = time.monotonic()
            noticed = Run(0, *suite).noticed_by() and Run(0, *suite).noticed_by()
            if noticed:
                sys.exit(f"{suite[0]}: {noticed} fails without any fault")
            known[stamp] = time.monotonic() - since
        return known[stamp]

    times = dict(zip(found, pool.map(seconds, found)))
    TIMES.write_text(json.dumps(known))
    return sorted(found, key=times.get)


def concerns(program, fault):
    return program.startswith("tavctl") if fault.file.startswith("tools") else True


def key_of(fault):
    return hashlib.sha1("\t".join(fault[1:4]).encode()).hexdigest()[:16]


def passes(program, test):
    return not Run(0, program, test).noticed_by() or not Run(0, program, test).noticed_by()


# Who noticed it: the program and the test, or nothing.  Noticing counts when the test does it twice, and passes
# without the fault in between: a busy machine fails some, too.
def try_fault(fault, order, killers):
    known = killers.get(key_of(fault))
    own = fault.file.split("/")[1] + "_test"
    order = [suite for suite in order if concerns(suite[0], fault)]
    order.sort(key=lambda suite: suite[0] != own)
    for program, pattern in ([tuple(known)] if known else []) + order:
        test = Run(fault.number, program, pattern).noticed_by()
        if test and (test == "start" or passes(program, test) and Run(fault.number, program, test).noticed_by()):
            return program, test
    return None


def chosen(faults, words):
    if not words:
        return faults
    ranges = [re.fullmatch(r"(\d+)(?:-(\d+))?", word) for word in words]
    def fits(fault):
        return any(int(r[1]) <= fault.number <= int(r[2] or r[1]) if r else word in "\t".join(fault[1:])
                   for r, word in zip(ranges, words))
    return [fault for fault in faults if fits(fault)]


def run(arguments):
    parser = argparse.ArgumentParser(prog="scripts/mutants")
    parser.add_argument("-j", type=int, default=2)
    parser.add_argument("-s", default="")
    parser.add_argument("-l", action="store_true")
    parser.add_argument("words", nargs="*")
    options = parser.parse_args(arguments)
    faults = chosen(read_list(), options.words)
    if options.l:
        for fault in faults:
            print(f"{fault.number:4} {fault.file}: {fault.what}")
        return
    killers = json.loads(KILLERS.read_text()) if KILLERS.exists() else {}
    faults = [fault for fault in faults if not fault.equivalent]
    survivors = []
    with concurrent.futures.ThreadPoolExecutor(options.j) as pool:
        order = suites(options.s, pool)
        for fault, by in zip(faults, pool.map(lambda fault: try_fault(fault, order, killers), faults)):
            print(f"{fault.number:4} {' '.join(by) if by else 'SURVIVES'}: {fault.file}: {fault.what}", flush=True)
            if by:
                killers[key_of(fault)] = by
                KILLERS.write_text(json.dumps(killers, indent=1))
            else:
                survivors.append(fault)
    print(f"\n{len(faults) - len(survivors)} of {len(faults)} noticed")
    for fault in survivors:
        print(f"{fault.number:4} {fault.file}: {fault.what}: {fault.old}  ->  {fault.new}")


if sys.argv[1] == "weave":
    weave(pathlib.Path(sys.argv[2]))
else:
    run(sys.argv[2:])
