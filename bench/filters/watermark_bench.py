#!/usr/bin/env python3
"""Whole-job benchmark of the watermark filter. In one run it makes a job (PostScript -> PDF ->
XPS with a PrintTicket on every page, bench/pipelinehost/make_job.py), a ticket naming
watermark 12 (`xpsfilter devmode encode`) and a watermark settings file in a temporary
XDG_CONFIG_HOME, then times on the same job:

  baseline   a copy that inflates every ZIP entry and deflates it again at level 1
             (Python's zipfile over zlib: the least work a filter that rewrites every part does)
  watermark  `xpsfilter run` with samples/pipelines/watermark.xml (every page re-serialised,
             a text watermark inserted, the font part written once)

and reports pages per second of both and their ratio (target: watermark >= 0.5 x baseline),
with the cores the pipeline kept busy (its CPU time over its wall time) and the machine's load
average before and after (the pipeline uses every core it gets, the
copy one, so a loaded machine lowers the ratio).

usage: watermark_bench.py [--build build/release] [--pages 200] [--lines 20] [--repeat 3]
                         [--work DIR]
Build first: cmake --preset release && cmake --build --preset release --target xpsfilter
"""
import argparse
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.abspath(os.path.join(HERE, "..", ".."))
RECOMPRESS = ("import sys, zipfile\n"
              "with zipfile.ZipFile(sys.argv[1]) as src, zipfile.ZipFile(\n"
              "        sys.argv[2], 'w', zipfile.ZIP_DEFLATED, compresslevel=1) as dst:\n"
              "    for info in src.infolist():\n"
              "        dst.writestr(info.filename, src.read(info))\n")
# Wall time, exit status and CPU time (user + system, all threads) of one run of a command.
MEASURE = ("import resource, subprocess, sys, time\n"
           "start = time.perf_counter()\n"
           "result = subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL)\n"
           "wall = time.perf_counter() - start\n"
           "usage = resource.getrusage(resource.RUSAGE_CHILDREN)\n"
           "print(wall, result.returncode, usage.ru_utime + usage.ru_stime)\n")


def measure(command, env):
    """(wall seconds, CPU seconds) of one run."""
    out = subprocess.run([sys.executable, "-c", MEASURE] + command, capture_output=True,
                         text=True, check=True, env=env).stdout.split()
    if out[1] != "0":
        raise SystemExit(f"failed ({out[1]}): {' '.join(command)}")
    return float(out[0]), float(out[2])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "release"))
    parser.add_argument("--pages", type=int, default=200)
    parser.add_argument("--lines", type=int, default=20, help="text lines per page")
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("--work")
    args = parser.parse_args()
    xpsfilter = os.path.join(args.build, "bin", "xpsfilter")
    if not os.access(xpsfilter, os.X_OK):
        raise SystemExit(f"missing {xpsfilter}: build xpsfilter first")
    work = args.work or tempfile.mkdtemp(prefix="watermark-bench-")
    os.makedirs(work, exist_ok=True)

    job = os.path.join(work, f"job_{args.pages}_{args.lines}.xps")
    if not os.path.exists(job):
        subprocess.run([sys.executable, os.path.join(ROOT, "bench", "pipelinehost", "make_job.py"),
                        str(args.pages), job, "--lines", str(args.lines)], check=True)
    with open(os.path.join(work, "devmode.txt"), "w") as f:
        f.write("[attributes]\n620 = option 12\n")
    ticket = os.path.join(work, "ticket.xml")
    subprocess.run([xpsfilter, "devmode", "encode", "--as", "page", "-o", ticket,
                    os.path.join(work, "devmode.txt")], check=True, stderr=subprocess.DEVNULL)
    config = os.path.join(work, "config")
    os.makedirs(os.path.join(config, "PrinterDriver", "Zorun"), exist_ok=True)
    with open(os.path.join(config, "PrinterDriver", "Zorun", "ZrnWmV5.ini"), "w") as f:
        f.write("[12]\nWatermark Type=0\nDENSITY=30\nFontHeight=60\nRed=200\n"
                "FontEscapement=450\nXOffset=-1000\nText=CONFIDENTIAL\n")
    env = dict(os.environ, XDG_CONFIG_HOME=config)

    load_before = os.getloadavg()[0]
    base, _ = min(measure([sys.executable, "-c", RECOMPRESS, job, os.path.join(work, "copy.xps")],
                       env) for _ in range(args.repeat))
    run, run_cpu = min(measure([xpsfilter, "run", "-q", "--pipeline",
                       os.path.join(ROOT, "samples", "pipelines", "watermark.xml"),
                       "--ticket", ticket, job, os.path.join(work, "out.xps")], env)
              for _ in range(args.repeat))
    size = os.path.getsize(job) / 2**20
    print(f"job: {args.pages} pages, {size:.1f} MiB ({job}); best of {args.repeat}")
    print(f"{'':28} {'s':>8} {'pages/s':>9}")
    print(f"{'inflate + deflate-1 copy':28} {base:8.3f} {args.pages / base:9.1f}")
    print(f"{'watermark pipeline':28} {run:8.3f} {args.pages / run:9.1f}")
    print(f"watermark / copy pages per second: {base / run:.2f} (target >= 0.5)")
    print(f"cores in use by the watermark pipeline: {run_cpu / run:.2f} "
          f"(CPU time {run_cpu:.3f} s over wall time)")
    print(f"load average: {load_before:.2f} before, {os.getloadavg()[0]:.2f} after "
          f"({os.cpu_count()} cores)")


if __name__ == "__main__":
    main()
