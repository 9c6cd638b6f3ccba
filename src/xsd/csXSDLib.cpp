#include "csXSDLib.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <functional>
#include <unordered_set>

#include "csRTTITools.h"

namespace tmi {

namespace fs = std::filesystem;

namespace {

std::string_view LocalOf(std::string_view aQName) {
    const size_t colon = aQName.find(':');
    return colon == std::string_view::npos ? aQName : aQName.substr(colon + 1);
}

std::string_view PrefixOf(std::string_view aQName) {
    const size_t colon = aQName.find(':');
    return colon == std::string_view::npos ? std::string_view() : aQName.substr(0, colon);
}

std::string Attr(xml::PXMLNode aNode, std::string_view aName) { return std::string(aNode->GetAttribute(aName)); }

// How deep the declarations being loaded stand: past the limit a file is refused, so that
// neither loading nor freeing runs out of stack.
thread_local int tDepth = 0;

struct DepthGuard {
    explicit DepthGuard(const TXSDLibrary* aLibrary) {
        if (++tDepth > TXSDLibraries::kMaxDepth) {
            --tDepth;
            throw EXSDError("Схема " + (aLibrary ? aLibrary->XSDFileName() : std::string()) +
                            ": объявления вложены глубже " + std::to_string(TXSDLibraries::kMaxDepth));
        }
    }
    ~DepthGuard() { --tDepth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
};

struct BuiltIn {
    const char* fName;
    TXSDDataType fType;
};

// The built-in types of XML Schema and the data type each comes down to.
constexpr BuiltIn kBuiltIns[] = {
    {"string", vtString},         {"normalizedString", vtString}, {"token", vtString},       {"language", vtString},
    {"Name", vtString},           {"NCName", vtString},           {"ID", vtString},          {"IDREF", vtString},
    {"IDREFS", vtString},         {"ENTITY", vtString},           {"ENTITIES", vtString},    {"NMTOKEN", vtString},
    {"NMTOKENS", vtString},       {"anyURI", vtString},           {"QName", vtString},       {"NOTATION", vtString},
    {"duration", vtString},       {"gYearMonth", vtString},       {"gYear", vtString},       {"gMonthDay", vtString},
    {"gDay", vtString},           {"gMonth", vtString},           {"anySimpleType", vtString}, {"anyType", vtObject},
    {"boolean", vtBoolean},       {"byte", vtByte},               {"unsignedByte", vtByte},  {"short", vtInteger},
    {"unsignedShort", vtInteger}, {"int", vtInteger},             {"unsignedInt", vtInteger}, {"long", vtInteger},
    {"unsignedLong", vtInteger},  {"integer", vtInteger},         {"nonNegativeInteger", vtInteger},
    {"positiveInteger", vtInteger}, {"nonPositiveInteger", vtInteger}, {"negativeInteger", vtInteger},
    {"decimal", vtDecimal},       {"double", vtDouble},           {"float", vtFloat},        {"base64Binary", vtBinary},
    {"hexBinary", vtBinary},      {"date", vtDate},               {"dateTime", vtDateTime},  {"time", vtDateTime},
};

// How many links a chain of bases may have before it is taken for a loop.
constexpr int kMaxChain = 64;

// Types that derive from each other in a loop: a question that follows the links gives up
// after kMaxChain of them.
thread_local int tChain = 0;
struct ChainGuard {
    ChainGuard() { ++tChain; }
    ~ChainGuard() { --tChain; }
    ChainGuard(const ChainGuard&) = delete;
    ChainGuard& operator=(const ChainGuard&) = delete;
    [[nodiscard]] static bool TooLong() { return tChain > kMaxChain; }
};

}  // namespace

TXSDDataType BuiltInDataType(std::string_view aLocalName) {
    for (const BuiltIn& b : kBuiltIns)
        if (aLocalName == b.fName) return b.fType;
    return vtUnknown;
}

// ---------------------------------------------------------------------------------------------
// The base of every object

std::string TXSDCustomObject::LibraryName() const { return FLibrary ? FLibrary->XSDFileName() : std::string(); }
std::string TXSDCustomObject::SourceLibraryName() const {
    return FSourceLibrary ? FSourceLibrary->XSDFileName() : LibraryName();
}
std::string TXSDCustomObject::Pref() const { return FLibrary ? FLibrary->XSDPref() : std::string(); }

std::string TXSDCustomObject::XPathName() const {
    if (!FName.empty()) return FName;
    return std::string(LocalOf(FRefName));
}

std::string TXSDCustomObject::XPath() const {
    // The path of elements down to this one; lists and types in between add nothing.
    std::vector<std::string> parts;
    for (const TXSDCustomObject* o = this; o; o = o->FParent)
        if (dynamic_cast<const TXSDElement*>(o)) parts.push_back(o->XPathName());
    std::string path;
    for (auto it = parts.rbegin(); it != parts.rend(); ++it) path += "/" + *it;
    return path;
}

std::string TXSDCustomObject::XPathToControlName() const {
    std::string name = XPath();
    std::replace(name.begin(), name.end(), '/', '_');
    return name;
}

TXSDDataType TXSDCustomObject::InternalDataType() const {
    const ChainGuard guard;
    if (ChainGuard::TooLong()) return vtUnknown;
    if (FBuiltInType != vtUnknown) return FBuiltInType;
    if (FTypeObj && FTypeObj != this) return FTypeObj->InternalDataType();
    return vtUnknown;
}

void TXSDCustomObject::LoadNameSpace(xml::PXMLNode aNode) {
    if (!FLibrary) return;
    for (xml::PXMLNode a = aNode->FirstAttribute(); a; a = a->NextSibling()) {
        const std::string_view name = a->NodeName();
        if (name == "xmlns") FLibrary->NoteAlias("", a->NodeValue());
        else if (name.substr(0, 6) == "xmlns:") FLibrary->NoteAlias(name.substr(6), a->NodeValue());
    }
}

void TXSDCustomObject::LoadObject(xml::PXMLNode aNode) {
    FIsAssigned = true;
    LoadNameSpace(aNode);
    FId = Attr(aNode, "id");
    FName = Attr(aNode, "name");
    FRefName = Attr(aNode, "ref");
    if (FTypeName.empty()) FTypeName = Attr(aNode, "type");
    if (!FTypeName.empty() && FLibrary) {
        // A built-in type needs no link.
        const std::string_view prefix = PrefixOf(FTypeName);
        const std::string ns = FLibrary->NameSpaceOfPrefix(prefix);
        if (ns == kXMLSchemaNameSpace) FBuiltInType = BuiltInDataType(LocalOf(FTypeName));
    }
    if (FLibrary && (!FTypeName.empty() || !FRefName.empty())) FLibrary->AddTyped(this);
}

void TXSDCustomObject::AssignTyped() {
    if (FTypeApplied || !FLibrary || !FLibrary->Loaded()) return;
    FTypeApplied = true;
    AssignTypes();
}

void TXSDCustomObject::AssignTypes() {
    if (!FTypeName.empty() && FBuiltInType == vtUnknown) {
        FTypeObj = FLibrary->GetTypeByName(FTypeName);
        // An unprefixed built-in name in a file whose default namespace is XML Schema.
        if (!FTypeObj && PrefixOf(FTypeName).empty()) FBuiltInType = BuiltInDataType(FTypeName);
    }
    if (!FRefName.empty()) FRefObj = FLibrary->GetRefByName(FRefName, TXSDLibrary::TRefKind::Element);
}

void TXSDCustomObject::ForEachConstruct(xml::PXMLNode aNode, const std::function<void(xml::PXMLNode, std::string_view)>& aDo) {
    // Each level of constructs is one walk of children inside the walk of its parent.
    DepthGuard depth(FLibrary);
    for (xml::PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling())
        if (c->NodeType() == xml::ntElement && FLibrary->IsSchemaNode(c)) aDo(c, c->LocalName());
}

// ---------------------------------------------------------------------------------------------
// Annotations, enumerations, patterns, restrictions and simple types

void TXSDAnnotation::LoadObject(xml::PXMLNode aNode) {
    TXSDCustomObject::LoadObject(aNode);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName != "documentation") return;
        // As written, blanks included: a code means the very text the dictionaries give it.
        if (!FText.empty()) FText += "\n";
        FText += c->Text();
    });
}

