#include "csInfoCore.h"

#include <charconv>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <filesystem>

#include "xml_errors.h"

namespace tmi {

namespace {

const xmlChar* X(const std::string& s) { return reinterpret_cast<const xmlChar*>(s.c_str()); }

struct XmlDocument {
    xmlDocPtr fDoc = nullptr;
    XmlDocument() : fDoc(xmlNewDoc(BAD_CAST "1.0")) {}
    explicit XmlDocument(xmlDocPtr aDoc) : fDoc(aDoc) {}
    ~XmlDocument() {
        if (fDoc) xmlFreeDoc(fDoc);
    }
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    xmlNodePtr NewRoot(std::string_view aName) {
        xmlNodePtr root = xmlNewDocNode(fDoc, nullptr, X(std::string(aName)), nullptr);
        xmlDocSetRootElement(fDoc, root);
        return root;
    }
    [[nodiscard]] std::string ToString() const {
        xmlChar* text = nullptr;
        int size = 0;
        xmlDocDumpFormatMemoryEnc(fDoc, &text, &size, "UTF-8", 1);
        std::string out(reinterpret_cast<const char*>(text), static_cast<size_t>(size));
        xmlFree(text);
        return out;
    }
};

xmlNodePtr ChildElement(xmlNodePtr aParent, std::string_view aName) {
    for (xmlNodePtr c = aParent->children; c; c = c->next)
        if (c->type == XML_ELEMENT_NODE && aName == reinterpret_cast<const char*>(c->name)) return c;
    return nullptr;
}

std::string Content(xmlNodePtr aNode) {
    xmlChar* text = xmlNodeGetContent(aNode);
    std::string out = text ? reinterpret_cast<const char*>(text) : "";
    xmlFree(text);
    return out;
}

bool AttributeOf(xmlNodePtr aNode, const std::string& aName, std::string& aValue) {
    xmlChar* value = xmlGetProp(aNode, X(aName));
    if (!value) return false;
    aValue = reinterpret_cast<const char*>(value);
    xmlFree(value);
    return true;
}

// The text a property is stored as; "DataType" goes by the name of its value.
std::string ValueText(const TcsPropertyInfo& aInfo, const TcsVariant& aValue) {
    if (aInfo.fKind == TcsPropertyKind::Enumeration && SameText(aInfo.fName, "DataType") && !aInfo.fEnumNames.empty()) {
        const int64_t i = aValue.AsInteger();
        if (i >= 0 && i < static_cast<int64_t>(aInfo.fEnumNames.size())) return aInfo.fEnumNames[static_cast<size_t>(i)];
    }
    return aValue.AsString();
}

// A value is left out of mode 0 when it is empty, zero or false.
bool IsZeroText(const TcsVariant& aValue, const std::string& aText) {
    if (aValue.IsEmpty() || aText.empty() || aText == "0") return true;
    if (aValue.Type() == TcsVarType::Boolean) return !aValue.AsBoolean();
    if (aValue.Type() == TcsVarType::Float) return aValue.AsFloat() == 0;
    return false;
}

TcsVariant ValueFromText(const TcsPropertyInfo& aInfo, const std::string& aText) {
    switch (aInfo.fKind) {
        case TcsPropertyKind::Integer: {
            int64_t v = 0;
            return TcsVariant(TryStrToInt(aText, v) ? v : int64_t{0});
        }
        case TcsPropertyKind::Float: {
            double v = 0;
            return TcsVariant(TryStrToFloat(aText, v) ? v : 0.0);
        }
        case TcsPropertyKind::Boolean: {
            bool b = false;
            return TcsVariant(TryStrToBool(aText, b) && b);
        }
        case TcsPropertyKind::Enumeration: {
            for (size_t i = 0; i < aInfo.fEnumNames.size(); ++i)
                if (SameText(aInfo.fEnumNames[i], aText)) return TcsVariant(static_cast<int64_t>(i));
            int64_t v = 0;
            return TcsVariant(TryStrToInt(aText, v) ? v : int64_t{0});
        }
        case TcsPropertyKind::DateTime: {
            TDateTime d;
            return TryStrToDateTime(aText, d) ? TcsVariant(d) : TcsVariant(TDateTime{});
        }
        default: return TcsVariant(aText);
    }
}

TcsVariant ZeroOf(TcsPropertyKind aKind) {
    switch (aKind) {
        case TcsPropertyKind::Integer:
        case TcsPropertyKind::Enumeration: return TcsVariant(int64_t{0});
        case TcsPropertyKind::Float: return TcsVariant(0.0);
        case TcsPropertyKind::Boolean: return TcsVariant(false);
        case TcsPropertyKind::DateTime: return TcsVariant(TDateTime{});
        case TcsPropertyKind::String: return TcsVariant(std::string());
        default: return TcsVariant();
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Tables

TcsPropertyTable::TcsPropertyTable(const TcsPropertyTable* aBase, std::initializer_list<TcsPropertyInfo> aOwn) {
    if (aBase) fAll = aBase->fAll;
    for (const TcsPropertyInfo& p : aOwn) {
        // A class may publish again a property of its base: it takes the base's place.
        const int at = IndexOf(p.fName);
        if (at >= 0)
            fAll[static_cast<size_t>(at)] = p;
        else
            fAll.push_back(p);
    }
}

const TcsPropertyInfo* TcsPropertyTable::Find(std::string_view aName) const {
    const int i = IndexOf(aName);
    return i < 0 ? nullptr : &fAll[static_cast<size_t>(i)];
}

int TcsPropertyTable::IndexOf(std::string_view aName) const {
    for (size_t i = 0; i < fAll.size(); ++i)
        if (SameText(fAll[i].fName, aName)) return static_cast<int>(i);
    return -1;
}

const std::string& TcsComponent::Name() const noexcept {
    static const std::string kNone;
    return fName ? *fName : kNone;
}

void TcsComponent::SetName(const std::string& aName) {
    if (aName.empty())
        fName.reset();
    else
        fName = std::make_unique<std::string>(aName);
}

const TcsPropertyTable& TcsPersistent::ClassProperties() {
    static const TcsPropertyTable table(nullptr, {});
    return table;
}

const TcsPropertyTable& TcsComponent::ClassProperties() {
    static const TcsPropertyTable table(&TcsPersistent::ClassProperties(),
                                        {Property("Name", &TcsComponent::Name, &TcsComponent::SetName),
                                         Property("Tag", &TcsComponent::Tag, &TcsComponent::SetTag)});
    return table;
}

const TcsPropertyTable& TcsPropertyComponent::ClassProperties() { return TcsComponent::ClassProperties(); }

TCS_PROPERTIES(TcsInfo, TcsPropertyComponent,
               Property("GUID", &TcsInfo::GUID, &TcsInfo::SetGUID),
               Property("ClassGUID", &TcsInfo::ClassGUID, &TcsInfo::SetClassGUID),
               Property("InternalClassName", &TcsInfo::InternalClassName, &TcsInfo::SetInternalClassName),
               Property("Modify", &TcsInfo::Modify, &TcsInfo::SetModify))

TCS_PROPERTIES(TcsInfoLowData, TcsInfo)

TCS_PROPERTIES(TcsManager, TcsComponent)

const TcsPropertyTable& TcsAbstractNamedVariants::ClassProperties() { return TcsPersistent::ClassProperties(); }
TCS_PROPERTIES(TcsNamedVariantsList, TcsAbstractNamedVariants)

// ---------------------------------------------------------------------------------------------
// Persistent objects and XML

void TcsPersistent::Assign(const TcsPersistent& aSource) {
    throw Exception("Cannot assign a " + aSource.ClassName() + " to a " + ClassName());
}

bool TcsPersistent::NotWriteProperty(std::string_view) const { return false; }

void TcsPersistent::WriteObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName,
                                           int aMode) const {
    xmlNodePtr child = xmlNewChild(aXML, nullptr, X(std::string(aPropertyName)), nullptr);
    aObject->WriteXML(child, aMode);
}

void TcsPersistent::ReadObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName,
                                          int aMode) {
    if (xmlNodePtr child = ChildElement(aXML, aPropertyName)) aObject->ReadXML(child, aMode);
}

void TcsPersistent::WriteXML(TcsXmlNode aXmlNode, int aMode) const {
    for (const TcsPropertyInfo& p : PropertyTable().All()) {
        if (NotWriteProperty(p.fName) || !p.fSet) continue;
        if (p.fKind == TcsPropertyKind::Object) {
            if (!p.fGetObject) continue;
            if (TcsPersistent* object = p.fGetObject(*this)) WriteObjectPropertyXML(aXmlNode, object, p.fName, aMode);
            continue;
        }
        const TcsVariant value = p.fGet(*this);
        const std::string text = ValueText(p, value);
        if (aMode == 0) {
            if (!IsZeroText(value, text)) xmlSetProp(aXmlNode, X(p.fName), X(text));
        } else {
            xmlNodePtr child = xmlNewChild(aXmlNode, nullptr, X(p.fName), nullptr);
            xmlNodeAddContent(child, X(text));
        }
    }
}

void TcsPersistent::ReadXML(TcsXmlNode aXmlNode, int aMode) {
    for (const TcsPropertyInfo& p : PropertyTable().All()) {
        if (NotWriteProperty(p.fName) || !p.fSet) continue;
        if (p.fKind == TcsPropertyKind::Object) {
            if (!p.fGetObject) continue;
            if (TcsPersistent* object = p.fGetObject(*this)) ReadObjectPropertyXML(aXmlNode, object, p.fName, aMode);
            continue;
        }
        std::string text;
        if (aMode == 0) {
            if (!AttributeOf(aXmlNode, p.fName, text)) continue;
        } else {
            xmlNodePtr child = ChildElement(aXmlNode, p.fName);
            if (!child) continue;
            text = Content(child);
        }
        p.fSet(*this, ValueFromText(p, text));
    }
}

// ---------------------------------------------------------------------------------------------
// Property operations

const TcsPropertyInfo* TcsSupportPropertyObject::GetProperty(int aIndex) const {
    const TcsPropertyTable& t = fObject.PropertyTable();
    return aIndex >= 0 && aIndex < t.Count() ? &t.At(aIndex) : nullptr;
}

TcsPropertyKind TcsSupportPropertyObject::PropertyType(std::string_view aName) const {
    const TcsPropertyInfo* p = PropertyByName(aName);
    return p ? p->fKind : TcsPropertyKind::Variant;
}

std::string TcsSupportPropertyObject::PropertyTypeName(std::string_view aName) const {
    const TcsPropertyInfo* p = PropertyByName(aName);
    return p ? p->fTypeName : std::string();
}

bool TcsSupportPropertyObject::PropertyReadOnly(std::string_view aName) const {
    const TcsPropertyInfo* p = PropertyByName(aName);
    return !p || p->ReadOnly();
}

TcsPropertyState TcsSupportPropertyObject::PropertyState(std::string_view aName) const {
    const TcsPropertyInfo* p = PropertyByName(aName);
    if (!p) return psUnknown;
    return p->ReadOnly() ? psReadOnly : psReadWrite;
}

TcsVariant TcsSupportPropertyObject::GetPropertyValueByName(std::string_view aName) const {
    const TcsPropertyInfo* p = PropertyByName(aName);
    return p && p->fGet ? p->fGet(fObject) : TcsVariant();
}

TcsVariant TcsSupportPropertyObject::GetPropertyValueByIndex(int aIndex) const {
    const TcsPropertyInfo* p = GetProperty(aIndex);
    return p && p->fGet ? p->fGet(fObject) : TcsVariant();
}

void TcsSupportPropertyObject::SetPropertyValueByName(std::string_view aName, const TcsVariant& aValue) {
    const TcsPropertyInfo* p = PropertyByName(aName);
    if (p && p->fSet && p->fKind != TcsPropertyKind::Object) p->fSet(fObject, aValue);
}

void TcsSupportPropertyObject::SetPropertyValueByIndex(int aIndex, const TcsVariant& aValue) {
    const TcsPropertyInfo* p = GetProperty(aIndex);
    if (p && p->fSet && p->fKind != TcsPropertyKind::Object) p->fSet(fObject, aValue);
}

bool TcsSupportPropertyObject::IsEnumProperty(std::string_view aName) const {
    return PropertyType(aName) == TcsPropertyKind::Enumeration && PropertyByName(aName);
}

bool TcsSupportPropertyObject::IsObjectProperty(std::string_view aName) const {
    return PropertyType(aName) == TcsPropertyKind::Object && PropertyByName(aName);
}

TcsPersistent* TcsSupportPropertyObject::GetObjectProperty(std::string_view aName) const {
    const TcsPropertyInfo* p = PropertyByName(aName);
    return p && p->fGetObject ? p->fGetObject(fObject) : nullptr;
}

void TcsSupportPropertyObject::ClearProperty(std::string_view aName) {
    const TcsPropertyInfo* p = PropertyByName(aName);
    if (p && p->fSet && p->fKind != TcsPropertyKind::Object) p->fSet(fObject, ZeroOf(p->fKind));
}

void TcsSupportPropertyObject::ClearProperties() {
    for (const TcsPropertyInfo& p : fObject.PropertyTable().All())
        if (p.fSet && p.fKind != TcsPropertyKind::Object) p.fSet(fObject, ZeroOf(p.fKind));
}

void TcsSupportPropertyObject::SaveState(TcsNamedVariantsList& aState) const {
    aState.Clear();
    for (const TcsPropertyInfo& p : fObject.PropertyTable().All())
        if (p.fGet && p.fKind != TcsPropertyKind::Object) aState.Add(p.fName, p.fGet(fObject));
}

void TcsSupportPropertyObject::LoadState(const TcsNamedVariantsList& aState) {
    for (int i = 0; i < aState.Count(); ++i) SetPropertyValueByName(aState.Names(i), aState.Variants(i));
}

void TcsSupportPropertyObject::WriteFileXML(const std::string& aFileName, std::string_view aRootName, int aMode) const {
    XmlDocument doc;
    fObject.WriteXML(doc.NewRoot(aRootName), aMode);
    if (xmlSaveFormatFileEnc(aFileName.c_str(), doc.fDoc, "UTF-8", 1) < 0)
        throw Exception("Не удалось записать файл: " + aFileName);
}

void TcsSupportPropertyObject::ReadFileXML(const std::string& aFileName, int aMode) {
    std::error_code ec;
    if (!std::filesystem::exists(aFileName, ec)) throw Exception("Не найден файл: " + aFileName);
    XmlDocument doc(xmlReadFile(aFileName.c_str(), nullptr, XML_PARSE_NONET));
    if (!doc.fDoc || !xmlDocGetRootElement(doc.fDoc)) throw Exception("Не удалось прочитать файл: " + aFileName);
    fObject.ReadXML(xmlDocGetRootElement(doc.fDoc), aMode);
}

std::string TcsSupportPropertyObject::WriteStringXML(std::string_view aRootName, int aMode) const {
    XmlDocument doc;
    fObject.WriteXML(doc.NewRoot(aRootName), aMode);
    return doc.ToString();
}

bool TcsSupportPropertyObject::ReadStringXML(std::string_view aXML, int aMode) {
    XmlDocument doc(xmlReadMemory(aXML.data(), static_cast<int>(aXML.size()), nullptr, nullptr, XML_PARSE_NONET));
    if (!doc.fDoc || !xmlDocGetRootElement(doc.fDoc)) return false;
    fObject.ReadXML(xmlDocGetRootElement(doc.fDoc), aMode);
    return true;
}

// ---------------------------------------------------------------------------------------------
// Property components and infos

void TcsPropertyComponent::AddModifyProperty(std::string_view aPropertyName, const TcsVariant& aOldValue,
                                             const TcsVariant& aNewValue) {
    if (!fModifyProperties) fModifyProperties = std::make_unique<std::vector<TscModifyPropertyElement>>();
    fModifyProperties->push_back(TscModifyPropertyElement{std::string(aPropertyName), aOldValue, aNewValue});
}

const std::vector<TscModifyPropertyElement>& TcsPropertyComponent::ModifyProperties() const noexcept {
    static const std::vector<TscModifyPropertyElement> kNone;
    return fModifyProperties ? *fModifyProperties : kNone;
}

bool TcsPropertyComponent::PropertyIsModify(std::string_view aPropertyName) const {
    const auto& list = ModifyProperties();
    return std::any_of(list.begin(), list.end(),
                       [&](const TscModifyPropertyElement& e) { return SameText(e.fPropertyName, aPropertyName); });
}

void TcsPropertyComponent::Assign(const TcsPersistent& aSource) {
    if (aSource.ClassName() != ClassName()) {
        TcsPersistent::Assign(aSource);
        return;
    }
    XmlDocument doc;
    xmlNodePtr node = doc.NewRoot("AssignNode");
    aSource.WriteXML(node, 1);
    ReadXML(node, 1);
}

void TcsInfo::SetGUID(const std::string& aGUID) {
    // The braced form goes into the two halves; any other text is kept as it is.
    unsigned long long parts[5] = {};
    if (aGUID.size() == 38 &&
        std::sscanf(aGUID.c_str(), "{%8llx-%4llx-%4llx-%4llx-%12llx}", &parts[0], &parts[1], &parts[2], &parts[3],
                    &parts[4]) == 5) {
        fGUID.fHigh = (parts[0] << 32) | (parts[1] << 16) | parts[2];
        fGUID.fLow = (parts[3] << 48) | parts[4];
        fGUIDText.reset();
        if (SameText(fGUID.ToString(), aGUID)) return;
    }
    fGUIDText = std::make_unique<std::string>(aGUID);
}

std::string TcsInfo::ClassGUID() const {
    const std::string guid = GetClassGUID();
    return guid.empty() ? GetClassName() : guid;
}

std::string TcsInfo::GetStorageName() const {
    const std::string name = ClassName();
    return name.size() > 3 ? name.substr(3) : name;
}

std::unique_ptr<TcsInfo> TcsInfo::Clone(TcsComponent* aOwner) const {
    std::unique_ptr<TcsPersistent> like = NewLike(aOwner);
    auto* info = dynamic_cast<TcsInfo*>(like.get());
    if (!info) throw Exception("Cannot clone a " + ClassName());
    info->Assign(*this);
    info->RegenerateGUID();
    like.release();
    return std::unique_ptr<TcsInfo>(info);
}

std::string TcsInfo::XML() const {
    XmlDocument doc;
    WriteXML(doc.NewRoot(GetStorageName()), 0);
    return doc.ToString();
}

void TcsInfo::WriteObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName, int aMode) const {
    if (auto* list = dynamic_cast<TcsInfoList*>(aObject)) {
        xmlNodePtr child = xmlNewChild(aXML, nullptr, X(std::string(aPropertyName)), nullptr);
        list->WriteXML(child, aMode);
        return;
    }
    TcsPropertyComponent::WriteObjectPropertyXML(aXML, aObject, aPropertyName, aMode);
}

void TcsInfo::ReadObjectPropertyXML(TcsXmlNode aXML, TcsPersistent* aObject, std::string_view aPropertyName, int aMode) {
    if (auto* list = dynamic_cast<TcsInfoList*>(aObject)) {
        if (xmlNodePtr child = ChildElement(aXML, aPropertyName)) list->ReadXML(child, aMode);
        return;
    }
    TcsPropertyComponent::ReadObjectPropertyXML(aXML, aObject, aPropertyName, aMode);
}

bool TcsInfoLowData::NotWriteProperty(std::string_view aPropertyName) const {
    return SameText(aPropertyName, "GUID") || SameText(aPropertyName, "ClassGUID") ||
           SameText(aPropertyName, "InternalClassName") || SameText(aPropertyName, "Tag");
}

// ---------------------------------------------------------------------------------------------
// Lists

TcsPersistent* TcsCustomList::Get(int aIndex) const {
    if (aIndex < 0 || aIndex >= Count()) throw xml::EListError();
    return fItems[static_cast<size_t>(aIndex)].get();
}

void TcsCustomList::Clear() {
    while (!fItems.empty()) {
        if (OnDelete) OnDelete(*this, fItems.back().get());
        fItems.pop_back();
    }
    Changed();
}

void TcsCustomList::Delete(int aIndex) {
    (void)Get(aIndex);
    if (OnDelete) OnDelete(*this, fItems[static_cast<size_t>(aIndex)].get());
    fItems.erase(fItems.begin() + aIndex);
    Changed();
}

std::unique_ptr<TcsPersistent> TcsCustomList::DeleteNoDestroy(int aIndex) {
    (void)Get(aIndex);
    TcsListItem& item = fItems[static_cast<size_t>(aIndex)];
    const bool owned = item.get_deleter().fOwns;
    TcsPersistent* raw = item.release();
    fItems.erase(fItems.begin() + aIndex);
    Changed();
    // An item the list did not own stays with its owner.
    return owned ? std::unique_ptr<TcsPersistent>(raw) : nullptr;
}

void TcsCustomList::Exchange(int aIndex1, int aIndex2) {
    (void)Get(aIndex1);
    (void)Get(aIndex2);
    std::swap(fItems[static_cast<size_t>(aIndex1)], fItems[static_cast<size_t>(aIndex2)]);
    Changed();
}

void TcsCustomList::Insert(int aIndex, std::unique_ptr<TcsPersistent> aItem) {
    if (aIndex < 0 || aIndex > Count()) throw xml::EListError();
    fItems.insert(fItems.begin() + aIndex, TcsListItem(aItem.release(), TcsItemDeleter{fOwnsObjects}));
    Changed();
}

void TcsCustomList::Move(int aCurIndex, int aNewIndex) {
    if (aCurIndex == aNewIndex) return;
    (void)Get(aCurIndex);
    (void)Get(aNewIndex);
    TcsListItem item = std::move(fItems[static_cast<size_t>(aCurIndex)]);
    fItems.erase(fItems.begin() + aCurIndex);
    fItems.insert(fItems.begin() + aNewIndex, std::move(item));
    Changed();
}

int TcsCustomList::IndexOf(const TcsPersistent* aItem) const {
    for (size_t i = 0; i < fItems.size(); ++i)
        if (fItems[i].get() == aItem) return static_cast<int>(i);
    return -1;
}

TcsPersistent* TcsCustomList::AddItem(std::unique_ptr<TcsPersistent> aItem) {
    TcsPersistent* raw = aItem.get();
    fItems.emplace_back(aItem.release(), TcsItemDeleter{fOwnsObjects});
    Changed();
    return raw;
}

void TcsCustomList::AddReference(TcsPersistent* aItem) {
    fItems.emplace_back(aItem, TcsItemDeleter{false});
    Changed();
}

TcsInfo* TcsInfoList::Items(int aIndex) const { return static_cast<TcsInfo*>(Get(aIndex)); }

TcsInfoClass TcsInfoList::ItemClass(TcsXmlNode aXmlNode) const {
    // By storage name among the registered classes.
    const std::string name = reinterpret_cast<const char*>(aXmlNode->name);
    const TcsInfoManager& manager = GlobalInfoManager();
    for (int i = 0; i < manager.Count(); ++i) {
        TcsInfoClass cls = manager.ClassItems(i);
        if (cls->fClassName.size() > 3 && cls->fClassName.substr(3) == name) return cls;
    }
    return nullptr;
}

TcsInfo* TcsInfoList::GetNew(TcsInfoClass aInfoClass) {
    return Add(aInfoClass->fCreate(fParentInfo));
}

TcsInfo* TcsInfoList::Add(std::unique_ptr<TcsInfo> aInfo) {
    TcsInfo* raw = aInfo.get();
    AddItem(std::unique_ptr<TcsPersistent>(aInfo.release()));
    return raw;
}

void TcsInfoList::WriteXML(TcsXmlNode aXmlNode, int aMode) const {
    for (int i = 0; i < Count(); ++i) {
        const TcsInfo* item = Items(i);
        xmlNodePtr child = xmlNewChild(aXmlNode, nullptr, X(item->GetStorageName()), nullptr);
        item->WriteXML(child, aMode);
    }
}

void TcsInfoList::ReadXML(TcsXmlNode aXmlNode, int aMode) {
    for (xmlNodePtr c = aXmlNode->children; c; c = c->next) {
        if (c->type != XML_ELEMENT_NODE) continue;  // comments and text are no items
        TcsInfoClass cls = ItemClass(c);
        if (!cls) continue;
        // The item joins the list before it reads itself, so that it can find its parent.
        TcsInfo* item = GetNew(cls);
        item->ReadXML(c, aMode);
        AfterReadItem(item);
    }
}

// ---------------------------------------------------------------------------------------------
// Named variants

namespace {
const char* const kVariantTypeNames[] = {"Empty", "Integer", "Boolean", "Float", "String", "DateTime", "Pointer"};

// The shortest text that reads back to the same double.
std::string ExactFloat(double aValue) {
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, aValue);
    return std::string(buf, r.ptr);
}

std::string VariantText(const TcsVariant& aValue) {
    switch (aValue.Type()) {
        case TcsVarType::Empty: return {};
        case TcsVarType::Boolean: return aValue.AsBoolean() ? "True" : "False";
        case TcsVarType::Float: return ExactFloat(aValue.AsFloat());
        case TcsVarType::DateTime: return ExactFloat(aValue.AsDateTime().fValue);
        default: return aValue.AsString();
    }
}

TcsVariant VariantOf(std::string_view aType, const std::string& aText) {
    double f = 0;
    int64_t i = 0;
    bool b = false;
    if (SameText(aType, "Integer")) return TryStrToInt(aText, i) ? TcsVariant(i) : TcsVariant(int64_t{0});
    if (SameText(aType, "Boolean")) return TcsVariant(TryStrToBool(aText, b) && b);
    if (SameText(aType, "Float")) return TcsVariant(TryStrToFloat(aText, f) ? f : 0.0);
    if (SameText(aType, "DateTime")) return TcsVariant(TDateTime{TryStrToFloat(aText, f) ? f : 0.0});
    if (SameText(aType, "Empty")) return TcsVariant();
    return TcsVariant(aText);
}
}  // namespace

