#!/usr/bin/env python3
"""Whole-job benchmark of the pipeline host. In one run it makes the jobs (a large job with an
image on every page, and jobs of 100, 1,000 and 10,000 pages (--pages), each with a
PrintTicket on every page),
then times, on each, the pass-through pipeline (`xpsfilter run`) against the baseline measured
in the same run: a raw libzip entry-by-entry copy of the same file (`zipcopy`). It reports the
time ratio (target <= 1.15 on the large jobs), pages per second and peak RSS (target <= 64 MiB,
flat from 100 to 10,000 pages).

Times are wall times, the best of --repeat runs of each command (each in a fresh process);
the load average before and after is printed, since on a shared machine other work inflates
both sides unevenly. For a comparison of two builds, run both with the same --work folder (the
jobs are made once and kept) one after the other, or alternate them. The 100-page ratio is
dominated by xpsfilter's start-up (loading and linking its libraries, about 3.5 ms), the
1,000-page one by the per-item work.

usage: run_bench.py [--build build/release] [--large-pages 200] [--pages 100,1000,10000]
                    [--repeat 3] [--work DIR]
Build first: cmake --preset release && cmake --build --preset release --target xpsfilter zipcopy
"""
import argparse
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
MEASURE = ("import resource, subprocess, sys, time\n"
           "start = time.perf_counter()\n"
           "result = subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL)\n"
           "elapsed = time.perf_counter() - start\n"
           "rss = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss\n"
           "print(elapsed, rss, result.returncode)\n")


def measure(command):
    """Wall time (s) and peak RSS (KiB) of one command, measured in a fresh process."""
    out = subprocess.run([sys.executable, "-c", MEASURE] + command, capture_output=True,
                         text=True, check=True).stdout.split()
    if out[2] != "0":
        raise SystemExit(f"failed ({out[2]}): {' '.join(command)}")
    return float(out[0]), int(out[1])


def best_of(repeat, command):
    runs = [measure(command) for _ in range(repeat)]
    return min(r[0] for r in runs), max(r[1] for r in runs)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(HERE, "..", "..", "build", "release"))
    parser.add_argument("--large-pages", type=int, default=200)
    parser.add_argument("--pages", default="100,1000,10000",
                        help="comma-separated page counts of the jobs with a ticket per page")
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("--work")
    args = parser.parse_args()
    xpsfilter = os.path.join(args.build, "bin", "xpsfilter")
    zipcopy = os.path.join(args.build, "bin", "zipcopy")
    for tool in (xpsfilter, zipcopy):
        if not os.access(tool, os.X_OK):
            raise SystemExit(f"missing {tool}: build the release preset first")
    work = args.work or tempfile.mkdtemp(prefix="pipelinehost-bench-")
    os.makedirs(work, exist_ok=True)
    counts = [int(n) for n in args.pages.split(",")]
    jobs = [(f"large ({args.large_pages} pages, images)", args.large_pages, True)]
    jobs += [(f"{n:,} pages", n, False) for n in counts]
    rows = []
    load_before = os.getloadavg()[0]
    for label, pages, images in jobs:
        path = os.path.join(work, f"job_{pages}{'_img' if images else ''}.xps")
        if not os.path.exists(path):
            subprocess.run([sys.executable, os.path.join(HERE, "make_job.py"), str(pages), path]
                           + (["--images"] if images else ["--lines", "3"]), check=True)
        copy_s, copy_rss = best_of(args.repeat, [zipcopy, path, os.path.join(work, "copy.xps")])
        run_s, run_rss = best_of(args.repeat, [xpsfilter, "run", "-q", path,
                                               os.path.join(work, "out.xps")])
        rows.append((label, pages, os.path.getsize(path), copy_s, run_s, run_rss))
    print(f"{'job':28} {'MiB':>7} {'zipcopy s':>10} {'pipeline s':>11} {'ratio':>6} "
          f"{'pages/s':>9} {'peak RSS MiB':>13}")
    for label, pages, size, copy_s, run_s, rss in rows:
        print(f"{label:28} {size / 2**20:7.1f} {copy_s:10.3f} {run_s:11.3f} "
              f"{run_s / copy_s:6.2f} {pages / run_s:9.1f} {rss / 1024:13.1f}")
    small, big = rows[1], rows[-1]
    print(f"peak RSS {small[1]:,} -> {big[1]:,} pages: {small[5] / 1024:.1f} -> "
          f"{big[5] / 1024:.1f} MiB ({(big[5] - small[5]) / 1024:+.1f} MiB)")
    print(f"load average: {load_before:.2f} before, {os.getloadavg()[0]:.2f} after "
          f"({os.cpu_count()} cores)")
    print(f"jobs kept in {work}")


if __name__ == "__main__":
    main()
