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
    [[nodiscard]] std::string NameSpace() const;
    [[nodiscard]] std::string NameSpaceAlias() const;
    // The meaning of a code: the documentation of the enumeration whose value it is; empty
    // when the object has no such enumeration.
    [[nodiscard]] virtual std::string GetTextValue(std::string_view aValue) const;
    [[nodiscard]] virtual bool IsCollection() const { return false; }

protected:
    std::unique_ptr<TXSDAnnotation> FAnnotation;
};

// A list of schema objects owned by the list.
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
    void Clear() { fItems.clear(); }

private:
    std::vector<std::unique_ptr<T>> fItems;
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
    [[nodiscard]] const TXSDOwnedList<TXSDEnumeration>& enumeration() const noexcept { return FEnumerations; }
    [[nodiscard]] const TXSDOwnedList<TXSDPattern>& pattern() const noexcept { return FPatterns; }
    [[nodiscard]] std::string PatternText() const;

private:
    TXSDOwnedList<TXSDEnumeration> FEnumerations;
    TXSDOwnedList<TXSDPattern> FPatterns;
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

using TXSDAttributeCollection = TXSDOwnedList<TXSDAttribute>;

class TXSDAttributeGroup : public TXSDObject {
    XSD_PERSISTENT(TXSDAttributeGroup)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] const TXSDAttributeCollection& Attributes() const noexcept { return FAttributes; }

protected:
    void AssignTypes() override;

private:
    TXSDAttributeCollection FAttributes;
    TXSDOwnedList<TXSDAttributeGroup> FGroupRefs;
};

// The contents of a sequence, all, choice, group or any: elements and nested lists in order.
class TXSDElementObjectCollection : public TXSDObject {
    XSD_PERSISTENT(TXSDElementObjectCollection)
public:
    TXSDElementObjectCollection(TXSDLibrary* aLibrary, TXSDCustomObject* aParent, TXSDCollectionType aType)
        : TXSDObject(aLibrary, aParent), FCollectionType(aType) {}
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] bool IsCollection() const override { return true; }
    [[nodiscard]] TXSDCollectionType CollectionType() const noexcept { return FCollectionType; }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(FItems.size()); }
    [[nodiscard]] TXSDObject* Items(int aIndex) const { return FItems.at(static_cast<size_t>(aIndex)).get(); }
    std::string minOccurs = "1", maxOccurs = "1";

protected:
    void AssignTypes() override;

private:
    TXSDCollectionType FCollectionType;
    std::vector<std::unique_ptr<TXSDObject>> FItems;
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
    TXSDAttributeCollection FAttributes;
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

// complexContent or simpleContent: one derivation.
class TXSDContent : public TXSDObject {
    XSD_PERSISTENT(TXSDContent)
public:
    TXSDContent(TXSDLibrary* aLibrary, TXSDCustomObject* aParent, bool aSimple)
        : TXSDObject(aLibrary, aParent), FSimple(aSimple) {}
    void LoadObject(xml::PXMLNode aNode) override;
    [[nodiscard]] bool IsSimple() const noexcept { return FSimple; }
    [[nodiscard]] TXSDContentDerivation* Derivation() const noexcept { return FDerivation.get(); }

private:
    bool FSimple;
    std::unique_ptr<TXSDContentDerivation> FDerivation;
};

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
    // refs resolved; computed once, after typing.
    [[nodiscard]] const std::vector<TXSDElement*>& ChildElements() const;

private:
    std::unique_ptr<TXSDElementObjectCollection> FCollection;
    std::unique_ptr<TXSDContent> FContent;
    TXSDAttributeCollection FAttributes;
    TXSDOwnedList<TXSDAttributeGroup> FGroupRefs;
    mutable std::unique_ptr<std::vector<TXSDElement*>> FChildElements;
};

// key, keyref or unique of an element.
class TXSDElementKey : public TXSDObject {
    XSD_PERSISTENT(TXSDElementKey)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    std::string Kind, refer, Selector;
    std::vector<std::string> Fields;
};

class TXSDElement : public TXSDObject {
    XSD_PERSISTENT(TXSDElement)
public:
    using TXSDObject::TXSDObject;
    void LoadObject(xml::PXMLNode aNode) override;
    void Afterload() override;
    [[nodiscard]] std::string GetTextValue(std::string_view aValue) const override;
    [[nodiscard]] TXSDDataType InternalDataType() const override;
    [[nodiscard]] bool MayHaveValue() const override;
    [[nodiscard]] bool HasChildItems() const override { return !ChildElements().empty(); }
    // The declaration the element stands for: itself, or the global element of its ref.
    [[nodiscard]] const TXSDElement& Target() const;
    [[nodiscard]] TXSDSimpleType* SimpleType() const noexcept { return FSimpleType.get(); }
    [[nodiscard]] TXSDComplexType* complexType() const noexcept { return FComplexType.get(); }
    // The complex type of the content: inline, or the linked type.
    [[nodiscard]] TXSDComplexType* ContentType() const;
    [[nodiscard]] std::string ElementType() const { return Target().FTypeName; }
    [[nodiscard]] const std::vector<TXSDElement*>& ChildElements() const;
    [[nodiscard]] const TXSDOwnedList<TXSDElementKey>& Keys() const noexcept { return FKeys; }
    [[nodiscard]] bool IsFixed() const noexcept { return !Fixed.empty(); }
    std::string Fixed, default_, minOccurs = "1", maxOccurs = "1", substitutionGroup;
    bool Abstract = false, nillable = false;

private:
    std::unique_ptr<TXSDSimpleType> FSimpleType;
    std::unique_ptr<TXSDComplexType> FComplexType;
    TXSDOwnedList<TXSDElementKey> FKeys;
};

