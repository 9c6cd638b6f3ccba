#include "csMapInfoChooseProjection.h"

#include <filesystem>
#include <fstream>

#include "code_pages.h"
#include "csGeometryCoordSysCore.h"
#include "csSetting.h"
#include "utf8.h"

namespace tmi {

namespace fs = std::filesystem;

namespace {

bool IsValidUTF8(std::string_view aText) {
    size_t at = 0;
    while (at < aText.size()) {
        if (static_cast<unsigned char>(aText[at]) < 0x80) {
            ++at;
            continue;
        }
        size_t length = 0;
        if (xml::utf8::Decode(aText.data() + at, aText.size() - at, &length) == xml::utf8::kInvalid || length == 0) return false;
        at += length;
    }
    return true;
}

constexpr std::string_view kCatalogueName = "MapInfow.prj";

// Names compare folded, Cyrillic included.
std::string Folded(std::string_view aText) { return LowerCase(aText); }

}  // namespace

TcsProjectionCatalog::TcsProjectionCatalog(std::string aFileName) : fFileName(std::move(aFileName)) {
    std::error_code ec;
    if (!fs::is_regular_file(fFileName, ec)) throw EcsChooseProjection("Файл проекций \"" + fFileName + "\" не существует");
}

std::vector<std::string> TcsProjectionCatalog::ReadLines(const std::string& aFileName) {
    std::ifstream in(aFileName, std::ios::binary);
    if (!in) throw EcsChooseProjection("Файл проекций \"" + aFileName + "\" не существует");
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (data.compare(0, 3, "\xEF\xBB\xBF") == 0) data.erase(0, 3);
    // MapInfo keeps its catalogue in the ANSI code page; one written by hand may be UTF-8.
    if (!IsValidUTF8(data)) {
        std::string decoded;
        decoded.reserve(data.size() * 2);
        xml::AppendWindows1251AsUTF8(data.data(), data.size(), decoded);
        data.swap(decoded);
    }
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < data.size()) {
        size_t end = data.find('\n', start);
        if (end == std::string::npos) end = data.size();
        // Blanks, tabs and the carriage return of CRLF go from both ends.
        std::string_view line = std::string_view(data).substr(start, end - start);
        const size_t first = line.find_first_not_of(" \t\r");
        line = first == std::string_view::npos ? std::string_view() : line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
        lines.emplace_back(line);
        start = end + 1;
    }
    return lines;
}

bool TcsProjectionCatalog::IsCategoryLine(std::string_view aLine, std::string& aName) {
    const size_t open = aLine.find("\"---");
    if (open == std::string_view::npos) return false;
    const size_t close = aLine.find("---\"", open + 4);
    if (close == std::string_view::npos) return false;
    aName = Trim(aLine.substr(open + 4, close - open - 4));
    return true;
}

TcsProjectionEntry TcsProjectionCatalog::SplitProjectionLine(std::string_view aLine) {
    bool quoted = false;
    size_t comma = std::string_view::npos;
    for (size_t i = 0; i < aLine.size(); ++i) {
        if (aLine[i] == '"') quoted = !quoted;
        else if (aLine[i] == ',' && !quoted) {
            comma = i;
            break;
        }
    }
    if (comma == std::string_view::npos) return {std::string(aLine), std::string(aLine)};
    std::string name = Trim(aLine.substr(0, comma));
    if (name.size() >= 2 && name.front() == '"' && name.back() == '"') name = name.substr(1, name.size() - 2);
    return {name, Trim(aLine.substr(comma + 1))};
}

std::vector<std::string> TcsProjectionCatalog::Categories() const {
    std::vector<std::string> names;
    std::string name;
    for (const std::string& line : ReadLines(fFileName))
        if (IsCategoryLine(line, name)) names.push_back(name);
    return names;
}

std::vector<TcsProjectionEntry> TcsProjectionCatalog::Entries(std::string_view aCategory) const {
    std::vector<TcsProjectionEntry> entries;
    bool inside = false;
    std::string name;
    for (const std::string& line : ReadLines(fFileName)) {
        if (IsCategoryLine(line, name)) {
            if (inside) break;
            inside = SameText(name, aCategory);
            continue;
        }
        if (inside) entries.push_back(SplitProjectionLine(line));
    }
    return entries;
}

std::vector<TcsProjectionCatalog::TCategorised> TcsProjectionCatalog::AllEntries() const {
    std::vector<TCategorised> all;
    std::string category, name;
    bool started = false;
    for (const std::string& line : ReadLines(fFileName)) {
        if (IsCategoryLine(line, name)) {
            category = name;
            started = true;
            continue;
        }
        if (started) all.push_back({category, SplitProjectionLine(line)});
    }
    return all;
}

std::vector<TcsProjectionCatalog::TCategorised> TcsProjectionCatalog::Filter(std::string_view aText) const {
    const std::string text = Folded(aText);
    std::vector<TCategorised> found;
    for (TCategorised& e : AllEntries())
        if (e.Entry.Name.empty()) continue;
        else if (Folded(e.Entry.Name).find(text) != std::string::npos || Folded(e.Category).find(text) != std::string::npos)
            found.push_back(std::move(e));
    return found;
}

