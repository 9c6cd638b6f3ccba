"""The plugin: one action in the Vector menu and on a toolbar. It opens the import console
of the module built for QGIS, then adds what the import wrote as layers."""
import os
import shutil
import sys

from qgis.core import QgsProject, QgsSettings
from qgis.PyQt.QtGui import QIcon
from qgis.PyQt.QtWidgets import QAction, QMessageBox

from . import layers

HERE = os.path.dirname(os.path.abspath(__file__))
MENU = "Террамир Мини"
ACTION_TEXT = "Импорт XML Росреестра"
SETTING_EMPTY = "tmMiniImport/includeEmptyTables"


def load_module():
    """The QGIS edition of tmMiniImportLib: in the plugin's lib folder (as `make plugin` lays it
    out), else wherever Python finds it. None when it is not there."""
    lib = os.path.join(HERE, "lib")
    if os.path.isdir(lib) and lib not in sys.path:
        sys.path.insert(0, lib)
    try:
        import tmMiniImportLib
    except ImportError:
        return None
    return tmMiniImportLib


def saved_choice(key):
    """One of the console's saved choices (Импорт64.ini in the temporary folder); empty if none."""
    ini = os.path.join(os.environ.get("TMPDIR") or "/tmp", "Импорт64.ini")
    try:
        with open(ini, encoding="utf-8") as f:
            for line in f:
                if line.startswith(key + "="):
                    return line.split("=", 1)[1].strip()
    except OSError:
        pass
    return ""


def saved_source_name():
    """The file the console last imported, without its folder."""
    return os.path.basename(saved_choice("XMLText"))


class TmMiniImportPlugin:
    def __init__(self, iface):
        self.iface = iface
        self.action = None

    def initGui(self):  # noqa: N802 (QGIS's name)
        self.action = QAction(QIcon(os.path.join(HERE, "icon.svg")), ACTION_TEXT, self.iface.mainWindow())
        self.action.setObjectName("tmMiniImportAction")
        self.action.triggered.connect(self.run)
        self.iface.addPluginToVectorMenu(MENU, self.action)
        self.iface.addToolBarIcon(self.action)

    def unload(self):
        if self.action is not None:
            self.iface.removePluginVectorMenu(MENU, self.action)
            self.iface.removeToolBarIcon(self.action)
            self.action = None

    def run(self):
        module = load_module()
        if module is None:
            QMessageBox.warning(self.iface.mainWindow(), ACTION_TEXT,
                                "Модуль tmMiniImportLib для QGIS не найден.\n\n"
                                "Соберите пакет модуля командой `make plugin` и установите полученный zip "
                                "через «Модули → Управление модулями → Установить из ZIP».")
            return
        list_path = layers.result_list_path()
        try:
            os.remove(list_path)  # a list left from before must not stand for this import
        except OSError:
            pass
        shutil.rmtree(layers.run_folder(), ignore_errors=True)
        try:
            module.ShowImportForm()
        except Exception as e:  # the console could not open: say why, QGIS goes on
            QMessageBox.warning(self.iface.mainWindow(), ACTION_TEXT, str(e))
            return
        include_empty = QgsSettings().value(SETTING_EMPTY, False, type=bool)
        was_empty = not QgsProject.instance().mapLayers()
        # This edition writes its tables without a coordinate system; they are in the system
        # the operator chose for the XML ("Проекция в XML"), which the layers take.
        crs = layers.crs_of_clause(saved_choice("ProjText"))
        # A batch: one group per file, the first file on top; else the one list of the file.
        batch = layers.read_run_index(layers.run_folder())
        if batch:
            groups = [layers.add_result_layers(path, os.path.basename(source), include_empty, crs=crs)
                      for path, source in reversed(batch)]
            groups = [g for g in reversed(groups) if g is not None]
        else:
            groups = [layers.add_result_layers(list_path, saved_source_name(), include_empty, crs=crs)]
            groups = [g for g in groups if g is not None]
        if not groups:
            return
        extent = layers.fit_groups(groups, was_empty)
        if not extent.isNull():
            canvas = self.iface.mapCanvas()
            canvas.setExtent(extent.buffered(max(extent.width(), extent.height()) * 0.03))
            canvas.refresh()
