// The schema object core: objects with published properties and an edit protocol, lists of
// them kept per class in a schema's root lists with per-owner views, the schema root with its
// load and save cycle, and the bases of the providers and handlers that carry a schema
// between it and a store.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "csCommon.h"
#include "csInfoCore.h"
#include "csRTTITools.h"
#include "csVariant.h"

namespace tmi {

enum TscObjectType { otObject, otObjects };
enum TscObjectMode { omPersistent, omPersistentLocal, omTemporary };
enum TscObjectStatus { osCreating, osNormal, osEdit, osNew, osLoadingState, osPosting };
enum TscObjectTypeWork { otwSystem, otwApplication, otwData };
enum TscObjectsStorageType { stRoot, stWithRoot, stStandart };
enum TscDBObjectStatus {
    osdbNotAnalizing, osdbNormal, osdbRunTimeDeleted, osdbRunTimeAdded, osdbNotCreated, osdbModify, osdbNotCorrected
};
enum TscSchemaState {
    ssAfterCreating, ssDestroy, ssClosed, ssConnecting, ssConnected, ssLoading, ssLoaded, ssOpen, ssSave, ssAnalizing
};
enum TscSchemaWorkMode { wmSystem, wmProgrammer, wmApplication };
enum TscSaveMode { smOnlyMetadata, smMetaDataPhisical };
enum TscPoviderType { ptFile, ptDatabase, ptAll };
enum TscPackageType { ptSystem, ptApplication, ptData };

class EscSchemaException : public Exception {
public:
    using Exception::Exception;
};

class EscCheckSaveException : public EscSchemaException {
public:
    using EscSchemaException::EscSchemaException;
};

class TscCustomSchema;
class TscObjects;
class TscObject;
class TscCustomHandler;
class TscCustomProvider;
class TscExtendedProperties;

// A published property held in a field: a getter and a setter that logs the change while
// the object is edited and refuses it when it is not.
// A published property held in a field: a getter and a setter that logs the change while
// the object is edited and refuses it when it is not. The published name may differ from the
// C++ one where an operation of the object has taken it.
#define SC_PROP_AS(Type, Name, Published)                                              \
public:                                                                                \
    [[nodiscard]] const Type& Name() const noexcept { return f##Name; }                \
    void Set##Name(Type aValue) { Change(f##Name, std::move(aValue), Published); }   \
                                                                                       \
private:                                                                               \
    Type f##Name{};                                                                    \
                                                                                       \
public:

#define SC_PROP(Type, Name) SC_PROP_AS(Type, Name, #Name)

// One entry of the modify log of an edit.
struct TscModifyPropertyLogEntry {
    std::string FPropertyName;
    TcsVariant FOldValue;
    TcsVariant FNewValue;
    std::chrono::system_clock::time_point FDateModify;
};

class TscModifyProperties {
public:
    [[nodiscard]] const TscModifyPropertyLogEntry* FindProperty(std::string_view aName) const;
    void AddModifyProperty(std::string_view aName, const TcsVariant& aOld, const TcsVariant& aNew);
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fItems.size()); }
    [[nodiscard]] const TscModifyPropertyLogEntry& Items(int aIndex) const { return fItems.at(static_cast<size_t>(aIndex)); }
    void Clear() { fItems.clear(); }

private:
    std::vector<TscModifyPropertyLogEntry> fItems;
};

// The base of every schema object: its runtime state (never in a file) beside the component
// with published properties.
class TscCustomObject : public TcsPropertyComponent {
public:
    explicit TscCustomObject(TcsComponent* aSchema = nullptr, TscObjectMode aMode = omPersistent);
    ~TscCustomObject() override;

