#!/usr/bin/env python3
"""make-seeds.py OUT: writes the starting inputs of each fuzz target into OUT/<target>/, taken
from the real-world corpus (../shared/corpus beside the checkout, or FU_CORPUS_DIR) and the
project's samples. Nothing here is copied into the source tree; the hand-made seeds live in
fuzz/seeds/<target>/.

  printticket  the corpus tickets and the embedded default ticket
  merge        scope byte + base ticket + NUL + delta ticket, for pairs of corpus tickets
  package      the corpus packages up to 80 KiB and the sample job
  page         the fixed pages inside the corpus packages (UTF-8 and UTF-16), up to 64 KiB
  pipelineconfig  the sample pipeline configurations
  base64       the device mode snapshots of the corpus tickets
"""
import os
import re
import sys
import zipfile
from pathlib import Path

root = Path(__file__).resolve().parent.parent
corpus = Path(os.environ.get("FU_CORPUS_DIR", root.parent / "shared" / "corpus"))
out = Path(sys.argv[1])


def put(target, name, data):
    folder = out / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(data)


tickets = sorted((corpus / "tickets").glob("*.xml")) if corpus.is_dir() else []
ticket_bytes = [t.read_bytes() for t in tickets]
ticket_bytes.append((root / "samples" / "default_ticket.xml").read_bytes())

for i, data in enumerate(ticket_bytes):
    put("printticket", f"ticket{i}", data)
    for match in re.finditer(rb"<psf:Value[^>]*>([A-Za-z0-9+/=\s]{64,})</psf:Value>", data):
        put("base64", f"snapshot{i}", match.group(1))

for i, base in enumerate(ticket_bytes):
    delta = ticket_bytes[(i + 1) % len(ticket_bytes)]
    put("merge", f"pair{i}", bytes([i % 3]) + base + b"\0" + delta)

packages = sorted((corpus / "xps").glob("*")) if corpus.is_dir() else []
for package in packages + [root / "samples" / "sample_job.xps"]:
    if package.stat().st_size <= 80 * 1024:
        put("package", package.name, package.read_bytes())
    try:
        with zipfile.ZipFile(package) as archive:
            for info in archive.infolist():
                if info.filename.lower().endswith(".fpage") and info.file_size <= 64 * 1024:
                    name = package.stem + "_" + re.sub(r"[^A-Za-z0-9.]", "_", info.filename)
                    put("page", name, archive.read(info))
    except (zipfile.BadZipFile, NotImplementedError):
        pass

for config in sorted((root / "samples" / "pipelines").glob("*.xml")):
    put("pipelineconfig", config.name, config.read_bytes())
