#include "csDLLHeader.h"

#include <dlfcn.h>

#include <filesystem>

#include "csPaths.h"

namespace tmi {

std::string ThisModuleFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&ThisModuleFolder), &info) && info.dli_fname) {
        std::error_code ec;
        std::filesystem::path file = std::filesystem::canonical(info.dli_fname, ec);
        if (ec) file = info.dli_fname;
        return IncludeTrailingDelimiter(file.parent_path().string());
    }
    return "./";
}

TcsDLLHeader::~TcsDLLHeader() {
    if (fHandle) dlclose(fHandle);
}

void TcsDLLHeader::Initialize() {
    if (fHandle) return;
    if (fLibraryName.empty()) throw EcsDLLError("Не задано имя библиотеки");
    // A name with a folder is loaded from there; a bare name as the system finds it, then
    // from this module's folder.
    std::string error;
    const bool hasFolder = fLibraryName.find('/') != std::string::npos;
    for (const std::string& candidate : hasFolder ? std::vector<std::string>{fLibraryName}
                                                  : std::vector<std::string>{fLibraryName, ThisModuleFolder() + fLibraryName}) {
        fHandle = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL | (fResident ? RTLD_NODELETE : 0));
        if (fHandle) {
            fLoadedFrom = candidate;
            break;
        }
        const char* text = dlerror();
        if (error.empty() && text) error = text;
    }
    if (!fHandle) throw EcsDLLError("Не удалось загрузить библиотеку " + fLibraryName + ": " + error);
    fMissing = 0;
    BindFunctions();
}

void* TcsDLLHeader::Symbol(const char* aName) const {
    dlerror();
    return fHandle ? dlsym(fHandle, aName) : nullptr;
}

}  // namespace tmi