void TXSDObject::LoadObject(xml::PXMLNode aNode) {
    TXSDCustomObject::LoadObject(aNode);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName != "annotation" || FAnnotation) return;
        FAnnotation = std::make_unique<TXSDAnnotation>(FLibrary, this);
        FAnnotation->LoadObject(c);
    });
}

std::string TXSDObject::RefXPath() const { return FRefObj ? FRefObj->XPath() : std::string(); }
std::string TXSDObject::AnnotationText() const { return FAnnotation ? FAnnotation->Text() : std::string(); }

int TXSDObject::Level() const {
    int level = 0;
    for (const TXSDCustomObject* o = FParent; o; o = o->Parent())
        if (dynamic_cast<const TXSDElement*>(o)) ++level;
    return level;
}

std::string TXSDObject::NameSpace() const { return FLibrary ? FLibrary->targetNamespace() : std::string(); }

std::string TXSDObject::NameSpaceAlias() const {
    if (!FLibrary) return {};
    const TXSDLibraryNameSpaceAliasList& aliases = FLibrary->Aliases();
    for (int i = 0; i < aliases.Count(); ++i)
        if (!aliases.Items(i)->Prefix.empty() && aliases.Items(i)->NameSpace == FLibrary->targetNamespace())
            return aliases.Items(i)->Prefix;
    return {};
}

std::string TXSDObject::GetTextValue(std::string_view) const { return {}; }

// ---------------------------------------------------------------------------------------------
// Collections

TXSDCustomObject* TXSDObjectCollection::GetItems(int aIndex) const {
    if (aIndex < 0 || aIndex >= Count()) throw xml::EListError();
    return FList[static_cast<size_t>(aIndex)];
}

TXSDCustomObject* TXSDObjectCollection::AddObject(std::unique_ptr<TXSDCustomObject> aItem) {
    FOwned.push_back(std::move(aItem));
    FList.push_back(FOwned.back().get());
    return FList.back();
}

void TXSDObjectCollection::Clear() {
    FList.clear();
    FOwned.clear();
}

void TXSDEnumerationCollection::Measure(const TXSDEnumeration& aItem) {
    int length = 0;
    for (const char c : aItem.Value())
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++length;
    FMaxLength = std::max(FMaxLength, length);
}

void TXSDEnumerationCollection::Clear() {
    TXSDCollectionOf<TXSDEnumeration>::Clear();
    FMaxLength = 0;
}

void TXSDIncludeCollection::LoadObject(xml::PXMLNode aNode) {
    FIsAssigned = true;
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName != "include" && aName != "redefine" && aName != "import") return;
        const int subType = aName == "include" ? 0 : (aName == "redefine" ? 1 : 2);
        FLocations.push_back(TLocation{Attr(c, "schemaLocation"), subType, subType == 2 ? Attr(c, "namespace") : std::string()});
    });
}

void TXSDLibraryNameSpaceAliasList::Note(std::string_view aPrefix, std::string_view aNameSpace) {
    for (int i = 0; i < Count(); ++i)
        if (Items(i)->Prefix == aPrefix && Items(i)->NameSpace == aNameSpace) return;
    AddItem(std::make_unique<TXSDLibraryNameSpaceAlias>(std::string(aPrefix), std::string(aNameSpace)));
}

std::string TXSDLibraryNameSpaceAliasList::NameSpaceOf(std::string_view aPrefix) const {
    for (int i = 0; i < Count(); ++i)
        if (Items(i)->Prefix == aPrefix) return Items(i)->NameSpace;
    return {};
}

void TXSDValueFacet::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    FValue = Attr(aNode, "value");
}

void TXSDEnumeration::LoadObject(xml::PXMLNode aNode) {
    TXSDValueFacet::LoadObject(aNode);
    if (FLibrary) FLibrary->CountEnumeration();
}

void TXSDRestriction::LoadObject(xml::PXMLNode aNode) {
    FTypeName = Attr(aNode, "base");
    TXSDObject::LoadObject(aNode);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        const std::string value = Attr(c, "value");
        if (aName == "enumeration") {
            TXSDEnumeration* e = FEnumerations.Add(std::make_unique<TXSDEnumeration>(FLibrary, this));
            e->LoadObject(c);
            FEnumerations.Measure(*e);
        }
        else if (aName == "pattern") FPatterns.Add(std::make_unique<TXSDPattern>(FLibrary, this))->LoadObject(c);
        else if (aName == "simpleType" && !FInlineBase) {
            FInlineBase = std::make_unique<TXSDSimpleType>(FLibrary, this);
            FInlineBase->LoadObject(c);
        } else if (aName == "minExclusive") minExclusive = value;
        else if (aName == "minInclusive") minInclusive = value;
        else if (aName == "maxExclusive") maxExclusive = value;
        else if (aName == "maxInclusive") maxInclusive = value;
        else if (aName == "totalDigits") totalDigits = value;
        else if (aName == "fractionDigits") fractionDigits = value;
        else if (aName == "length") length = value;
        else if (aName == "minLength") minLength = value;
        else if (aName == "maxLength") maxLength = value;
    });
}

