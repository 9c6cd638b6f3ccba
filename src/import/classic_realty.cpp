// Classic realty objects, bounds and zones of a block.
#include <array>

#include "reader_support.h"

namespace tmi {

using namespace readers;

namespace {

TXMLBound& Entry(std::vector<TXMLBound>& aList, int aNumber) {
    if (static_cast<int>(aList.size()) < aNumber) aList.resize(static_cast<size_t>(aNumber));
    return aList[static_cast<size_t>(aNumber - 1)];
}

struct KeyParameter {
    int32_t fType = 0;
    std::string fText;
    double fValue = 0;
};

}  // namespace

// The documents of a bound or a zone; a zone reads only the code, the name and the number.
static void ReadBoundDocuments(TlibImportXML& aJob, xml::PXMLNode aNode, TXMLBound& aBound, bool aZone) {
    int counter = 0;
    EACH_CHILD(d, aNode) {
        if (!Is(d, "Document")) continue;
        ++counter;
        const bool kept = counter < 6;
        EACH_CHILD(c, d) {
            if (Has(c, "Code_Document") || Has(c, "CodeDocument")) {
                std::string t = c->Text();
                int64_t tail = 0;
                if (t.size() > 3 && TryStrToInt(std::string_view(t).substr(3), tail)) {
                    t = aJob.fClassList.GetKlassString("ДокументыАИС", t);
                    if (Trim(t).empty()) t = "Иной документ";
                } else {
                    t = "Иной документ";
                }
                if (kept) aBound.DocType[static_cast<size_t>(counter - 1)] = t;
            } else if (Has(c, "Name")) {
                if (kept) aBound.DocName[static_cast<size_t>(counter - 1)] = c->Text();
            } else if (Has(c, "Number")) {
                if (kept) aBound.DocNumber[static_cast<size_t>(counter - 1)] = c->Text();
            } else if (!aZone && Has(c, "Date")) {
                if (kept) aBound.DocDate[static_cast<size_t>(counter - 1)] = TlibImportXML::ParseXmlDate(c->Text());
            } else if (!aZone && Has(c, "IssueOrgan")) {
                if (kept) aBound.DocOrgan[static_cast<size_t>(counter - 1)] = c->Text();
            }
        }
    }
}

void TlibImportXML::ReadBound(xml::PXMLNode aNode, int aNumber) {
    TXMLBound& b = Entry(XMLBound, aNumber);
    EACH_CHILD(c, aNode) {
        const char* type = nullptr;
        if (Is(c, "AccountNumber")) {
            b.UchNum = c->Text();
        } else if (Is(c, "Boundaries")) {
            EACH_CHILD(boundary, c) {
                if (!Is(boundary, "Boundary")) continue;
                EACH_CHILD(e, boundary)
                if (Has(e, "Entity_Spatial") || Has(e, "EntitySpatial")) {
                    TGrParcelRef g = ReadEntitySpatialPlain(e, false);
                    if (RewriteXML) b.Obj = g;  // the last one wins
                }
            }
        } else if (Is(c, "Documents")) {
            ReadBoundDocuments(*this, c, b, false);
        } else if (Is(c, "StateBorderRF")) {
            type = "Участок государственной границы Российской Федерации";
        } else if (Is(c, "SubjectsBoundary")) {
            type = "Границы между субъектами Российской Федерации";
        } else if (Is(c, "MunicipalBoundary")) {
            type = "Граница муниципального образования";
        } else if (Is(c, "InhabitedLocalityBoundary")) {
            type = "Граница населенного пункта";
        }
        if (type) {
            b.BType = type;
            // Only a Name that is the first child is seen.
            xml::PXMLNode first = FirstElement(c);
            if (first && Is(first, "Name")) b.BName = first->Text();
        }
    }
}

void TlibImportXML::ReadZone(xml::PXMLNode aNode, int aNumber) {
    TXMLBound& z = Entry(XMLZone, aNumber);
    EACH_CHILD(c, aNode) {
        if (Is(c, "AccountNumber")) {
            z.UchNum = c->Text();
        } else if (Has(c, "Entity_Spatial") || Has(c, "EntitySpatial")) {
            TGrParcelRef g = ReadEntitySpatialPlain(c, true);
            if (RewriteXML) z.Obj = g;
        } else if (Is(c, "SpecialZone")) {
            EACH_CHILD(r, c) if (Is(r, "ContentRestrictions")) z.BName = r->Text();
        } else if (Is(c, "Documents")) {
            ReadBoundDocuments(*this, c, z, true);
        }
    }
}

// Bounds and zones write the same columns: the kind, the name, the number, three documents.
static void BoundColumns(TlibImportXML& aJob, const TXMLBound& b, const char* aKindColumn, const char* aNameColumn) {
    aJob.SetGMField(aKindColumn, TcsVariant(b.BType));
    aJob.SetGMField(aNameColumn, TcsVariant(b.BName));
    aJob.SetGMField("УчетныйНомер", TcsVariant(b.UchNum));
    for (size_t k = 0; k < 3; ++k) {
        const std::string n = std::to_string(k + 1);
        aJob.SetGMField("ДокТип" + n, TcsVariant(b.DocType[k]));
        aJob.SetGMField("ДокНазвание" + n, TcsVariant(b.DocName[k]));
        aJob.SetGMField("ДокНомер" + n, TcsVariant(b.DocNumber[k]));
        aJob.SetGMField("ДокДата" + n, TcsVariant(b.DocDate[k]));
        aJob.SetGMField("ДокОрган" + n, TcsVariant(b.DocOrgan[k]));
    }
}

// The bounds and the zones of a block run one loop; what differs is named here.
struct BoundLoop {
    const char* fText;
    const char* fTable;
    const char* fChild;
    bool fZone;
};

static void ReadBoundLoop(TlibImportXML& aJob, xml::PXMLNode aNode, const BoundLoop& aLoop) {
    TcsProgress* progress = aJob.FProgress;
    if (aJob.RewriteXML) {
        if (progress) progress->SetMax(0);
        if (progress) progress->SetText(aLoop.fText);
        aJob.OpenGMTable(aLoop.fTable);
        if (progress) progress->SetMax(aJob.ChildCount(aNode));
    }
    aJob.simpleProgress = true;
    int number = 0;
    EACH_CHILD(c, aNode) {
        if (!Is(c, aLoop.fChild)) continue;
        ++number;
        aLoop.fZone ? aJob.ReadZone(c, number) : aJob.ReadBound(c, number);
        if (!aJob.RewriteXML) continue;
        const TXMLBound& b = (aLoop.fZone ? aJob.XMLZone : aJob.XMLBound)[static_cast<size_t>(number - 1)];
        // A bound with geometry is a line row, a zone a region row; either without is a region row.
        if (b.Obj && aJob.CheckObject()) {
            aJob.NewGMRecord(true, aLoop.fZone ? 2 : 1);
            aJob.WriteGrParcel(*b.Obj, true);
        } else {
            aJob.NewGMRecord(false, 2);
        }
        BoundColumns(aJob, b, aLoop.fZone ? "ВидЗоны" : "ВидГраницы", aLoop.fZone ? "Содержание" : "Название");
        aJob.PostGMRecord();
        if (progress) progress->Next();
        if (progress && progress->Cancelled()) break;
    }
    if (aJob.RewriteXML) {
        if (progress) progress->SetMax(0);
        aJob.CloseGMTable();
    }
}

void TlibImportXML::ReadClassicBounds(xml::PXMLNode aNode) {
    ReadBoundLoop(*this, aNode, BoundLoop{"Импортируем границы", "Границы", "Bound", false});
}

void TlibImportXML::ReadClassicZones(xml::PXMLNode aNode) {
    ReadBoundLoop(*this, aNode, BoundLoop{"Импортируем зоны", "Зоны", "Zone", true});
}

void TlibImportXML::ReadRealtyAddress(xml::PXMLNode aNode, std::string& aPlace, std::string& aOKATO, std::string& aKLADR) {
    aPlace.clear();
    aOKATO.clear();
    aKLADR.clear();
    std::string region;
    EACH_CHILD(c, aNode) {
        if (Has(c, "OKATO")) {
            aOKATO = c->Text();
        } else if (Has(c, "KLADR")) {
            aKLADR = c->Text();
        } else if (Has(c, "Region")) {
            region = c->Text();
        } else if (Has(c, "Note")) {
            aPlace = aPlace.empty() ? c->Text() : aPlace + ", " + c->Text();
        } else if (Has(c, "District")) {
            if (aPlace.empty()) {
                aPlace = std::string(c->GetAttribute("Name"));
                if (!aPlace.empty()) aPlace += " " + std::string(c->GetAttribute("Type"));
            }
        } else if (Has(c, "Locality")) {
            if (!aPlace.empty()) aPlace += ", ";
            aPlace = Trim(aPlace + std::string(c->GetAttribute("Type")) + " " + std::string(c->GetAttribute("Name")));
        } else if (Has(c, "City") || Has(c, "Street")) {
            if (!aPlace.empty()) aPlace += ", ";
            aPlace = Trim(aPlace + std::string(c->GetAttribute("Type")) + " " + std::string(c->GetAttribute("Name")) + " " +
                          std::string(c->GetAttribute("Value")));
        }
    }
}

void TlibImportXML::ReadObjectsRealty(xml::PXMLNode aNode) {
    OpenGMTable("Объекты");
    SetProgressText("Импорт объектов недвижимости...");
    if (FProgress) FProgress->SetMax(ChildCount(aNode));
    simpleProgress = true;
    // Not cleared between objects: an object that lacks them shows the values of the one before.
    double area = 0, cost = 0;
    std::string unit, place, okato, kladr;
    TGrContRef ring;
    EACH_CHILD(o, aNode) {
        if (Has(o, "ObjectRealty")) {
            EACH_CHILD(c, o) {
                const char* code = Has(c, "Building") ? "002001002000"
                                   : Has(c, "Construction") ? "002001004000"
                                   : Has(c, "Uncompleted") ? "002001005000"
                                                           : nullptr;
                if (!code) continue;
                const std::string kind = fClassList.GetKlassString("ВидыОб", code);
                const std::string number(c->GetAttribute("CadastralNumber"));
                std::string purpose;
                bool graphic = false;
                std::array<KeyParameter, 5> parameters{};
                EACH_CHILD(e, c) {
                    if (Has(e, "AssignationBuilding")) {
                        const std::string t = e->Text();
                        if (t.size() == 12) purpose = fClassList.GetKlassString("Назначение зданий", t);
                    } else if (Has(e, "AssignationName")) {
                        purpose = e->Text();
                    } else if (Has(e, "Area")) {
                        area = FloatOf(e->Text());
                    } else if (Has(e, "Address")) {
                        ReadRealtyAddress(e, place, okato, kladr);
                    } else if (Has(e, "CadastralCost")) {
                        cost = FloatOf(e->GetAttribute("Value"));
                        unit = fClassList.GetKlassString("Единицы измерения АИС", e->GetAttribute("Unit"));
                    } else if (Has(e, "EntitySpatial")) {
                        ring = ReadRealtyContour(e);
                        if (ring) graphic = true;
                    } else if (Has(e, "KeyParameters")) {
                        // At most five parameters: a sixth is beyond the array and ignored.
                        int count = 0;
                        parameters = {};
                        EACH_CHILD(k, e) {
                            if (!Has(k, "KeyParameter") || count >= 5) continue;
                            KeyParameter& p = parameters[static_cast<size_t>(count++)];
                            int64_t type = 0;
                            p.fType = TryStrToInt(k->GetAttribute("Type"), type) ? static_cast<int32_t>(type) : 0;
                            p.fValue = FloatOf(k->GetAttribute("Value"));
                            p.fText = fClassList.GetKlassString("Тип основного параметра", k->GetAttribute("Type"));
                        }
                    }
                    if (!RewriteXML) continue;
                    // A row after every child: the last row of an object is the complete one.
                    if (graphic && ring && CheckObjectLinear(*ring, true)) {
                        NewGMRecord(true, 1);
                        WriteGrCont(*ring);
                        SetGMField("IsGraphic", TcsVariant(1));
                    } else {
                        NewGMRecord(false, 1);
                        SetGMField("IsGraphic", TcsVariant(0));
                    }
                    SetGMField("КадастровыйНомер", TcsVariant(number));
                    SetGMField("ВидТекст", TcsVariant(kind));
                    SetGMField("Назначение", TcsVariant(purpose));
                    SetGMField("Площадь", TcsVariant(area));
                    SetGMField("Местоположение", TcsVariant(place));
                    SetGMField("ОКАТО", TcsVariant(okato));
                    SetGMField("КЛАДР", TcsVariant(kladr));
                    SetGMField("КадастроваяСтоимость", TcsVariant(cost));
                    SetGMField("ЕИКС", TcsVariant(unit));
                    // Every pair carries the fifth parameter.
                    for (int k = 1; k <= 5; ++k) {
                        SetGMField("ВидХ" + std::to_string(k), TcsVariant(parameters[4].fText));
                        SetGMField("Характеристика" + std::to_string(k), TcsVariant(parameters[4].fValue));
                    }
                    SetGMField("ContDate", TcsVariant(XMLParcel.ContDate));
                    SetGMField("ContGUID", TcsVariant(XMLParcel.ContGUID));
                    SetGMField("iBlock", TcsVariant(XMLParcel.Block));
                    SetGMField("iParcel", TcsVariant(XMLParcel.Number));
                    PostGMRecord();
                }
            }
        }
        if (FProgress) FProgress->Next();
        if (Cancelled()) break;
    }
    CloseGMTable();
}

}  // namespace tmi
