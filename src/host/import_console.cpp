#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <cstdio>
#include <cstring>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "PlanImportXML.h"
#include "host_handover.h"
#include "csPaths.h"
#include "libImportXML.h"

namespace tmi {

namespace {

std::string Upper(std::string_view aText) {
    std::string out(aText);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    return out;
}

std::string FileNameOf(const std::string& aPath) { return std::filesystem::path(aPath).filename().string(); }

std::string FolderOf(const std::string& aPath) {
    std::error_code ec;
    if (std::filesystem::is_directory(aPath, ec)) return IncludeTrailingDelimiter(aPath);
    const std::string parent = std::filesystem::path(aPath).parent_path().string();
    return IncludeTrailingDelimiter(parent.empty() ? "." : parent);
}

// The file's result list copied into the run's folder and named in its index.
void KeepForPlugin(const std::string& aRunFolder, const std::string& aNumber, const std::string& aFile) {
    std::error_code ec;
    const std::string list = aNumber + ".ini";
    std::filesystem::copy_file(TlibImportXML::ResultListPath(), aRunFolder + list,
                               std::filesystem::copy_options::overwrite_existing, ec);
    if (ec) return;
    std::ofstream index(aRunFolder + "index.ini", std::ios::binary | std::ios::app);
    index << list << '\t' << aFile << '\n';
}

}  // namespace

std::string MakeOutputFolder(const std::string& aFolder) {
    const std::string output = Trim(aFolder);
    std::error_code ec;
    if (!std::filesystem::is_directory(output, ec)) {
        std::filesystem::create_directories(output, ec);
        if (ec || !std::filesystem::is_directory(output))
            throw Exception("Ошибка при создании папки " + output + ".\n\n" + (ec ? ec.message() : std::string("not a folder")));
    }
    return output;
}

std::string QgisRunFolder() { return TempFolder() + "tmMiniImportRun/"; }

std::string NonEarthProjText(double aXmin, double aYmin, double aXmax, double aYmax) {
    char buf[1600];  // four doubles of up to 309 digits each fit
    std::snprintf(buf, sizeof buf, "CoordSys NonEarth Units \"m\" Bounds (%.2f,%.2f) (%.2f,%.2f)", aXmin, aYmin, aXmax, aYmax);
    return buf;
}

bool MatchesMask(std::string_view aName, std::string_view aMask) {
    const std::string name = Upper(aName), mask = Upper(aMask);
    size_t m = 0, n = 0;
    while (m < mask.size()) {
        const char c = mask[m];
        if (c == '*') {
            if (m + 1 == mask.size()) return true;
            if (n < name.size() && mask[m + 1] == name[n]) {
                ++m;
                continue;
            }
            if (n >= name.size()) return false;
            ++n;
            continue;
        }
        if (c == '?') {
            ++m;
            ++n;
            continue;
        }
        if (n >= name.size() || c != name[n]) return false;
        ++m;
        ++n;
    }
    return true;
}

std::vector<std::string> FindFiles(const std::string& aFolder, std::string_view aMask) {
    std::vector<std::string> files;
    // Depth first without recursion: a folder is walked at once where it stands.
    struct Level {
        std::string fFolder;
        DIR* fDir;
    };
    std::vector<Level> stack;
    if (DIR* d = opendir(aFolder.c_str())) stack.push_back({aFolder, d});
    while (!stack.empty()) {
        dirent* e = readdir(stack.back().fDir);
        if (!e) {
            closedir(stack.back().fDir);
            stack.pop_back();
            continue;
        }
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
        const std::string path = stack.back().fFolder + e->d_name;
        struct stat st {};
        if (stat(path.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            if (DIR* d = opendir(path.c_str())) stack.push_back({path + "/", d});
        } else if (MatchesMask(e->d_name, aMask)) {
            files.push_back(path);
        }
    }
    return files;
}

namespace {
// Rows in a table other than the passport, which every document gets.
bool ReadSomething(const TImportFileResult& r) {
    return std::any_of(r.fTables.begin(), r.fTables.end(), [](const auto& t) { return t.second > 0 && t.first != "Паспорт"; });
}
}  // namespace

std::string PartialReason(const TImportFileResult& r) {
    if (r.fImpError != kImpErrorForbiddenDocument || !ReadSomething(r)) return {};
    return "reading stopped at its eDocument, whose code " + std::to_string(r.fDocumentCode) +
           " is not one of a plan of territory (14, 101, 114); the tables hold what stood before it";
}

std::string FailureReason(const TImportFileResult& r) {
    std::error_code ec;
    const std::filesystem::path path(r.fFile);
    if (r.fImpError == kImpErrorNoFile) {
        if (std::filesystem::is_directory(path, ec)) return "is a folder, not a file";
        return "no such file";
    }
    if (!r.fFailure.empty()) {
        if (std::filesystem::is_regular_file(path, ec) && ::access(r.fFile.c_str(), R_OK) != 0)
            return std::string("cannot be read: ") + std::strerror(errno);
        return r.fFailure;
    }
    if (r.fImpError == kImpErrorNoRoot) {
        if (std::filesystem::is_regular_file(path, ec) && std::filesystem::file_size(path, ec) == 0 && !ec) return "the file is empty";
        if (!r.fParseError.empty())
            return "not XML: " + r.fParseError + " (line " + std::to_string(r.fParseLine) + ", column " +
                   std::to_string(r.fParseColumn) + ")";
        return "no root element";
    }
    if (r.fImpError == kImpErrorForbiddenDocument && !ReadSomething(r))
        return "no reader takes this kind of document (root <" + r.fRoot + ">, document code " + std::to_string(r.fDocumentCode) +
               "); its tables are empty";
    if (!r.fRecognised) return "no reader takes this kind of document (root <" + r.fRoot + ">); its tables are empty";
    if (!r.fOk) return "not completed";
    return {};
}

void ConfigureJob(TlibImportXML& aJob, const TImportChoices& aChoices, TcsProgress* aProgress, const TImportReporter& aReport) {
    std::error_code ec;
    if (HostMode() == 2) {
        aJob.qgisPath = TempFolder();
        std::filesystem::create_directories(aJob.qgisPath, ec);
    }
    aJob.fOutputType = 1;
    aJob.fOutputFile = aChoices.MiText;
    aJob.chkBounds = aChoices.chkBounds;
    aJob.miCoordSys = HostMode() == 2 ? "CoordSys NonEarth Units \"m\" Bounds (-10000000,-10000000) (10000000,10000000)"
                                     : aChoices.ProjText;
    aJob.fClearType = 1;
    aJob.fReversXY = false;
    aJob.ispacket = aChoices.chkPacket;
    aJob.fWriteObj = aChoices.chkObj;
    aJob.fWriteCenter = aChoices.chkCenter;
    aJob.fWriteParcels = aChoices.chkParcel;
    aJob.fWriteZones = aChoices.chkZone;
    aJob.fWriteBounds = aChoices.chkBound;
    aJob.fWriteStyle = aChoices.TableFormat == TImportChoices::TTableFormat::Mif ? 0 : 2;
    aJob.FProgress = aProgress;
    aJob.XSDPath = aChoices.XSDPath;
    aJob.AppDir = aChoices.AppPath;
    aJob.csXmin = aChoices.fXmin;
    aJob.csYmin = aChoices.fYmin;
    aJob.csXmax = aChoices.fXmax;
    aJob.csYmax = aChoices.fYmax;
    aJob.fPoints = aChoices.cmbPoints;
    // Every job loads the classifiers again and tells each one that is missing.
    aJob.OnMessage = [aReport](const std::string& aText) {
        if (aReport) aReport(TImportMessageLevel::Notice, aText);
    };
    if (aChoices.cmbPoints == 2)
        for (const std::string& line : aChoices.txtCn)
            if (!Trim(line).empty()) aJob.arrCn.push_back(Trim(line));
}

void ObserveJob(const TlibImportXML& aJob, bool aOk, TImportFileResult& aResult) {
    aResult.fOk = aOk;
    aResult.fImpError = aJob.fImpError;
    aResult.fError = aJob.GetError();
    if (aJob.fLoadError) {
        aResult.fParseError = aJob.fLoadError->Reason;
        aResult.fParseLine = aJob.fLoadError->Line;
        aResult.fParseColumn = aJob.fLoadError->LinePos;
    }
    aResult.fRoot = aJob.rootnm;
    aResult.fDocumentCode = aJob.fCode_Type;
    aResult.fRecognised = aJob.KnownDocumentKind();
    aResult.fBlock = aJob.blockCn;
    aResult.fTables.clear();
    for (const auto& table : aJob.Tables()) aResult.fTables.emplace_back(table->Name_, table->Rows());
}

TImportOutcome RunImport(TImportChoices& aChoices, TcsProgress& aProgress, const TImportReporter& aReport,
                         const TImportFileObserver& aFileDone, const THostBridge& aBridge) {
    TImportOutcome outcome;
    const std::string output = MakeOutputFolder(aChoices.MiText);
    std::error_code ec;
    // The QGIS edition keeps each file of a batch apart, so that the plugin shows every one.
    const bool qgisBatch = HostMode() == 2 && aChoices.chkPacket;
    const std::string runFolder = QgisRunFolder();
    if (HostMode() == 2) std::filesystem::remove_all(runFolder, ec);
    std::vector<std::string> files;
    if (aChoices.chkPacket)
        files = FindFiles(FolderOf(aChoices.XMLText), "*.xml");
    else
        files.push_back(aChoices.XMLText);
    // A cancel only raises the flag, which the loops test; off before the window opens, so
    // that a press while it opens does not become an exception.
    aProgress.AbortOnCancel = false;
    aProgress.Open({}, {}, "Импорт XML", "Импорт из XML Росреестра", 0);
    const int n = static_cast<int>(files.size());
    for (int i = 0; i < n; ++i) {
        const std::string& file = files[static_cast<size_t>(i)];
        aProgress.SetText("Импорт (" + std::to_string(i + 1) + " из " + std::to_string(n) + "): " + FileNameOf(file));
        ++outcome.fFiles;
        TlibImportXML job;
        ConfigureJob(job, aChoices, &aProgress, aReport);
        job.fXMLName = file;
        char number[16];
        std::snprintf(number, sizeof number, "%04d", i + 1);
        if (qgisBatch) {
            job.qgisPath = runFolder + number + "/";
            std::filesystem::create_directories(job.qgisPath, ec);
        }
        TImportFileResult result;
        result.fFile = file;
        // What the job leaves of the file, taken before its tables are closed.
        auto observe = [&](bool aOk) { ObserveJob(job, aOk, result); };
        bool ok = false;
        try {
            ok = job.Execute();
            observe(ok);
            // Closing the tables completes the files; a failure to write them is this file's.
            job.Clear();
        } catch (const EAbort&) {
            break;
        } catch (const std::exception& e) {
            ++outcome.fFailed;
            observe(false);
            result.fOk = false;
            result.fFailure = e.what();
            if (aFileDone) aFileDone(result);
            if (!aChoices.chkPacket) throw;
            aReport(TImportMessageLevel::Error, file + ": " + e.what());
            continue;
        }
        if (aFileDone) aFileDone(result);
        if (!ok) {
            if (!aChoices.chkPacket) {
                aReport(TImportMessageLevel::Error, "Импорт завершен с ошибками (" + job.GetError() + ").");
            } else {
                aReport(TImportMessageLevel::Error, file + ": " + (job.GetError().empty() ? "нет корневого элемента" : job.GetError()));
            }
            ++outcome.fFailed;
        }
        if (aChoices.chkBounds && aChoices.ProjText.find("NonEarth") != std::string::npos) {
            aChoices.fXmin = job.csXmin;
            aChoices.fYmin = job.csYmin;
            aChoices.fXmax = job.csXmax;
            aChoices.fYmax = job.csYmax;
            aChoices.ProjText = NonEarthProjText(aChoices.fXmin, aChoices.fYmin, aChoices.fXmax, aChoices.fYmax);
        }
        // The tables are complete on disk: the host takes them over. Its errors end the run.
        outcome.fResultLists.push_back(TlibImportXML::ResultListPath());
        if (qgisBatch) KeepForPlugin(runFolder, number, file);
        if (aChoices.TableFormat != TImportChoices::TTableFormat::Mif)
            NameTabTables(outcome.fResultLists.back(), job.blockCn, aChoices.TableFormat == TImportChoices::TTableFormat::Tab);
        HandOverToHost(outcome.fResultLists.back(), job.blockCn, aChoices.ProjText, aBridge);
        if (!aChoices.chkPacket) {
            aReport(TImportMessageLevel::Info, "Импорт успешно завершен.");
            break;
        }
        if (aProgress.Cancelled()) break;
    }
    if (aProgress.Cancelled()) {
        outcome.fCancelled = true;
        for (const std::string& f : FindFiles(IncludeTrailingDelimiter(output), "*.mi*")) std::filesystem::remove(f, ec);
        aReport(TImportMessageLevel::Warning, "Импорт прерван пользователем.");
    }
    aProgress.Close();
    return outcome;
}

}  // namespace tmi
