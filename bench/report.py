#!/usr/bin/env python3
"""Report of one krlport_bench run: the table of goals and a chart per family.

  report.py RESULTS.json [--markdown FILE] [--charts DIR] [--allow-missing] [--placement]

RESULTS.json is Google Benchmark's JSON output (--benchmark_out_format=json),
best from --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true.
A benchmark's time is the "median" aggregate of its real time, in ns; a run
without aggregates (one repetition) gives the median of its iterations.

Prints the table of ROWS (krlport's median beside its peer's, their ratio and
the goal) on standard output. --markdown FILE replaces the part of FILE
between the BEGIN and END markers below with that table and a note of the run;
--charts DIR writes one SVG per family of FAMILIES into DIR, with every
benchmark of that family, grouped by operation: krlport beside its peers.

Exit status 1 when a row's benchmark is missing from the results (a renamed
or dropped benchmark), unless --allow-missing; 2 on bad input. A benchmark
that no family claims is listed as a warning, never dropped in silence.

Python 3 standard library only.
"""
import argparse
import html
import json
import math
import os
import re
import statistics
import sys

# ---------------------------------------------------------------------------
# The table: (path, peer, krlport benchmark, peer benchmark, goal). The ratio
# is krlport's median over the peer's; a row is met when it is at most the goal.
ROWS = [
    ("`KRLMutex` lock+unlock", "recursive `pthread_mutex_t`",
     "BM_KRLMutexLockUnlock", "BM_PthreadRecursiveLockUnlock", 0.7),
    ("`KRLMutex` re-entry", "recursive `pthread_mutex_t`",
     "BM_KRLMutexReentry", "BM_PthreadRecursiveReentry", 0.8),
    ("`KRLMutex`, 2 threads contended", "recursive `pthread_mutex_t`",
     "BM_KRLMutexContended/real_time/threads:2",
     "BM_PthreadRecursiveContended/real_time/threads:2", 0.9),
    ("`KRLSpinMutex` lock+unlock", "`pthread_spinlock_t`",
     "BM_KRLSpinMutexLockUnlock", "BM_PthreadSpinLockUnlock", 1.0),
    ("`KRLRSpinMutex` lock+unlock", "`pthread_spinlock_t`",
     "BM_KRLRSpinMutexLockUnlock", "BM_PthreadSpinLockUnlock", 1.1),
    ("`KRLCondition` ping-pong round trip, 2 threads", "`absl::CondVar`",
     "BM_KRLConditionPingPong/real_time", "BM_AbslCondVarPingPong/real_time", 1.0),
    ("`KRLRWLock` read lock+unlock", "`pthread_rwlock_t`",
     "BM_KRLRWLockReadUncontended", "BM_PthreadRWLockReadUncontended", 1.2),
    ("`KRLRWLock` write lock+unlock", "`pthread_rwlock_t`",
     "BM_KRLRWLockWriteUncontended", "BM_PthreadRWLockWriteUncontended", 1.2),
    ("`CORBA::current_environment()` through the shared library", "`pthread_getspecific`",
     "BM_KRLCurrentEnvironment", "BM_PthreadGetspecific", 2.0),
    ("`KRLThreadLocal::instance`", "`pthread_getspecific`",
     "BM_KRLThreadLocalInstance", "BM_PthreadGetspecific", 1.2),
    ("`KRLDictionary`, pointer keys, hit at 16", "`std::unordered_map`",
     "BM_LookupHit<Krl<KRLObjWrap>>/16", "BM_LookupHit<Std<KRLObjWrap>>/16", 1.0),
    ("`KRLDictionary`, pointer keys, hit at 1000", "`std::unordered_map`",
     "BM_LookupHit<Krl<KRLObjWrap>>/1000", "BM_LookupHit<Std<KRLObjWrap>>/1000", 1.0),
    ("`KRLDictionary`, pointer keys, hit at 100000", "`std::unordered_map`",
     "BM_LookupHit<Krl<KRLObjWrap>>/100000", "BM_LookupHit<Std<KRLObjWrap>>/100000", 1.0),
    ("`KRLDictionary`, pointer keys, miss at 100000", "`std::unordered_map`",
     "BM_LookupMiss<Krl<KRLObjWrap>>/100000", "BM_LookupMiss<Std<KRLObjWrap>>/100000", 1.5),
    ("`KRLDictionary`, 28-character ids, hit at 16", "`std::unordered_map`, its own hash",
     "BM_LookupHit<Krl<KRLStringWrapper>>/16", "BM_LookupHit<Std<KRLStringWrapper>>/16", 1.0),
    ("`KRLDictionary`, 28-character ids, hit at 1000", "`std::unordered_map`, its own hash",
     "BM_LookupHit<Krl<KRLStringWrapper>>/1000", "BM_LookupHit<Std<KRLStringWrapper>>/1000", 1.0),
    ("`KRLDictionary`, 28-character ids, hit at 100000", "`std::unordered_map`, its own hash",
     "BM_LookupHit<Krl<KRLStringWrapper>>/100000",
     "BM_LookupHit<Std<KRLStringWrapper>>/100000", 1.5),
    ("`KRLResource` `_ref`+`_unref`, sharing on", "`std::atomic<long>` fetch_add+fetch_sub",
     "BM_KRLResourceRefUnrefShared", "BM_AtomicIncDec", 1.5),
    ("`KRLostream` writing an `unsigned long`", "`std::ostringstream`",
     "BM_KrlWriteUnsignedLong", "BM_StdWriteUnsignedLong", 0.5),
    ("`KRLostream` writing an `int`", "`std::ostringstream`",
     "BM_KrlWriteInt", "BM_StdWriteInt", 0.5),
    ("`KRListream` reading a `double`", "`std::istringstream`",
     "BM_KrlReadDouble", "BM_StdReadDouble", 0.5),
    ("`CORBA::string_dup` + `string_free`, 30 bytes", "`strdup` + `free`",
     "BM_CorbaStringDup", "BM_Strdup", 1.1),
]

