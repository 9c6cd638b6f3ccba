// The XSD library: a loaded XML Schema as objects. Each construct is a class that loads itself
// from its element; after the whole set of files has loaded, every `type`, `base` and `ref` is
// linked to its target. Lookups by path find an element's declaration, which decodes a value.
//
// Schemas are read by our own document layer. Schema constructs are known by their local name
// under any prefix bound to the XML Schema namespace (`xs:`, `xsd:`, none). A set of files
// loaded from one root lives in one registry that owns its libraries; include lists refer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OXmlPDOM.h"
#include "csInfoCore.h"

namespace tmi {

enum TXSDDataType : uint8_t {
    vtUnknown,
    vtNone,
    vtString,
    vtChar,
    vtBoolean,
    vtByte,
    vtInteger,
    vtDecimal,
    vtDouble,
    vtFloat,
    vtBinary,
    vtImage,
    vtDate,
    vtDateTime,
    vtGraphic,
    vtObject
};
enum TXSDCollectionType : uint8_t { sequence, all, choice, group, any };
enum TXSDUse : uint8_t { xsdOptional, xsdProhibited, xsdRequired };

inline constexpr std::string_view kXMLSchemaNameSpace = "http://www.w3.org/2001/XMLSchema";

// The data type of a built-in type by its local name ("string", "decimal", "dateTime"...);
// vtUnknown for a name that is no built-in type.
TXSDDataType BuiltInDataType(std::string_view aLocalName);

// A schema file that is missing, does not parse or is no schema; the text names the file.
class EXSDError : public Exception {
public:
    using Exception::Exception;
};

class TXSDLibrary;
class TXSDLibraries;
class TXSDAnnotation;
class TXSDElement;
class TXSDComplexType;
class TXSDSimpleType;
class TXSDRestriction;
class TXSDAttribute;
class TXSDAttributeGroup;
class TXSDElementObjectCollection;

// The class-level part of a schema object: its name and its published properties.
#define XSD_PERSISTENT(Class)                                                                                \
public:                                                                                                      \
    [[nodiscard]] std::string ClassName() const override { return #Class; }                                  \
    static const ::tmi::TcsPropertyTable& ClassProperties();                                                 \
    [[nodiscard]] const ::tmi::TcsPropertyTable& PropertyTable() const override { return ClassProperties(); } \
    [[nodiscard]] std::unique_ptr<::tmi::TcsPersistent> NewLike(::tmi::TcsComponent*) const override { return nullptr; }

class TXSDCustomObject : public TcsPersistent {
    XSD_PERSISTENT(TXSDCustomObject)
public:
    TXSDCustomObject(TXSDLibrary* aLibrary, TXSDCustomObject* aParent) : FLibrary(aLibrary), FParent(aParent) {}
    ~TXSDCustomObject() override = default;

    // Reads the object's own attributes and children from its element.
    virtual void LoadObject(xml::PXMLNode aNode);
    // Reads the namespace declarations the object's element carries.
    virtual void LoadNameSpace(xml::PXMLNode aNode);
    virtual void Afterload() {}
    // Links Type_ and Ref to their objects, once; only when the library has loaded.
    void AssignTyped();

    [[nodiscard]] TXSDLibrary* Library() const noexcept { return FLibrary; }
    [[nodiscard]] TXSDCustomObject* Parent() const noexcept { return FParent; }
    [[nodiscard]] std::string LibraryName() const;
    [[nodiscard]] std::string SourceLibraryName() const;
    [[nodiscard]] const std::string& id() const noexcept { return FId; }
    [[nodiscard]] bool Has() const noexcept { return FIsAssigned; }
    [[nodiscard]] const std::string& Name() const noexcept { return FName; }
    // The prefix the library binds to the XML Schema namespace.
    [[nodiscard]] std::string Pref() const;
    [[nodiscard]] std::string XS_PREF() const { return Pref(); }
    // The name a path takes for the object: its own name, or the local name of its ref.
    [[nodiscard]] std::string XPathName() const;
    [[nodiscard]] std::string XPath() const;
    [[nodiscard]] std::string XPathToControlName() const;
    [[nodiscard]] bool TypeApplied() const noexcept { return FTypeApplied; }
    [[nodiscard]] const std::string& Type_() const noexcept { return FTypeName; }
    [[nodiscard]] TXSDCustomObject* TypeObj() const noexcept { return FTypeObj; }
    [[nodiscard]] TXSDCustomObject* RefObj() const noexcept { return FRefObj; }
    [[nodiscard]] bool IsTypeObject() const noexcept { return FTypeObj != nullptr; }
    [[nodiscard]] bool IsRef() const noexcept { return !FRefName.empty(); }
    [[nodiscard]] const std::string& Ref() const noexcept { return FRefName; }
    // The built-in type the object's value comes down to; vtUnknown when not known.
    [[nodiscard]] virtual TXSDDataType InternalDataType() const;

protected:
    // The typing step: links Type_ and Ref through the library.
    virtual void AssignTypes();
    // The children of aNode that are schema constructs, with their local names.
    void ForEachConstruct(xml::PXMLNode aNode, const std::function<void(xml::PXMLNode, std::string_view)>& aDo);

    TXSDLibrary* FLibrary;
    TXSDLibrary* FSourceLibrary = nullptr;
    TXSDCustomObject* FParent;
    bool FIsAssigned = false;
    bool FTypeApplied = false;
    std::string FId, FName, FTypeName, FRefName;
    TXSDCustomObject* FTypeObj = nullptr;
    TXSDCustomObject* FRefObj = nullptr;
    TXSDDataType FBuiltInType = vtUnknown;  // of a type name that is a built-in type

    friend class TXSDLibrary;
};

class TXSDAnnotation : public TXSDCustomObject {
    XSD_PERSISTENT(TXSDAnnotation)
public:
    using TXSDCustomObject::TXSDCustomObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] const std::string& Text() const noexcept { return FText; }

private:
    std::string FText;  // the documentation texts as written, joined by line breaks
};

class TXSDObject : public TXSDCustomObject {
    XSD_PERSISTENT(TXSDObject)
public:
    using TXSDCustomObject::TXSDCustomObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] std::string RefXPath() const;
    [[nodiscard]] std::string AnnotationText() const;
    [[nodiscard]] int Level() const;
    [[nodiscard]] virtual bool MayHaveValue() const { return false; }
    [[nodiscard]] virtual bool HasChildItems() const { return false; }
    [[nodiscard]] virtual std::string NameSpace() const;
    [[nodiscard]] std::string NameSpaceAlias() const;
    // The meaning of a code: the documentation of the enumeration whose value it is; empty
    // when the object has no such enumeration.
    [[nodiscard]] virtual std::string GetTextValue(std::string_view aValue) const;
    [[nodiscard]] virtual bool IsCollection() const { return false; }

protected:
    std::unique_ptr<TXSDAnnotation> FAnnotation;
};