void TcsAbstractNamedVariants::WriteXML(TcsXmlNode aXmlNode, int aMode) const {
    TcsPersistent::WriteXML(aXmlNode, aMode);
    xmlNodePtr list = xmlNewChild(aXmlNode, nullptr, BAD_CAST "NamedVariants", nullptr);
    for (int i = 0; i < Count(); ++i) {
        xmlNodePtr item = xmlNewChild(list, nullptr, BAD_CAST "Item", nullptr);
        xmlSetProp(item, BAD_CAST "Name", X(Names(i)));
        xmlSetProp(item, BAD_CAST "Type", BAD_CAST kVariantTypeNames[static_cast<int>(Variants(i).Type())]);
        const std::string text = VariantText(Variants(i));
        xmlSetProp(item, BAD_CAST "Value", X(text));
    }
}

void TcsAbstractNamedVariants::ReadXML(TcsXmlNode aXmlNode, int aMode) {
    TcsPersistent::ReadXML(aXmlNode, aMode);
    xmlNodePtr list = ChildElement(aXmlNode, "NamedVariants");
    if (!list) return;
    Clear();
    for (xmlNodePtr c = list->children; c; c = c->next) {
        if (c->type != XML_ELEMENT_NODE) continue;
        std::string name, type, value;
        (void)AttributeOf(c, "Name", name);
        (void)AttributeOf(c, "Type", type);
        (void)AttributeOf(c, "Value", value);
        Append(name, VariantOf(type, value));
    }
}

