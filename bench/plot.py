"""Plain SVG drawings for report.py: bars of ratios, and lines over a logarithmic axis."""
import html
import math

FONT = 'font-family="DejaVu Sans, sans-serif"'
COLOURS = ("#1565c0", "#9e9e9e", "#ef6c00", "#2e7d32", "#6a1b9a", "#c62828", "#00838f", "#795548")
WIDTH = 760


def _text(x, y, words, size=11, anchor="start", colour="#263238"):
    return (
        f'<text x="{x:.0f}" y="{y:.0f}" font-size="{size}" text-anchor="{anchor}" fill="{colour}"'
        f" {FONT}>{html.escape(words)}</text>"
    )


def _page(height, parts):
    return (
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height:.0f}"'
        f' viewBox="0 0 {WIDTH} {height:.0f}">\n'
        f'<rect width="{WIDTH}" height="{height:.0f}" fill="white"/>\n' + "\n".join(parts) + "\n</svg>\n"
    )


def bars(title, groups):
    """groups: {work: {contender: ratio}}. The axis is logarithmic, 1 is as fast."""
    ratios = [ratio for group in groups.values() for ratio in group.values()]
    low, high = min(0.5, *ratios), max(2.0, *ratios)
    left, right = 250, WIDTH - 60

    def place(ratio):
        return left + (right - left) * math.log(ratio / low) / math.log(high / low)

    parts, y = [_text(10, 20, title, 14)], 40
    for work, group in groups.items():
        y += 16
        parts.append(_text(10, y, work, 12))
        for name, ratio in group.items():
            y += 18
            begin, end = sorted((place(1), place(ratio)))
            colour = COLOURS[1] if name.startswith("raw") else COLOURS[0]
            parts.append(_text(left - 8 if ratio >= 1 else left - 8, y + 4, name, 11, "end"))
            parts.append(
                f'<rect x="{begin:.1f}" y="{y - 6:.0f}" width="{max(1, end - begin):.1f}" height="12"'
                f' fill="{colour}"/>'
            )
            parts.append(_text(place(max(ratio, 1)) + 4, y + 4, f"{ratio:.2f}", 10))
        y += 12
    parts.insert(
        1,
        f'<line x1="{place(1):.1f}" y1="36" x2="{place(1):.1f}" y2="{y}" stroke="#37474f"/>'
        + _text(place(1), 34, "1", 10, "middle"),
    )
    return _page(y + 12, parts)


def _ticks(low, high):
    first, last = math.floor(math.log10(low)), math.ceil(math.log10(high))
    return [10.0**power for power in range(first, last + 1)]


def _short(value):
    for limit, sign in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= limit:
            return f"{value / limit:g}{sign}"
    return f"{value:g}"


def lines(title, series):
    """series: {name: [(x, y)...]}. Both axes are logarithmic."""
    points = [point for line in series.values() for point in line]
    xs = sorted({x for x, _ in points})
    y_ticks = _ticks(min(y for _, y in points), max(y for _, y in points))
    left, right, top, bottom = 70, WIDTH - 190, 40, 300

    def place_x(x):
        return left + (right - left) * math.log(x / xs[0]) / math.log(xs[-1] / xs[0])

    def place_y(y):
        return bottom - (bottom - top) * math.log(y / y_ticks[0]) / math.log(y_ticks[-1] / y_ticks[0])

    parts = [_text(10, 20, title, 14)]
    for tick in y_ticks:
        y = place_y(tick)
        parts.append(f'<line x1="{left}" y1="{y:.1f}" x2="{right}" y2="{y:.1f}" stroke="#eceff1"/>')
        parts.append(_text(left - 6, y + 4, _short(tick), 10, "end"))
    for x in xs:
        parts.append(_text(place_x(x), bottom + 16, _short(x), 10, "middle"))
    for i, (name, line) in enumerate(series.items()):
        colour = COLOURS[i % len(COLOURS)]
        path = " ".join(f"{place_x(x):.1f},{place_y(y):.1f}" for x, y in line)
        parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        for x, y in line:
            parts.append(f'<circle cx="{place_x(x):.1f}" cy="{place_y(y):.1f}" r="3" fill="{colour}"/>')
        parts.append(f'<rect x="{right + 14}" y="{top + 18 * i}" width="12" height="4" fill="{colour}"/>')
        parts.append(_text(right + 32, top + 6 + 18 * i, name))
    return _page(bottom + 30, parts)
