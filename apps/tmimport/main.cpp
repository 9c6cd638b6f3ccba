// tmimport: imports cadastral XML extracts into MapInfo MIF/MID tables from the command line.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "PlanImportXML.h"
#include "csMapInfoChooseProjection.h"
#include "csClassifiers.h"
#include "csPaths.h"
#include "csProgressTerminal.h"
#include "batch_run.h"

using namespace tmi;

namespace {

const char kUsage[] =
    "usage: tmimport INPUT [-o OUTDIR] [options]\n"
    "\n"
    "INPUT is an XML extract, a zip archive, or with --batch a folder (or a file in it). Each\n"
    "document gives thirteen MIF/MID tables in OUTDIR.\n"
    "\n"
    "A batch imports every *.xml of the folder and its subfolders, in name order, and every zip\n"
    "archive there (known by its content, whatever its name): the *.xml entries of an archive,\n"
    "and of archives inside it, are read in place as if they stood beside it (\"a.zip/b.xml\");\n"
    "signatures (*.sig) are left aside. An entry that would inflate beyond 4 GB, or beyond 1000\n"
    "times its packed size once past 64 MB, is refused as a zip bomb. Nothing of one document\n"
    "overwrites another's:\n"
    "  - MIF/MID tables go to a folder per document named after it, mirroring the input tree:\n"
    "    OUTDIR/sub/report.xml/Участки.mif, OUTDIR/plans.zip/inner.xml/Участки.mif;\n"
    "  - with --format tab the TAB tables go to OUTDIR itself, named TABLE_BLOCK.tab; a block\n"
    "    written earlier in the same batch gives TABLE_BLOCK_2.tab (and so on), and says so.\n"
    "A document that fails is one line and leaves nothing; the others go on. The result list\n"
    "(tmMiniImportRes.ini in the Documents folder) names every table made.\n"
    "\n"
    "  -o, --output DIR        output folder (made if missing; default: the current folder)\n"
    "  --batch                 import every *.xml and zip archive of the folder and its subfolders\n"
    "  --jobs N                documents imported at once in a batch, each in a process of its own\n"
    "                          (default: the number of cores); --bounds imports one at a time\n"
    "  --coordsys CLAUSE       the CoordSys line of the MIF headers\n"
    "                          (default: CoordSys NonEarth Units \"m\" Bounds (0,0) (10000000,10000000))\n"
    "  --projection NAME       the coordinate system of the extract, by its name in the projection\n"
    "                          catalogue (Apps/MapInfow.prj beside the program), as the console's\n"
    "                          \"Проекция в XML\" button picks it: \"МСК-26 зона 2\"\n"
    "  --list-projections [TEXT]  print the catalogue's categories and names (those holding TEXT)\n"
    "  --format mif|tab|both   the tables: MIF/MID pairs (default), TAB tables named after the\n"
    "                          block (NAME_BLOCK.tab, written through GDAL), or both\n"
    "  --bounds                compute the bounds of the data and carry them into the clause\n"
    "  --objects               import construction objects\n"
    "  --centers               write the centres of round objects\n"
    "  --skip-parcels          do not import parcels\n"
    "  --skip-bounds           do not import bounds\n"
    "  --skip-zones            do not import zones\n"
    "  --points none|all|listed  the table of turning points (default: none)\n"
    "  --number CN             a cadastral number for --points listed (repeatable)\n"
    "  --numbers-file FILE     cadastral numbers for --points listed, one per line\n"
    "  --xsd DIR               folder of the classifier schemas (default: XSDSchemes beside the program)\n"
    "  -q, --quiet             no progress line, no success message, no summary\n"
    "  -v, --verbose           name each missing classifier dictionary\n"
    "  --version               the version and its release date\n"
    "  -h, --help              this text\n"
    "\n"
    "Exit status: 0 done, 1 a file failed, 2 wrong usage, 3 cancelled.\n";

std::string ProgramFolder() {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string("./") : IncludeTrailingDelimiter(exe.parent_path().string());
}

// One line for the whole run when dictionaries are missing: how many, and where they were
// looked for; each of them with --verbose. The tables are written all the same.
void TellMissingDictionaries(const TImportChoices& aChoices, bool aVerbose) {
    TClassList list;
    list.XSDPath = ClassifierFolder(aChoices.XSDPath, Bitness());
    const std::vector<std::string> missing = list.MissingFiles();
    if (missing.empty()) return;
    std::fprintf(stderr, "tmimport: %zu of %zu classifier dictionaries not found in %s; their codes stay codes%s\n",
                 missing.size(), list.ReportedFiles().size(), list.XSDPath.c_str(),
                 aVerbose ? ":" : " (--verbose names them)");
    if (aVerbose)
        for (const std::string& f : missing) std::fprintf(stderr, "tmimport:   %s\n", f.c_str());
}

// The summary of a run: one line, then the row count of each table that has rows.
struct Summary {
    int fFiles = 0;
    int fTables = 0;
    std::vector<std::pair<std::string, long long>> fRows;  // by table, in the order first met

