// The universal conversion: a file is recognised, its XSD loaded, each record turned into
// session items (one future row each: values with their sources, a key, a geometry, child
// items) and the items handed to a destination. TcsConvertManager owns one conversion.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "csCoordSysLinks.h"
#include "csGeometryCore.h"
#include "csInfoCore.h"
#include "csTrace.h"
#include "csVariant.h"
#include "csXMLSeqParser.h"

namespace tmi {

class TXSDLibrary;
class TscSchema;
class TcsConvertManager;
class TcsFileProcess;
class TcsXMLFileAnalizer;
class TcsXMLProcessController;
class TcsXMLProcessDestination;
class TcsXMLProcessSessionItem;

enum TcsXMLManagerState : uint8_t { msNone, msFirstInfo, msFullInfo, msConvert };

// The kinds of value in use: a key, a number, a text.
using TcsXMLValueDataType = int;
inline constexpr TcsXMLValueDataType kValueKey = 1;
inline constexpr TcsXMLValueDataType kValueNumber = 3;
inline constexpr TcsXMLValueDataType kValueText = 6;

// What a status call tells: a long step opens (position is its size), moves on, changes its
// text, or closes.
enum TcsStatusKind : uint8_t { skOpen, skPosition, skText, skClose };
// Answers false to stop the conversion.
using TcsStatusProcedure = std::function<bool(const std::string& aText, TcsStatusKind aKind, int64_t aPosition)>;
using TcsPrintReport = std::function<void(TcsConvertManager& aManager)>;

// Name, label, value: what the full look found, for the caller to show.
struct TcsXMLKeyValue {
    std::string Name;
    std::string Label;
    std::string Value;
};

// ---------------------------------------------------------------------------------------------
// What was learned about a file

class TcsXMLExternalFileInfo : public TcsInfoLowData {
    TCS_PERSISTENT(TcsXMLExternalFileInfo)
public:
    using TcsInfoLowData::TcsInfoLowData;
    double StorageID = 0;
    std::string RequestNum, RequestDate, Description;
};

// The coordinate systems the document names are kept for the links manager.
class TcsXMLInfo : public TcsInfoLowData, public IcsXMLCoordSystemsHolder {
    TCS_PERSISTENT(TcsXMLInfo)
public:
    explicit TcsXMLInfo(TcsComponent* aOwner = nullptr);
    void Clear();
    // What the first look found, taken over by the info a process chose.
    void TakeFirstLook(const TcsXMLInfo& aInfo);
    // Sets a key value, with its label; a name already there takes the new value.
    void SetKeyValue(const std::string& aName, const std::string& aLabel, const std::string& aValue);
    [[nodiscard]] std::string KeyValue(std::string_view aName) const;

