#!/usr/bin/env python3
"""The QGIS plugin inside a real QGIS (headless QgsApplication, QGIS's own mocked interface):
it registers its action, tells what to do when the module is missing, and turns the result
list of a real import into a group of valid layers with GDAL's feature counts.

A batch through the console of the module's QGIS edition ends with one layer group per file.

usage: plugin_test.py PLUGIN_PARENT_DIR TMIMPORT EXTRACT.xml [QGIS_EDITION_DIR]
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "host"))
from checks import check, finish  # noqa: E402

plugin_parent, tmimport, extract = sys.argv[1], sys.argv[2], sys.argv[3]
edition = sys.argv[4] if len(sys.argv) > 4 else ""
os.environ.setdefault("QT_QPA_PLATFORM", "offscreen")
try:
    from qgis.core import QgsApplication, QgsProject
    from qgis.testing.mocked import get_iface
except ImportError as e:
    if os.environ.get("CI") == "true":
        check("python3-qgis and python3-mock present: " + str(e), False)
    else:
        print("skipped: no QGIS in this Python:", e)
    finish()

tmp = tempfile.mkdtemp()
os.environ["TMPDIR"] = os.path.join(tmp, "tmp")
os.environ["XDG_DOCUMENTS_DIR"] = os.path.join(tmp, "docs")
os.makedirs(os.environ["TMPDIR"])
os.makedirs(os.environ["XDG_DOCUMENTS_DIR"])

qgs = QgsApplication([], False)
qgs.initQgis()
iface = get_iface()
sys.path.insert(0, plugin_parent)
import tmMiniImport  # noqa: E402
from tmMiniImport import layers, plugin  # noqa: E402

try:
    # classFactory and initGui: the action in the Vector menu and on the toolbar.
    p = tmMiniImport.classFactory(iface)
    p.initGui()
    menu_calls = iface.addPluginToVectorMenu.call_args_list
    check("action in the Vector menu", len(menu_calls) == 1 and menu_calls[0][0][1].text() == "Импорт XML Росреестра",
          menu_calls)
    check("action on the toolbar", iface.addToolBarIcon.call_args_list[-1][0][0] is p.action)
    check("icon of ours", not p.action.icon().isNull())

    # Without the module: a message that says what to do; QGIS goes on.
    seen = []
    plugin.QMessageBox.warning = staticmethod(lambda parent, title, text: seen.append(text))
    saved_path = list(sys.path)
    sys.path[:] = [x for x in sys.path if "build" not in x]
    sys.modules.pop("tmMiniImportLib", None)
    p.run()
    sys.path[:] = saved_path
    check("no module: told to run make plugin", len(seen) == 1 and "make plugin" in seen[0], seen)

    # A real import, and its list read into layers.
    out = os.path.join(tmp, "out")
    r = subprocess.run([tmimport, extract, "-o", out, "-q", "--points", "all", "--objects"], capture_output=True, text=True,
                       env=dict(os.environ))
    check("import ran", r.returncode == 0, r.stderr)
    list_path = layers.result_list_path()
    check("list in the Documents folder", os.path.exists(list_path), list_path)
    tables = layers.read_result_list(list_path)
    check("thirteen tables listed", len(tables) == 13, tables)

    def gdal_count(path):
        s = subprocess.run(["ogrinfo", "-ro", "-so", "-al", path], capture_output=True, text=True).stdout
        m = re.search(r"Feature Count: (\d+)", s)
        return int(m.group(1)) if m else -1

    counts = {os.path.basename(t): gdal_count(t + ".mif") for t in tables}
    group = layers.add_result_layers(list_path, os.path.basename(extract))
    check("group named after the file and block", group is not None and group.name().startswith(os.path.basename(extract))
          and "21:02:" in group.name(), group.name() if group else None)
    found = {n.layer().name(): n.layer() for n in group.findLayers()}
    # Construction objects: most rows have no contour, two are lines. QGIS opens such a table
    # without geometry; the lines come beside it as a layer of their own.
    lines = found.pop("Объекты (линии)", None)
    check("objects' lines beside the table", lines is not None and lines.isSpatial() and lines.featureCount() == 2,
          sorted(found))
    non_empty = sorted(name for name, n in counts.items() if n > 0)
    check("every non-empty table, no empty one", sorted(found) == non_empty, (sorted(found), counts))
    for name, layer in found.items():
        check(f"{name}: valid", layer.isValid())
        check(f"{name}: GDAL's count", layer.featureCount() == counts[name], (layer.featureCount(), counts[name]))
    check("layers in the project", all(QgsProject.instance().mapLayer(layer.id()) for layer in found.values()))
    parcels = found.get("Участки")
    check("parcels have their system", parcels is not None and parcels.crs().isValid())

    # The first import into an empty project gives it the tables' system and a view of them
    # all; a project that had layers keeps its own system.
    before = QgsProject.instance().crs()
    layers.fit_project(group, was_empty=False)
    check("a used project keeps its system", QgsProject.instance().crs() == before)
    extent = layers.fit_project(group, was_empty=True)
    check("an empty project takes the tables' system", QgsProject.instance().crs() == parcels.crs(),
          QgsProject.instance().crs().toWkt())
    check("the view holds every table", not extent.isNull()
          and all(extent.contains(layer.extent()) for layer in layers.spatial_layers(group)), extent.toString())

    # With the setting on, empty tables come too.
    group2 = layers.add_result_layers(list_path, "again", include_empty=True)
    check("empty tables on request", len(group2.findLayers()) == 14, len(group2.findLayers()))
    # Tables written without a system of the earth (the QGIS edition's) take the console's
    # "Проекция в XML"; a table that has one keeps it; a clause GDAL cannot read changes nothing.
    msk = ("CoordSys Earth Projection 8, 9999, 3, 24, -123, -94, -0.02, 0.25, 0.13, 1.100000001, 0, 7, 47.55, 0, 1, "
           "1250000, -5814743.504")
    crs = layers.crs_of_clause(msk)
    check("the clause read", crs is not None and "+lon_0=47.55" in crs.toProj(), crs and crs.toProj())
    check("non-earth and unreadable clauses give nothing",
          layers.crs_of_clause('CoordSys NonEarth Units "m" Bounds (0,0) (1,1)') is None
          and layers.crs_of_clause("garbage") is None and layers.crs_of_clause("") is None)
    check("the test's tables are non-earth", parcels is not None and layers.is_non_earth(parcels))
    group3 = layers.add_result_layers(list_path, "msk", crs=crs)
    placed = layers.spatial_layers(group3)
    check("every table with geometry in the chosen system", placed and all(lr.crs() == crs for lr in placed),
          [lr.crs().description() for lr in placed])
    out_msk = os.path.join(tmp, "out-msk")
    subprocess.run([tmimport, extract, "-o", out_msk, "-q", "--coordsys", msk.replace("47.55", "50.55")], check=True,
                   env=dict(os.environ))
    group4 = layers.add_result_layers(list_path, "own system", crs=crs)
    own = [lr for lr in layers.spatial_layers(group4) if "+lon_0=50.55" in lr.crs().toProj()]
    check("a table with a system keeps it", len(own) == len(layers.spatial_layers(group4)) > 0,
          [lr.crs().toProj() for lr in layers.spatial_layers(group4)])

    # A batch of two plans through the console of the QGIS edition, as the operator runs it:
    # the plugin opens the console, the operator ticks "Пакетный импорт" and converts.
    if edition:
        from qgis.PyQt.QtCore import QTimer
        from qgis.PyQt.QtWidgets import QApplication, QCheckBox, QMessageBox, QPushButton
        batch = os.path.join(tmp, "batch")
        os.makedirs(batch)
        other = os.path.join(os.path.dirname(os.path.dirname(extract)), "KPT11")
        other = os.path.join(other, sorted(f for f in os.listdir(other) if f.endswith(".xml"))[0])
        shutil.copy(extract, os.path.join(batch, "first.xml"))
        shutil.copy(other, os.path.join(batch, "second.xml"))
        with open(os.path.join(os.environ["TMPDIR"], "Импорт64.ini"), "w", encoding="utf-8") as f:
            f.write(f"[Import]\nXMLText={os.path.join(batch, 'first.xml')}\nMiText={os.path.join(tmp, 'qgis-out')}\n")
        pressed, answered = [], []

        def operator():
            modal = QApplication.activeModalWidget()
            if isinstance(modal, QMessageBox):
                answered.append(modal.text())
                modal.accept()
                return
            for top in QApplication.topLevelWidgets():
                if top.objectName() == "frmImport" and top.isVisible() and top.isEnabled() and not pressed:
                    top.findChild(QCheckBox, "chkPacket").setChecked(True)
                    pressed.append(True)
                    QTimer.singleShot(0, top.findChild(QPushButton, "OKBtn").click)

        timer = QTimer()
        timer.timeout.connect(operator)
        timer.start(50)
        sys.path.insert(0, edition)
        sys.modules.pop("tmMiniImportLib", None)
        import qgis.utils
        qgis.utils.iface = iface  # the module finds the window that owns its console here
        QgsProject.instance().clear()
        p.run()
        timer.stop()
        check("batch: the console was converted", pressed == [True], (answered, seen[1:]))
        root = QgsProject.instance().layerTreeRoot()
        groups = [g for g in root.children() if hasattr(g, "findLayers")]
        check("batch: one group per file, the first on top", [g.name().split(" — ")[0] for g in groups] ==
              ["first.xml", "second.xml"], [g.name() for g in groups])
        for g, source in zip(groups, ("first.xml", "second.xml")):
            found = [n.layer() for n in g.findLayers()]
            check(f"batch: {source} has layers, all valid", found and all(lr.isValid() and lr.featureCount() > 0 for lr in found),
                  [(lr.name(), lr.featureCount()) for lr in found])
        if len(groups) == 2:
            def parcels_of(g):
                return [n.layer() for n in g.findLayers() if n.layer().name() == "Участки"][0]
            check("batch: each file's own parcels", parcels_of(groups[0]).source() != parcels_of(groups[1]).source()
                  and parcels_of(groups[0]).featureCount() != parcels_of(groups[1]).featureCount())
    else:
        check("the QGIS edition given (needed under CI)", os.environ.get("CI") != "true")

    p.unload()
    check("unload removes the action", iface.removePluginVectorMenu.called and p.action is None)
finally:
    QgsProject.instance().clear()
    qgs.exitQgis()
    shutil.rmtree(tmp, ignore_errors=True)

finish(hard=True)