std::string TXSDRestriction::GetTextValue(std::string_view aValue) const {
    // The enumerations of this restriction, then those of the types down its bases.
    const TXSDRestriction* r = this;
    for (int link = 0; r && link < kMaxChain; ++link) {
        for (const auto& e : r->FEnumerations)
            if (e->Value() == aValue) return e->AnnotationText();
        const TXSDSimpleType* base = r->FInlineBase ? r->FInlineBase.get() : dynamic_cast<const TXSDSimpleType*>(r->FTypeObj);
        r = base ? base->Restruction() : nullptr;
    }
    return {};
}

TXSDDataType TXSDRestriction::InternalDataType() const {
    const TXSDRestriction* r = this;
    for (int link = 0; r && link < kMaxChain; ++link) {
        if (r->FBuiltInType != vtUnknown) return r->FBuiltInType;
        const TXSDSimpleType* base = r->FInlineBase ? r->FInlineBase.get() : dynamic_cast<const TXSDSimpleType*>(r->FTypeObj);
        r = base ? base->Restruction() : nullptr;
    }
    return vtUnknown;
}

std::string TXSDRestriction::firstBase() const {
    const TXSDRestriction* r = this;
    for (int link = 0; r && link < kMaxChain; ++link) {
        if (r->FBuiltInType != vtUnknown || !r->FTypeObj) return r->FTypeName;
        const auto* base = dynamic_cast<const TXSDSimpleType*>(r->FTypeObj);
        r = base ? base->Restruction() : nullptr;
    }
    return {};
}

std::string TXSDRestriction::PatternText() const {
    std::string text;
    for (const auto& p : FPatterns) text += (text.empty() ? "" : "|") + p->Value();
    return text;
}

void TXSDSimpleType::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName == "restriction" && !FRestriction) {
            FRestriction = std::make_unique<TXSDRestriction>(FLibrary, this);
            FRestriction->LoadObject(c);
        } else if (aName == "union" || aName == "list") {
            const std::string names = Attr(c, aName == "union" ? "memberTypes" : "itemType");
            size_t start = 0;
            while (start < names.size()) {
                while (start < names.size() && xml::IsXMLWhiteSpace(names[start])) ++start;
                size_t end = start;
                while (end < names.size() && !xml::IsXMLWhiteSpace(names[end])) ++end;
                if (end > start) MemberTypes.push_back(names.substr(start, end - start));
                start = end;
            }
            ForEachConstruct(c, [&](xml::PXMLNode m, std::string_view aMember) {
                if (aMember == "simpleType") FMembers.Add(std::make_unique<TXSDSimpleType>(FLibrary, this))->LoadObject(m);
            });
        }
    });
}

std::string TXSDSimpleType::GetTextValue(std::string_view aValue) const {
    return FRestriction ? FRestriction->GetTextValue(aValue) : std::string();
}

TXSDDataType TXSDSimpleType::InternalDataType() const {
    if (FRestriction) return FRestriction->InternalDataType();
    return MemberTypes.empty() && FMembers.Count() == 0 ? vtUnknown : vtString;
}

// ---------------------------------------------------------------------------------------------
// Attributes and attribute groups

void TXSDAttribute::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    default_ = Attr(aNode, "default");
    fixed = Attr(aNode, "fixed");
    const std::string u = Attr(aNode, "use");
    use = u == "required" ? xsdRequired : (u == "prohibited" ? xsdProhibited : xsdOptional);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName != "simpleType" || FSimpleType) return;
        FSimpleType = std::make_unique<TXSDSimpleType>(FLibrary, this);
        FSimpleType->LoadObject(c);
    });
}

void TXSDAttribute::AssignTypes() {
    TXSDCustomObject::AssignTypes();
    if (!FRefName.empty()) FRefObj = FLibrary->GetRefByName(FRefName, TXSDLibrary::TRefKind::Attribute);
}

std::string TXSDAttribute::GetTextValue(std::string_view aValue) const {
    const ChainGuard guard;
    if (ChainGuard::TooLong()) return {};
    if (FSimpleType) return FSimpleType->GetTextValue(aValue);
    if (const auto* t = dynamic_cast<const TXSDSimpleType*>(FTypeObj)) return t->GetTextValue(aValue);
    if (const auto* r = dynamic_cast<const TXSDAttribute*>(FRefObj); r && r != this) return r->GetTextValue(aValue);
    return {};
}

TXSDDataType TXSDAttribute::InternalDataType() const {
    if (FSimpleType) return FSimpleType->InternalDataType();
    return TXSDCustomObject::InternalDataType();
}

void TXSDAttributeGroup::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName == "attribute") FAttributes.Add(std::make_unique<TXSDAttribute>(FLibrary, this))->LoadObject(c);
        else if (aName == "attributeGroup") FGroupRefs.Add(std::make_unique<TXSDAttributeGroup>(FLibrary, this))->LoadObject(c);
    });
}

void TXSDAttributeGroup::AssignTypes() {
    if (!FRefName.empty()) FRefObj = FLibrary->GetRefByName(FRefName, TXSDLibrary::TRefKind::AttributeGroup);
}

// ---------------------------------------------------------------------------------------------
// Content: lists of elements, derivations, complex types

void TXSDElementObjectCollection::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    if (aNode->HasAttribute("minOccurs")) minOccurs = Attr(aNode, "minOccurs");
    if (aNode->HasAttribute("maxOccurs")) maxOccurs = Attr(aNode, "maxOccurs");
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        std::unique_ptr<TXSDObject> item;
        if (aName == "element") item = std::make_unique<TXSDElement>(FLibrary, this);
        else if (aName == "sequence") item = std::make_unique<TXSDElementObjectCollection>(FLibrary, this, sequence);
        else if (aName == "choice") item = std::make_unique<TXSDElementObjectCollection>(FLibrary, this, choice);
        else if (aName == "all") item = std::make_unique<TXSDElementObjectCollection>(FLibrary, this, all);
        else if (aName == "group") item = std::make_unique<TXSDElementObjectCollection>(FLibrary, this, group);
        else if (aName == "any") item = std::make_unique<TXSDElementObjectCollection>(FLibrary, this, any);
        if (!item) return;
        item->LoadObject(c);
        Add(std::move(item));
    });
}

