// The one place where table text reaches the disk: a buffered file that takes UTF-8, writes
// Windows-1251 (text it cannot hold becomes "?") and ends lines with CR LF.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "csCommon.h"

namespace tmi {

// The input-output error of a table file; its message names the file.
class EInOutError : public Exception {
public:
    using Exception::Exception;
};

class TcsAnsiTextFile {
public:
    TcsAnsiTextFile() = default;
    ~TcsAnsiTextFile();
    TcsAnsiTextFile(const TcsAnsiTextFile&) = delete;
    TcsAnsiTextFile& operator=(const TcsAnsiTextFile&) = delete;

    // Creates or replaces the file; raises EInOutError.
    void Rewrite(const std::string& aFileName);
    void Write(std::string_view aUTF8);
    // Text that is already Windows-1251 (or ASCII).
    void WriteAnsi(std::string_view aAnsi);
    void WriteLine(std::string_view aUTF8) {
        Write(aUTF8);
        WriteAnsi("\r\n");
    }
    // Hands everything written so far to the system; raises EInOutError when it cannot.
    void Flush();
    // Flushes and closes; raises EInOutError when the data cannot be written.
    void Close();
    [[nodiscard]] bool IsOpen() const noexcept { return fFile != nullptr; }
    [[nodiscard]] const std::string& FileName() const noexcept { return fFileName; }

private:
    void WriteBuffer();
    std::FILE* fFile = nullptr;
    std::string fFileName;
    std::string fBuffer;
};

// UTF-8 to Windows-1251, appended; characters outside the code page become '?'.
void AppendAsWindows1251(std::string& aOut, std::string_view aUTF8);

}  // namespace tmi
