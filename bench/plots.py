#!/usr/bin/env python3
"""Plots of the benchmark figures, drawn from the raw samples that the benchmarks write under
$FEXO_BENCH_SAMPLES (scripts/bench: build/bench/samples). Each plot carries the machine, the date
and the command that made it. A plot whose samples are missing is skipped with a note.

    bench/plots.py --samples build/bench/samples --out docs/bench --command "scripts/bench"

Adding a figure: write its samples from the benchmark into the samples directory, then add one
entry to PLOTS below (file name of the picture, the samples it needs, the function that draws
it). Latency samples written as `<name>_latency.csv` with the columns side,microseconds (one
row per measurement, side "project" or "baseline") are drawn as a CDF with no further code,
which is how the inbox's observation latency and the agent's per-push figure are meant to
arrive."""

import argparse
import csv
import datetime
import glob
import json
import math
import os
import platform
import statistics
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402


def machine():
    model = platform.processor() or "unknown CPU"
    try:
        with open("/proc/cpuinfo") as info:
            for line in info:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    return f"{os.cpu_count()} cores, {model}, {platform.system()} {platform.release()}"


def stamp(figure, context):
    figure.text(0.01, 0.005, f"{context['machine']} | {context['date']} | {context['command']}",
                fontsize=7, color="#555555", ha="left", va="bottom")
    figure.tight_layout(rect=(0, 0.03, 1, 1))


def percentile(values, fraction):
    ordered = sorted(values)
    rank = max(1, math.ceil(fraction * len(ordered)))
    return ordered[min(len(ordered), rank) - 1]


def draw_cdf(axes, samples_by_side, unit="µs"):
    colours = {"project": "tab:blue", "baseline": "tab:orange"}
    for index, (side, values) in enumerate(samples_by_side.items()):
        ordered = sorted(values)
        n = len(ordered)
        colour = colours.get(side, None)
        axes.step(ordered, [(i + 1) / n for i in range(n)], where="post", label=f"{side} (n={n})", color=colour)
        median = statistics.median(ordered)
        p99 = percentile(ordered, 0.99)
        axes.axvline(median, color=colour, linestyle="--", linewidth=0.8)
        axes.axvline(p99, color=colour, linestyle=":", linewidth=0.8)
        axes.annotate(f"{side} median {median:.0f} {unit}", (median, 0.55 - 0.3 * index), rotation=90, fontsize=7,
                      xytext=(2, 0), textcoords="offset points", color=colour)
        axes.annotate(f"{side} p99 {p99:.0f} {unit}", (p99, 0.55 - 0.3 * index), rotation=90, fontsize=7,
                      xytext=(2, 0), textcoords="offset points", color=colour)
    axes.set_xscale("log")
    axes.set_xlabel(f"latency ({unit}, log scale)")
    axes.set_ylabel("fraction of pushes at or below")
    axes.grid(True, which="both", alpha=0.3)
    axes.legend(loc="lower right", fontsize=8)


def read_sides(path, column="microseconds"):
    sides = {}
    with open(path, newline="") as handle:
        for row in csv.DictReader(handle):
            sides.setdefault(row["side"], []).append(float(row[column]))
    return sides


def plot_push_road(samples, out, context):
    sides = read_sides(os.path.join(samples, "push_road.csv"))
    figure, axes = plt.subplots(figsize=(8, 5))
    draw_cdf(axes, sides)
    ratio = statistics.median(sides["project"]) / statistics.median(sides["baseline"])
    axes.set_title(f"Push road in one process: project vs bare POST + upsert (median ratio {ratio:.2f}x, goal ≤ 1.3x)"
                   , fontsize=10)
    stamp(figure, context)
    figure.savefig(out)