    [[nodiscard]] std::string InternalClassName() const { return ClassName(); }
    [[nodiscard]] virtual TscObjectType GetObjectType() const { return otObject; }
    [[nodiscard]] TscObjectMode ObjectMode() const noexcept { return fObjectMode; }
    void SetObjectMode(TscObjectMode aMode) noexcept { fObjectMode = aMode; }
    [[nodiscard]] int RefCount() const noexcept { return fRefCount; }
    [[nodiscard]] TscCustomSchema* Schema() const noexcept { return fSchema; }
    void SetSchema(TscCustomSchema* aSchema) noexcept { fSchema = aSchema; }
    [[nodiscard]] TscCustomHandler* Handler() const noexcept { return fHandler; }
    void ActivateHandlerObject(TscCustomHandler* aHandler) noexcept { fHandler = aHandler; }
    [[nodiscard]] TscDBObjectStatus DBObjectStatus() const noexcept { return fDBObjectStatus; }
    void SetDBObjectStatus(TscDBObjectStatus aStatus) noexcept { fDBObjectStatus = aStatus; }
    [[nodiscard]] bool ReqModification() const noexcept { return fReqModification; }
    [[nodiscard]] bool Modified() const noexcept { return fModified; }
    void SetModified(bool aValue) noexcept { fModified = aValue; }
    [[nodiscard]] bool Corrupted() const noexcept { return fCorrupted; }
    [[nodiscard]] bool Deleted() const noexcept { return fDeleted; }
    void SetDeleted(bool aValue) noexcept { fDeleted = aValue; }
    [[nodiscard]] bool NewObject() const noexcept { return fNewObject; }
    void SetNewObject(bool aValue) noexcept { fNewObject = aValue; }
    [[nodiscard]] TscObjectStatus ObjectStatus() const noexcept { return fObjectStatus; }
    void SetObjectStatus(TscObjectStatus aStatus) noexcept { fObjectStatus = aStatus; }
    // Free-form properties attached to the object; made on first use.
    [[nodiscard]] TscExtendedProperties& ExtendedProperties();
    [[nodiscard]] bool HasExtendedProperties() const;
    // The lists of objects this object holds (a table's fields, a role's rights).
    [[nodiscard]] virtual std::vector<TscObjects*> ChildObjects() { return {}; }

    [[nodiscard]] virtual std::string GetKeyClassName() const { return ClassName(); }
    [[nodiscard]] std::string KeyClassName() const { return GetKeyClassName(); }
    [[nodiscard]] virtual std::string GetCaptionClassName() const { return GetStorageName(); }
    [[nodiscard]] std::string GetInternalClassName() const { return ClassName(); }
    [[nodiscard]] virtual std::string GetDisplayName() const;
    // The class name without "Tsc": the element name of the object in a file.
    [[nodiscard]] virtual std::string GetStorageName() const;

    virtual void Edit() = 0;
    // Appends a line per problem that would make the object unsavable.
    virtual void CheckSave(std::vector<std::string>& aErrors) const { (void)aErrors; }

    bool NotWriteProperty(std::string_view aPropertyName) const override;

protected:
    // Sets a field of a published property through the edit protocol.
    template <class T>
    void Change(T& aField, T aValue, const char* aName) {
        if (aField == aValue) return;
        if (fObjectStatus != osCreating && fObjectStatus != osLoadingState)
            LogChange(aName, detail::ToVariant(aField), detail::ToVariant(aValue));
        aField = std::move(aValue);
    }
    virtual void LogChange(const char* aName, const TcsVariant& aOld, const TcsVariant& aNew) = 0;

    TscCustomSchema* fSchema = nullptr;
    TscCustomHandler* fHandler = nullptr;
    TscObjectMode fObjectMode;
    TscObjectStatus fObjectStatus = osCreating;
    TscDBObjectStatus fDBObjectStatus = osdbNotAnalizing;
    int fRefCount = 0;
    bool fReqModification = false;
    bool fModified = false;
    bool fCorrupted = false;
    bool fDeleted = false;
    bool fNewObject = false;
    std::unique_ptr<TscExtendedProperties> fExtendedProperties;
};

// An object of a schema with the edit protocol: Edit takes a snapshot of the published
// values and opens the modify log, Post keeps the changes, Cancel restores the snapshot.
class TscObject : public TscCustomObject {
    TCS_PERSISTENT(TscObject)
public:
    explicit TscObject(TcsComponent* aSchema = nullptr, TscObjectMode aMode = omPersistent);
    ~TscObject() override;

    void Edit() override;
    void Post();
    void Cancel();
    [[nodiscard]] bool InEdit() const noexcept { return fObjectStatus == osEdit || (fObjectStatus == osNew && fSnapshot); }

