#!/usr/bin/env python3
"""The hand-over to each host, end to end under Xvfb: a host process presses the console's
button, and the tables of a real extract become TAB tables through the host's own means (the
axipy stand-in for Axioma, the automation stand-in for MapInfo), or stay MIF/MID in the
temporary folder for QGIS.

usage: handover_e2e_test.py BIN_DIR STAND_INS_DIR EXTRACT.xml
"""
import os
import re
import shutil
import sys
import tempfile

from checks import check, finish
from xhost import TABLES, Display, ogrinfo, require_screen, run_host

bin_dir, stand_ins, extract = sys.argv[1], sys.argv[2], sys.argv[3]
require_screen()
if not shutil.which("ogrinfo"):
    check("ogrinfo present", False)
    finish()

EARTH = 'CoordSys Earth Projection 8, 1001, "m", 39, 0, 1, 7500000, 0'
block = re.search(r'CadastralNumber="(\d+:\d+:\d+)"', open(extract, encoding="utf-8", errors="replace").read(200000))
block = block.group(1).replace(":", "_") if block else ""


def prepare(tmp, out, proj=EARTH):
    for d in ("tmp", "docs"):
        os.makedirs(os.path.join(tmp, d), exist_ok=True)
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(tmp, "tmp", "Импорт64.ini"), "w", encoding="utf-8") as f:
        f.write(f"[Import]\nXMLText={extract}\nMiText={out}\nProjText={proj}\nchkObj=1\n")


def features(summary):
    m = re.search(r"Feature Count: (\d+)", summary or "")
    return int(m.group(1)) if m else -1


def check_tabs(label, out, central_meridian=True):
    with_objects = 0
    for t in TABLES:
        tab = os.path.join(out, f"{t}_{block}.tab")
        summary = ogrinfo(tab)
        check(f"{label}: {t} TAB opens", summary is not None, tab)
        if summary is None:
            continue
        check(f"{label}: {t} rows as in the MIF", features(summary) == features(ogrinfo(os.path.join(out, t + ".mif"))))
        # GDAL keeps a coordinate system only for a table with objects.
        if central_meridian and features(summary) > 0 and "Geometry: None" not in summary:
            with_objects += 1
            check(f"{label}: {t} in the chosen system", '"Longitude of natural origin",39' in summary, summary[:600])
        check(f"{label}: {t} MIF and MID stay", os.path.exists(os.path.join(out, t + ".mif")) and
              os.path.exists(os.path.join(out, t + ".mid")))
    check(f"{label}: tables with objects to look at", with_objects >= 2, with_objects)