// A list of schema objects: objects it owns, or links to objects that live elsewhere (the
// files an include list names, the objects a library types).
class TXSDObjectCollection : public TXSDObject {
    XSD_PERSISTENT(TXSDObjectCollection)
public:
    using TXSDObject::TXSDObject;
    [[nodiscard]] bool IsCollection() const override { return true; }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(FList.size()); }
    // Raises EListError outside the list.
    [[nodiscard]] TXSDCustomObject* GetItems(int aIndex) const;
    virtual void Clear();

protected:
    TXSDCustomObject* AddObject(std::unique_ptr<TXSDCustomObject> aItem);
    void AddLink(TXSDCustomObject* aItem) { FList.push_back(aItem); }
    std::vector<TXSDCustomObject*> FList;

private:
    std::vector<std::unique_ptr<TXSDCustomObject>> FOwned;
};

// A collection whose items are all of one class, walked as pointers to it.
template <class T, class Base = TXSDObjectCollection>
class TXSDCollectionOf : public Base {
public:
    using Base::Base;
    T* Add(std::unique_ptr<T> aItem) { return static_cast<T*>(this->AddObject(std::move(aItem))); }
    void AddRef(T* aItem) { this->AddLink(aItem); }
    [[nodiscard]] T* Items(int aIndex) const { return static_cast<T*>(this->GetItems(aIndex)); }

    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = T* const*;
        using reference = T*;
        const_iterator() = default;
        explicit const_iterator(std::vector<TXSDCustomObject*>::const_iterator aAt) : fAt(aAt) {}
        T* operator*() const { return static_cast<T*>(*fAt); }
        const_iterator& operator++() {
            ++fAt;
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator was = *this;
            ++fAt;
            return was;
        }
        bool operator==(const const_iterator& aOther) const { return fAt == aOther.fAt; }

