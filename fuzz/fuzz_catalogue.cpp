// The projection catalogue reader: any bytes as a catalogue file, read through the choice.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "csMapInfoChooseProjection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    static const std::string file = "/tmp/fuzz_catalogue_" + std::to_string(::getpid()) + ".prj";
    if (FILE* f = std::fopen(file.c_str(), "wb")) {
        std::fwrite(aData, 1, aSize, f);
        std::fclose(f);
    }
    tmi::TcsChooseProjectionModel model;
    model.Load(file);
    for (int c = 0; c < static_cast<int>(model.Categories().size()) && c < 8; ++c) {
        model.SelectCategory(c);
        model.SelectProjection(0);
        (void)tmi::IsEarthClause(model.Clause());
    }
    const tmi::TcsProjectionCatalog catalogue(file);
    (void)catalogue.FindByName("МСК-26 зона 2");
    (void)catalogue.Filter("зона");
    return 0;
}
