// A whole schema in one XML file: a section element per root list, an element per object,
// the published properties as attributes. Reads the older first-version layout too; always
// writes the current one, in cp1251, replacing the file only once the new one is complete.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "scSchema.h"

struct _xmlDoc;
struct _xmlNode;

namespace tmi {

class TscXMLProvider;

// Loads and saves one class of objects: the section it uses, and the exceptions to the
// general mapping of properties to attributes.
class TscXMLCustomHandler : public TscCustomHandler {
public:
    TscXMLCustomHandler(TscXMLProvider* aProvider, std::string aObjectClass, std::string aSectionName);
    [[nodiscard]] std::string GetObjectClass() const override { return fObjectClass; }
    [[nodiscard]] std::string SectionName() const override { return fSectionName; }
    [[nodiscard]] std::string GetReplaceStorageName(std::string_view aProperty) const override;
    [[nodiscard]] std::string GetReplacePropertyName(std::string_view aStorage) const override;
    void Load(TscObjects& aObjects) override;
    void Save(TscObjects& aObjects) override;
    void CloseCache() override { fSection = nullptr; }

    // The objects of the element's children into the list (the element is a section, or a
    // table element of a first-version file).
    virtual void LoadFrom(_xmlNode* aParent, TscObjects& aObjects, TscObject* aTarget);
    virtual void ReadXmlProperties(_xmlNode* aElement, TscObject& aObject);
    virtual void WriteXmlProperties(_xmlNode* aElement, const TscObject& aObject);
    // A property this handler reads and writes in a way of its own.
    [[nodiscard]] virtual bool OwnProperty(std::string_view aProperty) const { (void)aProperty; return false; }
    // The element name of the objects in a section of this mode.
    [[nodiscard]] virtual bool IsItemElement(std::string_view aName, const TscObjects& aObjects) const;

protected:
    [[nodiscard]] TscXMLProvider& XMLProvider() const;
    // First-version attribute names: property, attribute.
    std::vector<std::pair<std::string, std::string>> fOldNames;

private:
    std::string fObjectClass;
    std::string fSectionName;
    _xmlNode* fSection = nullptr;
};

class TscXMLDefaultHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLDefaultHandler(TscXMLProvider* aProvider) : TscXMLCustomHandler(aProvider, "", "") {}
};

class TscXMLTableHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLTableHandler(TscXMLProvider* aProvider);
    void LoadFrom(_xmlNode* aParent, TscObjects& aObjects, TscObject* aTarget) override;
};

class TscXMLFieldHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLFieldHandler(TscXMLProvider* aProvider);
    void Load(TscObjects& aObjects) override;
    [[nodiscard]] bool IsItemElement(std::string_view aName, const TscObjects& aObjects) const override;
};

class TscXMLFieldModeHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLFieldModeHandler(TscXMLProvider* aProvider);
};

class TscXMLRelationHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLRelationHandler(TscXMLProvider* aProvider);
};

class TscXMLIndexHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLIndexHandler(TscXMLProvider* aProvider);
    void Load(TscObjects& aObjects) override;
    void ReadXmlProperties(_xmlNode* aElement, TscObject& aObject) override;
    void WriteXmlProperties(_xmlNode* aElement, const TscObject& aObject) override;
    [[nodiscard]] bool OwnProperty(std::string_view aProperty) const override;
};

class TscXMLKlassHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLKlassHandler(TscXMLProvider* aProvider) : TscXMLCustomHandler(aProvider, "TscKlass", "Klasses") {}
    void ReadXmlProperties(_xmlNode* aElement, TscObject& aObject) override;
    void WriteXmlProperties(_xmlNode* aElement, const TscObject& aObject) override;
};

class TscXMLOuterSourceHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLOuterSourceHandler(TscXMLProvider* aProvider)
        : TscXMLCustomHandler(aProvider, "TscOuterDataSource", "OuterSource") {}
    void ReadXmlProperties(_xmlNode* aElement, TscObject& aObject) override;
    void WriteXmlProperties(_xmlNode* aElement, const TscObject& aObject) override;
};

// Coordinate systems: the support flags on the section, a group per system kind and for the
// sets, then the links. The groups are written and read under different spellings, so a
// file's systems and sets are not read back (its links and flags are).
class TscXMLCoordSystemHandler : public TscXMLCustomHandler {
public:
    explicit TscXMLCoordSystemHandler(TscXMLProvider* aProvider)
        : TscXMLCustomHandler(aProvider, "TscTableCoordSystem", "CoordSystems") {}
    void Load(TscObjects& aObjects) override;
    void Save(TscObjects& aObjects) override;
};

// The schema file provider: "scXMLProvider", connection parameter "FileName" ("%s" in it is
// the schema's prefix name).
class TscXMLProvider : public TscFileCustomProvider {
public:
    explicit TscXMLProvider(TscCustomSchema* aSchema);
    ~TscXMLProvider() override;

    [[nodiscard]] std::string GetProviderName() const override { return "scXMLProvider"; }
    [[nodiscard]] std::string GetVisibleProviderName() const override { return "XML файл (структура схемы)"; }
    [[nodiscard]] std::string GetProviderFileExt() const override { return "xml"; }
    [[nodiscard]] std::string GetProviderFileExtFilter() const override { return "Файлы схемы|*.xml"; }

    // Parses the file (a missing file gives an empty document); raises EscSchemaException
    // with the file name and the parser's line for a file that is not a schema.
    void Open() override;
    void Close() override;
    void SaveSchema(TscCustomSchema& aSchema) override;
    // Writes the document: to a file beside the target, renamed over it when complete.
    void Commit() override;
    [[nodiscard]] TscCustomHandler* DefaultHandler() const override { return fDefaultHandler.get(); }
    // The provider list holds no schema objects: no handler, no section.
    [[nodiscard]] TscCustomHandler* GetHandlerByObjects(const TscObjects& aObjects) const override;

    [[nodiscard]] bool FirstVersion() const noexcept { return fFirstVersion; }
    [[nodiscard]] const std::string& FileName() const noexcept { return fFileName; }
    [[nodiscard]] _xmlNode* RootNode() const noexcept { return fRoot; }
    // The section element of a handler under the root; made when aCreate.
    _xmlNode* Section(std::string_view aName, bool aCreate);

    static constexpr const char* kVersion = "0.7";

private:
    void NewDocument();
    void FreeDocument();

    _xmlDoc* fDoc = nullptr;
    _xmlNode* fRoot = nullptr;
    std::unique_ptr<TscXMLDefaultHandler> fDefaultHandler;
    bool fFirstVersion = false;
    std::string fFileName;
};

// Registers the schema file provider with the provider manager (once).
void RegisterXMLProvider();

// Bytes as base64 text and back (characters outside the alphabet are skipped).
std::string Base64Encode(std::string_view aBytes);
std::string Base64Decode(std::string_view aText);

}  // namespace tmi
