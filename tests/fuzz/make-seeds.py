#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into corpus/<target>/. The table files follow
the grid's file form 2 (see src/grid/gridfile.h); the archives hold such files the way a backup
writes them. Run again after the form changes."""
import os, struct, zipfile, zlib, io

here = os.path.dirname(os.path.abspath(__file__))

def leb(n):
    out = bytearray()
    while True:
        b = n & 0x7F
        n >>= 7
        out.append(b | (0x80 if n else 0))
        if not n:
            return bytes(out)

def grid(rows, fixed_rows=1, fixed_cols=0):
    cols = len(rows[0]) if rows else 0
    body = bytearray(b"TABULON-GRID 2\n")
    body += struct.pack("<III", fixed_rows, fixed_cols, cols)
    for row in rows:
        body.append(1)
        for cell in row:
            data = cell.encode("utf-8")
            body += leb(len(data)) + data
    body.append(0)
    body += struct.pack("<I", len(rows))
    body += b"END\n"
    body += struct.pack("<I", zlib.crc32(bytes(body)) & 0xFFFFFFFF)
    return bytes(body)

def write(target, name, data):
    folder = os.path.join(here, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)

def archive(entries):
    buf = io.BytesIO()
    with zipfile.ZipFile(buf, "w", zipfile.ZIP_DEFLATED) as z:
        for name, data in entries:
            z.writestr(name, data)
    return buf.getvalue()

clients = grid([["code_no", "name", "city"], ["C00001", "O'Brien", "Oslo"],
                ["C00002", "", "line\nbreak, \"quoted\""], ["C00003", "Zoë Ødegård", "\\"]])
empty = grid([["id"]])
wide = grid([["a" * 200, "b"], ["x" * 300, ""]], fixed_rows=1, fixed_cols=1)
write("fuzz_gridfile", "clients", clients)
write("fuzz_gridfile", "header-only", empty)
write("fuzz_gridfile", "long-cells", wide)
write("fuzz_gridfile", "cut-short", clients[:40])

write("fuzz_archive", "one-table", archive([("main_info1", clients)]))
write("fuzz_archive", "two-tables", archive([("main_info1", clients), ("owner1", empty)]))
write("fuzz_archive", "bad-name", archive([("../main_info1", clients)]))
write("fuzz_archive", "bad-table", archive([("bill", clients[:-3])]))

write("fuzz_scriptsplit", "tables", (
    "-- Orvita's tables\nCreate Table main_info1 (code_no varchar(10), name text);\n"
    "# it's a comment\nInsert into t values ('a;b', \"c'd\", `e;f`);\n"
    "/* multi\n line; it's */ Create Table owner1 (code varchar(10));\n").encode())
write("fuzz_scriptsplit", "quotes", b"select 'it''s'; select \"a\\\"b\"; select `x``y`;;")
write("fuzz_scriptsplit", "dashes", b"select 1--;----\n-- x\n--\x01;select 2 --")

# The target picks the type code by its index in its own table of codes.
types = [2, 3, 4, 5, 6, 7, 11, 16, 17, 72, 128, 129, 130, 131, 133, 135, 200, 201, 202, 203, 204, 205]
for i, (t, text) in enumerate([(130, "Order Details"), (7, "12/31/1999 10:15:00"),
                               (11, "True"), (3, ""), (202, "O'Brien\\"), (201, "(Name)-Key")]):
    write("fuzz_conversionrules", "rule%d" % i, bytes([types.index(t)]) + text.encode())

# Access reader: patches over the sample file (5 bytes each: offset, byte); empty = the file itself.
write("fuzz_accessfile", "unpatched", b"")
write("fuzz_accessfile", "page-header", struct.pack("<IB", 0x1000, 0x02) + struct.pack("<IB", 0x1008, 0xFF))
write("fuzz_accessfile", "cut", struct.pack("<IB", 0x80000000 | 0x3000, 0))
