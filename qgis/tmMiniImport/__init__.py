"""QGIS plugin of Террамир Мини: the import of XML extracts of Rosreestr."""


def classFactory(iface):  # noqa: N802 (QGIS's name)
    from .plugin import TmMiniImportPlugin
    return TmMiniImportPlugin(iface)