    void Assign(const TcsPersistent& aSource) override;
    // Copies the published values and remembers the pair for references between copies.
    void AssignWithOldNew(const TscObject& aSource, class TscOldNewObjects& aOldNew);
    // What depends on the object and goes with it when it is deleted.
    virtual void GetRelatedObjects(std::vector<TscObject*>& aObjects) { (void)aObjects; }
    virtual bool ValidatePropertyValue(std::string_view aName, const TcsVariant& aValue, std::string& aError) {
        (void)aName, (void)aValue, (void)aError;
        return true;
    }

    [[nodiscard]] TcsVariant PropertyValuesByName(std::string_view aName) const { return GetPropertyValueByName(aName); }
    void SetPropertyValuesByName(std::string_view aName, const TcsVariant& aValue);
    [[nodiscard]] TcsVariant PropertyValuesByIndex(int aIndex) const;
    [[nodiscard]] int PropertyCount() const { return GetPropertyCount(); }
    [[nodiscard]] bool PropertyIsKeyType(std::string_view aProperty) const;
    [[nodiscard]] virtual bool PropertyMayBeGUID(std::string_view aPropertyName) const;
    [[nodiscard]] virtual std::string GetKeyPropertyName() const { return "ID"; }
    [[nodiscard]] virtual std::string GetKeyObjectName() const { return "BaseName"; }
    [[nodiscard]] virtual std::string GetKeyObjectTitle() const { return "Title"; }

    // The key: the "ID" property when the class has one.
    [[nodiscard]] TcsVariant KeyValue() const;
    [[nodiscard]] std::string KeyText() const { return KeyValue().AsString(); }
    [[nodiscard]] std::string BaseNameText() const;

    [[nodiscard]] const TscModifyProperties& ModifyProperties() const noexcept { return fModifyLog; }
    [[nodiscard]] std::string ObjectClassName() const { return ClassName(); }
    [[nodiscard]] virtual TscObjectTypeWork ObjectTypeWork() const { return otwSystem; }
    [[nodiscard]] bool IsSystemObject() const { return ObjectTypeWork() == otwSystem; }
    [[nodiscard]] bool IsApplicationObject() const { return ObjectTypeWork() == otwApplication; }
    [[nodiscard]] virtual bool AllowModifyObject() const { return true; }
    [[nodiscard]] virtual bool AllowEditPersistent() const { return true; }
    [[nodiscard]] bool AddedToRoot() const noexcept { return fAddedToRoot; }
    void SetAddedToRoot(bool aValue) noexcept { fAddedToRoot = aValue; }

    // "Имя класса BaseName (ID)": how check lines name an object.
    [[nodiscard]] std::string CheckName() const;

protected:
    void LogChange(const char* aName, const TcsVariant& aOld, const TcsVariant& aNew) override;
    void SaveStateSnapshot();
    void LoadStateSnapshot();

private:
    std::unique_ptr<TcsNamedVariantsList> fSnapshot;
    TscModifyProperties fModifyLog;
    bool fLogOpen = false;
    bool fAddedToRoot = false;
};

// The pairs of objects copied between schemas, so that references follow the copies.
class TscOldNewObjects {
public:
    void AddProcessedObject(const TscObject* aOld, TscObject* aNew) { fPairs[aOld] = aNew; }
    [[nodiscard]] TscObject* NewObjectByOldObject(const TscObject* aOld) const;
    [[nodiscard]] const TscObject* OldObjectNewByObject(const TscObject* aNew) const;
    [[nodiscard]] bool ObjectProcessed(const TscObject* aOld) const { return fPairs.count(aOld) != 0; }
    std::string ErrorString;

private:
    std::map<const TscObject*, TscObject*> fPairs;
};

// A list of schema objects. Root lists (stRoot) own the objects of their class for the whole
// schema; views (stWithRoot) show the objects of one owner, filtered from the root by a
// property, and add to the root; standard lists (stStandart) own their objects themselves.
class TscObjects : public TcsPersistent {
public:
    TscObjects(TscCustomSchema* aSchema, TscObjectsStorageType aStorageType, TscObject* aOwner = nullptr);
    ~TscObjects() override;
    TscObjects(const TscObjects&) = delete;
    TscObjects& operator=(const TscObjects&) = delete;

    [[nodiscard]] std::string ClassName() const override { return fClassName; }
    [[nodiscard]] const TcsPropertyTable& PropertyTable() const override { return TcsPersistent::ClassProperties(); }
    [[nodiscard]] std::unique_ptr<TcsPersistent> NewLike(TcsComponent*) const override { return nullptr; }