    std::vector<TcsXMLKeyValue> KeyValues;
    std::string RootNodeName;
    bool HasXSLLocalPath = false;
    std::string XSLPathLocalPath;
    std::string StyleSheetHref;
    std::vector<std::pair<std::string, std::string>> RootAttributes;  // name, value
    TDateTime DateDocument;
    bool HasDateDocument = false;
    int64_t FileSize = 0;
    std::string FileName;
    std::string Number;
    std::string KeyString;
    bool HasSpatial = false;
    std::string CoordSysDocName;
    std::string CoordSysDocID;
    std::string FileTypeString;
    std::string Warning;
    std::vector<std::pair<std::string, int64_t>> Statistic;  // label, count
    [[nodiscard]] TcsXMLExternalFileInfo* ExternalFileInfo() const noexcept { return fExternal.get(); }
    [[nodiscard]] TcsXMLCoordSystemsInfo* CoordSystemsInfo() const override { return fCoordSystems.get(); }
    [[nodiscard]] TcsGeometry* MainGeometry() const noexcept { return fMainGeometry.get(); }
    // The attributes as the published text: one name=value line each.
    [[nodiscard]] std::string RootAttributesText() const;

private:
    std::unique_ptr<TcsXMLExternalFileInfo> fExternal;
    std::unique_ptr<TcsXMLCoordSystemsInfo> fCoordSystems;
    std::unique_ptr<TcsGeometry> fMainGeometry;
};

// A path replaced by another when a process reads values.
struct TcsXMLFileProcessReplaceXPath {
    std::string From;
    std::string To;
};

// ---------------------------------------------------------------------------------------------
// Session items

class TcsXMLProcessSessionItemValue {
public:
    bool ValueSetted = false;
    TcsVariant Value;
    TcsVariant OldValue;
    TcsXMLValueDataType DataType = kValueText;
    int PartType = -1;  // the value's slot, -1 for a value known by its source
    std::string PartTypeString;
    std::string Source;
    const void* SourceObject = nullptr;
    bool Changed = false;
    bool IgnoreNoExist = false;
    TcsXMLProcessSessionItem* SessionItem = nullptr;
};

class TcsXMLProcessSessionItemValues {
public:
    explicit TcsXMLProcessSessionItemValues(TcsXMLProcessSessionItem* aItem) : FSessionItem(aItem) {}
    TcsXMLProcessSessionItemValue& AddValue(std::string_view aSource, TcsXMLValueDataType aDataType, const TcsVariant& aValue);
    TcsXMLProcessSessionItemValue& AddValue(int aPart, TcsXMLValueDataType aDataType, const TcsVariant& aValue);
    // The value of that source (or slot) takes the new value; a new one when there is none.
    TcsXMLProcessSessionItemValue& SetValue(std::string_view aSource, TcsXMLValueDataType aDataType, const TcsVariant& aValue);
    TcsXMLProcessSessionItemValue& SetValue(int aPart, TcsXMLValueDataType aDataType, const TcsVariant& aValue);
    [[nodiscard]] int ValueCount() const noexcept { return static_cast<int>(fItems.size()); }
    // The index of the value of a slot, or of a source; -1 when there is none.
    [[nodiscard]] int ValueIndexInPart(int aPart) const;
    [[nodiscard]] int ValueIndexInPartBySource(std::string_view aSource) const;
    [[nodiscard]] TcsVariant GetValue(int aPart) const;
    [[nodiscard]] TcsXMLProcessSessionItemValue* GetValueItem(int aIndex) const { return fItems.at(static_cast<size_t>(aIndex)).get(); }
    [[nodiscard]] TcsXMLProcessSessionItemValue* GetValueSourceItem(std::string_view aSource) const;
    [[nodiscard]] bool HasValue(int aPart) const { return ValueIndexInPart(aPart) >= 0; }
    [[nodiscard]] bool HasValueBySource(std::string_view aSource) const { return ValueIndexInPartBySource(aSource) >= 0; }
    void Clear() { fItems.clear(); }

private:
    TcsXMLProcessSessionItemValue& Append();
    TcsXMLProcessSessionItem* FSessionItem;
    std::vector<std::unique_ptr<TcsXMLProcessSessionItemValue>> fItems;
};

class TcsXMLProcessSessionItem : public TcsInfo {
    TCS_PERSISTENT(TcsXMLProcessSessionItem)
public:
    explicit TcsXMLProcessSessionItem(TcsComponent* aOwner = nullptr);
    ~TcsXMLProcessSessionItem() override;

    TcsXMLProcessSessionItemValue& AddValue(std::string_view aSource, TcsXMLValueDataType aDataType, const TcsVariant& aValue);
    // Value number aPart of the item; its source is the formula or path it came from.
    TcsXMLProcessSessionItemValue& AddValue(std::string_view aSource, int aPart, TcsXMLValueDataType aDataType,
                                            const TcsVariant& aValue);
    TcsXMLProcessSessionItemValue& SetValue(std::string_view aSource, TcsXMLValueDataType aDataType, const TcsVariant& aValue);
    TcsXMLProcessSessionItemValue& SetValue(int aPart, TcsXMLValueDataType aDataType, const TcsVariant& aValue);
    // The item's key, asked of the destination the first time.
    const TcsVariant& GetKey();
    void SetKey(const TcsVariant& aKey) { FKeyValue = aKey; }
    [[nodiscard]] bool HasKey() const noexcept { return !FKeyValue.IsEmpty(); }
    void SetIgnoreNoExistSubSessions(bool aValue);
    void SetIgnoreNoExistValues(bool aValue);

