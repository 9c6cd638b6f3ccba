#!/usr/bin/env python3
"""A host GIS in miniature: a Qt application with a main window and an embedded use of the
module, as Axioma runs it. It opens the console and plays the operator.

Environment:
  TM_PRESS   object names of console buttons to press, in order, each once a console is up
             and waiting (across calls: a console that closes leaves the rest to the next)
  TM_CALLS   how many times to call ShowImportForm (default 1)
  TM_ENTRY   "init": open the console through the older entry, inittmMiniImportLib
  TM_THREAD  "1": while the console is up, call ShowImportForm from another thread too
  TM_SHOTS   a folder: the console and the progress window are saved there as pictures
             (console.png before the first press, progress.png once the bar has moved)
  TM_EDITION "mapinfo": the host is MapInfo and hands the module its automation object (the
             stand-in), whose commands are noted; "qgis": the host is QGIS, whose interface
             gives the main window
Every message box is answered with OK and its text noted. Prints one JSON line.
"""
import ctypes
import json
import os
import sys
import threading

from PyQt5.QtCore import QTimer
from PyQt5.QtWidgets import QApplication, QMainWindow, QMessageBox, QProgressBar, QPushButton

app = QApplication(sys.argv)
main = QMainWindow()
main.setWindowTitle("Host GIS")
main.resize(300, 200)
main.show()

edition = os.environ.get("TM_EDITION", "")
call_args = ()
mapinfo = None
if edition == "mapinfo":
    import mapinfo_standin
    mapinfo = mapinfo_standin.MapInfoApplication(main)
    mapinfo.fail_on = os.environ.get("TM_MAPINFO_FAIL")
    call_args = (mapinfo,)
elif edition == "qgis":
    import qgis.utils

    class _Iface:
        def mainWindow(self):
            return main
    qgis.utils.iface = _Iface()
else:
    try:
        import axipy
        axipy.app.mainwindow.widget = main
    except ImportError:
        pass

presses = [p for p in os.environ.get("TM_PRESS", "").split(",") if p]
seen = {"messages": [], "console": False, "owner": None, "presses": [], "results": [], "errors": []}


def other_thread():
    try:
        seen["thread"] = tmMiniImportLib.ShowImportForm()
    except Exception as e:
        seen["thread"] = type(e).__name__ + ": " + str(e)


def shoot(widget, name):
    folder = os.environ.get("TM_SHOTS")
    if folder and name not in seen.setdefault("shots", []):
        widget.grab().save(os.path.join(folder, name))
        seen["shots"].append(name)


def tick():
    for top in QApplication.topLevelWidgets():
        if top.objectName() == "TcsProgressForm" and top.isVisible():
            bar = top.findChild(QProgressBar)
            if bar is not None and bar.value() > bar.maximum() // 4:
                shoot(top, "progress.png")
    modal = QApplication.activeModalWidget()
    if isinstance(modal, QMessageBox):
        seen["messages"].append(modal.text())
        modal.accept()
        return
    for top in QApplication.topLevelWidgets():
        if top.objectName() != "frmImport" or not top.isVisible():
            continue
        seen["console"] = True
        handle = top.windowHandle()
        if handle is not None and handle.transientParent() is not None:
            seen["owner"] = handle.transientParent() == main.windowHandle()
        if os.environ.get("TM_THREAD") == "1" and "thread" not in seen and "started" not in seen:
            seen["started"] = True
            worker = threading.Thread(target=other_thread)
            worker.start()
            worker.join(10)
            if worker.is_alive():
                seen["thread"] = "still waiting"
        if presses and top.isEnabled() and modal in (top, None):
            shoot(top, "console.png")
            name = presses.pop(0)
            seen["presses"].append(name)
            # Pressed from a timer of its own: Qt does not fire a timer again while its slot
            # runs, and the press runs the whole import.
            QTimer.singleShot(0, top.findChild(QPushButton, name).click)


timer = QTimer()
timer.timeout.connect(tick)
timer.start(50)

import tmMiniImportLib  # noqa: E402

if os.environ.get("TM_ENTRY") == "init":
    ctypes.PyDLL(tmMiniImportLib.__file__).inittmMiniImportLib()
    QTimer.singleShot(5000, app.quit)
    app.exec_()
else:
    for _ in range(int(os.environ.get("TM_CALLS", "1"))):
        try:
            seen["results"].append(tmMiniImportLib.ShowImportForm(*call_args))
        except Exception as e:  # what the host would see
            seen["errors"].append(type(e).__name__ + ": " + str(e))
timer.stop()
if mapinfo is not None:
    seen["mapinfo"] = [list(c) for c in mapinfo.commands]
if "axipy" in sys.modules and "axipy.cpp_core_dp" in sys.modules:
    seen["converted"] = [list(c) for c in sys.modules["axipy.cpp_core_dp"].converted]
print(json.dumps(seen, ensure_ascii=False))