void TXSDElementObjectCollection::AssignTypes() {
    if (!FRefName.empty()) FRefObj = FLibrary->GetRefByName(FRefName, TXSDLibrary::TRefKind::Group);
}

void TXSDContentDerivation::LoadObject(xml::PXMLNode aNode) {
    FTypeName = Attr(aNode, "base");
    TXSDObject::LoadObject(aNode);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        TXSDCollectionType type = sequence;
        if (aName == "sequence" || aName == "choice" || aName == "all" || aName == "group") {
            type = aName == "choice" ? choice : aName == "all" ? all : aName == "group" ? group : sequence;
            if (FCollection) return;
            FCollection = std::make_unique<TXSDElementObjectCollection>(FLibrary, this, type);
            FCollection->LoadObject(c);
        } else if (aName == "attribute") {
            FAttributes.Add(std::make_unique<TXSDAttribute>(FLibrary, this))->LoadObject(c);
        }
    });
    // The facets of a simple content restriction.
    if (!FExtension) {
        FRestriction = std::make_unique<TXSDRestriction>(FLibrary, this);
        FRestriction->LoadObject(aNode);
    }
}

void TXSDContent::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (FDerivation) return;
        if (aName == "extension")
            FDerivation = FSimple ? std::unique_ptr<TXSDContentDerivation>(std::make_unique<TXSDSimpleContentExtension>(FLibrary, this))
                                  : std::make_unique<TXSDComplexContentExtension>(FLibrary, this);
        else if (aName == "restriction")
            FDerivation = FSimple ? std::make_unique<TXSDContentDerivation>(FLibrary, this, false)
                                  : std::make_unique<TXSDComplexContentRestriction>(FLibrary, this);
        if (FDerivation) FDerivation->LoadObject(c);
    });
}

void TXSDComplexType::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    const std::string m = Attr(aNode, "mixed");
    mixed = m == "true" || m == "1";
    const std::string d = Attr(aNode, "defaultAttributesApply");
    defaultAttributesApply = !(d == "false" || d == "0");
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName == "sequence" || aName == "choice" || aName == "all" || aName == "group") {
            if (FCollection) return;
            const TXSDCollectionType type = aName == "choice" ? choice : aName == "all" ? all : aName == "group" ? group : sequence;
            FCollection = std::make_unique<TXSDElementObjectCollection>(FLibrary, this, type);
            FCollection->LoadObject(c);
        } else if (aName == "complexContent" || aName == "simpleContent") {
            if (FContent) return;
            if (aName == "simpleContent")
                FContent = std::make_unique<TXSDSimpleContent>(FLibrary, this);
            else
                FContent = std::make_unique<TXSDComplexContent>(FLibrary, this);
            FContent->LoadObject(c);
        } else if (aName == "attribute") {
            FAttributes.Add(std::make_unique<TXSDAttribute>(FLibrary, this))->LoadObject(c);
        } else if (aName == "attributeGroup") {
            FGroupRefs.Add(std::make_unique<TXSDAttributeGroup>(FLibrary, this))->LoadObject(c);
        }
    });
}

const TXSDElementCollection& TXSDComplexType::ChildElements() const {
    if (FChildElements) return *FChildElements;
    FChildElements = std::make_unique<TXSDElementCollection>(FLibrary, const_cast<TXSDComplexType*>(this));
    TXSDElementCollection& out = *FChildElements;
    // Bases are walked before their extensions; a type or group met again is a loop.
    std::unordered_set<const TXSDObject*> seen;
    std::function<void(const TXSDElementObjectCollection*)> walk = [&](const TXSDElementObjectCollection* aList) {
        if (!aList || !seen.insert(aList).second) return;
        if (aList->CollectionType() == group && aList->IsRef()) {
            walk(dynamic_cast<const TXSDElementObjectCollection*>(aList->RefObj()));
            return;
        }
        for (int i = 0; i < aList->Count(); ++i) {
            TXSDObject* item = aList->Items(i);
            if (auto* e = dynamic_cast<TXSDElement*>(item))
                out.AddRef(e);
            else
                walk(static_cast<const TXSDElementObjectCollection*>(item));
        }
    };
    std::function<void(const TXSDComplexType*)> collect = [&](const TXSDComplexType* aType) {
        if (!aType || !seen.insert(aType).second) return;
        if (const TXSDContent* content = aType->ComplexContent()) {
            const TXSDContentDerivation* d = content->Derivation();
            if (!d) return;
            if (d->IsExtension()) collect(dynamic_cast<const TXSDComplexType*>(d->TypeObj()));
            walk(d->Collection());
            return;
        }
        walk(aType->Collection());
    };
    collect(this);
    return out;
}

std::string TXSDComplexType::GetTextValue(std::string_view aValue) const {
    const ChainGuard guard;
    if (ChainGuard::TooLong()) return {};
    const TXSDContent* content = SimpleContent();
    if (!content || !content->Derivation()) return {};
    const TXSDContentDerivation* d = content->Derivation();
    if (d->Restruction()) {
        std::string text = d->Restruction()->GetTextValue(aValue);
        if (!text.empty()) return text;
    }
    if (const auto* base = dynamic_cast<const TXSDObject*>(d->TypeObj()); base && base != this) return base->GetTextValue(aValue);
    return {};
}

TXSDDataType TXSDComplexType::InternalDataType() const {
    const TXSDContent* content = SimpleContent();
    if (!content || !content->Derivation()) return vtObject;
    const TXSDContentDerivation* d = content->Derivation();
    if (d->TypeObj() == this) return vtUnknown;
    return d->InternalDataType();
}

void TXSDElementKeyLook::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    FXpath = Attr(aNode, "xpath");
}

void TXSDElementKey::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    FKind = std::string(aNode->LocalName());
    Frefer = Attr(aNode, "refer");
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName == "selector" && !FSelector) {
            FSelector = std::make_unique<TXSDElementKeyLook>(FLibrary, this);
            FSelector->LoadObject(c);
        } else if (aName == "field") {
            FField.Add(std::make_unique<TXSDElementKeyLook>(FLibrary, this))->LoadObject(c);
        }
    });
}

