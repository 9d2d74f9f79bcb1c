#!/usr/bin/env python3
"""Checks that the suite catches small deliberate faults: for each fault below, changes one
piece of the source, rebuilds the dev tree, runs the test programs that should notice, reports
the tests that failed, and puts the source back (also on Ctrl-C or a build error).

usage: scripts/deliberate-faults.py [--build build/dev] [--only N[,N...]]

Exit status 1 when a fault passes every test program listed for it. The table in
docs/testing.md records the last run."""
import argparse
import os
import re
import signal
import subprocess
import sys

# (where, what the fault is, the exact text, its faulty replacement, the test programs to run)
FAULTS = [
    ("platform/win32/format.cpp", "a precision of 0 from the arguments read as none",
     "conv.precision = precision < 0 ? -1 : precision;",
     "conv.precision = precision <= 0 ? -1 : precision;", ["platform_tests"]),
    ("filterpipeline/filterutilities/saxhandler.cpp", "the '&' escape dropped",
     'return L"&amp;";', 'return L"&";', ["filterutilities_tests", "watermarkfilter_tests"]),
    ("platform/prntvpt/ticketmerge.cpp", "a Document-scope merge takes Job items, not Page ones",
     'return local.starts_with("Document") || local.starts_with("Page");',
     'return local.starts_with("Document") || local.starts_with("Job");', ["platform_tests"]),
    ("support/utilities/base64.cpp", "line breaks counted one too many for whole lines",
     "characters += (characters - 1) / kLineLength * 2;",
     "characters += characters / kLineLength * 2;", ["utilities_tests"]),
    ("pipelinehost/sourcepackage.cpp", "a repeated piece number accepted",
     "if (piece.number != n) {", "if (piece.number > n) {", ["pipelinehost_tests"]),
    ("platform/msxml/saxwidetext.cpp", "'&#38;' undone one character short",
     "k += 4;", "k += 3;", ["platform_tests"]),
    ("pipelinehost/partname.cpp", "a '%XX' escape at the end of a name not decoded",
     "if (c == '%' && i + 2 < name.size()) {", "if (c == '%' && i + 3 < name.size()) {",
     ["pipelinehost_tests"]),
    ("support/utilities/persistentattributes.cpp", "a boolean attribute of value 2 accepted",
     "if (value > 1) {", "if (value > 2) {", ["utilities_tests", "attributebytes_tests"]),
    ("filterpipeline/filterutilities/xpsfilterprintticket.cpp", "six pages per sheet read as four",
     "case ValueNUp6:\n            return 6;", "case ValueNUp6:\n            return 4;",
     ["filterutilities_tests"]),
    ("utilitiesstaticlib/dlldelayloader.cpp", "a path that leaves no room for its NUL accepted",
     "if (used >= size || length >= size - used) return false;",
     "if (used >= size || length > size - used) return false;", ["utilitiesstaticlib_tests"]),
    ("tools/xpsfilter/devmodedescriptionreader.cpp", "the raster default core size inverted",
     "if (!m_coreSizeGiven && m_description.layout", "if (m_coreSizeGiven && m_description.layout",
     ["tools_tests"]),
    ("platform/msxml/domcharacterdata.cpp", "substringData starts one character late",
     "text.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(count));",
     "text.substr(static_cast<std::size_t>(offset) + 1, static_cast<std::size_t>(count));",
     ["platform_tests"]),
    ("pipelinehost/xpsmarkup.cpp", "space between an attribute's name and '=' drops it",
     "            case State::AfterName:\n                if (c == '=') {",
     "            case State::AfterName:\n                if (c == '#') {", ["pipelinehost_tests"]),
]


def run_fault(top, build, number, fault):
    path, what, good, bad, programs = fault
    source = os.path.join(top, path)
    with open(source, encoding="utf-8") as f:
        original = f.read()
    if original.count(good) != 1:
        return f"#{number} {path}: the text to change is not there exactly once; update the table"
    try:
        with open(source, "w", encoding="utf-8") as f:
            f.write(original.replace(good, bad))
        built = subprocess.run(["cmake", "--build", build, "-j2", "--target"] + programs,
                               capture_output=True, text=True)
        if built.returncode != 0:
            return f"#{number} {path}: does not build with the fault:\n{built.stdout[-2000:]}"
        caught = []
        for program in programs:
            result = subprocess.run([os.path.join(build, "bin", program), "--gtest_brief=1"],
                                    capture_output=True, text=True, cwd=build)
            caught += re.findall(r"^\[  FAILED  \] (\S+)(?:, where|$| \()", result.stdout,
                                 re.MULTILINE)
            if result.returncode != 0 and not caught:
                caught.append(f"{program} (exit status {result.returncode})")
        caught = sorted(set(caught))
        return caught
    finally:
        with open(source, "w", encoding="utf-8") as f:
            f.write(original)


def main():
    # A stop from outside still puts the source back (the finally blocks run on SystemExit).
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(2))
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default="build/dev")
    parser.add_argument("--only", default="")
    args = parser.parse_args()
    top = subprocess.run(["git", "rev-parse", "--show-toplevel"], capture_output=True, text=True,
                         check=True).stdout.strip()
    build = os.path.join(top, args.build)
    wanted = {int(n) for n in args.only.split(",") if n}
    missed = 0
    for number, fault in enumerate(FAULTS, 1):
        if wanted and number not in wanted:
            continue
        outcome = run_fault(top, build, number, fault)
        if isinstance(outcome, str):
            print(outcome)
            missed += 1
        elif outcome:
            print(f"#{number} {fault[0]}: {fault[1]}: caught by {', '.join(outcome)}")
        else:
            print(f"#{number} {fault[0]}: {fault[1]}: NOT CAUGHT by {', '.join(fault[4])}")
            missed += 1
        sys.stdout.flush()
    # The tree is rebuilt without the faults so that what is left in the build is the source.
    subprocess.run(["cmake", "--build", build, "-j2"], capture_output=True)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
