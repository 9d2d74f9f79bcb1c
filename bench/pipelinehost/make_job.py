#!/usr/bin/env python3
"""Makes the benchmark's XPS jobs: PostScript written here -> PDF (ps2pdf) -> XPS (Ghostscript's
xpswrite device), then a PrintTicket added to every page (and the job and document), as a
spooled job has them.

Ghostscript's xpswrite device slows down as a job grows (1,000 pages take minutes), so jobs of
more than --distinct pages (default 200) are made from that many rendered pages, repeated: every
page of the job is its own part (and gets its own ticket), its markup and resources those of a
rendered page.

usage: make_job.py PAGES OUT.xps [--images] [--lines N] [--distinct N]"""
import os
import subprocess
import sys
import tempfile
import zipfile

PT_REL = "http://schemas.microsoft.com/xps/2005/06/printticket"
RELS_NS = "http://schemas.openxmlformats.org/package/2006/relationships"
PSF = "http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework"
PSK = "http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords"


def postscript(pages, images, text_lines):
    lines = ["%!PS-Adobe-3.0", "/Helvetica findfont 14 scalefont setfont"]
    for n in range(1, pages + 1):
        lines.append(f"gsave 0.{n % 9} 0.4 0.6 setrgbcolor 72 {600 - (n % 7) * 40} 200 120 rectfill grestore")
        for row in range(text_lines):
            lines.append(f"72 {760 - row * 20} moveto (Page {n} line {row}: the quick brown fox "
                         "jumps over the lazy dog 0123456789) show")
        if images:
            # A 64x64 RGB image, different on every page, as hex data.
            data = bytes(((x * 4 + n * 7) % 256, (y * 4 + n * 13) % 256, (x * y + n) % 256)[c]
                         for y in range(64) for x in range(64) for c in range(3))
            lines.append("gsave 300 80 translate 200 200 scale 64 64 8 [64 0 0 64 0 0] "
                         f"{{<{data.hex()}>}} false 3 colorimage grestore")
        lines.append("showpage")
    return "\n".join(lines) + "\n"


def ticket(comment):
    return (f'<?xml version="1.0" encoding="UTF-8"?><!-- {comment} --><psf:PrintTicket '
            f'xmlns:psf="{PSF}" xmlns:psk="{PSK}" version="1"><psf:Feature '
            'name="psk:PageOutputColor"><psf:Option name="psk:Color"/></psf:Feature>'
            '</psf:PrintTicket>')


def repeat_pages(source, target, pages):
    """Writes `source` with its fixed document's pages repeated, in order, up to `pages` pages;
    each repetition is a new page part with a copy of the original's markup and relationships."""
    with zipfile.ZipFile(source) as src, zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED) as dst:
        names = src.namelist()
        fdoc = [n for n in names if n.endswith(".fdoc")][0]
        folder = os.path.dirname(fdoc)
        rendered = sum(1 for n in names if n.startswith(folder + "/Pages/") and n.endswith(".fpage"))
        for name in names:
            if name != fdoc:
                dst.writestr(name, src.read(name))
        entries = []
        for n in range(1, pages + 1):
            original = (n - 1) % rendered + 1
            entries.append(f'<PageContent Source="Pages/{n}.fpage" />')
            if n <= rendered:
                continue
            dst.writestr(f"{folder}/Pages/{n}.fpage", src.read(f"{folder}/Pages/{original}.fpage"))
            rels = f"{folder}/Pages/_rels/{original}.fpage.rels"
            if rels in names:
                dst.writestr(f"{folder}/Pages/_rels/{n}.fpage.rels", src.read(rels))
        dst.writestr(fdoc, '<?xml version="1.0" encoding="utf-8"?><FixedDocument xmlns='
                     '"http://schemas.microsoft.com/xps/2005/06">' + "".join(entries) +
                     "</FixedDocument>")


def add_tickets(source, target):
    with zipfile.ZipFile(source) as src, zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED) as dst:
        names = src.namelist()
        pages = [n for n in names if n.endswith(".fpage")]
        existing_rels = set(n for n in names if n.endswith(".rels"))
        extra = {}
        def add_rel(part, target_name):
            folder, base = os.path.split(part)
            rels = f"{folder}/_rels/{base}.rels" if folder else f"_rels/{base}.rels"
            entry = f'<Relationship Id="PT" Type="{PT_REL}" Target="/{target_name}"/>'
            if rels in existing_rels:
                xml = src.read(rels).decode("utf-8-sig")
                extra[rels] = xml.replace("</Relationships>", entry + "</Relationships>")
            else:
                extra[rels] = f'<Relationships xmlns="{RELS_NS}">{entry}</Relationships>'
        for page in pages:
            ticket_name = page.replace("/Pages/", "/Metadata/").replace(".fpage", "_PT.xml")
            extra[ticket_name] = ticket(page)
            add_rel(page, ticket_name)
        fdseq = [n for n in names if n.endswith(".fdseq")][0]
        extra["Metadata/Job_PT.xml"] = ticket("job")
        add_rel(fdseq, "Metadata/Job_PT.xml")
        for name in names:
            data = src.read(name)
            if name == "[Content_Types].xml":
                data = data.decode("utf-8-sig").replace(
                    "</Types>", '<Override PartName="/Metadata/Job_PT.xml" ContentType="application/'
                    'vnd.ms-printing.printticket+xml"/>' + "".join(
                        f'<Override PartName="/{n}" ContentType="application/vnd.ms-printing.'
                        'printticket+xml"/>' for n in extra if n.endswith("_PT.xml") and
                        n != "Metadata/Job_PT.xml") + "</Types>")
            if name in extra:
                data = extra.pop(name)
            dst.writestr(name, data)
        for name, data in extra.items():
            dst.writestr(name, data)


def main():
    pages = int(sys.argv[1])
    out = sys.argv[2]
    images = "--images" in sys.argv
    text_lines = int(sys.argv[sys.argv.index("--lines") + 1]) if "--lines" in sys.argv else 30
    distinct = int(sys.argv[sys.argv.index("--distinct") + 1]) if "--distinct" in sys.argv else 200
    with tempfile.TemporaryDirectory() as tmp:
        ps = os.path.join(tmp, "job.ps")
        pdf = os.path.join(tmp, "job.pdf")
        xps = os.path.join(tmp, "job.xps")
        with open(ps, "w") as f:
            f.write(postscript(min(pages, distinct), images, text_lines))
        subprocess.run(["ps2pdf", ps, pdf], check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["gs", "-q", "-dBATCH", "-dNOPAUSE", "-dSAFER", "-sDEVICE=xpswrite",
                        f"-sOutputFile={xps}", pdf], check=True)
        if pages > distinct:
            repeated = os.path.join(tmp, "repeated.xps")
            repeat_pages(xps, repeated, pages)
            xps = repeated
        add_tickets(xps, out)


if __name__ == "__main__":
    main()
