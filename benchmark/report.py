#!/usr/bin/env python3
"""Prints the results of the benchmark as a table that compares the library with other implementations."""
import argparse
import json
import pathlib
import shutil
import subprocess
import sys

OWN = ("ours", "naive", "limit", "copy")  # all other implementations are other libraries
RATIOS = ("naive", "limit", "copy", "other")  # their time divided by ours: above 1, ours is faster
TOLERANCE = 1.1


def load(path):
    """Returns a dictionary {(job, samples): {implementation: ns per item}}.

    "other" is the time of the fastest other library and "name" its name.
    """
    table = {}
    # Interleaved runs finish in random order.
    for run in sorted(json.loads(path.read_text())["benchmarks"], key=lambda run: run["family_index"]):
        if run.get("aggregate_name") != "median" or run.get("error_occurred"):
            continue
        job, samples, implementation = run["run_name"].split("/")
        times = table.setdefault((job, int(samples)), {})
        times[implementation] = 1e9 / run["items_per_second"]
    for times in table.values():
        others = [implementation for implementation in times if implementation not in OWN]
        if others:
            times["name"] = min(others, key=times.get)
            times["other"] = times[times["name"]]
    return {key: times for key, times in table.items() if "ours" in times}


def ratios(times):
    return {name: times[name] / times["ours"] for name in RATIOS if name in times}


def print_table(table, levels, markdown):
    """Prints one row for each job. `levels` are the tables of the builds for newer processors, by their names."""
    header = ["job", "samples", "ours ns", *(f"{name}/ours" for name in RATIOS), "best other",
              *(f"other/ours {level}" for level in levels)]
    rows = [header]
    for (job, samples), times in table.items():
        row = ratios(times)
        newer = [ratios(level.get((job, samples), {"ours": 1})).get("other") for level in levels.values()]
        rows.append([job, str(samples), f"{times['ours']:.3f}",
                     *(f"{row[name]:.2f}" if name in row else "-" for name in RATIOS), times.get("name", "-"),
                     *(f"{ratio:.2f}" if ratio else "-" for ratio in newer)])
    if markdown:
        rows = [[*row[:2], *row[3:]] for row in rows]  # times depend on the machine more than ratios do
        rows.insert(1, ["---"] * len(rows[0]))
    widths = [max(map(len, column)) for column in zip(*rows)]
    for row in rows:
        text = (" | " if markdown else " ").join(cell.ljust(width) for cell, width in zip(row, widths))
        print(f"| {text} |" if markdown else text.rstrip())


def compare(table, baseline):
    """Prints every ratio that changed by more than the tolerance. Returns False if any of them got worse."""
    passed = True
    for key, times in table.items():
        old, new = ratios(baseline.get(key, {"ours": 1})), ratios(times)
        for name in RATIOS:
            if name not in old or name not in new:
                continue
            change = new[name] / old[name]
            if max(change, 1 / change) > TOLERANCE:
                passed = passed and change > 1
                print(f"{'better' if change > 1 else 'WORSE '} {key[0]}, {key[1]} samples: "
                      f"{name}/ours {old[name]:.2f} -> {new[name]:.2f}")
    for job, samples in baseline.keys() - table.keys():
        print(f"missing from this run: {job}, {samples} samples")
    return passed


def plot(table, svg):
    """Writes a gnuplot script, and runs it if gnuplot is installed.

    The plot has a panel for each block size, and each job has a tick on its x axis.
    """
    sizes = sorted({samples for _, samples in table if samples >= 160})
    script = [f"set terminal svg size 1500,{420 * len(sizes)} background 'white'", f"set output '{svg.name}'",
              "set logscale y", "set grid", "set xtics rotate by -60 left", "set ylabel 'ns per sample or operation'",
              "set key outside", f"set multiplot layout {len(sizes)},1"]
    for samples in sizes:
        jobs = [(job, times) for (job, n), times in table.items() if n == samples]
        script.append(f"set title '{samples} samples'\nset xrange [-1:{len(jobs)}]\n$data << END")
        script += [f'{x} "{job}" ' + " ".join(str(times.get(name, "NaN")) for name in ("ours", "other", "limit"))
                   for x, (job, times) in enumerate(jobs)]
        script.append("END\nplot $data using 1:3:xtic(2) with points pt 7 title 'ours', "
                      "$data using 1:4 with points pt 4 title 'best other', "
                      "$data using 1:5 with points pt 8 title 'limit'")
    plot_script = svg.with_suffix(".gp")
    plot_script.write_text("\n".join(script) + "\nunset multiplot\n")
    if shutil.which("gnuplot"):
        subprocess.run(["gnuplot", plot_script.name], cwd=plot_script.parent or ".", check=True)


