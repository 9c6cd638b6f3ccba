#include "csOutput.h"

#include <cerrno>
#include <ctime>
#include <filesystem>

namespace tmi {

std::string FormatArgs(std::string_view aFormat, std::initializer_list<std::string> aArgs) {
    std::string out;
    auto arg = aArgs.begin();
    for (size_t i = 0; i < aFormat.size(); ++i) {
        if (aFormat[i] == '%' && i + 1 < aFormat.size() && (aFormat[i + 1] == 's' || aFormat[i + 1] == 'd')) {
            if (arg != aArgs.end()) out += *arg++;
            ++i;
            continue;
        }
        out.push_back(aFormat[i]);
    }
    return out;
}

TcsOutput::TcsOutput() = default;

TcsOutput::~TcsOutput() { CloseFile(); }

void TcsOutput::CloseFile() {
    if (fFile) std::fclose(fFile);
    fFile = nullptr;
}

bool TcsOutput::Ready() const {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    return fFile != nullptr;
}

void TcsOutput::SetMode(TcsOutputMode aMode) {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    if (aMode != mmFile) CloseFile();
    fMode = aMode;
}

void TcsOutput::SetFileName(std::string aFileName) {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    CloseFile();
    fFileName = std::move(aFileName);
}

void TcsOutput::Clear() {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    if (fMode == mmMemory && fStorage) fStorage->clear();
    if (fMode == mmFile) {
        CloseFile();
        std::error_code ec;
        std::filesystem::remove(fFileName, ec);
    }
}

std::string TcsOutput::GetDateTimeString() {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    const Clock::time_point now = Now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    const std::time_t t = Clock::to_time_t(now);
    std::tm local{};
    localtime_r(&t, &local);
    std::string out;
    char buf[64];
    if (InprintDate) {
        std::snprintf(buf, sizeof buf, "%02d/%02d/%04d", local.tm_mday, local.tm_mon + 1, local.tm_year + 1900);
        out += buf;
    }
    if (InprintTime) {
        std::snprintf(buf, sizeof buf, "%02d:%02d:%02d:%03d", local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(ms));
        if (!out.empty()) out += ' ';
        out += buf;
    }
    if (InprintTick) {
        const auto diff = std::chrono::duration_cast<std::chrono::milliseconds>(now - InprintDateTime).count();
        const long long d = diff < 0 ? 0 : diff;
        if (d < 1000) {
            std::snprintf(buf, sizeof buf, "%.3lld", d);
        } else {
            std::snprintf(buf, sizeof buf, "%02lld:%02lld:%02lld:%03lld", d / 3600000, d / 60000 % 60, d / 1000 % 60, d % 1000);
        }
        if (!out.empty()) out += ' ';
        out += buf;
    }
    InprintDateTime = now;
    if (!out.empty()) out += ": ";
    return out;
}

void TcsOutput::WriteLine(const std::string& aLine) {
    if (fMode == mmMemory) {
        if (fStorage) fStorage->push_back(aLine);
    } else if (fMode == mmFile) {
        if (!fFile) {
            std::error_code ec;
            const bool exists = std::filesystem::exists(fFileName, ec);
            fFile = std::fopen(fFileName.c_str(), exists ? "ab" : "wb");
            if (!fFile) throw EcsOutput("I/O error " + std::to_string(errno) + ": " + fFileName);
        }
        std::fwrite(aLine.data(), 1, aLine.size(), fFile);
        std::fputc('\n', fFile);
        std::fflush(fFile);  // a crash loses at most the current line
    }
}

void TcsOutput::Print(std::string_view aMessage) {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    const std::string message(aMessage);
    std::string line;
    if (message.empty() || message == DelimLine) {
        line = message;
    } else {
        const std::string indent = (fIndentCount >= 1 && fIndentCount <= 999) ? std::string(2 * fIndentCount, ' ') : "";
        line = GetDateTimeString() + indent + message;
    }
    WriteLine(line);
    if (OnPrint) OnPrint(*this, message);
}

void TcsOutput::Print(std::string_view aFormat, std::initializer_list<std::string> aArgs) {
    Print(FormatArgs(aFormat, aArgs));
}

void TcsOutput::PrintAndIndent(std::string_view aMessage) {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    Print(aMessage);
    Indent();
}

void TcsOutput::PrintAndUnindent(std::string_view aMessage) {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    Unindent();
    Print(aMessage);
}

void TcsOutput::Indent() {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    if (fIndentCount < 0) fIndentCount = 0;
    ++fIndentCount;
}

void TcsOutput::Unindent() {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    --fIndentCount;
}

void TcsOutput::ClearIndent() {
    std::lock_guard<std::recursive_mutex> lock(fLock);
    fIndentCount = 0;
}

}  // namespace tmi
