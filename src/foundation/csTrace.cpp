#include "csTrace.h"

#include <cxxabi.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <typeinfo>

namespace tmi {

namespace {

std::string ExecutablePath() {
    std::error_code ec;
    const auto p = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string() : p.string();
}

std::string CommandLine() {
    std::ifstream in("/proc/self/cmdline", std::ios::binary);
    std::string raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (char& c : raw)
        if (c == '\0') c = ' ';
    return Trim(raw);
}

std::string Clock(double aSeconds) {
    const long long ms = static_cast<long long>(aSeconds * 1000.0);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%02lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    return buf;
}

}  // namespace

TcsTrace::TcsTrace() : fOutput(std::make_unique<TcsOutput>()) {
    fOutput->InprintTick = false;
    fOutput->SetStorage(&fStorage);
    fOutput->SetMode(mmMemory);
}

TcsTrace::TcsTrace(const std::string& aFileName) : fOutput(std::make_unique<TcsOutput>()) {
    fOutput->InprintTick = false;
    fOutput->SetFileName(aFileName);
    fOutput->SetMode(mmFile);
}

TcsTrace::~TcsTrace() {
    LeaveAll();
    const std::string file = fOutput->Mode() == mmFile ? fOutput->FileName() : std::string();
    fOutput.reset();
    if (!file.empty() && fExceptions.empty() && CanDeleteFile) {
        std::error_code ec;
        std::filesystem::remove(file, ec);
    }
}

void TcsTrace::Enter(std::string_view aName, std::string_view aParams) {
    fLevels.emplace_back(aName);
    fOutput->Print("%s:%d:%s: %s", {"Enter", std::to_string(fLevels.size() - 1), std::string(aName), std::string(aParams)});
    fOutput->Indent();
}

void TcsTrace::Leave(std::string_view aParams) {
    fOutput->Unindent();
    const std::string name = fLevels.empty() ? std::string("Не найдено") : fLevels.back();
    const size_t depth = fLevels.empty() ? 0 : fLevels.size() - 1;
    fOutput->Print("%s:%d:%s: %s", {"Leave", std::to_string(depth), name, std::string(aParams)});
    if (!fLevels.empty()) fLevels.pop_back();
    // Only the current outermost call stays in the trace.
    if (fMode == tmTraceExcept && fLevels.empty()) Clear();
}

void TcsTrace::LeaveAll() {
    fLevels.clear();
    fOutput->ClearIndent();
}

void TcsTrace::Clear() {
    LeaveAll();
    fOutput->Clear();
    PrintHeader();
}

void TcsTrace::PrintDelimText(std::string_view aText) {
    PrintDelimLine();
    fOutput->Print(aText);
    PrintDelimLine();
}

void TcsTrace::PrintDefaultHeader() {
    // One fact a line; what this platform does not have is left out.
    const std::string exe = ExecutablePath();
    fOutput->Print("Program Folder: " + std::filesystem::path(exe).parent_path().string());
    fOutput->Print("Program Version: ");
    fOutput->Print("Program Command Line: " + CommandLine());
    // The system line: this platform's kernel in the place of the Windows version.
    utsname system{};
    if (uname(&system) == 0)
        fOutput->Print(std::string("Linux Version: ") + system.sysname + " " + system.release + " " + system.version + " " +
                       system.machine);
    // A 32-bit module under a 64-bit system would be this platform's WOW64.
    const bool wide = sizeof(void*) == 8;
    fOutput->Print(std::string("IsWow64: ") + (!wide && std::string(system.machine) == "x86_64" ? "True" : "False"));
    fOutput->Print(std::string("IsX64Module: ") + (wide ? "True" : "False"));
    fOutput->Print("DecimalSeparator: (" + std::string(std::localeconv()->decimal_point) + ")");
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    fOutput->Print("Memory Alloc: " + SizeText(static_cast<uint64_t>(usage.ru_maxrss) * 1024));
    // No data access components here: the database engines come with the program.
    fOutput->Print("MDAC Version: (none)");
    const char* path = std::getenv("PATH");
    fOutput->Print(std::string("Path: ") + (path ? path : ""));
    // Programs run by their executable bit; PATHEXT, when set, is shown as it is.
    const char* pathExt = std::getenv("PATHEXT");
    fOutput->Print(std::string("PathExt: ") + (pathExt ? pathExt : ""));
    fOutput->Print("Compiler: " + std::string(__VERSION__));
}

void TcsTrace::PrintHeader() {
    if (OnPrintHeader)
        OnPrintHeader(*this);
    else
        PrintDefaultHeader();
}

void TcsTrace::PrintGetProcessTimes() {
    // The process start from /proc, in clock ticks after boot.
    std::ifstream stat("/proc/self/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    double startSeconds = 0;
    const size_t close = text.rfind(')');
    if (close != std::string::npos) {
        const std::vector<std::string> fields = Split(std::string_view(text).substr(close + 2), ' ');
        if (fields.size() > 19) startSeconds = std::atof(fields[19].c_str()) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
    // The boot time, with the start's clock ticks behind it, to the millisecond.
    timespec now{}, sinceBoot{};
    clock_gettime(CLOCK_REALTIME, &now);
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    const double bootSeconds = static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9 -
                               (static_cast<double>(sinceBoot.tv_sec) + sinceBoot.tv_nsec / 1e9);
    const double startedAt = bootSeconds + startSeconds;
    const auto started = static_cast<std::time_t>(startedAt);
    const int milliseconds = static_cast<int>((startedAt - static_cast<double>(started)) * 1000) % 1000;
    std::tm local{};
    localtime_r(&started, &local);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec, milliseconds);
    fOutput->Print("Starting Time %s", {buf});
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    fOutput->Print("User Time %s", {Clock(static_cast<double>(usage.ru_utime.tv_sec) + usage.ru_utime.tv_usec / 1e6)});
    fOutput->Print("Kernel Time %s", {Clock(static_cast<double>(usage.ru_stime.tv_sec) + usage.ru_stime.tv_usec / 1e6)});
}

void TcsTrace::AddException(const std::exception& aException, bool aHandled) {
    AddException(ClassNameOf(aException), aException.what(), aHandled);
}

std::string ClassNameOf(const std::exception& aException) {
    // The type's own name as the program spells it, without its namespaces.
    const char* mangled = typeid(aException).name();
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
    std::string name = status == 0 && readable ? readable.get() : mangled;
    const size_t colon = name.rfind("::");
    return colon == std::string::npos ? name : name.substr(colon + 2);
}

void TcsTrace::AddException(std::string_view aClassName, std::string_view aMessage, bool aHandled) {
    std::string message(aMessage);
    for (char& c : message)
        if (c == '\r' || c == '\n') c = ' ';
    const std::string line = "Exception=" + std::string(aClassName) + ", Message=" + message +
                             ", Handled=" + (aHandled ? "True" : "False");
    fExceptions.push_back(line);
    fOutput->Print(line);
}

}  // namespace tmi
