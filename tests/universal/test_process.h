// A process of the tests: it claims documents whose root is "TestDocument" and reads each
// "Record" whole. By slots it gives a record part (slot 0 its name, slot 1 its kind, slot 2
// its area, a polygon of its points) and an owner part (slot 0 the name), or with
// UseFullSchema it walks the record with its XSD.
#pragma once

#include <string>

#include "csRosreestrXMLUniversalProcess.h"

namespace tmi::test {

class TTestRecordProcess : public TcsXMLFileUniversalProcess {
public:
    // Part types no table of the cadastre takes, so that the catch-all table receives them.
    static constexpr int kRecordPart = 101;
    static constexpr int kOwnerPart = 102;
    static const char* StaticClassName() { return "TTestRecordProcess"; }
    [[nodiscard]] std::string ClassName() const override { return StaticClassName(); }
    explicit TTestRecordProcess(TcsComponent* aOwner = nullptr) : TcsXMLFileUniversalProcess(aOwner) {}

    static bool SupportClass(const TcsXMLInfo& aInfo) { return aInfo.RootNodeName == "TestDocument"; }
    std::string GetXSDFileName() const override { return XSDName; }
    int GetAnalizeMode() const override { return 1; }
    bool NededUpdateFullInfo() const override { return NeedFull; }
    void InfoStartElement(xml::PXMLNode aNode, std::string_view aPath) override {
        if (aPath == "/TestDocument/Record") ++fRecords;
        (void)aNode;
    }
    void AfterUpdateFullInfo() override {
        TcsXMLFileUniversalProcess::AfterUpdateFullInfo();
        XmlInfo()->SetKeyValue("RECORDS", "Записей", std::to_string(fRecords));
    }
    bool ProcessXmlReadAllNode(TcsXMLProcessController&, xml::PXMLNode, std::string_view aPath) override {
        return aPath == "/TestDocument/Record";
    }
    void ProcessXmlNode(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath) override {
        if (aPath != "/TestDocument/Record") return;
        const std::string path(aPath);
        if (UseFullSchema) {
            TcsXMLProcessSessionItem* item = aController.OpenSessionItem(path, nullptr, true);
            ProcessNullLevel(aController, *item, Tolerate, "", path, aNode);
            processRelations(aController, *item, "", false, {}, path, aNode, Tolerate);
        } else {
            TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kRecordPart, nullptr, true);
            std::string value;
            if (GetValueByXpath(aNode, "Name", value, false)) item->AddValue("Name", 0, kValueText, value);
            if (GetValueByXpath(aNode, "Kind", value, false)) item->AddValue("Kind", 1, kValueText, value);
            if (GetValueByXpath(aNode, "Area", value, false)) item->AddValue("Area", 2, kValueText, value);
            if (GetValueByXpath(aNode, "@id", value, false)) item->SetValue("/TestDocument/Record/@id", kValueText, value);
            std::string ring;
            for (xml::PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling()) {
                if (c->NodeName() == "Owner") {
                    TcsXMLProcessSessionItem* owner = aController.OpenSessionItem(kOwnerPart, item, true);
                    if (GetValueByXpath(c, "FullName", value, false)) owner->AddValue("FullName", 0, kValueText, value);
                } else if (c->NodeName() == "Point") {
                    ring += (ring.empty() ? "" : ", ") + std::string(c->GetAttribute("X")) + " " + std::string(c->GetAttribute("Y"));
                    if (ring.find(',') == std::string::npos) fFirstPoint = ring;
                }
            }
            if (std::count(ring.begin(), ring.end(), ',') >= 2) item->Geometry().SetWKT("POLYGON ((" + ring + ", " + fFirstPoint + "))");
        }
        aController.CommitAllSession(false, FromFirst);
    }

    static inline std::string XSDName = "TestDocument.xsd";
    static inline bool FromFirst = true;
    static inline bool Tolerate = false;
    static inline bool NeedFull = false;

private:
    int fRecords = 0;
    std::string fFirstPoint;
};

}  // namespace tmi::test