// ---------------------------------------------------------------------------------------------
// Elements

void TXSDElement::LoadObject(xml::PXMLNode aNode) {
    TXSDObject::LoadObject(aNode);
    if (aNode->HasAttribute("minOccurs")) minOccurs = Attr(aNode, "minOccurs");
    if (aNode->HasAttribute("maxOccurs")) maxOccurs = Attr(aNode, "maxOccurs");
    Fixed = Attr(aNode, "fixed");
    default_ = Attr(aNode, "default");
    substitutionGroup = Attr(aNode, "substitutionGroup");
    const std::string a = Attr(aNode, "abstract"), n = Attr(aNode, "nillable");
    Abstract = a == "true" || a == "1";
    nillable = n == "true" || n == "1";
    ForEachConstruct(aNode, [&](xml::PXMLNode c, std::string_view aName) {
        if (aName == "simpleType" && !FSimpleType) {
            FSimpleType = std::make_unique<TXSDSimpleType>(FLibrary, this);
            FSimpleType->LoadObject(c);
        } else if (aName == "complexType" && !FComplexType) {
            FComplexType = std::make_unique<TXSDComplexType>(FLibrary, this);
            FComplexType->LoadObject(c);
        } else if (aName == "key" || aName == "keyref" || aName == "unique") {
            FKeys.Add(std::make_unique<TXSDElementKey>(FLibrary, this))->LoadObject(c);
        }
    });
}

void TXSDElement::Afterload() {}

const TXSDElement& TXSDElement::Target() const {
    if (const auto* target = dynamic_cast<const TXSDElement*>(FRefObj); target && target != this) return *target;
    return *this;
}

TXSDComplexType* TXSDElement::ContentType() const {
    const TXSDElement& t = Target();
    if (t.FComplexType) return t.FComplexType.get();
    return dynamic_cast<TXSDComplexType*>(t.FTypeObj);
}

namespace {
// What an element without a complex type has: no attributes, no children.
const TXSDAttributeCollection& NoAttributes() {
    static const TXSDAttributeCollection none(nullptr, nullptr);
    return none;
}
const TXSDElementCollection& NoElements() {
    static const TXSDElementCollection none(nullptr, nullptr);
    return none;
}
}  // namespace

const TXSDElementCollection& TXSDElement::ChildElements() const {
    const TXSDComplexType* type = ContentType();
    return type ? type->ChildElements() : NoElements();
}

const TXSDAttributeCollection& TXSDElement::Attributes() const {
    const TXSDComplexType* type = ContentType();
    return type ? type->Attributes() : NoAttributes();
}

TXSDElementObjectCollection* TXSDElement::Collection() const {
    const TXSDComplexType* type = ContentType();
    return type ? type->Collection() : nullptr;
}

bool TXSDElement::MayHaveValue() const {
    const TXSDComplexType* type = ContentType();
    return !type || type->SimpleContent() || type->mixed;
}

std::string TXSDElement::GetTextValue(std::string_view aValue) const {
    const ChainGuard guard;
    if (ChainGuard::TooLong()) return {};
    const TXSDElement& t = Target();
    if (t.FSimpleType) return t.FSimpleType->GetTextValue(aValue);
    if (const auto* type = dynamic_cast<const TXSDObject*>(t.FTypeObj)) return type->GetTextValue(aValue);
    if (t.FComplexType) return t.FComplexType->GetTextValue(aValue);
    return {};
}

TXSDDataType TXSDElement::InternalDataType() const {
    const ChainGuard guard;
    if (ChainGuard::TooLong()) return vtUnknown;
    const TXSDElement& t = Target();
    if (t.FSimpleType) return t.FSimpleType->InternalDataType();
    if (t.FComplexType) return t.FComplexType->InternalDataType();
    if (&t != this) return t.InternalDataType();
    return TXSDCustomObject::InternalDataType();
}

// ---------------------------------------------------------------------------------------------
// A library: one file

TXSDLibrary::TXSDLibrary(TXSDLibraries* aRegistry, std::string aFileName, int aSubType)
    : TXSDObject(this, nullptr), FRegistry(aRegistry), FXSDFileName(std::move(aFileName)), FLibrarySubType(aSubType) {}

TXSDLibrary::~TXSDLibrary() = default;

bool TXSDLibrary::IsSchemaNode(xml::PXMLNode aNode) const {
    const std::string_view prefix = aNode->NameSpacePrefix();
    if (prefix == FXSDPref) return true;
    // A prefix bound on an inner element, or another one for the same namespace.
    return aNode->NameSpaceURI() == kXMLSchemaNameSpace;
}

bool TXSDLibrary::IsConstruct(xml::PXMLNode aNode, std::string_view aLocalName) const {
    return aNode->NodeType() == xml::ntElement && aNode->LocalName() == aLocalName && IsSchemaNode(aNode);
}

std::string TXSDLibrary::NameSpaceOfPrefix(std::string_view aPrefix) const {
    if (aPrefix == "xml") return "http://www.w3.org/XML/1998/namespace";
    return FAliasList.NameSpaceOf(aPrefix);
}

void TXSDLibrary::LoadDocument(const std::string* aBuffer) {
    xml::TXMLDocument doc;
    bool loaded = false;
    try {
        loaded = aBuffer ? doc.LoadFromBuffer(aBuffer->data(), aBuffer->size()) : doc.LoadFromFile(FXSDFileName);
    } catch (const std::exception& e) {
        throw EXSDError("Схема " + FXSDFileName + " не прочитана: " + e.what());
    }
    if (!loaded) {
        const auto& error = doc.ParseError();
        throw EXSDError("Схема " + FXSDFileName + " не прочитана: " + (error ? error->Reason : std::string()) + " (строка " +
                        std::to_string(error ? error->Line : 0) + ", позиция " + std::to_string(error ? error->LinePos : 0) + ")");
    }
    xml::PXMLNode root = doc.DocumentElement();
    if (!root) throw EXSDError("Схема " + FXSDFileName + " пуста: нет корневого элемента");
    if (root->LocalName() != "schema" || root->NameSpaceURI() != kXMLSchemaNameSpace)
        throw EXSDError("Файл " + FXSDFileName + " не схема XML: корень <" + std::string(root->NodeName()) + ">");
    LoadSchema(root);
    FLoaded = true;
}

