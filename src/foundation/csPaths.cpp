#include "csPaths.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "csCommon.h"

namespace tmi {

uint8_t& HostMode() {
    static uint8_t mode = 0;
    return mode;
}

int32_t& Bitness() {
    static int32_t bits = sizeof(void*) == 4 ? 32 : 64;
    return bits;
}

std::string IncludeTrailingDelimiter(std::string aFolder) {
    if (aFolder.empty() || aFolder.back() != '/') aFolder += '/';
    return aFolder;
}

bool IsFile(const std::string& aPath) {
    std::error_code ec;
    return !aPath.empty() && std::filesystem::is_regular_file(aPath, ec);
}

std::string TempFolder() {
    const char* tmp = std::getenv("TMPDIR");
    return IncludeTrailingDelimiter(tmp && *tmp ? tmp : "/tmp");
}

std::string DocumentsFolder() {
    std::error_code ec;
    const char* home = std::getenv("HOME");
    std::string documents;
    if (const char* explicitDir = std::getenv("XDG_DOCUMENTS_DIR"); explicitDir && *explicitDir) documents = explicitDir;
    if (documents.empty() && home && *home) {
        // user-dirs.dirs holds lines such as XDG_DOCUMENTS_DIR="$HOME/Documents".
        const char* config = std::getenv("XDG_CONFIG_HOME");
        const std::string dirs = std::string(config && *config ? config : std::string(home) + "/.config") + "/user-dirs.dirs";
        std::ifstream in(dirs);
        std::string line;
        while (std::getline(in, line)) {
            line = Trim(line);
            if (line.rfind("XDG_DOCUMENTS_DIR=", 0) != 0) continue;
            std::string value = line.substr(18);
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
            if (value.rfind("$HOME", 0) == 0) value = std::string(home) + value.substr(5);
            documents = value;
        }
    }
    if (!documents.empty() && std::filesystem::is_directory(documents, ec)) return IncludeTrailingDelimiter(documents);
    if (home && *home && std::filesystem::is_directory(home, ec)) return IncludeTrailingDelimiter(home);
    return TempFolder();
}

}  // namespace tmi
