#!/usr/bin/env python3
"""Builds a large extract by replicating the parcels (or land records) of a real one.

usage: make_replica.py SOURCE.xml TARGET.xml SIZE_MB

The source's first run of <Parcel ...>...</Parcel> (classic KPT) or
<land_record>...</land_record> (new-family KPT) elements is repeated until the file
reaches SIZE_MB; every copy gets cadastral numbers of its own so that numbers stay unique.
"""
import re
import sys


def main():
    source, target, size_mb = sys.argv[1], sys.argv[2], float(sys.argv[3])
    text = open(source, encoding="utf-8-sig").read()
    for open_tag, close_tag, number in (
        ("<Parcels>", "</Parcels>", re.compile(r'(CadastralNumber="\d+:\d+:\d+:)(\d+)(")')),
        ("<land_records>", "</land_records>", re.compile(r"(<cad_number>\d+:\d+:\d+:)(\d+)(</cad_number>)")),
    ):
        start = text.find(open_tag)
        if start >= 0:
            break
    else:
        sys.exit("no parcels or land records in " + source)
    body_start = start + len(open_tag)
    body_end = text.find(close_tag, body_start)
    head, body, tail = text[:body_start], text[body_start:body_end], text[body_end:]
    target_bytes = int(size_mb * 1024 * 1024)
    head_b, tail_b = head.encode(), tail.encode()
    written = len(head_b) + len(tail_b)
    copy = 0
    with open(target, "wb") as out:
        out.write(head_b)
        while written < target_bytes:
            copy += 1
            base = copy * 100000
            chunk = number.sub(lambda m: m.group(1) + str(base + int(m.group(2))) + m.group(3), body).encode()
            out.write(chunk)
            written += len(chunk)
        out.write(tail_b)
    print(f"{target}: {written / 1048576:.1f} MB, {copy} copies")


if __name__ == "__main__":
    main()
