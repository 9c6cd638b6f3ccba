"""Makes docs/qgis-parcels.png: the tables of one import opened in QGIS, as a user sees them.

Run by QGIS itself under a virtual display (QGIS's --code runs this file once it has started):
    TM_TABLES=out TM_PICTURE=docs/qgis-parcels.png xvfb-run -a -s '-screen 0 1400x860x24' \
        qgis --nologo --noversioncheck --noplugins --code docs/qgis-picture.py
"""
import os

from qgis.core import (QgsFillSymbol, QgsPalLayerSettings, QgsProject, QgsSingleSymbolRenderer,
                       QgsTextFormat, QgsVectorLayer, QgsVectorLayerSimpleLabeling)
from qgis.PyQt.QtCore import QTimer
from qgis.PyQt.QtGui import QFont
from qgis.utils import iface

tables = os.environ["TM_TABLES"]
picture = os.environ["TM_PICTURE"]


def table(name, style):
    layer = QgsVectorLayer(os.path.join(tables, name + ".mif"), name, "ogr")
    layer.setRenderer(QgsSingleSymbolRenderer(QgsFillSymbol.createSimple(style)))
    QgsProject.instance().addMapLayer(layer)
    return layer


iface.mainWindow().showMaximized()
block = table("Квартал", {"style": "no", "outline_color": "200,30,30", "outline_width": "0.8"})
parcels = table("Участки", {"color": "120,180,90,170", "outline_color": "40,70,30", "outline_width": "0.3"})
labels = QgsPalLayerSettings()
labels.fieldName = "regexp_substr(\"КадастровыйНомер\", ':(\\\\d+)$')"
labels.isExpression = True
text = QgsTextFormat()
text.setFont(QFont("DejaVu Sans", 8))
text.setSize(8)
labels.setFormat(text)
parcels.setLabeling(QgsVectorLayerSimpleLabeling(labels))
parcels.setLabelsEnabled(True)

# The tables are in plane metres: the project takes their system, so nothing is reprojected.
QgsProject.instance().setCrs(parcels.crs())
iface.setActiveLayer(parcels)


def frame():
    iface.messageBar().clearWidgets()
    canvas = iface.mapCanvas()
    canvas.setExtent(block.extent().buffered(block.extent().width() * 0.03))
    canvas.refresh()


def shoot():
    iface.messageBar().clearWidgets()
    iface.mainWindow().grab().save(picture)
    os._exit(0)


QTimer.singleShot(2000, frame)
QTimer.singleShot(7000, shoot)