    private:
        std::vector<TXSDCustomObject*>::const_iterator fAt;
    };
    [[nodiscard]] const_iterator begin() const { return const_iterator(this->FList.begin()); }
    [[nodiscard]] const_iterator end() const { return const_iterator(this->FList.end()); }
};

// A list owned by its holder and not published: inline members, references to groups.
template <class T>
class TXSDOwnedList {
public:
    T* Add(std::unique_ptr<T> aItem) {
        fItems.push_back(std::move(aItem));
        return fItems.back().get();
    }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fItems.size()); }
    [[nodiscard]] T* Items(int aIndex) const { return fItems.at(static_cast<size_t>(aIndex)).get(); }
    [[nodiscard]] auto begin() const { return fItems.begin(); }
    [[nodiscard]] auto end() const { return fItems.end(); }

private:
    std::vector<std::unique_ptr<T>> fItems;
};

// The lists a schema's objects keep, one class for each kind of item.
#define XSD_COLLECTION(Class, Item)                                \
    class Class : public TXSDCollectionOf<Item> {                  \
        XSD_PERSISTENT(Class)                                      \
    public:                                                        \
        using TXSDCollectionOf<Item>::TXSDCollectionOf;            \
    };

// A facet that is one value: an enumeration or a pattern.
class TXSDValueFacet : public TXSDObject {
    XSD_PERSISTENT(TXSDValueFacet)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] const std::string& Value() const noexcept { return FValue; }

private:
    std::string FValue;
};

class TXSDEnumeration : public TXSDValueFacet {
public:
    using TXSDValueFacet::TXSDValueFacet;
    [[nodiscard]] std::string ClassName() const override { return "TXSDEnumeration"; }
    // Counted in its library.
    void LoadObject(xml::PXMLNode aNode) override;
};

class TXSDPattern : public TXSDValueFacet {
public:
    using TXSDValueFacet::TXSDValueFacet;
    [[nodiscard]] std::string ClassName() const override { return "TXSDPattern"; }
};

XSD_COLLECTION(TXSDPatternCollection, TXSDPattern)

// The enumerations of a restriction; knows the length of its longest value.
class TXSDEnumerationCollection : public TXSDCollectionOf<TXSDEnumeration> {
    XSD_PERSISTENT(TXSDEnumerationCollection)
public:
    using TXSDCollectionOf<TXSDEnumeration>::TXSDCollectionOf;
    // Takes the length of a loaded enumeration's value into MaxLength.
    void Measure(const TXSDEnumeration& aItem);
    // In characters of the longest value as written.
    [[nodiscard]] int MaxLength() const noexcept { return FMaxLength; }
    void Clear() override;

private:
    int FMaxLength = 0;
};

// A simple type's restriction: its base, its facets, its enumerations and patterns.
class TXSDRestriction : public TXSDObject {
    XSD_PERSISTENT(TXSDRestriction)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] std::string GetTextValue(std::string_view aValue) const override;
    [[nodiscard]] TXSDDataType InternalDataType() const override;
    [[nodiscard]] const std::string& base() const noexcept { return FTypeName; }
    // The first built-in type down the chain of bases.
    [[nodiscard]] std::string firstBase() const;
    std::string minExclusive, minInclusive, maxExclusive, maxInclusive, totalDigits, fractionDigits, length, minLength,
        maxLength;
    [[nodiscard]] const TXSDEnumerationCollection& enumeration() const noexcept { return FEnumerations; }
    [[nodiscard]] const TXSDPatternCollection& pattern() const noexcept { return FPatterns; }
    [[nodiscard]] std::string PatternText() const;

private:
    TXSDEnumerationCollection FEnumerations{FLibrary, this};
    TXSDPatternCollection FPatterns{FLibrary, this};
    std::unique_ptr<TXSDSimpleType> FInlineBase;  // a simpleType inside the restriction
};

