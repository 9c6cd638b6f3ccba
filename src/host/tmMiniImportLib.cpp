// The Python module tmMiniImportLib: the entry the host's interpreter calls, and its two
// functions. Built for the stable ABI and not linked to libpython, so it binds to whichever
// interpreter loads it. No C++ exception crosses into the interpreter: each becomes a Python
// exception.
#define Py_LIMITED_API 0x03070000
#include <Python.h>

#include <QApplication>
#include <QPointer>
#include <QString>
#include <QThread>
#include <QWindow>
#include <atomic>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "PlanImportXML.h"
#include "PlanImportXMLForm.h"
#include "csDLLHeader.h"
#include "csIniFile.h"
#include "csPaths.h"
#include "csUniversalRegistration.h"

using namespace tmi;

namespace {

constexpr const char* kAboutLastLine = "Импорт XML. Импорт КПТ, КВЗУ и других документов Росреестра.";

// Owns a Python reference.
struct PyRef {
    PyObject* p;
    explicit PyRef(PyObject* o) : p(o) {}
    ~PyRef() { Py_XDECREF(p); }
    PyRef(const PyRef&) = delete;
    PyRef& operator=(const PyRef&) = delete;
    explicit operator bool() const { return p != nullptr; }
};

// A Python exception is already set.
struct PythonError {};

// The host this build of the module serves: 3 Axioma, 0 MapInfo, 2 QGIS, 4 MapInfo or QGIS.
#ifndef TM_HOST_MODE
#define TM_HOST_MODE 3
#endif
constexpr uint8_t kEditionHostMode = TM_HOST_MODE;

// The text of the Python exception that is set, "Type: message", and the exception cleared.
std::string TakePythonError() {
    PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    PyRef t(type), v(value), tb(traceback);
    std::string text;
    auto utf8 = [](PyObject* aObject) -> std::string {
        if (!aObject) return {};
        PyRef str(PyObject_Str(aObject));
        if (!str) {
            PyErr_Clear();
            return {};
        }
        PyRef bytes(PyUnicode_AsUTF8String(str.p));
        if (!bytes) {
            PyErr_Clear();
            return {};
        }
        return PyBytes_AsString(bytes.p);
    };
    if (t) {
        PyRef name(PyObject_GetAttrString(t.p, "__name__"));
        if (name) text = utf8(name.p);
        else PyErr_Clear();
    }
    const std::string message = utf8(v.p);
    if (!message.empty()) text += (text.empty() ? "" : ": ") + message;
    return text.empty() ? std::string("Python error") : text;
}

// The interpreter's lock, taken by a thread that may or may not hold it, and given back
// however the block ends.
struct InterpreterLock {
    PyGILState_STATE fState = PyGILState_Ensure();
    ~InterpreterLock() { PyGILState_Release(fState); }
};

// Runs the script of the hand-over as one program named "<string>" in the namespace of
// __main__; a Python error becomes an exception with its text, and the rest does not run.
void RunHostScript(const std::string& aProgram) {
    InterpreterLock lock;
    PyRef code(Py_CompileString(aProgram.c_str(), "<string>", Py_file_input));
    if (!code) throw Exception(TakePythonError());
    PyObject* main = PyImport_AddModule("__main__");  // borrowed
    if (!main) throw Exception(TakePythonError());
    PyObject* globals = PyModule_GetDict(main);  // borrowed
    PyRef result(PyEval_EvalCode(code.p, globals, globals));
    if (!result) throw Exception(TakePythonError());
}

// MapInfo's automation object as the host hands it to the module: any Python object with
// Do, Eval and MBApplications.Item(name).Do. Every call takes the interpreter's lock.
class TPythonMapInfo final : public TMapInfoAutomation {
public:
    explicit TPythonMapInfo(PyObject* aObject) : fObject(aObject) { Py_INCREF(fObject); }
    ~TPythonMapInfo() override {
        InterpreterLock lock;
        Py_DECREF(fObject);
    }
    void Do(const std::string& aCommand) override {
        InterpreterLock lock;
        PyRef r(PyObject_CallMethod(fObject, "Do", "s", aCommand.c_str()));
        if (!r) throw Exception(TakePythonError());
    }
    std::string Eval(const std::string& aExpression) override {
        InterpreterLock lock;
        PyRef r(PyObject_CallMethod(fObject, "Eval", "s", aExpression.c_str()));
        if (!r) throw Exception(TakePythonError());
        PyRef str(PyObject_Str(r.p));
        PyRef bytes(str ? PyUnicode_AsUTF8String(str.p) : nullptr);
        if (!bytes) throw Exception(TakePythonError());
        return PyBytes_AsString(bytes.p);
    }
    void ApplicationDo(const std::string& aApplication, const std::string& aCommand) override {
        InterpreterLock lock;
        PyRef apps(PyObject_GetAttrString(fObject, "MBApplications"));
        PyRef app(apps ? PyObject_CallMethod(apps.p, "Item", "s", aApplication.c_str()) : nullptr);
        PyRef r(app ? PyObject_CallMethod(app.p, "Do", "s", aCommand.c_str()) : nullptr);
        if (!r) throw Exception(TakePythonError());
    }

private:
    PyObject* fObject;
};

bool HaveDisplay() {
    for (const char* v : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        if (const char* s = std::getenv(v); s && *s) return true;
    return false;
}

// The host's application, or one of our own made once.
QApplication* Application() {
    if (auto* app = qobject_cast<QApplication*>(QCoreApplication::instance())) return app;
    if (QCoreApplication::instance()) return nullptr;
    static int argc = 1;
    static char name[] = "tmMiniImportLib";
    static char* argv[] = {name, nullptr};
    static QApplication* own = new QApplication(argc, argv);  // lives with the process, as the host's would
    return own;
}

// The application to show windows in: the host's, or ours when there is a screen. aWhat says
// what could not be shown otherwise.
QApplication& ScreenApplication(const std::string& aWhat) {
    if (!QCoreApplication::instance() && !HaveDisplay()) throw Exception("Нет экрана для " + aWhat);
    QApplication* app = Application();
    if (!app) throw Exception("Программа не даёт окон: не показать " + aWhat);
    return *app;
}

void ShowInformation(const std::string& aText) {
    ScreenApplication("сообщения:\n" + aText);
    TImportConsoleUi().Information(nullptr, aText);
}

// A window id as the host gives it: a toolkit's own handle type (PyQt's voidptr) is taken as
// the number it holds; anything else goes through its text, which must be a decimal integer.
long long WindowIdOf(PyObject* aId) {
    if (!PyUnicode_Check(aId) && !PyBytes_Check(aId)) {
        PyRef number(PyNumber_Long(aId));
        if (number) return PyLong_AsLongLong(number.p);
        PyErr_Clear();
    }
    PyRef text(PyObject_Str(aId));
    if (!text) throw PythonError{};
    PyRef bytes(PyUnicode_AsUTF8String(text.p));
    if (!bytes) throw PythonError{};
    const std::string value = PyBytes_AsString(bytes.p);
    int64_t number = 0;
    if (!TryStrToInt(value, number)) throw Exception("'" + value + "' is not a valid integer value");
    return number;
}

// Imports aModule and follows the dotted path of attributes and calls ("f()") from it.
PyRef Follow(const char* aModule, std::initializer_list<const char*> aPath) {
    PyRef at(PyImport_ImportModule(aModule));
    if (!at) throw PythonError{};
    for (const char* step : aPath) {
        std::string name = step;
        const bool call = name.size() > 2 && name.compare(name.size() - 2, 2, "()") == 0;
        if (call) name.resize(name.size() - 2);
        PyRef next(call ? PyObject_CallMethod(at.p, name.c_str(), nullptr) : PyObject_GetAttrString(at.p, name.c_str()));
        if (!next) throw PythonError{};
        std::swap(at.p, next.p);
    }
    return PyRef(std::exchange(at.p, nullptr));
}

// The host's main window, by edition: Axioma's through axipy, QGIS's through its interface,
// MapInfo's as its automation object tells it (SystemInfo(SYS_INFO_MAPINFOWND)). 0: none.
long long HostWindowId(TMapInfoAutomation* aMapInfo) {
    switch (kEditionHostMode) {
        case 3: {
            PyRef id = Follow("axipy", {"app", "mainwindow", "qt_object()", "winId()"});
            return WindowIdOf(id.p);
        }
        case 2: {
            PyRef id = Follow("qgis.utils", {"iface", "mainWindow()", "winId()"});
            return WindowIdOf(id.p);
        }
        case 0: {
            if (!aMapInfo) return 0;
            const std::string value = aMapInfo->Eval("SystemInfo(9)");
            int64_t number = 0;
            if (!TryStrToInt(value, number)) throw Exception("'" + value + "' is not a valid integer value");
            return number;
        }
        default:
            return 0;
    }
}

template <class F>
PyObject* Guarded(F&& aBody) {
    try {
        return aBody();
    } catch (const PythonError&) {
        return nullptr;
    } catch (const std::exception& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
        return nullptr;
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "tmMiniImportLib: unknown error");
        return nullptr;
    }
}

// Both functions take any arguments, keywords included, and read none of them.
PyObject* ShowImportAbout(PyObject*, PyObject*, PyObject*) {
    return Guarded([] {
        ShowInformation(AboutText(kAboutLastLine));
        return PyLong_FromLong(0);
    });
}

// The one console of the module: replaced by each ShowImportForm, freed with the module.
QPointer<TfrmImport> frmImport;
// The host's window, when it is not one of this process's widgets.
std::unique_ptr<QWindow> gForeignOwner;

void FreeConsole() {
    // Widgets outlive their application only as memory: without one they are not touched.
    if (QCoreApplication::instance()) delete frmImport.data();
    frmImport.clear();
    if (QCoreApplication::instance()) gForeignOwner.reset();
    else (void)gForeignOwner.release();
}

// The host's main window owns the console: it stays above the host and goes with it.
void AttachOwner(QWidget& aForm, long long aWindowId) {
    if (aWindowId == 0) return;
    QWindow* owner = nullptr;
    if (QWidget* host = QWidget::find(static_cast<WId>(aWindowId)); host && host->window() != &aForm) {
        host->window()->winId();
        owner = host->window()->windowHandle();
    } else if (QGuiApplication::platformName() == "xcb") {
        gForeignOwner.reset(QWindow::fromWinId(static_cast<WId>(aWindowId)));
        owner = gForeignOwner.get();
    }
    if (!owner) return;
    aForm.winId();
    if (aForm.windowHandle()) aForm.windowHandle()->setTransientParent(owner);
}

// The host's lock goes while the console waits for the operator, so that the host's other
// threads run; it comes back however the wait ends.
struct ReleasedInterpreter {
    PyThreadState* fState = PyEval_SaveThread();
    ~ReleasedInterpreter() { PyEval_RestoreThread(fState); }
};

// A console is up: a second one waits for it to close.
std::atomic<bool> busy{false};

// The MapInfo edition is handed MapInfo's automation object as the first argument; the
// other editions read no argument.
PyObject* ShowImportForm(PyObject*, PyObject* aArgs, PyObject*) {
    if (busy.exchange(true)) {
        PyErr_SetString(PyExc_RuntimeError, "Консоль импорта уже открыта");
        return nullptr;
    }
    struct Free {
        ~Free() { busy = false; }
    } free;
    return Guarded([aArgs]() -> PyObject* {
        const std::string appPath = ThisModuleFolder();  // where the data folders stand
        Bitness() = sizeof(void*) == 4 ? 32 : 64;
        std::setlocale(LC_NUMERIC, "C");
        HostMode() = kEditionHostMode;
        THostBridge bridge;
        if (kEditionHostMode == 3) bridge.RunScript = RunHostScript;
        if (kEditionHostMode == 0) {
            if (!aArgs || !PyTuple_Check(aArgs) || PyTuple_Size(aArgs) < 1)
                throw Exception("ShowImportForm: the MapInfo edition needs MapInfo's automation object as its argument");
            bridge.MapInfo = std::make_shared<TPythonMapInfo>(PyTuple_GetItem(aArgs, 0));
        }
        TcsIniFile ini(SavedChoicesPath());
        QApplication& app = ScreenApplication("консоли импорта");
        if (QThread::currentThread() != app.thread())
            throw Exception("Консоль импорта открывается только в главном потоке программы");
        auto form = std::make_unique<TfrmImport>();
        TImportChoices choices;
        choices.AppPath = appPath;
        choices.XSDPath = appPath + "XSDSchemes";
        LoadChoices(ini, choices);
        form->SetChoices(choices);
        // Without the host's window the console does not open, and nothing is written.
        AttachOwner(*form, HostWindowId(bridge.MapInfo.get()));
        FreeConsole();
        form->HostBridge = bridge;
        frmImport = form.release();
        {
            ReleasedInterpreter released;
            frmImport->exec();
            // The host's objects are not kept beyond the call.
            if (frmImport) frmImport->HostBridge = {};
            bridge = {};
        }
        // The choices go back to the file however the form was closed.
        if (frmImport) {
            SaveChoices(ini, frmImport->Choices());
            if (!ini.UpdateFile()) throw Exception("Не удалось записать " + SavedChoicesPath());
        }
        return PyLong_FromLong(0);
    });
}

PyMethodDef kMethods[] = {
    {"ShowImportForm", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(ShowImportForm)), METH_VARARGS | METH_KEYWORDS,
     "ShowImportForm"},
    {"ShowImportAbout", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(ShowImportAbout)),
     METH_VARARGS | METH_KEYWORDS, "ShowImportAbout"},
    {nullptr, nullptr, 0, nullptr},
};