std::vector<TcsProjectionCatalog::TCategorised> TcsProjectionCatalog::FindByName(std::string_view aName) const {
    const std::string name = Folded(Trim(aName));
    std::vector<TCategorised> found;
    for (TCategorised& e : AllEntries())
        if (Folded(e.Entry.Name) == name) found.push_back(std::move(e));
    return found;
}

std::string CoordSysLineOfClause(const std::string& aClause, const TProjectionBounds& aBounds) {
    if (IsEarthClause(aClause)) return "CoordSys Earth Projection " + aClause;
    return "CoordSys NonEarth Units \"m\" Bounds (" + FloatToFixed(aBounds.XMin, 2) + "," + FloatToFixed(aBounds.YMin, 2) + ") (" +
           FloatToFixed(aBounds.XMax, 2) + "," + FloatToFixed(aBounds.YMax, 2) + ")";
}

bool IsEarthClause(std::string_view aClause) {
    const size_t comma = aClause.find(',');
    const std::string first = Trim(aClause.substr(0, comma));
    return !first.empty() && first != "0";
}

// ---------------------------------------------------------------------------------------------
// The choice

void TcsChooseProjectionModel::Load(const std::string& aFileName) {
    FProjFileName = aFileName;
    fCategories.clear();
    if (FCoordSysManager) {
        for (int i = 0; i < FCoordSysManager->Categories()->Count(); ++i)
            fCategories.push_back(FCoordSysManager->Categories()->Items(i)->Caption());
    } else {
        fCategories = TcsProjectionCatalog(aFileName).Categories();
    }
    fCategoryIndex = -1;
    fProjections.clear();
    FClauseList.clear();
    fProjectionIndex = -1;
    fOKEnabled = false;
    if (!fCategories.empty()) SelectCategory(0);
}

void TcsChooseProjectionModel::SelectCategory(int aIndex) {
    fProjections.clear();
    FClauseList.clear();
    fProjectionIndex = -1;
    fOKEnabled = false;
    if (aIndex < 0 || aIndex >= static_cast<int>(fCategories.size())) {
        fCategoryIndex = -1;
        return;
    }
    fCategoryIndex = aIndex;
    if (FCoordSysManager) {
        const TcsCoordSystemCategory* category = FCoordSysManager->Categories()->Items(aIndex);
        for (const std::string& id : category->CoordSystemIDS)
            if (const TcsCoordSystem* system = FCoordSysManager->CoordSystems()->GetItemByID(id)) {
                fProjections.push_back(system->Caption());
                FClauseList.push_back(system->Mapinfo());
            }
        return;
    }
    // Two categories of one name: the list shows the first of them.
    for (TcsProjectionEntry& e : TcsProjectionCatalog(FProjFileName).Entries(fCategories[static_cast<size_t>(aIndex)])) {
        fProjections.push_back(std::move(e.Name));
        FClauseList.push_back(std::move(e.Clause));
    }
}

void TcsChooseProjectionModel::SelectProjection(int aIndex) {
    fProjectionIndex = aIndex >= 0 && aIndex < static_cast<int>(fProjections.size()) ? aIndex : -1;
    if (fProjectionIndex >= 0) fOKEnabled = true;
}

std::string TcsChooseProjectionModel::Category() const {
    return fCategoryIndex >= 0 ? fCategories[static_cast<size_t>(fCategoryIndex)] : std::string();
}
std::string TcsChooseProjectionModel::Projection() const {
    return fProjectionIndex >= 0 ? fProjections[static_cast<size_t>(fProjectionIndex)] : std::string();
}
std::string TcsChooseProjectionModel::Clause() const {
    return fProjectionIndex >= 0 ? FClauseList[static_cast<size_t>(fProjectionIndex)] : std::string();
}

void PrepareProjectionBounds(TProjectionBounds& aBounds) {
    if (aBounds.XMin == 0 && aBounds.YMin == 0 && aBounds.XMax == 0 && aBounds.YMax == 0) {
        aBounds.XMax = 100000;
        aBounds.YMax = 100000;
    }
}

std::string FindProjectionCatalogue(const std::function<std::string()>& aAskFolder,
                                    const std::function<void(const std::string&)>& aMessage) {
    std::error_code ec;
    const std::string kept = GlobalSettings().ReadString("MapInfo", "ProjFilePath", "");
    if (!kept.empty()) {
        const fs::path file = fs::path(kept) / kCatalogueName;
        if (fs::is_regular_file(file, ec)) return file.string();
    }
    if (!aAskFolder) return {};
    while (true) {
        const std::string folder = aAskFolder();
        if (folder.empty()) return {};
        const fs::path file = fs::path(folder) / kCatalogueName;
        if (fs::is_regular_file(file, ec)) {
            GlobalSettings().SetValues("MapInfo", "ProjFilePath", TcsVariant(folder));
            return file.string();
        }
        if (aMessage) aMessage("Не найден файл проекций MapInfo.");
    }
}

std::string DefaultProjectionCatalogue(const std::string& aModuleFolder) {
    return (fs::path(aModuleFolder) / "Apps" / kCatalogueName).string();
}

}  // namespace tmi