def plot_cold_process(samples, out, context):
    runs = {}
    with open(os.path.join(samples, "cold_process.csv"), newline="") as handle:
        for row in csv.DictReader(handle):
            runs.setdefault(row["command"], []).append((float(row["wall_ms"]), float(row["max_rss_kib"])))
    figure, (time_axes, rss_axes) = plt.subplots(1, 2, figsize=(10, 5))
    for index, (command, values) in enumerate(runs.items()):
        jitter = [index + (i % 7 - 3) * 0.03 for i in range(len(values))]
        time_axes.scatter(jitter, [t for t, _ in values], s=12, label=command)
        rss_axes.scatter(jitter, [r / 1024 for _, r in values], s=12, label=command)
        time_axes.hlines(statistics.median(t for t, _ in values), index - 0.25, index + 0.25, color="black")
        rss_axes.hlines(statistics.median(r for _, r in values) / 1024, index - 0.25, index + 0.25, color="black")
    for axes, label in ((time_axes, "wall time, posix_spawn to wait4 (ms)"), (rss_axes, "peak RSS (MiB)")):
        axes.set_xticks(range(len(runs)))
        axes.set_xticklabels(list(runs))
        axes.set_ylabel(label)
        axes.grid(True, axis="y", alpha=0.3)
    names = list(runs)

    def ratio(a, b, field):
        return statistics.median(v[field] for v in runs[a]) / statistics.median(v[field] for v in runs[b])

    title = (f"Cold process, every run a point, bar = median: {names[0]} / {names[1]} time "
             f"{ratio(names[0], names[1], 0):.2f}x, peak RSS {ratio(names[0], names[1], 1):.2f}x (goals ≤ 1.0x)")
    for floor in names[2:]:
        title += (f"\n{floor} (POST + one durable upsert) / {names[1]}: time {ratio(floor, names[1], 0):.2f}x, "
                  f"peak RSS {ratio(floor, names[1], 1):.2f}x")
    figure.suptitle(title, fontsize=10)
    stamp(figure, context)
    figure.savefig(out)


def read_benchmarks(path):
    """A Google Benchmark JSON report: every run's time in µs by name (decorations dropped), and
    the median aggregates by name."""
    with open(path) as handle:
        report = json.load(handle)
    runs = {}
    medians = {}
    for bench in report.get("benchmarks", []):
        name = bench.get("run_name", bench["name"])
        name = name.split("/iterations:")[0].split("/repeats:")[0].split("/real_time")[0]
        time = bench["real_time"] * {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}[bench.get("time_unit", "us")]
        if bench.get("run_type") == "aggregate":
            if bench.get("aggregate_name") == "median":
                medians[name] = time
        else:
            runs.setdefault(name, []).append(time)
    return runs, medians


def store_medians(samples):
    runs, medians = read_benchmarks(os.path.join(samples, "store.json"))
    for name, values in runs.items():
        medians.setdefault(name, statistics.median(values))
    return medians


def plot_store(samples, out, context):
    medians = store_medians(samples)
    operations = [
        ("write", "store write", "write/project/{}", "write/bare-full/{}"),
        ("fetchAll", "fetchAllNotifications", "fetchAll/project/{}", "fetchAll/baseline/{}"),
        ("fetchNotification", "fetchNotification", "fetchNotification/project/{}", "fetchNotification/baseline/{}"),
        ("markNotificationAsRead", "markNotificationAsRead", "markNotificationAsRead/project/{}",
         "markNotificationAsRead/baseline/{}"),
    ]
    sizes = [1000, 10000, 100000]
    figure, axes_list = plt.subplots(1, len(operations), figsize=(14, 4.5))
    for axes, (_, title, project, baseline) in zip(axes_list, operations):
        for label, pattern, marker in (("project", project, "o-"), ("baseline", baseline, "s--")):
            points = [(n, medians[pattern.format(n)]) for n in sizes if pattern.format(n) in medians]
            if points:
                axes.plot([n for n, _ in points], [t for _, t in points], marker, label=label)
        axes.set_xscale("log")
        axes.set_yscale("log")
        axes.set_xticks(sizes)
        axes.set_xticklabels(["1k", "10k", "100k"])
        axes.set_xlabel("records in the store")
        axes.set_ylabel("median time (µs, log scale)")
        axes.set_title(title, fontsize=10)
        axes.grid(True, which="both", alpha=0.3)
        axes.legend(fontsize=8)
    figure.suptitle("Store operations against their baselines (medians of interleaved repetitions)", fontsize=10)
    stamp(figure, context)
    figure.savefig(out)


