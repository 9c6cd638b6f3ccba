// Classic parcel details: areas, location, category, use, rights and their documents,
// sub-parcels, encumbrances, payments, contractor, neighbours and related numbers. None of
// these writes a row; they fill XMLParcel for the parcel reader.
#include "reader_support.h"

namespace tmi {

using namespace readers;

namespace {

// The entry at aCount - 1, the array grown to hold it.
template <class T>
T& Grow(std::vector<T>& aList, int32_t& aCount) {
    ++aCount;
    if (static_cast<int32_t>(aList.size()) < aCount) aList.resize(static_cast<size_t>(aCount));
    return aList[static_cast<size_t>(aCount - 1)];
}

int64_t StrictInt(std::string_view aText) {
    int64_t v = 0;
    if (!TryStrToInt(aText, v)) throw Exception("'" + std::string(aText) + "' is not a valid integer value");
    return v;
}

std::string JoinTrimmed(std::initializer_list<std::string_view> aParts) {
    std::string out;
    for (std::string_view p : aParts) {
        if (!out.empty() || !p.empty()) out += out.empty() ? "" : " ";
        out += p;
    }
    return Trim(out);
}

}  // namespace

void TlibImportXML::ReadAreaList(xml::PXMLNode aNode, int aOwner) {
    EACH_CHILD(c, aNode) if (Is(c, "Area")) ReadArea(c, aOwner);
}

void TlibImportXML::ReadArea(xml::PXMLNode aNode, int aOwner) {
    TXMLParcel& p = XMLParcel;
    TXMLArea* area = nullptr;
    TXMlEntryParcel* entry = nullptr;
    if (aOwner == 1) {
        area = &Grow(p.XMLArea, p.AreaCnt);
    } else if (aOwner == 2) {
        if (p.SubParcelCnt <= 0) return;
        TXMLSubParcel& sp = p.XMLSubParcel[static_cast<size_t>(p.SubParcelCnt - 1)];
        area = &Grow(sp.XMLArea, sp.AreaCnt);
    } else {
        if (p.EntryCnt <= 0) return;
        entry = &p.EntryParcel[static_cast<size_t>(p.EntryCnt - 1)];
        ++entry->AreaCnt;
        entry->XMLArea.resize(static_cast<size_t>(entry->AreaCnt));
        area = &entry->XMLArea.back();
    }
    EACH_CHILD(c, aNode) {
        if (Is(c, "AreaCode")) {
            area->Type_ = c->Text();
            area->TypeStr = fClassList.GetKlassString("Виды площадей", area->Type_);  // never loaded: empty
        } else if (Is(c, "Area")) {
            area->Value = FloatOf(c->Text());
            if (entry) entry->Area = area->Value;
        } else if (Is(c, "Unit")) {
            area->Eiz = fClassList.GetKlassString("Единицы измерения АИС", c->Text());
        } else if (Is(c, "Innccuracy")) {  // the schema's own spelling
            area->Tolerance = FloatOf(c->Text());
        }
    }
}

void TlibImportXML::ReadLocation(xml::PXMLNode aNode) {
    std::string place, okato, kladr;
    EACH_CHILD(c, aNode) {
        if (Has(c, "InBounds") || Has(c, "Placed")) continue;
        if (Has(c, "Name")) {
            place = c->Text();
        } else if (Has(c, "Address")) {
            EACH_CHILD(a, c) {
                if (Has(a, "Code_OKATO") || Has(a, "OKATO")) {
                    okato = a->Text();
                } else if (Has(a, "Code_KLADR") || Has(a, "KLADR")) {
                    kladr = a->Text();
                } else if (Has(a, "Region")) {
                    // nothing
                } else if (Has(a, "Note")) {
                    place = place.empty() ? a->Text() : place + ", " + a->Text();
                } else if (Has(a, "District")) {
                    if (!place.empty()) place += ", ";
                    place += JoinTrimmed({a->GetAttribute("Name"), a->GetAttribute("Type")});
                } else if (Has(a, "Locality")) {
                    if (!place.empty()) place += ", ";
                    place += JoinTrimmed({a->GetAttribute("Type"), a->GetAttribute("Name")});
                } else if (Has(a, "City") || Has(a, "Street") || Has(a, "Level1") || Has(a, "Level2") || Has(a, "Level3")) {
                    if (!place.empty()) place += ", ";
                    place += JoinTrimmed({a->GetAttribute("Type"), a->GetAttribute("Name"), a->GetAttribute("Value")});
                }
            }
        }
    }
    XMLParcel.Place = place;
    XMLParcel.OKATO = okato;
    XMLParcel.KLADR = kladr;
}

void TlibImportXML::ReadCategory(xml::PXMLNode aNode) {
    XMLParcel.Katzem = 8;
    XMLParcel.Category = "Категория не установлена";
    std::string code(aNode->GetAttribute("Category"));
    if (code.empty()) code = aNode->Text();
    if (code.size() < 6) return;
    int64_t n = StrictInt(code.substr(5, 1));
    if (n < 1 || n > 8) n = 8;
    XMLParcel.Katzem = static_cast<int32_t>(n);
    XMLParcel.Category = fClassList.GetKlassString("Категории земель", code);
}

void TlibImportXML::ReadUtilization(xml::PXMLNode aNode) {
    std::string result;
    const std::string kind = Trim(aNode->GetAttribute("Kind"));
    if (!aNode->GetAttribute("Kind").empty()) result = fClassList.GetKlassString("Цели АИС", kind);
    const std::string byDoc = Trim(aNode->GetAttribute("ByDoc"));
    if (!byDoc.empty() && result.empty()) result = byDoc;
    XMLParcel.Mean = result;
}

void TlibImportXML::ReadRightType(xml::PXMLNode aNode, std::string& aText, int32_t& aNumber) {
    const std::string t = aNode->Text();
    aText = fClassList.GetKlassString("Права АИС", t);
    const std::string k = t.size() >= 8 ? t.substr(2, 4) : (t.size() > 2 ? t.substr(2) : std::string());
    static const std::pair<const char*, int32_t> kNumbers[] = {{"1001", 1010300}, {"1002", 1020300}, {"1003", 1030300},
                                                               {"1004", 3010100}, {"1005", 3010200}, {"1006", 2010200},
                                                               {"1007", 2010100}, {"1008", 0}};
    aNumber = 0;
    for (const auto& [key, number] : kNumbers)
        if (k == key) aNumber = number;
}

std::string TlibImportXML::ReadOwner(xml::PXMLNode aNode) {
    std::string result;
    EACH_CHILD(c, aNode) {
        if (Is(c, "Organization") || Is(c, "Governance")) {
            EACH_CHILD(n, c) if (Is(n, "Name")) result = n->Text();
        } else if (Is(c, "Person")) {
            EACH_CHILD(f, c) {
                if (!Is(f, "FIO")) continue;
                EACH_CHILD(part, f) {
                    if (Is(part, "Surname")) result = part->Text();
                    else if (Is(part, "First")) result += " " + part->Text();
                    else if (Is(part, "Patronymic")) result += " " + part->Text();
                }
            }
        }
    }
    return result;
}

void TlibImportXML::ReadRightDocuments(xml::PXMLNode aNode, TXMLRight& r) {
    int slot = 1;
    EACH_CHILD(d, aNode) {
        if (!Is(d, "Document")) continue;
        EACH_CHILD(c, d) {
            std::string& kind = slot == 1 ? r.DocKind1 : r.DocKind2;
            if (Is(c, "Code_Document")) {
                slot = r.DocKind1.empty() ? 1 : 2;
                (slot == 1 ? r.DocKind1 : r.DocKind2) = fClassList.GetKlassString("ДокументыАИС", c->Text());
            } else if (Is(c, "Name")) {
                if (kind.empty()) kind = c->Text();
            } else if (Is(c, "Series") || Is(c, "NumberReg") || Is(c, "Desc")) {
                // nothing
            } else if (Is(c, "Number")) {
                (slot == 1 ? r.Number1 : r.Number2) = c->Text();
            } else if (Is(c, "Date")) {
                (slot == 1 ? r.Date1 : r.Date2) = ParseXmlDate(c->Text());
            } else if (Is(c, "AutorDocument")) {
                (slot == 1 ? r.Organ1 : r.Organ2) = c->Text();
            } else if (Is(c, "Register")) {
                (slot == 1 ? r.Register1 : r.Register2) = c->Text();
            } else if (Is(c, "DateReg")) {
                (slot == 1 ? r.DateReg1 : r.DateReg2) = ParseXmlDate(c->Text());
            } else if (Is(c, "Duration")) {
                EACH_CHILD(v, c) if (v->Text() == "Started") (slot == 1 ? r.DateStart1 : r.DateStart2) = ParseXmlDate(v->Text());
            }
        }
    }
}

void TlibImportXML::ReadRights(xml::PXMLNode aNode) {
    EACH_CHILD(right, aNode) {
        if (!Is(right, "Right")) continue;
        TXMLRight& r = Grow(XMLParcel.XMLRight, XMLParcel.RightCnt);
        r.DocKind1.clear();
        EACH_CHILD(c, right) {
            if (Is(c, "Type")) {
                int32_t number = 0;
                ReadRightType(c, r.Kind, number);
            } else if (Is(c, "Owner")) {
                r.Owner = ReadOwner(c);
            } else if (Is(c, "Owners")) {
                EACH_CHILD(o, c) if (Is(o, "Owner")) r.Owner = ReadOwner(o);
            } else if (Is(c, "Registration")) {
                EACH_CHILD(g, c) {
                    if (Is(g, "RegNumber")) r.Register1 = g->Text();
                    else if (Is(g, "RegDate")) r.DateReg1 = ParseXmlDate(g->Text());
                }
            } else if (Is(c, "Documents")) {
                ReadRightDocuments(c, r);
            }
        }
    }
}

void TlibImportXML::ReadSubParcels(xml::PXMLNode aNode) {
    EACH_CHILD(s, aNode) {
        if (!Is(s, "SubParcel")) continue;
        TXMLSubParcel& sp = Grow(XMLParcel.XMLSubParcel, XMLParcel.SubParcelCnt);
        sp.IsGraphic = false;
        sp.Obj = nullptr;
        sp.AreaCnt = 0;
        sp.CalcNumber = std::string(s->GetAttribute("NumberRecord"));
        sp.CadastralNumber.clear();
        for (const char* a : {"Number_PP", "Number_Record", "NumberPP", "NumberRecord"}) {
            sp.CadastralNumber = std::string(s->GetAttribute(a));
            if (!sp.CadastralNumber.empty()) break;
        }
        sp.Mean = std::string(s->GetAttribute("Definition"));
        sp.Date = ParseXmlDate(s->GetAttribute("DateCreated"));
        EACH_CHILD(c, s) {
            if (Is(c, "Areas")) {
                ReadAreaList(c, 2);
            } else if (Is(c, "Encumbrances") || Is(c, "Encumbrance")) {
                ReadEncumbrances(c, 2);
            } else if (Is(c, "Area")) {
                ReadArea(c, 2);
            } else if (Has(c, "Entity_Spatial") || Has(c, "EntitySpatial")) {
                TGrParcelRef g = ReadEntitySpatial(c);
                if (RewriteXML && g) {
                    sp.Obj = g;
                    sp.IsGraphic = true;
                }
            } else if (Is(c, "Object_Entry") || Is(c, "ObjectEntry")) {
                sp.CadastralNumber = std::string(s->GetAttribute("CadastralNumber"));
                const std::string t(s->GetAttribute("Type"));
                if (t.size() >= 7) sp.Mean = fClassList.GetKlassString("ВидыОб", t);
            }
        }
    }
}

void TlibImportXML::ReadEncumbrances(xml::PXMLNode aNode, int aOwner) {
    EACH_CHILD(e, aNode) {
        if (!Is(e, "Encumbrance")) continue;
        EACH_CHILD(c, e) {
            if (Is(c, "Name")) {
                const std::string text = e->Text();  // the whole element's text
                if (aOwner == 1) {
                    Grow(XMLParcel.Encs, XMLParcel.EncCnt).Name_ = text;
                } else if (XMLParcel.SubParcelCnt > 0) {
                    TXMLSubParcel& sp = XMLParcel.XMLSubParcel[static_cast<size_t>(XMLParcel.SubParcelCnt - 1)];
                    sp.Mean = Trim(sp.Mean).empty() ? text : sp.Mean + ". " + text;
                }
            } else if (Is(c, "Type") && aOwner == 2 && XMLParcel.SubParcelCnt > 0) {
                XMLParcel.XMLSubParcel[static_cast<size_t>(XMLParcel.SubParcelCnt - 1)].Encumbrance =
                    fClassList.GetKlassString("Ограничения АИС", e->Text());
            }
        }
    }
}

void TlibImportXML::ReadEncumbrance(xml::PXMLNode aNode, int aOwner) {
    EACH_CHILD(c, aNode) {
        if (Is(c, "Name")) {
            const std::string text = c->Text();
            if (aOwner == 1) {
                Grow(XMLParcel.Encs, XMLParcel.EncCnt).Name_ = text;
            } else if (XMLParcel.SubParcelCnt > 0) {
                TXMLSubParcel& sp = XMLParcel.XMLSubParcel[static_cast<size_t>(XMLParcel.SubParcelCnt - 1)];
                sp.Mean = Trim(sp.Mean).empty() ? text : sp.Mean + ". " + text;
            }
        } else if (Is(c, "Type") && aOwner == 2 && XMLParcel.SubParcelCnt > 0) {
            XMLParcel.XMLSubParcel[static_cast<size_t>(XMLParcel.SubParcelCnt - 1)].Encumbrance =
                fClassList.GetKlassString("Ограничения АИС", c->Text());
        }
    }
}

void TlibImportXML::ReadGroundPayments(xml::PXMLNode aNode) {
    XMLParcel.CharCnt = 0;
    EACH_CHILD(g, aNode) {
        if (!Is(g, "Ground_Payment")) continue;
        TXMLChar& ch = Grow(XMLParcel.Chars, XMLParcel.CharCnt);
        ch.Type_ = std::string(g->GetAttribute("Kind"));
        ch.TypeStr = fClassList.GetKlassString("ЭкономическиеХарактеристики", ch.Type_);  // never loaded: empty
        ch.Value = FloatOf(g->GetAttribute("Value"));
        ch.Eiz = fClassList.GetKlassString("Единицы измерения АИС", g->GetAttribute("Unit"));
        ch.Date = ParseXmlDate(g->GetAttribute("Date"));
        // A payment of the kind 16010 is the cadastral cost.
        if (ch.Type_.size() >= 6 && StrictInt(ch.Type_.substr(1, 5)) == 16010) XMLParcel.Ks = ch;
    }
}

void TlibImportXML::ReadContactor(xml::PXMLNode aNode) {
    XMLParcel.ContDate = ParseXmlDate(aNode->GetAttribute("Date"));
    EACH_CHILD(c, aNode) if (Is(c, "GUID_FL")) XMLParcel.ContGUID = c->Text();
}

void TlibImportXML::ReadParcelNeighbours(xml::PXMLNode aNode) {
    XMLParcel.NeiDefCnt = 0;
    EACH_CHILD(n, aNode) {
        if (!Has(n, "ParcelNeighbour")) continue;
        TXMLOn& on = Grow(XMLParcel.NeiDefs, XMLParcel.NeiDefCnt);
        on.CadastralNumber = std::string(n->GetAttribute("CadastralNumber"));
        EACH_CHILD(c, n) {
            if (Has(c, "ContactAddress")) on.Address = c->Text();
            else if (Has(c, "Email")) on.Email = c->Text();
        }
    }
}

void TlibImportXML::ReadOffspringParcels(xml::PXMLNode aNode) {
    XMLParcel.NewKnCnt = 0;
    EACH_CHILD(c, aNode) if (Has(c, "CadastralNumber")) Grow(XMLParcel.NewKns, XMLParcel.NewKnCnt) = c->Text();
}

void TlibImportXML::ReadPrevNumbers(xml::PXMLNode aNode) {
    XMLParcel.OldKnCnt = 0;
    EACH_CHILD(c, aNode) if (Has(c, "CadastralNumber")) Grow(XMLParcel.OldKns, XMLParcel.OldKnCnt) = c->Text();
}

void TlibImportXML::ReadCompositionEZ(xml::PXMLNode aNode) {
    XMLParcel.EntryCnt = 0;
    EACH_CHILD(e, aNode) {
        if (!Has(e, "EntryParcel")) continue;
        ++XMLParcel.EntryCnt;
        XMLParcel.EntryParcel.resize(static_cast<size_t>(XMLParcel.EntryCnt));
        TXMlEntryParcel& entry = XMLParcel.EntryParcel.back();
        entry = TXMlEntryParcel{};
        entry.Number = std::string(e->GetAttribute("CadastralNumber"));
        entry.NumberEZ = XMLParcel.Number;
        entry.Block = XMLParcel.Block;
        entry.DateEnd = ParseXmlDate(e->GetAttribute("DateRemoved"));
        entry.Status = fClassList.GetKlassString("Статус участка", e->GetAttribute("State"));
        EACH_CHILD(c, e) {
            if (Has(c, "Area")) {
                entry.AreaCnt = 0;
                entry.XMLArea.clear();
                ReadArea(c, 3);
            } else if (Has(c, "EntitySpatial")) {
                TGrParcelRef g = ReadEntitySpatial(c);
                if (RewriteXML && g) {
                    entry.Obj = g;
                    entry.IsGraphic = true;
                }
            }
        }
    }
}

}  // namespace tmi
