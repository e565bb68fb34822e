"""plot.py GROWTH FOLDER: draws the curves that the benchmark wrote to GROWTH, a file PLOT.svg for each plot."""

import json
import math
import pathlib
import sys

WIDTH, HEIGHT, LEFT, TOP, RIGHT, BOTTOM = 560, 320, 70, 30, 20, 45
COLOURS = ["#1f6fb4", "#c8552b", "#3a8f4d"]
TITLES = {  # plot: title, what x counts, what y is
    "handlers": ("An event to so many handlers", "handlers", "ns"),
    "batch": ("Receiving a batch of so many 64-byte messages", "messages in the batch", "ns per message"),
    "cache": ("Keeping a run that the socket does not take", "runs that wait", "ns"),
    "vlans": ("Replay of so many VLANs", "VLANs", "ns"),
    "ports": ("Replay of so many ports", "ports", "ns"),
    "walk": ("Walk over so many addresses", "addresses", "ns per address"),
    "clients": ("A server with so many clients", "clients", "deliveries a second"),
}


def decades(values):
    """The powers of ten that hold all values."""
    low = math.floor(math.log10(min(values)))
    high = math.ceil(math.log10(max(values)))
    return low, max(high, low + 1)


def scale(value, limits, begin, end):
    low, high = limits
    return begin + (math.log10(value) - low) / (high - low) * (end - begin)


def number(power):
    return f"{10 ** power:,}" if 0 <= power < 6 else f"10^{power}"


def text(x, y, words, anchor="middle", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {extra}>{words}</text>'


def axes(x_limits, y_limits, title, x_name, y_name):
    parts = [text(WIDTH / 2, 18, title, extra='font-weight="bold"'), text(WIDTH / 2, HEIGHT - 8, x_name)]
    parts.append(text(14, HEIGHT / 2, y_name, extra=f'transform="rotate(-90 14 {HEIGHT / 2})"'))
    for power in range(x_limits[0], x_limits[1] + 1):
        x = scale(10.0**power, x_limits, LEFT, WIDTH - RIGHT)
        parts.append(f'<path d="M{x:.1f} {TOP}V{HEIGHT - BOTTOM}" stroke="#ddd"/>')
        parts.append(text(x, HEIGHT - BOTTOM + 15, number(power)))
    for power in range(y_limits[0], y_limits[1] + 1):
        y = scale(10.0**power, y_limits, HEIGHT - BOTTOM, TOP)
        parts.append(f'<path d="M{LEFT} {y:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>')
        parts.append(text(LEFT - 6, y + 4, number(power), "end"))
    return parts


def draw(plot, curves):
    points = [point for curve in curves.values() for point in curve]
    x_limits, y_limits = decades([x for x, _ in points]), decades([y for _, y in points])
    parts = axes(x_limits, y_limits, *TITLES[plot])
    for (name, curve), colour, row in zip(curves.items(), COLOURS, range(len(COLOURS))):
        places = [
            (scale(x, x_limits, LEFT, WIDTH - RIGHT), scale(y, y_limits, HEIGHT - BOTTOM, TOP)) for x, y in curve
        ]
        line = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="1.5"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="2.5" fill="{colour}"/>' for x, y in places]
        parts.append(text(LEFT + 8, TOP + 14 + 15 * row, name, "start", f'fill="{colour}"'))
    return (
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
        f'font-size="11"><rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>\n' + "\n".join(parts) + "\n</svg>\n"
    )


def main(growth, folder):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for plot, curves in json.loads(pathlib.Path(growth).read_text()).items():
        (folder / f"{plot}.svg").write_text(draw(plot, curves))


if __name__ == "__main__":
    main(*sys.argv[1:])
