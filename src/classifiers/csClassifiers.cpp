#include "csClassifiers.h"

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <mutex>

#include "OXmlPDOM.h"
#include "csCommon.h"

namespace tmi {

namespace {

void RemoveAll(std::string& aText, std::string_view aPart) {
    for (size_t at = aText.find(aPart); at != std::string::npos; at = aText.find(aPart, at)) aText.erase(at, aPart.size());
}

std::string Upper(std::string_view aText) {
    std::string out(aText);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    return out;
}

bool FileExists(const std::string& aPath) {
    std::error_code ec;
    return std::filesystem::is_regular_file(aPath, ec);
}

struct Row {
    const char* fName;
    bool fPlan;
    const char* fPath;
    bool fMsg;
};

constexpr Row kRows[] = {
    {"ВидыОб", true, "/KPT_v09/SchemaCommon/dRealty_v02.xsd", true},
    {"Назначение зданий", true, "/KPT_v09/SchemaCommon/dAssBuilding_v01.xsd", true},
    {"Единицы измерения АИС", true, "/KPT_v09/SchemaCommon/dUnit_v01.xsd", true},
    {"Тип основного параметра", true, "/KPT_v09/SchemaCommon/dTypeParameter_v01.xsd", true},
    {"ДокументыАИС", true, "/KPT_v09/SchemaCommon/dAllDocumentsOut_v02.xsd", true},
    {"Наименования участков", true, "/KPT_v09/SchemaCommon/dParcels_v01.xsd", true},
    {"Вид межевого плана", true, "/MP_v06/dMethod_v02.xsd", false},
    {"Статус участка", true, "/KPT_v09/SchemaCommon/dStates_v01.xsd", true},
    {"Цели АИС", true, "/KPT_v09/SchemaCommon/dUtilizations_v01.xsd", true},
    {"Вид объекта реестра границ", true, "/KPT_v09/SchemaCommon/dBoundaryType_v03.xsd", true},
    {"Цели установления публичного сервитута", true, "/KPT_v09/SchemaCommon/dPurposePublicEasement_v01.xsd", true},
    {"Типы зон", true, "/KPT_v09/SchemaCommon/dZone_v04.xsd", true},
    {"Тип субъекта правоотношений", true, "/KPT_v09/SchemaCommon/dSubjectLegalRelations_v01.xsd", true},
    {"Права АИС", false, "/KVZU_v06/SchemaCommon/dRights_v01.xsd", true},
    {"Категории земель", false, "/KVZU_v06/SchemaCommon/dCategories_v01.xsd", true},
    {"Ограничения АИС", false, "/KVZU_v06/SchemaCommon/dEncumbrances_v02.xsd", true},
};

}  // namespace

std::string ClassifierFolder(std::string aXSDPath, int aBitness) {
    RemoveAll(aXSDPath, aBitness == 64 ? "/Apps64" : "/Apps");
    if (aXSDPath.find("/MP") != std::string::npos) RemoveAll(aXSDPath, "/XSDSchemes");
    return aXSDPath;
}

namespace {

// The dictionaries read by this process, by file, while the file stays as it was read: the
// documents of a batch read each one once.
struct TReadDictionary {
    int64_t fModified = 0;
    int64_t fSize = 0;
    std::vector<TClassRec> fList;
};
std::mutex gReadLock;
std::map<std::string, TReadDictionary, std::less<>>& ReadDictionaries() {
    static std::map<std::string, TReadDictionary, std::less<>> read;
    return read;
}

bool FileStamp(const std::string& aFile, int64_t& aModified, int64_t& aSize) {
    struct stat st {};
    if (::stat(aFile.c_str(), &st) != 0) return false;
    aModified = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    aSize = static_cast<int64_t>(st.st_size);
    return true;
}

}  // namespace

TRRClass::TRRClass(std::string aName, const std::string& aFile) : classname(std::move(aName)) {
    int64_t modified = 0, size = 0;
    const bool stamped = FileStamp(aFile, modified, size);
    if (stamped) {
        const std::lock_guard<std::mutex> lock(gReadLock);
        const auto it = ReadDictionaries().find(aFile);
        if (it != ReadDictionaries().end() && it->second.fModified == modified && it->second.fSize == size) {
            fList = it->second.fList;
            return;
        }
    }
    Read(aFile);
    if (stamped) {
        const std::lock_guard<std::mutex> lock(gReadLock);
        ReadDictionaries()[aFile] = TReadDictionary{modified, size, fList};
    }
}

void TRRClass::Read(const std::string& aFile) {
    xml::TXMLDocument doc;
    doc.LoadFromFile(aFile);
    // The first node whose path of names is exactly this; the prefix is taken as written.
    static constexpr std::string_view kPath = "/xs:schema/xs:simpleType/xs:restriction";
    xml::PXMLNode restriction = nullptr;
    xml::PXMLNode root = doc.DocumentElement();
    std::string path;
    std::vector<size_t> lengths;
    xml::PXMLNode n = root;
    while (n && !restriction) {
        lengths.push_back(path.size());
        path += '/';
        path += n->NodeName();
        if (path == kPath) {
            restriction = n;
            break;
        }
        if (path.size() < kPath.size() && kPath.compare(0, path.size(), path) == 0 && n->FirstChild()) {
            n = n->FirstChild();
            continue;
        }
        // Next sibling, or up.
        while (n) {
            path.resize(lengths.back());
            lengths.pop_back();
            if (n == root) {
                n = nullptr;
                break;
            }
            if (xml::PXMLNode next = n->NextSibling()) {
                n = next;
                break;
            }
            n = n->ParentNode();
        }
    }
    if (!restriction) throw Exception("Классификатор \"" + aFile + "\" не прочитан: нет " + std::string(kPath));
    for (xml::PXMLNode e = restriction->FirstChild(); e; e = e->NextSibling()) {
        if (e->NodeName() != "xs:enumeration") continue;
        xml::PXMLNode annotation = nullptr;
        for (xml::PXMLNode c = e->FirstChild(); c && !annotation; c = c->NextSibling())
            if (c->NodeName() == "xs:annotation") annotation = c;
        if (!annotation) continue;
        xml::PXMLNode documentation = nullptr;
        for (xml::PXMLNode c = annotation->FirstChild(); c && !documentation; c = c->NextSibling())
            if (c->NodeName() == "xs:documentation") documentation = c;
        if (!documentation) continue;
        Add(documentation->Text(), std::string(e->GetAttribute("value")));
    }
}

std::string TRRClass::GetByValue(std::string_view aValue) const {
    for (const TClassRec& r : fList)
        if (r.value == aValue) return r.text;
    return {};
}

void TClassList::Add(std::string_view aName, const std::string& aFile, bool aMsg) {
    if (FileExists(aFile)) {
        fList.push_back(std::make_unique<TRRClass>(std::string(aName), aFile));
        return;
    }
    if (aMsg && OnMessage) OnMessage("Не найден классификатор \"" + aFile + "\".");
}

void TClassList::Roots(std::string& aPlan, std::string& aExtract) const {
    if (Upper(XSDPath).find("/MP") != std::string::npos) {
        aPlan = XSDPath + "/../XSD/KPT";
        aExtract = XSDPath + "/../XSD/KVZU";
    } else if (FileExists(XSDPath + "tmFull.MBX") || FileExists(XSDPath + "tmMiniMain.MBX")) {
        aPlan = aExtract = XSDPath + "XSDSchemes";
    } else {
        aPlan = aExtract = XSDPath;
    }
}

void TClassList::Execute() {
    fList.clear();
    std::string plan, extract;
    Roots(plan, extract);
    for (const Row& row : kRows) Add(row.fName, (row.fPlan ? plan : extract) + row.fPath, row.fMsg);
}

std::vector<std::string> TClassList::ReportedFiles() const {
    std::string plan, extract;
    Roots(plan, extract);
    std::vector<std::string> files;
    for (const Row& row : kRows)
        if (row.fMsg) files.push_back((row.fPlan ? plan : extract) + row.fPath);
    return files;
}

std::vector<std::string> TClassList::MissingFiles() const {
    std::vector<std::string> missing;
    for (std::string& f : ReportedFiles())
        if (!FileExists(f)) missing.push_back(std::move(f));
    return missing;
}

std::string TClassList::GetKlassString(std::string_view aName, std::string_view aValue) const {
    for (const auto& c : fList)
        if (SameText(c->ClassName(), aName)) return c->GetByValue(aValue);
    return {};
}

}  // namespace tmi
