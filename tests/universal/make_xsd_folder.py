#!/usr/bin/env python3
"""A folder of XSD schemas for the real extracts: the shared packages, with what they lack.

The shared XSDSchemes lacks the v11 plan schema and files that KVOKS_v07 and KPOKS_v04 import.
The folder links every shared package; those two are copied, and each file they import that is
missing is taken from another package that has one of its name, else stood in for by an empty
schema of the namespace imported. The v11 plan gets a root-only schema from the fixtures. The
product itself never makes a schema up: this is for the tests.

usage: make_xsd_folder.py SHARED_DATA FIXTURES OUT
"""
import os
import re
import shutil
import sys

INCOMPLETE = ("KVOKS_v07", "KPOKS_v04")


def fill(shared, xsd, package):
    root = os.path.join(xsd, package)
    shutil.copytree(os.path.join(shared, package), root)
    by_name = {}
    for folder, _, files in os.walk(shared):
        for f in files:
            by_name.setdefault(f.lower(), os.path.join(folder, f))
    pending = [os.path.join(folder, f) for folder, _, files in os.walk(root) for f in files if f.endswith(".xsd")]
    while pending:
        schema = pending.pop()
        with open(schema, encoding="utf-8", errors="replace") as text:
            content = text.read()
        for tag in re.findall(r"<xs:(?:import|include)\b[^>]*>", content):
            location = re.search(r'schemaLocation="([^"]+)"', tag)
            if not location:
                continue
            target = os.path.normpath(os.path.join(os.path.dirname(schema), location.group(1)))
            if os.path.exists(target):
                continue
            os.makedirs(os.path.dirname(target), exist_ok=True)
            source = by_name.get(os.path.basename(target).lower())
            if source:
                shutil.copy(source, target)
                pending.append(target)
                continue
            ns = re.search(r'namespace="([^"]+)"', tag)
            with open(target, "w", encoding="utf-8") as standin:
                standin.write('<?xml version="1.0" encoding="utf-8"?>\n'
                              '<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema"%s/>\n'
                              % (' targetNamespace="%s"' % ns.group(1) if ns else ""))


def make(shared_data, fixtures, out):
    schemas = os.path.join(shared_data, "XSDSchemes")
    os.makedirs(out, exist_ok=True)
    for entry in os.listdir(schemas):
        if entry in INCOMPLETE:
            fill(schemas, out, entry)
        else:
            os.symlink(os.path.join(schemas, entry), os.path.join(out, entry))
    os.makedirs(os.path.join(out, "KPT", "KPT_v11"), exist_ok=True)
    shutil.copy(os.path.join(fixtures, "universal", "standin-root-only-kpt11.xsd"),
                os.path.join(out, "KPT", "KPT_v11", "extract_cadastral_plan_territory_v01.xsd"))


if __name__ == "__main__":
    if len(sys.argv) != 4:
        raise SystemExit(__doc__)
    make(*sys.argv[1:4])
