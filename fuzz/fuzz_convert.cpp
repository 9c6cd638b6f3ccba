// Fuzz target: the input is a document for the test process of the universal conversion
// (its root "TestDocument", records read whole) or for a cadastre process: the new plan (its
// root "extract_cadastral_plan_territory", with the tests' small plan schema) or a classic
// extract (KPT, Region_Cadastr, KVZU, KVOKS, ... without a namespace, so without a schema,
// as the classic fixture). It is recognised,
// walked and written into a
// SQLite database in memory-backed storage, by slots or, when the first byte is odd, by the
// full walk with its XSD (tolerating unknown elements when it is 3 mod 4). Errors raised as
// exceptions are answers; a crash, a leak or undefined behaviour is a finding.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "../tests/universal/test_process.h"
#include "csUniversalRegistration.h"
#include "csXMLDBDestination.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

const fs::path& Folder() {
    static const fs::path folder = [] {
        const fs::path base = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        fs::path f = base / ("tmi_fuzz_convert_" + std::to_string(::getpid()));
        fs::create_directories(f);
        return f;
    }();
    return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    static const bool registered = [] {
        RegisterUniversalClasses();
        ProcessInfoManager().Register<test::TTestRecordProcess>();
        ModalMessageHandler() = [](const std::string&) {};
        return true;
    }();
    (void)registered;
    static int runs = 0;
    const bool full = aSize > 0 && (aData[0] & 1) != 0;
    UseFullSchema = full;
    test::TTestRecordProcess::Tolerate = aSize > 0 && (aData[0] & 3) == 3;
    const fs::path in = Folder() / "in.xml";
    std::ofstream(in, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(aData), static_cast<std::streamsize>(aSize));
    const fs::path db = Folder() / (full ? "full.sqlite" : "low.sqlite");
    // The databases are made again now and then, so that they stay small.
    if (++runs % 2000 == 0) {
        fs::remove(Folder() / "full.sqlite");
        fs::remove(Folder() / "low.sqlite");
    }
    TcsConvertManager manager;
    try {
        manager.Intialize(TM_SOURCE_DIR "/data/Schemas", TM_SOURCE_DIR "/tests/fixtures/universal");
        manager.ActivateDestination(TcsXMLDBDestination::StaticClassName());
        manager.ActiveDestination()->Config().FileName = db.string();
        manager.SetFileName(in.string());
        manager.UpdateInfo(true);
        std::string message;
        if (!manager.CheckProcess(message)) return 0;
        manager.StartProcess(true);
    } catch (const std::exception&) {
        manager.Finished = false;
    }
    try {
        manager.EndProcess();
    } catch (const std::exception&) {
    }
    return 0;
}