class TXSDSimpleType : public TXSDObject {
    XSD_PERSISTENT(TXSDSimpleType)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] TXSDRestriction* Restruction() const noexcept { return FRestriction.get(); }
    [[nodiscard]] std::string GetTextValue(std::string_view aValue) const override;
    [[nodiscard]] TXSDDataType InternalDataType() const override;
    [[nodiscard]] bool MayHaveValue() const override { return true; }
    // The member types of a union, or the item type of a list, as named.
    std::vector<std::string> MemberTypes;

private:
    std::unique_ptr<TXSDRestriction> FRestriction;
    TXSDOwnedList<TXSDSimpleType> FMembers;  // inline members of a union or list
};

class TXSDAttribute : public TXSDObject {
    XSD_PERSISTENT(TXSDAttribute)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] TXSDSimpleType* SimpleType() const noexcept { return FSimpleType.get(); }
    [[nodiscard]] TXSDRestriction* Restruction() const noexcept { return FSimpleType ? FSimpleType->Restruction() : nullptr; }
    [[nodiscard]] std::string GetTextValue(std::string_view aValue) const override;
    [[nodiscard]] TXSDDataType InternalDataType() const override;
    [[nodiscard]] bool MayHaveValue() const override { return true; }
    std::string default_, fixed;
    TXSDUse use = xsdOptional;

protected:
    void AssignTypes() override;

private:
    std::unique_ptr<TXSDSimpleType> FSimpleType;
};

XSD_COLLECTION(TXSDAttributeCollection, TXSDAttribute)

class TXSDAttributeGroup : public TXSDObject {
    XSD_PERSISTENT(TXSDAttributeGroup)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] const TXSDAttributeCollection& Attributes() const noexcept { return FAttributes; }

protected:
    void AssignTypes() override;

private:
    TXSDAttributeCollection FAttributes{FLibrary, this};
    TXSDOwnedList<TXSDAttributeGroup> FGroupRefs;
};

XSD_COLLECTION(TXSDAttributeGroupCollection, TXSDAttributeGroup)

// The contents of a sequence, all, choice, group or any: elements and nested lists in order.
class TXSDElementObjectCollection : public TXSDCollectionOf<TXSDObject> {
    XSD_PERSISTENT(TXSDElementObjectCollection)
public:
    TXSDElementObjectCollection(TXSDLibrary* aLibrary, TXSDCustomObject* aParent, TXSDCollectionType aType)
        : TXSDCollectionOf<TXSDObject>(aLibrary, aParent), FCollectionType(aType) {}
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] TXSDCollectionType CollectionType() const noexcept { return FCollectionType; }
    std::string minOccurs = "1", maxOccurs = "1";

protected:
    void AssignTypes() override;

private:
    TXSDCollectionType FCollectionType;
};

// Extension or restriction of a complex or simple content.
class TXSDContentDerivation : public TXSDObject {
    XSD_PERSISTENT(TXSDContentDerivation)
public:
    TXSDContentDerivation(TXSDLibrary* aLibrary, TXSDCustomObject* aParent, bool aExtension)
        : TXSDObject(aLibrary, aParent), FExtension(aExtension) {}
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] bool IsExtension() const noexcept { return FExtension; }
    [[nodiscard]] const std::string& base() const noexcept { return FTypeName; }
    [[nodiscard]] TXSDElementObjectCollection* Collection() const noexcept { return FCollection.get(); }
    [[nodiscard]] const TXSDAttributeCollection& Attributes() const noexcept { return FAttributes; }
    [[nodiscard]] TXSDRestriction* Restruction() const noexcept { return FRestriction.get(); }

private:
    bool FExtension;
    std::unique_ptr<TXSDElementObjectCollection> FCollection;
    TXSDAttributeCollection FAttributes{FLibrary, this};
    std::unique_ptr<TXSDRestriction> FRestriction;  // the facets of a simple content restriction
};

class TXSDComplexContentRestriction : public TXSDContentDerivation {
public:
    TXSDComplexContentRestriction(TXSDLibrary* aLibrary, TXSDCustomObject* aParent) : TXSDContentDerivation(aLibrary, aParent, false) {}
    [[nodiscard]] std::string ClassName() const override { return "TXSDComplexContentRestriction"; }
};
class TXSDComplexContentExtension : public TXSDContentDerivation {
public:
    TXSDComplexContentExtension(TXSDLibrary* aLibrary, TXSDCustomObject* aParent) : TXSDContentDerivation(aLibrary, aParent, true) {}
    [[nodiscard]] std::string ClassName() const override { return "TXSDComplexContentExtension"; }
};
class TXSDSimpleContentExtension : public TXSDContentDerivation {
public:
    TXSDSimpleContentExtension(TXSDLibrary* aLibrary, TXSDCustomObject* aParent) : TXSDContentDerivation(aLibrary, aParent, true) {}
    [[nodiscard]] std::string ClassName() const override { return "TXSDSimpleContentExtension"; }
};

