// The documents of an archive from any bytes: listed, then each entry read within its limits.
// Whatever the bytes, a problem is a line of text, never a crash.
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

#include "batch_inputs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    static const std::string path = "/tmp/fuzz_zip-" + std::to_string(::getpid()) + ".zip";
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(aData), static_cast<std::streamsize>(aSize));
    }
    const tmi::TBatchInputs found = tmi::ListInput(path, "fuzz.zip");
    for (const tmi::TBatchInput& input : found.fInputs) {
        // The output of an entry stays below its archive's folder: no empty, "." or ".." step.
        size_t at = 0;
        while (at <= input.fRelative.size()) {
            size_t end = input.fRelative.find('/', at);
            if (end == std::string::npos) end = input.fRelative.size();
            const std::string step = input.fRelative.substr(at, end - at);
            if (step.empty() || step == "." || step == "..") __builtin_trap();
            at = end + 1;
        }
        try {
            if (!input.fEntries.empty()) (void)tmi::ReadInput(input);
        } catch (const tmi::EZipProblem&) {
        }
    }
    return 0;
}
