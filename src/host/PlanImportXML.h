// The console's workflow without its widgets: the choices of an import, the run over one
// file or a folder, and what it tells the operator, through a (level, message) callback.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "csProgress.h"

namespace tmi {

// What the console's controls hold.
struct TImportChoices {
    std::string XMLText;    // the XML file (in a batch, a file of the folder, or the folder)
    std::string MiText;     // the output folder
    std::string ProjText = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000000,10000000)";
    bool chkPacket = false;  // all *.xml of the folder and its subfolders
    bool chkBounds = false;  // compute the extremes and carry them to the next file's clause
    bool chkObj = false;
    bool chkParcel = true;
    bool chkBound = true;
    bool chkZone = true;
    bool chkCenter = false;
    int cmbPoints = 0;      // 0 none, 1 all, 2 only the listed numbers
    int cmbWriteStyle = 1;  // kept, not used: the job always writes MIF/MID
    std::vector<std::string> txtCn;
    std::string XSDPath;
    std::string AppPath;
    double fXmin = 0, fYmin = 0, fXmax = 10000000, fYmax = 10000000;
};

enum class TImportMessageLevel { Info, Warning, Error };
using TImportReporter = std::function<void(TImportMessageLevel, const std::string&)>;

struct TImportOutcome {
    int fFiles = 0;
    int fFailed = 0;
    bool fCancelled = false;
    std::vector<std::string> fResultLists;  // one per file
};

// The run of the OK button. Raises with "Ошибка при создании папки %s.\n\n%s" when the output
// folder cannot be made. In a batch, a file that fails is reported in one line and the run
// goes on.
TImportOutcome RunImport(TImportChoices& aChoices, TcsProgress& aProgress, const TImportReporter& aReport);

class TcsIniFile;

// The saved choices: section "Import" of Импорт64.ini in the user's temporary folder.
std::string SavedChoicesPath();
void LoadChoices(const TcsIniFile& aIni, TImportChoices& aChoices);
void SaveChoices(TcsIniFile& aIni, const TImportChoices& aChoices);

inline constexpr const char* kVersion = "2.0 (сборка 22)";
inline constexpr int kReleaseDate = 20250708;
// "Террамир Мини\n\nВерсия: ...\nДата выпуска: 2025.07.08\n\n" and the last line.
std::string AboutText(std::string_view aLastLine);

// The program's own mask matcher: "*" and "?", upper-cased; what is left of the name behind
// a used-up mask is not looked at ("a.xml.bak" matches "*.xml").
bool MatchesMask(std::string_view aName, std::string_view aMask);
// All files of the folder and its subfolders that match, depth first, in the order of the
// file system; aFolder with its trailing "/".
std::vector<std::string> FindFiles(const std::string& aFolder, std::string_view aMask);

}  // namespace tmi
