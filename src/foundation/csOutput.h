// TcsOutput: a thread-safe line writer to memory or a file, with prefixes of date, time and
// elapsed time, and with indentation.
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "csCommon.h"

namespace tmi {

enum TcsOutputMode : uint8_t { mmNone, mmMemory, mmFile };

class EcsOutput : public Exception {
public:
    using Exception::Exception;
};

class TcsOutput {
public:
    using Clock = std::chrono::system_clock;
    TcsOutput();
    ~TcsOutput();
    TcsOutput(const TcsOutput&) = delete;
    TcsOutput& operator=(const TcsOutput&) = delete;

    void Clear();
    void Print(std::string_view aMessage);
    // "%s" and "%d" of aFormat take the arguments in turn.
    void Print(std::string_view aFormat, std::initializer_list<std::string> aArgs);
    void PrintAndIndent(std::string_view aMessage);
    void PrintAndUnindent(std::string_view aMessage);
    void Indent();
    void Unindent();
    void ClearIndent();
    // "dd/mm/yyyy hh:mm:ss:zzz 007: " by the Inprint flags; the present time becomes the
    // base of the next tick.
    std::string GetDateTimeString();

    [[nodiscard]] bool Ready() const;
    [[nodiscard]] TcsOutputMode Mode() const noexcept { return fMode; }
    void SetMode(TcsOutputMode aMode);
    [[nodiscard]] std::vector<std::string>* Storage() const noexcept { return fStorage; }
    void SetStorage(std::vector<std::string>* aStorage) { fStorage = aStorage; }
    [[nodiscard]] const std::string& FileName() const noexcept { return fFileName; }
    void SetFileName(std::string aFileName);
    [[nodiscard]] int IndentCount() const noexcept { return fIndentCount; }

    bool InprintDate = true;
    bool InprintTime = true;
    bool InprintTick = true;
    Clock::time_point InprintDateTime = Clock::now();
    std::string DelimLine = std::string(100, '=');
    std::function<void(TcsOutput&, const std::string&)> OnPrint;
    // The clock, replaceable for tests.
    std::function<Clock::time_point()> Now = [] { return Clock::now(); };

private:
    void CloseFile();
    void WriteLine(const std::string& aLine);

    mutable std::recursive_mutex fLock;
    TcsOutputMode fMode = mmNone;
    std::vector<std::string>* fStorage = nullptr;
    std::string fFileName;
    std::FILE* fFile = nullptr;
    int fIndentCount = 0;
};

// Replaces "%s" and "%d" of aFormat by the arguments in turn.
std::string FormatArgs(std::string_view aFormat, std::initializer_list<std::string> aArgs);

}  // namespace tmi