void TXSDLibrary::LoadSchema(xml::PXMLNode aRoot) {
    FXSDPref = std::string(aRoot->NameSpacePrefix());
    FIsAssigned = true;
    LoadNameSpace(aRoot);
    FtargetNamespace = Attr(aRoot, "targetNamespace");
    FId = Attr(aRoot, "id");
    FInclude.LoadObject(aRoot);
    auto global = [&](xml::PXMLNode c, std::string_view aName) {
        if (aName == "element") {
            FElements.Add(std::make_unique<TXSDElement>(this, this))->LoadObject(c);
        } else if (aName == "complexType") {
            FComplexTypes.Add(std::make_unique<TXSDComplexType>(this, this))->LoadObject(c);
        } else if (aName == "simpleType") {
            FSimpleTypes.Add(std::make_unique<TXSDSimpleType>(this, this))->LoadObject(c);
        } else if (aName == "attributeGroup") {
            FAttributeGroups.Add(std::make_unique<TXSDAttributeGroup>(this, this))->LoadObject(c);
        } else if (aName == "group") {
            FGroups.Add(std::make_unique<TXSDElementObjectCollection>(this, this, group))->LoadObject(c);
        } else if (aName == "attribute") {
            FAttributes.Add(std::make_unique<TXSDAttribute>(this, this))->LoadObject(c);
        } else if (aName == "annotation") {
            FAnnotations.Add(std::make_unique<TXSDAnnotation>(this, this))->LoadObject(c);
        }
    };
    ForEachConstruct(aRoot, [&](xml::PXMLNode c, std::string_view aName) {
        global(c, aName);
        // What a redefine holds stands among the file's own definitions, before the ones it redefines.
        if (aName == "redefine") ForEachConstruct(c, global);
    });
}

void TXSDLibrary::ApplyTypedObjects() {
    for (const auto& t : FComplexTypes) t->AssignTyped();
    for (TXSDCustomObject* o : FTypedObjs) o->AssignTyped();
    for (const auto& t : FSimpleTypes) t->AssignTyped();
    for (const auto& e : FElements) e->AssignTyped();
}

TXSDCustomObject* TXSDLibrary::FindOwnType(std::string_view aLocalName) const {
    for (TXSDComplexType* t : FComplexTypes)
        if (SameText(t->Name(), aLocalName)) return t;
    for (TXSDSimpleType* t : FSimpleTypes)
        if (SameText(t->Name(), aLocalName)) return t;
    return nullptr;
}

TXSDCustomObject* TXSDLibrary::FindOwnRef(std::string_view aLocalName, TRefKind aKind) const {
    auto find = [&](const auto& aList) -> TXSDCustomObject* {
        for (const auto& o : aList)
            if (SameText(o->Name(), aLocalName)) return &*o;
        return nullptr;
    };
    switch (aKind) {
        case TRefKind::Element: return find(FElements);
        case TRefKind::AttributeGroup: return find(FAttributeGroups);
        case TRefKind::Group: return find(FGroups);
        case TRefKind::Attribute: return find(FAttributes);
    }
    return nullptr;
}

namespace {

// Depth first over a library and its includes, each library once, without recursion.
template <class F>
TXSDCustomObject* SearchIncludes(const TXSDLibrary* aStart, F&& aFind) {
    std::unordered_set<const TXSDLibrary*> visited;
    std::vector<const TXSDLibrary*> stack{aStart};
    while (!stack.empty()) {
        const TXSDLibrary* lib = stack.back();
        stack.pop_back();
        if (!visited.insert(lib).second) continue;
        if (TXSDCustomObject* found = aFind(lib)) return found;
        const TXSDIncludeCollection& inc = lib->Include();
        for (int i = inc.Count() - 1; i >= 0; --i) stack.push_back(inc.Items(i));
    }
    return nullptr;
}

}  // namespace

template <class F>
TXSDCustomObject* TXSDLibrary::SearchByName(std::string_view aName, F&& aOwn) const {
    // A name without a prefix: this file and its includes. A prefixed one: the library the
    // prefix names, then, for this file's own namespace, all of this file's includes.
    const std::string_view prefix = PrefixOf(aName), local = LocalOf(aName);
    auto own = [&](const TXSDLibrary* aLib) { return aOwn(aLib, local); };
    if (prefix.empty()) return SearchIncludes(this, own);
    const TXSDLibrary* lib = GetLibraryByAlias(prefix);
    if (!lib) return nullptr;
    if (TXSDCustomObject* found = SearchIncludes(lib, own)) return found;
    if (lib != this && NameSpaceOfPrefix(prefix) == FtargetNamespace) return SearchIncludes(this, own);
    return nullptr;
}

TXSDCustomObject* TXSDLibrary::GetTypeByName(std::string_view aName) const {
    return SearchByName(aName, [](const TXSDLibrary* aLib, std::string_view aLocal) { return aLib->FindOwnType(aLocal); });
}

TXSDCustomObject* TXSDLibrary::GetRefByName(std::string_view aName, TRefKind aKind) const {
    return SearchByName(aName, [aKind](const TXSDLibrary* aLib, std::string_view aLocal) { return aLib->FindOwnRef(aLocal, aKind); });
}

const TXSDLibrary* TXSDLibrary::GetLibraryByAlias(std::string_view aPrefix) const {
    const TXSDLibrary* self = nullptr;
    for (int i = 0; i < FAliasList.Count(); ++i) {
        const TXSDLibraryNameSpaceAlias& a = *FAliasList.Items(i);
        if (a.Prefix != aPrefix) continue;
        for (const TXSDLibrary* inc : FInclude)
            if (inc->NameSpace() == a.NameSpace) return inc;
        if (a.NameSpace == FtargetNamespace) self = this;
    }
    return self;
}

TXSDElement* TXSDLibrary::GetXSDElementByXPath(std::string_view aPath) const {
    if (const auto it = FXSDPathObjectList.find(aPath); it != FXSDPathObjectList.end()) return it->second;
    TXSDElement* current = nullptr;
    size_t start = 0;
    bool first = true;
    while (start <= aPath.size()) {
        const size_t slash = aPath.find('/', start);
        const std::string_view part = LocalOf(aPath.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start));
        start = slash == std::string_view::npos ? aPath.size() + 1 : slash + 1;
        if (part.empty()) continue;
        TXSDElement* next = nullptr;
        if (first) {
            for (TXSDElement* e : FElements)
                if (e->XPathName() == part) {
                    next = e;
                    break;
                }
            first = false;
        } else {
            for (TXSDElement* e : current->ChildElements())
                if (e->XPathName() == part) {
                    next = e;
                    break;
                }
        }
        if (!next) return nullptr;
        current = next;
    }
    if (current) FXSDPathObjectList.emplace(std::string(aPath), current);
    return current;
}

