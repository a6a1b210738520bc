#!/usr/bin/python3
"""Plots of a uvx-cal report folder: bandpass amplitude and phase per station, IF and hand, and Tsys
per station against time with the observation's scans marked.

usage: uvx-cal-plot.py DIR   (reads DIR/bandpass.csv, DIR/tsys.csv, DIR/scans.csv; writes DIR/*.png)
"""
import csv
import os
import sys
from collections import defaultdict

try:
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
except ImportError as exc:  # pragma: no cover - depends on the machine
    sys.stderr.write("uvx-cal-plot: matplotlib is needed (Debian: python3-matplotlib): %s\n" % exc)
    sys.exit(1)

HANDS = {0: "R", 1: "L"}


def rows(path):
    if not os.path.exists(path):
        return []
    with open(path, newline="") as f:
        return list(csv.DictReader(f))


def plot_bandpass(folder):
    series = defaultdict(lambda: defaultdict(list))  # (station, if, hand) -> interval -> [(chan, amp, ph)]
    for r in rows(os.path.join(folder, "bandpass.csv")):
        key = (r["station"], int(r["if"]), int(r["hand"]))
        series[key][(float(r["start_s"]), float(r["end_s"]))].append(
            (int(r["channel"]), float(r["amplitude"]), float(r["phase"])))
    written = []
    for (station, iif, hand), intervals in sorted(series.items()):
        fig, (ax_a, ax_p) = plt.subplots(2, 1, sharex=True, figsize=(7, 5))
        for (start, end), points in sorted(intervals.items()):
            points.sort()
            chans = [p[0] for p in points]
            ax_a.plot(chans, [p[1] for p in points], lw=0.8, alpha=0.6)
            ax_p.plot(chans, [p[2] for p in points], lw=0.8, alpha=0.6)
        ax_a.set_ylabel("amplitude")
        ax_p.set_ylabel("phase (rad)")
        ax_p.set_xlabel("channel")
        ax_a.set_title("bandpass %s IF %d %s (%d intervals)" % (station, iif + 1, HANDS.get(hand, hand),
                                                                 len(intervals)))
        name = "bandpass_%s_IF%d_%s.png" % (station, iif + 1, HANDS.get(hand, hand))
        fig.tight_layout()
        fig.savefig(os.path.join(folder, name), dpi=80)
        plt.close(fig)
        written.append(name)
    return written


def plot_tsys(folder):
    scans = [(float(r["start_s"]), float(r["end_s"])) for r in rows(os.path.join(folder, "scans.csv"))]
    series = defaultdict(lambda: defaultdict(list))  # station -> position -> [(t, tsys)]
    for r in rows(os.path.join(folder, "tsys.csv")):
        series[r["station"]][int(r["position"])].append((float(r["time_s"]), float(r["tsys"])))
    written = []
    for station, positions in sorted(series.items()):
        fig, ax = plt.subplots(figsize=(7, 3.5))
        for start, end in scans:
            ax.axvspan(start / 3600.0, end / 3600.0, color="0.9", lw=0)
        for position, points in sorted(positions.items()):
            points.sort()
            ax.plot([p[0] / 3600.0 for p in points], [p[1] for p in points], ".-", ms=3, lw=0.7,
                    label="position %d" % position)
        ax.set_xlabel("hours from 0h of the reference day (grey: scans)")
        ax.set_ylabel("Tsys (K)")
        ax.set_title("Tsys %s" % station)
        if len(positions) <= 8:
            ax.legend(fontsize=6, ncol=4)
        fig.tight_layout()
        name = "tsys_%s.png" % station
        fig.savefig(os.path.join(folder, name), dpi=80)
        plt.close(fig)
        written.append(name)
    return written


def main(argv):
    if len(argv) != 2 or not os.path.isdir(argv[1]):
        sys.stderr.write("usage: uvx-cal-plot.py DIR\n")
        return 2
    names = plot_bandpass(argv[1]) + plot_tsys(argv[1])
    with open(os.path.join(argv[1], "plots.txt"), "w") as f:
        f.write("".join(n + "\n" for n in names))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
