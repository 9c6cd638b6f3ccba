// The classic plan reader: the document header, the certificate, and the walk of packages,
// regions, blocks and parcels.
#include <cmath>
#include <cstdio>
#include <tuple>

#include "reader_support.h"

namespace tmi {

using namespace readers;

namespace {

bool TryDate(const std::string& aText, TDateTime& aDate) {
    // DD.MM.YYYY only: two digits, a point, two digits, a point, four digits.
    int d = 0, m = 0, y = 0;
    char tail = 0;
    if (aText.size() != 10 || aText[2] != '.' || aText[5] != '.') return false;
    if (std::sscanf(aText.c_str(), "%2d.%2d.%4d%c", &d, &m, &y, &tail) != 3) return false;
    TDateTime probe;
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", d, m, y);
    if (!TryStrToDateTime(buf, probe)) return false;
    aDate = probe;
    return true;
}

// Characters aFrom..aFrom+aCount-1 (1-based), as far as the text reaches.
std::string Chars(const std::string& aText, size_t aFrom, size_t aCount) {
    return aFrom - 1 < aText.size() ? aText.substr(aFrom - 1, aCount) : std::string();
}

}  // namespace

TDateTime TlibImportXML::ParseXmlDate(std::string_view aText) {
    const std::string text(aText);
    if (text.empty()) return TDateTime{};
    TDateTime date;
    if (TryDate(Chars(text, 1, 2) + "." + Chars(text, 4, 2) + "." + Chars(text, 7, 4), date)) return date;
    if (TryDate(Chars(text, 9, 2) + "." + Chars(text, 6, 2) + "." + Chars(text, 1, 4), date)) return date;
    return TDateTime{};
}

int32_t TlibImportXML::ReadEDocument(xml::PXMLNode aNode) {
    XMLeDoc.DocType = std::string(aNode->GetAttribute("CodeType"));
    XMLeDoc.DocVer = std::string(aNode->GetAttribute("Version"));
    for (xml::PXMLNode child = aNode->FirstChild(); child; child = child->NextSibling()) {
        if (child->NodeType() != xml::ntElement) continue;
        if (NameContains(child, "Sender")) {
            XMLeDoc.SenderName = std::string(child->GetAttribute("Name"));
            XMLeDoc.SenderDate = ParseXmlDate(child->GetAttribute("Date_Upload"));
            fDu = XMLeDoc.SenderDate;
        } else if (NameContains(child, "Recipient")) {
            XMLeDoc.Recipient = std::string(child->GetAttribute("Name"));
        }
    }
    // The strict conversion: a document without a numeric code raises.
    int64_t code = 0;
    if (!TryStrToInt(XMLeDoc.DocType, code) || code < INT32_MIN || code > INT32_MAX)
        throw Exception("'" + XMLeDoc.DocType + "' is not a valid integer value");
    return static_cast<int32_t>(code);
}

void TlibImportXML::ReadCertificationDoc(xml::PXMLNode aNode) {
    for (xml::PXMLNode child = aNode->FirstChild(); child; child = child->NextSibling()) {
        if (child->NodeType() != xml::ntElement) continue;
        if (NameContains(child, "Organization"))
            XMLSert.Organization = child->Text();
        else if (NameContains(child, "Date"))
            XMLSert.Date = ParseXmlDate(child->Text());
        else if (NameContains(child, "Number"))
            XMLSert.Number = child->Text();
        else if (NameContains(child, "Appointment"))
            XMLSert.Appointment = child->Text();
        else if (NameContains(child, "FIO"))
            XMLSert.FIO = child->Text();
    }
}

namespace {

std::string ShortDate(TDateTime aDate) {
    int y, m, d, h, n, s, ms;
    DecodeDateTime(aDate, y, m, d, h, n, s, ms);
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", d, m, y);
    return buf;
}

bool IsLevel(xml::PXMLNode aNode) {
    for (const char* name : {"Federal", "Cadastral_Regions", "Cadastral_Region", "Cadastral_Districts", "Cadastral_District"})
        if (Is(aNode, name)) return true;
    return false;
}

}  // namespace

void TlibImportXML::ReadPackage(xml::PXMLNode aNode) {
    // The certificate first, wherever it stands: it dates every parcel.
    for (xml::PXMLNode c = FirstElement(aNode); c; c = NextElement(c))
        if (Is(c, "Certification_Doc")) ReadCertificationDoc(c);
    // Then the content, level by level.
    for (xml::PXMLNode c = FirstElement(aNode); c; c = NextElement(c)) {
        if (Is(c, "Certification_Doc")) continue;
        ReadRegionLevel(c);
        if (DoAbort) break;
    }
}

void TlibImportXML::ReadRegionLevel(xml::PXMLNode aNode) {
    DoAll = false;
    // Levels nest (federal, regions, districts): walked with a stack of our own, not the
    // machine's, so that no file can exhaust it.
    std::vector<xml::PXMLNode> pending{FirstElement(aNode)};
    while (!pending.empty()) {
        xml::PXMLNode c = pending.back();
        if (!c) {
            pending.pop_back();
            continue;
        }
        pending.back() = NextElement(c);
        if (Is(c, "Cadastral_Blocks"))
            ReadClassicBlocks(c);
        else if (Is(c, "Cadastral_Block") || Is(c, "CadastralBlock"))
            ReadClassicBlock(c);
        else if (Is(c, "ExistParcel") || Is(c, "NewParcel") || Is(c, "Parcel"))
            ReadParcel(c, LocalNameOf(c));
        else if (IsLevel(c))
            pending.push_back(FirstElement(c));
        if (DoAbort) return;
    }
}

void TlibImportXML::ReadClassicBlocks(xml::PXMLNode aNode) {
    for (xml::PXMLNode c = FirstElement(aNode); c; c = NextElement(c)) {
        if (Is(c, "Cadastral_Block") || Is(c, "CadastralBlock")) ReadClassicBlock(c);
        if (DoAbort) return;
    }
}

int TlibImportXML::CountParcelSteps(xml::PXMLNode aNode) {
    TProgressWeights weights;
    for (xml::PXMLNode parcel = FirstElement(aNode); parcel; parcel = NextElement(parcel)) {
        weights.Record();
        for (xml::PXMLNode contours = FirstElement(parcel); contours; contours = NextElement(contours)) {
            if (!Is(contours, "Contours")) continue;
            for (xml::PXMLNode contour = FirstElement(contours); contour; contour = NextElement(contour)) {
                if (!Is(contour, "Contour")) continue;
                weights.Contour();
                for (xml::PXMLNode c = FirstElement(contour); c; c = NextElement(c))
                    if (NameContains(c, "Entity_Spatial") || NameContains(c, "EntitySpatial"))
                        weights.SpatialElement(ChildCount(c));
            }
        }
    }
    FMaxElementCount = weights.Largest();
    return weights.Total();
}

void TlibImportXML::ReadClassicBlock(xml::PXMLNode aNode) {
    double total = 0;
    std::string units, note;
    TGrParcelRef boundary;
    XMLParcel.Block = std::string(aNode->GetAttribute("CadastralNumber"));
    XMLBound.clear();
    XMLZone.clear();
    for (xml::PXMLNode c = FirstElement(aNode); c; c = NextElement(c)) {
        if (Is(c, "Parcels")) {
            const int n = ChildCount(c);
            StatusStyle = n == 1 ? 2 : 1;
            if (StatusStyle == 1) {
                SetProgressText(RewriteXML ? "Загрузка участков..." : "Проверка экстремумов в файле XML...");
                if (FProgress) FProgress->SetMax(CountParcelSteps(c));
                simpleProgress = false;
            }
            int i = 0;
            for (xml::PXMLNode p = FirstElement(c); p; p = NextElement(p), ++i) {
                ParcelStr = (RewriteXML ? "Загрузка участка: " : "Проверка участка: ") + std::to_string(i + 1) + " из " +
                            std::to_string(n) + ", Номер: ";
                if (Is(p, "Parcel") || Is(p, "NewParcel") || Is(p, "ExistParcel")) ReadParcel(p, LocalNameOf(p));
                if (StatusStyle == 1) {
                    if (FProgress) FProgress->Next();
                    if (Cancelled()) return;
                } else if (DoAbort) {
                    break;
                }
            }
            if (StatusStyle == 1 && FProgress) FProgress->SetMax(0);
        } else if (Is(c, "NewParcel") || Is(c, "ExistParcel")) {
            ReadParcel(c, LocalNameOf(c));
        } else if (Is(c, "Area")) {
            total = FloatOf(c->GetAttribute("Total"));
            units = std::string(c->GetAttribute("Units"));
        } else if (Is(c, "OMSPoints")) {
            if (RewriteXML) OpenGMTable("ТочкиОМС");
            for (xml::PXMLNode point = FirstElement(c); point; point = NextElement(point)) {
                if (!Is(point, "OMSPoint")) continue;
                std::string number, name, klass;
                double ordX = 0, ordY = 0;
                for (xml::PXMLNode v = FirstElement(point); v; v = NextElement(v)) {
                    if (Is(v, "PNmb")) number = v->Text();
                    else if (Is(v, "PName")) name = v->Text();
                    else if (Is(v, "PKlass")) klass = v->Text();
                    else if (Is(v, "OrdX")) ordX = FloatText(v);
                    else if (Is(v, "OrdY")) ordY = FloatText(v);
                }
                if (!RewriteXML) continue;
                // The map's first axis is OrdY, whatever fReversXY says; so is the column "X".
                NewGMRecord(true, 10);
                WriteGrPoint(ordY, ordX);
                SetGMField("Номер", TcsVariant(number));
                SetGMField("Название", TcsVariant(name));
                SetGMField("Класс", TcsVariant(klass));
                SetGMField("X", TcsVariant(ordY));
                SetGMField("Y", TcsVariant(ordX));
                SetGMField("КадастровыйНомер", TcsVariant(XMLParcel.Block));
                SetGMField("ContDate", TcsVariant(XMLParcel.ContDate));
                SetGMField("ContGUID", TcsVariant(XMLParcel.ContGUID));
                SetGMField("iBlock", TcsVariant(XMLParcel.Block));
                SetGMField("iParcel", TcsVariant(std::string()));
                PostGMRecord();
            }
            if (RewriteXML) CloseGMTable();
        } else if (Is(c, "SpatialData")) {
            if (FProgress) FProgress->SetMax(0);
            SetProgressText(RewriteXML ? "Импортируем границу квартала" : "Проверяем границу квартала");
            if (FProgress) FProgress->SetMax(ChildCount(c));
            simpleProgress = true;
            for (xml::PXMLNode e = FirstElement(c); e; e = NextElement(e)) {
                if (NameContains(e, "Entity_Spatial") || NameContains(e, "EntitySpatial")) {
                    // A block boundary never widens the extremes: it is read only to be written.
                    if (RewriteXML) {
                        XMLStopCont = true;
                        boundary = ReadEntitySpatial(e);
                    }
                    break;
                }
                if (FProgress) FProgress->Next();
                if (Cancelled()) break;
            }
            if (FProgress) FProgress->SetMax(0);
        } else if (Is(c, "Note")) {
            note = c->Text();
        } else if (Is(c, "Bounds")) {
            ReadClassicBounds(c);
            if (RewriteXML && Cancelled()) return;
        } else if (Is(c, "Zones")) {
            ReadClassicZones(c);
            if (RewriteXML && Cancelled()) return;
        } else if (Is(c, "ObjectsRealty")) {
            if (fWriteObj) ReadObjectsRealty(c);
        }
        if (DoAbort) break;
    }
    if (!RewriteXML) return;
    OpenGMTable("Квартал");
    if (boundary) {
        NewGMRecord(true, 2);
        WriteGrParcel(*boundary, true);
    } else {
        NewGMRecord(false, 2);
    }
    SetGMField("КадастровыйНомер", TcsVariant(XMLParcel.Block));
    SetGMField("Площадь", TcsVariant(total));
    SetGMField("ЕдИзм", TcsVariant(units));
    SetGMField("Примечание", TcsVariant(note));
    SetGMField("ContDate", TcsVariant(XMLParcel.ContDate));
    SetGMField("ContGUID", TcsVariant(XMLParcel.ContGUID));
    SetGMField("iBlock", TcsVariant(XMLParcel.Block));
    SetGMField("iParcel", TcsVariant(std::string()));
    PostGMRecord();
    CloseGMTable();
    XMLBound.clear();
}

void TlibImportXML::ReadParcel(xml::PXMLNode aNode, std::string_view) {
    TXMLParcel& p = XMLParcel;
    // The record starts over: no geometry, no encumbrances, the certificate's date.
    p.IsGraphic = false;
    p.EncCnt = 0;
    p.ContDate = XMLSert.Date;
    p.ContGUID = XMLSert.Number;
    std::string owners, kinds, encumbrances;
    // The block of the parcel's own attribute, where the block gives none or the kind of
    // document asks for it.
    if (Trim(p.Block).empty() || (XMLeDoc.DocStyle == 0 && fCode_Type == 114) ||
        (XMLeDoc.DocStyle == 1 && XMLeDoc.SchemaType == 2))
        p.Block = std::string(aNode->GetAttribute("CadastralBlock"));
    // The number, or the definition of a parcel that has none yet.
    p.Number = Trim(aNode->GetAttribute("CadastralNumber"));
    if (p.Number.empty()) p.Number = std::string(aNode->GetAttribute("Definition"));
    // The number on the progress line; a cancel ends the parcel here.
    if (FProgress) FProgress->SetText(ParcelStr + p.Number);
    if (Cancelled()) return;
    // Its name, the number of its unified land unit and its kind.
    p.Name_ = std::string(aNode->GetAttribute("AdditionalName"));
    p.NumberEZ.clear();
    const std::string_view name = aNode->GetAttribute("Name");
    p.Kind = name.empty() ? std::string() : fClassList.GetKlassString("Наименования участков", name);
    const std::string_view method = aNode->GetAttribute("Method");
    p.Remarka = method.empty() ? std::string() : fClassList.GetKlassString("Вид межевого плана", method);
    const std::string_view state = aNode->GetAttribute("State");
    p.Status = state.empty() ? std::string() : fClassList.GetKlassString("Статус участка", state);
    p.Date1 = ParseXmlDate(aNode->GetAttribute("DateCreated"));
    p.Date2 = ParseXmlDate(aNode->GetAttribute("DateCreatedDoc"));
    // The counts of the arrays the details fill.
    p.AreaCnt = p.RightCnt = p.SubParcelCnt = p.EntryCnt = p.NeiDefCnt = p.OldKnCnt = p.NewKnCnt = 0;
    // The children: in the extremes pass only the spatial ones.
    for (xml::PXMLNode c = FirstElement(aNode); c; c = NextElement(c)) {
        const bool spatial = NameContains(c, "Entity_Spatial") || NameContains(c, "EntitySpatial");
        if (!RewriteXML && !spatial && !NameContains(c, "Contours")) continue;
        if (Is(c, "CadastralBlock")) {
            p.Block = c->Text();
        } else if (Is(c, "Name")) {
            p.Name_ = fClassList.GetKlassString("Наименования участков", c->Text());
        } else if (Is(c, "ParcelNeighbours")) {
            ReadParcelNeighbours(c);
        } else if (Is(c, "AllOffspringParcel")) {
            ReadOffspringParcels(c);
        } else if (Is(c, "Prev_CadastralNumbers")) {
            ReadPrevNumbers(c);
        } else if (Is(c, "ParentCadastralNumbers")) {
            for (xml::PXMLNode n = FirstElement(c); n; n = NextElement(n))
                if (n->NodeName() == "CadastralNumber") p.NumberEZ = n->Text();
        } else if (Is(c, "CompositionEZ")) {
            ReadCompositionEZ(c);
        } else if (Is(c, "Areas")) {
            ReadAreaList(c, 1);
        } else if (Is(c, "Area")) {
            ReadArea(c, 1);
        } else if (Is(c, "Location")) {
            ReadLocation(c);
        } else if (Is(c, "Category")) {
            ReadCategory(c);
        } else if (Is(c, "Utilization")) {
            ReadUtilization(c);
        } else if (Is(c, "Rights")) {
            ReadRights(c);
        } else if (Is(c, "SubParcels")) {
            XMLStopCont = true;
            ReadSubParcels(c);
        } else if (spatial) {
            XMLStopCont = false;
            if (fSplitContours == 1 || fSplitContours == 2) {
                p.ContCnt = 0;
                NumbPp.clear();
            }
            TGrParcelRef geometry = ReadEntitySpatial(c);
            if (RewriteXML && geometry) {
                p.Obj = geometry;
                p.IsGraphic = true;
            }
        } else if (Is(c, "Contours")) {
            XMLStopCont = false;
            if (fSplitContours == 1 || fSplitContours == 2) {
                p.ContCnt = 0;
                NumbPp.clear();
            }
            TGrParcelRef geometry = ReadContours(c);
            if (RewriteXML) {
                p.Obj = geometry;
                if (geometry) p.IsGraphic = true;
            }
        } else if (Is(c, "CadastralCost")) {
            p.Ks.Value = FloatOf(c->Text());
            if (p.Ks.Value == 0) p.Ks.Value = FloatOf(c->GetAttribute("Value"));
            p.Ks.Eiz = fClassList.GetKlassString("Единицы измерения АИС", c->GetAttribute("Unit"));
        } else if (Is(c, "Ground_Payments")) {
            ReadGroundPayments(c);
        } else if (Is(c, "OwnerNeighbours")) {
            // nothing
        } else if (Is(c, "Unified_Land_Unit")) {
            for (xml::PXMLNode u = FirstElement(c); u; u = NextElement(u))
                if (Is(u, "Preceding_Land_Unit")) {
                    p.NumberEZ = u->Text();
                    break;
                }
        } else if (Is(c, "Encumbrances")) {
            ReadEncumbrances(c, 1);
        } else if (Is(c, "Encumbrance")) {
            ReadEncumbrance(c, 1);
        } else if (Is(c, "SpecZones")) {
            nSpecZones = 0;
            for (xml::PXMLNode z = FirstElement(c); z; z = NextElement(z))
                if (Is(z, "SpecZone")) {
                    nSpecZones = 1;
                    XMLSpecZones.push_back(z->Text());
                    break;
                }
        } else if (Is(c, "Contactor")) {
            ReadContactor(c);
        } else if (Is(c, "SpecialNote")) {
            p.SpecialNote = c->Text();
        }
        if (DoAbort) break;
    }
    // The rest in the load pass only.
    if (!RewriteXML) return;
    // The holders of the rights, joined into one text.
    for (int i = 0; i < p.RightCnt; ++i) {
        const TXMLRight& r = p.XMLRight[static_cast<size_t>(i)];
        if (i) {
            owners += ';';
            kinds += ';';
        }
        owners += Trim(r.Owner);
        kinds += Trim(r.Kind);
        if (!Trim(r.Register1).empty()) kinds += " " + Trim(r.Register1) + " от " + ShortDate(r.DateReg1);
    }
    for (int i = 0; i < p.EncCnt; ++i) {
        if (i) encumbrances += ';';
        encumbrances += Trim(p.Encs[static_cast<size_t>(i)].Name_);
    }
    // The former and the new numbers, one row each.
    for (const auto& [table, list, count] : {std::tuple{"СтарыеКадНомера", &p.OldKns, p.OldKnCnt},
                                             std::tuple{"НовыеКадНомера", &p.NewKns, p.NewKnCnt}}) {
        OpenGMTable(table);
        for (int i = 0; i < count; ++i) {
            NewGMRecord(false, 0);
            SetGMField("КадастровыйНомер", TcsVariant((*list)[static_cast<size_t>(i)]));
            SetGMField("iBlock", TcsVariant(p.Block));
            SetGMField("iParcel", TcsVariant(p.Number));
            PostGMRecord();
        }
        CloseGMTable();
    }
    // The parcel's own row.
    OpenGMTable("Участки");
    if (p.IsGraphic && p.Obj) {
        NewGMRecord(true, 2);
        WriteGrParcel(*p.Obj, true);
    } else {
        NewGMRecord(false, 2);
    }
    const int tableId = ++OpenTable().counter;
    SetGMField("TableId", TcsVariant(tableId));
    SetGMField("КадастровыйБлок", TcsVariant(p.Block));
    SetGMField("КадастровыйНомер", TcsVariant(p.Number));
    SetGMField("Вид", TcsVariant(p.Name_));
    SetGMField("IsGraphic", TcsVariant(p.IsGraphic ? 1 : 0));
    SetParcelColumns(p, owners);
    for (int i = 0; i < 3 && i < p.CharCnt; ++i) {
        const TXMLChar& ch = p.Chars[static_cast<size_t>(i)];
        const std::string k = std::to_string(i + 1);
        SetGMField("ТипХарактеристики" + k, TcsVariant(ch.TypeStr));
        SetGMField("Характеристика" + k, TcsVariant(ch.Value));
        SetGMField("ЕИХ" + k, TcsVariant(ch.Eiz));
        SetGMField("ДатаХ" + k, TcsVariant(ch.Date));
    }
    for (int i = 0; i < 3 && i < p.OldKnCnt; ++i) SetGMField("СтарыйКн" + std::to_string(i + 1), TcsVariant(p.OldKns[static_cast<size_t>(i)]));
    for (int i = 0; i < 3 && i < p.NewKnCnt; ++i) SetGMField("НовыйКн" + std::to_string(i + 1), TcsVariant(p.NewKns[static_cast<size_t>(i)]));
    SetGMField("НомерОснования", TcsVariant(XMLSert.Number));
    SetGMField("Получатель", TcsVariant(XMLeDoc.Recipient));
    SetGMField("ДатаВыгрузки", TcsVariant(XMLeDoc.SenderDate));
    SetGMField("КадастроваяСтоимость", TcsVariant(p.Ks.Value));
    SetGMField("ЕИКС", TcsVariant(p.Ks.Eiz));
    SetGMField("ДатаКС", TcsVariant(p.Ks.Date));
    SetGMField("ВидПрава", TcsVariant(kinds));
    SetGMField("Обременения", TcsVariant(encumbrances));
    SetGMField("SpecialNote", TcsVariant(p.SpecialNote));
    SetGMField("ContDate", TcsVariant(p.ContDate));
    SetGMField("ContGUID", TcsVariant(p.ContGUID));
    SetGMField("iBlock", TcsVariant(p.Block));
    SetGMField("iParcel", TcsVariant(p.Number));
    PostGMRecord();
    CloseGMTable();
    // The neighbours.
    if (p.NeiDefCnt > 0) {
        OpenGMTable("Смежники");
        for (int i = 0; i < p.NeiDefCnt; ++i) {
            const TXMLOn& on = p.NeiDefs[static_cast<size_t>(i)];
            NewGMRecord(false, 0);
            SetGMField("КадастровыйНомер", TcsVariant(on.CadastralNumber));
            SetGMField("Адрес", TcsVariant(on.Address));
            SetGMField("Email", TcsVariant(on.Email));
            SetGMField("iBlock", TcsVariant(p.Block));
            SetGMField("iParcel", TcsVariant(p.Number));
            PostGMRecord();
        }
        CloseGMTable();
    }
    // Entry parcels of a unified land unit; a parcel without areas leaves the area
    // columns of its entries empty.
    if (p.EntryCnt > 0) {
        OpenGMTable("Участки");
        for (int i = 0; i < p.EntryCnt; ++i) {
            const TXMlEntryParcel& e = p.EntryParcel[static_cast<size_t>(i)];
            if (e.IsGraphic && e.Obj && CheckObject()) {
                NewGMRecord(true, 2);
                WriteGrParcel(*e.Obj, true);
            } else {
                NewGMRecord(false, 2);
            }
            SetGMField("КадастровыйБлок", TcsVariant(p.Block));
            SetGMField("КадастровыйНомер", TcsVariant(e.Number));
            SetGMField("Вид", TcsVariant(std::string("Обособленный участок")));
            SetGMField("IsGraphic", TcsVariant(p.IsGraphic ? 1 : 0));
            SetGMField("НомерЕЗ", TcsVariant(p.Number));
            SetGMField("СтатусУчастка", TcsVariant(p.Status));
            if (p.AreaCnt > 0) {
                SetGMField("ТипПлощади1", TcsVariant(p.XMLArea[0].TypeStr));
                SetGMField("Площадь1", TcsVariant(p.XMLArea[0].Value));
            }
            SetGMField("ДатаВыгрузки", TcsVariant(XMLeDoc.SenderDate));
            SetGMField("ContDate", TcsVariant(p.ContDate));
            SetGMField("ContGUID", TcsVariant(p.ContGUID));
            SetGMField("iBlock", TcsVariant(p.Block));
            SetGMField("iParcel", TcsVariant(p.Number));
            PostGMRecord();
        }
        CloseGMTable();
    }
    // Parts of the parcel.
    OpenGMTable("ЧастиУчастка");
    for (int i = 0; i < p.SubParcelCnt; ++i) {
        const TXMLSubParcel& sp = p.XMLSubParcel[static_cast<size_t>(i)];
        if (sp.IsGraphic && sp.Obj) {
            NewGMRecord(true, 2);
            WriteGrParcel(*sp.Obj, true);
            SetGMField("IsGraphic", TcsVariant(1));
        } else {
            NewGMRecord(false, 2);
            SetGMField("IsGraphic", TcsVariant(0));
        }
        SetGMField("КодУчастка", TcsVariant(tableId));
        SetGMField("КадастровыйНомер", TcsVariant(sp.CadastralNumber));
        SetGMField("УчетныйНомер", TcsVariant(sp.CalcNumber));
        SetGMField("НомерЕЗ", TcsVariant(p.NumberEZ));
        SetGMField("Дата", TcsVariant(sp.Date));
        SetGMField("Назначение", TcsVariant(sp.Mean));
        SetGMField("Сервитут", TcsVariant(sp.Encumbrance));
        for (int k = 0; k < sp.AreaCnt; ++k) {
            SetGMField("ТипПлощади" + std::to_string(k + 1), TcsVariant(sp.XMLArea[static_cast<size_t>(k)].TypeStr));
            SetGMField("Площадь" + std::to_string(k + 1), TcsVariant(sp.XMLArea[static_cast<size_t>(k)].Value));
        }
        SetGMField("ContDate", TcsVariant(p.ContDate));
        SetGMField("ContGUID", TcsVariant(p.ContGUID));
        SetGMField("iBlock", TcsVariant(p.Block));
        SetGMField("iParcel", TcsVariant(p.Number));
        PostGMRecord();
    }
    CloseGMTable();
}

}  // namespace tmi
