#!/usr/bin/env python3
"""Writes samples/sample_job.xps: a three-page XPS job of our own making, with PrintTickets at
job (fixed document sequence), document and page level, a colour image shared by two pages and
vector drawing on every page. Deterministic: running it again gives the same bytes."""
import struct
import sys
import zipfile
import zlib

XPS = "http://schemas.microsoft.com/xps/2005/06"
RELS = "http://schemas.openxmlformats.org/package/2006/relationships"
PT_REL = XPS + "/printticket"
RES_REL = XPS + "/required-resource"
PSF = "http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework"
PSK = "http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords"


def png(width, height):
    """A small RGB gradient PNG, written by hand (zlib + CRCs)."""
    rows = b""
    for y in range(height):
        rows += b"\x00" + b"".join(
            bytes((x * 255 // (width - 1), y * 255 // (height - 1), 160)) for x in range(width))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(
            ">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
            chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


def rels(*targets):
    body = "".join(f'<Relationship Id="R{i}" Type="{t}" Target="{target}"/>'
                   for i, (t, target) in enumerate(targets))
    return f'<?xml version="1.0" encoding="UTF-8"?><Relationships xmlns="{RELS}">{body}</Relationships>'


def ticket(comment, features):
    body = "".join(f'<psf:Feature name="psk:{name}"><psf:Option name="psk:{option}"/></psf:Feature>'
                   for name, option in features)
    return (f'<?xml version="1.0" encoding="UTF-8"?>\n<!-- {comment} -->\n'
            f'<psf:PrintTicket xmlns:psf="{PSF}" xmlns:psk="{PSK}" version="1">{body}'
            '</psf:PrintTicket>')


def page(number, shapes):
    return (f'<?xml version="1.0" encoding="UTF-8"?>\n<FixedPage xmlns="{XPS}" Width="816" '
            f'Height="1056" xml:lang="en-US"><Path Data="M 48,48 L 768,48 768,1008 48,1008 Z" '
            f'Stroke="#FF202060" StrokeThickness="4"/>{shapes}</FixedPage>')


IMAGE = '<Path Data="M 96,96 L 416,96 416,336 96,336 Z"><Path.Fill><ImageBrush ' \
    'ImageSource="../../../Resources/Images/gradient.png" Viewbox="0,0,64,48" ' \
    'ViewboxUnits="Absolute" Viewport="96,96,320,240" ViewportUnits="Absolute"/></Path.Fill></Path>'


def main(path):
    pages = {
        1: page(1, IMAGE + '<Path Data="M 480,120 L 720,120 600,320 Z" Fill="#FFD04030"/>'),
        2: page(2, '<Path Data="M 408,300 A 200,200 0 1 1 407,300 Z" Fill="#FF3070C0" '
                   'Stroke="#FF000000" StrokeThickness="6"/>'),
        3: page(3, IMAGE + '<Canvas RenderTransform="1,0,0,1,0,400"><Path Data="M 96,96 '
                   'L 720,96 720,160 96,160 Z" Fill="#FF40A040"/></Canvas>'),
    }
    parts = [
        ("[Content_Types].xml",
         '<?xml version="1.0" encoding="UTF-8"?><Types xmlns="http://schemas.openxmlformats.org/'
         'package/2006/content-types"><Default Extension="rels" ContentType="application/'
         'vnd.openxmlformats-package.relationships+xml"/><Default Extension="fdseq" ContentType='
         '"application/vnd.ms-package.xps-fixeddocumentsequence+xml"/><Default Extension="fdoc" '
         'ContentType="application/vnd.ms-package.xps-fixeddocument+xml"/><Default Extension='
         '"fpage" ContentType="application/vnd.ms-package.xps-fixedpage+xml"/><Default Extension='
         '"png" ContentType="image/png"/><Default Extension="xml" ContentType="application/'
         'vnd.ms-printing.printticket+xml"/></Types>'),
        ("_rels/.rels", rels((XPS + "/fixedrepresentation", "/FixedDocumentSequence.fdseq"))),
        ("FixedDocumentSequence.fdseq",
         f'<FixedDocumentSequence xmlns="{XPS}"><DocumentReference '
         'Source="/Documents/1/FixedDocument.fdoc"/></FixedDocumentSequence>'),
        ("_rels/FixedDocumentSequence.fdseq.rels", rels((PT_REL, "/Metadata/Job_PT.xml"))),
        ("Metadata/Job_PT.xml", ticket("job", [("JobDuplexAllDocumentsContiguously", "OneSided")])),
        ("Documents/1/FixedDocument.fdoc",
         f'<FixedDocument xmlns="{XPS}">' + "".join(
             f'<PageContent Source="Pages/{n}.fpage" Width="816" Height="1056"/>' for n in pages)
         + '</FixedDocument>'),
        ("Documents/1/_rels/FixedDocument.fdoc.rels", rels((PT_REL, "Metadata/Document_PT.xml"))),
        ("Documents/1/Metadata/Document_PT.xml", ticket("document", [("PageOrientation", "Portrait")])),
        ("Documents/1/Metadata/Page_PT.xml", ticket("pages 1 and 3", [("PageOutputColor", "Color")])),
        ("Documents/1/Metadata/Page2_PT.xml",
         ticket("page 2", [("PageOutputColor", "Monochrome"), ("PageOrientation", "Landscape")])),
        ("Resources/Images/gradient.png", png(64, 48)),
    ]
    for n, markup in pages.items():
        parts.append((f"Documents/1/Pages/{n}.fpage", markup))
        own_ticket = "../Metadata/Page2_PT.xml" if n == 2 else "../Metadata/Page_PT.xml"
        targets = [(PT_REL, own_ticket)]
        if n != 2:
            targets.append((RES_REL, "/Resources/Images/gradient.png"))
        parts.append((f"Documents/1/Pages/_rels/{n}.fpage.rels", rels(*targets)))
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as job:
        for name, content in parts:
            info = zipfile.ZipInfo(name, date_time=(2024, 1, 1, 0, 0, 0))
            info.compress_type = zipfile.ZIP_STORED if name.endswith(".png") else zipfile.ZIP_DEFLATED
            job.writestr(info, content)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "sample_job.xps")