    [[nodiscard]] int ItemPartType() const noexcept { return FItemPartType; }
    [[nodiscard]] const std::string& PartTypeString() const noexcept { return FPartTypeString; }
    [[nodiscard]] TcsXMLProcessSessionItemValues& Values() noexcept { return FValues; }
    [[nodiscard]] const TcsXMLProcessSessionItemValues& Values() const noexcept { return FValues; }
    [[nodiscard]] TcsXMLProcessSessionItem* Parent() const noexcept { return FParent; }
    // The parent's key: from the parent while it is open, kept when it was committed first.
    [[nodiscard]] TcsVariant ParentKey() const;
    // The parent's key for an item whose parent was committed before it was opened.
    void SetParentKey(const TcsVariant& aKey) { FParentKey = aKey; }
    [[nodiscard]] const std::vector<TcsXMLProcessSessionItem*>& Children() const noexcept { return FChildren; }
    [[nodiscard]] TcsGeometry& Geometry();
    [[nodiscard]] bool HasGeometry() const noexcept { return FGeometry != nullptr; }
    [[nodiscard]] TcsXMLProcessController* Controller() const noexcept { return FController; }

    // The element's name and documentation, kept from the first element that describes it.
    std::string Caption;
    std::string Description;
    int Index = 0;
    bool IgnoreNoExistSubSessions = false;

private:
    friend class TcsXMLProcessController;
    friend class TcsXMLProcessSessionItems;
    void Detach();

    int FItemPartType = -1;
    TcsVariant FKeyValue;
    TcsVariant FParentKey;
    TcsXMLProcessController* FController = nullptr;
    std::string FPartTypeString;
    std::unique_ptr<TcsGeometry> FGeometry;
    TcsXMLProcessSessionItem* FParent = nullptr;
    std::vector<TcsXMLProcessSessionItem*> FChildren;
    TcsXMLProcessSessionItemValues FValues{this};
};

// The open items, in the order they were opened; the last opened is the current one.
class TcsXMLProcessSessionItems {
public:
    TcsXMLProcessSessionItem* NewSessionItem(TcsXMLProcessController* aController);
    [[nodiscard]] TcsXMLProcessSessionItem* First() const { return fItems.empty() ? nullptr : fItems.front().get(); }
    [[nodiscard]] TcsXMLProcessSessionItem* Last() const { return fItems.empty() ? nullptr : fItems.back().get(); }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fItems.size()); }
    [[nodiscard]] TcsXMLProcessSessionItem* Items(int aIndex) const { return fItems.at(static_cast<size_t>(aIndex)).get(); }
    // Frees the item (it leaves its parent and its children).
    void Remove(TcsXMLProcessSessionItem* aItem);
    void Clear();
    TcsXMLProcessSessionItem* FLastItem = nullptr;

private:
    std::vector<std::unique_ptr<TcsXMLProcessSessionItem>> fItems;
};

struct TcsXMLProcessSessionKey {
    std::string Key;
    int TypeUnit = 0;
    TcsVariant Value;
};

// Keys the conversion has met, by text and kind: a block's number gives its item's key.
class TcsXMLProcessSessionKeys {
public:
    void SetKey(const std::string& aKey, int aTypeUnit, const TcsVariant& aValue);
    [[nodiscard]] const TcsXMLProcessSessionKey* FindKey(std::string_view aKey, int aTypeUnit) const;
    void Clear() { fKeys.clear(); }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fKeys.size()); }

private:
    std::map<std::pair<int, std::string>, TcsXMLProcessSessionKey, std::less<>> fKeys;
};

class TcsXMLProcessController : public TcsInfo {
    TCS_PERSISTENT(TcsXMLProcessController)
public:
    explicit TcsXMLProcessController(TcsComponent* aOwner = nullptr);
    ~TcsXMLProcessController() override;

    void SetManager(TcsConvertManager* aManager) { fManager = aManager; }
    [[nodiscard]] TcsXMLProcessDestination* Destination() const;
    // Opens an item of a part (a number, or a path in the full walk) under aParent; aGetKey
    // fetches its key at once. The first item of a transaction begins it.
    TcsXMLProcessSessionItem* OpenSessionItem(int aPartType, TcsXMLProcessSessionItem* aParent, bool aGetKey);
    TcsXMLProcessSessionItem* OpenSessionItem(const std::string& aPath, TcsXMLProcessSessionItem* aParent, bool aGetKey);
    void GetKey(TcsXMLProcessSessionItem& aItem);
    // Hands the item to the destination; always -1. A refused item stays open.
    int CommitSession(TcsXMLProcessSessionItem* aItem);
    // Commits every open item: from the last opened backwards, or with aFromFirst in the
    // order of opening. Stops at an item the destination refuses.
    void CommitAllSession(bool aFlag, bool aFromFirst);
    void BeginProcess();
    void EndProcess();
    void Clean();