    // The class of the objects: its name and how to make one.
    void SetObjectClass(std::string aObjectClassName, std::function<std::unique_ptr<TscObject>(TscCustomSchema*, TscObjectMode)> aFactory);
    [[nodiscard]] const std::string& ObjectClass() const noexcept { return fObjectClassName; }
    void SetClassName(std::string aName) { fClassName = std::move(aName); }
    // The list's class name without "Tsc": the section of a file.
    [[nodiscard]] std::string GetStorageName() const;

    [[nodiscard]] TscObjectsStorageType StorageType() const noexcept { return fStorageType; }
    [[nodiscard]] TscCustomSchema* Schema() const noexcept { return fSchema; }
    [[nodiscard]] TscObject* Owner() const noexcept { return fOwner; }
    [[nodiscard]] TscObjectStatus ObjectStatus() const noexcept { return fStatus; }
    // The root list a view or a root reads from.
    [[nodiscard]] TscObjects* Root() const;

    // A view shows the root's objects whose property aName has the value aValue.
    void SetFilter(std::string aName, TcsVariant aValue);
    [[nodiscard]] const std::string& FilterPropertyName() const noexcept { return fFilterPropertyName; }
    [[nodiscard]] bool FilterRefreshed() const;

    [[nodiscard]] int Count() const;
    [[nodiscard]] TscObject* Items(int aIndex) const;
    [[nodiscard]] const std::vector<TscObject*>& Objects() const;
    [[nodiscard]] TscObject* ItemsByID(const TcsVariant& aID) const;
    [[nodiscard]] TscObject* ItemByBaseName(std::string_view aName) const;
    [[nodiscard]] TscObject* ItemByTitle(std::string_view aTitle) const;
    [[nodiscard]] TscObject* ItemByHint(std::string_view aHint) const;
    [[nodiscard]] bool HasObject(const TscObject* aObject) const { return IndexOf(aObject) >= 0; }
    [[nodiscard]] int IndexOf(const TscObject* aObject) const;
    [[nodiscard]] bool HasModify() const;

    // Takes the object into the list (and the root); answers it.
    TscObject* Add(std::unique_ptr<TscObject> aObject);
    // A new object of the list's class, in this list, with a new ID; status osNew.
    TscObject* GetNewObject(int aType = 0);
    // A new object of the list's class in no list (a template to fill before Add).
    [[nodiscard]] std::unique_ptr<TscObject> GetNewTemplate(int aType = 0) const;
    [[nodiscard]] virtual bool AllowAppendObject(const TscObject& aObject) const;
    // Deletes the object and what depends on it. In real mode they are destroyed at once;
    // otherwise they leave the lists for the root's deleted objects, which a database save
    // drops and a file save leaves out.
    void DeleteObject(TscObject* aObject, bool aRealMode = true, std::vector<TscObject*>* aRelObjects = nullptr);
    void Delete(int aIndex) { DeleteObject(Items(aIndex)); }
    [[nodiscard]] const std::vector<std::unique_ptr<TscObject>>& DeletedObjects() const noexcept { return fDeleted; }
    [[nodiscard]] int DeletedObjectsCount() const noexcept { return static_cast<int>(fDeleted.size()); }
    void StoredDelete() { fDeleted.clear(); }
    // Copies of the objects of another list; aOldNew pairs them.
    void AppendObjects(const TscObjects& aObjects, TscOldNewObjects& aOldNew);
    void Clear();

    // Standard lists carry the edit to their objects; lists with sub-lists to those too.
    virtual void Edit();
    virtual void Post();
    virtual void Cancel();
    // Appends a line per problem of the list as a whole.
    virtual void CheckSave(std::vector<std::string>& aErrors) const { (void)aErrors; }
    // Lists this list carries beside its objects, stored before them.
    [[nodiscard]] virtual std::vector<TscObjects*> SubLists() { return {}; }

