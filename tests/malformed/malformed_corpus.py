#!/usr/bin/env python3
"""malformed_corpus.py XPSFILTER [--work DIR] [--sanitized] [--only NAME...] [--table]

Builds hostile jobs (broken ZIPs, zip bombs, bad part names, broken OPC, hostile markup and
tickets) in a private temporary folder and runs `xpsfilter run` on each, checking for every
case:

  - the exit status documented in docs/xpsfilter.md (0 for the cases that are legal);
  - on failure one line `xpsfilter: ...` on stderr naming what failed matching the case's
    pattern, and neither OUT nor a temporary file left beside it;
  - no secret: the contents of a local file that an external entity names appear neither in
    the output nor in any message;
  - no network: a DTD or entity naming a URL of a listening local socket never connects;
  - peak resident memory under 256 MiB and at most a few seconds per case (looser bounds with
    --sanitized, for the AddressSanitizer build).

--table prints the cases as a Markdown table (docs/reliability.md holds it).
"""
import argparse
import io
import json
import os
import random
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import zipfile
import zlib

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
XPS = "http://schemas.microsoft.com/xps/2005/06"
RELS_NS = "http://schemas.openxmlformats.org/package/2006/relationships"
FIXEDREP = XPS + "/fixedrepresentation"
PT_REL = XPS + "/printticket"
PSF = "http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework"
PSK = "http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords"
SECRET = "s3cr3t-0f-the-sp00ler-7f1c"

CONTENT_TYPES = (
    '<?xml version="1.0" encoding="UTF-8"?><Types xmlns="http://schemas.openxmlformats.org/'
    'package/2006/content-types"><Default Extension="rels" ContentType="application/'
    'vnd.openxmlformats-package.relationships+xml"/><Default Extension="fdseq" ContentType='
    '"application/vnd.ms-package.xps-fixeddocumentsequence+xml"/><Default Extension="fdoc" '
    'ContentType="application/vnd.ms-package.xps-fixeddocument+xml"/><Default Extension="fpage" '
    'ContentType="application/vnd.ms-package.xps-fixedpage+xml"/><Default Extension="png" '
    'ContentType="image/png"/><Default Extension="xml" ContentType="application/'
    'vnd.ms-printing.printticket+xml"/></Types>')


def rels(*targets):
    body = "".join(f'<Relationship Id="R{i}" Type="{kind}" Target="{target}"/>'
                   for i, (kind, target) in enumerate(targets))
    return f'<?xml version="1.0" encoding="UTF-8"?><Relationships xmlns="{RELS_NS}">{body}</Relationships>'


def page(body=""):
    return (f'<?xml version="1.0" encoding="UTF-8"?><FixedPage xmlns="{XPS}" Width="816" '
            f'Height="1056"><Path Data="M 0,0 L 100,100" Stroke="#FF000000"/>{body}</FixedPage>')


def ticket(body=""):
    return (f'<?xml version="1.0" encoding="UTF-8"?><psf:PrintTicket xmlns:psf="{PSF}" '
            f'xmlns:psk="{PSK}" version="1">{body}</psf:PrintTicket>')


def fdoc(pages=("Pages/1.fpage",)):
    entries = "".join(f'<PageContent Source="{p}"/>' for p in pages)
    return f'<?xml version="1.0" encoding="UTF-8"?><FixedDocument xmlns="{XPS}">{entries}</FixedDocument>'


def fdseq(documents=("/Documents/1/FixedDocument.fdoc",)):
    entries = "".join(f'<DocumentReference Source="{d}"/>' for d in documents)
    return (f'<?xml version="1.0" encoding="UTF-8"?><FixedDocumentSequence xmlns="{XPS}">'
            f'{entries}</FixedDocumentSequence>')


