// A library bound at run time by its file name: loaded at the first use, its functions looked
// up by name. A function the library lacks stays null and is counted, so that a caller can
// tell an old or foreign library from a good one.
#pragma once

#include <string>

#include "csCommon.h"

namespace tmi {

// The library could not be loaded; the text is the system's.
class EcsDLLError : public Exception {
public:
    using Exception::Exception;
};

class TcsDLLHeader {
public:
    // aLibraryName: a file name, looked up by the system and then in this module's folder, or
    // a path. aResident: the library stays loaded when this object goes, for what it handed
    // out may be released later (a connection closed by a static's destructor at exit).
    explicit TcsDLLHeader(std::string aLibraryName, bool aResident = false)
        : fLibraryName(std::move(aLibraryName)), fResident(aResident) {}
    virtual ~TcsDLLHeader();
    TcsDLLHeader(const TcsDLLHeader&) = delete;
    TcsDLLHeader& operator=(const TcsDLLHeader&) = delete;

    // Loads the library and binds its functions, once; raises EcsDLLError when it cannot be
    // loaded.
    void Initialize();
    [[nodiscard]] bool Initialized() const noexcept { return fHandle != nullptr; }
    [[nodiscard]] const std::string& LibraryName() const noexcept { return fLibraryName; }
    // The file the library was loaded from.
    [[nodiscard]] const std::string& LoadedFrom() const noexcept { return fLoadedFrom; }
    // How many functions the library lacked.
    [[nodiscard]] int MissingFunctions() const noexcept { return fMissing; }

protected:
    // Binds every function with Bind.
    virtual void BindFunctions() = 0;
    // Looks the function up; counts it when it is not there.
    template <class F>
    void Bind(F& aPointer, const char* aName) {
        aPointer = reinterpret_cast<F>(Symbol(aName));
        if (!aPointer) ++fMissing;
    }

private:
    void* Symbol(const char* aName) const;

    std::string fLibraryName;
    std::string fLoadedFrom;
    void* fHandle = nullptr;
    int fMissing = 0;
    bool fResident = false;
};

// The folder of the module that holds this code (the program or the Python module), with its
// trailing "/".
std::string ThisModuleFolder();

}  // namespace tmi