// What complexContent and simpleContent share: one derivation.
class TXSDContent : public TXSDObject {
    XSD_PERSISTENT(TXSDContent)
public:
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] bool IsSimple() const noexcept { return FSimple; }
    [[nodiscard]] TXSDContentDerivation* Derivation() const noexcept { return FDerivation.get(); }

protected:
    TXSDContent(TXSDLibrary* aLibrary, TXSDCustomObject* aParent, bool aSimple)
        : TXSDObject(aLibrary, aParent), FSimple(aSimple) {}

private:
    bool FSimple;
    std::unique_ptr<TXSDContentDerivation> FDerivation;
};

class TXSDComplexContent : public TXSDContent {
public:
    TXSDComplexContent(TXSDLibrary* aLibrary, TXSDCustomObject* aParent) : TXSDContent(aLibrary, aParent, false) {}
    [[nodiscard]] std::string ClassName() const override { return "TXSDComplexContent"; }
};

class TXSDSimpleContent : public TXSDContent {
public:
    TXSDSimpleContent(TXSDLibrary* aLibrary, TXSDCustomObject* aParent) : TXSDContent(aLibrary, aParent, true) {}
    [[nodiscard]] std::string ClassName() const override { return "TXSDSimpleContent"; }
};

class TXSDElement;
XSD_COLLECTION(TXSDElementCollection, TXSDElement)

class TXSDComplexType : public TXSDObject {
    XSD_PERSISTENT(TXSDComplexType)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] TXSDElementObjectCollection* Collection() const noexcept { return FCollection.get(); }
    [[nodiscard]] TXSDContent* SimpleContent() const noexcept { return FContent && FContent->IsSimple() ? FContent.get() : nullptr; }
    [[nodiscard]] TXSDContent* ComplexContent() const noexcept { return FContent && !FContent->IsSimple() ? FContent.get() : nullptr; }
    [[nodiscard]] const TXSDAttributeCollection& Attributes() const noexcept { return FAttributes; }
    [[nodiscard]] bool HasChildItems() const override { return FCollection || ComplexContent(); }
    [[nodiscard]] std::string GetTextValue(std::string_view aValue) const override;
    [[nodiscard]] TXSDDataType InternalDataType() const override;
    bool mixed = false;
    bool defaultAttributesApply = true;
    // The child elements of content of this type, extension bases first, groups and element
    // refs resolved; computed once, after typing. The list only refers to them.
    [[nodiscard]] const TXSDElementCollection& ChildElements() const;

private:
    std::unique_ptr<TXSDElementObjectCollection> FCollection;
    std::unique_ptr<TXSDContent> FContent;
    TXSDAttributeCollection FAttributes{FLibrary, this};
    TXSDOwnedList<TXSDAttributeGroup> FGroupRefs;
    mutable std::unique_ptr<TXSDElementCollection> FChildElements;
};

XSD_COLLECTION(TXSDComplexTypeCollection, TXSDComplexType)
XSD_COLLECTION(TXSDSimpleTypeCollection, TXSDSimpleType)

// The selector or a field of a key: the path it looks at.
class TXSDElementKeyLook : public TXSDObject {
    XSD_PERSISTENT(TXSDElementKeyLook)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] const std::string& xpath() const noexcept { return FXpath; }

private:
    std::string FXpath;
};

// key, keyref or unique of an element.
class TXSDElementKey : public TXSDObject {
    XSD_PERSISTENT(TXSDElementKey)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    // "key", "keyref" or "unique".
    [[nodiscard]] const std::string& Kind() const noexcept { return FKind; }
    // The key a keyref refers to, as written.
    [[nodiscard]] const std::string& refer() const noexcept { return Frefer; }
    [[nodiscard]] TXSDElementKeyLook* Selector() const noexcept { return FSelector.get(); }
    [[nodiscard]] const TXSDOwnedList<TXSDElementKeyLook>& Field() const noexcept { return FField; }

private:
    std::string FKind, Frefer;
    std::unique_ptr<TXSDElementKeyLook> FSelector;
    TXSDOwnedList<TXSDElementKeyLook> FField;
};

