#!/usr/bin/env python3
"""One table out of what the benchmark measured: ours, and what it is held against."""
import argparse
import json
import pathlib
import shutil
import subprocess
import sys

OWN = ("ours", "naive", "limit", "copy")
RATIOS = ("naive", "limit", "copy", "other")  # their time over ours: above 1 we are faster
TOLERANCE = 1.1


def rows(path):
    """(job, samples) -> {who: ns per item}, the best other library as "other" with its name."""
    table = {}
    # Interleaved runs end in any order.
    for run in sorted(json.loads(path.read_text())["benchmarks"], key=lambda run: run["family_index"]):
        if run.get("aggregate_name") != "median" or run.get("error_occurred"):
            continue
        job, samples, who = run["run_name"].split("/")
        times = table.setdefault((job, int(samples)), {})
        times[who] = 1e9 / run["items_per_second"]
    for times in table.values():
        others = [who for who in times if who not in OWN]
        if others:
            times["name"] = min(others, key=times.get)
            times["other"] = times[times["name"]]
    return {key: times for key, times in table.items() if "ours" in times}


def ratios(times):
    return {who: times[who] / times["ours"] for who in RATIOS if who in times}


def show(table, levels, markdown):
    """One row for each job; `levels` are tables of the same jobs with builds for newer processors."""
    head = ["job", "samples", "ours ns", *(f"{who}/ours" for who in RATIOS), "best other",
            *(f"other/ours {name}" for name in levels)]
    lines = [head]
    for (job, samples), times in table.items():
        cells = ratios(times)
        newer = [ratios(level.get((job, samples), {"ours": 1})).get("other") for level in levels.values()]
        lines.append([job, str(samples), f"{times['ours']:.3f}",
                      *(f"{cells[who]:.2f}" if who in cells else "-" for who in RATIOS), times.get("name", "-"),
                      *(f"{ratio:.2f}" if ratio else "-" for ratio in newer)])
    if markdown:
        lines = [[*line[:2], *line[3:]] for line in lines]  # times are the machine's, ratios less so
        lines.insert(1, ["---"] * len(lines[0]))
    widths = [max(map(len, column)) for column in zip(*lines)]
    for line in lines:
        text = (" | " if markdown else " ").join(cell.ljust(width) for cell, width in zip(line, widths))
        print(f"| {text} |" if markdown else text.rstrip())


def compare(table, kept):
    """Prints every ratio that moved; whether none got worse."""
    good = True
    for key, times in table.items():
        old, new = ratios(kept.get(key, {"ours": 1})), ratios(times)
        for who in RATIOS:
            if who not in old or who not in new:
                continue
            change = new[who] / old[who]
            if max(change, 1 / change) > TOLERANCE:
                good = good and change > 1
                print(f"{'better' if change > 1 else 'WORSE '} {key[0]}, {key[1]} samples: "
                      f"{who}/ours {old[who]:.2f} -> {new[who]:.2f}")
    for job, samples in kept.keys() - table.keys():
        print(f"not measured now: {job}, {samples} samples")
    return good


def plot(table, svg):
    """One panel for each block size, one place on its axis for each job."""
    sizes = sorted({samples for _, samples in table if samples >= 160})
    script = [f"set terminal svg size 1500,{420 * len(sizes)} background 'white'", f"set output '{svg.name}'",
              "set logscale y", "set grid", "set xtics rotate by -60 left", "set ylabel 'ns a sample or operation'",
              "set key outside", f"set multiplot layout {len(sizes)},1"]
    for samples in sizes:
        jobs = [(job, times) for (job, n), times in table.items() if n == samples]
        script.append(f"set title '{samples} samples'\nset xrange [-1:{len(jobs)}]\n$data << END")
        script += [f'{at} "{job}" ' + " ".join(str(times.get(who, "NaN")) for who in ("ours", "other", "limit"))
                   for at, (job, times) in enumerate(jobs)]
        script.append("END\nplot $data using 1:3:xtic(2) with points pt 7 title 'ours', "
                      "$data using 1:4 with points pt 4 title 'best other', "
                      "$data using 1:5 with points pt 8 title 'limit'")
    gp = svg.with_suffix(".gp")
    gp.write_text("\n".join(script) + "\nunset multiplot\n")
    if shutil.which("gnuplot"):
        subprocess.run(["gnuplot", gp.name], cwd=gp.parent or ".", check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("result", type=pathlib.Path, help="Google Benchmark's JSON, with medians")
    parser.add_argument("--against", type=pathlib.Path, metavar="KEPT.json",
                        help="show the ratios that changed by more than 10 %%; exit code 1 if one got worse")
    parser.add_argument("--plot", type=pathlib.Path, metavar="FILE.svg", help="draw it, with gnuplot where it is there")
    parser.add_argument("--level", action="append", default=[], metavar="NAME=FILE.json",
                        help="a run with the build for a newer processor")
    parser.add_argument("--markdown", action="store_true", help="the table for the docs, without times")
    args = parser.parse_args()
    table = rows(args.result)
    if not table:
        sys.exit(f"no medians in {args.result}")
    levels = {name: rows(pathlib.Path(path)) for name, path in (level.split("=", 1) for level in args.level)}
    show(table, levels, args.markdown)
    if args.plot:
        plot(table, args.plot)
    if args.against:
        print(f"\nAgainst {args.against}:")
        if not compare(table, rows(args.against)):
            sys.exit(1)
        print("nothing got worse")


if __name__ == "__main__":
    main()