void TcsNamedVariantsList::Assign(const TcsPersistent& aSource) {
    if (const auto* other = dynamic_cast<const TcsNamedVariantsList*>(&aSource)) {
        fItems = other->fItems;
        return;
    }
    TcsPersistent::Assign(aSource);
}

void TcsNamedVariantsList::Check(int aIndex) const {
    if (aIndex < 0 || aIndex >= Count())
        throw EcsNamedVariantError("List index out of bounds (" + std::to_string(aIndex) + ")");
}

int TcsNamedVariantsList::Add(std::string_view aName, const TcsVariant& aValue) {
    const int i = IndexOfName(aName);
    if (i >= 0) {
        fItems[static_cast<size_t>(i)].second = aValue;
        return i;
    }
    return Append(aName, aValue);
}

int TcsNamedVariantsList::Append(std::string_view aName, const TcsVariant& aValue) {
    fItems.emplace_back(std::string(aName), aValue);
    return Count() - 1;
}

void TcsNamedVariantsList::Delete(int aIndex) {
    Check(aIndex);
    fItems.erase(fItems.begin() + aIndex);
}

bool TcsNamedVariantsList::Equals(const TcsNamedVariantsList& aOther) const {
    if (Count() != aOther.Count()) return false;
    for (int i = 0; i < Count(); ++i)
        if (!SameName(Names(i), aOther.Names(i)) || Variants(i) != aOther.Variants(i)) return false;
    return true;
}

