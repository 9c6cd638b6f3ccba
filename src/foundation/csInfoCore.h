// The object base: components whose published properties can be listed, read and written
// by name, compared, copied and stored as XML; lists of them; a registry of classes by name;
// a manager that stores a tree of them in a file.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "csCommon.h"
#include "csMessage.h"
#include "csRTTITools.h"

struct _xmlNode;

namespace tmi {

using TcsXmlNode = ::_xmlNode*;

class TcsPersistent;
class TcsInfo;
class TcsComponent;

// A class of the registry: its name, its class-level texts and how to make one.
struct TcsInfoClassData {
    std::string fClassName;                 // "TcsGeometryCoord"
    std::function<std::string()> fGetClassName;  // the class-level GetClassName
    std::function<std::unique_ptr<TcsInfo>(TcsComponent*)> fCreate;
};
using TcsInfoClass = const TcsInfoClassData*;

// Declares the class-level part of a class with published properties: its name, its table
// (defined in the .cpp with TCS_PROPERTIES) and a like object for Clone.
#define TCS_PERSISTENT(Class)                                                                        \
public:                                                                                              \
    static const char* StaticClassName() { return #Class; }                                          \
    [[nodiscard]] std::string ClassName() const override { return #Class; }                          \
    static const ::tmi::TcsPropertyTable& ClassProperties();                                         \
    [[nodiscard]] const ::tmi::TcsPropertyTable& PropertyTable() const override { return ClassProperties(); } \
    [[nodiscard]] std::unique_ptr<::tmi::TcsPersistent> NewLike(::tmi::TcsComponent* aOwner) const override { \
        return std::make_unique<Class>(aOwner);                                                      \
    }

// Defines the table: the base class's properties, then these.
#define TCS_PROPERTIES(Class, Base, ...)                                                  \
    const ::tmi::TcsPropertyTable& Class::ClassProperties() {                             \
        static const ::tmi::TcsPropertyTable table(&Base::ClassProperties(), {__VA_ARGS__}); \
        return table;                                                                     \
    }

// Anything with published properties.
class TcsPersistent {
public:
    virtual ~TcsPersistent() = default;
    [[nodiscard]] virtual std::string ClassName() const = 0;
    [[nodiscard]] virtual const TcsPropertyTable& PropertyTable() const = 0;
    // A new object of the same class (used by Clone).
    [[nodiscard]] virtual std::unique_ptr<TcsPersistent> NewLike(TcsComponent* aOwner) const = 0;
    // The base raises "Cannot assign a X to a Y".
    virtual void Assign(const TcsPersistent& aSource);
    // Properties that never reach the XML.
    [[nodiscard]] virtual bool NotWriteProperty(std::string_view aPropertyName) const;
    // Object properties: the base writes a child element named after the property.
    virtual void WriteObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName, int aMode) const;
    virtual void ReadObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName, int aMode);
    virtual void WriteXML(TcsXmlNode aXmlNode, int aMode) const;
    virtual void ReadXML(TcsXmlNode aXmlNode, int aMode);
    static const TcsPropertyTable& ClassProperties();
};

// TComponent's part: an owner (a back reference: ownership lives in lists and members),
// a name and a tag.
class TcsComponent : public TcsPersistent {
public:
    explicit TcsComponent(TcsComponent* aOwner = nullptr) : fOwner(aOwner) {}
    [[nodiscard]] TcsComponent* Owner() const noexcept { return fOwner; }
    void SetOwner(TcsComponent* aOwner) noexcept { fOwner = aOwner; }
    [[nodiscard]] const std::string& Name() const noexcept;
    void SetName(const std::string& aName);
    [[nodiscard]] int64_t Tag() const noexcept { return fTag; }
    void SetTag(int64_t aTag) noexcept { fTag = aTag; }
    static const TcsPropertyTable& ClassProperties();

private:
    TcsComponent* fOwner;
    std::unique_ptr<std::string> fName;  // most objects have none: kept out of line
    int64_t fTag = 0;
};

struct TscModifyPropertyElement {
    std::string fPropertyName;
    TcsVariant fOldValue;
    TcsVariant fNewValue;
};

enum TcsPropertyState : uint8_t { psUnknown, psReadOnly, psReadWrite };

class TcsNamedVariantsList;

// The property operations, on any object with a table.
class TcsSupportPropertyObject {
public:
    explicit TcsSupportPropertyObject(TcsPersistent& aObject) : fObject(aObject) {}

