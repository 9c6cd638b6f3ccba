"""MIF to TAB through GDAL, for the stand-ins of the hosts: what Axioma's converter and
MapInfo's Import command do with a MIF/MID pair."""
import re

from osgeo import gdal, osr

gdal.UseExceptions()


def _bounds(clause):
    m = re.search(r"Bounds\s*\(([^,]+),([^)]+)\)\s*\(([^,]+),([^)]+)\)", clause or "")
    return ",".join(v.strip() for v in m.groups()) if m else None


def mif_to_tab(mif, tab, clause=None):
    """Writes tab from mif; with clause (a CoordSys clause) the TAB takes it instead of the
    MIF's own. Raises on any failure, as the hosts do."""
    options = {"format": "MapInfo File", "layerCreationOptions": ["ENCODING=CP1251"]}
    if clause:
        srs = osr.SpatialReference()
        text = clause.strip()
        if srs.ImportFromMICoordSys(text) != 0:
            raise RuntimeError("not a coordinate system: " + clause)
        options["dstSRS"] = srs
        options["reproject"] = False
        bounds = _bounds(text)
        if bounds:
            options["layerCreationOptions"].append("BOUNDS=" + bounds)
    source = gdal.OpenEx(mif, gdal.OF_VECTOR)
    if source is None:
        raise RuntimeError("cannot open " + mif)
    result = gdal.VectorTranslate(tab, source, **options)
    if result is None:
        raise RuntimeError("cannot write " + tab)
    result = None
    source = None