void TcsNamedVariantsList::Exchange(int aIndex1, int aIndex2) {
    Check(aIndex1);
    Check(aIndex2);
    std::swap(fItems[static_cast<size_t>(aIndex1)], fItems[static_cast<size_t>(aIndex2)]);
}

void TcsNamedVariantsList::Move(int aCurIndex, int aNewIndex) {
    Check(aCurIndex);
    Check(aNewIndex);
    auto item = fItems[static_cast<size_t>(aCurIndex)];
    fItems.erase(fItems.begin() + aCurIndex);
    fItems.insert(fItems.begin() + aNewIndex, item);
}

void TcsNamedVariantsList::Insert(int aIndex, std::string_view aName, const TcsVariant& aValue) {
    if (aIndex < 0 || aIndex > Count()) throw EcsNamedVariantError("List index out of bounds (" + std::to_string(aIndex) + ")");
    fItems.insert(fItems.begin() + aIndex, {std::string(aName), aValue});
}

int TcsNamedVariantsList::IndexOfName(std::string_view aName) const {
    for (size_t i = 0; i < fItems.size(); ++i)
        if (SameName(fItems[i].first, aName)) return static_cast<int>(i);
    return -1;
}

TcsVariant TcsNamedVariantsList::Values(std::string_view aName) const {
    const int i = IndexOfName(aName);
    return i < 0 ? TcsVariant() : fItems[static_cast<size_t>(i)].second;
}

