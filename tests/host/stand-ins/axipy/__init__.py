"""A stand-in of Axioma's axipy package for the tests: what the module asks of it.

A host that has a real main window sets app.mainwindow.widget to it; without one the
window id is a made-up number, as a host without a screen would have."""


class _QtObject:
    def winId(self):
        return 4242


class _MainWindow:
    widget = None

    def qt_object(self):
        return self.widget if self.widget is not None else _QtObject()


class _App:
    mainwindow = _MainWindow()


app = _App()
