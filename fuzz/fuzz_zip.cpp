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
        if (tmi::SafeRelativePath(input.fRelative).find("..") == 0) __builtin_trap();
        try {
            if (!input.fEntries.empty()) (void)tmi::ReadInput(input);
        } catch (const tmi::EZipProblem&) {
        }
    }
    return 0;
}
