// Helpers shared by the tests over the real extracts.
#pragma once

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace tmi::test {

// Under CI the shared extracts must be there: a missing folder fails instead of skipping.
inline bool InCI() {
    const char* ci = std::getenv("CI");
    return ci && std::string(ci) == "true";
}

// Runs a shell command and answers what it printed, both streams; aStatus gets pclose's.
inline std::string Shell(const std::string& aCommand, int* aStatus) {
    std::string out;
    FILE* p = popen((aCommand + " 2>&1").c_str(), "r");
    if (!p) return out;
    std::array<char, 4096> buf{};
    while (size_t n = fread(buf.data(), 1, buf.size(), p)) out.append(buf.data(), n);
    *aStatus = pclose(p);
    return out;
}

}  // namespace tmi::test
