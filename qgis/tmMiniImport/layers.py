"""What the plugin does with the result of an import: the list of tables the module wrote
(tmMiniImportRes.ini in the Documents folder), turned into a group of layers."""
import os

from qgis.core import QgsProject, QgsVectorLayer

LIST_NAME = "tmMiniImportRes.ini"


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


def add_result_layers(list_path, source_name="", include_empty=False, project=None):
    """Adds a layer for each table of the list, in a group named after the file and block at
    the top of the layer tree. Empty tables are left out unless include_empty. Answers the
    group, or None when the list names no table."""
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
        project.addMapLayer(layer, False)
        group.addLayer(layer)
    return group
