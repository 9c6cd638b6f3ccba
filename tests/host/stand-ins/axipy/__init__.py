"""A stand-in of Axioma's axipy package for the tests: what the module asks of it."""


class _QtObject:
    def winId(self):
        return 4242


class _MainWindow:
    def qt_object(self):
        return _QtObject()


class _App:
    mainwindow = _MainWindow()


app = _App()
