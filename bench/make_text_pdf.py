#!/usr/bin/env python3
"""Writes a PDF of A4 pages of text for the PDF memory and time figures in BENCHMARKS.md:

    make_text_pdf.py PAGES OUT.pdf

Each page holds a data page's worth of invented personal data in Helvetica (no embedded font), the
same on every page but its page number, so that every page costs the same work.
"""

import sys

LINES = [
    (60, 780, 18, "SPECIMEN IDENTITY CARD"),
    (60, 740, 12, "Surname / Nom: MUSTERMANN"),
    (60, 715, 12, "Given names / Prenoms: ERIKA MARIA"),
    (60, 690, 12, "Date of birth: 12.08.1983   Place of birth: BERLIN"),
    (60, 665, 12, "Document no: T22000129   Expiry: 31.10.2031"),
    (60, 640, 12, "Address: HEIDESTRASSE 17, 51147 KOELN"),
    (60, 615, 12, "Phone: +49 221 555 0100   E-mail: erika.mustermann@example.org"),
]


def page_stream(number):
    parts = ["BT"]
    for x, y, size, text in LINES + [(60, 60, 10, f"Page {number}")]:
        escaped = text.replace("\\", "\\\\").replace("(", "\\(").replace(")", "\\)")
        parts.append(f"/F1 {size} Tf 1 0 0 1 {x} {y} Tm ({escaped}) Tj")
    parts.append("ET")
    return "\n".join(parts).encode("latin-1")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    pages = int(sys.argv[1])
    objects = [b"<< /Type /Catalog /Pages 2 0 R >>", None,
               b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"]
    kids = []
    for number in range(1, pages + 1):
        stream = page_stream(number)
        objects.append(b"<< /Length %d >>\nstream\n" % len(stream) + stream + b"\nendstream")
        content = len(objects)
        objects.append(b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] "
                       b"/Resources << /Font << /F1 3 0 R >> >> /Contents %d 0 R >>" % content)
        kids.append(len(objects))
    objects[1] = b"<< /Type /Pages /Kids [%s] /Count %d >>" % (
        b" ".join(b"%d 0 R" % k for k in kids), pages)
    out = bytearray(b"%PDF-1.4\n")
    offsets = []
    for index, body in enumerate(objects, start=1):
        offsets.append(len(out))
        out += b"%d 0 obj\n" % index + body + b"\nendobj\n"
    xref = len(out)
    out += b"xref\n0 %d\n0000000000 65535 f \n" % (len(objects) + 1)
    for offset in offsets:
        out += b"%010d 00000 n \n" % offset
    out += b"trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n" % (len(objects) + 1, xref)
    with open(sys.argv[2], "wb") as f:
        f.write(out)


if __name__ == "__main__":
    main()
