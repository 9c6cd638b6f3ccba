"""What the plugin does with the result of an import: the list of tables the module wrote
(tmMiniImportRes.ini in the Documents folder), turned into a group of layers."""
import os

from qgis.core import QgsCoordinateReferenceSystem, QgsCoordinateTransform, QgsDataProvider, QgsProject, QgsRectangle, QgsVectorLayer

LIST_NAME = "tmMiniImportRes.ini"
KIND = {"Point": "точки", "LineString": "линии", "Polygon": "полигоны"}


def documents_folder():
    """The folder the module writes its result list to: XDG's documents folder, else home."""
    docs = os.environ.get("XDG_DOCUMENTS_DIR")
    if not docs:
        try:
            config = os.environ.get("XDG_CONFIG_HOME") or os.path.join(os.path.expanduser("~"), ".config")
            with open(os.path.join(config, "user-dirs.dirs"), encoding="utf-8") as f:
                for line in f:
                    if line.startswith("XDG_DOCUMENTS_DIR="):
                        docs = line.split("=", 1)[1].strip().strip('"').replace("$HOME", os.path.expanduser("~"))
        except OSError:
            pass
    if docs and os.path.isdir(docs):
        return docs
    return os.environ.get("HOME") or os.environ.get("TMPDIR") or "/tmp"


def result_list_path():
    return os.path.join(documents_folder(), LIST_NAME)


def run_folder():
    """Where the module keeps a batch: one folder of tables and one list per file, and an index."""
    return os.path.join(os.environ.get("TMPDIR") or "/tmp", "tmMiniImportRun")


def read_run_index(folder):
    """The files of the last batch, in the order they were imported: (their list, the file
    imported). Empty when the last run was no batch."""
    try:
        with open(os.path.join(folder, "index.ini"), encoding="utf-8") as f:
            lines = [line.rstrip("\r\n").split("\t", 1) for line in f if line.strip()]
    except OSError:
        return []
    return [(os.path.join(folder, list_name), source) for list_name, source in (x for x in lines if len(x) == 2)]


def read_result_list(path):
    """The table paths of the list, without extension; empty when there is no list."""
    try:
        with open(path, encoding="utf-8") as f:
            return [line.rstrip("\r\n") for line in f if line.strip()]
    except OSError:
        return []


def block_of(tables):
    """The cadastral block the tables are of, from the passport table; empty if unknown."""
    for table in tables:
        if os.path.basename(table) != "Паспорт":
            continue
        layer = QgsVectorLayer(table + ".mif", "passport", "ogr")
        if not layer.isValid():
            return ""
        for feature in layer.getFeatures():
            names = feature.fields().names()
            if "iBlock" in names and feature["iBlock"]:
                return str(feature["iBlock"])
    return ""


def hidden_geometries(layer):
    """The geometry types of a table that QGIS opened without geometry because its first rows
    have none (construction objects often lack a contour): each type that has features."""
    if layer.isSpatial():
        return []
    kinds = []
    for sub in layer.dataProvider().subLayers():
        fields = sub.split(QgsDataProvider.SUBLAYER_SEPARATOR)
        if len(fields) > 3 and fields[3] in KIND and fields[2].isdigit() and int(fields[2]) > 0:
            kinds.append(fields[3])
    return kinds


def crs_of_clause(clause):
    """The QGIS coordinate system of a MapInfo CoordSys clause; None for an empty, non-earth
    or unreadable clause."""
    if not clause.strip():
        return None
    try:
        from osgeo import osr
    except ImportError:
        return None
    srs = osr.SpatialReference()
    try:
        if srs.ImportFromMICoordSys(clause) != 0 or srs.IsLocal():
            return None
    except RuntimeError:  # GDAL raises when its exceptions are on
        return None
    crs = QgsCoordinateReferenceSystem.fromWkt(srs.ExportToWkt())
    return crs if crs.isValid() else None


def is_non_earth(layer):
    """A table with geometry in plane units only (a NonEarth clause), or in no system."""
    return layer.isSpatial() and (not layer.crs().isValid() or layer.crs().toWkt().startswith("LOCAL_CS"))


def add_result_layers(list_path, source_name="", include_empty=False, project=None, crs=None):
    """Adds a layer for each table of the list, in a group named after the file and block at
    the top of the layer tree. Empty tables are left out unless include_empty. Tables without
    a coordinate system of the earth take crs when it is given. Answers the group, or None
    when the list names no table."""
    project = project or QgsProject.instance()
    tables = [t for t in read_result_list(list_path) if os.path.exists(t + ".mif")]
    if not tables:
        return None
    block = block_of(tables)
    title = " — ".join(part for part in (source_name, block) if part) or "Импорт XML"
    group = project.layerTreeRoot().insertGroup(0, title)
    for table in tables:
        layer = QgsVectorLayer(table + ".mif", os.path.basename(table), "ogr")
        if not layer.isValid():
            continue
        if layer.featureCount() == 0 and not include_empty:
            continue
        if crs is not None and is_non_earth(layer):
            layer.setCrs(crs)
        project.addMapLayer(layer, False)
        group.addLayer(layer)
        # Rows with geometry among rows without: the whole table stays as it is, and the
        # geometries come beside it as a layer of their own per type.
        for kind in hidden_geometries(layer):
            shapes = QgsVectorLayer(f"{table}.mif|geometrytype={kind}", f"{os.path.basename(table)} ({KIND[kind]})", "ogr")
            if shapes.isValid():
                if crs is not None and is_non_earth(shapes):
                    shapes.setCrs(crs)
                project.addMapLayer(shapes, False)
                group.addLayer(shapes)
    return group


def spatial_layers(group):
    return [node.layer() for node in group.findLayers() if node.layer() is not None and node.layer().isSpatial()]


def fit_project(group, was_empty, project=None):
    """When the project had no layers before the import, it takes the coordinate system of the
    first table with geometry, so that the tables are drawn as they were written. Answers the
    extent of the group's layers in the project's system (empty when none has geometry)."""
    return fit_groups([group], was_empty, project)


def fit_groups(groups, was_empty, project=None):
    """fit_project for the groups of a batch together."""
    project = project or QgsProject.instance()
    spatial = [layer for group in groups for layer in spatial_layers(group)]
    if spatial and was_empty and spatial[0].crs().isValid():
        project.setCrs(spatial[0].crs())
    extent = QgsRectangle()
    for layer in spatial:
        box = layer.extent()
        if box.isEmpty() and box.width() == 0 and box.height() == 0 and layer.featureCount() == 0:
            continue
        if layer.crs() != project.crs() and layer.crs().isValid() and project.crs().isValid():
            try:
                box = QgsCoordinateTransform(layer.crs(), project.crs(), project).transformBoundingBox(box)
            except Exception:  # no transform between the systems: leave this layer out of the view
                continue
        if extent.isNull():
            extent = QgsRectangle(box)
        else:
            extent.combineExtentWith(box)
    return extent
