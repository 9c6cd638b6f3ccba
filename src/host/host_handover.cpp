#include "host_handover.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "PlanImportXML.h"
#include "csCommon.h"
#include "csMitab.h"
#include "csPaths.h"

namespace tmi {

namespace {

std::string ReplaceAll(std::string aText, std::string_view aWhat, std::string_view aWith) {
    for (size_t at = aText.find(aWhat); at != std::string::npos; at = aText.find(aWhat, at + aWith.size()))
        aText.replace(at, aWhat.size(), aWith);
    return aText;
}

std::string Slashes(const std::string& aPath) { return ReplaceAll(aPath, "\\", "/"); }

bool HasMif(const std::string& aLine) { return IsFile(aLine + ".mif"); }

}  // namespace

void miDo(TMapInfoAutomation& aMapInfo, const std::string& aCommand) {
    if (!aCommand.empty() && aCommand[0] == '#')
        aMapInfo.ApplicationDo("miServices.mbx", aCommand);
    else
        aMapInfo.Do(aCommand);
}

std::string FinalTableName(const std::string& aLine, const std::string& aBlockCn) { return aLine + "_" + aBlockCn + ".tab"; }

std::vector<std::string> ReadResultList(const std::string& aPath) {
    std::vector<std::string> lines;
    std::ifstream in(aPath, std::ios::binary);
    if (!in) return lines;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<std::string> AxiomaScript(const std::vector<std::string>& aTables, const std::string& aBlockCn,
                                      const std::string& aProjText) {
    std::vector<std::string> script = {
        "import axipy",
        "from axipy.cpp_core_dp import ShadowConverter",
        "out_cs = '" + aProjText + "'",
    };
    for (const std::string& line : aTables) {
        const std::string mif = line + ".mif";
        if (!IsFile(mif)) continue;
        // Every ".mif" of the path is replaced, a folder's included.
        const std::string tab = ReplaceAll(mif, ".mif", "_" + aBlockCn + ".tab");
        script.push_back("file_path = \"" + Slashes(mif) + "\"");
        script.push_back("temp_file_path = \"" + Slashes(tab) + "\"");
        script.push_back(
            "mif_source = axipy.MifMidDestination(axipy.Schema(),axipy.Source._provider('MifMidDataProvider'),"
            "axipy.Source._table_file(file_path),{'access': 'ro'})");
        script.push_back(
            "tab_dest = axipy.MifMidDestination(axipy.Schema(),axipy.Source._provider('TabDataProvider'),"
            "axipy.Source._table_file(temp_file_path),{'prj': out_cs })");
        script.push_back("ShadowConverter.convertMifToTab(mif_source, tab_dest)");
    }
    return script;
}

std::vector<std::string> MapInfoCommands(const std::vector<std::string>& aTables, const std::string& aBlockCn) {
    std::vector<std::string> commands = {"Set ProgressBars Off", "Close All Interactive"};
    for (const std::string& line : aTables)
        if (HasMif(line))
            commands.push_back("Import \"" + line + ".mif\" Type \"MIF\" Into \"" + line + "_" + aBlockCn + ".tab\" Overwrite");
    return commands;
}

void NameTabTables(const std::string& aResultList, const std::string& aBlockCn, bool aDropMif) {
    NameTabTables(ReadResultList(aResultList), aBlockCn, aDropMif);
}

void NameTabTables(const std::vector<std::string>& aLines, const std::string& aBlockCn, bool aDropMif) {
    std::error_code ec;
    for (const std::string& line : aLines) {
        const std::string final = FinalTableName(line, aBlockCn);
        const std::string finalStem = final.substr(0, final.size() - 4);
        for (const char* ext : {".tab", ".dat", ".map", ".id", ".ind"}) {
            if (!std::filesystem::exists(line + ext, ec)) continue;
            std::filesystem::remove(finalStem + ext, ec);
            std::filesystem::rename(line + ext, finalStem + ext, ec);
            if (ec) throw Exception("Не удалось переименовать " + line + ext + ": " + ec.message());
        }
        if (aDropMif)
            for (const char* ext : {".mif", ".mid"}) std::filesystem::remove(line + ext, ec);
    }
}

std::string TestTablePath() { return TempFolder() + "TestQGIS/a1.tab"; }

void WriteTestTable(const std::string& aPath, const std::string& aProjText, double aXmin, double aYmin, double aXmax,
                    double aYmax) {
    TcsMapinfoTable table;
    table.FFileName = aPath;
    table.FCoordSysString = aProjText;
    table.Bounds().SetXMin(aXmin);
    table.Bounds().SetYMin(aYmin);
    table.Bounds().SetXMax(aXmax);
    table.Bounds().SetYMax(aYmax);
    table.FOnError = [](TcsMapinfoTable&, const std::string& aText) { throw Exception(aText); };
    table.CreateTable("tab");
    table.AddField("Id", TABFT_Integer, false, false, 0, 4);
    table.AddField("Name", TABFT_Char, false, false, 0, 50);
    auto feature = [&](int aId, const std::string& aName, int aKind, const std::vector<std::vector<double>>& aParts) {
        table.CreateFeature(aKind);
        table.SetFieldValue(std::to_string(aId), "Id");
        table.SetFieldValue(aName, "Name");
        for (size_t i = 0; i < aParts.size(); ++i) {
            std::vector<double> x, y;
            for (size_t k = 0; k + 1 < aParts[i].size(); k += 2) {
                x.push_back(aParts[i][k]);
                y.push_back(aParts[i][k + 1]);
            }
            table.SetPoints(static_cast<int>(i), x, y);
        }
        table.WriteActiveFeature();
        table.DestroyActiveFeature();
    };
    feature(1, "Квадрат", TABFC_Region, {{10, 10, 10, 30, 30, 30, 30, 10, 10, 10}});
    feature(2, "Квадрат с дыркой", TABFC_Region,
            {{40, 10, 40, 40, 70, 40, 70, 10, 40, 10}, {50, 20, 50, 30, 60, 30, 60, 20, 50, 20}});
    feature(3, "Точка", TABFC_Point, {{105, 45}});
    table.CloseTable();
}

void HandOverToHost(const std::string& aResultList, const std::string& aBlockCn, const std::string& aProjText,
                    const THostBridge& aBridge) {
    if (!IsFile(aResultList)) return;
    switch (HostMode()) {
        case 0:
            if (!aBridge.MapInfo) return;
            for (const std::string& command : MapInfoCommands(ReadResultList(aResultList), aBlockCn))
                miDo(*aBridge.MapInfo, command);
            return;
        case 3: {
            if (!aBridge.RunScript) return;
            std::string program;
            for (const std::string& line : AxiomaScript(ReadResultList(aResultList), aBlockCn, aProjText)) {
                program += line;
                program += '\n';
            }
            aBridge.RunScript(program);
            return;
        }
        default:
            return;  // QGIS and the others read the list themselves
    }
}

}  // namespace tmi