with Display() as screen:
    tmp = tempfile.mkdtemp()
    try:
        # Axioma: the generated script runs in the host's interpreter against axipy.
        # The folder's ".mif" is replaced as well: the TAB files land in a folder of that name,
        # which the operator has made.
        out = os.path.join(tmp, "Выход .mif папка") + "/"
        tab_folder = os.path.join(tmp, f"Выход _{block}.tab папка") + "/"
        os.makedirs(tab_folder)
        prepare(tmp, out)
        seen, r = run_host(screen.name, bin_dir, stand_ins, tmp, {"TM_PRESS": "OKBtn,CloseBtn"})
        check("axioma: returns 0", seen.get("results") == [0], r.stdout + r.stderr)
        check("axioma: success message only", seen.get("messages") == ["Импорт успешно завершен."], r.stdout)
        converted = seen.get("converted", [])
        check("axioma: thirteen conversions", len(converted) == 13, converted)
        check("axioma: the form's clause goes to every TAB", all(c[2] == EARTH for c in converted), converted[:1])
        check("axioma: every .mif of the path replaced", all(c[1].startswith(tab_folder) for c in converted), converted[:1])
        for t in TABLES:  # the MIF beside the TAB, to compare their rows
            for ext in (".mif", ".mid"):
                shutil.copy(os.path.join(out, t + ext), tab_folder)
        check_tabs("axioma", tab_folder)

        # A quote in the output folder breaks the script: a message, the console stays, no hang.
        shutil.rmtree(tmp)
        quoted = os.path.join(tmp, 'say "hi"') + "/"
        prepare(tmp, quoted)
        seen, r = run_host(screen.name, bin_dir, stand_ins, tmp, {"TM_PRESS": "OKBtn,CloseBtn"})
        messages = seen.get("messages", [])
        check("quote: a Python error shown", len(messages) == 1 and messages[0].startswith("SyntaxError"), r.stdout + r.stderr)
        check("quote: console stayed for another try", seen.get("presses") == ["OKBtn", "CloseBtn"], r.stdout)
        check("quote: MIF files written", os.path.exists(os.path.join(quoted, "Участки.mif")))

        # MapInfo: the commands go through the automation object the host handed over.
        shutil.rmtree(tmp)
        out = os.path.join(tmp, "out") + "/"
        prepare(tmp, out)
        seen, r = run_host(screen.name, os.path.join(bin_dir, "editions", "mapinfo"), stand_ins, tmp,
                           {"TM_PRESS": "OKBtn", "TM_EDITION": "mapinfo"})
        check("mapinfo: returns 0", seen.get("results") == [0], r.stdout + r.stderr)
        check("mapinfo: owned by MapInfo's window", seen.get("owner") is True, r.stdout)
        expected = [["Do", "Set ProgressBars Off"], ["Do", "Close All Interactive"]] + [
            ["Do", f'Import "{out}{t}.mif" Type "MIF" Into "{out}{t}_{block}.tab" Overwrite'] for t in TABLES]
        check("mapinfo: command sequence", seen.get("mapinfo") == expected, seen.get("mapinfo"))
        check_tabs("mapinfo", out)

        # A failing command raises into the console: its message, the console stays.
        seen, r = run_host(screen.name, os.path.join(bin_dir, "editions", "mapinfo"), stand_ins, tmp,
                           {"TM_PRESS": "OKBtn,CloseBtn", "TM_EDITION": "mapinfo", "TM_MAPINFO_FAIL": "Зоны"})
        check("mapinfo failing: message", any("MapInfo: cannot run Import" in m for m in seen.get("messages", [])), r.stdout)
        check("mapinfo failing: stopped at the failure", len(seen.get("mapinfo", [])) == 2 + TABLES.index("Зоны") + 1,
              seen.get("mapinfo"))

        # QGIS: nothing is handed over; the tables are MIF/MID in the temporary folder, in the
        # fixed clause, and the list names them there.
        shutil.rmtree(tmp)
        out = os.path.join(tmp, "out") + "/"
        prepare(tmp, out)
        seen, r = run_host(screen.name, os.path.join(bin_dir, "editions", "qgis"), stand_ins, tmp,
                           {"TM_PRESS": "OKBtn", "TM_EDITION": "qgis"})
        check("qgis: returns 0", seen.get("results") == [0], r.stdout + r.stderr)
        check("qgis: owned by QGIS's window", seen.get("owner") is True, r.stdout)
        check("qgis: nothing converted", not seen.get("converted") and not any(
            f.endswith(".tab") for _, _, files in os.walk(tmp) for f in files))
        temp = os.path.join(tmp, "tmp") + "/"
        listed = open(os.path.join(tmp, "docs", "tmMiniImportRes.ini"), encoding="utf-8").read().split("\n")
        check("qgis: the list names the temporary folder", [x for x in listed if x] == [temp + t for t in TABLES], listed)
        header = open(temp + "Участки.mif", encoding="cp1251").read(2000)
        check("qgis: fixed clause", 'CoordSys NonEarth Units "m" Bounds (-10000000,-10000000) (10000000,10000000)' in header,
              header)
        check("qgis: output folder untouched", os.listdir(out) == [])
    finally:
        shutil.rmtree(tmp, ignore_errors=True)

finish()
