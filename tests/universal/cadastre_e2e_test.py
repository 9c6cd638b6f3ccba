#!/usr/bin/env python3
"""The cadastre conversion against the live import, on the real extracts it recognises.

Each file is converted by tmconvert into SQLite and imported by tmimport (--objects --points
all); both are read back through GDAL. The parcels must agree: numbers, declared areas, whether
each has a geometry, its vertex count and its area. The counts of parcels, buildings, zones and
OMS points and the --info statistic are checked against an independent count of elements by
local name (xml.etree, not our XML layer).

usage: cadastre_e2e_test.py TMCONVERT TMIMPORT SHARED_DATA FIXTURES
"""
import csv
import io
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

TMCONVERT, TMIMPORT, SHARED, FIXTURES = sys.argv[1:5]
failures = []
checks = 0


def check(condition, message):
    global checks
    checks += 1
    if not condition:
        failures.append(message)


def run(args):
    return subprocess.run(args, capture_output=True, text=True)


def read_layer(source, layer=None):
    """The rows of a layer through GDAL, with its geometry as WKT."""
    args = ["ogr2ogr", "-f", "CSV", "/vsistdout/", source, "-lco", "GEOMETRY=AS_WKT"]
    if layer:
        args.append(layer)
    out = run(args)
    if out.returncode != 0:
        raise SystemExit("ogr2ogr failed on %s: %s" % (source, out.stderr))
    return list(csv.DictReader(io.StringIO(out.stdout)))


def rings(wkt):
    """The rings of a (multi)polygon's WKT as lists of (x, y)."""
    found = []
    for ring in re.findall(r"\(([^()]+)\)", wkt or ""):
        found.append([tuple(float(v) for v in p.split()) for p in ring.split(",")])
    return found


def vertices(wkt):
    return sum(len(r) for r in rings(wkt))


def area(wkt):
    """Each polygon's outer ring less its holes, whichever way the rings run."""
    total = 0.0
    for polygon in re.findall(r"\(\(.*?\)\)", wkt or ""):
        parts = rings(polygon)
        if not parts:
            continue
        outer = abs(shoelace(parts[0]))
        holes = sum(abs(shoelace(r)) for r in parts[1:])
        total += outer - holes
    return total


def shoelace(ring):
    s = 0.0
    for (x1, y1), (x2, y2) in zip(ring, ring[1:] + ring[:1]):
        s += x1 * y2 - x2 * y1
    return s / 2


def local(tag):
    return tag.rsplit("}", 1)[-1]


def element_counts(path):
    counts = {}
    for _, e in ET.iterparse(path):
        name = local(e.tag)
        counts[name] = counts.get(name, 0) + 1
        e.clear()
    return counts


def number(text):
    try:
        return float(text)
    except (TypeError, ValueError):
        return None


def compare(path, work, xsd):
    name = os.path.basename(path)
    db = os.path.join(work, "out.sqlite")
    out = run([TMCONVERT, path, "--db", db, "--xsd", xsd, "-q"])
    check(out.returncode == 0, "%s: tmconvert exit %d: %s" % (name, out.returncode, out.stderr))
    mif = os.path.join(work, "mif")
    out = run([TMIMPORT, path, "-o", mif, "--objects", "--points", "all", "-q"])
    check(out.returncode == 0, "%s: tmimport exit %d: %s" % (name, out.returncode, out.stderr))
    counts = element_counts(path)

    live = {r["КадастровыйНомер"]: r for r in read_layer(os.path.join(mif, "Участки.mif"))}
    ours = {r["КадастровыйНомер"]: r for r in read_layer(db, "PARCELS")}
    check(sorted(live) == sorted(ours), "%s: parcel numbers differ: %s" % (name, sorted(set(live) ^ set(ours))[:5]))
    check(len(ours) == counts.get("land_record", 0), "%s: %d parcels, %d land_record" % (name, len(ours), counts.get("land_record", 0)))
    for key in sorted(set(live) & set(ours)):
        a, b = live[key], ours[key]
        check(number(a["Площадь1"]) == number(b["Площадь1"]), "%s %s: area %s vs %s" % (name, key, a["Площадь1"], b["Площадь1"]))
        check(bool(a["WKT"]) == bool(b["WKT"]), "%s %s: geometry in one only" % (name, key))
        if a["WKT"] and b["WKT"]:
            check(vertices(a["WKT"]) == vertices(b["WKT"]),
                  "%s %s: %d vertices vs %d" % (name, key, vertices(a["WKT"]), vertices(b["WKT"])))
            la, lb = area(a["WKT"]), area(b["WKT"])
            check(abs(la - lb) <= 0.001 * max(la, lb), "%s %s: area %.2f vs %.2f" % (name, key, la, lb))

    buildings = sum(counts.get(k, 0) for k in ("build_record", "construction_record", "object_under_construction_record"))
    check(len(read_layer(db, "OBJECTS")) == buildings, "%s: buildings" % name)
    check(len(read_layer(os.path.join(mif, "Объекты.mif"))) == buildings, "%s: live buildings" % name)
    zones = counts.get("zones_and_territories_record", 0)
    check(len(read_layer(db, "ZONES")) == zones, "%s: zones" % name)
    check(len(read_layer(os.path.join(mif, "Зоны.mif"))) == zones, "%s: live zones" % name)
    check(len(read_layer(db, "OMS_POINTS")) == counts.get("oms_point", 0), "%s: OMS points" % name)

    info = run([TMCONVERT, path, "--info", "--xsd", xsd]).stdout
    for label, element in (("ParselCount", "land_record"), ("BuildCount", "build_record"),
                           ("ConstructionCount", "construction_record"),
                           ("Under_ConstructionCount", "object_under_construction_record"),
                           ("Zones_and_territories_recordCount", "zones_and_territories_record"),
                           ("Oms_PointCount", "oms_point")):
        m = re.search(r"\(%s\): (\d+)" % label, info)
        check(m is not None and int(m.group(1)) == counts.get(element, 0),
              "%s: %s %s, %d %s" % (name, label, m.group(1) if m else "missing", counts.get(element, 0), element))


def main():
    data = os.path.join(SHARED, "xml")
    if not os.path.isdir(data):
        if os.environ.get("CI"):
            raise SystemExit("the shared data is missing: " + data)
        print("no shared data at " + data)
        return 0
    work = tempfile.mkdtemp(prefix="tm-cadastre-")
    try:
        xsd = os.path.join(work, "xsd")
        os.makedirs(os.path.join(xsd, "KPT", "KPT_v11"))
        for entry in os.listdir(os.path.join(SHARED, "XSDSchemes")):
            os.symlink(os.path.join(SHARED, "XSDSchemes", entry), os.path.join(xsd, entry))
        shutil.copy(os.path.join(FIXTURES, "universal", "standin-root-only-kpt11.xsd"),
                    os.path.join(xsd, "KPT", "KPT_v11", "extract_cadastral_plan_territory_v01.xsd"))
        files = 0
        for folder in sorted(os.listdir(data)):
            for f in sorted(os.listdir(os.path.join(data, folder))):
                path = os.path.join(data, folder, f)
                with open(path, "rb") as head:
                    if b"extract_cadastral_plan_territory" not in head.read(4096):
                        continue
                files += 1
                one = os.path.join(work, str(files))
                os.makedirs(one)
                compare(path, one, xsd)
        check(files >= 2, "only %d plans of version 11 found" % files)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    for f in failures[:40]:
        print("FAIL: " + f)
    print("%d checks, %d failed" % (checks, len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
