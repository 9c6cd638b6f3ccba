// Fuzz target: the input, cut at zero bytes, is three schema files a.xsd, b.xsd and c.xsd in a
// private folder (seeds let them include each other); a.xsd is loaded as the root and a few
// lookups are asked. The library's own errors are answers, anything else is a finding.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "csXSDLib.h"

using namespace tmi;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    static const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("tmi_fuzz_xsd_" + std::to_string(::getpid()));
    static const bool made = std::filesystem::create_directories(folder) || true;
    (void)made;
    std::string_view rest(reinterpret_cast<const char*>(aData), aSize);
    for (const char* name : {"a.xsd", "b.xsd", "c.xsd"}) {
        const size_t zero = rest.find('\0');
        const std::string_view part = rest.substr(0, zero);
        std::ofstream(folder / name, std::ios::binary | std::ios::trunc).write(part.data(), static_cast<std::streamsize>(part.size()));
        rest = zero == std::string_view::npos ? std::string_view() : rest.substr(zero + 1);
    }
    try {
        TXSDLibraries set;
        TXSDLibrary* root = set.LoadXSD((folder / "a.xsd").string());
        for (int i = 0; i < root->Elements().Count(); ++i) {
            const TXSDElement* e = root->Elements().Items(i);
            (void)root->GetXSDElementByXPath("/" + e->XPathName());
            for (const TXSDElement* c : e->ChildElements()) {
                (void)c->GetTextValue("1");
                (void)c->InternalDataType();
                (void)root->GetXSDElementByXPath("/" + e->XPathName() + "/" + c->XPathName());
            }
        }
        (void)root->GetTypeByName("t:T");
    } catch (const EXSDError&) {
    }
    return 0;
}