    [[nodiscard]] const TcsPropertyInfo* GetProperty(int aIndex) const;
    [[nodiscard]] int GetPropertyCount() const { return fObject.PropertyTable().Count(); }
    [[nodiscard]] const TcsPropertyInfo* PropertyByName(std::string_view aName) const { return fObject.PropertyTable().Find(aName); }
    [[nodiscard]] bool PropertyExist(std::string_view aName) const { return PropertyByName(aName) != nullptr; }
    [[nodiscard]] TcsPropertyKind PropertyType(std::string_view aName) const;
    [[nodiscard]] std::string PropertyTypeName(std::string_view aName) const;
    [[nodiscard]] bool PropertyReadOnly(std::string_view aName) const;
    [[nodiscard]] TcsPropertyState PropertyState(std::string_view aName) const;
    // Unassigned for an unknown name.
    [[nodiscard]] TcsVariant GetPropertyValueByName(std::string_view aName) const;
    [[nodiscard]] TcsVariant GetPropertyValueByIndex(int aIndex) const;
    // Nothing happens for an unknown or read-only name.
    void SetPropertyValueByName(std::string_view aName, const TcsVariant& aValue);
    void SetPropertyValueByIndex(int aIndex, const TcsVariant& aValue);
    [[nodiscard]] bool IsEnumProperty(std::string_view aName) const;
    [[nodiscard]] bool IsObjectProperty(std::string_view aName) const;
    [[nodiscard]] TcsPersistent* GetObjectProperty(std::string_view aName) const;
    // Sets the property to the zero of its kind.
    void ClearProperty(std::string_view aName);
    void ClearProperties();
    void SaveState(TcsNamedVariantsList& aState) const;
    void LoadState(const TcsNamedVariantsList& aState);
    void RefreshPropertyCash() {}
    [[nodiscard]] std::string GetSystemName() const { return fObject.ClassName(); }

    void WriteXML(TcsXmlNode aXmlNode, int aMode) const { fObject.WriteXML(aXmlNode, aMode); }
    void ReadXML(TcsXmlNode aXmlNode, int aMode) { fObject.ReadXML(aXmlNode, aMode); }
    // A document of version "1.0" whose root is named aRootName.
    void WriteFileXML(const std::string& aFileName, std::string_view aRootName, int aMode = 0) const;
    // Raises when the file is absent.
    void ReadFileXML(const std::string& aFileName, int aMode = 0);
    [[nodiscard]] std::string WriteStringXML(std::string_view aRootName, int aMode = 0) const;
    bool ReadStringXML(std::string_view aXML, int aMode = 0);

private:
    TcsPersistent& fObject;
};

class TcsPropertyComponent : public TcsComponent {
public:
    using TcsComponent::TcsComponent;
    static const TcsPropertyTable& ClassProperties();

    [[nodiscard]] TcsSupportPropertyObject Properties() { return TcsSupportPropertyObject(*this); }
    [[nodiscard]] TcsVariant GetPropertyValueByName(std::string_view aName) const {
        return TcsSupportPropertyObject(const_cast<TcsPropertyComponent&>(*this)).GetPropertyValueByName(aName);
    }
    void SetPropertyValueByName(std::string_view aName, const TcsVariant& aValue) {
        TcsSupportPropertyObject(*this).SetPropertyValueByName(aName, aValue);
    }
    [[nodiscard]] bool PropertyExist(std::string_view aName) const { return PropertyTable().Find(aName) != nullptr; }
    [[nodiscard]] int GetPropertyCount() const { return PropertyTable().Count(); }

    void AddModifyProperty(std::string_view aPropertyName, const TcsVariant& aOldValue, const TcsVariant& aNewValue);
    [[nodiscard]] bool PropertyIsModify(std::string_view aPropertyName) const;
    [[nodiscard]] const std::vector<TscModifyPropertyElement>& ModifyProperties() const noexcept;