# Jobs of 20 ms in the plot at the top of docs/performance.md: job, samples or parties, and label.
HEADLINE = (
    ("conference of 10", 160, "conference of 10"),
    ("conference of 100", 160, "conference of 100"),
    ("decode A-law", 160, "decode A-law"),
    ("encode A-law", 160, "encode A-law"),
    ("decode int16", 160, "decode 16-bit"),
    ("encode int16", 160, "encode 16-bit"),
    ("encode int24", 160, "encode 24-bit"),
    ("downmix 2 to 1", 160, "stereo to mono"),
    ("downmix 6 to 2", 160, "6 to 2 channels"),
    ("telephone 8 to 16 kHz", 160, "8 to 16 kHz"),
    ("telephone 48 to 8 kHz", 960, "48 to 8 kHz"),
    ("tone", 160, "tone"),
)


def plot_headline(table, svg):
    """Draws the time of the fastest other library divided by ours, as bars."""
    bars = [(label, ratios(table[job, samples])["other"], table[job, samples]["name"])
            for job, samples, label in HEADLINE if "other" in ratios(table.get((job, samples), {"ours": 1}))]
    script = ["set terminal svg size 900,420 background 'white' font 'sans-serif,13'", "set logscale y 2",
              "set yrange [0.5:64]", "set grid ytics", "set style fill solid", "set boxwidth 0.6", "unset key",
              "set xtics rotate by -35 left", "set rmargin 8", "set title '20 ms of audio: how many times as fast as the "
              "fastest other library'", f"set xrange [-1:{len(bars)}]", "$data << END",
              *(f'{x} "{label}" {ratio} "{name}"' for x, (label, ratio, name) in enumerate(bars)), "END",
              "plot $data using 1:3:xtic(2) with boxes linecolor '#2a6ebb', "
              "$data using 1:($3*1.25):4 with labels font ',10', 1 with lines linecolor 'black'"]
    drawn = subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True, capture_output=True).stdout
    svg.write_text(drawn)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("result", type=pathlib.Path, help="JSON output of Google Benchmark, with medians")
    parser.add_argument("--against", type=pathlib.Path, metavar="KEPT.json",
                        help="print the ratios that changed by more than 10 %% since KEPT.json, and exit with "
                             "status 1 if any of them got worse")
    parser.add_argument("--plot", type=pathlib.Path, metavar="FILE.svg",
                        help="plot the times, if gnuplot is installed")
    parser.add_argument("--headline", type=pathlib.Path, metavar="FILE.svg",
                        help="plot a few ratios to other libraries, of the build for the newest processor")
    parser.add_argument("--level", action="append", default=[], metavar="NAME=FILE.json",
                        help="results of the build for a newer processor (may be repeated)")
    parser.add_argument("--markdown", action="store_true",
                        help="print a Markdown table for the documentation, without times")
    args = parser.parse_args()
    table = load(args.result)
    if not table:
        sys.exit(f"{args.result} contains no medians")
    levels = {name: load(pathlib.Path(path)) for name, path in (level.split("=", 1) for level in args.level)}
    print_table(table, levels, args.markdown)
    if args.plot:
        plot(table, args.plot)
    if args.headline:
        plot_headline(list(levels.values())[-1] if levels else table, args.headline)
    if args.against:
        print(f"\nCompared with {args.against}:")
        if not compare(table, load(args.against)):
            sys.exit(1)
        print("no ratio got worse")


if __name__ == "__main__":
    main()
