#!/usr/bin/env python3
"""Makes tables and plots of what the benches have printed (bench/support/Contest.h states the lines).

  report.py PART FILE...        the tables of that part, on the standard output
  report.py --write DIR         docs/benchmarks.md: what stands between its marks, from DIR/PART.tsv
                                and DIR/machine.txt; and docs/bench-*.svg

A value is the median of its rounds, with the quartiles; a ratio is the median of the ratios of the
single rounds, in which the contenders had their turns one after the other.
"""
import collections
import pathlib
import statistics
import sys

sys.dont_write_bytecode = True
import plot  # noqa: E402

# The parts, in the order of the page: name, headline.
PARTS = {
    "call": "Calls",
    "command": "Commands",
    "json": "JSON",
    "codec": "Codecs",
    "tcp": "TCP",
    "log": "The log",
}
CALLS = ("sd-bus peer to peer", "sd-bus over a bus", "ZeroMQ", "nng", "gRPC", "Cap'n Proto")

# What is to be reached: work, x, contender, "time" (at most so many times its) or "speed" (at least
# so many times its), the limit. A value instead of a ratio has no contender.
TARGETS = {
    "call": [
        ("call, pinned", "", "raw: FIFO ping-pong", "time", 2.0),
        ("call, pinned", "", "sd-bus peer to peer", "time", 0.6),
        ("call, free", "", "raw: FIFO ping-pong", "time", 2.0),
        *[("call, free", "", peer, "time", 1.0) for peer in CALLS],
        ("two calling threads, pinned", "", "raw: two FIFO pairs", "speed", 0.75),
    ],
    "command": [
        ("command written and read", "", "raw: memcpy into fixed fields", "time", 2.0),
        ("command written and read", "", "FlatBuffers", "time", 1.0),
        ("command written and read", "", "msgpack", "time", 1.0),
        ("command written and read", "", "protobuf", "time", 1.0),
    ],
    "json": [
        (f"{work}, {text}", "", peer, "speed", limit)
        for work, peer, limits in (
            ("parse and destroy", "nlohmann/json", (1.8, 2.3, 1.5)),
            ("parse and destroy", "jsoncpp", (2.5, 7, 2.1)),
            ("write", "nlohmann/json", (2.0, 1.1, 2.5)),
            ("write", "jsoncpp", (4, 4, 4)),
        )
        for text, limit in zip(("guide", "numbers", "strings"), limits)
    ],
    "codec": [
        ("MD5", "", "nettle", "speed", 1.0),
        ("RC4", "", "nettle", "speed", 1.0),
        ("SHA-1", "", "GLib", "speed", 1.1),
        ("SHA-1", "", "OpenSSL", "speed", 0.9),
        ("Base64 encode", "", "OpenSSL", "speed", 1.2),
        ("Base64 decode", "", "OpenSSL", "speed", 1.5),
    ],
    "tcp": [
        ("TCP echo, 64 bytes, pinned", x, "raw: epoll", "speed", limit)
        for x, limit in (("1", 0.9), ("32", 0.6), ("256", 0.6))
    ],
    "log": [
        ("disabled message", "", None, "ns", 2.0),
        ("enabled message to file", "", "spdlog", "time", 1.0),
    ],
}

BEGIN = "<!-- measured: begin, by scripts/bench -->"
END = "<!-- measured: end -->"


class Run:
    """What one bench has printed: values[work][x][contender] is a value for each round."""

    def __init__(self, lines):
        self.units = {}
        self.values = {}
        for line in lines:
            work, x, contender, unit, _, value = line.rstrip("\n").split("\t")
            self.units[work] = unit
            points = self.values.setdefault(work, {})
            points.setdefault(x, collections.OrderedDict()).setdefault(contender, [])
            points[x][contender].append(float(value))

    def rounds(self, work):
        return len(next(iter(next(iter(self.values[work].values())).values())))

    def is_rate(self, work):
        return self.units[work].endswith("/s")

    def ratio(self, work, x, contender, kind="speed"):
        """How many times as fast as the contender ours is, or as much time as it ours takes."""
        point = self.values[work][x]
        quotients = [ours / other for ours, other in zip(point["ours"], point[contender]) if other]
        if not quotients:
            return None
        middle = statistics.median(quotients)
        return middle if (kind == "speed") == self.is_rate(work) else 1 / middle


def number(value):
    if value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.3g}" if value < 100 else f"{value:.0f}"


def ratio_text(value):
    if value is None:
        return "-"
    return f"{value:.2f}" if value < 10 else f"{value:.1f}"


def spread(values):
    if len(values) < 2:
        return "-"
    low, _, high = statistics.quantiles(values, n=4, method="inclusive")
    return f"{number(low)} to {number(high)}"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows] + [""]