# ---------------------------------------------------------------------------
# Placing every benchmark for the charts.
#
# A name is BM_<tag><operation>[/args] or BM_<operation><<tag><<key>>>[/args]
# (a template). The tag names the library; the operation, after ALIASES,
# pairs a krlport benchmark with the peers that do the same work. ROWS and
# EXTRA_PAIRS pair names that no convention can.

# (prefix, library); the first that matches wins. A prefix that does not end
# in '_' must be followed by an upper-case letter, a digit, '_' or the end.
TAGS = [
    ("KRL_", "krlport"), ("KRL", "krlport"), ("Krl", "krlport"), ("CORBA_", "krlport"),
    ("Corba", "krlport"),
    ("Std", "std"), ("std_", "std"), ("Atomic", "std"), ("Heap", "std"),
    ("Pthread", "pthread"), ("pthread_", "pthread"),
    ("Absl", "abseil"),
    ("Strdup", "libc"), ("Libc", "libc"),
    ("Plain", "plain"),
]

# library -> (legend text, colour); the legend follows this order.
LIBRARIES = {
    "krlport": ("krlport", "#1f5fa8"),
    "std": ("C++ standard library", "#e08a2c"),
    "pthread": ("pthreads (glibc)", "#3a9a5b"),
    "abseil": ("abseil", "#8a5cb8"),
    "libc": ("C library", "#a0522d"),
    "plain": ("plain code, no library", "#8c8c8c"),
}

# (operation pattern, replacement): the same work under the peers' names.
ALIASES = [
    (r"^ConditionVariable|^CondVar", "Condition"),   # std::condition_variable, absl::CondVar
    (r"Notify", "Signal"),                           # notify_one is a signal
    (r"^Recursive", "Mutex"),                        # a recursive pthread mutex is KRLMutex's peer
    (r"^SpinMutex", "Spin"),                         # KRLSpinMutex against pthread_spinlock_t
    (r"^CvRWLock", "RWLock"),                        # a lock made of std::mutex + condition_variable
    (r"^ResourceRefUnref", "IncDec"),                # _ref+_unref: the count up and down
    (r"^(CurrentEnvironment|current_environment|ThreadLocalInstance|ThreadLocal_instance"
     r"|[Gg]etspecific)", "ThreadSlot"),             # a per-thread value, found again
]