def plot_inbox(samples, out, context):
    runs, _ = read_benchmarks(os.path.join(samples, "inbox.json"))
    panels = [
        ("first page of 50 at 100k records", "page/project/100000",
         [("same SQL, bare connection", "page/baseline/100000", "≤ 1.5x"),
          ("fetchAll + sort", "page/fetchAll-and-sort/100000", "≥ 100x faster")]),
        ("unreadCount() at 100k records", "unreadCount/project/100000",
         [("bare indexed count", "unreadCount/baseline/100000", "≤ 1.5x")]),
    ]
    figure, axes_list = plt.subplots(1, len(panels), figsize=(11, 5))
    for axes, (title, project, baselines) in zip(axes_list, panels):
        columns = [("project", project)] + [(label, name) for label, name, _ in baselines]
        notes = []
        for index, (label, name) in enumerate(columns):
            values = runs.get(name, [])
            if not values:
                continue
            axes.scatter([index + (i % 5 - 2) * 0.04 for i in range(len(values))], values, s=16)
            axes.hlines(statistics.median(values), index - 0.25, index + 0.25, color="black")
        for label, name, goal in baselines:
            if runs.get(project) and runs.get(name):
                ratio = statistics.median(runs[project]) / statistics.median(runs[name])
                shown = f"{1 / ratio:,.0f}x faster" if ratio < 0.1 else f"{ratio:.2f}x"
                notes.append(f"against {label}: {shown} (goal {goal})")
        axes.set_xticks(range(len(columns)))
        axes.set_xticklabels([label for label, _ in columns], fontsize=8)
        shown_values = [v for _, name in columns for v in runs.get(name, [])]
        if shown_values and max(shown_values) > 20 * min(shown_values):
            axes.set_yscale("log")
            axes.set_ylabel("time per call, each repetition a point (µs, log scale)")
        else:
            axes.set_ylim(bottom=0, top=max(shown_values, default=1) * 1.15)
            axes.set_ylabel("time per call, each repetition a point (µs)")
        axes.set_title(title + "\n" + "\n".join(notes), fontsize=9)
        axes.grid(True, which="both", axis="y", alpha=0.3)
    figure.suptitle("Inbox: a page and the unread count against their baselines (bar = median)", fontsize=10)
    figure.tight_layout(rect=(0, 0.04, 1, 0.95))
    stamp(figure, context)
    figure.savefig(out)


def latency_plotter(path, name):
    def plot(samples, out, context):
        figure, axes = plt.subplots(figsize=(8, 5))
        draw_cdf(axes, read_sides(path))
        axes.set_title(name.replace("_", " "), fontsize=10)
        stamp(figure, context)
        figure.savefig(out)
    return plot


# (picture, samples it needs, drawing function)
PLOTS = [
    ("store.png", ["store.json"], plot_store),
    ("push_road_cdf.png", ["push_road.csv"], plot_push_road),
    ("cold_process.png", ["cold_process.csv"], plot_cold_process),
    ("inbox.png", ["inbox.json"], plot_inbox),
]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--samples", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--command", default="scripts/bench")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)
    context = {"machine": machine(), "command": args.command,
               "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")}
    plots = list(PLOTS)
    for path in sorted(glob.glob(os.path.join(args.samples, "*_latency.csv"))):
        name = os.path.basename(path)[: -len(".csv")]
        plots.append((name + "_cdf.png", [os.path.basename(path)], latency_plotter(path, name)))
    for picture, needs, draw in plots:
        missing = [n for n in needs if not os.path.exists(os.path.join(args.samples, n))]
        if missing:
            print(f"plots: {picture} skipped, no {', '.join(missing)}")
            continue
        draw(args.samples, os.path.join(args.out, picture), context)
        plt.close("all")
        print(f"plots: wrote {os.path.join(args.out, picture)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
