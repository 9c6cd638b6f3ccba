// The job: its life, Execute, the error texts, the progress hooks and the result list.
#include <cmath>
#include <filesystem>
#include <fstream>

#include "csPaths.h"
#include "libImportXML.h"

namespace tmi {

namespace {
constexpr size_t kNumberCapacity = 100000;
}  // namespace

TlibImportXML::TlibImportXML() {
    arrayKn.reserve(kNumberCapacity);
}

TlibImportXML::~TlibImportXML() {
    // Execute has already flushed the tables, so closing them rarely fails here; when it
    // does, the owner that did not call Clear() itself still hears of it.
    try {
        Clear();
    } catch (const std::exception& e) {
        if (OnMessage) OnMessage(e.what());
    } catch (...) {
    }
}

void TlibImportXML::Clear() {
    arPoints.clear();
    arrayKn.clear();
    arrayKn.shrink_to_fit();
    nPoints = 0;
    ClearSPList();
    // Every table is closed even when one of them fails; the first failure is reported.
    std::exception_ptr failure;
    for (auto& table : fMITables) {
        try {
            table->Close();
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
    }
    fMITables.clear();
    if (failure) std::rethrow_exception(failure);
}

std::string TlibImportXML::GetError() const {
    switch (fImpError) {
        case 1: return "Не создано соединение MS Access для импорта";
        case kImpErrorNoFile: return "Не найден файл XML для импорта";
        case kImpErrorForbiddenDocument: return "Недозволенный тип документа";
        default: return {};
    }
}

void TlibImportXML::SetProgressText(std::string_view aText) {
    if (FProgress) FProgress->SetText(aText);
}

bool TlibImportXML::Cancelled() { return FProgress && FProgress->Cancelled(); }

void TlibImportXML::ShowProgressOxml(int64_t aPosition) {
    if (aPosition % 100 == 0) ProcessXmlEvent(aPosition);
}

void TlibImportXML::ProcessXmlEvent(int64_t aPosition) {
    if (FProgress) FProgress->SetPos(aPosition);
}

std::string TlibImportXML::OutputFolder() const {
    if (HostMode() == 2) return qgisPath;
    return IncludeTrailingDelimiter(Trim(fOutputFile));
}

std::string TlibImportXML::ResultListPath() { return DocumentsFolder() + "tmMiniImportRes.ini"; }

void TlibImportXML::WriteResultList() const {
    // One table path a line, without extension; the folder as the console gave it. An old
    // list must never stand for this run: a list that cannot be written raises.
    const std::string path = fResultListFile.empty() ? ResultListPath() : fResultListFile;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) throw EInOutError("Не удалось создать файл " + path);
    for (const auto& table : fMITables) out << (HostMode() == 2 ? qgisPath : fOutputFile) << table->Name_ << "\n";
    out.close();
    if (!out) throw EInOutError("Не удалось записать файл " + path);
}

void TlibImportXML::FlushTables() {
    for (auto& table : fMITables) table->Flush();
}

bool TlibImportXML::Execute() {
    // The classifier dictionaries, for every file of a batch.
    fClassList.XSDPath = ClassifierFolder(XSDPath, Bitness());
    fClassList.OnMessage = OnMessage;
    fClassList.Execute();
    SetProgressText("Подготовка импорта XML");
    bool result = true;
    WorkRect = TGeomRect{wrX1, wrY1, wrX2, wrY2};
    auto finish = [&] {
        FNTCurrentNode = nullptr;
        FNTDoc.reset();
        if (fWriteStyle != 1) WriteResultList();  // the TAB tables alone are not listed
    };
    try {
        DoAbort = false;
        FNTDoc = xml::CreateXMLDoc();
        std::error_code ec;
        // A folder of that name is no file.
        if (!fXMLData && (!std::filesystem::exists(fXMLName, ec) || std::filesystem::is_directory(fXMLName, ec))) {
            fImpError = kImpErrorNoFile;
            finish();
            return false;
        }
        SetProgressText("Открываем XML");
        if (FProgress) {
            const auto size = fXMLData                                        ? fXMLData->size()
                              : std::filesystem::is_regular_file(fXMLName, ec) ? std::filesystem::file_size(fXMLName, ec)
                                                                                : 0;
            FProgress->SetMax(static_cast<int64_t>(ec ? 0 : size));
            FNTDoc->OnProgress = [this](xml::TXMLDocument&, int, int64_t, int64_t aPosition) { ShowProgressOxml(aPosition); };
        }
        bool loaded = false;
        if (fXMLData) {
            loaded = FNTDoc->LoadFromText(std::move(*fXMLData));
            fXMLData.emplace();  // taken: an empty text stands for it
        } else {
            loaded = FNTDoc->LoadFromFile(fXMLName);
        }
        if (!loaded) fLoadError = FNTDoc->ParseError();
        if (Cancelled()) {
            finish();
            return result;
        }
        if (FProgress) FProgress->SetMax(0);
        FNTDoc->OnProgress = nullptr;
        xml::PXMLNode root = FNTDoc->DocumentElement();
        if (!root) {
            fImpError = kImpErrorNoRoot;
            finish();
            return false;
        }
        FNTCurrentNode = root;
        SetProgressText("Заполнение данных");
        if (!ProcessDocument(root)) result = false;
        // The rows reach the disk now, so a table that cannot be written fails this run
        // rather than the job's destruction.
        FlushTables();
    } catch (...) {
        try {
            finish();
        } catch (...) {
        }
        throw;
    }
    finish();
    return result;
}

void TlibImportXML::TransformPoint(double& aX, double& aY, double aY0, double aX0) const {
    aX = aX0;
    aY = aY0;
    if (nspec <= 0) return;
    for (int i = 0; i < nspec && i < static_cast<int>(specAr.size()); ++i) {
        const SpecAlgo& s = specAr[static_cast<size_t>(i)];
        if (!(s.ifxmin < aX0 && aX0 < s.ifxmax)) continue;
        switch (s.styleimport) {
            case 1:
                aX = aX0 + s.dx;
                aY = aY0 + s.dy;
                break;
            case 2: {
                const double a = aX0 - s.y1, b = aY0 - s.x1, c = std::cos(s.dms), sn = std::sin(s.dms);
                aX = c * s.scale * a + s.y1 + sn * s.scale * b;
                aY = c * s.scale * b + s.x1 - sn * s.scale * a;
                break;
            }
            case 3: {
                const double a = aX0 - s.y2, b = aY0 - s.x2, c = std::cos(-s.dms), sn = std::sin(-s.dms), k = 1 / s.scale;
                aX = c * k * a + s.y1 + sn * k * b;
                aY = c * k * b + s.x1 - sn * k * a;
                break;
            }
            default: break;
        }
        return;
    }
}

}  // namespace tmi