# (krlport benchmark, peer benchmark) pairs beyond ROWS whose names differ.
# A paired name that no family claims goes to its partner's family.
EXTRA_PAIRS = [
    ("BM_KRLResourceRefUnrefUnshared", "BM_PlainIncDec"),
    ("BM_KRLResourceBlockFromPool", "BM_HeapBlockNewDelete"),
    ("BM_StringVarAssignReuse", "BM_StdStringAssign"),
    ("BM_KRLThreadLocalInstance", "BM_mutex_two_maps"),
]

# The library of peers whose names carry no tag.
UNTAGGED = {
    "BM_mutex_two_maps": "std",   # a std::mutex over two std::unordered_maps
}

# (file name, title, pattern over the name without "BM_"); the first that
# matches places the benchmark.
FAMILIES = [
    ("dictionary", "KRLDictionary against std::unordered_map",
     r"<(Krl|Std)<|Dictionary"),
    ("rwlock", "KRLRWLock against read-write locks",
     r"RWLock|RwLock|Rwlock|SharedMutex|ReaderLock|WriterLock|ReadLock|WriteLock"),
    ("condition", "KRLCondition against condition variables",
     r"Condition|CondVar|PingPong"),
    ("thread_local", "KRLThreadLocal and current_environment against pthread_getspecific",
     r"ThreadLocal|[Cc]urrent_?[Ee]nvironment|[Gg]etspecific|ThreadSlot|Tls"),
    ("mutexes", "KRLMutex, KRLSpinMutex and KRLRSpinMutex against pthread locks",
     r"Mutex|Recursive|Spin"),
    ("resource", "KRLResource reference counts against atomics",
     r"Resource|IncDec|Block|NewDelete|RefUnref"),
    ("streams", "KRLostream and KRListream against the standard string streams",
     r"^(Krl|KRL|Std)(Write|Read)|[Oo]stream|[Ii]stream"),
    ("strings", "CORBA strings against the C library and std::string",
     r"String|[Ss]trdup"),
]

BEGIN_MARK = "<!-- BEGIN generated by bench/report.py from one run; do not edit by hand -->"
END_MARK = "<!-- END generated by bench/report.py -->"

UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


class InputError(Exception):
    pass


# ---------------------------------------------------------------------------
# Reading the results.

class Result:
    """One benchmark of the run: its median and the spread of its repetitions."""

    def __init__(self, name, order):
        self.name = name
        self.order = order
        self.median = None
        self.runs = []
        self.error = None

    @property
    def time(self):
        if self.median is not None:
            return self.median
        return statistics.median(self.runs) if self.runs else None

    @property
    def spread(self):
        return (min(self.runs), max(self.runs)) if len(self.runs) > 1 else None


def load(path):
    try:
        with open(path, encoding="utf-8") as f:
            data = json.load(f)
    except (OSError, ValueError) as e:
        raise InputError(f"{path}: {e}")
    if not isinstance(data, dict) or not isinstance(data.get("benchmarks"), list):
        raise InputError(f"{path}: not Google Benchmark's JSON output (no 'benchmarks' list)")
    results = {}
    for entry in data["benchmarks"]:
        name = entry.get("run_name") or entry.get("name")
        if not name:
            continue
        order = (entry.get("family_index", 1 << 30), entry.get("per_family_instance_index", 0))
        r = results.setdefault(name, Result(name, order))
        if entry.get("error_occurred"):
            r.error = entry.get("error_message") or "error"
            continue
        aggregate = entry.get("run_type") == "aggregate"
        if aggregate and entry.get("aggregate_name") != "median":
            continue   # mean, stddev, cv
        unit = entry.get("time_unit", "ns")
        if unit not in UNIT_NS or not isinstance(entry.get("real_time"), (int, float)):
            raise InputError(f"{path}: {name}: no real time in a known unit ({unit!r})")
        t = float(entry["real_time"]) * UNIT_NS[unit]
        if aggregate:
            r.median = t
        else:
            r.runs.append(t)
    return data.get("context", {}), results


# ---------------------------------------------------------------------------
# Placing the benchmarks into families and groups.

TEMPLATE = re.compile(r"^BM_(?P<op>\w+)<(?P<tag>\w+)<(?P<key>.+)>>(?P<args>/.*)?$")
PLAIN = re.compile(r"^BM_(?P<body>[^/]+)(?P<args>/.*)?$")


