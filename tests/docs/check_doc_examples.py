#!/usr/bin/env python3
"""Runs the command examples of README.md and docs/*.md and checks what they print.

An example is a line starting with "$ " in an indented (four spaces) block:

    $ xpsfilter inspect samples/sample_job.xps
    Package: samples/sample_job.xps (Microsoft XPS, 1 document, 3 pages)
    ...
      image /Resources/Images/gradient.png  image/png, 6363 bytes

The lines after it, up to the next "$ " line or the end of the block, are its expected output:
each must be found in what the command prints (stdout and stderr), in that order; a line "..."
skips any number of lines and "..." inside a line matches any text. A line ending in a backslash
continues the command, and a here-document (<<'EOF') takes the lines up to its end marker.
The command must succeed, unless the expected output shows an "xpsfilter: ... error: ..." line,
or a last line "[exit N]" names the status it must end with.

The examples of one file run in order in one scratch folder of their own, where samples/ and
corpus/ lead to the project's samples and to the corpus, the built programs come first in PATH,
and FU_PRINTER_REGISTRY names the sample printer registry.

Usage: check_doc_examples.py SOURCE_DIR BINARY_DIR CORPUS_DIR
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile


def examples(path):
    """(line number, command, expected lines) of each example of a Markdown file."""
    lines = path.read_text(encoding="utf-8").splitlines()
    found = []
    i = 0
    fenced = False
    while i < len(lines):
        line = lines[i]
        if line.lstrip().startswith("```"):
            fenced = not fenced
        if fenced or not line.startswith("    $ "):
            i += 1
            continue
        start = i + 1
        command = line[6:]
        i += 1
        marker = re.search(r"<<-?'?(\w+)'?", command)
        while command.endswith("\\") and i < len(lines):
            command = command[:-1] + "\n" + lines[i].strip()
            i += 1
        if marker:
            end = marker.group(1)
            while i < len(lines) and lines[i].strip() != end:
                command += "\n" + lines[i][4:]
                i += 1
            command += "\n" + end
            i += 1
        expected = []
        while i < len(lines) and not lines[i].startswith("    $ "):
            if lines[i].startswith("    "):
                expected.append(lines[i][4:].rstrip())
            elif lines[i].strip() == "":
                # A blank line belongs to the block when the block goes on after it.
                following = next((l for l in lines[i + 1:] if l.strip()), "")
                if not following.startswith("    "):
                    break
                expected.append("")
            else:
                break
            i += 1
        while expected and not expected[-1]:
            expected.pop()
        found.append((start, command, expected))
    return found


def line_pattern(text):
    return re.compile("^" + ".*".join(re.escape(part.strip()) for part in text.split("...")) + "$")


def check_output(output, expected):
    """None when the expected lines are found in order, else the first one missing."""
    actual = [line.strip() for line in output.splitlines()]
    position = 0
    for want in expected:
        if want.strip() in ("", "..."):
            continue
        pattern = line_pattern(want)
        while position < len(actual) and not pattern.match(actual[position]):
            position += 1
        if position == len(actual):
            return want
        position += 1
    return None


def main():
    source, binaries, corpus = (pathlib.Path(a).resolve() for a in sys.argv[1:4])
    files = [source / "README.md"] + sorted((source / "docs").glob("*.md"))
    failures = 0
    count = 0
    for path in files:
        cases = examples(path)
        if not cases:
            continue
        with tempfile.TemporaryDirectory(prefix="doc-examples-") as scratch:
            os.symlink(source / "samples", os.path.join(scratch, "samples"))
            os.symlink(corpus, os.path.join(scratch, "corpus"))
            environment = dict(os.environ)
            environment["PATH"] = str(binaries) + os.pathsep + environment.get("PATH", "")
            environment["FU_PRINTER_REGISTRY"] = str(source / "samples" / "printers")
            environment.setdefault("FU_DEBUG_SINK", "none")
            for line, command, expected in cases:
                count += 1
                where = f"{path.relative_to(source)}:{line}"
                status = 0
                if expected and re.fullmatch(r"\[exit \d+\]", expected[-1].strip()):
                    status = int(expected[-1].strip()[6:-1])
                    expected = expected[:-1]
                elif any(re.match(r"xpsfilter: .* error: ", e.strip()) for e in expected):
                    status = None  # any failure
                try:
                    run = subprocess.run(["bash", "-c", command], cwd=scratch, env=environment,
                                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                         timeout=120)
                except subprocess.TimeoutExpired:
                    print(f"{where}: timed out: {command}")
                    failures += 1
                    continue
                output = run.stdout.decode("utf-8", "replace")
                wrong_status = (run.returncode == 0) if status is None else (run.returncode != status)
                missing = check_output(output, expected)
                if wrong_status or missing is not None:
                    failures += 1
                    print(f"{where}: {command}")
                    if wrong_status:
                        print(f"  exit status {run.returncode}, expected "
                              f"{'a failure' if status is None else status}")
                    if missing is not None:
                        print(f"  expected line not found: {missing}")
                    print("  output:\n    " + "\n    ".join(output.splitlines()))
    print(f"{count} examples run, {failures} failed")
    return 1 if failures or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
