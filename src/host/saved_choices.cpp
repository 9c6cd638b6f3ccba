// The saved choices of the console: section "Import" of Импорт64.ini in the user's
// temporary folder.
#include <algorithm>
#include <cstdio>

#include "PlanImportXML.h"
#include "csIniFile.h"
#include "csPaths.h"

namespace tmi {

namespace {
constexpr const char* kSection = "Import";

std::string Float(double aValue) { return FloatToStr(aValue); }

double ReadFloat(const TcsIniFile& aIni, const char* aKey, double aDefault) {
    double v = 0;
    return TryStrToFloat(aIni.ReadString(kSection, aKey, ""), v) ? v : aDefault;
}
}  // namespace

std::string SavedChoicesPath() { return TempFolder() + "Импорт64.ini"; }

void LoadChoices(const TcsIniFile& aIni, TImportChoices& aChoices) {
    aChoices.XMLText = aIni.ReadString(kSection, "XMLText", "");
    aChoices.MiText = aIni.ReadString(kSection, "MiText", "");
    aChoices.fXmin = ReadFloat(aIni, "Xmin", 0);
    aChoices.fYmin = ReadFloat(aIni, "Ymin", 0);
    aChoices.fXmax = ReadFloat(aIni, "Xmax", 10000000);
    aChoices.fYmax = ReadFloat(aIni, "Ymax", 10000000);
    char clause[256];
    std::snprintf(clause, sizeof clause, "CoordSys NonEarth Units \"m\" Bounds (%.0f,%.0f) (%.0f,%.0f)", aChoices.fXmin,
                  aChoices.fYmin, aChoices.fXmax, aChoices.fYmax);
    aChoices.ProjText = aIni.ReadString(kSection, "ProjText", clause);
    aChoices.chkObj = aIni.ReadBool(kSection, "chkObj", false);
    aChoices.chkBounds = aIni.ReadBool(kSection, "chkBounds", false);
    aChoices.chkParcel = aIni.ReadBool(kSection, "chkParcel", true);
    aChoices.chkBound = aIni.ReadBool(kSection, "chkBound", true);
    aChoices.chkZone = aIni.ReadBool(kSection, "chkZone", true);
    aChoices.chkCenter = aIni.ReadBool(kSection, "chkCenter", false);
    // An index the lists do not have falls back to its default.
    const int64_t writeStyle = aIni.ReadInteger(kSection, "cmbWriteStyle", 1);
    aChoices.cmbWriteStyle = writeStyle == 0 || writeStyle == 1 ? static_cast<int>(writeStyle) : 1;
    const int64_t points = aIni.ReadInteger(kSection, "cmbPoints", 0);
    aChoices.cmbPoints = points >= 0 && points <= 2 ? static_cast<int>(points) : 0;
    aChoices.txtCn.clear();
    // The file cannot hold more lines than it has keys, whatever its count says.
    const int64_t count =
        std::min<int64_t>(aIni.ReadInteger(kSection, "txtCnCount", 0), static_cast<int64_t>(aIni.ReadSection(kSection).size()));
    for (int64_t i = 0; i < count; ++i) aChoices.txtCn.push_back(aIni.ReadString(kSection, "txtCnItem" + std::to_string(i), ""));
}

void SaveChoices(TcsIniFile& aIni, const TImportChoices& aChoices) {
    aIni.WriteString(kSection, "XMLText", aChoices.XMLText);
    aIni.WriteString(kSection, "MiText", aChoices.MiText);
    aIni.WriteString(kSection, "ProjText", aChoices.ProjText);
    aIni.WriteBool(kSection, "chkObj", aChoices.chkObj);
    aIni.WriteString(kSection, "Xmin", Float(aChoices.fXmin));
    aIni.WriteString(kSection, "Ymin", Float(aChoices.fYmin));
    aIni.WriteString(kSection, "Xmax", Float(aChoices.fXmax));
    aIni.WriteString(kSection, "Ymax", Float(aChoices.fYmax));
    aIni.WriteBool(kSection, "chkBounds", aChoices.chkBounds);
    aIni.WriteBool(kSection, "chkParcel", aChoices.chkParcel);
    aIni.WriteBool(kSection, "chkBound", aChoices.chkBound);
    aIni.WriteBool(kSection, "chkZone", aChoices.chkZone);
    aIni.WriteBool(kSection, "chkCenter", aChoices.chkCenter);
    aIni.WriteInteger(kSection, "cmbWriteStyle", aChoices.cmbWriteStyle);
    aIni.WriteInteger(kSection, "cmbPoints", aChoices.cmbPoints);
    aIni.WriteInteger(kSection, "txtCnCount", static_cast<int64_t>(aChoices.txtCn.size()));
    for (size_t i = 0; i < aChoices.txtCn.size(); ++i) aIni.WriteString(kSection, "txtCnItem" + std::to_string(i), aChoices.txtCn[i]);
}

std::string ReleaseDateText() {
    const std::string date = std::to_string(kReleaseDate);
    return date.substr(0, 4) + "." + date.substr(4, 2) + "." + date.substr(6, 2);
}

std::string AboutText(std::string_view aLastLine) {
    return "Террамир Мини\n\nВерсия: " + std::string(kVersion) + "\nДата выпуска: " + ReleaseDateText() + "\n\n" +
           std::string(aLastLine);
}

}  // namespace tmi
