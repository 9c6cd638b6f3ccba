// The console's workflow without its widgets: the choices of an import, the run over one
// file or a folder, and what it tells the operator, through a (level, message) callback.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "csProgress.h"
#include "host_handover.h"

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
    // The command line's choice of tables: MIF/MID (what the console always writes), TAB
    // tables named as the hand-over names them, or both.
    enum class TTableFormat { Mif, Tab, Both } TableFormat = TTableFormat::Mif;
};

// Notice: a missing classifier dictionary; every job of a run tells each one.
enum class TImportMessageLevel { Info, Warning, Error, Notice };
using TImportReporter = std::function<void(TImportMessageLevel, const std::string&)>;

// What became of one file of a run.
struct TImportFileResult {
    std::string fFile;
    bool fOk = false;         // processed, and every table was completed on disk
    int32_t fImpError = 0;    // the job's code
    std::string fError;       // the job's text for its code
    std::string fFailure;     // the text of an error that ended the file
    std::string fParseError;  // the XML layer's reason, when the file did not load
    int fParseLine = 0, fParseColumn = 0;
    std::string fRoot;        // the root element's name; empty without one
    int32_t fDocumentCode = 0;  // the code of a classic eDocument
    bool fRecognised = false; // a kind of document the readers take
    std::string fBlock;       // the cadastral block, as the hand-over names the tables after it
    std::vector<std::pair<std::string, int>> fTables;  // each table written, with its rows
};
using TImportFileObserver = std::function<void(const TImportFileResult&)>;

struct TImportOutcome {
    int fFiles = 0;
    int fFailed = 0;
    bool fCancelled = false;
    std::vector<std::string> fResultLists;  // one per file
};

// The run of the OK button. Raises with "Ошибка при создании папки %s.\n\n%s" when the output
// folder cannot be made. In a batch, a file that fails is reported in one line and the run
// goes on. aFileDone, when given, hears of every file as it ends, failed or not. After each
// file the host takes the tables over through aBridge; an error of the host ends the run.
TImportOutcome RunImport(TImportChoices& aChoices, TcsProgress& aProgress, const TImportReporter& aReport,
                         const TImportFileObserver& aFileDone = {}, const THostBridge& aBridge = {});

class TlibImportXML;
// A job set up from the choices as the OK button sets up each file's (the file aside).
void ConfigureJob(TlibImportXML& aJob, const TImportChoices& aChoices, TcsProgress* aProgress, const TImportReporter& aReport);
// What a job leaves of its file, taken before its tables are closed.
void ObserveJob(const TlibImportXML& aJob, bool aOk, TImportFileResult& aResult);

// Makes the output folder (trimmed) with its parents; raises with "Ошибка при создании папки
// %s.\n\n%s" when it cannot be made. Answers it, trimmed.
std::string MakeOutputFolder(const std::string& aFolder);

// Where the QGIS edition keeps a batch for the plugin: each file's tables in a folder of its
// own ("0001/", ...), its result list beside it ("0001.ini"), and "index.ini" with one line a
// file: the list's name, a tab, the file imported.
std::string QgisRunFolder();

// Why a file failed, in words a person can act on: the file is missing, a folder, unreadable,
// empty, not XML (with the XML layer's reason, line and column), has no root, or is of no
// kind the readers take (naming its root). Empty when nothing went wrong.
std::string FailureReason(const TImportFileResult& aResult);
// Why a file that did not fail was read only in part; empty when it was read whole. A classic
// document whose code is not a plan's stops being read at its eDocument.
std::string PartialReason(const TImportFileResult& aResult);

// The non-earth clause the console shows: "CoordSys NonEarth Units "m" Bounds (x1,y1) (x2,y2)"
// with two decimals.
std::string NonEarthProjText(double aXmin, double aYmin, double aXmax, double aYmax);

// The table of the hidden test button: at aPath, in the clause aProjText and the bounds,
// columns "Id" and "Name", and three features: a square, a square with a hole and a point.
// Raises with the library's error.
void WriteTestTable(const std::string& aPath, const std::string& aProjText, double aXmin, double aYmin, double aXmax,
                    double aYmax);
// Where the test button writes its table: TestQGIS/a1.tab in the temporary folder.
std::string TestTablePath();

class TcsIniFile;

// The saved choices: section "Import" of Импорт64.ini in the user's temporary folder.
std::string SavedChoicesPath();
void LoadChoices(const TcsIniFile& aIni, TImportChoices& aChoices);
void SaveChoices(TcsIniFile& aIni, const TImportChoices& aChoices);

inline constexpr const char* kVersion = "2.0 (сборка 22)";
inline constexpr int kReleaseDate = 20250708;
// The release date as the about box shows it: "2025.07.08".
std::string ReleaseDateText();
// "Террамир Мини\n\nВерсия: ...\nДата выпуска: 2025.07.08\n\n" and the last line.
std::string AboutText(std::string_view aLastLine);

// The program's own mask matcher: "*" and "?", upper-cased; what is left of the name behind
// a used-up mask is not looked at ("a.xml.bak" matches "*.xml").
bool MatchesMask(std::string_view aName, std::string_view aMask);
// All files of the folder and its subfolders that match, depth first, in the order of the
// file system; aFolder with its trailing "/".
std::vector<std::string> FindFiles(const std::string& aFolder, std::string_view aMask);

}  // namespace tmi