// ---------------------------------------------------------------------------------------------
// The registry of one root load, and the cache

std::string TXSDLibraries::ResolveLocation(const std::string& aFrom, std::string_view aLocation) {
    fs::path location{std::string(aLocation)};
    fs::path path = location.is_absolute() ? location : fs::path(aFrom).parent_path() / location;
    path = path.lexically_normal();
    std::error_code ec;
    if (fs::exists(path, ec)) return path.string();
    // Sets made on Windows name files in other letter case: segment by segment.
    fs::path found = path.root_path();
    for (const fs::path& part : path.relative_path()) {
        const fs::path exact = found / part;
        if (fs::exists(exact, ec)) {
            found = exact;
            continue;
        }
        bool matched = false;
        const fs::path folder = found.empty() ? fs::path(".") : found;
        for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
            if (SameText(it->path().filename().string(), part.string())) {
                found = found / it->path().filename();
                matched = true;
                break;
            }
        if (!matched) return path.string();
    }
    return found.string();
}

TXSDLibrary* TXSDLibraries::Find(const std::string& aPath) const {
    const auto it = fByPath.find(aPath);
    return it == fByPath.end() ? nullptr : it->second;
}

namespace {
// The key a file is known by: its path with links and dots resolved.
std::string KeyOf(const std::string& aPath) {
    std::error_code ec;
    const fs::path p = fs::weakly_canonical(fs::absolute(aPath, ec), ec);
    return ec ? fs::path(aPath).lexically_normal().string() : p.string();
}
}  // namespace

TXSDLibrary* TXSDLibraries::LoadXSD(const std::string& aFileName) { return Load(aFileName, nullptr); }

TXSDLibrary* TXSDLibraries::LoadXSDFromResource(const std::string& aName, std::string_view aText) {
    const std::string buffer(aText);
    return Load(aName, &buffer);
}

TXSDLibrary* TXSDLibraries::Load(const std::string& aFileName, const std::string* aBuffer) {
    std::error_code ec;
    if (!aBuffer && !fs::is_regular_file(aFileName, ec)) throw EXSDError("Отсутствует файл схемы: " + aFileName);
    if (TXSDLibrary* known = Find(KeyOf(aFileName))) return known;
    const int first = Count();
    Add(aFileName, 0);
    // Files are read in the order they are met; a file met again is only referred to, so
    // cycles end and no file is read twice. No recursion: a chain of any length loads.
    for (int i = first; i < Count(); ++i) {
        TXSDLibrary* lib = Items(i);
        lib->LoadDocument(i == first ? aBuffer : nullptr);
        for (const TXSDIncludeCollection::TLocation& p : lib->FInclude.Locations()) {
            if (p.fLocation.empty()) continue;  // an import without a location loads nothing
            if (p.fLocation.find("://") != std::string::npos) throw EXSDError("Отсутствует файл схемы: " + p.fLocation);
            const std::string path = ResolveLocation(lib->XSDFileName(), p.fLocation);
            TXSDLibrary* target = Find(KeyOf(path));
            if (!target) {
                if (!fs::is_regular_file(path, ec)) throw EXSDError("Отсутствует файл схемы: " + path);
                target = Add(path, p.fSubType);
                target->FNameSpace = p.fNameSpace;
            }
            lib->FInclude.AddRef(target);
        }
        lib->FInclude.ForgetLocations();
    }
    // Typing runs once every file is there.
    for (int i = first; i < Count(); ++i) Items(i)->ApplyTypedObjects();
    return Items(first);
}

TXSDLibrary* TXSDLibraries::Add(const std::string& aPath, int aSubType) {
    auto* lib = static_cast<TXSDLibrary*>(AddItem(std::make_unique<TXSDLibrary>(this, aPath, aSubType)));
    fByPath.emplace(KeyOf(aPath), lib);
    return lib;
}

TXSDLibrary* TcsXSDLibCache::GetLibByFilePath(const std::string& aFileName) {
    const std::string key = KeyOf(aFileName);
    if (const auto it = fLibs.find(key); it != fLibs.end()) return it->second->Root();
    auto set = std::make_unique<TXSDLibraries>();
    TXSDLibrary* root = set->LoadXSD(aFileName);
    fLibs.emplace(key, std::move(set));
    return root;
}

TcsXSDLibCache& GlobalXSDLibCache() {
    static TcsXSDLibCache cache;
    return cache;
}

// ---------------------------------------------------------------------------------------------
// Published names

TCS_PROPERTIES(TXSDCustomObject, TcsPersistent, Property("LibraryName", &TXSDCustomObject::LibraryName),
               Property("SourceLibraryName", &TXSDCustomObject::SourceLibraryName), Property("id", &TXSDCustomObject::id),
               Property("Has", &TXSDCustomObject::Has), Property("Name", &TXSDCustomObject::Name),
               Property("Pref", &TXSDCustomObject::Pref), Property("XPathName", &TXSDCustomObject::XPathName),
               Property("TypeApplied", &TXSDCustomObject::TypeApplied), Property("Type_", &TXSDCustomObject::Type_),
               ObjectProperty("TypeObj", &TXSDCustomObject::TypeObj), ObjectProperty("RefObj", &TXSDCustomObject::RefObj),
               Property("IsTypeObject", &TXSDCustomObject::IsTypeObject), Property("IsRef", &TXSDCustomObject::IsRef),
               Property("Ref", &TXSDCustomObject::Ref), Property("XPath", &TXSDCustomObject::XPath),
               Property("XPathToControlName", &TXSDCustomObject::XPathToControlName),
               Property("InternalDataType", &TXSDCustomObject::InternalDataType), Property("XS_PREF", &TXSDCustomObject::XS_PREF))
TCS_PROPERTIES(TXSDAnnotation, TXSDCustomObject, Property("Text", &TXSDAnnotation::Text))
TCS_PROPERTIES(TXSDObject, TXSDCustomObject, Property("RefXPath", &TXSDObject::RefXPath),
               Property("AnnotationText", &TXSDObject::AnnotationText), Property("Level", &TXSDObject::Level),
               Property("MayHaveValue", &TXSDObject::MayHaveValue), Property("HasChildItems", &TXSDObject::HasChildItems),
               Property("NameSpace", &TXSDObject::NameSpace), Property("NameSpaceAlias", &TXSDObject::NameSpaceAlias))
