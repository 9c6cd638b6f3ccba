// The Python module tmMiniImportLib: the entry the host's interpreter calls, and its two
// functions. Built for the stable ABI and not linked to libpython, so it binds to whichever
// interpreter loads it. No C++ exception crosses into the interpreter: each becomes a Python
// exception.
#define Py_LIMITED_API 0x03070000
#include <Python.h>
#include <dlfcn.h>

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

#include "PlanImportXML.h"
#include "PlanImportXMLForm.h"
#include "csIniFile.h"
#include "csPaths.h"

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

// The folder of this module, with its trailing "/": the application folder, where the data
// folders stand. Python may load the module through a link in its own folder.
std::string ModuleFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&ModuleFolder), &info) && info.dli_fname) {
        std::error_code ec;
        std::filesystem::path file = std::filesystem::canonical(info.dli_fname, ec);
        if (ec) file = info.dli_fname;
        return IncludeTrailingDelimiter(file.parent_path().string());
    }
    return "./";
}

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

// "axipy.app.mainwindow.qt_object().winId()" as text, converted to an integer.
long long HostWindowId() {
    PyRef axipy(PyImport_ImportModule("axipy"));
    if (!axipy) throw PythonError{};
    PyRef app(PyObject_GetAttrString(axipy.p, "app"));
    if (!app) throw PythonError{};
    PyRef window(PyObject_GetAttrString(app.p, "mainwindow"));
    if (!window) throw PythonError{};
    PyRef qt(PyObject_CallMethod(window.p, "qt_object", nullptr));
    if (!qt) throw PythonError{};
    PyRef id(PyObject_CallMethod(qt.p, "winId", nullptr));
    if (!id) throw PythonError{};
    // A toolkit's own handle type (PyQt's voidptr) is taken as the number it holds; anything
    // else goes through its text, which must be a decimal integer.
    if (!PyUnicode_Check(id.p) && !PyBytes_Check(id.p)) {
        PyRef number(PyNumber_Long(id.p));
        if (number) return PyLong_AsLongLong(number.p);
        PyErr_Clear();
    }
    PyRef text(PyObject_Str(id.p));
    if (!text) throw PythonError{};
    PyRef bytes(PyUnicode_AsUTF8String(text.p));
    if (!bytes) throw PythonError{};
    const std::string value = PyBytes_AsString(bytes.p);
    int64_t number = 0;
    if (!TryStrToInt(value, number)) throw Exception("'" + value + "' is not a valid integer value");
    return number;
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

PyObject* ShowImportForm(PyObject*, PyObject*, PyObject*) {
    if (busy.exchange(true)) {
        PyErr_SetString(PyExc_RuntimeError, "Консоль импорта уже открыта");
        return nullptr;
    }
    struct Free {
        ~Free() { busy = false; }
    } free;
    return Guarded([]() -> PyObject* {
        const std::string appPath = ModuleFolder();
        Bitness() = sizeof(void*) == 4 ? 32 : 64;
        std::setlocale(LC_NUMERIC, "C");
        HostMode() = 3;
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
        AttachOwner(*form, HostWindowId());
        FreeConsole();
        frmImport = form.release();
        {
            ReleasedInterpreter released;
            frmImport->exec();
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
        static PyObject* module = PyModule_Create(&kBareModule);  // held for the life of the process
        if (!module) return;
        if (busy || (!QCoreApplication::instance() && !HaveDisplay())) return;
        if (!Application()) return;
        FreeConsole();
        frmImport = new TfrmImport();
        HostMode() = 3;
        frmImport->show();
    } catch (...) {
        PyErr_Clear();
    }
}