def parts(**changes):
    """The parts of a valid one-page job as an ordered list of [name, content]; keyword
    arguments replace a part's content by its key (None drops it)."""
    base = {
        "types": ["[Content_Types].xml", CONTENT_TYPES],
        "rels": ["_rels/.rels", rels((FIXEDREP, "/FixedDocumentSequence.fdseq"))],
        "fdseq": ["FixedDocumentSequence.fdseq", fdseq()],
        "fdseqrels": ["_rels/FixedDocumentSequence.fdseq.rels", rels((PT_REL, "/Metadata/Job_PT.xml"))],
        "ticket": ["Metadata/Job_PT.xml", ticket()],
        "fdoc": ["Documents/1/FixedDocument.fdoc", fdoc()],
        "page": ["Documents/1/Pages/1.fpage", page()],
    }
    for key, value in changes.items():
        if value is None:
            del base[key]
        elif isinstance(value, list):
            base[key] = value
        else:
            base[key][1] = value
    return list(base.values())


def zip_of(items, method=zipfile.ZIP_DEFLATED, zip64=False):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", method, allowZip64=True) as archive:
        for name, content in items:
            data = content if isinstance(content, bytes) else content.encode("utf-8")
            info = zipfile.ZipInfo(name, date_time=(2024, 1, 1, 0, 0, 0))
            info.compress_type = method
            with archive.open(info, "w", force_zip64=zip64) as entry:
                entry.write(data)
    return out.getvalue()


def job(method=zipfile.ZIP_DEFLATED, zip64=False, extra=(), **changes):
    import warnings
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # duplicate names are wanted here
        return zip_of(parts(**changes) + list(extra), method, zip64)


def patch_sizes(data, name, size):
    """Sets the inflated size the local header and the central directory declare for an item
    (a plain 32-bit size: the item must not use Zip64)."""
    data = bytearray(data)
    raw = name.encode()
    for signature, size_at, name_len_at, header in ((b"PK\x03\x04", 22, 26, 30), (b"PK\x01\x02", 24, 28, 46)):
        at = 0
        while (at := data.find(signature, at)) >= 0:
            length = struct.unpack_from("<H", data, at + name_len_at)[0]
            if data[at + header:at + header + length] == raw:
                struct.pack_into("<I", data, at + size_at, size)
            at += 4
    return bytes(data)


def patch_header_field(data, name, local_offset, central_offset, fmt, change):
    """Rewrites one field of an item's local and central headers: `change` maps the old value to
    the new one. The offsets are from the start of each header; `fmt` is the struct format."""
    data = bytearray(data)
    raw = name.encode()
    for signature, field_at, name_len_at, header in ((b"PK\x03\x04", local_offset, 26, 30),
                                                     (b"PK\x01\x02", central_offset, 28, 46)):
        at = 0
        while (at := data.find(signature, at)) >= 0:
            length = struct.unpack_from("<H", data, at + name_len_at)[0]
            if data[at + header:at + header + length] == raw:
                old = struct.unpack_from(fmt, data, at + field_at)[0]
                struct.pack_into(fmt, data, at + field_at, change(old))
            at += 4
    return bytes(data)


def set_flag(data, name, flag):
    return patch_header_field(data, name, 6, 8, "<H", lambda old: old | flag)


def set_method(data, name, method):
    return patch_header_field(data, name, 8, 10, "<H", lambda old: method)


def set_crc(data, name, crc):
    """Writes another CRC-32 into the item's headers (its data stays valid)."""
    return patch_header_field(data, name, 14, 16, "<I", lambda old: crc)


def damage_item(data, name):
    """Overwrites 8 bytes in the middle of an item's compressed data."""
    data = bytearray(data)
    raw = name.encode()
    at = 0
    while (at := data.find(b"PK\x03\x04", at)) >= 0:
        size = struct.unpack_from("<I", data, at + 18)[0]
        name_length, extra_length = struct.unpack_from("<HH", data, at + 26)
        if data[at + 30:at + 30 + name_length] == raw:
            start = at + 30 + name_length + extra_length + size // 3
            for i in range(start, start + 8):
                data[i] ^= 0x5A
            break
        at += 4
    return bytes(data)