TCS_PROPERTIES(TXSDObjectCollection, TXSDObject, Property("Count", &TXSDObjectCollection::Count))
TCS_PROPERTIES(TXSDElementKeyCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDEnumerationCollection, TXSDObjectCollection, Property("MaxLength", &TXSDEnumerationCollection::MaxLength))
TCS_PROPERTIES(TXSDPatternCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDTypedCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDIncludeCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDAttributeCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDAnnotationCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDComplexTypeCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDSimpleTypeCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDAttributeGroupCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDElementCollection, TXSDObjectCollection)
TCS_PROPERTIES(TXSDValueFacet, TXSDObject, Property("Value", &TXSDValueFacet::Value))
TCS_PROPERTIES(TXSDRestriction, TXSDObject, Property("base", &TXSDRestriction::base),
               Property("firstBase", &TXSDRestriction::firstBase), Field("minExclusive", &TXSDRestriction::minExclusive),
               Field("minInclusive", &TXSDRestriction::minInclusive), Field("maxExclusive", &TXSDRestriction::maxExclusive),
               Field("maxInclusive", &TXSDRestriction::maxInclusive), Field("totalDigits", &TXSDRestriction::totalDigits),
               Field("fractionDigits", &TXSDRestriction::fractionDigits), Field("length", &TXSDRestriction::length),
               Field("minLength", &TXSDRestriction::minLength), Field("maxLength", &TXSDRestriction::maxLength),
               ObjectProperty("enumeration", &TXSDRestriction::enumeration), ObjectProperty("pattern", &TXSDRestriction::pattern),
               Property("PatternText", &TXSDRestriction::PatternText))
TCS_PROPERTIES(TXSDSimpleType, TXSDObject, ObjectProperty("Restruction", &TXSDSimpleType::Restruction))
TCS_PROPERTIES(TXSDAttribute, TXSDObject, ObjectProperty("SimpleType", &TXSDAttribute::SimpleType),
               Field("default", &TXSDAttribute::default_), Field("fixed", &TXSDAttribute::fixed), Field("use", &TXSDAttribute::use),
               ObjectProperty("Restruction", &TXSDAttribute::Restruction))
TCS_PROPERTIES(TXSDAttributeGroup, TXSDObject, ObjectProperty("Attributes", &TXSDAttributeGroup::Attributes))
TCS_PROPERTIES(TXSDElementObjectCollection, TXSDObjectCollection, Property("CollectionType", &TXSDElementObjectCollection::CollectionType),
               Field("minOccurs", &TXSDElementObjectCollection::minOccurs), Field("maxOccurs", &TXSDElementObjectCollection::maxOccurs))
TCS_PROPERTIES(TXSDContentDerivation, TXSDObject, Property("base", &TXSDContentDerivation::base),
               ObjectProperty("Collection", &TXSDContentDerivation::Collection),
               ObjectProperty("Attributes", &TXSDContentDerivation::Attributes))
TCS_PROPERTIES(TXSDContent, TXSDObject, ObjectProperty("Derivation", &TXSDContent::Derivation))
TCS_PROPERTIES(TXSDComplexType, TXSDObject, ObjectProperty("Collection", &TXSDComplexType::Collection),
               ObjectProperty("SimpleContent", &TXSDComplexType::SimpleContent),
               ObjectProperty("ComplexContent", &TXSDComplexType::ComplexContent),
               Field("defaultAttributesApply", &TXSDComplexType::defaultAttributesApply), Field("mixed", &TXSDComplexType::mixed),
               ObjectProperty("Attributes", &TXSDComplexType::Attributes))
TCS_PROPERTIES(TXSDElementKeyLook, TXSDObject, Property("xpath", &TXSDElementKeyLook::xpath))
TCS_PROPERTIES(TXSDElementKey, TXSDObject, Property("Kind", &TXSDElementKey::Kind), Property("refer", &TXSDElementKey::refer),
               ObjectProperty("Selector", &TXSDElementKey::Selector))
TCS_PROPERTIES(TXSDElement, TXSDObject, Field("Fixed", &TXSDElement::Fixed), Field("Abstract", &TXSDElement::Abstract),
               Field("default", &TXSDElement::default_), Property("ElementType", &TXSDElement::ElementType),
               Field("maxOccurs", &TXSDElement::maxOccurs), Field("minOccurs", &TXSDElement::minOccurs),
               Field("nillable", &TXSDElement::nillable), Field("substitutionGroup", &TXSDElement::substitutionGroup),
               ObjectProperty("SimpleType", &TXSDElement::SimpleType), ObjectProperty("Attributes", &TXSDElement::Attributes),
               ObjectProperty("complexType", &TXSDElement::complexType), ObjectProperty("Keys", &TXSDElement::Keys),
               Property("IsFixed", &TXSDElement::IsFixed), ObjectProperty("Collection", &TXSDElement::Collection),
               ObjectProperty("ChildElements", &TXSDElement::ChildElements))
TCS_PROPERTIES(TXSDLibrary, TXSDObject, Property("LibrarySubType", &TXSDLibrary::LibrarySubType),
               Property("XSDFileName", &TXSDLibrary::XSDFileName), Property("GlobalNameSpace", &TXSDLibrary::GlobalNameSpace),
               Property("targetNamespace", &TXSDLibrary::targetNamespace), Property("NameSpace", &TXSDLibrary::NameSpace),
               Property("XSDPref", &TXSDLibrary::XSDPref), ObjectProperty("Include", &TXSDLibrary::Include),
               ObjectProperty("Elements", &TXSDLibrary::Elements), ObjectProperty("Annotations", &TXSDLibrary::Annotations),
               ObjectProperty("ComplexTypes", &TXSDLibrary::ComplexTypes), ObjectProperty("SimpleTypes", &TXSDLibrary::SimpleTypes),
               ObjectProperty("AttributeGroups", &TXSDLibrary::AttributeGroups),
               ObjectProperty("TypedObjs", &TXSDLibrary::TypedObjs))
TCS_PROPERTIES(TXSDLibraryNameSpaceAlias, TcsPersistent, Field("Prefix", &TXSDLibraryNameSpaceAlias::Prefix),
               Field("NameSpace", &TXSDLibraryNameSpaceAlias::NameSpace))

}  // namespace tmi