    void Add(const TImportFileResult& aResult) {
        ++fFiles;
        fTables += static_cast<int>(aResult.fTables.size());
        for (const auto& [name, rows] : aResult.fTables) {
            auto it = std::find_if(fRows.begin(), fRows.end(), [&](const auto& e) { return e.first == name; });
            if (it == fRows.end()) it = fRows.insert(fRows.end(), {name, 0});
            it->second += rows;
        }
    }
    long long RowsOf(std::string_view aTable) const {
        for (const auto& [name, rows] : fRows)
            if (name == aTable) return rows;
        return 0;
    }
    void Print(double aSeconds) const {
        std::printf("%d file%s, %d tables written, %lld rows of \"Участки\", %.1f s\n", fFiles, fFiles == 1 ? "" : "s",
                    fTables, RowsOf("Участки"), aSeconds);
        for (const auto& [name, rows] : fRows)
            if (rows > 0) std::printf("  %s: %lld\n", name.c_str(), rows);
    }
};

// The catalogue the console's button reads.
std::string CatalogueFile(const TImportChoices& aChoices) {
    return aChoices.AppPath + (Bitness() == 64 ? "Apps64/" : "Apps/") + "MapInfow.prj";
}

int ListProjections(const std::string& aFile, const std::string& aText) {
    try {
        std::string category;
        for (const auto& e : TcsProjectionCatalog(aFile).Filter(aText)) {
            if (e.Category != category) std::printf("%s\n", (category = e.Category).c_str());
            std::printf("  %s\n", e.Entry.Name.c_str());
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tmimport: %s\n", e.what());
        return 1;
    }
    return 0;
}

// The header line of the named catalogue entry; a usage error with the close matches when
// the name is unknown or names several entries.
bool ProjectionLine(const std::string& aFile, const std::string& aName, std::string& aLine) {
    try {
        const TcsProjectionCatalog catalogue(aFile);
        const auto found = catalogue.FindByName(aName);
        if (found.size() == 1) {
            TProjectionBounds bounds;
            PrepareProjectionBounds(bounds);
            aLine = CoordSysLineOfClause(found.front().Entry.Clause, bounds);
            return true;
        }
        auto close = found.empty() ? catalogue.Filter(aName) : found;
        if (close.empty()) {
            // The first word alone: "МСК-26" for "МСК-26 зона 7".
            close = catalogue.Filter(aName.substr(0, aName.find(' ')));
        }
        std::fprintf(stderr, "tmimport: %s projection \"%s\" in %s\n", found.empty() ? "no" : "more than one", aName.c_str(),
                     aFile.c_str());
        if (!close.empty()) std::fprintf(stderr, "tmimport: close matches:\n");
        for (size_t i = 0; i < close.size() && i < 20; ++i)
            std::fprintf(stderr, "  %s (%s)\n", close[i].Entry.Name.c_str(), close[i].Category.c_str());
        if (close.size() > 20) std::fprintf(stderr, "  ... %zu more (--list-projections TEXT)\n", close.size() - 20);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tmimport: %s\n", e.what());
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    TImportChoices choices;
    choices.MiText.assign(1, '.');  // the current folder
    choices.AppPath = ProgramFolder();
    choices.XSDPath = choices.AppPath + "XSDSchemes";
    bool quiet = false, verbose = false;
    const long cores = sysconf(_SC_NPROCESSORS_ONLN);
    int jobs = cores > 0 ? static_cast<int>(cores) : 1;
    std::string input, projection;
    Bitness() = sizeof(void*) == 4 ? 32 : 64;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&]() -> std::string {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "tmimport: %s needs a value\n", a.c_str());
                std::exit(2);
            }
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "-o" || a == "--output") {
            choices.MiText = next();
        } else if (a == "--batch") {
            choices.chkPacket = true;
        } else if (a == "--jobs" || a == "-j") {
            const std::string v = next();
            char* end = nullptr;
            const long n = std::strtol(v.c_str(), &end, 10);
            if (v.empty() || *end != '\0' || n < 1 || n > 1024) {
                std::fprintf(stderr, "tmimport: --jobs takes a number from 1 to 1024\n");
                return 2;
            }
            jobs = static_cast<int>(n);
        } else if (a == "--coordsys") {
            choices.ProjText = next();
        } else if (a == "--projection") {
            projection = next();
        } else if (a == "--list-projections") {
            const std::string text = i + 1 < argc && argv[i + 1][0] != '-' ? argv[++i] : "";
            return ListProjections(CatalogueFile(choices), text);
        } else if (a == "--format") {
            const std::string f = next();
            if (f == "mif") choices.TableFormat = TImportChoices::TTableFormat::Mif;
            else if (f == "tab") choices.TableFormat = TImportChoices::TTableFormat::Tab;
            else if (f == "both") choices.TableFormat = TImportChoices::TTableFormat::Both;
            else {
                std::fprintf(stderr, "tmimport: --format takes mif, tab or both\n");
                return 2;
            }
        } else if (a == "--bounds") {
            choices.chkBounds = true;
        } else if (a == "--objects") {
            choices.chkObj = true;
        } else if (a == "--centers") {
            choices.chkCenter = true;
        } else if (a == "--skip-parcels") {
            choices.chkParcel = false;
        } else if (a == "--skip-bounds") {
            choices.chkBound = false;
        } else if (a == "--skip-zones") {
            choices.chkZone = false;
        } else if (a == "--points") {
            const std::string v = next();
            if (v == "none") choices.cmbPoints = 0;
            else if (v == "all") choices.cmbPoints = 1;
            else if (v == "listed") choices.cmbPoints = 2;
            else {
                std::fprintf(stderr, "tmimport: --points takes none, all or listed\n");
                return 2;
            }
        } else if (a == "--number") {
            choices.txtCn.push_back(next());
        } else if (a == "--numbers-file") {
            std::ifstream in(next());
            for (std::string line; std::getline(in, line);) choices.txtCn.push_back(line);
        } else if (a == "--xsd") {
            choices.XSDPath = next();
        } else if (a == "-q" || a == "--quiet") {
            quiet = true;
        } else if (a == "-v" || a == "--verbose") {
            verbose = true;
        } else if (a == "--version") {
            std::printf("tmimport (Террамир Мини, импорт XML) %s, дата выпуска %s\n", kVersion, ReleaseDateText().c_str());
            return 0;
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "tmimport: unknown option %s\n%s", a.c_str(), kUsage);
            return 2;
        } else if (input.empty()) {
            input = a;
        } else {
            std::fprintf(stderr, "tmimport: one input only\n");
            return 2;
        }
    }
    if (input.empty()) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (!projection.empty() && !ProjectionLine(CatalogueFile(choices), projection, choices.ProjText)) return 2;
    choices.XMLText = input;
    choices.MiText = IncludeTrailingDelimiter(choices.MiText);
    std::error_code ec;
    if (!choices.chkPacket && std::filesystem::is_directory(input, ec)) {
        std::fprintf(stderr, "tmimport: %s is a folder; use --batch to import every *.xml in it\n", input.c_str());
        return 2;
    }
    HostMode() = 3;
    TellMissingDictionaries(choices, verbose);
    TcsProgress progress;
    UseTerminalProgress(!quiet);  // quiet: nothing drawn, Ctrl-C still cancels
    const auto started = std::chrono::steady_clock::now();
    Summary summary;
    int failed = 0;
    // The console's own messages are not this program's: each file is told from its result.
    auto report = [&](TImportMessageLevel aLevel, const std::string& aText) {
        if (aLevel == TImportMessageLevel::Warning) std::fprintf(stderr, "tmimport: %s\n", aText.c_str());
    };
    auto fileDone = [&](const TImportFileResult& aResult) {
        summary.Add(aResult);
        const std::string reason = FailureReason(aResult);
        if (reason.empty()) {
            const std::string partial = PartialReason(aResult);
            if (!partial.empty()) std::fprintf(stderr, "tmimport: %s: %s\n", aResult.fFile.c_str(), partial.c_str());
            return;
        }
        ++failed;
        std::fprintf(stderr, "tmimport: %s: %s\n", aResult.fFile.c_str(), reason.c_str());
    };
    int status = 0;
    // A batch, or an archive: each document into an output of its own.
    const bool archive = !choices.chkPacket && IsZipFile(input);
    if (choices.chkPacket || archive) {
        std::string folder = input;
        if (!archive && !std::filesystem::is_directory(input, ec) && !IsZipFile(input))
            folder = std::filesystem::path(input).parent_path().string();
        TBatchInputs inputs;
        if (std::filesystem::is_directory(folder, ec))
            inputs = ListFolder(IncludeTrailingDelimiter(folder.empty() ? std::string(".") : folder));
        else
            inputs = ListInput(input, std::filesystem::path(input).filename().string());
        if (inputs.fInputs.empty() && inputs.fProblems.empty()) {
            std::fprintf(stderr, "tmimport: no *.xml and no zip archive in %s\n", folder.c_str());
            return 1;
        }
        auto problem = [](const TBatchProblem& aProblem) {
            std::fprintf(stderr, "tmimport: %s: %s\n", aProblem.fName.c_str(), aProblem.fReason.c_str());
        };
        try {
            const TBatchOutcome outcome = RunBatch(choices, inputs, jobs, progress, report, fileDone, problem);
            if (outcome.fCancelled) return 3;
            status = outcome.fFailed > 0 ? 1 : 0;
        } catch (const std::exception& e) {
            std::fprintf(stderr, "tmimport: %s\n", e.what());
            status = 1;
        }
        if (!quiet) summary.Print(std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
        return status;
    }
    try {
        const TImportOutcome outcome = RunImport(choices, progress, report, fileDone);
        if (outcome.fCancelled) return 3;
        status = failed > 0 ? 1 : 0;
    } catch (const std::exception& e) {
        // A file's own failure was told when it ended; anything else is told here.
        if (failed == 0) std::fprintf(stderr, "tmimport: %s: %s\n", input.c_str(), e.what());
        status = 1;
    }
    if (!quiet) {
        if (status == 0 && !choices.chkPacket) std::printf("Импорт успешно завершен.\n");
        summary.Print(std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
    }
    return status;
}