    // A new ID: a GUID string for types 1 and 2, else one more than the largest integer ID
    // among the root's persistent objects, so that no number comes twice in a session.
    TcsVariant GetNewID(int aType = 0);
    // The class name without "Tsc" and the first number that makes it unique here.
    [[nodiscard]] std::string GetUniqueBaseName() const;
    void GetBaseNames(std::vector<std::string>& aList) const;
    [[nodiscard]] TscObject* GetItemByExtendedProperty(std::string_view aName, const TcsVariant& aValue) const;
    [[nodiscard]] int GetObjectByPackageCount(const TcsVariant& aPackageID) const;
    void RefreshCache(bool aForce = false) const;
    // Called by the root when its objects change: the views and the caches refresh.
    void Changed() noexcept { ++fVersion; }

private:
    friend class TscCustomSchema;
    [[nodiscard]] TscObject* AddToRoot(std::unique_ptr<TscObject> aObject);
    void Unlink(TscObject* aObject);
    void CheckClass(const TscObject& aObject) const;
    [[nodiscard]] const std::vector<TscObject*>& ViewItems() const;
    [[nodiscard]] const std::vector<TscObject*>& GroupOf(std::string_view aProperty, const TcsVariant& aValue) const;

    TscCustomSchema* fSchema;
    TscObjectsStorageType fStorageType;
    TscObject* fOwner;
    TscObjectStatus fStatus = osNormal;
    std::string fClassName = "TscObjects";
    std::string fObjectClassName = "TscObject";
    std::function<std::unique_ptr<TscObject>(TscCustomSchema*, TscObjectMode)> fFactory;

    // Root and standard lists: the objects, owned, in order.
    std::vector<std::unique_ptr<TscObject>> fOwned;
    std::vector<TscObject*> fItems;
    std::vector<std::unique_ptr<TscObject>> fPending;  // added to a standard list in edit
    std::vector<std::unique_ptr<TscObject>> fDeleted;
    int64_t fLastID = 0;  // 0 or less: not scanned yet

    // Caches, rebuilt when fVersion moves.
    uint64_t fVersion = 1;
    mutable uint64_t fCacheVersion = 0;
    mutable std::unordered_map<std::string, TscObject*> fIndexCash;
    mutable std::map<std::string, std::pair<uint64_t, std::unordered_map<std::string, std::vector<TscObject*>>>> fGroups;

    // Views: the filter and the items last seen.
    std::string fFilterPropertyName;
    TcsVariant fFilterPropertyValue;
    mutable std::vector<TscObject*> fViewItems;
    mutable uint64_t fViewVersion = 0;
};

class TscExtendedProperty : public TscObject {
    TCS_PERSISTENT(TscExtendedProperty)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Description)
    SC_PROP(TcsVariant, Value)
    SC_PROP(TcsVariant, ObjectID)
    SC_PROP(std::string, ObjectClassString)
    SC_PROP(bool, Enabled)
public:
    using TscObject::TscObject;
};

class TscExtendedProperties : public TscObjects {
public:
    TscExtendedProperties(TscCustomSchema* aSchema, TscObject* aOwner);
    // The value of the property named aName; unassigned when there is none.
    [[nodiscard]] TcsVariant ValueOf(std::string_view aName) const;
    // Sets (adding when absent) the property named aName.
    void SetValueOf(std::string_view aName, const TcsVariant& aValue);
};

// One line of the debug log, with the milliseconds since the log began.
struct TscDebugElement {
    std::string Text;
    int64_t Milliseconds = 0;
};

class TscDebug {
public:
    void Print(std::string aText);
    void Start();
    void Stop() { fActive = false; }
    [[nodiscard]] bool Active() const noexcept { return fActive; }
    [[nodiscard]] const std::vector<TscDebugElement>& Items() const noexcept { return fItems; }
    void Clear() { fItems.clear(); }
    // Milliseconds since the log began.
    [[nodiscard]] int64_t Elapsed() const;

private:
    std::vector<TscDebugElement> fItems;
    std::chrono::steady_clock::time_point fStart = std::chrono::steady_clock::now();
    bool fActive = true;
};