    [[nodiscard]] TcsXMLProcessSessionItems& SessionItems() noexcept { return FSessionItems; }
    [[nodiscard]] TcsXMLProcessSessionKeys& Keys() noexcept { return FKeys; }
    [[nodiscard]] bool InTransaction() const noexcept { return FInTransaction; }
    [[nodiscard]] TcsTrace& Trace() noexcept { return *FTrace; }
    TcsTrace* FExternalTrace = nullptr;

private:
    // Whether the destination took the item.
    bool CommitItem(TcsXMLProcessSessionItem* aItem);
    TcsXMLProcessSessionItem* Open(TcsXMLProcessSessionItem* aParent);

    TcsConvertManager* fManager = nullptr;
    TcsXMLProcessSessionKeys FKeys;
    TcsXMLProcessSessionItems FSessionItems;
    std::unique_ptr<TcsTrace> FTrace;
    bool FInTransaction = false;
};

// ---------------------------------------------------------------------------------------------
// Destinations

// Lookups a destination keeps: a table and field by a key text.
class TcsItemCache {
public:
    std::string Key;
    std::string Table;
    std::string Field;
};

class TcsItemCaches {
public:
    void AddTableField(const std::string& aKey, const std::string& aTable, const std::string& aField);
    [[nodiscard]] const TcsItemCache* GetTableField(std::string_view aKey) const;
    void Clear() {
        FTables.clear();
        fItems.clear();
    }
    std::vector<std::string> FTables;

private:
    std::map<std::string, TcsItemCache, std::less<>> fItems;
};

class TcsXMLProcessDestinationConfig : public TcsInfo {
    TCS_PERSISTENT(TcsXMLProcessDestinationConfig)
public:
    explicit TcsXMLProcessDestinationConfig(TcsComponent* aOwner = nullptr);
    // The bounds that apply: the user's when fixed, all objects' when asked, else the automatic.
    [[nodiscard]] const TcsGeometryBounds& ActiveBounds() const;
    // The MapInfo clause of the target with the active bounds.
    [[nodiscard]] std::string GetMapinfoCoordSystem() const;

    std::string MapinfoProjClause;
    std::string CoordSystemName;
    bool IsProjected = true;
    bool UseFixedBounds = false;
    bool UseAutoAllObjBound = false;
    std::string FileName;
    bool ProcessCoord = true;
    [[nodiscard]] TcsGeometryBounds* ProjectionBounds() const noexcept { return fProjectionBounds.get(); }
    [[nodiscard]] TcsGeometryBounds* AutoBounds() const noexcept { return fAutoBounds.get(); }
    [[nodiscard]] TcsGeometryBounds* AllObjectBounds() const noexcept { return fAllObjectBounds.get(); }
    [[nodiscard]] TcsGeometryBounds* UserBounds() const noexcept { return fUserBounds.get(); }
    // A config judges itself; the message says what is wrong.
    virtual bool CheckConfig(std::string& aMessage) const;

private:
    std::unique_ptr<TcsGeometryBounds> fProjectionBounds, fAutoBounds, fAllObjectBounds, fUserBounds;
};

// The base of a destination's settings form; a form of widgets stands on it in a host.
class TcsProcessDestinationConfigForm {
public:
    virtual ~TcsProcessDestinationConfigForm() = default;
    virtual bool CheckConfig(std::string& aMessage) { (void)aMessage; return true; }
    virtual void ConfigToEdit(TcsXMLProcessDestinationConfig& aConfig) { (void)aConfig; }
    virtual void EditConfig(TcsXMLProcessDestinationConfig& aConfig) { (void)aConfig; }
};

class TcsXMLProcessDestination : public TcsInfo {
    TCS_PERSISTENT(TcsXMLProcessDestination)
public:
    explicit TcsXMLProcessDestination(TcsComponent* aOwner = nullptr);
    ~TcsXMLProcessDestination() override;

