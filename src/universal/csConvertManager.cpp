// TcsConvertManager: one conversion from recognition to the destination's last commit.
#include <libxml/tree.h>

#include <filesystem>

#include "csPaths.h"
#include "csRosreestrXMLCore.h"
#include "scSchema.h"
#include "scXMLProvider.h"

namespace tmi {

namespace {

// Loads a schema file; what the framework reports on the way becomes an exception.
void LoadSchemaFile(TscSchema& aSchema, const std::string& aFileName) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(aFileName, ec)) throw EscSchemaException("Не найден файл схемы: " + aFileName);
    std::string reported;
    TcsModalMessage saved = ModalMessageHandler();
    ModalMessageHandler() = [&reported](const std::string& aText) {
        if (reported.empty()) reported = aText;
    };
    struct Restore {
        TcsModalMessage& target;
        TcsModalMessage value;
        ~Restore() { target = std::move(value); }
    } restore{ModalMessageHandler(), std::move(saved)};
    auto provider = std::make_unique<TscXMLProvider>(&aSchema);
    provider->SetConnectionString("FileName=" + aFileName);
    aSchema.Open(std::move(provider), true);
    if (!reported.empty()) throw EscSchemaException(aFileName + ": " + reported);
    if (!aSchema.Loaded()) throw EscSchemaException("Схема не загружена: " + aFileName);
}

xmlNodePtr ChildNamed(xmlNodePtr aNode, const char* aName) {
    for (xmlNodePtr c = aNode ? aNode->children : nullptr; c; c = c->next)
        if (c->type == XML_ELEMENT_NODE && xmlStrcmp(c->name, BAD_CAST aName) == 0) return c;
    return nullptr;
}

std::string PropText(xmlNodePtr aNode, const char* aName) {
    xmlChar* v = xmlGetProp(aNode, BAD_CAST aName);
    if (!v) return {};
    std::string text(reinterpret_cast<const char*>(v));
    xmlFree(v);
    return text;
}

}  // namespace

TcsConvertManager::TcsConvertManager(TcsComponent* aOwner)
    : TcsManager(aOwner),
      FDefaultLowSchema(std::make_unique<TscSchema>()),
      FDefaultHighSchema(std::make_unique<TscSchema>()) {
    FSession.SetManager(this);
    FXMLFileAnalizer.SetManager(this);
}

TcsConvertManager::~TcsConvertManager() {
    // Items go before the destination that would be asked about them.
    FSession.Clean();
    FActiveProcess.reset();
}

void TcsConvertManager::Intialize(const std::string& aSchemaPath, const std::string& aXSDDir) {
    fTrace.Print("TcsConvertManager.Intialize start");
    std::error_code ec;
    const bool folder = std::filesystem::is_directory(aSchemaPath, ec);
    FSchemaDir = folder ? IncludeTrailingDelimiter(aSchemaPath)
                        : IncludeTrailingDelimiter(std::filesystem::path(aSchemaPath).parent_path().string());
    FXSDDir = aXSDDir;
    if (!aSchemaPath.empty()) {
        if (!folder) {
            FDefaultLowSchema = std::make_unique<TscSchema>();
            LoadSchemaFile(*FDefaultLowSchema, aSchemaPath);
        } else {
            fTrace.Print("Загрузка схем");
            FDefaultLowSchema = std::make_unique<TscSchema>();
            LoadSchemaFile(*FDefaultLowSchema, FSchemaDir + "LocalStorageSchema.xml");
            FDefaultHighSchema = std::make_unique<TscSchema>();
            LoadSchemaFile(*FDefaultHighSchema, FSchemaDir + "LocalStorageSchemaFull.xml");
            fHighSchemaLoaded = true;
        }
    }
    const TcsXMLProcessDestinationInfoManager& registry = DestinationInfoManager();
    for (int i = 0; i < registry.Count(); ++i) {
        if (FDestinations.GetDestinationByClassName(registry.ClassName(i))) continue;
        TcsXMLProcessDestination* d = FDestinations.Add(registry.Create(i));
        d->SetManager(this);
        d->Create();
        d->InitConfig();
    }
    if (!fActiveDestination && FDestinations.Count() > 0) fActiveDestination = FDestinations.Items(0);
    fTrace.Print("TcsConvertManager.Intialize stop");
}

TscSchema& TcsConvertManager::Schema() const {
    return UseFullSchema && fHighSchemaLoaded ? *FDefaultHighSchema : *FDefaultLowSchema;
}

