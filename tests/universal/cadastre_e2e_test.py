#!/usr/bin/env python3
"""The cadastre conversion against the live import, on every real extract.

Each file is converted by tmconvert into SQLite and imported by tmimport (--objects --points
all); both are read back through GDAL. The parcels must agree: numbers, declared areas, whether
each has a geometry, its vertex count and its area. The counts of parcels, buildings, zones and
OMS points, the rights rows and the --info statistic are checked against an independent count
of elements by local name (xml.etree, not our XML layer). Building extracts, from which the
live import takes nothing, are checked against that count alone.

The XSD folder is the shared one with what it lacks filled in (make_xsd_folder.py).

usage: cadastre_e2e_test.py TMCONVERT TMIMPORT SHARED_DATA FIXTURES
"""
import csv
import io
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

import make_xsd_folder

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


# The records of the classic family: element, the parents it is a record under, its kind.
CLASSIC = [
    (("Parcel", "ExistParcel", "NewParcel"), ("Parcels", "KPZU"), "parcel"),
    (("Building",), ("ObjectRealty", "Realty"), "building"),
    (("Construction",), ("ObjectRealty", "Realty"), "construction"),
    (("Uncompleted",), ("ObjectRealty", "Realty"), "uncompleted"),
    (("Flat",), ("Realty",), "flat"),
    (("Object",), ("KVOKS", "KPOKS"), "object"),
    (("Zone",), ("Zones",), "zone"),
    (("OMSPoint",), ("OMSPoints",), "oms"),
]
NEW = {"land_record": "parcel", "build_record": "building", "construction_record": "construction",
       "object_under_construction_record": "uncompleted", "zones_and_territories_record": "zone", "oms_point": "oms"}


def element_counts(path):
    """Records by kind, and every element by its local name."""
    names, kinds = {}, {}
    stack = []
    for event, e in ET.iterparse(path, events=("start", "end")):
        name = local(e.tag)
        if event == "start":
            parent = stack[-1] if stack else None
            stack.append(name)
            names[name] = names.get(name, 0) + 1
            kind = NEW.get(name)
            for elements, parents, k in CLASSIC:
                if name in elements and parent in parents:
                    kind = k
            if kind:
                kinds[kind] = kinds.get(kind, 0) + 1
        else:
            stack.pop()
            if len(stack) > 1:
                e.clear()
    return names, kinds


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
    names, kinds = element_counts(path)
    building_extract = "KVOKS" in names or "KPOKS" in names

    ours = {r["КадастровыйНомер"]: r for r in read_layer(db, "PARCELS")}
    check(len(ours) == kinds.get("parcel", 0), "%s: %d parcels, %d records" % (name, len(ours), kinds.get("parcel", 0)))
    objects = read_layer(db, "OBJECTS")
    buildings = sum(kinds.get(k, 0) for k in ("building", "construction", "uncompleted", "flat", "object"))
    check(len(objects) == buildings, "%s: %d buildings, %d records" % (name, len(objects), buildings))
    check(len(read_layer(db, "ZONES")) == kinds.get("zone", 0), "%s: zones" % name)
    check(len(read_layer(db, "OMS_POINTS")) == kinds.get("oms", 0), "%s: OMS points" % name)
    rights = read_layer(db, "OBJECT_RIGHTS")
    check(len(rights) == names.get("Right", 0), "%s: %d rights, %d Right" % (name, len(rights), names.get("Right", 0)))
    with sqlite3.connect(db) as connection:
        orphans = connection.execute('SELECT COUNT(*) FROM OBJECT_RIGHTS WHERE PARENT_ID NOT IN '
                                     '(SELECT ID FROM PARCELS UNION SELECT ID FROM OBJECTS)').fetchone()[0]
    check(orphans == 0, "%s: %d rights without their object" % (name, orphans))

    info = run([TMCONVERT, path, "--info", "--xsd", xsd]).stdout
    for label, kind in (("ParselCount", "parcel"), ("BuildCount", "building"), ("ConstructionCount", "construction"),
                        ("Under_ConstructionCount", "uncompleted"), ("Zones_and_territories_recordCount", "zone"),
                        ("Oms_PointCount", "oms")):
        m = re.search(r"\(%s\): (\d+)" % label, info)
        check(m is not None and int(m.group(1)) == kinds.get(kind, 0),
              "%s: %s %s, %d records" % (name, label, m.group(1) if m else "missing", kinds.get(kind, 0)))
    m = re.search(r"\(RIGHT_COUNT\): (\d+)", info)
    check((int(m.group(1)) if m else 0) == names.get("Right", 0) + names.get("right_record", 0), "%s: RIGHT_COUNT" % name)
    if building_extract:
        return

    mif = os.path.join(work, "mif")
    out = run([TMIMPORT, path, "-o", mif, "--objects", "--points", "all", "-q"])
    check(out.returncode == 0, "%s: tmimport exit %d: %s" % (name, out.returncode, out.stderr))
    # The live table adds a row for each land unit's entries: those are not records here.
    classic = "extract_cadastral_plan_territory" not in names
    live = {r["КадастровыйНомер"]: r for r in read_layer(os.path.join(mif, "Участки.mif"))
            if not classic or r["Вид"] != "Обособленный участок"}
    check(sorted(live) == sorted(ours), "%s: parcel numbers differ: %s" % (name, sorted(set(live) ^ set(ours))[:5]))
    for key in sorted(set(live) & set(ours)):
        a, b = live[key], ours[key]
        check(number(a["Площадь1"]) == number(b["Площадь1"]), "%s %s: area %s vs %s" % (name, key, a["Площадь1"], b["Площадь1"]))
        check(bool(a["WKT"]) == bool(b["WKT"]), "%s %s: geometry in one only" % (name, key))
        if a["WKT"] and b["WKT"]:
            check(vertices(a["WKT"]) == vertices(b["WKT"]),
                  "%s %s: %d vertices vs %d" % (name, key, vertices(a["WKT"]), vertices(b["WKT"])))
            la, lb = area(a["WKT"]), area(b["WKT"])
            check(abs(la - lb) <= 0.001 * max(la, lb), "%s %s: area %.2f vs %.2f" % (name, key, la, lb))
    # The live classic import writes an object's row again after each of its children: its
    # numbers, not its rows, are the buildings.
    live_objects = {r["КадастровыйНомер"] for r in read_layer(os.path.join(mif, "Объекты.mif"))}
    check(live_objects == {r["КадастровыйНомер"] for r in objects}, "%s: live buildings differ" % name)
    check(len(read_layer(os.path.join(mif, "Зоны.mif"))) == kinds.get("zone", 0), "%s: live zones" % name)


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
        make_xsd_folder.make(SHARED, FIXTURES, xsd)
        files = 0
        for folder in sorted(os.listdir(data)):
            for f in sorted(os.listdir(os.path.join(data, folder))):
                path = os.path.join(data, folder, f)
                files += 1
                one = os.path.join(work, str(files))
                os.makedirs(one)
                compare(path, one, xsd)
        check(files >= 26, "only %d extracts found" % files)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    for f in failures[:40]:
        print("FAIL: " + f)
    print("%d checks, %d failed" % (checks, len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
