#include "csRosreestrXMLCore.h"

#include <libxml/tree.h>

#include <algorithm>
#include <filesystem>

#include "csPaths.h"
#include "csXSDLib.h"
#include "scSchema.h"
#include "scXMLProvider.h"

namespace tmi {

bool UseFullSchema = false;

TCS_PROPERTIES(TcsXMLExternalFileInfo, TcsInfoLowData,
               Field("StorageID", &TcsXMLExternalFileInfo::StorageID),
               Field("RequestNum", &TcsXMLExternalFileInfo::RequestNum),
               Field("RequestDate", &TcsXMLExternalFileInfo::RequestDate),
               Field("Description", &TcsXMLExternalFileInfo::Description))
TCS_PROPERTIES(TcsXMLInfo, TcsInfoLowData,
               Field("RootNodeName", &TcsXMLInfo::RootNodeName),
               Field("HasXSLLocalPath", &TcsXMLInfo::HasXSLLocalPath),
               Field("XSLPathLocalPath", &TcsXMLInfo::XSLPathLocalPath),
               Field("StyleSheetHref", &TcsXMLInfo::StyleSheetHref),
               Property("RootAttributes", &TcsXMLInfo::RootAttributesText),
               Field("DateDocument", &TcsXMLInfo::DateDocument),
               Field("HasDateDocument", &TcsXMLInfo::HasDateDocument),
               Field("FileSize", &TcsXMLInfo::FileSize),
               Field("FileName", &TcsXMLInfo::FileName),
               Field("Number", &TcsXMLInfo::Number),
               Field("KeyString", &TcsXMLInfo::KeyString),
               Field("HasSpatial", &TcsXMLInfo::HasSpatial),
               ObjectProperty("ExternalFileInfo", &TcsXMLInfo::ExternalFileInfo),
               ObjectProperty("CoordSystemsInfo", &TcsXMLInfo::CoordSystemsInfo),
               Field("CoordSysDocName", &TcsXMLInfo::CoordSysDocName),
               Field("CoordSysDocID", &TcsXMLInfo::CoordSysDocID),
               ObjectProperty("MainGeometry", &TcsXMLInfo::MainGeometry),
               Field("FileTypeString", &TcsXMLInfo::FileTypeString),
               Field("Warning", &TcsXMLInfo::Warning))
TCS_PROPERTIES(TcsXMLProcessSessionItem, TcsInfo)
TCS_PROPERTIES(TcsXMLProcessController, TcsInfo)
TCS_PROPERTIES(TcsXMLProcessDestinationConfig, TcsInfo,
               Field("MapinfoProjClause", &TcsXMLProcessDestinationConfig::MapinfoProjClause),
               Field("CoordSystemName", &TcsXMLProcessDestinationConfig::CoordSystemName),
               ObjectProperty("ProjectionBounds", &TcsXMLProcessDestinationConfig::ProjectionBounds),
               Field("IsProjected", &TcsXMLProcessDestinationConfig::IsProjected),
               ObjectProperty("AutoBounds", &TcsXMLProcessDestinationConfig::AutoBounds),
               ObjectProperty("AllObjectBounds", &TcsXMLProcessDestinationConfig::AllObjectBounds),
               ObjectProperty("UserBounds", &TcsXMLProcessDestinationConfig::UserBounds),
               Field("UseFixedBounds", &TcsXMLProcessDestinationConfig::UseFixedBounds),
               Field("UseAutoAllObjBound", &TcsXMLProcessDestinationConfig::UseAutoAllObjBound),
               Field("FileName", &TcsXMLProcessDestinationConfig::FileName),
               Field("ProcessCoord", &TcsXMLProcessDestinationConfig::ProcessCoord))
TCS_PROPERTIES(TcsXMLProcessDestination, TcsInfo)
TCS_PROPERTIES(TcsConvertManagerWarning, TcsInfo, Field("Text", &TcsConvertManagerWarning::Text))
TCS_PROPERTIES(TcsXMLFileProcessConfig, TcsInfo)
TCS_PROPERTIES(TcsFileProcess, TcsInfo,
               Field("FileName", &TcsFileProcess::FFileName, true),
               Field("DestinationClass", &TcsFileProcess::DestinationClass))
TCS_PROPERTIES(TcsXMLFileProcess, TcsFileProcess)
TCS_PROPERTIES(TcsXMLFileAnalizer, TcsInfo)
TCS_PROPERTIES(TcsConvertManager, TcsManager,
               Field("XSDDir", &TcsConvertManager::FXSDDir),
               Field("SchemaDir", &TcsConvertManager::FSchemaDir))

// ---------------------------------------------------------------------------------------------
// File information

TcsXMLInfo::TcsXMLInfo(TcsComponent* aOwner)
    : TcsInfoLowData(aOwner),
      fExternal(std::make_unique<TcsXMLExternalFileInfo>()),
      fCoordSystems(std::make_unique<TcsXMLCoordSystemsInfo>()),
      fMainGeometry(std::make_unique<TcsGeometry>()) {}

void TcsXMLInfo::TakeFirstLook(const TcsXMLInfo& aInfo) {
    RootNodeName = aInfo.RootNodeName;
    HasXSLLocalPath = aInfo.HasXSLLocalPath;
    XSLPathLocalPath = aInfo.XSLPathLocalPath;
    StyleSheetHref = aInfo.StyleSheetHref;
    RootAttributes = aInfo.RootAttributes;
    FileSize = aInfo.FileSize;
    FileName = aInfo.FileName;
}

void TcsXMLInfo::Clear() {
    KeyValues.clear();
    RootNodeName.clear();
    HasXSLLocalPath = false;
    XSLPathLocalPath.clear();
    StyleSheetHref.clear();
    RootAttributes.clear();
    DateDocument = {};
    HasDateDocument = false;
    FileSize = 0;
    Number.clear();
    KeyString.clear();
    HasSpatial = false;
    CoordSysDocName.clear();
    CoordSysDocID.clear();
    FileTypeString.clear();
    Warning.clear();
    Statistic.clear();
    fExternal = std::make_unique<TcsXMLExternalFileInfo>();
    fCoordSystems = std::make_unique<TcsXMLCoordSystemsInfo>();
    fMainGeometry = std::make_unique<TcsGeometry>();
}

void TcsXMLInfo::SetKeyValue(const std::string& aName, const std::string& aLabel, const std::string& aValue) {
    for (TcsXMLKeyValue& k : KeyValues)
        if (k.Name == aName) {
            k.Label = aLabel;
            k.Value = aValue;
            return;
        }
    KeyValues.push_back({aName, aLabel, aValue});
}

std::string TcsXMLInfo::KeyValue(std::string_view aName) const {
    for (const TcsXMLKeyValue& k : KeyValues)
        if (k.Name == aName) return k.Value;
    return {};
}

std::string TcsXMLInfo::RootAttributesText() const {
    std::string text;
    for (const auto& [name, value] : RootAttributes) {
        if (!text.empty()) text += "\r\n";
        text += name + "=" + value;
    }
    return text;
}

// ---------------------------------------------------------------------------------------------
// Session values

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItemValues::Append() {
    fItems.push_back(std::make_unique<TcsXMLProcessSessionItemValue>());
    fItems.back()->SessionItem = FSessionItem;
    return *fItems.back();
}

namespace {
void Assign(TcsXMLProcessSessionItemValue& aValue, TcsXMLValueDataType aDataType, const TcsVariant& aNew) {
    if (aValue.ValueSetted) aValue.OldValue = aValue.Value;
    aValue.Changed = aValue.ValueSetted && !(aValue.Value == aNew);
    aValue.Value = aNew;
    aValue.DataType = aDataType;
    aValue.ValueSetted = true;
}
}  // namespace

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItemValues::AddValue(std::string_view aSource,
                                                                        TcsXMLValueDataType aDataType, const TcsVariant& aValue) {
    TcsXMLProcessSessionItemValue& v = Append();
    v.Source = aSource;
    Assign(v, aDataType, aValue);
    return v;
}

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItemValues::AddValue(int aPart, TcsXMLValueDataType aDataType,
                                                                        const TcsVariant& aValue) {
    TcsXMLProcessSessionItemValue& v = Append();
    v.PartType = aPart;
    Assign(v, aDataType, aValue);
    return v;
}

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItemValues::SetValue(std::string_view aSource,
                                                                        TcsXMLValueDataType aDataType, const TcsVariant& aValue) {
    if (TcsXMLProcessSessionItemValue* v = GetValueSourceItem(aSource)) {
        Assign(*v, aDataType, aValue);
        return *v;
    }
    return AddValue(aSource, aDataType, aValue);
}

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItemValues::SetValue(int aPart, TcsXMLValueDataType aDataType,
                                                                        const TcsVariant& aValue) {
    const int i = ValueIndexInPart(aPart);
    if (i >= 0) {
        Assign(*fItems[static_cast<size_t>(i)], aDataType, aValue);
        return *fItems[static_cast<size_t>(i)];
    }
    return AddValue(aPart, aDataType, aValue);
}

int TcsXMLProcessSessionItemValues::ValueIndexInPart(int aPart) const {
    for (size_t i = 0; i < fItems.size(); ++i)
        if (fItems[i]->PartType == aPart) return static_cast<int>(i);
    return -1;
}

int TcsXMLProcessSessionItemValues::ValueIndexInPartBySource(std::string_view aSource) const {
    // The length first: most sources differ in it, and it is one comparison.
    for (size_t i = 0; i < fItems.size(); ++i) {
        const std::string& s = fItems[i]->Source;
        if (s.size() == aSource.size() && s == aSource) return static_cast<int>(i);
    }
    return -1;
}

TcsVariant TcsXMLProcessSessionItemValues::GetValue(int aPart) const {
    const int i = ValueIndexInPart(aPart);
    return i < 0 ? TcsVariant() : fItems[static_cast<size_t>(i)]->Value;
}

TcsXMLProcessSessionItemValue* TcsXMLProcessSessionItemValues::GetValueSourceItem(std::string_view aSource) const {
    const int i = ValueIndexInPartBySource(aSource);
    return i < 0 ? nullptr : fItems[static_cast<size_t>(i)].get();
}

// ---------------------------------------------------------------------------------------------
// Session items

TcsXMLProcessSessionItem::TcsXMLProcessSessionItem(TcsComponent* aOwner) : TcsInfo(aOwner) {}

TcsXMLProcessSessionItem::~TcsXMLProcessSessionItem() { Detach(); }

void TcsXMLProcessSessionItem::Detach() {
    if (FParent) {
        auto& siblings = FParent->FChildren;
        siblings.erase(std::remove(siblings.begin(), siblings.end(), this), siblings.end());
        if (FParentKey.IsEmpty()) FParentKey = FParent->FKeyValue;
        FParent = nullptr;
    }
    // The children keep this item's key for their parent field.
    for (TcsXMLProcessSessionItem* child : FChildren) {
        child->FParentKey = FKeyValue;
        child->FParent = nullptr;
    }
    FChildren.clear();
}

TcsVariant TcsXMLProcessSessionItem::ParentKey() const {
    if (FParent) return FParent->FKeyValue;
    return FParentKey;
}

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItem::AddValue(std::string_view aSource, TcsXMLValueDataType aDataType,
                                                                  const TcsVariant& aValue) {
    return FValues.AddValue(aSource, aDataType, aValue);
}

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItem::AddValue(std::string_view aSource, int aPart,
                                                                  TcsXMLValueDataType aDataType, const TcsVariant& aValue) {
    TcsXMLProcessSessionItemValue& v = FValues.SetValue(aPart, aDataType, aValue);
    v.Source = aSource;
    v.PartTypeString = aSource;
    return v;
}

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItem::SetValue(std::string_view aSource, TcsXMLValueDataType aDataType,
                                                                  const TcsVariant& aValue) {
    return FValues.SetValue(aSource, aDataType, aValue);
}

TcsXMLProcessSessionItemValue& TcsXMLProcessSessionItem::SetValue(int aPart, TcsXMLValueDataType aDataType,
                                                                  const TcsVariant& aValue) {
    return FValues.SetValue(aPart, aDataType, aValue);
}

const TcsVariant& TcsXMLProcessSessionItem::GetKey() {
    if (FKeyValue.IsEmpty() && FController) FController->GetKey(*this);
    return FKeyValue;
}

void TcsXMLProcessSessionItem::SetIgnoreNoExistSubSessions(bool aValue) { IgnoreNoExistSubSessions = aValue; }

void TcsXMLProcessSessionItem::SetIgnoreNoExistValues(bool aValue) {
    for (int i = 0; i < FValues.ValueCount(); ++i) FValues.GetValueItem(i)->IgnoreNoExist = aValue;
}

TcsGeometry& TcsXMLProcessSessionItem::Geometry() {
    if (!FGeometry) FGeometry = std::make_unique<TcsGeometry>();
    return *FGeometry;
}

TcsXMLProcessSessionItem* TcsXMLProcessSessionItems::NewSessionItem(TcsXMLProcessController* aController) {
    fItems.push_back(std::make_unique<TcsXMLProcessSessionItem>());
    FLastItem = fItems.back().get();
    FLastItem->FController = aController;
    return FLastItem;
}

void TcsXMLProcessSessionItems::Remove(TcsXMLProcessSessionItem* aItem) {
    for (auto it = fItems.rbegin(); it != fItems.rend(); ++it)
        if (it->get() == aItem) {
            fItems.erase(std::next(it).base());
            return;
        }
}

void TcsXMLProcessSessionItems::Clear() {
    // Children first, so that no item outlives the list while pointing at a freed one.
    while (!fItems.empty()) fItems.pop_back();
    FLastItem = nullptr;
}

void TcsXMLProcessSessionKeys::SetKey(const std::string& aKey, int aTypeUnit, const TcsVariant& aValue) {
    TcsXMLProcessSessionKey& k = fKeys[{aTypeUnit, aKey}];
    k.Key = aKey;
    k.TypeUnit = aTypeUnit;
    k.Value = aValue;
}

const TcsXMLProcessSessionKey* TcsXMLProcessSessionKeys::FindKey(std::string_view aKey, int aTypeUnit) const {
    const auto it = fKeys.find(std::make_pair(aTypeUnit, std::string(aKey)));
    return it == fKeys.end() ? nullptr : &it->second;
}

// ---------------------------------------------------------------------------------------------
// The controller

TcsXMLProcessController::TcsXMLProcessController(TcsComponent* aOwner)
    : TcsInfo(aOwner), FTrace(std::make_unique<TcsTrace>()) {}

TcsXMLProcessController::~TcsXMLProcessController() { FSessionItems.Clear(); }

TcsXMLProcessDestination* TcsXMLProcessController::Destination() const {
    return fManager ? fManager->ActiveDestination() : nullptr;
}

TcsXMLProcessSessionItem* TcsXMLProcessController::Open(TcsXMLProcessSessionItem* aParent) {
    if (!FInTransaction) {
        if (TcsXMLProcessDestination* d = Destination()) d->BeginTransaction();
        FInTransaction = true;
    }
    TcsXMLProcessSessionItem* item = FSessionItems.NewSessionItem(this);
    if (aParent) {
        item->FParent = aParent;
        aParent->FChildren.push_back(item);
    }
    return item;
}

TcsXMLProcessSessionItem* TcsXMLProcessController::OpenSessionItem(int aPartType, TcsXMLProcessSessionItem* aParent,
                                                                   bool aGetKey) {
    TcsXMLProcessSessionItem* item = Open(aParent);
    item->FItemPartType = aPartType;
    if (aGetKey) GetKey(*item);
    return item;
}

TcsXMLProcessSessionItem* TcsXMLProcessController::OpenSessionItem(const std::string& aPath, TcsXMLProcessSessionItem* aParent,
                                                                   bool aGetKey) {
    TcsXMLProcessSessionItem* item = Open(aParent);
    item->FPartTypeString = aPath;
    if (aGetKey) GetKey(*item);
    return item;
}

void TcsXMLProcessController::GetKey(TcsXMLProcessSessionItem& aItem) {
    if (!aItem.FKeyValue.IsEmpty()) return;
    if (TcsXMLProcessDestination* d = Destination()) d->GetKey(aItem.FItemPartType, aItem.FPartTypeString, aItem.FKeyValue);
}

bool TcsXMLProcessController::CommitItem(TcsXMLProcessSessionItem* aItem) {
    TcsXMLProcessDestination* d = Destination();
    if (d && !d->CommitSession(*aItem)) return false;
    if (aItem == FSessionItems.FLastItem) FSessionItems.FLastItem = nullptr;
    FSessionItems.Remove(aItem);
    if (!FSessionItems.FLastItem && FSessionItems.Count() > 0) FSessionItems.FLastItem = FSessionItems.Last();
    return true;
}

int TcsXMLProcessController::CommitSession(TcsXMLProcessSessionItem* aItem) {
    if (aItem) CommitItem(aItem);
    return -1;
}

void TcsXMLProcessController::CommitAllSession(bool aFlag, bool aFromFirst) {
    if (aFromFirst) FSessionItems.FLastItem = FSessionItems.First();
    while (TcsXMLProcessSessionItem* item = FSessionItems.FLastItem) {
        if (!CommitItem(item)) break;
        if (aFromFirst) FSessionItems.FLastItem = FSessionItems.First();
    }
    if (TcsXMLProcessDestination* d = Destination()) d->CommitAllSession(aFlag);
    FInTransaction = false;
}

void TcsXMLProcessController::Clean() {
    FSessionItems.Clear();
    FKeys.Clear();
}

void TcsXMLProcessController::BeginProcess() {
    Clean();
    FInTransaction = false;
}

void TcsXMLProcessController::EndProcess() {
    Clean();
    FInTransaction = false;
}

// ---------------------------------------------------------------------------------------------
// Destinations

void TcsItemCaches::AddTableField(const std::string& aKey, const std::string& aTable, const std::string& aField) {
    if (std::find(FTables.begin(), FTables.end(), aTable) == FTables.end()) FTables.push_back(aTable);
    fItems[aKey] = TcsItemCache{aKey, aTable, aField};
}

const TcsItemCache* TcsItemCaches::GetTableField(std::string_view aKey) const {
    const auto it = fItems.find(aKey);
    return it == fItems.end() ? nullptr : &it->second;
}

TcsXMLProcessDestinationConfig::TcsXMLProcessDestinationConfig(TcsComponent* aOwner)
    : TcsInfo(aOwner),
      fProjectionBounds(std::make_unique<TcsGeometryBounds>()),
      fAutoBounds(std::make_unique<TcsGeometryBounds>()),
      fAllObjectBounds(std::make_unique<TcsGeometryBounds>()),
      fUserBounds(std::make_unique<TcsGeometryBounds>()) {}

const TcsGeometryBounds& TcsXMLProcessDestinationConfig::ActiveBounds() const {
    if (UseFixedBounds) return *fUserBounds;
    if (UseAutoAllObjBound) return *fAllObjectBounds;
    return *fAutoBounds;
}

std::string TcsXMLProcessDestinationConfig::GetMapinfoCoordSystem() const {
    if (MapinfoProjClause.empty()) return {};
    const TcsGeometryBounds& b = ActiveBounds();
    if (b.IsEmpty()) return MapinfoProjClause;
    return MapinfoProjClause + " Bounds (" + FloatToStr(b.XMin()) + ", " + FloatToStr(b.YMin()) + ") (" +
           FloatToStr(b.XMax()) + ", " + FloatToStr(b.YMax()) + ")";
}

bool TcsXMLProcessDestinationConfig::CheckConfig(std::string& aMessage) const {
    (void)aMessage;
    return true;
}

TcsXMLProcessDestination::TcsXMLProcessDestination(TcsComponent* aOwner) : TcsInfo(aOwner) {}

TcsXMLProcessDestination::~TcsXMLProcessDestination() = default;

void TcsXMLProcessDestination::GetKey(int aPartType, const std::string& aPartText, TcsVariant& aValue) {
    (void)aPartType, (void)aPartText;
    aValue = TcsVariant(++fKeyCounter);
}

std::string TcsXMLProcessDestination::FindField(std::string_view aPath) const {
    const TcsItemCache* c = fCache.GetTableField(aPath);
    return c ? c->Table + "." + c->Field : std::string();
}

TcsFileProcess* TcsXMLProcessDestination::Process() const { return FManager ? FManager->ActiveProcess() : nullptr; }

TcsXMLInfo* TcsXMLProcessDestination::XMLInfo() const { return FManager ? &FManager->Analizer().XMLInfo() : nullptr; }

TcsXMLProcessDestinationConfig& TcsXMLProcessDestination::Config() {
    if (!FConfig) FConfig = GetConfigClass();
    return *FConfig;
}

TcsXMLProcessDestination* TcsXMLProcessDestinations::Add(std::unique_ptr<TcsXMLProcessDestination> aDestination) {
    fItems.push_back(std::move(aDestination));
    return fItems.back().get();
}

TcsXMLProcessDestination* TcsXMLProcessDestinations::GetDestinationByClassName(std::string_view aName) const {
    for (const auto& d : fItems)
        if (SameText(d->ClassName(), aName)) return d.get();
    return nullptr;
}

void TcsXMLProcessDestinationInfoManager::RegisterClass(const std::string& aName, Factory aCreate) {
    if (IndexOf(aName) >= 0) return;
    fClasses.emplace_back(aName, std::move(aCreate));
}

void TcsXMLProcessDestinationInfoManager::UnRegisterClass(std::string_view aName) {
    const int i = IndexOf(aName);
    if (i >= 0) fClasses.erase(fClasses.begin() + i);
}

int TcsXMLProcessDestinationInfoManager::IndexOf(std::string_view aName) const {
    for (size_t i = 0; i < fClasses.size(); ++i)
        if (SameText(fClasses[i].first, aName)) return static_cast<int>(i);
    return -1;
}

TcsXMLProcessDestinationInfoManager& DestinationInfoManager() {
    static TcsXMLProcessDestinationInfoManager manager;
    return manager;
}

void TcsXMLProcessInfoManager::RegisterClass(TClass aClass) {
    if (!AllowDoubleClass())
        for (const TClass& c : fClasses)
            if (SameText(c.Name, aClass.Name)) return;
    fClasses.push_back(std::move(aClass));
}

void TcsXMLProcessInfoManager::UnRegisterClass(std::string_view aName) {
    fClasses.erase(std::remove_if(fClasses.begin(), fClasses.end(), [&](const TClass& c) { return SameText(c.Name, aName); }),
                   fClasses.end());
}

const TcsXMLProcessInfoManager::TClass* TcsXMLProcessInfoManager::FindClass(const TcsXMLInfo& aInfo) const {
    for (const TClass& c : fClasses)
        if (c.Supports(aInfo)) return &c;
    return nullptr;
}

TcsXMLProcessInfoManager& ProcessInfoManager() {
    static TcsXMLProcessInfoManager manager;
    return manager;
}

// ---------------------------------------------------------------------------------------------
// Processes

TcsFileProcess::TcsFileProcess(TcsComponent* aOwner) : TcsInfo(aOwner) {}

TcsFileProcess::~TcsFileProcess() = default;

bool TcsFileProcess::CheckProcess(std::string& aMessage) {
    (void)aMessage;
    return true;
}

bool TcsFileProcess::ProcessSessionFind(TcsXMLProcessSessionItem& aItem, std::string_view aPath, xml::PXMLNode aNode) {
    (void)aNode;
    TcsXMLProcessDestination* d = FManager ? FManager->ActiveDestination() : nullptr;
    TcsVariant key;
    if (!d || !d->FindSession(aItem, aPath, key)) return false;
    aItem.SetKey(key);
    return true;
}

void TcsFileProcess::ProcessXmlFile(TcsXMLProcessController& aController, TcsXMLFileAnalizer& aAnalizer) {
    TcsXMLSeqParser& parser = aAnalizer.Parser();
    if (!parser.Active()) parser.OpenFile(FFileName);
    parser.GoToPath("/");
    FManager->Finished = false;
    bool stopped = !FManager->DoStatusProcedure(FFileName, skOpen, parser.Size());
    xml::PXMLNode node = nullptr;
    while (!stopped && parser.ReadNextChildHeader(node)) {
        if (node->NodeType() == xml::ntElement) {
            const std::string_view path = parser.ActivePath();
            if (ProcessXmlReadAllNode(aController, node, path)) parser.ReadNodeChildren(node);
            ProcessXmlNode(aController, node, path);
        }
        parser.ClearNode();
        stopped = !FManager->DoStatusProcedure(skPosition, parser.Position());
    }
    FManager->DoStatusProcedure(skClose, parser.Size());
    FManager->Finished = !stopped;
    parser.Close();
}

std::string TcsXMLFileProcess::XSDFilePath() const {
    std::string name = GetXSDFileName();
    if (name.empty() || !FManager) return {};
    std::replace(name.begin(), name.end(), '\\', '/');
    return IncludeTrailingDelimiter(FManager->XSDDir()) + name;
}

void TcsXMLFileProcess::Initialize(bool aFirst) {
    TcsFileProcess::Initialize(aFirst);
    const std::string path = XSDFilePath();
    if (path.empty()) return;
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) throw Exception("Файл XSD не найден: " + path);
    FXSDLib = GlobalXSDLibCache().GetLibByFilePath(path);
}

