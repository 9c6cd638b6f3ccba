// TcsTrace: a nesting log of enter and leave events with a list of exceptions, for support.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "csOutput.h"

namespace tmi {

enum TcsTraceMode : uint8_t { tmTraceExcept, tmTraceAll };

class TcsTrace {
public:
    // In memory, into Storage().
    TcsTrace();
    // Into a file.
    explicit TcsTrace(const std::string& aFileName);
    // An uneventful run (no exception noted) leaves no file.
    ~TcsTrace();
    TcsTrace(const TcsTrace&) = delete;
    TcsTrace& operator=(const TcsTrace&) = delete;

    void Enter(std::string_view aName, std::string_view aParams = {});
    void Leave(std::string_view aParams = {});
    void LeaveAll();
    void Clear();
    void Print(std::string_view aMessage) { fOutput->Print(aMessage); }
    void PrintDelimLine() { fOutput->Print(fOutput->DelimLine); }
    void PrintDelimText(std::string_view aText);
    void PrintDefaultHeader();
    void PrintHeader();
    void PrintGetProcessTimes();
    void AddException(const std::exception& aException, bool aHandled);
    void AddException(std::string_view aClassName, std::string_view aMessage, bool aHandled);
    void AddError(std::string_view aMessage) { AddException("", aMessage, false); }

    [[nodiscard]] TcsTraceMode Mode() const noexcept { return fMode; }
    void SetMode(TcsTraceMode aMode) { fMode = aMode; }
    [[nodiscard]] const std::string& FileName() const noexcept { return fOutput->FileName(); }
    [[nodiscard]] TcsOutput& Output() noexcept { return *fOutput; }
    [[nodiscard]] const std::vector<std::string>& Storage() const noexcept { return fStorage; }
    [[nodiscard]] const std::vector<std::string>& Exceptions() const noexcept { return fExceptions; }
    [[nodiscard]] const std::vector<std::string>& Levels() const noexcept { return fLevels; }
    bool CanDeleteFile = true;
    std::function<void(TcsTrace&)> OnPrintHeader;

private:
    TcsTraceMode fMode = tmTraceExcept;
    std::vector<std::string> fStorage;
    std::vector<std::string> fLevels;
    std::unique_ptr<TcsOutput> fOutput;
    std::vector<std::string> fExceptions;
};

// The class name of an exception as the program spells it, without namespaces: "EcsOutput".
std::string ClassNameOf(const std::exception& aException);

}  // namespace tmi