void TcsConvertManager::SetProcessDestination(const std::string& aClassName) {
    if (TcsXMLProcessDestination* d = FDestinations.GetDestinationByClassName(aClassName)) fActiveDestination = d;
}

void TcsConvertManager::ActivateDestination(const std::string& aClassName) {
    SetProcessDestination(aClassName);
    if (fActiveDestination && SameText(fActiveDestination->ClassName(), aClassName)) return;
    const int i = DestinationInfoManager().IndexOf(aClassName);
    if (i < 0) return;
    TcsXMLProcessDestination* d = FDestinations.Add(DestinationInfoManager().Create(i));
    d->SetManager(this);
    d->Create();
    d->InitConfig();
    fActiveDestination = d;
}

bool TcsConvertManager::DoStatusProcedure(const std::string& aText, TcsStatusKind aKind, int64_t aPosition) {
    return FOnStatusProcedure ? FOnStatusProcedure(aText, aKind, aPosition) : true;
}

void TcsConvertManager::UpdateInfo(bool aFull) {
    FState = msFirstInfo;
    FUpdatedFullInfo = false;
    TcsXMLInfo& info = FXMLFileAnalizer.XMLInfo();
    info.Clear();
    FXMLFileAnalizer.Open(FFilename);
    struct Closer {
        TcsXMLFileAnalizer& a;
        ~Closer() { a.Close(); }
    } closer{FXMLFileAnalizer};
    FXMLFileAnalizer.UpdateFirstInfo();
    const TcsXMLProcessInfoManager::TClass* processClass = ProcessInfoManager().FindClass(info);
    FActiveProcess.reset();
    if (processClass) {
        FActiveProcess = processClass->Create(this);
        FActiveProcess->SetManager(this);
        FActiveProcess->SetFileName(FFilename);
        FActiveProcess->Clean();
        FActiveProcess->Initialize(true);
        // The process keeps what it learns in an info of its own kind.
        std::unique_ptr<TcsXMLInfo> chosen = FActiveProcess->GetXmlInfoClass();
        if (chosen && chosen->ClassName() != info.ClassName()) {
            chosen->TakeFirstLook(info);
            FXMLFileAnalizer.SetXMLInfo(std::move(chosen));
        }
        FActiveProcess->InitXMLInfo(FXMLFileAnalizer.XMLInfo());
    }
    UpdateStringInfo();
    if (aFull && FActiveProcess) {
        FState = msFullInfo;
        FUpdatedFullInfo = FXMLFileAnalizer.UpdateFullInfo();
        // What the full look found shows in the lines as well.
        if (FUpdatedFullInfo) UpdateStringInfo();
    }
    if (FActiveProcess) FActiveProcess->Initialize(false);
}

void TcsConvertManager::UpdateStringInfo() {
    const TcsXMLInfo& info = FXMLFileAnalizer.XMLInfo();
    FInfoString.clear();
    FInfoString.emplace_back("Корневой элемент", info.RootNodeName);
    FInfoString.emplace_back("Обработчик стиля", info.StyleSheetHref);
    FInfoString.emplace_back("Есть локальный обраб. стиля", info.HasXSLLocalPath ? "Да" : "Нет");
    FInfoString.emplace_back("Локальный обработчик стиля", info.XSLPathLocalPath);
    if (FActiveProcess) FActiveProcess->UpdateStringInfo(FInfoString);
}

void TcsConvertManager::UpdateFullInfo() {
    FState = msFullInfo;
    FUpdatedFullInfo = false;
    FXMLFileAnalizer.Open(FFilename);
    struct Closer {
        TcsXMLFileAnalizer& a;
        ~Closer() { a.Close(); }
    } closer{FXMLFileAnalizer};
    DoStatusProcedure("Подготовка...", skOpen, FXMLFileAnalizer.Parser().Size());
    if (FActiveProcess && FActiveProcess->GetAnalizeMode() == 1) FUpdatedFullInfo = FXMLFileAnalizer.UpdateFullInfo();
    if (FUpdatedFullInfo) UpdateStringInfo();
    DoStatusProcedure(skClose, 0);
}

bool TcsConvertManager::CheckProcess(std::string& aMessage) {
    if (!FActiveProcess) {
        aMessage = "Не определён тип файла";
        return false;
    }
    if (FActiveProcess->NededUpdateFullInfo() && !FUpdatedFullInfo) {
        aMessage = "Требуется дождаться обработки всего файла";
        return true;
    }
    return FActiveProcess->CheckProcess(aMessage);
}

