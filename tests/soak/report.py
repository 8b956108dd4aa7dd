#!/usr/bin/env python3
"""Says whether what watch.py has sampled stayed flat, and draws it.

  report.py CSV SVG

The first quarter, at least 20 seconds, is warm-up and does not count. Of the rest, the trend is the
median of the slopes between samples that lie half of it apart; growth is that slope over all of it.
Descriptors, threads and FIFOs go up and down with the clients, so their limits leave room for one
crowd more; that every single one is given back is seen at the end, when the clients have gone.
Exit status 1 if a series grows beyond its limit.
"""
import csv
import statistics
import sys

# How much each may grow: a part of its median, and at least so much.
LIMITS = {
    "rss_kib": (0.05, 2048),
    "pss_kib": (0.10, 3072),
    "descriptors": (0.25, 40),
    "threads": (0.25, 12),
    "files": (0.25, 40),
}
POINTS = 250
UNITS = {"rss_kib": "resident KiB", "pss_kib": "proportional KiB", "files": "files in its folder"}


def read(path):
    with open(path) as lines:
        rows = list(csv.reader(lines))
    return {name: [int(row[i]) for row in rows[1:]] for i, name in enumerate(rows[0])}


def growth(values):
    half = len(values) // 2
    slopes = [(values[i + half] - values[i]) / half for i in range(len(values) - half)]
    return statistics.median(slopes) * (len(values) - 1)


def judge(name, values, warm_up):
    metric = name.split(".", 1)[1]
    part, least = LIMITS[metric]
    rest = values[warm_up:]
    middle = statistics.median(rest)
    limit = max(least, part * middle)
    grown = growth(rest)
    verdict = "flat" if grown <= limit else "GROWS"
    print(
        f"  {name:24} after warm-up: median {middle:9.0f}, {min(rest)} to {max(rest)},"
        f" growth {grown:+8.1f} (limit {limit:.0f}): {verdict}"
    )
    return grown <= limit


def panel(name, values, warm_up, x, y, width, height):
    low, high = min(values), max(values)
    low = low if high > low else low - 1
    points = " ".join(
        f"{x + width * i / max(1, len(values) - 1):.1f},"
        f"{y + height - height * (v - low) / (high - low):.1f}"
        for i, v in enumerate(values)
    )
    warm = x + width * warm_up / max(1, len(values) - 1)
    process, metric = name.split(".", 1)
    return (
        f'<rect x="{x}" y="{y}" width="{width}" height="{height}" fill="none" stroke="#bbb"/>'
        f'<line x1="{warm:.1f}" y1="{y}" x2="{warm:.1f}" y2="{y + height}" stroke="#ddd"/>'
        f'<polyline points="{points}" fill="none" stroke="#246" stroke-width="1"/>'
        f'<text x="{x}" y="{y - 5}">{process}: {UNITS.get(metric, metric)}</text>'
        f'<text x="{x - 4}" y="{y + 9}" text-anchor="end">{high}</text>'
        f'<text x="{x - 4}" y="{y + height}" text-anchor="end">{max(low, 0)}</text>'
    )


def thinned(values):
    """A few hundred points: of each stretch its largest value."""
    step = max(1, len(values) // POINTS)
    return [max(values[i : i + step]) for i in range(0, len(values), step)]


def draw(series, warm_up, seconds, path):
    processes = list(dict.fromkeys(name.split(".", 1)[0] for name in series))
    width, height, left, top = 230, 90, 60, 40
    parts = []
    for name, values in series.items():
        process, metric = name.split(".", 1)
        column, row = processes.index(process), list(LIMITS).index(metric)
        step = max(1, len(values) // POINTS)
        parts.append(
            panel(name, thinned(values), warm_up // step, left + column * (width + 70),
                  top + row * (height + 35), width, height)
        )
    total_width = left + len(processes) * (width + 70)
    total_height = top + len(LIMITS) * (height + 35) + 10
    with open(path, "w") as out:
        out.write(
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{total_width}" height="{total_height}"'
            f' font-family="sans-serif" font-size="10">'
            f'<rect width="100%" height="100%" fill="white"/>'
            f'<text x="{left}" y="16">{seconds} seconds; the grey line ends the warm-up</text>'
            + "\n".join(parts)
            + "</svg>\n"
        )


def main():
    columns = read(sys.argv[1])
    seconds = columns.pop("second")[-1]
    warm_up = max(20, seconds // 4)
    if seconds < 2 * warm_up:
        sys.exit("soak: too short to say anything; give it 40 seconds or more")
    draw(columns, warm_up, seconds, sys.argv[2])
    verdicts = [judge(name, values, warm_up) for name, values in columns.items()]
    sys.exit(0 if all(verdicts) else 1)


main()