const std::string& TcsNamedVariantsList::Names(int aIndex) const {
    Check(aIndex);
    return fItems[static_cast<size_t>(aIndex)].first;
}

const TcsVariant& TcsNamedVariantsList::Variants(int aIndex) const {
    Check(aIndex);
    return fItems[static_cast<size_t>(aIndex)].second;
}

void TcsNamedVariantsList::AddValues(const TcsNamedVariantsList& aOther) {
    for (const auto& item : aOther.fItems) Add(item.first, item.second);
}

// ---------------------------------------------------------------------------------------------
// Registry and manager

void TcsInfoManager::RegisterInfoClass(TcsInfoClass aInfoClass, std::string_view aPackageGUID) {
    GlobalMessageManager().SendMessage(std::make_shared<TcsInfoMessage>(aInfoClass, 1, std::string(aPackageGUID)));
    if (!AllowDoubleClass())
        for (const auto& c : fClasses)
            if (SameText(c.second->fClassName, aInfoClass->fClassName)) return;
    fClasses.emplace_back(std::string(aPackageGUID), aInfoClass);
}

void TcsInfoManager::UnRegisterInfoClass(TcsInfoClass aInfoClass) {
    fClasses.erase(std::remove_if(fClasses.begin(), fClasses.end(), [&](const auto& c) { return c.second == aInfoClass; }),
                   fClasses.end());
}