    // Only between objects of the very same class, through an element "AssignNode".
    void Assign(const TcsPersistent& aSource) override;

private:
    std::unique_ptr<std::vector<TscModifyPropertyElement>> fModifyProperties;
};

class TcsInfo : public TcsPropertyComponent {
    TCS_PERSISTENT(TcsInfo)
public:
    explicit TcsInfo(TcsComponent* aOwner = nullptr) : TcsPropertyComponent(aOwner), fGUID(TcsGUID::New()) {}

    [[nodiscard]] std::string GUID() const { return fGUIDText ? *fGUIDText : fGUID.ToString(); }
    void SetGUID(const std::string& aGUID);
    void RegenerateGUID() {
        fGUID = TcsGUID::New();
        fGUIDText.reset();
    }
    [[nodiscard]] std::string ClassGUID() const;
    void SetClassGUID(const std::string&) {}
    [[nodiscard]] std::string InternalClassName() const { return ClassName(); }
    void SetInternalClassName(const std::string&) {}
    [[nodiscard]] bool Modify() const noexcept { return fModify; }
    void SetModify(bool aValue) noexcept { fModify = aValue; }

    // Class-level texts: empty or the class's name unless a class overrides them.
    [[nodiscard]] virtual std::string GetClassName() const { return ClassName(); }
    [[nodiscard]] virtual std::string GetClassTitle() const { return {}; }
    [[nodiscard]] virtual std::string GetClassGUID() const { return {}; }
    [[nodiscard]] virtual std::string GetClassHint() const { return {}; }
    // The class name without its first three characters: "TcsCoordSystem" gives "CoordSystem".
    [[nodiscard]] virtual std::string GetStorageName() const;

    // A like object with the same properties and a GUID of its own.
    [[nodiscard]] std::unique_ptr<TcsInfo> Clone(TcsComponent* aOwner = nullptr) const;
    // The object as a small document of version "1.0".
    [[nodiscard]] std::string XML() const;

    void WriteObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName, int aMode) const override;
    void ReadObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName, int aMode) override;

private:
    TcsGUID fGUID;
    std::unique_ptr<std::string> fGUIDText;  // a GUID set from text that is not of the braced form
    bool fModify = false;
};

// The lightweight variety, for objects in great numbers: "GUID", "ClassGUID",
// "InternalClassName" and "Tag" never reach the XML.
class TcsInfoLowData : public TcsInfo {
    TCS_PERSISTENT(TcsInfoLowData)
public:
    using TcsInfo::TcsInfo;
    [[nodiscard]] bool NotWriteProperty(std::string_view aPropertyName) const override;
};

// What a list item is freed with: only when the list owns its items.
struct TcsItemDeleter {
    bool fOwns = true;
    void operator()(TcsPersistent* aItem) const {
        if (fOwns) std::default_delete<TcsPersistent>()(aItem);
    }
};
using TcsListItem = std::unique_ptr<TcsPersistent, TcsItemDeleter>;

// An ordered list of objects. It is itself an object (with no properties of its own), so
// that an object property can hold a list.
class TcsCustomList : public TcsPersistent {
public:
    explicit TcsCustomList(bool aOwnsObjects = true) : fOwnsObjects(aOwnsObjects) {}
    ~TcsCustomList() override = default;
    [[nodiscard]] std::string ClassName() const override { return "TcsCustomList"; }
    [[nodiscard]] const TcsPropertyTable& PropertyTable() const override { return TcsPersistent::ClassProperties(); }
    [[nodiscard]] std::unique_ptr<TcsPersistent> NewLike(TcsComponent*) const override { return nullptr; }
    TcsCustomList(const TcsCustomList&) = delete;
    TcsCustomList& operator=(const TcsCustomList&) = delete;

