#!/usr/bin/env python3
"""The console from the host's Python, end to end: a host process (host_driver.py) owns a Qt
application and a main window, calls tmMiniImportLib.ShowImportForm() and presses the
console's buttons as an operator would, under Xvfb.

usage: console_e2e_test.py MODULE_DIR STAND_INS_DIR EXTRACT.xml
Prints 'N passed, N failed' and exits non-zero on a failure.
"""
import os
import shutil
import sys
import tempfile

from checks import check, finish
from xhost import TABLES, Display, ogrinfo, require_screen, run_host

module_dir, stand_ins, extract = sys.argv[1], sys.argv[2], sys.argv[3]
require_screen()
tmp = tempfile.mkdtemp()
display = None


def host(env_extra, with_axipy=True):
    return run_host(display, module_dir, stand_ins, tmp, env_extra, with_stand_ins=with_axipy)


with Display() as screen:
    display = screen.name
    for d in ("tmp", "docs", "out"):
        os.makedirs(os.path.join(tmp, d))
    ini_path = os.path.join(tmp, "tmp", "Импорт64.ini")
    out = os.path.join(tmp, "out") + "/"

    # No axipy in the host: a Python exception, no window, nothing written.
    seen, r = host({"TM_PRESS": "CloseBtn"}, with_axipy=False)
    check("no axipy: exception", any(e.startswith("ModuleNotFoundError") for e in seen.get("errors", [])), r.stdout + r.stderr)
    check("no axipy: no window", seen.get("console") is False, r.stdout)
    check("no axipy: nothing written", not os.path.exists(ini_path))

    # A saved file that names a real extract and an output folder; the operator presses
    # "Конвертировать" and answers the message.
    with open(ini_path, "w", encoding="utf-8") as f:
        f.write(f"[Import]\nXMLText={extract}\nMiText={out}\nchkObj=1\ncmbPoints=1\n")
    seen, r = host({"TM_PRESS": "OKBtn"})
    check("run: returns 0", seen.get("results") == [0], r.stdout + r.stderr)
    check("run: console owned by the host's window", seen.get("owner") is True, r.stdout)
    check("run: messages", seen.get("messages") == ["Импорт успешно завершен."], r.stdout)
    for table in TABLES:
        mif = os.path.join(out, table + ".mif")
        ok = os.path.exists(mif) and os.path.exists(os.path.join(out, table + ".mid"))
        check("table " + table, ok)
        if ok and shutil.which("ogrinfo"):
            check("GDAL opens " + table, "Feature Count" in (ogrinfo(mif) or ""))
    listed = open(os.path.join(tmp, "docs", "tmMiniImportRes.ini"), encoding="utf-8").read().split()
    check("result list", sorted(listed) == sorted(out + t for t in TABLES), listed)
    ini = open(ini_path, encoding="utf-8").read()
    for line in (f"XMLText={extract}", f"MiText={out}", "chkObj=1", "cmbPoints=1", "chkParcel=1", "txtCnCount=0"):
        check("saved " + line, line in ini.splitlines(), ini)
    rows = ogrinfo(os.path.join(out, "Точки.mif")) or ""
    check("points table filled (cmbPoints 1)", "Feature Count: 0" not in rows, rows)

    # Two calls in one run of the host: the second console comes from the file the first wrote,
    # and closing it keeps the choices. A call from another thread meanwhile is refused.
    seen, r = host({"TM_CALLS": "2", "TM_PRESS": "AboutBtn,CloseBtn,CloseBtn", "TM_THREAD": "1"})
    check("two calls", seen.get("results") == [0, 0], r.stdout + r.stderr)
    check("about text", seen.get("messages", [""])[0].endswith("Террамир Мини. Импорт XML Росреестра."), r.stdout)
    check("second thread refused", str(seen.get("thread", "")).startswith("RuntimeError"), r.stdout)
    ini2 = open(ini_path, encoding="utf-8").read()
    check("closed twice: choices kept", ini2 == ini, ini2)

    # The older entry opens the console at once, without waiting.
    seen, r = host({"TM_ENTRY": "init", "TM_PRESS": "CloseBtn"})
    check("older entry shows the console", seen.get("console") is True and seen.get("presses") == ["CloseBtn"],
          r.stdout + r.stderr)
shutil.rmtree(tmp, ignore_errors=True)

finish()