XSD_COLLECTION(TXSDElementKeyCollection, TXSDElementKey)

class TXSDElement : public TXSDObject {
    XSD_PERSISTENT(TXSDElement)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    void Afterload() override;
    [[nodiscard]] std::string GetTextValue(std::string_view aValue) const override;
    [[nodiscard]] TXSDDataType InternalDataType() const override;
    [[nodiscard]] bool MayHaveValue() const override;
    [[nodiscard]] bool HasChildItems() const override { return ChildElements().Count() > 0; }
    // The declaration the element stands for: itself, or the global element of its ref.
    [[nodiscard]] const TXSDElement& Target() const;
    [[nodiscard]] TXSDSimpleType* SimpleType() const noexcept { return FSimpleType.get(); }
    [[nodiscard]] TXSDComplexType* complexType() const noexcept { return FComplexType.get(); }
    // The complex type of the content: inline, or the linked type.
    [[nodiscard]] TXSDComplexType* ContentType() const;
    [[nodiscard]] std::string ElementType() const { return Target().FTypeName; }
    // The attributes and the content list its complex type declares; empty or nil without one.
    [[nodiscard]] const TXSDAttributeCollection& Attributes() const;
    [[nodiscard]] TXSDElementObjectCollection* Collection() const;
    [[nodiscard]] const TXSDElementCollection& ChildElements() const;
    [[nodiscard]] const TXSDElementKeyCollection& Keys() const noexcept { return FKeys; }
    [[nodiscard]] bool IsFixed() const noexcept { return !Fixed.empty(); }
    std::string Fixed, default_, minOccurs = "1", maxOccurs = "1", substitutionGroup;
    bool Abstract = false, nillable = false;

private:
    std::unique_ptr<TXSDSimpleType> FSimpleType;
    std::unique_ptr<TXSDComplexType> FComplexType;
    TXSDElementKeyCollection FKeys{FLibrary, this};
};

XSD_COLLECTION(TXSDAnnotationCollection, TXSDAnnotation)
// Objects with a type or a ref, gathered as they load so the library can link them.
XSD_COLLECTION(TXSDTypedCollection, TXSDCustomObject)

// The files a library draws in, in the order written; the registry owns them, the list refers.
class TXSDIncludeCollection : public TXSDCollectionOf<TXSDLibrary> {
    XSD_PERSISTENT(TXSDIncludeCollection)
public:
    using TXSDCollectionOf<TXSDLibrary>::TXSDCollectionOf;
    // Reads the include, redefine and import elements of a schema element; the registry
    // resolves them once the file has loaded.
    void LoadObject(xml::PXMLNode aNode) override;
    // A location written in an include (LibrarySubType 0), redefine (1) or import (2).
    struct TLocation {
        std::string fLocation;
        int fSubType;
        std::string fNameSpace;  // an import's namespace
    };
    [[nodiscard]] const std::vector<TLocation>& Locations() const noexcept { return FLocations; }
    void ForgetLocations() { FLocations.clear(); }

private:
    std::vector<TLocation> FLocations;
};

// One namespace prefix of a library.
class TXSDLibraryNameSpaceAlias : public TcsPersistent {
    XSD_PERSISTENT(TXSDLibraryNameSpaceAlias)
public:
    TXSDLibraryNameSpaceAlias(std::string aPrefix, std::string aNameSpace)
        : Prefix(std::move(aPrefix)), NameSpace(std::move(aNameSpace)) {}
    std::string Prefix;
    std::string NameSpace;
};