void TcsXMLFileProcess::AfterUpdateFullInfo() {
    TcsFileProcess::AfterUpdateFullInfo();
    if (FXmlInfo && !GetXSDFileName().empty()) FXmlInfo->SetKeyValue("XSDPATH", "Путь к XSD", XSDFilePath());
}

bool TcsXMLFileProcess::GetValueByXpath(xml::PXMLNode aNode, std::string_view aPath, std::string& aValue, bool aFlag) const {
    (void)aFlag;
    aValue.clear();
    if (!aNode) return false;
    std::string path(aPath);
    for (const TcsXMLFileProcessReplaceXPath& r : ReplaceXPaths)
        if (path == r.From) path = r.To;
    xml::PXMLNode at = aNode;
    size_t start = 0;
    while (at && start <= path.size()) {
        const size_t slash = path.find('/', start);
        const std::string_view step = std::string_view(path).substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (!step.empty() && step.front() == '@') {
            if (!at->FindAttribute(step.substr(1), aValue)) return false;
            return !aValue.empty();
        }
        if (!step.empty() && step != ".") at = at->FindChild(step);
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    if (!at) return false;
    aValue = at->Text();
    return !aValue.empty();
}

// ---------------------------------------------------------------------------------------------
// The analyser

TcsXMLFileAnalizer::TcsXMLFileAnalizer(TcsComponent* aOwner) : TcsInfo(aOwner), FXMLInfo(std::make_unique<TcsXMLInfo>()) {}

TcsXMLFileAnalizer::~TcsXMLFileAnalizer() = default;

void TcsXMLFileAnalizer::Open(const std::string& aFileName) {
    FSeqXmlReader.OpenFile(aFileName);
    FXMLInfo->FileName = aFileName;
    FXMLInfo->FileSize = FSeqXmlReader.Size();
}

void TcsXMLFileAnalizer::UpdateFirstInfo() {
    FSeqXmlReader.GoToPath("/");
    xml::PXMLNode node = nullptr;
    while (FSeqXmlReader.ReadNextChildHeader(node)) {
        if (node->NodeType() == xml::ntProcessingInstruction) {
            // <?xml-stylesheet type="text/xsl" href="..."?>
            const std::string value(node->NodeValue());
            const size_t at = value.find("href");
            if (at != std::string::npos) {
                size_t p = value.find('=', at);
                if (p != std::string::npos) {
                    ++p;
                    while (p < value.size() && value[p] == ' ') ++p;
                    const char quote = p < value.size() ? value[p] : 0;
                    if (quote == '"' || quote == '\'') {
                        const size_t end = value.find(quote, p + 1);
                        FXMLInfo->StyleSheetHref = value.substr(p + 1, end == std::string::npos ? std::string::npos : end - p - 1);
                    } else {
                        const size_t end = value.find(' ', p);
                        FXMLInfo->StyleSheetHref = value.substr(p, end == std::string::npos ? std::string::npos : end - p);
                    }
                }
            }
            FSeqXmlReader.ClearNode();
            continue;
        }
        if (node->NodeType() != xml::ntElement) continue;
        StartElement(node, FSeqXmlReader.ActivePath());
        break;
    }
    const std::string& href = FXMLInfo->StyleSheetHref;
    FXMLInfo->HasXSLLocalPath = !href.empty() && href.find("://") == std::string::npos;
    if (FXMLInfo->HasXSLLocalPath) {
        const std::filesystem::path local = std::filesystem::path(FXMLInfo->FileName).parent_path() / href;
        FXMLInfo->XSLPathLocalPath = local.string();
    }
    FSeqXmlReader.ClearNode();
}

void TcsXMLFileAnalizer::StartElement(xml::PXMLNode aNode, std::string_view aPath) {
    const TcsXMLManagerState state = FManager ? FManager->State() : msFirstInfo;
    if (state == msConvert) return;
    if (state == msFirstInfo) {
        FActiveNodeName = aNode->NodeName();
        FXMLInfo->RootNodeName = FActiveNodeName;
        FXMLInfo->RootAttributes.clear();
        for (xml::PXMLNode a = aNode->FirstAttribute(); a; a = a->NextSibling())
            FXMLInfo->RootAttributes.emplace_back(a->NodeName(), a->NodeValue());
        return;
    }
    FActiveNodeName = aNode->NodeName();
    if (TcsFileProcess* p = FManager->ActiveProcess()) p->InfoStartElement(aNode, aPath);
}

bool TcsXMLFileAnalizer::UpdateFullInfo() {
    TcsFileProcess* process = FManager ? FManager->ActiveProcess() : nullptr;
    if (!process) return false;
    process->PrepareUpdateFullInfo();
    FSeqXmlReader.GoToPath("/");
    FSeqXmlReader.OnText = [process](std::string_view aPath, std::string_view aText) { process->InfoCharacters(aPath, aText); };
    FSeqXmlReader.OnEndElement = [process](std::string_view aPath) { process->InfoEndElement(aPath); };
    struct Unhook {
        TcsXMLSeqParser& p;
        ~Unhook() {
            p.OnText = nullptr;
            p.OnEndElement = nullptr;
        }
    } unhook{FSeqXmlReader};
    xml::PXMLNode node = nullptr;
    bool stopped = false;
    while (!stopped && FSeqXmlReader.ReadNextChildHeader(node)) {
        if (node->NodeType() == xml::ntElement) {
            const std::string_view path = FSeqXmlReader.ActivePath();
            StartElement(node, path);
            if (process->FullAnalizeSeqReadAllNode(node, path)) {
                FSeqXmlReader.ReadNodeChildren(node);
                process->FullAnalizeNode(node, path);
            } else if (process->FullAnalizeSkipNode(node, path)) {
                FSeqXmlReader.SkipNodeChildren();
            }
        }
        FSeqXmlReader.ClearNode();
        stopped = !FManager->DoStatusProcedure(skPosition, FSeqXmlReader.Position());
    }
    if (stopped) return false;
    process->AfterUpdateFullInfo();
    return true;
}

}  // namespace tmi