// One namespace prefix of a library.
struct TXSDLibraryNameSpaceAlias {
    std::string Prefix;
    std::string NameSpace;
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
    [[nodiscard]] const std::string& LibraryNameSpace() const noexcept { return FNameSpace.empty() ? FtargetNamespace : FNameSpace; }
    [[nodiscard]] const std::string& XSDPref() const noexcept { return FXSDPref; }
    [[nodiscard]] const std::vector<TXSDLibrary*>& Include() const noexcept { return FInclude; }
    [[nodiscard]] const TXSDOwnedList<TXSDElement>& Elements() const noexcept { return FElements; }
    [[nodiscard]] const TXSDOwnedList<TXSDAnnotation>& Annotations() const noexcept { return FAnnotations; }
    [[nodiscard]] const TXSDOwnedList<TXSDComplexType>& ComplexTypes() const noexcept { return FComplexTypes; }
    [[nodiscard]] const TXSDOwnedList<TXSDSimpleType>& SimpleTypes() const noexcept { return FSimpleTypes; }
    [[nodiscard]] const TXSDOwnedList<TXSDAttributeGroup>& AttributeGroups() const noexcept { return FAttributeGroups; }
    [[nodiscard]] const TXSDOwnedList<TXSDElementObjectCollection>& Groups() const noexcept { return FGroups; }
    [[nodiscard]] const TXSDAttributeCollection& GlobalAttributes() const noexcept { return FAttributes; }
    [[nodiscard]] const std::vector<TXSDCustomObject*>& TypedObjs() const noexcept { return FTypedObjs; }
    [[nodiscard]] const std::vector<TXSDLibraryNameSpaceAlias>& Aliases() const noexcept { return FAliasList; }
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
    void NoteAlias(std::string_view aPrefix, std::string_view aNameSpace);
    void AddTyped(TXSDCustomObject* aObject) { FTypedObjs.push_back(aObject); }
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
    std::vector<TXSDLibrary*> FInclude;
    // The locations and kinds of this file's include, redefine and import elements.
    struct Pending {
        std::string fLocation;
        int fSubType;
        std::string fNameSpace;
    };
    std::vector<Pending> FPending;
    TXSDOwnedList<TXSDElement> FElements;
    TXSDOwnedList<TXSDAnnotation> FAnnotations;
    TXSDOwnedList<TXSDComplexType> FComplexTypes;
    TXSDOwnedList<TXSDSimpleType> FSimpleTypes;
    TXSDOwnedList<TXSDAttributeGroup> FAttributeGroups;
    TXSDOwnedList<TXSDElementObjectCollection> FGroups;
    TXSDAttributeCollection FAttributes;
    std::vector<TXSDCustomObject*> FTypedObjs;
    std::vector<TXSDLibraryNameSpaceAlias> FAliasList;
    int FEnumerationCount = 0;
    // Paths looked up by a view of the text, without a copy.
    struct PathHash {
        using is_transparent = void;
        size_t operator()(std::string_view aText) const noexcept { return std::hash<std::string_view>{}(aText); }
    };
    mutable std::unordered_map<std::string, TXSDElement*, PathHash, std::equal_to<>> FXSDPathObjectList;
};

// The files of one root load: owns every library, one per file however it is spelt.
class TXSDLibraries {
public:
    TXSDLibraries() = default;
    TXSDLibraries(const TXSDLibraries&) = delete;
    TXSDLibraries& operator=(const TXSDLibraries&) = delete;

    // Loads the root and all it draws in, then types them all. Raises EXSDError naming the
    // file for a missing, unreadable or non-schema file.
    TXSDLibrary* LoadXSD(const std::string& aFileName);
    // The same from a buffer in memory named aName; its includes are read from aName's folder.
    TXSDLibrary* LoadXSDFromResource(const std::string& aName, std::string_view aText);
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fLibraries.size()); }
    [[nodiscard]] TXSDLibrary* Items(int aIndex) const { return fLibraries.at(static_cast<size_t>(aIndex)).get(); }
    [[nodiscard]] TXSDLibrary* Root() const noexcept { return fLibraries.empty() ? nullptr : fLibraries.front().get(); }
    // The library of a file already in the registry, by its resolved path.
    [[nodiscard]] TXSDLibrary* Find(const std::string& aPath) const;

    // A location written in aFrom resolved to a file: against aFrom's folder, normalised,
    // and segment by segment without regard to case when the exact name is not there.
    static std::string ResolveLocation(const std::string& aFrom, std::string_view aLocation);

    // Deepest nesting of declarations a file may have; deeper is an error naming the file.
    static constexpr int kMaxDepth = 1000;

private:
    TXSDLibrary* Load(const std::string& aFileName, const std::string* aBuffer);
    std::vector<std::unique_ptr<TXSDLibrary>> fLibraries;
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