// A handler knows how one class of objects is loaded from and saved to its provider's store.
class TscCustomHandler {
public:
    explicit TscCustomHandler(TscCustomProvider* aProvider) : fProvider(aProvider) {}
    virtual ~TscCustomHandler() = default;
    [[nodiscard]] TscCustomProvider* Provider() const noexcept { return fProvider; }
    [[nodiscard]] TscCustomSchema* Schema() const;
    // The class of objects it handles; empty for the default handler.
    [[nodiscard]] virtual std::string GetObjectClass() const { return {}; }
    [[nodiscard]] virtual std::string GetObjectsClass() const { return {}; }
    [[nodiscard]] virtual std::string SectionName() const { return {}; }
    // The name a property is stored under, and back.
    [[nodiscard]] virtual std::string GetReplaceStorageName(std::string_view aProperty) const { return std::string(aProperty); }
    [[nodiscard]] virtual std::string GetReplacePropertyName(std::string_view aStorage) const { return std::string(aStorage); }
    virtual void PrepareAnalize() {}
    virtual void AfterAnalize() {}
    virtual void RefreshCache(bool aRaiseExcept = false, bool aForce = false) { (void)aRaiseExcept, (void)aForce; }
    virtual void CloseCache() {}
    virtual void Load(TscObjects& aObjects) = 0;
    virtual void Save(TscObjects& aObjects) = 0;
    virtual void Save(TscObject& aObject, bool aRecursive) { (void)aObject, (void)aRecursive; }
    virtual void loadBlobProperty(TscObject& aObject, std::string_view aPropertyName, std::string& aBlob) {
        (void)aObject, (void)aPropertyName, (void)aBlob;
    }
    virtual void GetGenStrs(std::vector<std::string>& aStrings) { (void)aStrings; }
    virtual void GetChangeStrs(std::vector<std::string>& aStrings) { (void)aStrings; }

protected:
    TscCustomProvider* fProvider;
};

// A store of schemas: a file or a database, reached by a connection string of "Name=Value"
// parameters separated by ";".
class TscCustomProvider {
public:
    explicit TscCustomProvider(TscCustomSchema* aSchema);
    virtual ~TscCustomProvider();
    TscCustomProvider(const TscCustomProvider&) = delete;
    TscCustomProvider& operator=(const TscCustomProvider&) = delete;

    [[nodiscard]] TscObjectMode ObjectMode() const noexcept { return fObjectMode; }
    void SetObjectMode(TscObjectMode aMode) noexcept { fObjectMode = aMode; }
    [[nodiscard]] const std::string& ConnectionString() const noexcept { return fConnectionString; }
    void SetConnectionString(std::string aText) { fConnectionString = std::move(aText); }
    [[nodiscard]] bool Active() const noexcept { return fActive; }
    [[nodiscard]] std::string ProviderName() const { return GetProviderName(); }
    [[nodiscard]] const std::string& StatusString() const noexcept { return fStatusString; }
    [[nodiscard]] int HandlersCount() const noexcept { return static_cast<int>(fHandlers.size()); }
    [[nodiscard]] std::string Description() const { return GetDescription(); }
    [[nodiscard]] virtual TscPoviderType ProviderType() const = 0;
    [[nodiscard]] TscCustomSchema* Schema() const noexcept { return fSchema; }
    void SetSchema(TscCustomSchema* aSchema) noexcept { fSchema = aSchema; }
    [[nodiscard]] const std::string& SchemaGUID() const noexcept { return fSchemaGUID; }

    virtual void Connect() { Open(); }
    virtual void DoAfterLoad() {}
    virtual void PostLoad() {}
    virtual void DoBeforeLoad() {}
    virtual void Open() { fActive = true; }
    virtual void Close() { fActive = false; }
    virtual void Load(TscObjects& aObjects);
    virtual void BeforeSave() {}
    virtual void AfterSave() {}
    virtual void BeforeAnalize() {}
    virtual void AfterAnalize() {}
    virtual void Save(TscObjects& aObjects);
    virtual void Save(TscObject& aObject);
    virtual void SaveSchema(TscCustomSchema& aSchema);
    virtual void Analize(TscCustomSchema& aSchema) { (void)aSchema; }
    virtual void Commit() {}

    [[nodiscard]] TscCustomHandler* GetHandlerByObject(const TscObject& aObject) const;
    [[nodiscard]] TscCustomHandler* GetHandlerByObjectClass(std::string_view aClassName) const;
    [[nodiscard]] virtual TscCustomHandler* GetHandlerByObjects(const TscObjects& aObjects) const;
    [[nodiscard]] TscCustomHandler* GetHandlerByIndex(int aIndex) const { return fHandlers.at(static_cast<size_t>(aIndex)).get(); }
    [[nodiscard]] virtual TscCustomHandler* DefaultHandler() const { return nullptr; }

