// The document pass: what kind of extract this is, the optional extremes pass, the tables,
// the dispatch of the root's children to the readers, and the system tables.
#include <algorithm>

#include "libImportXML.h"

namespace tmi {

namespace {

// Names of the dispatch tables compare without regard to case, over the whole name.
bool Is(std::string_view aName, std::string_view aLiteral) { return SameText(aName, aLiteral); }

std::string UpperCase(std::string_view aText) {
    std::string out(aText);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    return out;
}

}  // namespace

std::string_view LocalNameOf(xml::PXMLNode aNode) {
    const std::string_view name = aNode->NodeName();
    const size_t colon = name.find(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

void TlibImportXML::RecogniseDocument(xml::PXMLNode aRoot) {
    const std::string_view local = LocalNameOf(aRoot);
    const std::string codeType(aRoot->GetAttribute("CodeType"));
    const std::string version(aRoot->GetAttribute("Version"));
    const std::string xmlns = UpperCase(aRoot->GetAttribute("xmlns"));
    if (!codeType.empty()) {
        int64_t code = 0;
        if (!TryStrToInt(codeType, code) || code < INT32_MIN || code > INT32_MAX)
            throw Exception("'" + codeType + "' is not a valid integer value");
        XMLeDoc.SchemaType = static_cast<int32_t>(code);
        XMLeDoc.DocVer = version;
        XMLeDoc.DocStyle = 0;
    } else {
        XMLeDoc.SchemaType = 0;
        XMLeDoc.DocVer.clear();
        XMLeDoc.DocStyle = 1;
        const bool kpt = Is(local, "KPT"), kvzu = Is(local, "KVZU"), kpzu = Is(local, "KPZU");
        if ((kpt || kvzu || kpzu) && !xmlns.empty()) {
            const std::string upper = UpperCase(local);
            const size_t at = xmlns.find(upper);
            if (at != std::string::npos) {
                // Behind the name and its separator, up to the first ".": "/kpt/10.0.1" gives "10".
                std::string version2 = at + upper.size() + 1 <= xmlns.size() ? xmlns.substr(at + upper.size() + 1) : "";
                version2 = version2.substr(0, version2.find('.'));
                if (version2.size() < 2) version2 = "0" + version2;
                XMLeDoc.DocVer = version2;
            }
            XMLeDoc.SchemaType = kpt ? 1 : (kvzu ? 2 : 3);
        }
    }
    struct NewFamily {
        const char* fRoot;
        int32_t fSchemaType;
        const char* fDocVer;  // nullptr: unchanged
    };
    static constexpr NewFamily kNewFamily[] = {
        {"extract_cadastral_plan_territory", 1, "11"}, {"extract_about_property_land", 2, "08"},
        {"extract_about_zone", 2, "08"},              {"extract_base_params_land", 2, "01"},
        {"extract_about_property_construction", 3, "01"}, {"interact_entry_boundaries", 6, nullptr}};
    for (const NewFamily& f : kNewFamily) {
        if (!Is(local, f.fRoot)) continue;
        XMLeDoc.SchemaType = f.fSchemaType;
        if (f.fDocVer) XMLeDoc.DocVer = f.fDocVer;
        XMLeDoc.DocStyle = 1;
    }
    rootnm = std::string(local);
}

bool TlibImportXML::KnownDocumentKind() const {
    return XMLeDoc.SchemaType != 0 || XMLeDoc.DocStyle == 0 || Is(rootnm, "KPT") || Is(rootnm, "KVZU") || Is(rootnm, "KPZU");
}

void TlibImportXML::WidenExtremes(double& aMin, double& aMax) {
    // The minimum is widened and stored first; the maximum then widens by the stored
    // minimum, so the result is not symmetric. The products are taken in extended precision.
    aMin = static_cast<double>(aMin - (static_cast<long double>(aMax) - aMin) * 0.05L);
    aMax = static_cast<double>(aMax + (static_cast<long double>(aMax) - aMin) * 0.05L);
}

void TlibImportXML::ScanExtremes(xml::PXMLNode aRoot) {
    RewriteXML = false;
    fDoc_Name.clear();
    // Names as they stand in the file, prefix included.
    for (xml::PXMLNode child = aRoot->FirstChild(); child; child = child->NextSibling()) {
        if (child->NodeType() != xml::ntElement) continue;
        const std::string_view name = child->NodeName();
        if (Is(name, "Package")) {
            ReadPackage(child);
            if (DoAbort) break;
        } else if (Is(name, "CadastralBlocks") || Is(name, "Parcels")) {
            ReadRegionLevel(child);
        } else if (Is(name, "land_record")) {
            ReadLandRecord(child);
        } else if (Is(name, "cadastral_blocks")) {
            ReadCadastralBlocks(child);
        }
    }
}

bool TlibImportXML::ProcessDocument(xml::PXMLNode aRoot) {
    // The extremes, widened by 5% on each side.
    if (chkBounds) {
        SetProgressText("Считаем экстремумы");
        qvRect = TtmRect{};
        ScanExtremes(aRoot);
        WidenExtremes(xmin, xmax);
        WidenExtremes(ymin, ymax);
        csXmin = xmin;
        csYmin = ymin;
        csXmax = xmax;
        csYmax = ymax;
    }
    // All thirteen tables, whatever the document.
    SetProgressText("Создаем таблицы");
    CreateGMTables();
    // The filling pass.
    SetProgressText("Заполнение узла " + std::string(aRoot->NodeName()));
    RewriteXML = true;
    fDoc_Name.clear();
    fStateXML.clear();
    XMLeDoc.DocStyle = 1;
    // What kind of document this is.
    RecogniseDocument(aRoot);
    // First walk: the certifying document and the status.
    for (xml::PXMLNode child = aRoot->FirstChild(); child; child = child->NextSibling()) {
        if (child->NodeType() != xml::ntElement) continue;
        const std::string_view local = LocalNameOf(child);
        if (Is(local, "CertificationDoc")) {
            ReadCertificationDoc(child);
        } else if (Is(local, "status")) {
            const std::string text = child->Text();
            const size_t at = text.find("статус");
            fStateXML = at == std::string::npos ? text : text.substr(at);
        }
        if (Cancelled()) return true;
    }
    // Second walk: the readers.
    for (xml::PXMLNode child = aRoot->FirstChild(); child; child = child->NextSibling()) {
        if (child->NodeType() != xml::ntElement) continue;
        const std::string_view local = LocalNameOf(child);
        if (Is(local, "eDocument")) {
            fCode_Type = ReadEDocument(child);
            if (fCode_Type == 14 || fCode_Type == 101 || fCode_Type == 114) {
                fDoc_Name = "Кадастровый план территории";
            } else {
                fImpError = kImpErrorForbiddenDocument;
                break;
            }
        } else if (Is(local, "Package")) {
            ReadPackage(child);
        } else if (Is(local, "CadastralBlocks") || Is(local, "Parcels")) {
            ReadRegionLevel(child);
        } else if (Is(local, "Parcel")) {
            ReadParcel(child, "Parcel");
        } else if (Is(local, "details_statement")) {
            ReadDetailsStatement(child);
        } else if (Is(local, "land_record")) {
            ReadLandRecord(child);
        } else if (Is(local, "cadastral_blocks")) {
            ReadCadastralBlocks(child);
        } else if (Is(local, "construction_record")) {
            ReadConstructionExtract(child);
        } else if (Is(local, "zone_territory_coastline_surveying")) {
            ReadZoneTerritorySurveying(child);
        } else if (Is(local, "information_registry_boundaries")) {
            ReadRegistryBoundaries(child);
        }
        if (Cancelled()) return true;
    }
    // Special zones.
    OpenGMTable("Спецзоны");
    for (const std::string& name : XMLSpecZones) {
        NewGMRecord(false, 0);
        SetGMField("Название", TcsVariant(name));
        SetGMField("iBlock", TcsVariant(XMLParcel.Block));
        PostGMRecord();
    }
    // The block number with "_" for ":", the suffix of the final tables.
    blockCn = XMLParcel.Block;
    std::replace(blockCn.begin(), blockCn.end(), ':', '_');
    // The passport: "Id" is no column of it, so the key stays 0.
    OpenGMTable("Паспорт");
    NewGMRecord(false, 0);
    SetGMField("Id", TcsVariant(1));
    const bool isKpt = (XMLeDoc.DocStyle != 0 && XMLeDoc.SchemaType == 1) || (XMLeDoc.DocStyle == 0 && fCode_Type == 101);
    SetGMField("IsKpt", TcsVariant(isKpt ? 1 : 0));
    SetGMField("iBlock", TcsVariant(XMLParcel.Block));
    SetGMField("iParcel", TcsVariant(XMLParcel.Number));
    PostGMRecord();
    // Turning points.
    if (fPoints > 0) {
        OpenGMTable("Точки");
        SetProgressText("Сохраняем данные по точкам...");
        if (FProgress) FProgress->SetMax(nPoints);
        for (int32_t i = 0; i < nPoints && i < static_cast<int32_t>(arPoints.size()); ++i) {
            const TPointDecl& p = arPoints[static_cast<size_t>(i)];
            NewGMRecord(true, 10);
            WriteGrPoint(p.x, p.y);
            SetGMField("ПорядковыйНомер", TcsVariant(std::string(arPoints.Text(p.npt))));
            if (p.hasTol) SetGMField("Погрешность", TcsVariant(p.tol));
            SetGMField("X", TcsVariant(p.x));
            SetGMField("Y", TcsVariant(p.y));
            SetGMField("iBlock", TcsVariant(XMLParcel.Block));
            SetGMField("iParcel", TcsVariant(std::string(arPoints.Text(p.knuch))));
            PostGMRecord();
            if (FProgress) FProgress->Next();
            if (Cancelled()) break;
        }
    }
    return true;
}

}  // namespace tmi
