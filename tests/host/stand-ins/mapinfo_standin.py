"""A stand-in of MapInfo's automation object for the tests of the MapInfo edition: Do, Eval and
MBApplications.Item(name).Do, as the module calls them. It records every command and does for
real what the hand-over asks: Import of a MIF into a TAB, through GDAL."""
import re

import gdal_tab

IMPORT = re.compile(r'^Import "(?P<mif>[^"]*)" Type "MIF" Into "(?P<tab>[^"]*)" Overwrite$')


class _Application:
    def __init__(self, owner, name):
        self.owner, self.name = owner, name

    def Do(self, command):
        self.owner.commands.append(("#" + self.name, command))


class _Applications:
    def __init__(self, owner):
        self.owner = owner

    def Item(self, name):
        return _Application(self.owner, name)


class MapInfoApplication:
    def __init__(self, window=None):
        self.window = window
        self.commands = []
        self.fail_on = None  # a command holding this text fails, as a MapInfo error would
        self.MBApplications = _Applications(self)

    def Do(self, command):
        self.commands.append(("Do", command))
        if self.fail_on and self.fail_on in command:
            raise RuntimeError("MapInfo: cannot run " + command)
        if command in ("Set ProgressBars Off", "Close All Interactive"):
            return
        m = IMPORT.match(command)
        if not m:
            raise RuntimeError("Unrecognized command: " + command)
        gdal_tab.mif_to_tab(m.group("mif"), m.group("tab"))

    def Eval(self, expression):
        if expression == "SystemInfo(9)":
            return str(int(self.window.winId())) if self.window is not None else "4242"
        raise RuntimeError("Unrecognized expression: " + expression)
