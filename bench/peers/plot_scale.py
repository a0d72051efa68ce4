#!/usr/bin/env python3
"""plot_scale.py FIGURES.csv PLOT.svg: draws time and memory per item against the number of items, one column per family of rows, and prints
the figures as a table in Markdown. FIGURES.csv is what `peers --csv` wrote in runs of several sizes."""

import csv
import math
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.fonttype"] = "none"
matplotlib.rcParams["svg.hashsalt"] = "gridweave"
import matplotlib.pyplot as plt  # noqa: E402: the backend is chosen before


def read(file_name):
    """Figures of our calls: {family: {row: [(items, seconds, bytes per item)]}}, in the order of the file and by size; of several runs of
    one size the least time and the least memory."""
    families = {}
    with open(file_name, newline="") as lines:
        for family, row, _, items, contender, seconds, memory in csv.reader(lines):
            if contender == "ours":
                sizes = families.setdefault(family, {}).setdefault(row, {})
                sizes.setdefault(float(items), []).append((float(seconds), float(memory)))
    for rows in families.values():
        for row, sizes in rows.items():
            rows[row] = [(items, min(r[0] for r in runs), min(r[1] for r in runs)) for items, runs in sorted(sizes.items())]
    return families


def plot(families, file_name):
    figure, axes = plt.subplots(2, len(families), figsize=(5 * len(families), 15), squeeze=False, sharex=True)
    for column, (family, rows) in enumerate(families.items()):
        time, memory = axes[0][column], axes[1][column]
        for number, (row, points) in enumerate(rows.items()):
            style = {"marker": "o", "markersize": 3, "linewidth": 1, "color": f"C{number % 10}", "linestyle": ("-", "--", ":")[number // 10]}
            items = [p[0] for p in points]
            time.loglog(items, [1e9 * p[1] / p[0] for p in points], label=row, **style)
            memory.semilogx(items, [p[2] for p in points], **style)
        # What n log n would be: a line beside which a row may not rise.
        reach = [min(min(rows.values(), key=min))[0], max(max(rows.values(), key=max))[0]]
        reach = [1e5, 1e7] if reach[0] == reach[1] else reach
        low, _ = time.get_ylim()
        time.loglog(reach, [1.3 * low, 1.3 * low * math.log(reach[1]) / math.log(reach[0])], color="black", linewidth=2, label="slope of n log n")
        time.set_title(family)
        time.grid(True, which="major", linewidth=0.3)
        memory.grid(True, which="major", linewidth=0.3)
        memory.set_xlabel("items")
        memory.set_ylim(bottom=0)
        memory.legend(*time.get_legend_handles_labels(), fontsize=8, loc="upper center", bbox_to_anchor=(0.5, -0.12))
    axes[0][0].set_ylabel("nanoseconds per item")
    axes[1][0].set_ylabel("bytes per item at the peak")
    figure.tight_layout()
    figure.savefig(file_name, metadata={"Date": None})


def print_table(families):
    print("| Row | ns per item, small to large | Time for 10 times the items | Bytes per item, small to large |")
    print("|---|---|---|---|")
    for rows in families.values():
        for row, points in rows.items():
            first, last = points[-2] if len(points) > 1 else points[-1], points[-1]
            growth = "" if first is last else f"× {(last[1] / first[1]) ** (1 / math.log10(last[0] / first[0])):.1f}"
            times = " / ".join(f"{1e9 * p[1] / p[0]:.3g}" for p in points)
            memory = " / ".join(f"{p[2]:.0f}" for p in points)
            print(f"| {row} | {times} | {growth} | {memory} |")


if __name__ == "__main__":
    figures = read(sys.argv[1])
    plot(figures, sys.argv[2])
    print_table(figures)
