"""table.py NOW BEFORE PAGE: writes what two runs of the benchmark with --json gave into the page's table, in whose place
the first line that begins with "| path |" and those behind it stand."""

import json
import pathlib
import sys

HEAD = """| path | ours | beside | | ratio (min to max) | before | goal | |
|---|---|---|---|---|---|---|---|"""


def number(value):
    return f"{value:.3g}" if value < 1000 else f"{value:.0f}"


def figure(value, unit):
    if unit == "ns" and value >= 1e4:
        return f"{value / 1e3:.1f} us"
    return f"{value:.2f} {unit}" if unit in ("ns", "s") else f"{value:.0f} {unit}"


def ratio(row):
    return f"{number(row['ratio'])} ({number(row['ratio_min'])} to {number(row['ratio_max'])})" if "ratio" in row else ""


def line(row, before):
    unit = row["unit"]
    old = before.get((row["row"], row.get("beside_name")), {})
    then = number(old["ratio"]) if "ratio" in old else figure(old["ours"], unit) if "ours" in old else ""
    cells = [
        row["row"].replace("_", " "),
        figure(row["ours"], unit),
        row.get("beside_name", ""),
        figure(row["beside"], unit) if "beside" in row else "",
        ratio(row),
        "" if row.get("beside_name") == "before" else then,
        row.get("goal", ""),
        row["verdict"],
    ]
    return "| " + " | ".join(cells) + " |"


def rows_of(path):
    return [row for row in json.loads(pathlib.Path(path).read_text())["rows"] if "skipped" not in row]


def main(now, before, page):
    old = {(row["row"], row.get("beside_name")): row for row in rows_of(before) if row["verdict"] != "FAILED"}
    table = HEAD.splitlines() + [line(row, old) for row in rows_of(now)]
    lines = pathlib.Path(page).read_text().splitlines()
    begin = next(at for at, text in enumerate(lines) if text.startswith("| path | ours |"))
    end = next(at for at in range(begin, len(lines)) if not lines[at].startswith("|"))
    pathlib.Path(page).write_text("\n".join(lines[:begin] + table + lines[end:]) + "\n")


if __name__ == "__main__":
    main(*sys.argv[1:])
