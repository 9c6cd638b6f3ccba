#include "csOutput.h"

#include <vector>

#include <cctype>

#include <cerrno>
#include <ctime>
#include <filesystem>

namespace tmi {

std::string FormatArgs(std::string_view aFormat, std::initializer_list<std::string> aArgs) {
    // The format specifiers of the platform's Format: "%" [index ":"] ["-"] [width] ["." precision]
    // type, "*" for width or precision taking an argument; "%%" is a percent sign. The arguments
    // come as text and are read as the type asks; one that does not read as a number is 0, a
    // missing one is empty.
    const std::vector<std::string> args(aArgs);
    size_t next = 0;
    auto argument = [&](size_t aIndex) -> const std::string& {
        static const std::string kNone;
        return aIndex < args.size() ? args[aIndex] : kNone;
    };
    auto number = [&](const std::string& aText) {
        double v = 0;
        return TryStrToFloat(Trim(aText), v) ? v : 0.0;
    };
    std::string out;
    size_t i = 0;
    while (i < aFormat.size()) {
        const char c = aFormat[i];
        if (c != '%') {
            out.push_back(c);
            ++i;
            continue;
        }
        if (i + 1 < aFormat.size() && aFormat[i + 1] == '%') {
            out.push_back('%');
            i += 2;
            continue;
        }
        size_t j = i + 1;
        auto digits = [&](int& aValue) {
            bool any = false;
            aValue = 0;
            if (j < aFormat.size() && aFormat[j] == '*') {
                aValue = static_cast<int>(number(argument(next++)));
                ++j;
                return true;
            }
            while (j < aFormat.size() && aFormat[j] >= '0' && aFormat[j] <= '9') {
                aValue = aValue * 10 + (aFormat[j++] - '0');
                any = true;
            }
            return any;
        };
        int width = 0, precision = -1;
        size_t k = j, index = 0;
        while (k < aFormat.size() && aFormat[k] >= '0' && aFormat[k] <= '9') index = index * 10 + static_cast<size_t>(aFormat[k++] - '0');
        if (k > j && k < aFormat.size() && aFormat[k] == ':') {
            next = index;
            j = k + 1;
        }
        bool left = false;
        if (j < aFormat.size() && aFormat[j] == '-') {
            left = true;
            ++j;
        }
        (void)digits(width);
        if (j < aFormat.size() && aFormat[j] == '.') {
            ++j;
            int p = 0;
            (void)digits(p);
            precision = p;
        }
        if (j >= aFormat.size()) {  // an unfinished specifier stands as written
            out.append(aFormat.substr(i));
            break;
        }
        const char type = static_cast<char>(std::tolower(static_cast<unsigned char>(aFormat[j])));
        std::string piece;
        char buf[512];
        switch (type) {
            case 'd':
            case 'u': {
                const auto v = static_cast<long long>(number(argument(next++)));
                std::snprintf(buf, sizeof buf, "%.*lld", precision < 0 ? 1 : precision, type == 'u' && v < 0 ? -v : v);
                piece = buf;
                break;
            }
            case 'x': {
                const auto v = static_cast<unsigned long long>(static_cast<long long>(number(argument(next++))));
                std::snprintf(buf, sizeof buf, aFormat[j] == 'x' ? "%.*llx" : "%.*llX", precision < 0 ? 1 : precision, v);
                piece = buf;
                for (char& ch : piece) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
                break;
            }
            case 'e': std::snprintf(buf, sizeof buf, "%.*E", precision < 0 ? 15 : precision, number(argument(next++))); piece = buf; break;
            case 'f': std::snprintf(buf, sizeof buf, "%.*f", precision < 0 ? 2 : precision, number(argument(next++))); piece = buf; break;
            case 'g': std::snprintf(buf, sizeof buf, "%.*G", precision < 0 ? 15 : precision, number(argument(next++))); piece = buf; break;
            case 'n':
            case 'm': {
                // Fixed with thousands separated by blanks.
                std::snprintf(buf, sizeof buf, "%.*f", precision < 0 ? 2 : precision, number(argument(next++)));
                std::string text = buf;
                const size_t point = text.find('.');
                const size_t intEnd = point == std::string::npos ? text.size() : point;
                const size_t intStart = !text.empty() && text[0] == '-' ? 1 : 0;
                for (size_t k = intEnd; k > intStart + 3; k -= 3) text.insert(k - 3, " ");
                piece = text;
                break;
            }
            case 's':
            case 'p': {
                const std::string& v = argument(next++);
                piece = precision >= 0 && static_cast<size_t>(precision) < v.size() ? v.substr(0, static_cast<size_t>(precision)) : v;
                break;
            }
            default:  // not a specifier: stands as written
                out.append(aFormat.substr(i, j - i + 1));
                i = j + 1;
                continue;
        }
        if (static_cast<int>(piece.size()) < width) {
            const std::string pad(static_cast<size_t>(width) - piece.size(), ' ');
            piece = left ? piece + pad : pad + piece;
        }
        out += piece;
        i = j + 1;
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