void FreeModule(void*) { FreeConsole(); }

PyModuleDef kModule = {PyModuleDef_HEAD_INIT, "tmMiniImportLib", nullptr, -1, kMethods, nullptr, nullptr, nullptr, FreeModule};
PyMethodDef kNoMethods[] = {{nullptr, nullptr, 0, nullptr}};
PyModuleDef kBareModule = {PyModuleDef_HEAD_INIT, "tmMiniImportLib", nullptr, -1, kNoMethods, nullptr, nullptr, nullptr, nullptr};

}  // namespace

extern "C" __attribute__((visibility("default"))) PyObject* PyInit_tmMiniImportLib() {
    try {
        // The conversion's process and destination classes, for callers of the module's library.
        RegisterUniversalClasses();
        return PyModule_Create(&kModule);
    } catch (...) {
        PyErr_SetString(PyExc_ImportError, "tmMiniImportLib: the module could not be created");
        return nullptr;
    }
}

// The entry of the older import machinery: a module without functions, and the console shown
// at once without waiting, with no saved choices and no application folder. Here it is
// called by hand (ctypes.PyDLL) with the interpreter's lock held.
extern "C" __attribute__((visibility("default"))) void inittmMiniImportLib() {
    try {
        Bitness() = 32;
        RegisterUniversalClasses();
        static PyObject* module = PyModule_Create(&kBareModule);  // held for the life of the process
        if (!module) return;
        if (busy || (!QCoreApplication::instance() && !HaveDisplay())) return;
        if (!Application()) return;
        FreeConsole();
        frmImport = new TfrmImport();
        HostMode() = kEditionHostMode;
        frmImport->show();
    } catch (...) {
        PyErr_Clear();
    }
}
