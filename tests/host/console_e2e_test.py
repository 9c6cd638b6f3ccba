#!/usr/bin/env python3
"""The console from the host's Python, end to end: a host process (host_driver.py) owns a Qt
application and a main window, calls tmMiniImportLib.ShowImportForm() and presses the
console's buttons as an operator would, under Xvfb.

usage: console_e2e_test.py MODULE_DIR STAND_INS_DIR EXTRACT.xml
Prints 'N passed, N failed' and exits non-zero on a failure.
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile

from checks import check, finish

module_dir, stand_ins, extract = sys.argv[1], sys.argv[2], sys.argv[3]
here = os.path.dirname(os.path.abspath(__file__))
python = "/usr/bin/python3"  # the interpreter that has Debian's PyQt5


have_pyqt = subprocess.run([python, "-c", "import PyQt5.QtWidgets"], capture_output=True).returncode == 0
xvfb = shutil.which("Xvfb")
if not have_pyqt or not xvfb:
    if os.environ.get("CI") == "true":
        check("PyQt5 and Xvfb present", False)
    else:
        print("skipped: no PyQt5 or Xvfb")
    finish()

TABLES = ["Участки", "ЧастиУчастка", "Объекты", "Точки", "ТочкиОМС", "Квартал", "Границы", "Зоны", "Спецзоны",
          "Смежники", "СтарыеКадНомера", "НовыеКадНомера", "Паспорт"]

tmp = tempfile.mkdtemp()
ready_r, ready_w = os.pipe()
server = subprocess.Popen([xvfb, "-displayfd", str(ready_w), "-screen", "0", "1280x1024x24"],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, pass_fds=(ready_w,))
os.close(ready_w)


def host(env_extra, with_axipy=True):
    path = module_dir + (os.pathsep + stand_ins if with_axipy else "")
    env = dict(os.environ, DISPLAY=display, TMPDIR=os.path.join(tmp, "tmp"), XDG_DOCUMENTS_DIR=os.path.join(tmp, "docs"),
               PYTHONPATH=path, **env_extra)
    env.pop("QT_QPA_PLATFORM", None)
    r = subprocess.run([python, os.path.join(here, "host_driver.py")], capture_output=True, text=True, env=env,
                       timeout=300)
    lines = [line for line in r.stdout.splitlines() if line.startswith("{")]
    return (json.loads(lines[-1]) if lines else {}), r


try:
    with os.fdopen(ready_r) as ready:
        display = ":" + ready.readline().strip()
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
            g = subprocess.run(["ogrinfo", "-ro", "-so", "-al", mif], capture_output=True, text=True)
            check("GDAL opens " + table, g.returncode == 0 and "Feature Count" in g.stdout, g.stderr)
    listed = open(os.path.join(tmp, "docs", "tmMiniImportRes.ini"), encoding="utf-8").read().split()
    check("result list", sorted(listed) == sorted(out + t for t in TABLES), listed)
    ini = open(ini_path, encoding="utf-8").read()
    for line in (f"XMLText={extract}", f"MiText={out}", "chkObj=1", "cmbPoints=1", "chkParcel=1", "txtCnCount=0"):
        check("saved " + line, line in ini.splitlines(), ini)
    rows = subprocess.run(["ogrinfo", "-ro", "-so", "-al", os.path.join(out, "Точки.mif")], capture_output=True, text=True)
    check("points table filled (cmbPoints 1)", "Feature Count: 0" not in rows.stdout, rows.stdout)

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
finally:
    server.terminate()
    server.wait()
    shutil.rmtree(tmp, ignore_errors=True)

finish()