def split_tag(body):
    for prefix, library in TAGS:
        if body.startswith(prefix):
            rest = body[len(prefix):]
            if prefix.endswith("_") or not rest or not rest[0].islower():
                return library, prefix, rest.lstrip("_")
    return None, None, body


def canonical(op):
    for pattern, replacement in ALIASES:
        op = re.sub(pattern, replacement, op)
    return op


class Placed:
    """Where a benchmark goes: its family, library, operation and bar label."""

    def __init__(self, name):
        self.name = name
        self.family = self.library = self.op = None
        self.args, self.label = "", name
        m = TEMPLATE.match(name)
        if m:
            library, _, _ = split_tag(m["tag"])
            self.library = library
            self.op = f"{m['op']}<{m['key']}>{m['args'] or ''}"
            self.label = m["tag"]
            body = name[3:]
        else:
            m = PLAIN.match(name)
            if not m:
                return
            body = m["body"]
            self.args = m["args"] or ""
            self.library, _, rest = split_tag(body)
            self.op = canonical(rest) + (m["args"] or "")
            self.label = body + (m["args"] or "")
        for key, _, pattern in FAMILIES:
            if re.search(pattern, body):
                self.family = key
                break


def place(results):
    """Families -> ordered groups of benchmark names, and the names left over."""
    krl_of = {}    # forced library of the names in ROWS and EXTRA_PAIRS
    peer_of = {}   # krlport benchmark -> the peer its ratio is taken against
    goal_of = {}   # krlport benchmark -> (goal, row path)
    links = []
    for path, _, krl, peer, goal in ROWS:
        krl_of[krl] = "krlport"
        peer_of.setdefault(krl, peer)
        goal_of.setdefault(krl, (goal, path))
        links.append((krl, peer))
    for krl, peer in EXTRA_PAIRS:
        krl_of[krl] = "krlport"
        peer_of.setdefault(krl, peer)
        links.append((krl, peer))

    candidates = {}
    for name in results:
        p = Placed(name)
        p.library = krl_of.get(name) or p.library or UNTAGGED.get(name)
        candidates[name] = p
    for a, b in links:
        if a in candidates and b in candidates:
            pa, pb = candidates[a], candidates[b]
            pa.family = pa.family or pb.family
            pb.family = pb.family or pa.family
    placed, others = {}, []
    for name, p in candidates.items():
        if p.family is None or p.library is None:
            others.append(name)
        else:
            placed[name] = p

    # Union of the names that share a family and an operation, or are paired.
    parent = {name: name for name in placed}

    def find(x):
        while parent[x] != x:
            parent[x] = parent[parent[x]]
            x = parent[x]
        return x

    # Names of one operation go together; but two peers that a pair gives to
    # different krlport benchmarks keep apart (std::atomic and plain code both
    # "IncDec", for the shared and the unshared count).
    paired_peers = {peer for _, peer in links}
    by_op = {}
    for name, p in placed.items():
        by_op.setdefault((p.family, p.op), []).append(name)
    for names in by_op.values():
        for i, a in enumerate(names):
            for b in names[:i]:
                if (placed[a].library == "krlport" or placed[b].library == "krlport"
                        or not (a in paired_peers or b in paired_peers)):
                    parent[find(a)] = find(b)
    for a, b in links:
        if a in placed and b in placed and placed[a].family == placed[b].family:
            parent[find(a)] = find(b)

    groups = {}
    for name in placed:
        groups.setdefault(find(name), []).append(name)
    lib_rank = {lib: i for i, lib in enumerate(LIBRARIES)}
    families = {key: [] for key, _, _ in FAMILIES}
    for members in groups.values():
        members.sort(key=lambda n: (lib_rank[placed[n].library], results[n].order))
        families[placed[members[0]].family].append(members)
    for members in families.values():
        members.sort(key=lambda g: min(results[n].order for n in g))
    return families, placed, peer_of, goal_of, sorted(others, key=lambda n: results[n].order)


# ---------------------------------------------------------------------------
# The table.

def fmt_ns(t):
    if t is None:
        return "—"
    if t < 10:
        return f"{t:.2f} ns"
    if t < 100:
        return f"{t:.1f} ns"
    return f"{t:,.0f} ns"


