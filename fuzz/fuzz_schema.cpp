// Fuzz target: the input is a schema file; it is opened and loaded, checked, and saved to a
// second file when the checks pass. The framework's own errors are answers, anything else
// (a crash, a leak, an exception of another kind) is a finding.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "scXMLProvider.h"

using namespace tmi;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    static const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("tmi_fuzz_schema_" + std::to_string(::getpid()));
    static const bool made = std::filesystem::create_directories(folder) || true;
    (void)made;
    ModalMessageHandler() = [](const std::string&) {};
    const auto in = folder / "in.xml";
    std::ofstream(in, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(aData), static_cast<std::streamsize>(aSize));
    try {
        TscSchema schema;
        auto provider = std::make_unique<TscXMLProvider>(&schema);
        provider->SetConnectionString("FileName=" + in.string());
        schema.Open(std::move(provider), true);
        for (const auto& list : schema.ROOTObjects())
            for (TscObject* o : list->Objects()) (void)o->GetDisplayName();
        if (schema.CheckAll().empty()) {
            TscXMLProvider out(&schema);
            out.SetConnectionString("FileName=" + (folder / "out.xml").string());
            std::filesystem::remove(folder / "out.xml");
            out.Open();
            schema.Save(out);
        }
    } catch (const EscSchemaException&) {
    }
    return 0;
}
