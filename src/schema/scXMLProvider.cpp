#include "scXMLProvider.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlsave.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>

namespace tmi {

namespace {

const xmlChar* X(const char* aText) { return reinterpret_cast<const xmlChar*>(aText); }
const char* C(const xmlChar* aText) { return reinterpret_cast<const char*>(aText); }

std::string NameOf(const xmlNode* aNode) { return aNode && aNode->name ? C(aNode->name) : ""; }

std::string AttributeText(xmlAttr* aAttr) {
    xmlChar* v = xmlNodeListGetString(aAttr->doc, aAttr->children, 1);
    std::string out = v ? C(v) : "";
    xmlFree(v);
    return out;
}

std::string ContentOf(xmlNode* aNode) {
    xmlChar* v = xmlNodeGetContent(aNode);
    std::string out = v ? C(v) : "";
    xmlFree(v);
    return out;
}

xmlNode* ChildElement(xmlNode* aParent, std::string_view aName, bool aAnyCase = false) {
    for (xmlNode* c = aParent ? aParent->children : nullptr; c; c = c->next)
        if (c->type == XML_ELEMENT_NODE && (aAnyCase ? SameText(NameOf(c), aName) : NameOf(c) == aName)) return c;
    return nullptr;
}

std::string UpperAscii(std::string aText) {
    for (char& c : aText) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return aText;
}

// The text of a published value as a file holds it; empty when the value is left out.
std::string ValueText(const TcsPropertyInfo& aProperty, const TcsVariant& aValue) {
    if (aProperty.fKind == TcsPropertyKind::Boolean) return aValue.AsBoolean() ? "True" : "False";
    if (aProperty.fKind == TcsPropertyKind::Enumeration) {
        const int64_t n = aValue.AsInteger();
        if (n >= 0 && static_cast<size_t>(n) < aProperty.fEnumNames.size()) return aProperty.fEnumNames[static_cast<size_t>(n)];
        return std::to_string(n);
    }
    std::string text = aValue.AsString();
    return text == "0" ? std::string() : text;
}

// libxml2 reports to the standard error stream unless told otherwise; our report is the
// exception.
void SilentGeneric(void*, const char*, ...) {}

const char* const kIndexTypes[] = {"primary", "index", "constraint", "spatial"};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Base64

std::string Base64Encode(std::string_view aBytes) {
    static const char* abc = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((aBytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < aBytes.size(); i += 3) {
        const uint32_t n = (static_cast<uint8_t>(aBytes[i]) << 16) | (static_cast<uint8_t>(aBytes[i + 1]) << 8) |
                           static_cast<uint8_t>(aBytes[i + 2]);
        out += {abc[n >> 18], abc[(n >> 12) & 63], abc[(n >> 6) & 63], abc[n & 63]};
    }
    if (i + 1 == aBytes.size()) {
        const uint32_t n = static_cast<uint8_t>(aBytes[i]) << 16;
        out += {abc[n >> 18], abc[(n >> 12) & 63], '=', '='};
    } else if (i + 2 == aBytes.size()) {
        const uint32_t n = (static_cast<uint8_t>(aBytes[i]) << 16) | (static_cast<uint8_t>(aBytes[i + 1]) << 8);
        out += {abc[n >> 18], abc[(n >> 12) & 63], abc[(n >> 6) & 63], '='};
    }
    return out;
}

std::string Base64Decode(std::string_view aText) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    std::string out;
    uint32_t acc = 0;
    int bits = 0;
    for (char c : aText) {
        const int v = value(c);
        if (v < 0) continue;
        acc = (acc << 6) | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((acc >> bits) & 0xFF);
        }
    }
    return out;
}

// ---------------------------------------------------------------------------------------------
// Handlers

TscXMLCustomHandler::TscXMLCustomHandler(TscXMLProvider* aProvider, std::string aObjectClass, std::string aSectionName)
    : TscCustomHandler(aProvider), fObjectClass(std::move(aObjectClass)), fSectionName(std::move(aSectionName)) {}

TscXMLProvider& TscXMLCustomHandler::XMLProvider() const { return *static_cast<TscXMLProvider*>(fProvider); }

std::string TscXMLCustomHandler::GetReplaceStorageName(std::string_view aProperty) const {
    if (XMLProvider().FirstVersion())
        for (const auto& [property, attribute] : fOldNames)
            if (property == aProperty) return attribute;
    return std::string(aProperty);
}

std::string TscXMLCustomHandler::GetReplacePropertyName(std::string_view aStorage) const {
    if (XMLProvider().FirstVersion())
        for (const auto& [property, attribute] : fOldNames)
            if (attribute == aStorage) return property;
    return std::string(aStorage);
}

bool TscXMLCustomHandler::IsItemElement(std::string_view aName, const TscObjects& aObjects) const {
    const std::string expected = aObjects.ObjectClass().rfind("Tsc", 0) == 0 ? aObjects.ObjectClass().substr(3) : aObjects.ObjectClass();
    return SameText(aName, expected);
}

void TscXMLCustomHandler::Load(TscObjects& aObjects) {
    const std::string section = fSectionName.empty() ? aObjects.GetStorageName() : fSectionName;
    if (xmlNode* node = XMLProvider().Section(section, false)) LoadFrom(node, aObjects, nullptr);
}

void TscXMLCustomHandler::LoadFrom(xmlNode* aParent, TscObjects& aObjects, TscObject* aTarget) {
    for (xmlNode* c = aParent->children; c; c = c->next) {
        if (c->type != XML_ELEMENT_NODE || !IsItemElement(NameOf(c), aObjects)) continue;
        std::unique_ptr<TscObject> o = aObjects.GetNewTemplate();
        o->SetObjectMode(fProvider->ObjectMode());
        ReadXmlProperties(c, *o);
        if (aTarget && o->PropertyExist("TableID") && o->GetPropertyValueByName("TableID").AsString().empty())
            o->SetPropertyValueByName("TableID", aTarget->KeyValue());
        o->ActivateHandlerObject(this);
        aObjects.Add(std::move(o));
    }
}

void TscXMLCustomHandler::ReadXmlProperties(xmlNode* aElement, TscObject& aObject) {
    for (const TcsPropertyInfo& p : aObject.PropertyTable().All()) {
        if (!p.fSet || p.fKind == TcsPropertyKind::Object || aObject.NotWriteProperty(p.fName) || OwnProperty(p.fName)) continue;
        const std::string storage = GetReplaceStorageName(p.fName);
        if (p.fName == "Glyph") {
            if (xmlNode* blob = ChildElement(aElement, storage, true)) p.fSet(aObject, TcsVariant(Base64Decode(ContentOf(blob))));
            continue;
        }
        if (xmlAttr* a = xmlHasProp(aElement, X(storage.c_str()))) p.fSet(aObject, PropertyValueFromText(p, AttributeText(a)));
    }
    if (xmlNode* group = ChildElement(aElement, "ExtendedProperties")) {
        TscExtendedProperties& list = aObject.ExtendedProperties();
        for (xmlNode* c = group->children; c; c = c->next) {
            if (c->type != XML_ELEMENT_NODE || NameOf(c) != "ExtendedProperty") continue;
            std::unique_ptr<TscObject> e = list.GetNewTemplate();
            TscXMLCustomHandler::ReadXmlProperties(c, *e);
            list.Add(std::move(e));
        }
    }
}

void TscXMLCustomHandler::WriteXmlProperties(xmlNode* aElement, const TscObject& aObject) {
    for (const TcsPropertyInfo& p : aObject.PropertyTable().All()) {
        if (!p.fGet || p.fKind == TcsPropertyKind::Object || aObject.NotWriteProperty(p.fName) || OwnProperty(p.fName)) continue;
        const TcsVariant v = p.fGet(aObject);
        if (p.fName == "Glyph") {
            if (!v.AsString().empty()) xmlNewTextChild(aElement, nullptr, X("Glyph"), X(Base64Encode(v.AsString()).c_str()));
            continue;
        }
        const std::string text = ValueText(p, v);
        if (!text.empty()) xmlNewProp(aElement, X(GetReplaceStorageName(p.fName).c_str()), X(text.c_str()));
    }
    auto& object = const_cast<TscObject&>(aObject);
    if (object.HasExtendedProperties()) {
        xmlNode* group = xmlNewChild(aElement, nullptr, X("ExtendedProperties"), nullptr);
        for (TscObject* e : object.ExtendedProperties().Objects())
            TscXMLCustomHandler::WriteXmlProperties(xmlNewChild(group, nullptr, X("ExtendedProperty"), nullptr), *e);
    }
}

void TscXMLCustomHandler::Save(TscObjects& aObjects) {
    const std::string section = fSectionName.empty() ? aObjects.GetStorageName() : fSectionName;
    xmlNode* node = XMLProvider().Section(section, true);
    for (TscObject* o : aObjects.Objects()) {
        if (o->ObjectMode() != fProvider->ObjectMode()) continue;
        WriteXmlProperties(xmlNewChild(node, nullptr, X(o->GetStorageName().c_str()), nullptr), *o);
    }
}

TscXMLTableHandler::TscXMLTableHandler(TscXMLProvider* aProvider) : TscXMLCustomHandler(aProvider, "TscTable", "tables") {
    fOldNames = {{"Title", "Name"}, {"Remarka", "comment"}, {"Glyph", "tableglyph"}, {"AspectID", "aspect_id"}};
}

void TscXMLTableHandler::LoadFrom(xmlNode* aParent, TscObjects& aObjects, TscObject* aTarget) {
    if (!XMLProvider().FirstVersion()) {
        TscXMLCustomHandler::LoadFrom(aParent, aObjects, aTarget);
        return;
    }
    // First-version tables hold their fields and indices, and name their outer source.
    auto* schema = dynamic_cast<TscSchema*>(aObjects.Schema());
    for (xmlNode* c = aParent->children; c; c = c->next) {
        if (c->type != XML_ELEMENT_NODE || !IsItemElement(NameOf(c), aObjects)) continue;
        std::unique_ptr<TscObject> o = aObjects.GetNewTemplate();
        o->SetObjectMode(fProvider->ObjectMode());
        ReadXmlProperties(c, *o);
        auto* table = static_cast<TscTable*>(o.get());
        if (xmlAttr* outer = xmlHasProp(c, X("outer"))) {
            int64_t n = 0;
            const std::string text = Trim(AttributeText(outer));
            table->SetOuter(!text.empty() && (!TryStrToInt(text, n) || n != 0));
        }
        if (xmlAttr* source = xmlHasProp(c, X("outersource"))) table->SetOuterSourceName(AttributeText(source));
        o->ActivateHandlerObject(this);
        aObjects.Add(std::move(o));
        if (!schema) continue;
        if (table->Outer() && !table->OuterSourceName().empty()) schema->FindOrCreateOuterSource(table->OuterSourceName());
        for (const char* kind : {"TscField", "TscIndex"})
            if (auto* h = dynamic_cast<TscXMLCustomHandler*>(fProvider->GetHandlerByObjectClass(kind)))
                h->LoadFrom(c, *schema->GetRootObjectsByObjectClass(kind), table);
    }
}

TscXMLFieldHandler::TscXMLFieldHandler(TscXMLProvider* aProvider) : TscXMLCustomHandler(aProvider, "TscField", "fields") {
    fOldNames = {{"Title", "Name"},       {"Remarka", "comment"},  {"Glyph", "fieldglyph"},
                 {"TableID", "table_id"}, {"FieldModeID", "fieldmode"}};
}

void TscXMLFieldHandler::Load(TscObjects& aObjects) {
    if (!XMLProvider().FirstVersion()) TscXMLCustomHandler::Load(aObjects);  // else read inside the tables
}

bool TscXMLFieldHandler::IsItemElement(std::string_view aName, const TscObjects& aObjects) const {
    return XMLProvider().FirstVersion() ? aName == "field" : TscXMLCustomHandler::IsItemElement(aName, aObjects);
}

TscXMLFieldModeHandler::TscXMLFieldModeHandler(TscXMLProvider* aProvider)
    : TscXMLCustomHandler(aProvider, "TscFieldMode", "fieldmodes") {
    fOldNames = {{"Represent", "represent"}, {"BaseName", "name"}, {"Title", "displaylabel"}};
}

TscXMLRelationHandler::TscXMLRelationHandler(TscXMLProvider* aProvider)
    : TscXMLCustomHandler(aProvider, "TscRelation", "relations") {
    fOldNames = {{"Title", "Name"},         {"RelationType", "type"},           {"ParentFieldID", "parent"},
                 {"ChildFieldID", "child"}, {"ModuleID", "module"},             {"QueryID", "query"},
                 {"FormID", "dynamicform"}, {"ChildDisplayFieldID", "childdisplay"}, {"ParentDisplayFieldID", "parentdisplay"}};
}

TscXMLIndexHandler::TscXMLIndexHandler(TscXMLProvider* aProvider) : TscXMLCustomHandler(aProvider, "TscIndex", "Indices") {}

void TscXMLIndexHandler::Load(TscObjects& aObjects) {
    if (!XMLProvider().FirstVersion()) TscXMLCustomHandler::Load(aObjects);  // else read inside the tables
}

bool TscXMLIndexHandler::OwnProperty(std::string_view aProperty) const { return aProperty == "IndexType"; }

void TscXMLIndexHandler::ReadXmlProperties(xmlNode* aElement, TscObject& aObject) {
    TscXMLCustomHandler::ReadXmlProperties(aElement, aObject);
    auto& index = static_cast<TscIndex&>(aObject);
    if (xmlAttr* a = xmlHasProp(aElement, X("type"))) {
        const std::string text = Trim(AttributeText(a));
        for (size_t n = 0; n < 4; ++n)
            if (XMLProvider().FirstVersion() ? SameText(text, kIndexTypes[n]) : text == kIndexTypes[n])
                index.SetIndexType(static_cast<TscIndexType>(n));
    }
    const std::vector<std::string>& orders = EnumNames("TscSortOrder");
    for (xmlNode* c = aElement->children; c; c = c->next) {
        if (c->type != XML_ELEMENT_NODE || NameOf(c) != "fld") continue;
        TcsVariant id;
        if (xmlAttr* a = xmlHasProp(c, X("id"))) {
            int64_t n = 0;
            const std::string text = AttributeText(a);
            id = TryStrToInt(Trim(text), n) ? TcsVariant(n) : TcsVariant(text);
        }
        TscSortOrder order = soAscending;
        if (xmlAttr* a = xmlHasProp(c, X("order")))
            for (size_t n = 0; n < orders.size(); ++n)
                if (SameText(orders[n], Trim(AttributeText(a)))) order = static_cast<TscSortOrder>(n);
        index.AddIndexField(id, order);
    }
}

void TscXMLIndexHandler::WriteXmlProperties(xmlNode* aElement, const TscObject& aObject) {
    TscXMLCustomHandler::WriteXmlProperties(aElement, aObject);
    const auto& index = static_cast<const TscIndex&>(aObject);
    const int type = static_cast<int>(index.IndexType());
    if (type >= 0 && type < 4) xmlNewProp(aElement, X("type"), X(kIndexTypes[type]));
    const std::vector<std::string>& orders = EnumNames("TscSortOrder");
    for (const TscIndexField& f : index.IndexFields()) {
        xmlNode* fld = xmlNewChild(aElement, nullptr, X("fld"), nullptr);
        xmlNewProp(fld, X("id"), X(f.FieldID.AsString().c_str()));
        xmlNewProp(fld, X("order"), X(orders[static_cast<size_t>(f.Order)].c_str()));
    }
}

namespace {

// A group of sub-objects inside an object's element: "KlassElements" of "KlassElement".
void ReadGroup(TscXMLCustomHandler& aHandler, xmlNode* aElement, const char* aGroup, const char* aItem, TscObjects& aList) {
    xmlNode* group = ChildElement(aElement, aGroup);
    if (!group) return;
    for (xmlNode* c = group->children; c; c = c->next) {
        if (c->type != XML_ELEMENT_NODE || NameOf(c) != aItem) continue;
        std::unique_ptr<TscObject> o = aList.GetNewTemplate();
        aHandler.TscXMLCustomHandler::ReadXmlProperties(c, *o);
        aList.Add(std::move(o));
    }
}

void WriteGroup(TscXMLCustomHandler& aHandler, xmlNode* aElement, const char* aGroup, const char* aItem, TscObjects& aList) {
    if (aList.Count() == 0) return;
    xmlNode* group = xmlNewChild(aElement, nullptr, X(aGroup), nullptr);
    for (TscObject* o : aList.Objects())
        aHandler.TscXMLCustomHandler::WriteXmlProperties(xmlNewChild(group, nullptr, X(aItem), nullptr), *o);
}

}  // namespace

void TscXMLKlassHandler::ReadXmlProperties(xmlNode* aElement, TscObject& aObject) {
    TscXMLCustomHandler::ReadXmlProperties(aElement, aObject);
    ReadGroup(*this, aElement, "KlassElements", "KlassElement", static_cast<TscKlass&>(aObject).KlassElements());
}

void TscXMLKlassHandler::WriteXmlProperties(xmlNode* aElement, const TscObject& aObject) {
    TscXMLCustomHandler::WriteXmlProperties(aElement, aObject);
    WriteGroup(*this, aElement, "KlassElements", "KlassElement", const_cast<TscKlass&>(static_cast<const TscKlass&>(aObject)).KlassElements());
}

void TscXMLOuterSourceHandler::ReadXmlProperties(xmlNode* aElement, TscObject& aObject) {
    TscXMLCustomHandler::ReadXmlProperties(aElement, aObject);
    ReadGroup(*this, aElement, "OuterGraphSchemas", "OuterGraphSchema", static_cast<TscOuterDataSource&>(aObject).OuterGraphSchemas());
}

void TscXMLOuterSourceHandler::WriteXmlProperties(xmlNode* aElement, const TscObject& aObject) {
    TscXMLCustomHandler::WriteXmlProperties(aElement, aObject);
    WriteGroup(*this, aElement, "OuterGraphSchemas", "OuterGraphSchema",
               const_cast<TscOuterDataSource&>(static_cast<const TscOuterDataSource&>(aObject)).OuterGraphSchemas());
}

namespace {

struct TscCoordSystemGroup {
    const char* Written;
    const char* Item;
    const char* Read;
};

const TscCoordSystemGroup kCoordSystemGroups[] = {
    {"MapinfoCoordsystems", "MapinfoCoordsystem", "MapinfoCoordSystems"},
    {"GeomediaCordsystems", "GeomediaCordsystem", "GeomediaCoordsystems"},
    {"WKTCordsystems", "WKTCordsystem", "WKTCoordSystems"},
    {"CordsystemSets", "CordsystemSet", "CoordSystemSets"},
};

std::vector<TscObjects*> GroupLists(TscCoordSystems& aList) {
    return {&aList.MapinfoCoordSystems(), &aList.GeomediaCoordSystems(), &aList.WKTCoordSystems(), &aList.CoordSysSet()};
}

bool FlagOf(xmlNode* aSection, const char* aName) {
    xmlAttr* a = xmlHasProp(aSection, X(aName));
    bool value = false;
    return a && TryStrToBool(Trim(AttributeText(a)), value) && value;
}

}  // namespace

void TscXMLCoordSystemHandler::Load(TscObjects& aObjects) {
    auto* list = dynamic_cast<TscCoordSystems*>(&aObjects);
    xmlNode* section = XMLProvider().Section(SectionName(), false);
    if (!list || !section) return;
    list->SetMapinfoSupport(FlagOf(section, "MapinfoSupport"));
    list->SetGeomediaSupport(FlagOf(section, "GeomediaSupport"));
    const std::vector<TscObjects*> lists = GroupLists(*list);
    for (size_t i = 0; i < lists.size(); ++i)
        ReadGroup(*this, section, kCoordSystemGroups[i].Read, kCoordSystemGroups[i].Item, *lists[i]);
    LoadFrom(section, aObjects, nullptr);
}

void TscXMLCoordSystemHandler::Save(TscObjects& aObjects) {
    auto* list = dynamic_cast<TscCoordSystems*>(&aObjects);
    if (!list) return;
    xmlNode* section = XMLProvider().Section(SectionName(), true);
    xmlNewProp(section, X("MapinfoSupport"), X(list->MapinfoSupport() ? "True" : "False"));
    xmlNewProp(section, X("GeomediaSupport"), X(list->GeomediaSupport() ? "True" : "False"));
    const std::vector<TscObjects*> lists = GroupLists(*list);
    for (size_t i = 0; i < lists.size(); ++i)
        WriteGroup(*this, section, kCoordSystemGroups[i].Written, kCoordSystemGroups[i].Item, *lists[i]);
    for (TscObject* o : aObjects.Objects())
        if (o->ObjectMode() == fProvider->ObjectMode())
            WriteXmlProperties(xmlNewChild(section, nullptr, X(o->GetStorageName().c_str()), nullptr), *o);
}

// ---------------------------------------------------------------------------------------------
// Provider

TscXMLProvider::TscXMLProvider(TscCustomSchema* aSchema)
    : TscFileCustomProvider(aSchema), fDefaultHandler(std::make_unique<TscXMLDefaultHandler>(this)) {
    AddHandler(std::make_unique<TscXMLTableHandler>(this));
    AddHandler(std::make_unique<TscXMLFieldHandler>(this));
    AddHandler(std::make_unique<TscXMLFieldModeHandler>(this));
    AddHandler(std::make_unique<TscXMLRelationHandler>(this));
    AddHandler(std::make_unique<TscXMLIndexHandler>(this));
    AddHandler(std::make_unique<TscXMLCustomHandler>(this, "TscSetting", "Settings"));
    AddHandler(std::make_unique<TscXMLOuterSourceHandler>(this));
    AddHandler(std::make_unique<TscXMLKlassHandler>(this));
    AddHandler(std::make_unique<TscXMLCustomHandler>(this, "TscGraphSchema", "GraphSchemas"));
    AddHandler(std::make_unique<TscXMLCustomHandler>(this, "TscUser", "users"));
    AddHandler(std::make_unique<TscXMLCustomHandler>(this, "TscRole", "Roles"));
    AddHandler(std::make_unique<TscXMLCoordSystemHandler>(this));
}

TscXMLProvider::~TscXMLProvider() { FreeDocument(); }

void TscXMLProvider::FreeDocument() {
    if (fDoc) xmlFreeDoc(fDoc);
    fDoc = nullptr;
    fRoot = nullptr;
}

void TscXMLProvider::NewDocument() {
    FreeDocument();
    fDoc = xmlNewDoc(X("1.0"));
    xmlAddChild(reinterpret_cast<xmlNode*>(fDoc),
                xmlNewDocComment(fDoc, X((std::string("Source version schema class: ") + kVersion).c_str())));
    fRoot = xmlNewDocNode(fDoc, nullptr, X("schema"), nullptr);
    xmlAddChild(reinterpret_cast<xmlNode*>(fDoc), fRoot);
}

void TscXMLProvider::Open() {
    fFirstVersion = false;
    std::string name = Trim(GetConnectParametr("FileName"));
    if (name.size() >= 2 && (name.front() == '"' || name.front() == '\'') && name.back() == name.front())
        name = name.substr(1, name.size() - 2);
    if (const size_t at = name.find("%s"); at != std::string::npos && fSchema) name.replace(at, 2, fSchema->PrefixName());
    if (fSchema) fSchema->Debug().Print("Файл схемы " + name);
    std::error_code ec;
    if (!std::filesystem::exists(name, ec)) {
        NewDocument();
    } else {
        FreeDocument();
        xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
        if (!ctxt) throw EscSchemaException("Ошибка чтения файла схемы \"" + name + "\": нет памяти для разбора");
        // No network, no external entities; the parser's report comes back in the exception.
        xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr) {});
        xmlSetGenericErrorFunc(nullptr, SilentGeneric);
        xmlDoc* doc = xmlCtxtReadFile(ctxt, name.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_NOBLANKS);
        std::string report;
        if (!doc) {
            const xmlError* e = xmlCtxtGetLastError(ctxt);
            report = "строка " + std::to_string(e ? e->line : 0) + ": " + Trim(e && e->message ? e->message : "ошибка разбора");
        }
        xmlFreeParserCtxt(ctxt);
        xmlSetStructuredErrorFunc(nullptr, nullptr);
        xmlSetGenericErrorFunc(nullptr, nullptr);
        if (!doc) throw EscSchemaException("Ошибка чтения файла схемы \"" + name + "\": " + report);
        xmlNode* root = xmlDocGetRootElement(doc);
        if (!root || NameOf(root) != "schema") {
            const std::string found = NameOf(root);
            xmlFreeDoc(doc);
            throw EscSchemaException("Файл \"" + name + "\" не является схемой: корневой элемент \"" + found + "\", строка " +
                                     std::to_string(root ? xmlGetLineNo(root) : 0));
        }
        fDoc = doc;
        fRoot = root;
        for (xmlNode* n = doc->children; n; n = n->next) {
            if (n->type == XML_COMMENT_NODE) {
                if (UpperAscii(ContentOf(n)).find("TMMANAGER") != std::string::npos) {
                    fFirstVersion = true;
                    break;
                }
            } else {
                fFirstVersion = false;
            }
        }
    }
    if (fFirstVersion && fSchema) fSchema->Debug().Print("Схема сохранена в первой версии");
    fFileName = name;
    fActive = true;
    for (int i = 0; i < HandlersCount(); ++i) GetHandlerByIndex(i)->CloseCache();
}

