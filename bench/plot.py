"""plot.py GROWTH FOLDER: draws the curves that the benchmark wrote to GROWTH, a file PLOT.svg for each plot."""

import json
import math
import pathlib
import sys

WIDTH, HEIGHT, LEFT, TOP, RIGHT, BOTTOM = 560, 320, 80, 50, 30, 45
COLOURS = ["#1f6fb4", "#c8552b", "#3a8f4d"]
TIME = [(1e6, " ms"), (1e3, " us"), (1, " ns")]
NUMBER = [(1e6, " million"), (1, "")]
PLOTS = {  # plot: title, what x counts, what y is, and how it is written
    "handlers": ("An event to so many handlers", "handlers", "time of an event", TIME),
    "batch": ("Receiving a batch of so many 64-byte messages", "messages in the batch", "time of a message", TIME),
    "cache": ("Keeping a run that the socket does not take", "runs that wait", "time of a run", TIME),
    "vlans": ("Replay of so many VLANs", "VLANs", "time of a replay", TIME),
    "ports": ("Replay of so many ports", "ports", "time of a replay", TIME),
    "walk": ("Walk over so many addresses", "addresses", "time of an address", TIME),
    "clients": ("A server with so many clients", "clients", "deliveries a second", NUMBER),
}


def decades(values):
    """The powers of ten that hold all values."""
    low = math.floor(math.log10(min(values)))
    high = math.ceil(math.log10(max(values)))
    return 10.0**low, 10.0 ** max(high, low + 1)


def scale(value, limits, begin, end):
    low, high = limits
    return begin + math.log(value / low) / math.log(high / low) * (end - begin)


def of(value, steps):
    """A round value in the greatest of the steps (size, name) that it reaches."""
    size, name = next((step for step in steps if value >= step[0]), steps[-1])
    return f"{value / size:,.0f}{name}"


def text(x, y, words, anchor="middle", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {extra}>{words}</text>'


def axes(sizes, x_limits, y_limits, title, x_name, y_name, steps):
    parts = [text(WIDTH / 2, 18, title, extra='font-weight="bold"'), text(WIDTH / 2, HEIGHT - 8, x_name)]
    middle = (TOP + HEIGHT - BOTTOM) / 2
    parts.append(text(14, middle, y_name, extra=f'transform="rotate(-90 14 {middle})"'))
    for size in sizes:
        x = scale(size, x_limits, LEFT, WIDTH - RIGHT)
        parts.append(f'<path d="M{x:.1f} {TOP}V{HEIGHT - BOTTOM}" stroke="#eee"/>')
        parts.append(text(x, HEIGHT - BOTTOM + 15, f"{size:,}"))
    power = y_limits[0]
    while power < y_limits[1] * 1.1:
        y = scale(power, y_limits, HEIGHT - BOTTOM, TOP)
        parts.append(f'<path d="M{LEFT} {y:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>')
        parts.append(text(LEFT - 6, y + 4, of(power, steps), "end"))
        power *= 10
    return parts


def draw(plot, curves):
    """The marks of x are the sizes that were measured; the names of the curves stand above, where no curve is."""
    points = [point for curve in curves.values() for point in curve]
    sizes = sorted({x for x, _ in points})
    x_limits, y_limits = (sizes[0], sizes[-1]), decades([y for _, y in points])
    parts = axes(sizes, x_limits, y_limits, *PLOTS[plot])
    for (name, curve), colour, column in zip(curves.items(), COLOURS, range(len(COLOURS))):
        places = [
            (scale(x, x_limits, LEFT, WIDTH - RIGHT), scale(y, y_limits, HEIGHT - BOTTOM, TOP)) for x, y in curve
        ]
        line = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="1.5"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="2.5" fill="{colour}"/>' for x, y in places]
        parts.append(text(LEFT + 8 + 160 * column, TOP - 8, name, "start", f'fill="{colour}"'))
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