TcsInfoClass TcsInfoManager::ClassByName(std::string_view aName) const {
    for (const auto& c : fClasses)
        if (SameText(c.second->fGetClassName(), aName)) return c.second;
    return nullptr;
}

TcsInfoClass TcsInfoManager::ClassByInternalName(std::string_view aName) const {
    for (const auto& c : fClasses)
        if (SameText(c.second->fClassName, aName)) return c.second;
    return nullptr;
}

std::string TcsInfoManager::GetPackageGUID(TcsInfoClass aInfoClass) const {
    for (const auto& c : fClasses)
        if (c.second == aInfoClass) return c.first;
    return {};
}

TcsInfoManager& GlobalInfoManager() {
    static TcsInfoManager manager;
    return manager;
}

void TcsManager::Initialize() {
    if (fInitialized) return;
    InternalInitialize();
    fInitialized = true;
}

void TcsManager::Finalize() {
    if (!fInitialized) return;
    InternalFinalize();
    fInitialized = false;
}

std::string TcsManager::GetStorageName() const {
    const std::string name = ClassName();
    return name.size() > 3 ? name.substr(3) : name;
}

void TcsManager::WriteXML(TcsXmlNode aXmlNode, int aMode) const {
    TcsComponent::WriteXML(aXmlNode, 0);
    xmlNodePtr settings = xmlNewChild(aXmlNode, nullptr, BAD_CAST "CustomSettings", nullptr);
    for (const std::string& line : CustomSettings) {
        xmlNodePtr item = xmlNewChild(settings, nullptr, BAD_CAST "Item", nullptr);
        xmlNodeAddContent(item, X(line));
    }
}

void TcsManager::ReadXML(TcsXmlNode aXmlNode, int aMode) {
    TcsComponent::ReadXML(aXmlNode, 0);
    CustomSettings.clear();
    if (xmlNodePtr settings = ChildElement(aXmlNode, "CustomSettings"))
        for (xmlNodePtr c = settings->children; c; c = c->next)
            if (c->type == XML_ELEMENT_NODE) CustomSettings.push_back(Content(c));
}

void TcsManager::ReadFromFile(const std::string& aFileName) {
    TcsSupportPropertyObject(*this).ReadFileXML(aFileName, 0);
}

void TcsManager::WriteToFile(const std::string& aFileName) const {
    TcsSupportPropertyObject(const_cast<TcsManager&>(*this)).WriteFileXML(aFileName, GetStorageName(), 0);
}

}  // namespace tmi