    [[nodiscard]] bool OwnsObjects() const noexcept { return fOwnsObjects; }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fItems.size()); }
    [[nodiscard]] size_t Capacity() const noexcept { return fItems.capacity(); }
    void SetCapacity(size_t aCapacity) { fItems.reserve(aCapacity); }
    // Raises EListError outside the list.
    [[nodiscard]] TcsPersistent* Get(int aIndex) const;
    virtual void Clear();
    virtual void Delete(int aIndex);
    // Removes without freeing; the caller takes the item.
    virtual std::unique_ptr<TcsPersistent> DeleteNoDestroy(int aIndex);
    virtual void Exchange(int aIndex1, int aIndex2);
    virtual void Insert(int aIndex, std::unique_ptr<TcsPersistent> aItem);
    virtual void Move(int aCurIndex, int aNewIndex);
    [[nodiscard]] virtual int IndexOf(const TcsPersistent* aItem) const;
    // Appends; an owning list takes the item.
    TcsPersistent* AddItem(std::unique_ptr<TcsPersistent> aItem);
    // Appends an item the list does not own.
    void AddReference(TcsPersistent* aItem);

    std::function<void(TcsCustomList&)> OnChange;
    std::function<void(TcsCustomList&, TcsPersistent*)> OnDelete;

protected:
    void Changed() {
        if (OnChange) OnChange(*this);
    }
    std::vector<TcsListItem> fItems;
    bool fOwnsObjects;
};

class TcsInfoList : public TcsCustomList {
public:
    explicit TcsInfoList(TcsInfo* aParentInfo = nullptr, bool aOwnsObjects = true)
        : TcsCustomList(aOwnsObjects), fParentInfo(aParentInfo) {}

    [[nodiscard]] TcsInfo* ParentInfo() const noexcept { return fParentInfo; }
    void SetParentInfo(TcsInfo* aInfo) noexcept { fParentInfo = aInfo; }
    [[nodiscard]] TcsInfo* Items(int aIndex) const;
    // The class an XML element is read into; nil skips the element.
    [[nodiscard]] virtual TcsInfoClass ItemClass(TcsXmlNode aXmlNode) const;
    [[nodiscard]] virtual std::string GetXMLNodeName() const { return "Items"; }
    // A new item of the class, owned by the list, with the parent info as owner.
    TcsInfo* GetNew(TcsInfoClass aInfoClass);
    TcsInfo* Add(std::unique_ptr<TcsInfo> aInfo);
    // Items become child elements named by their storage names.
    void WriteXML(TcsXmlNode aXmlNode, int aMode) const override;
    void ReadXML(TcsXmlNode aXmlNode, int aMode) override;
    virtual void AfterReadItem(TcsInfo*) {}

private:
    TcsInfo* fParentInfo;
};

class TcsInfoListLowData : public TcsInfoList {
public:
    using TcsInfoList::TcsInfoList;
};

class EcsNamedVariantError : public Exception {
public:
    using Exception::Exception;
};

// An ordered name-to-variant table behind a small interface; names compare without regard to
// case. Stored as the property "NamedVariants": a child element of that name with one "Item"
// per entry, carrying its Name, its Type and its Value as text.
class TcsAbstractNamedVariants : public TcsPersistent {
public:
    [[nodiscard]] virtual int Count() const noexcept = 0;
    [[nodiscard]] virtual const std::string& Names(int aIndex) const = 0;
    [[nodiscard]] virtual const TcsVariant& Variants(int aIndex) const = 0;
    virtual int Append(std::string_view aName, const TcsVariant& aValue) = 0;
    virtual void Clear() = 0;
    [[nodiscard]] virtual bool SameName(std::string_view a, std::string_view b) const { return SameText(a, b); }

    void WriteXML(TcsXmlNode aXmlNode, int aMode) const override;
    void ReadXML(TcsXmlNode aXmlNode, int aMode) override;
    static const TcsPropertyTable& ClassProperties();
};