void TcsConvertManager::InitDestination() {
    if (fActiveDestination) fActiveDestination->InitDestination();
}

void TcsConvertManager::FixProcess() {
    if (fActiveDestination) fActiveDestination->FixProcess();
}

void TcsConvertManager::StartProcess(bool aFlag) {
    if (!FActiveProcess) throw Exception("Не определён тип файла");
    FState = msConvert;
    Finished = false;
    FSession.BeginProcess();
    FXMLFileAnalizer.Open(FFilename);
    struct Closer {
        TcsXMLFileAnalizer& a;
        ~Closer() { a.Close(); }
    } closer{FXMLFileAnalizer};
    InitDestination();
    FActiveProcess->Initialize(aFlag);
    FActiveProcess->PrepareProcessXmlNode(FSession);
    FActiveProcess->ProcessXmlFile(FSession, FXMLFileAnalizer);
}

void TcsConvertManager::EndProcess() {
    FSession.EndProcess();
    if (fActiveDestination) fActiveDestination->Complite();
    PrintReport();
    if (fActiveDestination) fActiveDestination->Clear();
    fTrace.LeaveAll();
    DoStatusProcedure(skClose, 0);
}

TcsCoordSystem* TcsConvertManager::FindCoordSystem(std::string_view aName) const {
    return CoordSysLinks ? CoordSysLinks->GetCoordsysByName(aName) : nullptr;
}

TcsCoordSystem* TcsConvertManager::FindCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aNode) {
    return CoordSysLinks ? CoordSysLinks->FindXmlInfoCoordSystem(aGeometry, aBounds, aNode, &FXMLFileAnalizer.XMLInfo()) : nullptr;
}

TcsCoordSystem* TcsConvertManager::UpdateXmlInfoCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aNode) {
    return CoordSysLinks ? CoordSysLinks->UpdateXmlInfoCoordSystem(aGeometry, aBounds, aNode, &FXMLFileAnalizer.XMLInfo()) : nullptr;
}

TcsCoordSystem* TcsConvertManager::UpdateXmlInfoCoordSystem(const std::string& aName, const TcsGeometryBounds* aBounds) {
    TcsCoordSystem* system = FindCoordSystem(aName);
    TcsXMLCoordSystemsInfo& info = *FXMLFileAnalizer.XMLInfo().CoordSystemsInfo();
    if (system) info.AddCoordSystemID(system->ID(), aBounds);
    else info.AddUnknown(aName, aBounds);
    return system;
}

void TcsConvertManager::PrintReport() {
    if (FOnPrintReport) FOnPrintReport(*this);
}

void TcsConvertManager::WriteXML(TcsXmlNode aXmlNode, int aMode) const {
    TcsManager::WriteXML(aXmlNode, aMode);
    xmlNodePtr configs = xmlNewChild(aXmlNode, nullptr, BAD_CAST "DestinationConfigs", nullptr);
    for (int i = 0; i < FDestinations.Count(); ++i) {
        TcsXMLProcessDestination* d = FDestinations.Items(i);
        xmlNodePtr node = xmlNewChild(configs, nullptr, BAD_CAST "DestinationConfig", nullptr);
        xmlNewProp(node, BAD_CAST "DestinationClass", BAD_CAST d->ClassName().c_str());
        d->Config().WriteXML(node, 0);
    }
    if (fActiveDestination)
        xmlNewTextChild(aXmlNode, nullptr, BAD_CAST "ActiveDestination", BAD_CAST fActiveDestination->ClassName().c_str());
}

void TcsConvertManager::ReadXML(TcsXmlNode aXmlNode, int aMode) {
    TcsManager::ReadXML(aXmlNode, aMode);
    if (xmlNodePtr configs = ChildNamed(aXmlNode, "DestinationConfigs"))
        for (xmlNodePtr c = configs->children; c; c = c->next) {
            if (c->type != XML_ELEMENT_NODE || xmlStrcmp(c->name, BAD_CAST "DestinationConfig") != 0) continue;
            if (TcsXMLProcessDestination* d = FDestinations.GetDestinationByClassName(PropText(c, "DestinationClass")))
                d->Config().ReadXML(c, 0);
        }
    if (xmlNodePtr active = ChildNamed(aXmlNode, "ActiveDestination")) {
        xmlChar* text = xmlNodeGetContent(active);
        if (text) {
            SetProcessDestination(reinterpret_cast<const char*>(text));
            xmlFree(text);
        }
    }
}

}  // namespace tmi