    virtual TcsProcessDestinationConfigForm* GetConfigForm() { return nullptr; }
    virtual std::string GetConfigFormClass() const { return {}; }
    virtual std::string GetLastProcessInformation() const { return {}; }
    virtual void BeginTransaction() {}
    virtual void RollbackTransaction() {}
    virtual void CommitTransaction() {}
    // A row already stored for the item: its key into aKey.
    virtual bool FindSession(TcsXMLProcessSessionItem& aItem, std::string_view aPath, TcsVariant& aKey) {
        (void)aItem, (void)aPath, (void)aKey;
        return false;
    }
    virtual void Create() {}
    virtual void InitDestination() {}
    virtual void InitConfig() {}
    virtual void Clear() {}
    // The conversion has ended: a finished walk is kept, anything else undone.
    virtual void Complite() {}
    virtual void FixProcess() {}
    // Takes the item (true) or refuses it.
    virtual bool CommitSession(TcsXMLProcessSessionItem& aItem) { (void)aItem; return true; }
    virtual void CommitAllSession(bool aFlag) { (void)aFlag; }
    virtual void Flush() {}
    // A value for an item's key field.
    virtual void GetKey(int aPartType, const std::string& aPartText, TcsVariant& aValue);
    virtual std::string GetTitle() const { return GetClassName(); }
    virtual std::string GetType() const { return {}; }
    virtual std::unique_ptr<TcsXMLProcessDestinationConfig> GetConfigClass() const {
        return std::make_unique<TcsXMLProcessDestinationConfig>();
    }
    // The target field for a path: "TABLE.FIELD", empty when none takes it.
    virtual std::string FindField(std::string_view aPath) const;
    bool CheckConfig(std::string& aMessage) const { return FConfig ? FConfig->CheckConfig(aMessage) : true; }

    void SetManager(TcsConvertManager* aManager) { FManager = aManager; }
    [[nodiscard]] TcsConvertManager* Manager() const noexcept { return FManager; }
    [[nodiscard]] TcsFileProcess* Process() const;
    [[nodiscard]] TcsXMLInfo* XMLInfo() const;
    [[nodiscard]] TcsXMLProcessDestinationConfig& Config();
    [[nodiscard]] TcsItemCaches& Cache() noexcept { return fCache; }

protected:
    TcsConvertManager* FManager = nullptr;
    std::unique_ptr<TcsXMLProcessDestinationConfig> FConfig;
    TcsItemCaches fCache;
    std::unique_ptr<TcsProcessDestinationConfigForm> FConfigForm;
    int64_t fKeyCounter = 0;
};

// An owning list of destinations.
class TcsXMLProcessDestinations {
public:
    TcsXMLProcessDestination* Add(std::unique_ptr<TcsXMLProcessDestination> aDestination);
    [[nodiscard]] TcsXMLProcessDestination* GetDestinationByClassName(std::string_view aName) const;
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fItems.size()); }
    [[nodiscard]] TcsXMLProcessDestination* Items(int aIndex) const { return fItems.at(static_cast<size_t>(aIndex)).get(); }
    void Clear() { fItems.clear(); }

private:
    std::vector<std::unique_ptr<TcsXMLProcessDestination>> fItems;
};

// The registry of destination classes.
class TcsXMLProcessDestinationInfoManager {
public:
    using Factory = std::function<std::unique_ptr<TcsXMLProcessDestination>()>;
    template <class T>
    void Register() {
        RegisterClass(T::StaticClassName(), [] { return std::make_unique<T>(); });
    }
    void RegisterClass(const std::string& aName, Factory aCreate);
    void UnRegisterClass(std::string_view aName);
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fClasses.size()); }
    [[nodiscard]] const std::string& ClassName(int aIndex) const { return fClasses.at(static_cast<size_t>(aIndex)).first; }
    [[nodiscard]] std::unique_ptr<TcsXMLProcessDestination> Create(int aIndex) const {
        return fClasses.at(static_cast<size_t>(aIndex)).second();
    }
    [[nodiscard]] int IndexOf(std::string_view aName) const;

private:
    std::vector<std::pair<std::string, Factory>> fClasses;
};
TcsXMLProcessDestinationInfoManager& DestinationInfoManager();

// The registry of process classes: the first class that supports a file takes it.
class TcsXMLProcessInfoManager {
public:
    struct TClass {
        std::string Name;
        std::function<bool(const TcsXMLInfo&)> Supports;
        std::function<std::unique_ptr<TcsFileProcess>(TcsConvertManager*)> Create;
    };
    template <class T>
    void Register() {
        RegisterClass({T::StaticClassName(), [](const TcsXMLInfo& aInfo) { return T::SupportClass(aInfo); },
                       [](TcsConvertManager* aManager) -> std::unique_ptr<TcsFileProcess> { return std::make_unique<T>(aManager); }});
    }
    // A name already listed is ignored unless AllowDoubleClass.
    void RegisterClass(TClass aClass);
    void UnRegisterClass(std::string_view aName);
    [[nodiscard]] virtual bool AllowDoubleClass() const { return false; }
    [[nodiscard]] const TClass* FindClass(const TcsXMLInfo& aInfo) const;
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fClasses.size()); }
    virtual ~TcsXMLProcessInfoManager() = default;

