"""A stand-in of Axioma's axipy package for the tests: what the module asks of it.

A host that has a real main window sets app.mainwindow.widget to it; without one the
window id is a made-up number, as a host without a screen would have. The data classes
carry what the module's hand-over script gives them; cpp_core_dp converts for real."""


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


class Schema:
    pass


class _Provider:
    def __init__(self, name):
        self.name = name


class _TableFile:
    def __init__(self, path):
        self.path = path


class Source:
    @staticmethod
    def _provider(name):
        return _Provider(name)

    @staticmethod
    def _table_file(path):
        return _TableFile(path)


class MifMidDestination:
    def __init__(self, schema, provider, table_file, options):
        if not isinstance(schema, Schema) or not isinstance(provider, _Provider) or not isinstance(table_file, _TableFile):
            raise TypeError("MifMidDestination(schema, provider, table_file, options)")
        self.provider = provider.name
        self.path = table_file.path
        self.options = dict(options)