def utf16(text, bom):
    encoded = text.replace('encoding="UTF-8"', 'encoding="UTF-16"').encode("utf-16-le")
    return (b"\xff\xfe" if bom else b"") + encoded


def nested(depth, element="Canvas"):
    return f"<{element}>" * depth + f"</{element}>" * depth


LAUGHS = ('<!DOCTYPE lolz [<!ENTITY lol "lol">' + "".join(
    f'<!ENTITY lol{i} "{("&lol" + (str(i - 1) if i > 1 else "") + ";") * 10}">' for i in range(1, 10))
    + "]>")


def with_doctype(markup, doctype):
    """Inserts a DOCTYPE after the XML declaration, naming the markup's root element."""
    declaration_end = markup.index("?>") + 2
    return markup[:declaration_end] + doctype + markup[declaration_end:]


def laughs_in(markup, root, where):
    doctype = LAUGHS.replace("lolz", root)
    return with_doctype(markup, doctype).replace(where, where + "&lol9;", 1)


def external_entity(markup, root, secret_path, where):
    doctype = f'<!DOCTYPE {root} [<!ENTITY leak SYSTEM "file://{secret_path}">]>'
    return with_doctype(markup, doctype).replace(where, where + "&leak;", 1)


class Case:
    def __init__(self, name, exit_code, message=None, files=None, args=(), watermark=False,
                 ticket_text=None, network=False, watermarked=None, cost=1, wrapper=(),
                 output_name="out.xps"):
        self.name = name
        self.exit_code = exit_code
        self.message = message  # regex for stderr (failures)
        self.files = files  # callable(work) -> bytes of IN, or None for a missing IN
        self.args = list(args)
        self.watermark = watermark
        self.ticket_text = ticket_text  # callable(work) -> bytes of a --ticket file
        self.network = network
        self.watermarked = watermarked  # whether the output page must carry the watermark
        self.cost = cost  # times the usual CPU time bound
        self.wrapper = list(wrapper)  # runs the command (a shell setting limits)
        self.output_name = output_name  # OUT, relative to an empty folder