private:
    std::vector<TClass> fClasses;
};
TcsXMLProcessInfoManager& ProcessInfoManager();

class TcsConvertManagerWarning : public TcsInfo {
    TCS_PERSISTENT(TcsConvertManagerWarning)
public:
    using TcsInfo::TcsInfo;
    std::string Text;
};

// ---------------------------------------------------------------------------------------------
// Processes

class TcsXMLFileProcessConfig : public TcsInfo {
    TCS_PERSISTENT(TcsXMLFileProcessConfig)
public:
    using TcsInfo::TcsInfo;
};

class TcsFileProcess : public TcsInfo {
    TCS_PERSISTENT(TcsFileProcess)
public:
    explicit TcsFileProcess(TcsComponent* aOwner = nullptr);
    ~TcsFileProcess() override;

    virtual void Create() {}
    // May the conversion start; the message says why not.
    virtual bool CheckProcess(std::string& aMessage);
    virtual std::string GetTitle() const { return GetClassName(); }
    static bool SupportClass(const TcsXMLInfo& aInfo) { (void)aInfo; return false; }
    // The full look: each element header, the text of open elements, each end.
    virtual void InfoStartElement(xml::PXMLNode aNode, std::string_view aPath) { (void)aNode, (void)aPath; }
    virtual void InfoCharacters(std::string_view aPath, std::string_view aText) { (void)aPath, (void)aText; }
    virtual void InfoEndElement(std::string_view aPath) { (void)aPath; }
    // 1: the process wants the full look.
    virtual int GetAnalizeMode() const { return 0; }
    virtual std::string SchemaFileName() const { return {}; }
    virtual TXSDLibrary* GetXSDLib() const { return FXSDLib; }
    // Whether the full look reads this element whole, and what it does with it then.
    virtual bool FullAnalizeSeqReadAllNode(xml::PXMLNode aNode, std::string_view aPath) {
        (void)aNode, (void)aPath;
        return false;
    }
    virtual void FullAnalizeNode(xml::PXMLNode aNode, std::string_view aPath) { (void)aNode, (void)aPath; }
    // Whether the full look needs nothing inside the element whose header it has just looked
    // at (a ring's points, say): its content is then passed over without being built.
    virtual bool FullAnalizeSkipNode(xml::PXMLNode aNode, std::string_view aPath) {
        (void)aNode, (void)aPath;
        return false;
    }
    // Lines of label and value for the caller.
    virtual void UpdateStringInfo(std::vector<std::pair<std::string, std::string>>& aInfo) { (void)aInfo; }
    // The walk: one element header after another; an element the process asks for is read
    // whole first. Memory holds one record at a time.
    virtual void ProcessXmlFile(TcsXMLProcessController& aController, TcsXMLFileAnalizer& aAnalizer);
    virtual bool ProcessXmlReadAllNode(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath) {
        (void)aController, (void)aNode, (void)aPath;
        return false;
    }
    virtual void ProcessXmlNode(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath) {
        (void)aController, (void)aNode, (void)aPath;
    }
    virtual void PrepareProcessXmlNode(TcsXMLProcessController& aController) { (void)aController; }
    // Whether the record of an item is already stored; its key goes to the item.
    virtual bool ProcessSessionFind(TcsXMLProcessSessionItem& aItem, std::string_view aPath, xml::PXMLNode aNode);
    virtual void Clean() {}
    virtual void Initialize(bool aFirst) { (void)aFirst; }
    virtual void InitXMLInfo(TcsXMLInfo& aInfo) { FXmlInfo = &aInfo; }
    virtual void PrepareUpdateFullInfo() {}
    virtual void AfterUpdateFullInfo() {}
    virtual bool NededUpdateFullInfo() const { return false; }
    virtual TcsGeometry* GetMainGeometry() const { return FXmlInfo ? FXmlInfo->MainGeometry() : nullptr; }
    virtual TcsGeometryBounds* GetBounds() const { return nullptr; }
    virtual void SetDistinationConfig(TcsXMLProcessDestinationConfig& aConfig) { (void)aConfig; }
    virtual std::unique_ptr<TcsXMLInfo> GetXmlInfoClass() const { return std::make_unique<TcsXMLInfo>(); }
    virtual std::unique_ptr<TcsXMLFileProcessConfig> GetProcessConfigClass() const {
        return std::make_unique<TcsXMLFileProcessConfig>();
    }

