// tmconvert: cadastral XML extracts into a database (SQLite with SpatiaLite, or PostgreSQL
// with PostGIS) through the universal conversion: the file is recognised, read record by
// record and each record's session items written to the tables of a schema.
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "csPaths.h"
#include "csProgress.h"
#include "csProgressTerminal.h"
#include "csRosreestrXMLCadastr.h"
#include "csUniversalRegistration.h"
#include "csXMLDBDestination.h"

using namespace tmi;

namespace {

const char kUsage[] =
    "usage: tmconvert FILE... --db OUT [options]\n"
    "       tmconvert FILE... --info\n"
    "\n"
    "Reads each XML extract record by record and writes its records into the database OUT,\n"
    "through the tables of a schema. Only a file that a conversion process recognises is\n"
    "converted; the others are reported (\"Не определён тип файла\").\n"
    "\n"
    "  --db OUT                the database: a SQLite file (made with its tables when missing),\n"
    "                          sqlite:PATH, or\n"
    "                          postgresql://[USER[:PASSWORD]@][HOST][:PORT]/DATABASE[?host=SOCKETDIR]\n"
    "                          (the database is made, with PostGIS, when it does not exist)\n"
    "  --xsd DIR               folder of the XSD schemas (default: XSDSchemes beside the program)\n"
    "  --schema PATH           a schema file, or a folder with LocalStorageSchema.xml and\n"
    "                          LocalStorageSchemaFull.xml (default: Schemas beside the program)\n"
    "  --full-schema           fill the records by the full walk of their elements with their XSD\n"
    "                          (every value and attribute; repeating elements as child rows), into\n"
    "                          the tables of LocalStorageSchemaFull.xml\n"
    "  --skip KIND             leave out one kind of record of a cadastral extract: parcels,\n"
    "                          objects (buildings and constructions), zones, points (survey\n"
    "                          points), bounds or projects (survey projects); may be repeated\n"
    "  --info                  print what the full look at each file finds (root element, style\n"
    "                          sheet, the process's key values) and write nothing\n"
    "  --settings FILE         read the conversion settings (the destinations' configs) from FILE\n"
    "  --save-settings FILE    write the settings of this run to FILE\n"
    "  -q, --quiet             no progress line and no report\n"
    "  -h, --help              this text\n"
    "\n"
    "Each file is one transaction: a file that fails or is cancelled leaves the database as it\n"
    "was (and a database made for it is removed).\n"
    "\n"
    "Exit status: 0 done, 1 a file failed, 2 wrong usage, 3 cancelled.\n";

volatile std::sig_atomic_t gInterrupted = 0;

void OnInterrupt(int) { gInterrupted = 1; }

std::string ProgramFolder() {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string("./") : IncludeTrailingDelimiter(exe.parent_path().string());
}

struct Options {
    std::vector<std::string> Files;
    std::string Database;
    std::string XSDDir;
    std::string Schema;
    std::string Settings;
    std::string SaveSettings;
    bool Info = false;
    bool Quiet = false;
    uint32_t Exclude = 0;  // the kinds of record left out
};

// The status calls of a conversion drive the terminal's progress line; Ctrl-C stops.
TcsStatusProcedure StatusOf(TcsProgress* aProgress) {
    return [aProgress](const std::string& aText, TcsStatusKind aKind, int64_t aPosition) {
        if (aProgress) {
            switch (aKind) {
            case skOpen: aProgress->Open(aText.empty() ? "Конвертация..." : aText, {}, {}, {}, aPosition); break;
            case skPosition: aProgress->SetPos(aPosition); break;
            case skText: aProgress->SetText(aText); break;
            case skClose: aProgress->Close(); break;
            }
        }
        return gInterrupted == 0;
    };
}

void PrintInfo(TcsConvertManager& aManager) {
    std::printf("%s\n", aManager.FileName().c_str());
    for (const auto& [label, value] : aManager.InfoString()) std::printf("  %s: %s\n", label.c_str(), value.c_str());
    const TcsXMLInfo& info = aManager.Analizer().XMLInfo();
    for (const TcsXMLKeyValue& k : info.KeyValues)
        std::printf("  %s (%s): %s\n", k.Label.c_str(), k.Name.c_str(), k.Value.c_str());
    if (!aManager.ActiveProcess()) std::printf("  Не определён тип файла\n");
}

// One file from recognition to its commit: 0 done, 1 failed, 3 cancelled.
int ConvertFile(const Options& aOptions, const std::string& aFile, TcsProgress* aProgress) {
    TcsConvertManager manager;
    manager.FOnStatusProcedure = StatusOf(aProgress);
    std::string failure;
    try {
        manager.Intialize(aOptions.Schema, aOptions.XSDDir);
        manager.ActivateDestination(TcsXMLDBDestination::StaticClassName());
        if (!aOptions.Settings.empty()) manager.ReadFromFile(aOptions.Settings);
        TcsXMLProcessDestination* destination = manager.ActiveDestination();
        if (!destination) throw Exception("Нет назначения конвертации");
        if (!aOptions.Database.empty()) destination->Config().FileName = aOptions.Database;
        if (!aOptions.SaveSettings.empty()) manager.WriteToFile(aOptions.SaveSettings);
        manager.SetFileName(aFile);
        manager.UpdateInfo(true);
        if (aOptions.Info) {
            PrintInfo(manager);
            return 0;
        }
        if (gInterrupted) return 3;
        if (auto* cadastre = dynamic_cast<TcsRosReestrKad*>(manager.ActiveProcess())) cadastre->Config().Exclude = aOptions.Exclude;
        std::string message;
        if (!manager.CheckProcess(message)) {
            std::fprintf(stderr, "tmconvert: %s: %s\n", aFile.c_str(), message.c_str());
            return 1;
        }
        if (destination->Config().FileName.empty()) throw Exception("Не задана база данных (--db)");
        manager.FOnPrintReport = [&](TcsConvertManager& aManager) {
            if (aOptions.Quiet || !aManager.Finished) return;
            auto* db = dynamic_cast<TcsXMLDBDestination*>(aManager.ActiveDestination());
            std::printf("%s: %s\n", aFile.c_str(), db ? db->Config().FileName.c_str() : "");
            if (db)
                for (const auto& [table, rows] : db->RowCounts()) std::printf("  %s: %lld\n", table.c_str(), static_cast<long long>(rows));
        };
        try {
            manager.StartProcess(true);
        } catch (const std::exception& e) {
            failure = e.what();
        }
        const bool finished = manager.Finished && failure.empty();
        if (!finished) manager.Finished = false;
        manager.EndProcess();
        if (!failure.empty()) throw Exception(failure);
        if (!finished) {
            std::fprintf(stderr, "tmconvert: %s: прервано, база данных не изменена\n", aFile.c_str());
            return 3;
        }
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tmconvert: %s: %s\n", aFile.c_str(), e.what());
        return 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    options.XSDDir = ProgramFolder() + "XSDSchemes";
    options.Schema = ProgramFolder() + "Schemas";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&]() -> std::string {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "tmconvert: %s needs a value\n", a.c_str());
                std::exit(2);
            }
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--db") {
            options.Database = next();
        } else if (a == "--xsd") {
            options.XSDDir = next();
        } else if (a == "--schema") {
            options.Schema = next();
        } else if (a == "--full-schema") {
            UseFullSchema = true;
        } else if (a == "--skip") {
            static const std::pair<const char*, uint32_t> kinds[] = {{"parcels", reParcels}, {"objects", reObjects},
                                                                      {"zones", reZones},     {"points", rePoints},
                                                                      {"bounds", reBounds},   {"projects", reProjects}};
            const std::string kind = next();
            bool known = false;
            for (const auto& [name, bit] : kinds)
                if (kind == name) {
                    options.Exclude |= bit;
                    known = true;
                }
            if (!known) {
                std::fprintf(stderr, "tmconvert: --skip takes parcels, objects, zones, points, bounds or projects, not %s\n",
                             kind.c_str());
                return 2;
            }
        } else if (a == "--info") {
            options.Info = true;
        } else if (a == "--settings") {
            options.Settings = next();
        } else if (a == "--save-settings") {
            options.SaveSettings = next();
        } else if (a == "-q" || a == "--quiet") {
            options.Quiet = true;
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "tmconvert: unknown option %s\n%s", a.c_str(), kUsage);
            return 2;
        } else {
            options.Files.push_back(a);
        }
    }
    if (options.Files.empty() || (options.Database.empty() && options.Settings.empty() && !options.Info)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    RegisterUniversalClasses();
    std::signal(SIGINT, OnInterrupt);
    TcsProgress progress;
    if (!options.Quiet && !options.Info) UseTerminalProgress();
    int status = 0;
    for (const std::string& file : options.Files) {
        const int result = ConvertFile(options, file, options.Quiet || options.Info ? nullptr : &progress);
        if (result == 3) return 3;
        if (result != 0) status = 1;
    }
    return status;
}