def cases(secret_path, url):
    ticket_rel = lambda target: rels((PT_REL, target))
    big_zeros = b"\0" * (64 << 20)
    dup = ["Documents/1/Pages/1.fpage", page()]
    c = []

    # --- not a ZIP, or a damaged one: 4 ---
    valid = job()
    c.append(Case("empty file", 4, r"input error", lambda w: b""))
    c.append(Case("text, not a ZIP", 4, r"input error", lambda w: b"%PDF-1.7\n" * 100))
    for label, cut in (("10 bytes", 10), ("a quarter", len(valid) // 4), ("half", len(valid) // 2),
                       ("all but the end record", len(valid) - 22), ("all but 5 bytes", len(valid) - 5)):
        c.append(Case(f"truncated ZIP: {label}", 4, r"input error",
                      lambda w, cut=cut: valid[:cut]))
    c.append(Case("end record pointing past the file", 4, r"input error",
                  lambda w: valid[:-6] + struct.pack("<IH", 0x7FFFFFF0, 0)))
    c.append(Case("damaged deflate data in [Content_Types].xml", 4, r"input error|damaged|CRC",
                  lambda w: damage_item(job(types=CONTENT_TYPES + " " * 3000), "[Content_Types].xml")))
    c.append(Case("CRC-32 that does not match the data of the fixed document", 4,
                  r"input error.*FixedDocument.fdoc is damaged: CRC error",
                  lambda w: set_crc(job(), "Documents/1/FixedDocument.fdoc", 0x12345678)))
    c.append(Case("encrypted item", 5, r"package error.*encrypted",
                  lambda w: set_flag(job(), "Documents/1/FixedDocument.fdoc", 1)))
    c.append(Case("unsupported compression method", 5, r"package error.*compression method",
                  lambda w: set_method(job(), "Documents/1/FixedDocument.fdoc", 12)))

    # --- bombs and declared sizes: 6 ---
    c.append(Case("zip bomb by ratio (64 MiB of zeros in a page)", 6, r"limit error",
                  lambda w: job(page=big_zeros), ["--max-part-size", "16"]))
    c.append(Case("zip bomb by ratio in [Content_Types].xml", 6, r"limit error",
                  lambda w: job(types=CONTENT_TYPES.encode() + b" " * (64 << 20)),
                  ["--max-part-size", "16"]))
    c.append(Case("zip bomb by declared size (says 1 KiB, inflates to 50 MiB)", 6, r"limit error",
                  lambda w: patch_sizes(job(fdoc=fdoc().encode() + b" " * (50 << 20)),
                                        "Documents/1/FixedDocument.fdoc", 1024)))
    c.append(Case("a page declaring 2 GiB, above --max-part-size 1024", 6, r"limit error.*declares",
                  lambda w: patch_sizes(job(), "Documents/1/Pages/1.fpage", 2 << 30),
                  ["--max-part-size", "1024"]))
    c.append(Case("Zip64 entries (legal)", 0, files=lambda w: job(zip64=True)))

    # --- names: 5 ---
    c.append(Case("duplicate part names", 5, r"package error.*two parts named",
                  lambda w: job(extra=[dup])))
    c.append(Case("names differing only in case", 5, r"package error.*two parts named",
                  lambda w: job(extra=[["documents/1/pages/1.FPAGE", page()]])))
    c.append(Case("names differing only in percent-encoding", 5,
                  r"package error.*two parts named",
                  lambda w: job(extra=[["Documents/1/Pages/%31.fpage", page()]])))
    c.append(Case("'..' in an item name", 5, r"package error",
                  lambda w: job(extra=[["Documents/../../evil.png", b"x"]])))
    c.append(Case("absolute item name", 5, r"package error",
                  lambda w: job(extra=[["/etc/evil.png", b"x"]])))
    c.append(Case("backslash in an item name", 5, r"package error",
                  lambda w: job(extra=[["Resources\\evil.png", b"x"]])))
    c.append(Case("relationship target above the root", 5, r"package error",
                  lambda w: job(rels=rels((FIXEDREP, "../../FixedDocumentSequence.fdseq")))))
    c.append(Case("100,000 parts (legal)", 0, cost=3,
                  files=lambda w: zip_of(parts() + [[f"Resources/{i}.png", b""] for i in range(100000)],
                                         zipfile.ZIP_STORED)))

    # --- OPC structure: 5 ---
    c.append(Case("no [Content_Types].xml", 5, r"package error.*Content_Types", lambda w: job(types=None)))
    c.append(Case("no package relationships", 5, r"package error", lambda w: job(rels=None)))
    c.append(Case("start part missing", 5, r"package error",
                  lambda w: job(fdseq=None)))
    c.append(Case("cyclic: a document listed as its own page", 5, r"package error.*cycl",
                  lambda w: job(fdoc=fdoc(("/Documents/1/FixedDocument.fdoc",)))))
    c.append(Case("cyclic: the sequence lists itself", 5, r"package error.*cycl",
                  lambda w: job(fdseq=fdseq(("/FixedDocumentSequence.fdseq",)))))
    c.append(Case("cyclic relationships: page ticket is the document", 5, r"package error.*cycl",
                  lambda w: job(extra=[["Documents/1/Pages/_rels/1.fpage.rels",
                                        ticket_rel("/Documents/1/FixedDocument.fdoc")]])))
    pieces = lambda names: job(page=None, extra=[[f"Documents/1/Pages/1.fpage/{n}", page()[i::2]]
                                                 for i, n in enumerate(names)])
    c.append(Case("piece sequence with a gap", 5, r"package error.*piece", lambda w: pieces(["[0].piece", "[2].last.piece"])))
    c.append(Case("pieces without a last piece", 5, r"package error.*piece", lambda w: pieces(["[0].piece", "[1].piece"])))
    c.append(Case("pieces out of order", 5, r"package error.*piece", lambda w: pieces(["[1].last.piece", "[0].piece"])))

    # --- markup the host parses: 5, or 0 when legal ---
    c.append(Case("document listing with unknown elements nested 100,000 deep (ignored, legal)", 0,
                  files=lambda w: job(fdoc=fdoc().replace("</FixedDocument>", nested(100000) + "</FixedDocument>"))))
    c.append(Case("very long attribute value (20 MiB) in the document listing (legal)", 0,
                  files=lambda w: job(fdoc=fdoc().replace('Source="Pages/1.fpage"', 'Source="Pages/1.fpage" Name="' + "A" * (20 << 20) + '"'))))
    c.append(Case("invalid UTF-8 in the sequence", 5, r"package error",
                  lambda w: job(fdseq=fdseq().encode().replace(b"<DocumentReference", b"<Docum\xc3\x28entReference"))))
    undecodable = lambda markup: markup.replace('encoding="UTF-8"', 'encoding="ISO-2022-JP"').encode().replace(
        b' xmlns', b' a="\x1b$B\x98\x98\x98\x98" xmlns', 1)
    c.append(Case("listing in an encoding its bytes do not convert from", 5, r"package error",
                  lambda w: job(fdseq=undecodable(fdseq()))))
    c.append(Case("--ticket: bytes its declared encoding does not convert", 7, r"ticket\.xml: .*well-formed", lambda w: job(),
                  ticket_text=lambda w: undecodable(ticket())))
    c.append(Case("UTF-16 listings with BOM (legal)", 0,
                  files=lambda w: job(fdseq=utf16(fdseq(), True), fdoc=utf16(fdoc(), True))))
    c.append(Case("UTF-16 listings with a declaration, no BOM (legal)", 0,
                  files=lambda w: job(fdoc=utf16(fdoc(), False))))
    c.append(Case("UTF-16 listing, no BOM, no declaration", 5, r"package error",
                  lambda w: job(fdoc=fdoc().replace('<?xml version="1.0" encoding="UTF-8"?>', "").encode("utf-16-le"))))
    c.append(Case("billion laughs in the sequence", 5, r"package error",
                  lambda w: job(fdseq=laughs_in(fdseq(), "FixedDocumentSequence", "<FixedDocumentSequence " + f'xmlns="{XPS}">'))))
    c.append(Case("external entity in the document listing", 5, r"package error",
                  lambda w: job(fdoc=external_entity(fdoc(), "FixedDocument", secret_path, f'<FixedDocument xmlns="{XPS}">'))))
    c.append(Case("DTD naming a network URL in the sequence", 5, r"package error", network=True,
                  files=lambda w: job(fdseq=with_doctype(fdseq(), f'<!DOCTYPE FixedDocumentSequence SYSTEM "{url}/x.dtd">'))))

    # --- tickets in the package and on the command line ---
    job_ticket_root = f'<psf:PrintTicket xmlns:psf="{PSF}" xmlns:psk="{PSK}" version="1">'
    c.append(Case("billion laughs in the job ticket", 5, r"Job_PT\.xml: the PrintTicket is not well-formed",
                  lambda w: job(ticket=laughs_in(ticket(), "psf:PrintTicket", job_ticket_root))))
    c.append(Case("external entity in the job ticket", 5, r"Job_PT\.xml: the PrintTicket is not well-formed",
                  lambda w: job(ticket=external_entity(ticket(), "psf:PrintTicket", secret_path, job_ticket_root))))
    c.append(Case("job ticket of 16 MiB + 1", 9, r"filter error.*stopped the job",
                  lambda w: job(ticket=ticket().replace("</psf:PrintTicket>", "") .ljust((16 << 20) + 1 - len("</psf:PrintTicket>")) + "</psf:PrintTicket>")))
    c.append(Case("--ticket: billion laughs", 7, r"ticket\.xml: .*(well-formed|DOCTYPE)", lambda w: job(),
                  ticket_text=lambda w: laughs_in(ticket(), "psf:PrintTicket", job_ticket_root).encode()))
    c.append(Case("--ticket: external entity naming a local file", 7, r"ticket\.xml: .*DOCTYPE", lambda w: job(),
                  ticket_text=lambda w: external_entity(ticket(), "psf:PrintTicket", secret_path, job_ticket_root).encode()))
    c.append(Case("--ticket: DTD naming a network URL", 7, r"ticket\.xml: .*DOCTYPE", lambda w: job(), network=True,
                  ticket_text=lambda w: with_doctype(ticket(), f'<!DOCTYPE psf:PrintTicket SYSTEM "{url}/t.dtd">').encode()))
    c.append(Case("--ticket: 16 MiB + 1", 7, r"ticket\.xml: .*larger than 16 MiB", lambda w: job(),
                  ticket_text=lambda w: (ticket().replace("</psf:PrintTicket>", "").ljust((16 << 20) + 1 - len("</psf:PrintTicket>")) + "</psf:PrintTicket>").encode()))

    # --- page markup, read by the watermark filter (every page rewritten). A page that does not
    # parse is passed on unchanged (docs/watermarkfilter.md): the job succeeds, the page carries
    # no watermark, and nothing of the entity, the DTD or the file it names was acted on. ---
    page_root = f'<FixedPage xmlns="{XPS}" Width="816" Height="1056">'
    unchanged = dict(watermark=True, watermarked=False)
    c.append(Case("page: nested 100,000 deep", 0, files=lambda w: job(page=page(nested(100000))), **unchanged))
    c.append(Case("page: very long attribute value (20 MiB)", 0,
                  files=lambda w: job(page=page('<Path Data="M 0,0 L ' + "1" * (20 << 20) + '"/>')), **unchanged))
    c.append(Case("page: 1 MiB attribute value (legal)", 0, watermark=True, watermarked=True,
                  files=lambda w: job(page=page('<Path Data="M 0,0 L 1,1" Name="' + "A" * (1 << 20) + '"/>'))))
    c.append(Case("page: invalid UTF-8", 0,
                  files=lambda w: job(page=page().encode().replace(b"<Path", b"<Pa\xff\xfeth")), **unchanged))
    c.append(Case("page: UTF-16 with BOM (legal)", 0, files=lambda w: job(page=utf16(page(), True)),
                  watermark=True, watermarked=True))
    c.append(Case("page: UTF-16, no BOM, no declaration", 0,
                  files=lambda w: job(page=page().replace('<?xml version="1.0" encoding="UTF-8"?>', "").encode("utf-16-le")), **unchanged))
    c.append(Case("page: billion laughs", 0,
                  files=lambda w: job(page=laughs_in(page(), "FixedPage", page_root)), **unchanged))
    c.append(Case("page: external entity naming a local file", 0,
                  files=lambda w: job(page=external_entity(page(), "FixedPage", secret_path, page_root)), **unchanged))
    c.append(Case("page: DTD naming a network URL", 0, network=True,
                  files=lambda w: job(page=with_doctype(page(), f'<!DOCTYPE FixedPage SYSTEM "{url}/p.dtd">')), **unchanged))

    # --- the job file itself, and the output ---
    c.append(Case("IN does not exist", 3, r"input error", None))
    c.append(Case("IN is a folder", 3, r"input error", lambda w: None))
    noise = lambda: random.Random(17).randbytes(2 << 20)
    c.append(Case("disk full on OUT (file size limit of 64 KiB, SIGXFSZ ignored)", 10,
                  r"output error", lambda w: job(extra=[["Resources/noise.png", noise()]]),
                  wrapper=["sh", "-c", 'trap "" XFSZ; ulimit -f 128; exec "$0" "$@"']))
    c.append(Case("OUT in a folder that does not exist", 10, r"cannot write .*does not exist", lambda w: job(),
                  output_name="missing/out.xps"))
    return c


class Listener:
    """A local TCP socket that counts the connections made to it."""

    def __init__(self):
        self.socket = socket.socket()
        self.socket.bind(("127.0.0.1", 0))
        self.socket.listen(8)
        self.socket.settimeout(0.2)
        self.connections = 0
        self.stopped = False
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    @property
    def url(self):
        return f"http://127.0.0.1:{self.socket.getsockname()[1]}"

    def serve(self):
        while not self.stopped:
            try:
                connection, _ = self.socket.accept()
                self.connections += 1
                connection.close()
            except OSError:
                pass


LAUNCHER = r"""
import json, os, subprocess, sys, time
for line in sys.stdin:
    job = json.loads(line)
    started = time.monotonic()
    with open(job["out"], "wb") as out, open(job["err"], "wb") as err:
        process = subprocess.Popen(job["command"], stdout=out, stderr=err, env=job["env"])
        while True:
            pid, status, usage = os.wait4(process.pid, os.WNOHANG)
            if pid != 0:
                code = os.waitstatus_to_exitcode(status)
                break
            if time.monotonic() - started > job["timeout"]:
                process.kill()
                pid, status, usage = os.wait4(process.pid, 0)
                code = None
                break
            time.sleep(0.005)
    process.returncode = 0
    print(json.dumps([code, usage.ru_maxrss, time.monotonic() - started,
                      usage.ru_utime + usage.ru_stime]), flush=True)
"""


class Launcher:
    """Runs the commands from a small process of its own, started before this one builds any
    large input: a child's peak RSS counts the memory of the process it was forked from."""

    def __init__(self):
        self.process = subprocess.Popen([sys.executable, "-c", LAUNCHER], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)

    def run(self, command, env, timeout, folder):
        """(exit code or None when killed, stdout, stderr, peak RSS in KiB, wall seconds,
        CPU seconds)"""
        out, err = os.path.join(folder, "stdout"), os.path.join(folder, "stderr")
        self.process.stdin.write(json.dumps({"command": command, "env": env, "timeout": timeout,
                                             "out": out, "err": err}) + "\n")
        self.process.stdin.flush()
        code, rss, seconds, cpu = json.loads(self.process.stdout.readline())
        with open(out, errors="replace") as o, open(err, errors="replace") as e:
            return code, o.read(), e.read(), rss, seconds, cpu

    def close(self):
        self.process.stdin.close()
        self.process.wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("xpsfilter")
    parser.add_argument("--work")
    parser.add_argument("--sanitized", action="store_true")
    parser.add_argument("--only", nargs="*")
    parser.add_argument("--table", action="store_true")
    args = parser.parse_args()

    launcher = Launcher()
    rss_limit_kib = (1024 if args.sanitized else 256) << 10
    time_limit = 30.0 if args.sanitized else 5.0
    work = args.work or tempfile.mkdtemp(prefix="malformed-")
    os.makedirs(work, exist_ok=True)
    secret_path = os.path.join(work, "secret.txt")
    with open(secret_path, "w") as f:
        f.write(SECRET + "\n")

    # The watermark pipeline's inputs: a ticket naming watermark 12 and the settings file.
    with open(os.path.join(work, "devmode.txt"), "w") as f:
        f.write("[attributes]\n620 = option 12\n")
    watermark_ticket = os.path.join(work, "watermark_ticket.xml")
    subprocess.run([args.xpsfilter, "devmode", "encode", "--as", "page", "-o", watermark_ticket,
                    os.path.join(work, "devmode.txt")], check=True, stderr=subprocess.DEVNULL)
    config = os.path.join(work, "config")
    os.makedirs(os.path.join(config, "PrinterDriver", "Zorun"), exist_ok=True)
    with open(os.path.join(config, "PrinterDriver", "Zorun", "ZrnWmV5.ini"), "w") as f:
        f.write("[12]\nWatermark Type=0\nDENSITY=30\nFontHeight=60\nRed=200\n"
                "FontEscapement=450\nText=CONFIDENTIAL\n")
    env = dict(os.environ, XDG_CONFIG_HOME=config, http_proxy="", https_proxy="")

    listener = Listener()
    failures = []
    rows = []
    selected = [c for c in cases(secret_path, listener.url)
                if not args.only or any(o.lower() in c.name.lower() for o in args.only)]
    for number, case in enumerate(selected, 1):
        folder = os.path.join(work, f"case{number:02d}")
        os.makedirs(folder, exist_ok=True)
        input_path = os.path.join(folder, "in.xps")
        data = case.files(work) if case.files is not None else None
        if isinstance(data, bytes):
            with open(input_path, "wb") as f:
                f.write(data)
        elif case.files is not None:
            os.makedirs(input_path)
        output_folder = os.path.join(folder, "out")
        os.makedirs(output_folder)
        output = os.path.join(output_folder, case.output_name)
        command = case.wrapper + [args.xpsfilter, "run", "-q"] + case.args
        if case.watermark:
            command += ["--pipeline", os.path.join(ROOT, "samples", "pipelines", "watermark.xml"),
                        "--ticket", watermark_ticket]
        if case.ticket_text is not None:
            ticket_path = os.path.join(folder, "ticket.xml")
            with open(ticket_path, "wb") as f:
                f.write(case.ticket_text(work))
            command += ["--ticket", ticket_path]
        command += [input_path, output]
        before = listener.connections
        cpu_limit = time_limit * case.cost
        code, out, err, rss, seconds, cpu = launcher.run(command, env, cpu_limit * 10, folder)

        problems = []
        if code != case.exit_code:
            problems.append(f"exit {code}, expected {case.exit_code}")
        lines = [line for line in err.splitlines() if line.strip()]
        if case.exit_code != 0:
            if len(lines) != 1 or not re.match(r"^xpsfilter: \S", lines[0]):
                problems.append(f"not one error line: {err[:400]!r}")
            elif case.message and not re.search(case.message, lines[0], re.IGNORECASE):
                problems.append(f"message {lines[0][:300]!r} does not match /{case.message}/")
            left = os.listdir(output_folder)
            if left:
                problems.append(f"left behind: {left}")
        elif not os.path.exists(output):
            problems.append("no output written")
        if rss > rss_limit_kib:
            problems.append(f"peak RSS {rss >> 10} MiB")
        if cpu > cpu_limit:
            problems.append(f"{cpu:.1f} s of CPU time")
        leaked = SECRET in out or SECRET in err
        if os.path.exists(output):
            with zipfile.ZipFile(output) as written:
                leaked = leaked or any(SECRET.encode() in written.read(i) for i in written.infolist())
                if case.watermarked is not None:
                    marked = b"CONFIDENTIAL" in written.read("Documents/1/Pages/1.fpage")
                    if marked != case.watermarked:
                        problems.append("the page is " + ("" if marked else "not ") + "watermarked")
        if leaked:
            problems.append("the secret file's contents appear")
        if case.network and listener.connections != before:
            problems.append("a network connection was attempted")

        summary = lines[0] if lines else "(success)"
        rows.append((case.name, code, summary, rss >> 10, cpu))
        status = "ok  " if not problems else "FAIL"
        print(f"{status} {case.name}: exit {code}, {rss >> 10} MiB, {cpu:.2f} s CPU "
              f"({seconds:.2f} s); {summary[:160]}")
        for problem in problems:
            print(f"       {problem}")
        if problems:
            failures.append(case.name)
        shutil.rmtree(folder, ignore_errors=True)
    listener.stopped = True
    launcher.close()

    if args.table:
        print("\n| Case | Exit | Message | Peak RSS (MiB) | CPU s |\n|---|---|---|---|---|")
        for name, code, summary, rss, seconds in rows:
            text = re.sub(r"\S*/case\d+/", "", summary).replace("|", "\\|")
            if len(text) > 120:
                text = text[:117] + "..."
            print(f"| {name} | {code} | {text} | {rss} | {seconds:.2f} |")
    if not args.work:
        shutil.rmtree(work, ignore_errors=True)
    print(f"{len(selected) - len(failures)} of {len(selected)} cases as expected")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