    void SetManager(TcsConvertManager* aManager) { FManager = aManager; }
    [[nodiscard]] TcsConvertManager* Manager() const noexcept { return FManager; }
    [[nodiscard]] TcsXMLInfo* XmlInfo() const noexcept { return FXmlInfo; }
    // The process's settings, of the class the process names, made on first use.
    [[nodiscard]] TcsXMLFileProcessConfig& ProcessConfig() {
        if (!FProcessConfig) FProcessConfig = GetProcessConfigClass();
        return *FProcessConfig;
    }
    [[nodiscard]] const std::string& FileName() const noexcept { return FFileName; }
    void SetFileName(const std::string& aFileName) { FFileName = aFileName; }
    std::vector<std::string> XMLParts;
    std::string DestinationClass;

protected:
    TcsConvertManager* FManager = nullptr;
    TcsXMLInfo* FXmlInfo = nullptr;
    std::unique_ptr<TcsXMLFileProcessConfig> FProcessConfig;
    TXSDLibrary* FXSDLib = nullptr;
    std::string FFileName;
};

class TcsXMLFileProcess : public TcsFileProcess {
    TCS_PERSISTENT(TcsXMLFileProcess)
public:
    using TcsFileProcess::TcsFileProcess;
    // Loads the XSD the process names (through the process's cache of loaded sets).
    void Initialize(bool aFirst) override;
    void AfterUpdateFullInfo() override;
    virtual std::string GetRootNodeName() const { return {}; }
    // The XSD's path under the manager's XSD folder, with "/" between folders.
    virtual std::string GetXSDFileName() const { return {}; }
    virtual void ProcessExternalValues(TcsXMLProcessSessionItem& aItem) { (void)aItem; }
    // The text at a path below aNode ("a/b", "@attr", "a/@attr"); false when nothing is there.
    virtual bool GetValueByXpath(xml::PXMLNode aNode, std::string_view aPath, std::string& aValue, bool aFlag) const;
    // The XSD file's full path.
    [[nodiscard]] std::string XSDFilePath() const;
    std::vector<TcsXMLFileProcessReplaceXPath> ReplaceXPaths;
};

// ---------------------------------------------------------------------------------------------
// The analyser and the manager

class TcsXMLFileAnalizer : public TcsInfo {
    TCS_PERSISTENT(TcsXMLFileAnalizer)
public:
    explicit TcsXMLFileAnalizer(TcsComponent* aOwner = nullptr);
    ~TcsXMLFileAnalizer() override;
    void SetManager(TcsConvertManager* aManager) { FManager = aManager; }
    void Open(const std::string& aFileName);
    void Close() { FSeqXmlReader.Close(); }
    // The root element, its attributes and a style sheet instruction ahead of it.
    void UpdateFirstInfo();
    // The walk over every element for the process's full look; false when it was stopped.
    bool UpdateFullInfo();
    [[nodiscard]] TcsXMLSeqParser& Parser() noexcept { return FSeqXmlReader; }
    [[nodiscard]] TcsXMLInfo& XMLInfo() noexcept { return *FXMLInfo; }
    void SetXMLInfo(std::unique_ptr<TcsXMLInfo> aInfo) { FXMLInfo = std::move(aInfo); }
    [[nodiscard]] const std::string& ActiveNodeName() const noexcept { return FActiveNodeName; }

private:
    void StartElement(xml::PXMLNode aNode, std::string_view aPath);

    TcsXMLSeqParser FSeqXmlReader;
    std::unique_ptr<TcsXMLInfo> FXMLInfo;
    TcsConvertManager* FManager = nullptr;
    std::string FActiveNodeName;
};

class TcsConvertManager : public TcsManager {
    TCS_PERSISTENT(TcsConvertManager)
public:
    explicit TcsConvertManager(TcsComponent* aOwner = nullptr);
    ~TcsConvertManager() override;

