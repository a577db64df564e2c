#!/usr/bin/python3
"""Verdict and plot of a soak run (scripts/soak.sh).

Usage: soak_verdict.py SOAK.csv PLOT.png STOPPED_WITHIN_2S(0|1) [STOP_MS]

Passes when, after the first minute (detector and buffers warming up, at
least the first third of a short run):
  - RSS grows by less than 2 MB per hour (least-squares slope), and by less
    than 1 MB in all, so that a short run's noise cannot pass as a trend;
  - open descriptors and threads never change;
  - the count of analysed frames grows in every sample;
and the daemon ended within 2 s of SIGTERM.
"""
import csv
import sys

MAX_SLOPE_KB_PER_H = 2048
MAX_GROWTH_KB = 1024


def slope(xs, ys):
    n = len(xs)
    mx, my = sum(xs) / n, sum(ys) / n
    var = sum((x - mx) ** 2 for x in xs)
    return 0.0 if var == 0 else sum((x - mx) * (y - my) for x, y in zip(xs, ys)) / var


def main():
    if len(sys.argv) not in (4, 5):
        print(__doc__, file=sys.stderr)
        return 2
    rows = []
    for r in csv.DictReader(open(sys.argv[1])):
        # A field the sampler could not read keeps the previous sample's value.
        rows.append({k: float(v) if v else (rows[-1][k] if rows else 0.0) for k, v in r.items()})
    if len(rows) < 3:
        print("verdict: fail (fewer than 3 samples)")
        return 1
    warm = min(60.0, rows[-1]["t_s"] / 3)
    steady = [r for r in rows if r["t_s"] >= warm]
    t = [r["t_s"] for r in steady]
    rss = [r["rss_kb"] for r in steady]
    rss_slope = slope(t, rss) * 3600
    growth = rss[-1] - rss[0]
    fds = sorted({int(r["fds"]) for r in steady})
    threads = sorted({int(r["threads"]) for r in steady})
    frames = [r["frames"] for r in rows]
    stalled = [int(b["t_s"]) for a, b in zip(rows, rows[1:]) if b["frames"] <= a["frames"]]
    cpu = [r["cpu_pct"] for r in steady]
    checks = {
        "rss slope %.0f KB/h (< %d)" % (rss_slope, MAX_SLOPE_KB_PER_H): rss_slope < MAX_SLOPE_KB_PER_H,
        "rss growth %.0f KB after warm-up (< %d)" % (growth, MAX_GROWTH_KB): growth < MAX_GROWTH_KB,
        "descriptors %s constant" % fds: len(fds) == 1,
        "threads %s constant" % threads: len(threads) == 1,
        "frames analysed in every sample (%d in all; samples without: %s)" % (frames[-1], stalled or "none"): not stalled,
        "ended within 2 s of SIGTERM%s" % (" (%s ms)" % sys.argv[4] if len(sys.argv) == 5 else ""):
            sys.argv[3] == "1",
    }
    print("duration %d s, %d samples, warm-up %d s, rss %d..%d KB, cpu mean %.1f %%"
          % (rows[-1]["t_s"], len(rows), warm, min(rss), max(rss), sum(cpu) / len(cpu)))
    for text, ok in checks.items():
        print(("ok   " if ok else "FAIL ") + text)
    verdict = all(checks.values())
    print("verdict: " + ("pass" if verdict else "fail"))
    plot(rows, sys.argv[2])
    return 0 if verdict else 1


def plot(rows, path):
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("no plot: python3-matplotlib is not installed")
        return
    t = [r["t_s"] / 60 for r in rows]
    series = [("rss_kb", "RSS (KB)"), ("fds", "open descriptors"), ("threads", "threads"),
              ("cpu_pct", "CPU (%)"), ("frames", "frames analysed")]
    fig, axes = plt.subplots(len(series), 1, sharex=True, figsize=(9, 10))
    for ax, (key, label) in zip(axes, series):
        ax.plot(t, [r[key] for r in rows], marker=".", linewidth=1)
        ax.set_ylabel(label)
        ax.grid(True, alpha=0.3)
    axes[-1].set_xlabel("minutes")
    fig.suptitle("faceDet soak")
    fig.tight_layout()
    fig.savefig(path, dpi=80)


if __name__ == "__main__":
    sys.exit(main())