// The prefixes a library's file declares, in the order met; a prefix declared again for
// another namespace is a second entry.
class TXSDLibraryNameSpaceAliasList : public TcsCustomList {
public:
    TXSDLibraryNameSpaceAliasList() : TcsCustomList(true) {}
    [[nodiscard]] std::string ClassName() const override { return "TXSDLibraryNameSpaceAliasList"; }
    [[nodiscard]] TXSDLibraryNameSpaceAlias* Items(int aIndex) const { return static_cast<TXSDLibraryNameSpaceAlias*>(Get(aIndex)); }
    // Adds the pair unless it is there.
    void Note(std::string_view aPrefix, std::string_view aNameSpace);
    // The namespace of the first entry of that prefix; empty when none.
    [[nodiscard]] std::string NameSpaceOf(std::string_view aPrefix) const;
};

// One schema file.
class TXSDLibrary : public TXSDObject {
    XSD_PERSISTENT(TXSDLibrary)
public:
    TXSDLibrary(TXSDLibraries* aRegistry, std::string aFileName, int aSubType);
    ~TXSDLibrary() override;

    [[nodiscard]] const std::string& XSDFileName() const noexcept { return FXSDFileName; }
    [[nodiscard]] int LibrarySubType() const noexcept { return FLibrarySubType; }
    [[nodiscard]] bool Loaded() const noexcept { return FLoaded; }
    [[nodiscard]] const std::string& targetNamespace() const noexcept { return FtargetNamespace; }
    // The namespace the library was drawn in by (an import's namespace), else its target.
    [[nodiscard]] std::string NameSpace() const override { return FNameSpace.empty() ? FtargetNamespace : FNameSpace; }
    // The namespace the file binds to no prefix.
    [[nodiscard]] std::string GlobalNameSpace() const { return FAliasList.NameSpaceOf(""); }
    [[nodiscard]] const std::string& XSDPref() const noexcept { return FXSDPref; }
    [[nodiscard]] const TXSDIncludeCollection& Include() const noexcept { return FInclude; }
    [[nodiscard]] const TXSDElementCollection& Elements() const noexcept { return FElements; }
    [[nodiscard]] const TXSDAnnotationCollection& Annotations() const noexcept { return FAnnotations; }
    [[nodiscard]] const TXSDComplexTypeCollection& ComplexTypes() const noexcept { return FComplexTypes; }
    [[nodiscard]] const TXSDSimpleTypeCollection& SimpleTypes() const noexcept { return FSimpleTypes; }
    [[nodiscard]] const TXSDAttributeGroupCollection& AttributeGroups() const noexcept { return FAttributeGroups; }
    // Named groups and global attributes: what `group ref` and `attribute ref` point at.
    [[nodiscard]] const TXSDOwnedList<TXSDElementObjectCollection>& Groups() const noexcept { return FGroups; }
    [[nodiscard]] const TXSDAttributeCollection& GlobalAttributes() const noexcept { return FAttributes; }
    [[nodiscard]] const TXSDTypedCollection& TypedObjs() const noexcept { return FTypedObjs; }
    [[nodiscard]] const TXSDLibraryNameSpaceAliasList& Aliases() const noexcept { return FAliasList; }
    [[nodiscard]] int EnumerationCount() const noexcept { return FEnumerationCount; }

    // A type by its name as written: a complex type before a simple type of the same name;
    // nil when none is reached.
    [[nodiscard]] TXSDCustomObject* GetTypeByName(std::string_view aName) const;
    // A global element, attribute group, group or attribute of that class by its name.
    enum class TRefKind : uint8_t { Element, AttributeGroup, Group, Attribute };
    [[nodiscard]] TXSDCustomObject* GetRefByName(std::string_view aName, TRefKind aKind) const;
    // The library a prefix of this file names; the library itself for its own namespace when
    // no included one has it.
    [[nodiscard]] const TXSDLibrary* GetLibraryByAlias(std::string_view aPrefix) const;
    // The element at "/Root/Child/..." (local names), nil when none; answers are kept.
    [[nodiscard]] TXSDElement* GetXSDElementByXPath(std::string_view aPath) const;