    // Loads the schemas (a file, or a folder with "LocalStorageSchema.xml" and
    // "LocalStorageSchemaFull.xml") and makes one destination of each registered class.
    void Intialize(const std::string& aSchemaPath, const std::string& aXSDDir);
    void SetProcessDestination(const std::string& aClassName);
    void ActivateDestination(const std::string& aClassName);
    // Recognises the file; with aFull the process's full look follows.
    void UpdateInfo(bool aFull);
    void UpdateFullInfo();
    bool CheckProcess(std::string& aMessage);
    void StartProcess(bool aFlag);
    void EndProcess();
    void FixProcess();
    void InitDestination();
    void PrintReport();
    // The saved settings: each destination's config and the active destination.
    void WriteXML(TcsXmlNode aXmlNode, int aMode) const override;
    void ReadXML(TcsXmlNode aXmlNode, int aMode) override;
    // The coordinate system of the file through the links manager (none set: nil): by the
    // name the document gives, or worked out of its data by the registered finders. The
    // update forms also note what was found, with the data's bounds, in the file's info.
    [[nodiscard]] TcsCoordSystem* FindCoordSystem(std::string_view aName) const;
    TcsCoordSystem* FindCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aNode);
    TcsCoordSystem* UpdateXmlInfoCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aNode);
    TcsCoordSystem* UpdateXmlInfoCoordSystem(const std::string& aName, const TcsGeometryBounds* aBounds);
    TcsRosreestrXMLCoordSysLinksManager* CoordSysLinks = nullptr;
    // The schema the session items use: the full one when it is wanted and loaded.
    [[nodiscard]] TscSchema& Schema() const;
    // Calls the status procedure; false when it asks to stop.
    bool DoStatusProcedure(const std::string& aText, TcsStatusKind aKind, int64_t aPosition);
    bool DoStatusProcedure(TcsStatusKind aKind, int64_t aPosition) { return DoStatusProcedure({}, aKind, aPosition); }

    [[nodiscard]] const std::string& FileName() const noexcept { return FFilename; }
    void SetFileName(const std::string& aFileName) { FFilename = aFileName; }
    [[nodiscard]] TcsFileProcess* ActiveProcess() const noexcept { return FActiveProcess.get(); }
    [[nodiscard]] TcsXMLProcessDestination* ActiveDestination() const noexcept { return fActiveDestination; }
    [[nodiscard]] TcsXMLProcessDestinations& Destinations() noexcept { return FDestinations; }
    [[nodiscard]] TcsXMLFileAnalizer& Analizer() noexcept { return FXMLFileAnalizer; }
    [[nodiscard]] TcsXMLProcessController& Session() noexcept { return FSession; }
    [[nodiscard]] TcsXMLManagerState State() const noexcept { return FState; }
    [[nodiscard]] const std::vector<std::pair<std::string, std::string>>& InfoString() const noexcept { return FInfoString; }
    [[nodiscard]] const std::string& XSDDir() const noexcept { return FXSDDir; }
    [[nodiscard]] const std::string& SchemaDir() const noexcept { return FSchemaDir; }
    [[nodiscard]] bool UpdatedFullInfo() const noexcept { return FUpdatedFullInfo; }
    [[nodiscard]] TscSchema& LowSchema() const noexcept { return *FDefaultLowSchema; }
    [[nodiscard]] TscSchema& HighSchema() const noexcept { return *FDefaultHighSchema; }
    [[nodiscard]] TcsTrace& Trace() noexcept { return fTrace; }
    [[nodiscard]] TcsXMLExternalFileInfo& ExternalFileInfo() noexcept { return fExternalFileInfo; }
    [[nodiscard]] TcsConvertManagerWarning& Warning() noexcept { return fWarning; }
    // Whether the last walk reached the end of the file.
    bool Finished = false;

    TcsStatusProcedure FOnStatusProcedure;
    TcsPrintReport FOnPrintReport;

private:
    void UpdateStringInfo();

    std::unique_ptr<TscSchema> FDefaultLowSchema;
    std::unique_ptr<TscSchema> FDefaultHighSchema;
    bool fHighSchemaLoaded = false;
    std::string FFilename;
    std::unique_ptr<TcsFileProcess> FActiveProcess;
    std::vector<std::pair<std::string, std::string>> FInfoString;
    TcsXMLManagerState FState = msNone;
    TcsXMLProcessController FSession;
    TcsXMLProcessDestination* fActiveDestination = nullptr;
    TcsXMLFileAnalizer FXMLFileAnalizer;
    std::string FXSDDir;
    bool FUpdatedFullInfo = false;
    TcsXMLProcessDestinations FDestinations;
    TcsXMLExternalFileInfo fExternalFileInfo;
    std::string FSchemaDir;
    TcsConvertManagerWarning fWarning;
    TcsTrace fTrace;
};

// Whether session items are filled by the full walk of their elements; off unless a caller
// turns it on.
extern bool UseFullSchema;

}  // namespace tmi
