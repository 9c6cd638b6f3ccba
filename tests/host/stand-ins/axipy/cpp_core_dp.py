"""The converter of the axipy stand-in: the MIF of the source becomes the TAB of the
destination, in the destination's 'prj' clause when it has one."""
import gdal_tab

converted = []  # (mif, tab, prj) of every conversion, in order


class ShadowConverter:
    @staticmethod
    def convertMifToTab(source, dest):
        if source.provider != "MifMidDataProvider" or dest.provider != "TabDataProvider":
            raise ValueError("convertMifToTab: a MIF source and a TAB destination are needed")
        prj = dest.options.get("prj")
        gdal_tab.mif_to_tab(source.path, dest.path, prj)
        converted.append((source.path, dest.path, prj))