    void SetConnectParametr(std::string_view aParametrName, std::string_view aParametrValue);
    [[nodiscard]] std::string GetConnectParametr(std::string_view aParametrName) const;
    [[nodiscard]] virtual std::string GetProviderName() const = 0;
    [[nodiscard]] virtual std::string GetVisibleProviderName() const { return GetProviderName(); }
    [[nodiscard]] virtual std::string GetProviderFileExt() const { return {}; }
    [[nodiscard]] virtual std::string GetProviderFileExtFilter() const { return {}; }
    [[nodiscard]] virtual std::string GetDescription() const { return GetVisibleProviderName(); }
    // The name and the connection string, its password left out.
    [[nodiscard]] std::string GetFullDescription() const;

protected:
    void AddHandler(std::unique_ptr<TscCustomHandler> aHandler) { fHandlers.push_back(std::move(aHandler)); }

    TscCustomSchema* fSchema;
    TscObjectMode fObjectMode = omPersistent;
    std::string fConnectionString;
    std::string fStatusString;
    std::string fSchemaGUID;
    bool fActive = false;
    std::vector<std::unique_ptr<TscCustomHandler>> fHandlers;
};

class TscFileCustomProvider : public TscCustomProvider {
public:
    using TscCustomProvider::TscCustomProvider;
    [[nodiscard]] TscPoviderType ProviderType() const override { return ptFile; }
    // A file holds the whole schema: saving some objects saves all of them.
    virtual void SaveObjects(TscObjects& aObjects);
};

// One provider class, by name, with how to make one.
struct TscProviderLink {
    std::string ProviderName;
    std::string VisibleName;
    std::function<std::unique_ptr<TscCustomProvider>(TscCustomSchema*)> Create;
    std::vector<std::string> HandlerClasses;
    void RegisterHandler(std::string aHandlerClass) { HandlerClasses.push_back(std::move(aHandlerClass)); }
};

class TscProviderManager {
public:
    // Logs "Зарегестрирован провайдер: " and the name on each registration.
    void RegisterProvider(TscProviderLink aLink);
    [[nodiscard]] const TscProviderLink* Find(std::string_view aProviderName) const;
    [[nodiscard]] const std::vector<TscProviderLink>& Links() const noexcept { return fLinks; }
    [[nodiscard]] std::unique_ptr<TscCustomProvider> CreateProvider(std::string_view aProviderName, TscCustomSchema* aSchema) const;
    std::vector<std::string> Log;

private:
    std::vector<TscProviderLink> fLinks;
};

TscProviderManager& ProviderManager();

// A stored text as a value of the property: enumerations by name or ordinal, Booleans as
// "True"/"1", a variant as an integer when the whole text is one; an unreadable text gives
// the zero of its kind.
TcsVariant PropertyValueFromText(const TcsPropertyInfo& aProperty, const std::string& aText);
// Raises EscCheckSaveException with every check line under the save's heading.
[[noreturn]] void RaiseCheckErrors(const std::vector<std::string>& aErrors);
// A connection string with the value of "Password" replaced by "***".
std::string MaskPassword(const std::string& aConnectionString);

// The root of a schema: one root list per object class, in a fixed order, loaded from and
// saved to a provider.
class TscCustomSchema : public TscObject {
public:
    explicit TscCustomSchema(TscSchemaWorkMode aSchemaMode = wmSystem);
    ~TscCustomSchema() override;