    // Whether a node is the schema construct of that local name.
    [[nodiscard]] bool IsConstruct(xml::PXMLNode aNode, std::string_view aLocalName) const;
    [[nodiscard]] bool IsSchemaNode(xml::PXMLNode aNode) const;
    // The namespace a prefix of a name written in this file stands for.
    [[nodiscard]] std::string NameSpaceOfPrefix(std::string_view aPrefix) const;
    void NoteAlias(std::string_view aPrefix, std::string_view aNameSpace) { FAliasList.Note(aPrefix, aNameSpace); }
    void AddTyped(TXSDCustomObject* aObject) { FTypedObjs.AddRef(aObject); }
    void CountEnumeration() { ++FEnumerationCount; }
    [[nodiscard]] TXSDLibraries& Registry() const noexcept { return *FRegistry; }

private:
    friend class TXSDLibraries;
    // Reads the file and every construct in it; the includes are only listed here.
    void LoadDocument(const std::string* aBuffer);
    void LoadSchema(xml::PXMLNode aRoot);
    // Types every object of this library, once.
    void ApplyTypedObjects();
    [[nodiscard]] TXSDCustomObject* FindOwnType(std::string_view aLocalName) const;
    template <class F>
    [[nodiscard]] TXSDCustomObject* SearchByName(std::string_view aName, F&& aOwn) const;
    [[nodiscard]] TXSDCustomObject* FindOwnRef(std::string_view aLocalName, TRefKind aKind) const;

    TXSDLibraries* FRegistry;
    std::string FXSDFileName;
    int FLibrarySubType;
    bool FLoaded = false;
    std::string FtargetNamespace, FNameSpace, FXSDPref;
    TXSDIncludeCollection FInclude{this, this};
    TXSDElementCollection FElements{this, this};
    TXSDAnnotationCollection FAnnotations{this, this};
    TXSDComplexTypeCollection FComplexTypes{this, this};
    TXSDSimpleTypeCollection FSimpleTypes{this, this};
    TXSDAttributeGroupCollection FAttributeGroups{this, this};
    TXSDOwnedList<TXSDElementObjectCollection> FGroups;
    TXSDAttributeCollection FAttributes{this, this};
    TXSDTypedCollection FTypedObjs{this, this};
    TXSDLibraryNameSpaceAliasList FAliasList;
    int FEnumerationCount = 0;
    // Paths looked up by a view of the text, without a copy.
    struct PathHash {
        using is_transparent = void;
        size_t operator()(std::string_view aText) const noexcept { return std::hash<std::string_view>{}(aText); }
    };
    mutable std::unordered_map<std::string, TXSDElement*, PathHash, std::equal_to<>> FXSDPathObjectList;
};

// The files of one root load: owns every library, one per file however it is spelt.
class TXSDLibraries : public TcsCustomList {
public:
    TXSDLibraries() : TcsCustomList(true) {}
    [[nodiscard]] std::string ClassName() const override { return "TXSDLibraries"; }

    // Loads the root and all it draws in, then types them all. Raises EXSDError naming the
    // file for a missing, unreadable or non-schema file.
    TXSDLibrary* LoadXSD(const std::string& aFileName);
    // The same from a buffer in memory named aName; its includes are read from aName's folder.
    TXSDLibrary* LoadXSDFromResource(const std::string& aName, std::string_view aText);
    [[nodiscard]] TXSDLibrary* Items(int aIndex) const { return static_cast<TXSDLibrary*>(Get(aIndex)); }
    [[nodiscard]] TXSDLibrary* Root() const { return Count() == 0 ? nullptr : Items(0); }
    // The library of a file already in the registry, by its resolved path.
    [[nodiscard]] TXSDLibrary* Find(const std::string& aPath) const;

    // A location written in aFrom resolved to a file: against aFrom's folder, normalised,
    // and segment by segment without regard to case when the exact name is not there.
    static std::string ResolveLocation(const std::string& aFrom, std::string_view aLocation);

    // Deepest nesting of declarations a file may have; deeper is an error naming the file.
    static constexpr int kMaxDepth = 1000;

private:
    TXSDLibrary* Load(const std::string& aFileName, const std::string* aBuffer);
    TXSDLibrary* Add(const std::string& aPath, int aSubType);
    std::unordered_map<std::string, TXSDLibrary*> fByPath;
};

// The process's memory of schema sets already loaded, by the root's path.
class TcsXSDLibCache {
public:
    // The same library for the same path; loads it the first time.
    TXSDLibrary* GetLibByFilePath(const std::string& aFileName);
    void Clear() { fLibs.clear(); }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fLibs.size()); }

private:
    std::unordered_map<std::string, std::unique_ptr<TXSDLibraries>> fLibs;
};

TcsXSDLibCache& GlobalXSDLibCache();

}  // namespace tmi
