#!/usr/bin/env python3
"""Lists functions longer than a limit (default 80 lines) and source files longer than 800.

A function is counted from the line its body opens on to the line its closing brace is on; the
scan follows braces, skipping comments, string and character literals, so it finds free
functions, member functions defined in or out of their class and lambdas' enclosing functions.
  scripts/long-functions.py [--limit N] [FOLDER...]      default: the library, host and command
"""
import argparse
import pathlib
import re
import sys

HEAD = re.compile(r"\)\s*(const\s*)?(noexcept\s*)?(override\s*)?(final\s*)?(->\s*[\w:<>,\s*&]+)?$")
NOT_FUNCTION = re.compile(r"^\s*(if|for|while|switch|catch|else|do|return)\b|[=,]\s*\[.*\]\s*\(")


def strip(text):
    """Source with comments and literals blanked, line breaks kept."""
    out, i, n = [], 0, len(text)
    while i < n:
        c = text[i]
        if text.startswith("//", i):
            j = text.find("\n", i)
            i = n if j < 0 else j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            out.append("\n" * text.count("\n", i, j))
            i = j
        elif c == 'R' and text.startswith('R"', i):
            m = re.match(r'R"([^(\s]*)\(', text[i:])
            end = text.find(")" + m.group(1) + '"', i) if m else -1
            j = n if end < 0 else end + len(m.group(1)) + 2
            out.append("\n" * text.count("\n", i, j))
            i = j
        elif c in "\"'":
            j = i + 1
            while j < n and text[j] != c:
                j += 2 if text[j] == "\\" else 1
            out.append(c + c)
            i = j + 1
        else:
            out.append(c)
            i += 1
    return "".join(out)


def functions(path):
    lines = strip(path.read_text(errors="replace")).split("\n")
    depth, stack = 0, []  # stack of (depth, start line, name, is function)
    for number, line in enumerate(lines, 1):
        for pos, c in enumerate(line):
            if c == "{":
                before = line[:pos].rstrip()
                k = number - 1
                while not before and k > 0:  # a brace on its own line belongs to the line above
                    k -= 1
                    before = lines[k - 1].rstrip() if k >= 1 else ""
                head = before
                is_function = bool(HEAD.search(head) or re.search(r"\)\s*:\s*\w.*$", head) or
                                   re.search(r"\w\)\s*(const)?\s*$", head)) and not NOT_FUNCTION.search(head)
                inside_function = any(f for _, _, _, f in stack)
                name = re.sub(r"\s+", " ", head.strip())[-90:]
                stack.append((depth, number, name, is_function and not inside_function))
                depth += 1
            elif c == "}":
                depth -= 1
                if stack:
                    _, start, name, is_function = stack.pop()
                    if is_function:
                        yield start, number - start + 1, name


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--limit", type=int, default=80)
    parser.add_argument("--file-limit", type=int, default=800)
    parser.add_argument("folders", nargs="*", default=[
        "platform", "support", "utilitiesstaticlib", "filterpipeline", "pipelinehost", "tools"])
    args = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    found = 0
    for folder in args.folders:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in (".cpp", ".h"):
                continue
            rel = path.relative_to(root)
            total = path.read_text(errors="replace").count("\n")
            if total > args.file_limit:
                print(f"{rel}: file of {total} lines")
                found += 1
            for start, length, name in functions(path):
                if length > args.limit:
                    print(f"{rel}:{start}: {length} lines: {name}")
                    found += 1
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