def fmt_ratio(ratio, goal):
    text = f"{ratio:.2f}"
    if goal is not None and float(text) <= goal < ratio:
        text = f"{ratio:.3f}"   # two places would hide a miss
    return text


def table(results):
    """The markdown table and the list of missing row benchmarks."""
    lines = ["| path | peer | krlport median | peer median | ratio | goal | met |",
             "|---|---|--:|--:|--:|--:|:-:|"]
    missing = []
    for path, peer_text, krl, peer, goal in ROWS:
        times = []
        for name in (krl, peer):
            r = results.get(name)
            t = r.time if r else None
            if t is None:
                why = f" ({r.error})" if r is not None and r.error else ""
                if name + why not in missing:
                    missing.append(name + why)
            times.append(t)
        kt, pt = times
        if kt is None or pt is None or pt <= 0:
            ratio_text, met = "—", "missing"
        else:
            ratio = kt / pt
            ratio_text, met = fmt_ratio(ratio, goal), ("yes" if ratio <= goal else "no")
        lines.append(f"| {path} | {peer_text} | {fmt_ns(kt)} | {fmt_ns(pt)} | {ratio_text} "
                     f"| ≤ {goal:.1f} | {met} |")
    return lines, missing


def run_note(context, results):
    reps = max((len(r.runs) for r in results.values()), default=0)
    cpus = context.get("num_cpus", "?")
    mhz = context.get("mhz_per_cpu", "?")
    load = context.get("load_avg") or []
    load_text = "/".join(f"{x:.1f}" for x in load) if load else "?"
    median = "the median" if reps > 1 else "the time"
    return (f"Run of {context.get('date', '?')} on `{context.get('host_name', '?')}` "
            f"({cpus} CPUs at {mhz} MHz, load average {load_text} at the start): "
            f"{median} of {reps} repetition{'s' if reps != 1 else ''} of each benchmark, real time.")


def pairs_list():
    lines = ["<details><summary>The benchmarks behind each row</summary>", "",
             "| path | krlport benchmark | peer benchmark |", "|---|---|---|"]
    for path, _, krl, peer, _ in ROWS:
        lines.append(f"| {path} | `{krl}` | `{peer}` |")
    lines += ["", "</details>"]
    return lines


def write_markdown(path, block):
    try:
        with open(path, encoding="utf-8") as f:
            text = f.read()
    except OSError as e:
        raise InputError(f"{path}: {e}")
    begin, end = text.find(BEGIN_MARK), text.find(END_MARK)
    if begin < 0 or end < begin:
        raise InputError(f"{path}: no '{BEGIN_MARK}' ... '{END_MARK}' markers in this order")
    text = text[:begin + len(BEGIN_MARK)] + "\n" + "\n".join(block) + "\n" + text[end:]
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


# ---------------------------------------------------------------------------
# The charts: one SVG per family. Each operation is a panel of its own, with a
# linear scale from 0 (times of one family differ by orders of magnitude);
# krlport's bars carry their ratio against the peer.

FONT = "DejaVu Sans, Verdana, Arial, sans-serif"
MONO = "DejaVu Sans Mono, Menlo, Consolas, monospace"
CHAR_W = 6.7        # width of a character at 11 px, a little generous
BAR_H, BAR_GAP = 15, 5
TITLE_H, AXIS_H = 22, 28
PANEL_GAP_X, PANEL_GAP_Y = 34, 16
BAR_W = 230
LOG_ABOVE = 20      # a panel whose times differ more than this many times is drawn on a log scale
MARGIN = 16
GOOD, BAD, INK, GRID = "#237a3b", "#b8322a", "#222222", "#d9d9d9"


def esc(text):
    return html.escape(str(text), quote=True)


def nice_step(span, ticks=4):
    raw = span / ticks
    power = 10 ** math.floor(math.log10(raw))
    for m in (1, 2, 2.5, 5, 10):
        if m * power >= raw:
            return m * power
    return 10 * power


def tick_text(v, step):
    places = next((d for d in range(4) if abs(round(step, d) - step) < 1e-9 * step), 4)
    return f"{v:,.{places}f}"