def by_contender(run, work, x):
    point = run.values[work][x]
    rows = []
    for name, values in point.items():
        faster = "" if name == "ours" or "ours" not in point else ratio_text(run.ratio(work, x, name))
        rows.append([name, number(statistics.median(values)), spread(values), faster])
    label = f"{work}, {x}" if x else work
    better = "small" if run.units[work] == "KiB" else "fast"
    return table([label, run.units[work], "quartiles", f"ours is so many times as {better}"], rows)


def by_x(run, work):
    points = run.values[work]
    names = list(next(iter(points.values())))
    head = [f"{work}; {run.units[work]}"]
    for name in names:
        head += [name] if name == "ours" else [name, "ours / it"]
    rows = []
    for x, point in points.items():
        row = [x]
        for name in names:
            row.append(number(statistics.median(point[name])) if name in point else "-")
            if name != "ours":
                row.append(ratio_text(run.ratio(work, x, name)) if name in point else "-")
        rows.append(row)
    if "ours" in names and not run.is_rate(work):
        head = [cell.replace("ours / it", "ours is so many times as fast") for cell in head]
    return table(head, rows)


def tables(run):
    lines = []
    for work, points in run.values.items():
        lines += by_contender(run, work, next(iter(points))) if len(points) == 1 else by_x(run, work)
    return lines


def judged(run, part):
    """Rows of the table of targets."""
    rows = []
    for work, x, contender, kind, limit in TARGETS[part]:
        if x not in run.values.get(work, {}):
            continue
        point = run.values[work][x]
        if contender is None:
            value = statistics.median(point["ours"])
            aim = f"at most {limit:g} {kind}"
            reached, shown = value <= limit, f"{number(value)} {kind}"
        elif contender in point:
            value = run.ratio(work, x, contender, kind)
            aim = f"{'at most' if kind == 'time' else 'at least'} {limit:g} x"
            reached = value <= limit if kind == "time" else value >= limit
            shown = ratio_text(value)
        else:
            continue
        against = f"{kind} of {contender}" if contender else "time"
        rows.append(
            [f"{work}, {x}" if x else work, against, aim, shown, "yes" if reached else "**no**"]
        )
    return rows


def read(path):
    with open(path, encoding="utf-8") as lines:
        return Run(lines)


def write_plots(run, part, docs):
    """One picture of the comparisons, one for each series; returns their names."""
    names = []
    bars = {
        work: {
            name: run.ratio(work, "", name, "speed")
            for name in points[""]
            if name != "ours" and run.ratio(work, "", name)
        }
        for work, points in run.values.items()
        if list(points) == [""] and "ours" in points[""] and len(points[""]) > 1
    }
    if bars:
        names.append(f"bench-{part}.svg")
        (docs / names[-1]).write_text(
            plot.bars(f"{PARTS[part]}: how many times as fast ours is", bars), encoding="utf-8"
        )
    for work, points in run.values.items():
        if len(points) < 2:
            continue
        series = collections.OrderedDict()
        for x, point in points.items():
            for name, values in point.items():
                series.setdefault(name, []).append((float(x), statistics.median(values)))
        slug = "".join(c if c.isalnum() else "-" for c in work.lower()).replace("--", "-")
        names.append(f"bench-{part}-{slug}.svg")
        (docs / names[-1]).write_text(
            plot.lines(f"{work}, {run.units[work]}", series), encoding="utf-8"
        )
    return names


def write(results):
    docs = pathlib.Path(__file__).resolve().parent.parent / "docs"
    for old in docs.glob("bench-*.svg"):
        old.unlink()
    runs = {part: read(results / f"{part}.tsv") for part in PARTS}
    lines = ["", "## Machine", "", "```text"]
    lines += (results / "machine.txt").read_text(encoding="utf-8").splitlines() + ["```", ""]
    lines += ["## Targets", ""]
    rows = [row for part, run in runs.items() for row in judged(run, part)]
    lines += table(["work", "compared with the", "target", "measured", "reached"], rows)
    for part, run in runs.items():
        lines += [f"## {PARTS[part]}", ""] + tables(run)
        for name in write_plots(run, part, docs):
            lines += [f"![{name[:-4]}]({name})", ""]
    page = docs / "benchmarks.md"
    text = page.read_text(encoding="utf-8")
    before, rest = text.split(BEGIN)
    after = rest.split(END)[1]
    page.write_text(before + BEGIN + "\n".join(lines) + END + after, encoding="utf-8")


def main():
    if sys.argv[1:2] == ["--write"] and len(sys.argv) == 3:
        write(pathlib.Path(sys.argv[2]))
    elif len(sys.argv) == 3 and sys.argv[1] in PARTS:
        run = read(sys.argv[2])
        print("\n".join(tables(run)))
        rows = judged(run, sys.argv[1])
        if rows:
            print("\n".join(table(["work", "compared with", "target", "measured", "reached"], rows)))
    else:
        sys.exit(__doc__)


main()
