// Fuzz target: runs a whole import on any bytes as the document, into a private temporary
// folder, with the choices drawn from the first byte. Whatever the document holds, the job
// answers true or false, or raises one of the system's own errors (a number that is not a
// number, a spatial element without a ring: both pass out of the job by design); anything
// else is a finding.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "csCommon.h"
#include "libImportXML.h"

namespace fs = std::filesystem;

namespace {

const fs::path& Folder() {
    static const fs::path folder = [] {
        fs::path p = fs::temp_directory_path() / ("tmi_fuzz_job_" + std::to_string(::getpid()));
        fs::create_directories(p / "out");
        fs::create_directories(p / "docs");
        setenv("XDG_DOCUMENTS_DIR", (p / "docs").c_str(), 1);
        return p;
    }();
    return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    const fs::path& folder = Folder();
    const uint8_t flags = aSize > 0 ? aData[0] : 0;
    const fs::path doc = folder / "doc.xml";
    {
        std::ofstream out(doc, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(aData), static_cast<std::streamsize>(aSize));
    }
    {
        tmi::TlibImportXML job;
        job.fXMLName = doc.string();
        job.fOutputFile = (folder / "out").string() + "/";
        job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000000,10000000)";
        job.fPoints = flags & 3;
        job.fReversXY = (flags & 4) != 0;
        job.fWriteObj = (flags & 8) != 0;
        job.fWriteCenter = (flags & 16) != 0;
        job.fOutputType = (flags >> 5) & 1;
        job.chkBounds = (flags & 64) != 0;
        job.csXmin = job.csYmin = -1e6;
        job.csXmax = job.csYmax = 1e7;
        job.OnMessage = [](const std::string&) {};
        try {
            (void)job.Execute();
        } catch (const tmi::Exception&) {
        } catch (const tmi::xml::EOXmlException&) {
            // The list index error of a spatial element without a ring, also by design.
        }
        job.Clear();
    }
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder / "out", ec)) fs::remove_all(entry.path(), ec);
    return 0;
}