void TscXMLProvider::Close() {
    FreeDocument();
    fActive = false;
}

xmlNode* TscXMLProvider::Section(std::string_view aName, bool aCreate) {
    if (!fRoot) return nullptr;
    if (xmlNode* s = ChildElement(fRoot, aName)) return s;
    return aCreate ? xmlNewChild(fRoot, nullptr, X(std::string(aName).c_str()), nullptr) : nullptr;
}

TscCustomHandler* TscXMLProvider::GetHandlerByObjects(const TscObjects& aObjects) const {
    if (aObjects.ClassName() == "TscProviders") return nullptr;
    return TscFileCustomProvider::GetHandlerByObjects(aObjects);
}

void TscXMLProvider::SaveSchema(TscCustomSchema& aSchema) {
    // Always the current layout: a save upgrades a first-version file.
    NewDocument();
    fFirstVersion = false;
    for (const auto& list : aSchema.ROOTObjects()) {
        TscCustomHandler* h = GetHandlerByObjects(*list);
        if (!h) continue;
        aSchema.Debug().Print("Сохранение " + list->ClassName());
        h->Save(*list);
    }
}

void TscXMLProvider::Commit() {
    if (!fDoc || fFileName.empty()) return;
    const std::string temporary = fFileName + ".tmp" + std::to_string(::getpid());
    if (xmlSaveFormatFileEnc(temporary.c_str(), fDoc, "cp1251", 1) < 0) {
        std::remove(temporary.c_str());
        throw EscSchemaException("Не удалось записать файл схемы \"" + fFileName + "\"");
    }
    std::error_code ec;
    std::filesystem::rename(temporary, fFileName, ec);
    if (ec) {
        std::remove(temporary.c_str());
        throw EscSchemaException("Не удалось заменить файл схемы \"" + fFileName + "\": " + ec.message());
    }
}

void RegisterXMLProvider() {
    static const bool done = [] {
        TscProviderLink link;
        link.ProviderName = "scXMLProvider";
        link.VisibleName = "XML файл (структура схемы)";
        link.Create = [](TscCustomSchema* s) -> std::unique_ptr<TscCustomProvider> { return std::make_unique<TscXMLProvider>(s); };
        for (const char* h : {"TscXMLTableHandler", "TscXMLFieldHandler", "TscXMLFieldModeHandler", "TscXMLRelationHandler",
                              "TscXMLIndexHandler", "TscXMLSettingHandler", "TscXMLOuterSourceHandler", "TscXMLKlassHandler",
                              "TscXMLGraphSchemaHandler", "TscXMLUserHandler", "TscXMLCoordSystemHandler", "TscXMLRuleHandler"})
            link.RegisterHandler(h);
        ProviderManager().RegisterProvider(std::move(link));
        return true;
    }();
    (void)done;
}

namespace {
const bool kRegistered = (RegisterXMLProvider(), true);
}

}  // namespace tmi