    [[nodiscard]] const std::vector<std::unique_ptr<TscObjects>>& ROOTObjects() const noexcept { return fRoots; }
    [[nodiscard]] int RootObjectItems() const noexcept { return static_cast<int>(fRoots.size()); }
    // Whether an object may be edited now, by schema state and work mode.
    [[nodiscard]] bool CheckEdit(const TscObject& aObject) const;
    [[nodiscard]] const std::vector<TscObject*>& ModifiedObjects() const noexcept { return fModifiedObjects; }
    void AddModifiedObject(TscObject* aObject);
    [[nodiscard]] TscSchemaWorkMode WorkMode() const noexcept { return fWorkMode; }
    void SetWorkMode(TscSchemaWorkMode aMode) noexcept { fWorkMode = aMode; }
    [[nodiscard]] bool Loaded() const noexcept { return fLoaded; }
    [[nodiscard]] TscSchemaState State() const noexcept { return fState; }
    [[nodiscard]] TscDebug& Debug() noexcept { return fDebug; }
    [[nodiscard]] TscCustomProvider* Provider() const noexcept { return fProvider.get(); }
    [[nodiscard]] const std::vector<std::unique_ptr<TscCustomProvider>>& LocalProviders() const noexcept { return fLocalProviders; }
    [[nodiscard]] bool SchemaModified() const noexcept { return !fModifiedObjects.empty(); }
    [[nodiscard]] const std::string& SourceGUID() const noexcept { return fSourceGUID; }
    [[nodiscard]] bool Active() const noexcept { return fState == ssOpen || fState == ssLoaded || fState == ssConnected; }
    [[nodiscard]] const std::string& PrefixName() const noexcept { return fPrefixName; }
    void SetPrefixName(std::string aName) { fPrefixName = std::move(aName); }
    [[nodiscard]] TscSaveMode SaveMode() const noexcept { return fSaveMode; }
    void SetSaveMode(TscSaveMode aMode) noexcept { fSaveMode = aMode; }
    [[nodiscard]] bool AllowApplicationModify() const noexcept { return fAllowApplicationModify; }
    void SetAllowApplicationModify(bool aValue) noexcept { fAllowApplicationModify = aValue; }
    std::function<void(TscCustomSchema&, int)> OnSchemaEvent;

    // Takes the provider and connects it; with aLoad, loads.
    void Open(std::unique_ptr<TscCustomProvider> aProvider, bool aLoad = true);
    // A provider by its registered name: "scXMLProvider;FileName=x.xml".
    void Open(std::string_view aConnectStr, bool aLoad = true);
    void Open(bool aLoad = true);
    // Loads every root list. A failure raises nothing: it goes to the operator's message,
    // and the schema is left empty.
    void Load();
    // Checks every object, then saves through the provider; raises EscCheckSaveException
    // with every error and writes nothing when a check fails.
    void Save(bool aClearModify = true);
    void Save(TscCustomProvider& aProvider, bool aClearModify = true);
    void SaveObjects(TscObjects& aObjects);
    void Close();
    void Clear();
    void BeginAnalize();
    void EndAnalize();
    void CheckAnalize() const;
    void CheckLoading() const;
    void ClearModifyObjects();
    // Every check line of every object, new ones included.
    [[nodiscard]] std::vector<std::string> CheckAll() const;

    [[nodiscard]] TscObjects* GetRootObjectsByObjectClass(std::string_view aObjectClassName) const;
    [[nodiscard]] TscObjects* GetRootObjectsByObjectsClass(std::string_view aObjectsClassName) const;
    [[nodiscard]] TscObjects* GetRootObjectsByObject(const TscObject& aObject) const {
        return GetRootObjectsByObjectClass(aObject.ClassName());
    }
    [[nodiscard]] TscObjects* GetRootObjectsByObjects(const TscObjects& aObjects) const {
        return GetRootObjectsByObjectClass(aObjects.ObjectClass());
    }
    [[nodiscard]] TscObjects* GetRootObjectsByKeyClassName(std::string_view aName) const;
    [[nodiscard]] TscObject* GetObject(const TscObjects& aObjects, int aIndex) const { return aObjects.Items(aIndex); }
    [[nodiscard]] TscObject* GetObjectByID(std::string_view aObjectClassName, const TcsVariant& aID) const;

protected:
    // Registers a root list of the schema, in order.
    TscObjects& AddRoot(std::string aListClass, std::string aObjectClass,
                        std::function<std::unique_ptr<TscObject>(TscCustomSchema*, TscObjectMode)> aFactory);
    TscObjects& AddRoot(std::unique_ptr<TscObjects> aList);
    void SetState(TscSchemaState aState);

private:
    friend class TscObjects;
    void ForgetModified(const TscObject* aObject);

    std::vector<std::unique_ptr<TscObjects>> fRoots;
    std::vector<TscObject*> fModifiedObjects;
    TscSchemaWorkMode fWorkMode;
    TscSchemaState fState = ssAfterCreating;
    TscSaveMode fSaveMode = smOnlyMetadata;
    bool fLoaded = false;
    bool fAllowApplicationModify = false;
    TscDebug fDebug;
    std::unique_ptr<TscCustomProvider> fProvider;
    std::vector<std::unique_ptr<TscCustomProvider>> fLocalProviders;
    std::string fSourceGUID;
    std::string fPrefixName;
};

}  // namespace tmi