class Bar:
    def __init__(self, name, p, r):
        self.name, self.label, self.library = name, p.label, p.library
        self.time, self.spread = r.time, r.spread
        self.note, self.note_colour = "", INK
        self.goal_at = None


class Panel:
    """One operation: its bars and its scale, linear from 0, or logarithmic
    where its times differ by more than LOG_ABOVE times."""

    def __init__(self, title, bars):
        self.title, self.bars = title, bars
        hi, lo = max(b.time for b in bars), min(b.time for b in bars)
        # Room for the slowest repetitions, unless one is far out: its
        # whisker then ends in an arrow at the axis's end.
        slowest = max(b.spread[1] if b.spread else b.time for b in bars)
        hi = max(hi, min(slowest, 2 * hi))
        self.log = lo > 0 and hi / lo > LOG_ABOVE
        if self.log:
            self.lo = math.floor(math.log10(lo))
            self.hi = max(math.ceil(math.log10(hi * 1.02)), self.lo + 1)
            self.ticks = [10.0 ** k for k in range(self.lo, self.hi + 1)]
            self.step = 10.0 ** self.lo
        else:
            self.step = nice_step(hi)
            count = math.ceil(hi * 1.02 / self.step)
            self.ticks = [i * self.step for i in range(count + 1)]
        self.axis_max = self.ticks[-1]

    def fraction(self, t):
        """Where time t falls along the axis, from 0 to 1."""
        if self.log:
            t = min(max(t, 10.0 ** self.lo), self.axis_max)
            return (math.log10(t) - self.lo) / (self.hi - self.lo)
        return min(t, self.axis_max) / self.axis_max

    def height(self):
        return TITLE_H + len(self.bars) * (BAR_H + BAR_GAP) + AXIS_H


def panels_of(groups, placed, results, peer_of, goal_of):
    panels = []
    for members in groups:
        bars = [Bar(n, placed[n], results[n]) for n in members if results[n].time is not None]
        if not bars:
            continue
        common = {placed[b.name].args for b in bars}
        if len(common) == 1 and "" not in common:
            for b in bars:   # the title says it once
                b.label = b.label[:-len(placed[b.name].args)]
        by_name = {b.name: b for b in bars}
        peers = [b for b in bars if b.library != "krlport"]
        title = None
        for b in bars:
            if b.library != "krlport" or not peers:
                continue
            peer = by_name.get(peer_of.get(b.name)) or min(peers, key=lambda x: x.time)
            ratio = b.time / peer.time
            b.note = f"ratio {ratio:.2f}"
            if len(peers) > 1:
                b.note += f" vs {peer.label}"
            if b.name in goal_of and peer.name == peer_of.get(b.name):
                goal, path = goal_of[b.name]
                b.note += f", goal ≤ {goal:.1f}"
                b.note_colour = GOOD if ratio <= goal else BAD
                b.goal_at = peer.time * goal
                path = re.sub(r"`", "", path)
                title = path if title is None else title + "; " + path
        if title is None:   # the name of the first krlport benchmark, else of the first
            first = placed[bars[0].name]
            title = first.op if first.name.find("<") >= 0 else first.name[3:]
        panels.append(Panel(title, bars))
    return panels


