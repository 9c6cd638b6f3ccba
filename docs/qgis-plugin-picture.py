"""Makes docs/qgis-plugin-console.png and docs/qgis-plugin-layers.png: the plugin installed in
QGIS from its zip, its console opened from the Vector menu's action, and the layers it adds.

Run by QGIS itself under a virtual display by scripts/qgis-plugin-screenshots (QGIS's --code
runs this file once QGIS has started, with the plugin enabled in a profile of its own).
With TM_BATCH set, the operator ticks "Пакетный импорт" and the one picture is
docs/qgis-plugin-batch.png: a layer group per file of the folder.
"""
import os

import qgis.utils
from qgis.PyQt.QtCore import QTimer
from qgis.PyQt.QtWidgets import QApplication, QCheckBox, QMessageBox, QPushButton
from qgis.utils import iface

pictures = os.environ["TM_PICTURES"]
batch = bool(os.environ.get("TM_BATCH"))
# No window manager under Xvfb: the main window is given the whole screen by hand.
iface.mainWindow().setGeometry(QApplication.primaryScreen().availableGeometry())
state = {"console": False}


def screen(name):
    QApplication.primaryScreen().grabWindow(0).save(os.path.join(pictures, name))


def answer_console():
    # The console is modal inside the plugin's action: picture it over QGIS, convert, and
    # close it once the import is over (its button is enabled again, no progress is up).
    for top in QApplication.topLevelWidgets():
        if top.objectName() == "frmImport" and top.isVisible():
            ok = top.findChild(QPushButton, "OKBtn")
            if not state["console"]:
                state["console"] = True
                if batch:
                    top.findChild(QCheckBox, "chkPacket").setChecked(True)
                else:
                    QTimer.singleShot(1500, lambda: screen("qgis-plugin-console.png"))
                QTimer.singleShot(2500, ok.click)
                QTimer.singleShot(4000, answer_console)
                return
            busy = any(w.objectName() == "TcsProgressForm" and w.isVisible() for w in QApplication.topLevelWidgets())
            for box in QApplication.topLevelWidgets():
                if isinstance(box, QMessageBox) and box.isVisible():  # "Импорт успешно завершен."
                    box.accept()
            if ok.isEnabled() and not busy:
                top.findChild(QPushButton, "CloseBtn").click()
                return
            break
    QTimer.singleShot(300, answer_console)


def shoot_layers():
    iface.messageBar().clearWidgets()
    if batch:
        iface.layerTreeView().expandAll()
    screen("qgis-plugin-batch.png" if batch else "qgis-plugin-layers.png")
    os._exit(0 if state["console"] else 1)


def run():
    plugin = qgis.utils.plugins.get("tmMiniImport")
    if plugin is None:
        print("the plugin is not loaded:", qgis.utils.available_plugins, qgis.utils.active_plugins, qgis.utils.plugin_paths)
        os._exit(2)
    QTimer.singleShot(300, answer_console)
    plugin.action.trigger()  # returns once the console has closed and the layers are in
    QTimer.singleShot(3000, shoot_layers)


QTimer.singleShot(3000, run)
QTimer.singleShot(180000, lambda: (print("QGIS did not finish in time", flush=True), os._exit(3)))  # never hang a build machine