class TcsNamedVariantsList : public TcsAbstractNamedVariants {
    TCS_PERSISTENT(TcsNamedVariantsList)
public:
    explicit TcsNamedVariantsList(TcsComponent* aOwner = nullptr) { (void)aOwner; }
    // Replaces the value of a present name, else appends.
    int Add(std::string_view aName, const TcsVariant& aValue);
    // Always appends.
    int Append(std::string_view aName, const TcsVariant& aValue) override;
    void Assign(const TcsNamedVariantsList& aSource) { fItems = aSource.fItems; }
    void Assign(const TcsPersistent& aSource) override;
    void BeginUpdate() { ++fUpdateCount; }
    void EndUpdate() {
        if (fUpdateCount > 0) --fUpdateCount;
    }
    void Clear() override { fItems.clear(); }
    void Delete(int aIndex);
    [[nodiscard]] bool Equals(const TcsNamedVariantsList& aOther) const;
    void Exchange(int aIndex1, int aIndex2);
    void Move(int aCurIndex, int aNewIndex);
    void Insert(int aIndex, std::string_view aName, const TcsVariant& aValue);
    [[nodiscard]] int IndexOfName(std::string_view aName) const;
    // Unassigned for an absent name.
    [[nodiscard]] TcsVariant Values(std::string_view aName) const;
    void SetValues(std::string_view aName, const TcsVariant& aValue) { Add(aName, aValue); }
    [[nodiscard]] const std::string& Names(int aIndex) const override;
    [[nodiscard]] const TcsVariant& Variants(int aIndex) const override;
    void AddValues(const TcsNamedVariantsList& aOther);
    [[nodiscard]] int Count() const noexcept override { return static_cast<int>(fItems.size()); }

private:
    void Check(int aIndex) const;
    std::vector<std::pair<std::string, TcsVariant>> fItems;
    int fUpdateCount = 0;
};

class TcsInfoMessage : public TcsMessage {
public:
    TcsInfoMessage(TcsInfoClass aInfoClass, int aMessageType, std::string aPackageGUID)
        : InfoClass(aInfoClass), MessageType(aMessageType), PackageGUID(std::move(aPackageGUID)) {}
    [[nodiscard]] std::string ClassName() const override { return "TcsInfoMessage"; }
    TcsInfoClass InfoClass;
    int MessageType;
    std::string PackageGUID;
};

// The registry data of a class with a constructor of (owner).
template <class C>
TcsInfoClass InfoClassOf() {
    static const TcsInfoClassData data{
        C::StaticClassName(), [] { return C(nullptr).GetClassName(); },
        [](TcsComponent* aOwner) -> std::unique_ptr<TcsInfo> { return std::make_unique<C>(aOwner); }};
    return &data;
}

class TcsInfoManager {
public:
    // Announces the class on the global bus (a TcsInfoMessage of type 1); a name already
    // listed is ignored unless AllowDoubleClass.
    void RegisterInfoClass(TcsInfoClass aInfoClass, std::string_view aPackageGUID);
    void UnRegisterInfoClass(TcsInfoClass aInfoClass);
    // By the class-level GetClassName; nil when absent.
    [[nodiscard]] TcsInfoClass ClassByName(std::string_view aName) const;
    // By the class's own name; nil when absent.
    [[nodiscard]] TcsInfoClass ClassByInternalName(std::string_view aName) const;
    [[nodiscard]] std::string GetPackageGUID(TcsInfoClass aInfoClass) const;
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fClasses.size()); }
    [[nodiscard]] TcsInfoClass ClassItems(int aIndex) const { return fClasses.at(static_cast<size_t>(aIndex)).second; }
    [[nodiscard]] virtual bool AllowDoubleClass() const { return false; }
    virtual ~TcsInfoManager() = default;

private:
    std::vector<std::pair<std::string, TcsInfoClass>> fClasses;  // package GUID, class
};

TcsInfoManager& GlobalInfoManager();

// A component that stores a tree of objects in a file: its published properties in mode 0
// and the child element "CustomSettings", one "Item" a line. It is no info object: its file
// carries no GUID and no class names.
class TcsManager : public TcsComponent {
    TCS_PERSISTENT(TcsManager)
public:
    explicit TcsManager(TcsComponent* aOwner = nullptr) : TcsComponent(aOwner) {}
    void Initialize();
    void Finalize();
    [[nodiscard]] bool Initialized() const noexcept { return fInitialized; }
    // Raises "Не найден файл: " and the name when the file is absent.
    void ReadFromFile(const std::string& aFileName);
    void WriteToFile(const std::string& aFileName) const;
    // The root element's name: the class name without its first three characters.
    [[nodiscard]] virtual std::string GetStorageName() const;
    std::vector<std::string> CustomSettings;
    void WriteXML(TcsXmlNode aXmlNode, int aMode) const override;
    void ReadXML(TcsXmlNode aXmlNode, int aMode) override;

protected:
    virtual void InternalInitialize() {}
    virtual void InternalFinalize() {}

private:
    bool fInitialized = false;
};

}  // namespace tmi