def svg_chart(title, panels, reps):
    out = []
    legend_libs = [lib for lib in LIBRARIES if any(b.library == lib for p in panels for b in p.bars)]
    label_w = max([len(b.label) for p in panels for b in p.bars] + [4]) * CHAR_W + 10
    text_w = max([len(f"{b.time:,.1f} ns  {b.note}") for p in panels for b in p.bars] + [10]) * CHAR_W
    title_w = max([len(p.title) * CHAR_W * 1.05 for p in panels] + [0])
    panel_w = max(label_w + BAR_W + 8 + text_w, title_w)
    ncols = min(3, max(1, math.ceil(len(panels) / 6)))
    rows = [panels[i:i + ncols] for i in range(0, len(panels), ncols)]
    width = MARGIN * 2 + ncols * panel_w + (ncols - 1) * PANEL_GAP_X
    notes = [
        f"Real time per operation in ns, "
        f"{f'median of {reps} repetitions' if reps > 1 else 'one repetition'}; whiskers: the fastest "
        "and the slowest repetition (an arrow: beyond the axis).",
        f"Each panel has its own scale: from 0, or logarithmic where its times differ more than "
        f"{LOG_ABOVE} times.",
        "ratio = krlport / peer (below 1: krlport is faster); a dashed mark is the goal "
        "(peer × goal), green when met, red when not."]
    width = max(width, len(title) * 10.5 + 2 * MARGIN, max(len(n) for n in notes) * 6.6 + 2 * MARGIN)

    y = MARGIN + 18
    body = [f'<text x="{MARGIN}" y="{y}" font-size="17" font-weight="bold">{esc(title)}</text>']
    y += 20
    for note in notes:
        body.append(f'<text x="{MARGIN}" y="{y}" font-size="11.5" fill="#444">{esc(note)}</text>')
        y += 16
    y -= 2
    x = MARGIN
    for lib in legend_libs:
        text, colour = LIBRARIES[lib]
        body.append(f'<rect x="{x}" y="{y}" width="14" height="12" fill="{colour}"/>')
        body.append(f'<text x="{x + 19}" y="{y + 10.5}" font-size="12">{esc(text)}</text>')
        x += 19 + len(text) * 7.2 + 22
    y += 12 + 18

    if not panels:
        body.append(f'<text x="{MARGIN}" y="{y + 14}" font-size="13" fill="{BAD}">'
                    'No benchmark of this family in this run.</text>')
        y += 30
    for row in rows:
        row_h = max(p.height() for p in row)
        for col, p in enumerate(row):
            body += svg_panel(p, MARGIN + col * (panel_w + PANEL_GAP_X), y, label_w)
        y += row_h + PANEL_GAP_Y
    height = y + MARGIN - PANEL_GAP_Y
    out.append(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height:.0f}" '
               f'viewBox="0 0 {width:.0f} {height:.0f}" font-family="{FONT}" fill="{INK}">')
    out.append(f'<title>{esc(title)}</title>')
    out.append(f'<rect width="{width:.0f}" height="{height:.0f}" fill="#ffffff"/>')
    out += body
    out.append("</svg>")
    return "\n".join(out) + "\n"


def svg_panel(p, x, y, label_w):
    out = [f'<text x="{x}" y="{y + 14}" font-size="12.5" font-weight="bold">{esc(p.title)}</text>']
    x0 = x + label_w
    top = y + TITLE_H
    bottom = top + len(p.bars) * (BAR_H + BAR_GAP)

    def sx(t):
        return x0 + BAR_W * p.fraction(t)

    for v in p.ticks:
        gx = sx(v)
        out.append(f'<line x1="{gx:.1f}" y1="{top - 2}" x2="{gx:.1f}" y2="{bottom}" '
                   f'stroke="{GRID}" stroke-width="1"/>')
        out.append(f'<line x1="{gx:.1f}" y1="{bottom}" x2="{gx:.1f}" y2="{bottom + 4}" stroke="#666"/>')
        out.append(f'<text x="{gx:.1f}" y="{bottom + 15}" font-size="10" text-anchor="middle" '
                   f'fill="#444">{tick_text(v, v if p.log else p.step)}</text>')
    out.append(f'<line x1="{x0}" y1="{bottom}" x2="{x0 + BAR_W}" y2="{bottom}" stroke="#666"/>')
    unit = "ns, log scale" if p.log else "ns"
    last = tick_text(p.ticks[-1], p.ticks[-1] if p.log else p.step)
    ux = x0 + BAR_W + len(last) * 3.1 + 6
    out.append(f'<text x="{ux:.1f}" y="{bottom + 15}" font-size="10" fill="#444">{unit}</text>')

    for i, b in enumerate(p.bars):
        by = top + i * (BAR_H + BAR_GAP)
        colour = LIBRARIES[b.library][1]
        out.append(f'<text x="{x0 - 6}" y="{by + 11.5}" font-size="11" font-family="{MONO}" '
                   f'text-anchor="end">{esc(b.label)}</text>')
        out.append(f'<rect x="{x0}" y="{by}" width="{max(sx(b.time) - x0, 1):.1f}" '
                   f'height="{BAR_H}" fill="{colour}"><title>{esc(b.name)}: '
                   f'{b.time:,.2f} ns</title></rect>')
        if b.spread:
            lo, hi = (sx(t) for t in b.spread)
            mid = by + BAR_H / 2
            out.append(f'<line x1="{lo:.1f}" y1="{mid}" x2="{hi:.1f}" y2="{mid}" stroke="#000" '
                       f'stroke-width="1"/>')
            out.append(f'<line x1="{lo:.1f}" y1="{mid - 3.5}" x2="{lo:.1f}" y2="{mid + 3.5}" '
                       f'stroke="#000" stroke-width="1"/>')
            if b.spread[1] > p.axis_max:   # beyond the axis: an arrow
                out.append(f'<path d="M{hi - 5:.1f},{mid - 3.5} L{hi:.1f},{mid} L{hi - 5:.1f},{mid + 3.5}" '
                           f'fill="none" stroke="#000" stroke-width="1"/>')
            else:
                out.append(f'<line x1="{hi:.1f}" y1="{mid - 3.5}" x2="{hi:.1f}" y2="{mid + 3.5}" '
                           f'stroke="#000" stroke-width="1"/>')
        if b.goal_at is not None:
            gx = sx(b.goal_at)
            out.append(f'<line x1="{gx:.1f}" y1="{by - 3}" x2="{gx:.1f}" y2="{by + BAR_H + 3}" '
                       f'stroke="{b.note_colour}" stroke-width="2" stroke-dasharray="3,2"/>')
        value = f"{b.time:,.2f} ns" if b.time < 10 else f"{b.time:,.1f} ns"
        tx = x0 + BAR_W + 8
        out.append(f'<text x="{tx}" y="{by + 11.5}" font-size="11">{esc(value)}'
                   + (f'<tspan fill="{b.note_colour}" font-weight="bold" dx="8">{esc(b.note)}</tspan>'
                      if b.note else "") + "</text>")
    return out


def write_charts(directory, results, families, placed, peer_of, goal_of):
    os.makedirs(directory, exist_ok=True)
    reps = max((len(r.runs) for r in results.values()), default=0)
    written = []
    for key, title, _ in FAMILIES:
        panels = panels_of(families[key], placed, results, peer_of, goal_of)
        path = os.path.join(directory, f"{key}.svg")
        with open(path, "w", encoding="utf-8") as f:
            f.write(svg_chart(title, panels, reps))
        written.append(path)
    return written


# ---------------------------------------------------------------------------

def main(argv):
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0],
                                 formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("results", help="Google Benchmark JSON output of krlport_bench")
    ap.add_argument("--markdown", metavar="FILE",
                    help="replace the generated part of FILE (between its markers)")
    ap.add_argument("--charts", metavar="DIR", help="write one SVG chart per family into DIR")
    ap.add_argument("--allow-missing", action="store_true",
                    help="report a row whose benchmark is missing instead of failing")
    ap.add_argument("--placement", action="store_true",
                    help="list how each benchmark is placed: family, panel, library")
    args = ap.parse_args(argv)
    try:
        context, results = load(args.results)
        lines, missing = table(results)
        families, placed, peer_of, goal_of, others = place(results)
        print("\n".join(lines))
        if args.placement:
            for key, _, _ in FAMILIES:
                print(f"\n{key}:")
                for members in families[key]:
                    print("  " + "  ".join(f"{n} [{placed[n].library}]" for n in members))
        for name in others:
            print(f"warning: {name}: no family or library recognised; not charted "
                  "(name it BM_<Krl|Std|Pthread|Absl...><operation>, or extend bench/report.py)",
                  file=sys.stderr)
        for name in missing:
            print(f"{'warning' if args.allow_missing else 'error'}: {name}: a row's benchmark is "
                  "missing from the results", file=sys.stderr)
        if missing and not args.allow_missing:
            return 1
        if args.markdown:
            block = ["", run_note(context, results), ""] + lines + [""] + pairs_list()
            if others:
                block += ["", "Not charted (no family or library recognised): "
                          + ", ".join(f"`{n}`" for n in others) + "."]
            block.append("")
            write_markdown(args.markdown, block)
            print(f"table written into {args.markdown}", file=sys.stderr)
        if args.charts:
            for path in write_charts(args.charts, results, families, placed, peer_of, goal_of):
                print(f"chart written: {path}", file=sys.stderr)
    except InputError as e:
        print(f"error: {e}", file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
