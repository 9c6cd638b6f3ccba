// The new-format records: the statement's header, land records with their address, params,
// parts and rights, and the buildings, constructions and unfinished objects of a plan.
#include <algorithm>
#include <cstdio>

#include "reader_support.h"

namespace tmi {

using namespace readers;

namespace {

// Numbers of these records: the standard conversion, 0 when it fails.
double Number(std::string_view aText) {
    double v = 0;
    return TryStrToFloat(aText, v) ? v : 0;
}

std::string Like(xml::PXMLNode aNode, std::string_view aName) { return TlibImportXML::ChildTextLike(aNode, aName); }

std::string ShortDate(TDateTime aDate) {
    int y, m, d, h, n, s, ms;
    DecodeDateTime(aDate, y, m, d, h, n, s, ms);
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", d, m, y);
    return buf;
}

void AddPart(std::string& aText, const std::string& aPart) {
    if (!aText.empty()) aText += ", ";
    aText += aPart;
}

}  // namespace

std::string TlibImportXML::ShortParcelNumber(std::string_view aNumber) {
    const size_t colon = aNumber.rfind(':');
    return std::string(colon == std::string_view::npos ? aNumber : aNumber.substr(colon));
}

void TlibImportXML::ReadDetailsStatement(xml::PXMLNode aNode) {
    EACH_CHILD(g, aNode) {
        if (!Is(g, "group_top_requisites")) continue;
        EACH_CHILD(c, g) {
            if (Has(c, "organ_registr_rights")) {
                XMLSert.Organization = c->Text();
            } else if (Has(c, "date_formation")) {
                XMLSert.Date = ParseXmlDate(c->Text());
                XMLParcel.ContDate = XMLSert.Date;
            } else if (Has(c, "registration_number")) {
                XMLSert.Number = c->Text();
                XMLParcel.ContGUID = XMLSert.Number;
            }
        }
    }
}

void TlibImportXML::ReadAddressLocation(xml::PXMLNode aNode) {
    std::string text, okato, kladr;
    EACH_CHILD(address, aNode) {
        if (!Is(address, "address")) continue;
        EACH_CHILD(c, address) {
            if (Has(c, "readable_address")) {
                text = c->Text();
            } else if (Has(c, "address_fias")) {
                EACH_CHILD(level, c) {
                    if (Is(level, "level_settlement")) {
                        EACH_CHILD(part, level) {
                            if (Has(part, "okato")) okato = part->Text();
                            else if (Has(part, "kladr")) kladr = part->Text();
                            else if (Has(part, "district"))
                                AddPart(text, Trim(Like(part, "name_district") + " " + Like(part, "type_district")));
                            else if (Has(part, "locality"))
                                AddPart(text, Trim(Like(part, "type_locality") + " " + Like(part, "name_locality")));
                        }
                    } else if (Is(level, "detailed_level")) {
                        EACH_CHILD(part, level) {
                            if (!(Has(part, "city") || Has(part, "street") || Has(part, "level1") || Has(part, "level2") ||
                                  Has(part, "level3")))
                                continue;
                            const std::string name(part->NodeName());
                            AddPart(text, Trim(Like(part, "type_" + name) + " " + Like(part, "name_" + name)));
                        }
                    }
                }
            }
        }
    }
    XMLParcel.Place = text;
    XMLParcel.OKATO = okato;
    XMLParcel.KLADR = kladr;
}

void TlibImportXML::ReadLandParams(xml::PXMLNode aNode) {
    EACH_CHILD(c, aNode) {
        if (Is(c, "category")) {
            EACH_CHILD(t, c) {
                if (!Has(t, "type")) continue;
                XMLParcel.Category = Like(t, "value");
                // A 32-bit integer, 0 when the code is none ("003002000000" is beyond the range).
                int64_t code = 0;
                XMLParcel.Katzem =
                    TryStrToInt(Like(t, "code"), code) && code >= INT32_MIN && code <= INT32_MAX ? static_cast<int32_t>(code) : 0;
            }
        } else if (Is(c, "permitted_use")) {
            EACH_CHILD(e, c) {
                if (!Has(e, "permitted_use_established")) continue;
                std::string mean = Like(e, "by_document");
                if (mean.empty())
                    EACH_CHILD(u, e) if (Has(u, "land_use_mer")) mean = Like(e, "value");
                if (mean.empty())
                    EACH_CHILD(u, e) if (Has(u, "land_use")) mean = Like(e, "value");
                XMLParcel.Mean = mean;
            }
        } else if (Is(c, "area")) {
            XMLParcel.AreaCnt = 1;
            if (XMLParcel.XMLArea.empty()) XMLParcel.XMLArea.resize(1);
            XMLParcel.XMLArea[0] = TXMLArea{{}, {}, Number(Like(c, "value")), "кв.м.", Number(Like(c, "inaccuracy"))};
        }
    }
}

void TlibImportXML::ReadObjectParts(xml::PXMLNode aNode) {
    EACH_CHILD(part, aNode) {
        if (!Is(part, "object_part")) continue;
        ++XMLParcel.SubParcelCnt;
        if (static_cast<int32_t>(XMLParcel.XMLSubParcel.size()) < XMLParcel.SubParcelCnt)
            XMLParcel.XMLSubParcel.resize(static_cast<size_t>(XMLParcel.SubParcelCnt));
        TXMLSubParcel& sp = XMLParcel.XMLSubParcel[static_cast<size_t>(XMLParcel.SubParcelCnt - 1)];
        sp.IsGraphic = false;
        sp.AreaCnt = 0;
        EACH_CHILD(c, part) {
            if (Is(c, "entry_date")) {
                sp.Date = ParseXmlDate(c->Text());
            } else if (Is(c, "part_number")) {
                sp.CalcNumber = c->Text();
            } else if (Is(c, "area")) {
                sp.Area = Number(Like(c, "value"));
            } else if (Is(c, "contours")) {
                bool found = false;
                TGrParcelRef g = ReadContoursNew(part, false, false, found);
                if (Cancelled()) return;
                if (RewriteXML) {
                    sp.Obj = g;
                    sp.IsGraphic = true;  // an empty object writes no clause
                }
            }
        }
    }
}

void TlibImportXML::ReadRightRecords(xml::PXMLNode aNode) {
    if (!RewriteXML) return;
    EACH_CHILD(record, aNode) {
        if (!Is(record, "right_record")) continue;
        ++XMLParcel.RightCnt;
        if (static_cast<int32_t>(XMLParcel.XMLRight.size()) < XMLParcel.RightCnt)
            XMLParcel.XMLRight.resize(static_cast<size_t>(XMLParcel.RightCnt));
        TXMLRight& r = XMLParcel.XMLRight[static_cast<size_t>(XMLParcel.RightCnt - 1)];
        EACH_CHILD(c, record) {
            if (Is(c, "right_data")) {
                const std::string number = Like(c, "right_number");
                std::string kind;
                EACH_CHILD(t, c) if (Is(t, "right_type")) kind = Like(t, "value");
                r.Register1 = number;
                r.Kind = kind;
            } else if (Is(c, "record_info")) {
                const std::string date = Like(c, "registration_date");
                if (date.size() >= 10) {
                    TDateTime d;
                    if (TryStrToDateTime(date.substr(8, 2) + "." + date.substr(5, 2) + "." + date.substr(0, 4), d)) r.DateReg1 = d;
                }
            } else if (Is(c, "right_holders")) {
                std::string holder;
                EACH_CHILD(h, c) {
                    if (!Is(h, "right_holder")) continue;
                    EACH_CHILD(kind, h) {
                        if (Is(kind, "public_formation")) {
                            holder = DeepChildText(kind, "value");
                        } else if (Is(kind, "individual")) {
                            holder = DeepChildText(kind, "surname") + " " + DeepChildText(kind, "name");
                            const std::string patronymic = DeepChildText(kind, "patronymic");
                            if (!patronymic.empty()) holder += " " + patronymic;
                        } else if (Is(kind, "legal_entity")) {
                            holder = DeepChildText(kind, "full_name");
                            if (holder.empty()) holder = DeepChildText(kind, "name");
                        } else if (Is(kind, "another")) {
                            holder = DeepChildText(kind, "name");
                        }
                    }
                }
                r.Owner = holder;
            }
        }
    }
}

void TlibImportXML::ReadLandRecord(xml::PXMLNode aNode) {
    TXMLParcel& p = XMLParcel;
    debugPrint = false;
    p.IsGraphic = false;
    p.Obj = nullptr;
    p.ContDate = XMLSert.Date;
    p.ContGUID = XMLSert.Number;
    fcnbuf.clear();
    p.Status = fStateXML;
    p.Name_.clear();
    p.Number.clear();
    p.Kind.clear();
    p.NumberEZ.clear();
    p.Remarka.clear();
    p.Category.clear();
    p.Mean.clear();
    p.Place.clear();
    p.OKATO.clear();
    p.KLADR.clear();
    p.Date1 = p.Date2 = XMLSert.Date;
    p.Katzem = p.AreaCnt = p.RightCnt = p.SubParcelCnt = p.EntryCnt = p.NeiDefCnt = p.OldKnCnt = p.NewKnCnt = 0;
    EACH_CHILD(c, aNode) {
        // The extremes pass reads the contours alone: no number, no filter.
        if (!RewriteXML && !Has(c, "contours_location")) continue;
        if (Is(c, "object")) {
            EACH_CHILD(o, c) {
                if (Is(o, "subtype")) {
                    EACH_CHILD(v, o) if (Is(v, "value")) p.Kind = v->Text();
                } else if (Is(o, "common_data")) {
                    EACH_CHILD(d, o) {
                        if (Is(d, "type")) {
                            EACH_CHILD(v, d) if (Is(v, "value")) p.Name_ = v->Text();
                        } else if (Is(d, "quarter_cad_number")) {
                            p.Block = d->Text();
                        } else if (Is(d, "cad_number")) {
                            p.Number = d->Text();
                            ParcelStr += p.Number;
                            fcnbuf = p.Number;
                            if (FProgress) FProgress->SetText(ParcelStr);
                            if (Cancelled()) return;
                            // The console's list of numbers.
                            if (fPoints == 2 &&
                                std::none_of(arrCn.begin(), arrCn.end(), [&](const std::string& cn) { return SameText(cn, p.Number); }))
                                return;
                        }
                    }
                }
            }
        } else if (Is(c, "cad_links")) {
            EACH_CHILD(l, c) {
                if (!Is(l, "common_land")) continue;
                EACH_CHILD(n, l) {
                    if (!Is(n, "common_land_cad_number")) continue;
                    EACH_CHILD(v, n) if (Is(v, "cad_number")) p.NumberEZ = v->Text();
                }
            }
        } else if (Is(c, "address_location")) {
            ReadAddressLocation(c);
        } else if (Is(c, "params")) {
            ReadLandParams(c);
        } else if (Has(c, "contours_location")) {
            XMLStopCont = false;
            if (fSplitContours == 1 || fSplitContours == 2) {
                p.ContCnt = 0;
                NumbPp.clear();
            }
            int contours = 0;
            EACH_CHILD(list, c) {
                if (!Is(list, "contours")) continue;
                EACH_CHILD(k, list) contours += Is(k, "contour") ? 1 : 0;
            }
            if (contours > 0) {
                fRings.fcont = fRings.fes = fRings.freg = 0;
                TGrParcelRef g = ReadContoursNew(c, true, true, p.IsGraphic);
                if (Cancelled()) return;
                if (RewriteXML) p.Obj = g;
            }
        } else if (Is(c, "cost")) {
            p.Ks.Value = Number(Like(c, "value"));
            p.Ks.Eiz = "руб.";
        } else if (Is(c, "object_parts")) {
            ReadObjectParts(c);
        }
        if (DoAbort) return;
    }
    if (!RewriteXML) return;
    // Rights only in a land extract.
    std::string holders, rights;
    if (rootnm == "extract_about_property_land" && aNode->ParentNode()) {
        EACH_CHILD(s, aNode->ParentNode()) {
            if (!Is(s, "right_records")) continue;
            ReadRightRecords(s);
            break;
        }
        for (int i = 0; i < p.RightCnt; ++i) {
            const TXMLRight& r = p.XMLRight[static_cast<size_t>(i)];
            if (i > 0) {
                holders += ';';
                rights += ';';
            }
            holders += Trim(r.Owner);
            rights += Trim(r.Owner) + " " + Trim(r.Kind);
            if (!Trim(r.Register1).empty()) rights += " " + r.Register1 + " от " + ShortDate(r.DateReg1);
        }
    }
    OpenGMTable("Участки");
    if (p.IsGraphic && p.Obj) {
        NewGMRecord(true, 2);
        WriteGrParcel(*p.Obj, true);
    } else {
        NewGMRecord(false, 2);
    }
    const int id = ++OpenTable().counter;
    SetGMField("TableId", TcsVariant(id));
    SetGMField("КадастровыйБлок", TcsVariant(p.Block));
    SetGMField("КадастровыйНомер", TcsVariant(p.Number));
    SetGMField("КНомер", TcsVariant(ShortParcelNumber(p.Number)));
    SetGMField("Вид", TcsVariant(p.Kind));
    if (p.IsGraphic) SetGMField("IsGraphic", TcsVariant(1));
    SetParcelColumns(p, holders);
    SetGMField("НомерОснования", TcsVariant(XMLSert.Number));
    SetGMField("Получатель", TcsVariant(XMLeDoc.Recipient));
    SetGMField("ДатаВыгрузки", TcsVariant(XMLeDoc.SenderDate));
    SetGMField("КадастроваяСтоимость", TcsVariant(p.Ks.Value));
    SetGMField("ЕИКС", TcsVariant(p.Ks.Eiz));
    SetGMField("ДатаКС", TcsVariant(p.Ks.Date));
    SetGMField("ВидПрава", TcsVariant(rights));
    SetGMField("Обременения", TcsVariant(std::string()));
    SetGMField("SpecialNote", TcsVariant(p.SpecialNote));
    SetGMField("ContDate", TcsVariant(p.ContDate));
    SetGMField("ContGUID", TcsVariant(p.ContGUID));
    SetGMField("iBlock", TcsVariant(p.Block));
    SetGMField("iParcel", TcsVariant(p.Number));
    PostGMRecord();
    OpenGMTable("ЧастиУчастка");
    for (int i = 0; i < p.SubParcelCnt; ++i) {
        const TXMLSubParcel& sp = p.XMLSubParcel[static_cast<size_t>(i)];
        if (sp.IsGraphic && sp.Obj) {
            NewGMRecord(true, 2);
            WriteGrParcel(*sp.Obj, true);
        } else {
            NewGMRecord(false, 2);
        }
        SetGMField("КодУчастка", TcsVariant(id));
        if (sp.IsGraphic) SetGMField("IsGraphic", TcsVariant(1));
        SetGMField("КадастровыйНомер", TcsVariant(sp.CadastralNumber));
        SetGMField("УчетныйНомер", TcsVariant(sp.CalcNumber));
        SetGMField("НомерЕЗ", TcsVariant(p.NumberEZ));
        SetGMField("Дата", TcsVariant(sp.Date));
        SetGMField("Площадь1", TcsVariant(sp.Area));
        SetGMField("ContDate", TcsVariant(p.ContDate));
        SetGMField("ContGUID", TcsVariant(p.ContGUID));
        SetGMField("iBlock", TcsVariant(p.Block));
        SetGMField("iParcel", TcsVariant(p.Number));
        PostGMRecord();
    }
}

void TlibImportXML::ReadRealtyRecord(xml::PXMLNode aNode, int aKind) {
    std::string number, kind, purpose, address;
    double area = 0, cost = 0;
    debugPrint = false;
    if (RewriteXML) {
        fWriteRad = true;
        fPointRad.Clear();
    }
    std::unique_ptr<TcsGeometry> geometry;
    EACH_CHILD(c, aNode) {
        if (Is(c, "object")) {
            EACH_CHILD(d, c) {
                if (!Is(d, "common_data")) continue;
                number = Like(d, "cad_number");
                fcnbuf = number;
                EACH_CHILD(t, d) if (Is(t, "type")) kind = Like(t, "value");
            }
        } else if (Is(c, "params")) {
            if (aKind == 0) {
                area = Number(Like(c, "area"));
                EACH_CHILD(p, c) if (Is(p, "purpose")) purpose = Like(p, "value");
            } else {
                purpose = Like(c, "purpose");
                EACH_CHILD(b, c) {
                    if (!Is(b, "base_parameters")) continue;
                    EACH_CHILD(bp, b) {
                        if (!Is(bp, "base_parameter")) continue;
                        const std::string a = Like(bp, "area");
                        area = Number(a);
                        if (!purpose.empty() && !a.empty()) purpose += "; ";
                        if (!a.empty()) purpose += "площадь: " + a + "кв.м";
                        const std::string h = Like(bp, "height");
                        if (!purpose.empty() && !h.empty()) purpose += "; ";
                        if (!h.empty()) purpose += "высота: " + h + "м";
                    }
                }
            }
        } else if (Is(c, "cost")) {
            cost = Number(Like(c, "value"));
        } else if (Is(c, "address_location")) {
            EACH_CHILD(a, c) {
                if (!Is(a, "address")) continue;
                address = Like(a, "readable_address");
                break;
            }
        } else if (Is(c, "contours") && RewriteXML) {
            geometry = std::make_unique<TcsGeometry>();
            EACH_CHILD(k, c) if (Is(k, "contour")) ReadGeometryContour(k, *geometry);
        }
    }
    if (RewriteXML) {
        OpenGMTable("Объекты");
        if (geometry && geometry->Count() > 0) {
            NewGMRecord(true, 2);
            WriteGeometry(*geometry);
            SetGMField("IsGraphic", TcsVariant(1));
        } else {
            NewGMRecord(false, 2);
        }
        SetGMField("КадастровыйНомер", TcsVariant(number));
        SetGMField("ВидТекст", TcsVariant(kind));
        SetGMField("Назначение", TcsVariant(purpose));
        SetGMField("Площадь", TcsVariant(area));
        SetGMField("Местоположение", TcsVariant(address));
        SetGMField("КадастроваяСтоимость", TcsVariant(cost));
        SetGMField("ЕИКС", TcsVariant(std::string("руб.")));
        SetGMField("ContDate", TcsVariant(XMLParcel.ContDate));
        SetGMField("ContGUID", TcsVariant(XMLParcel.ContGUID));
        SetGMField("iBlock", TcsVariant(XMLParcel.Block));
        SetGMField("iParcel", TcsVariant(number));
        PostGMRecord();
        fPointRad.Clear();
        fWriteRad = false;
    }
}

void TlibImportXML::ReadConstructionExtract(xml::PXMLNode aNode) {
    OpenGMTable("Объекты");
    SetProgressText("Импорт сооружений...");
    if (FProgress) FProgress->SetMax(ChildCount(aNode));
    simpleProgress = true;
    std::string number, typeText, purpose, address, unit, rights, works, quarter, links, name, uses;
    double area = 0, cost = 0;
    std::vector<std::pair<std::string, double>> characteristics;
    EACH_CHILD(c, aNode) {
        if (Has(c, "object")) {
            EACH_CHILD(o, c) {
                // Cleared for every child: a child after common_data wipes what it gave.
                number.clear();
                typeText.clear();
                address.clear();
                rights.clear();
                works.clear();
                quarter.clear();
                if (!Has(o, "common_data")) continue;
                EACH_CHILD(d, o) {
                    if (Is(d, "cad_number")) number = d->Text();
                    else if (Is(d, "quarter_cad_number")) quarter = d->Text();
                    else if (Is(d, "type")) typeText = fClassList.GetKlassString("ВидыОб", Like(d, "code"));
                }
            }
        } else if (Has(c, "cad_links")) {
            EACH_CHILD(l, c) {
                if (!Is(l, "land_cad_numbers")) continue;
                EACH_CHILD(n, l) {
                    if (!Is(n, "land_cad_number")) continue;
                    if (!links.empty()) links += ", ";
                    links += Like(n, "cad_number");
                }
            }
        } else if (Has(c, "params")) {
            static const std::pair<const char*, const char*> kBase[] = {
                {"built_up_area", "Площадь застройки, кв.м"}, {"extension", "Протяженность, м"}, {"depth", "Глубина, м"},
                {"occurence_depth", "Глубина залегания, м"},   {"volume", "Объем, куб.м"},      {"height", "Высота, м"}};
            static const std::pair<const char*, const char*> kParams[] = {
                {"floors", "Количество этажей"},
                {"underground_floors", "Количество подземных этажей"},
                {"year_built", "Год завершения строительства"},
                {"year_commisioning", "Год ввода в эксплуатацию"}};
            EACH_CHILD(p, c) {
                if (Is(p, "base_parameters")) {
                    EACH_CHILD(bp, p) {
                        if (!Is(bp, "base_parameter")) continue;
                        EACH_CHILD(v, bp) {
                            if (Is(v, "area")) {
                                area = Number(v->Text());
                                continue;
                            }
                            for (const auto& [element, label] : kBase)
                                if (Is(v, element)) characteristics.emplace_back(label, Number(v->Text()));
                        }
                    }
                } else if (Is(p, "purpose")) {
                    purpose = p->Text();
                } else if (Is(p, "name")) {
                    name = p->Text();
                } else if (Is(p, "permitted_uses")) {
                    EACH_CHILD(u, p) {
                        if (!Is(u, "permitted_use")) continue;
                        EACH_CHILD(n, u) if (Is(n, "name")) uses += (uses.empty() ? "" : ", ") + n->Text();
                    }
                } else {
                    for (const auto& [element, label] : kParams)
                        if (Is(p, element)) characteristics.emplace_back(label, Number(p->Text()));
                }
            }
        } else if (Is(c, "address_location")) {
            ReadAddressLocation(c);
            address = XMLParcel.Place;
        } else if (Is(c, "cost")) {
            cost = Number(c->Text());
            unit = "рублей";
        } else if (Is(c, "cad_works")) {
            EACH_CHILD(w, c) {
                if (!Is(w, "cad_work")) continue;
                EACH_CHILD(v, w) {
                    if (Is(v, "fio_cad_ingineer")) {
                        works = Like(v, "surname");
                        for (const std::string& part : {Like(v, "name"), Like(v, "patronymic")})
                            if (!part.empty()) works += " " + part;
                    } else if (Is(v, "date_cadastral")) {
                        works += " дата кадастровых работ: " + ShortDate(ParseXmlDate(v->Text()));
                    }
                }
            }
        } else if (Is(c, "contours")) {
            int contours = 0;
            EACH_CHILD(k, c) contours += Is(k, "contour") ? 1 : 0;
            if (contours > 0) {
                TGrParcelRef g = ReadContoursNew(aNode, false, false, XMLParcel.IsGraphic);
                if (Cancelled()) return;
                XMLParcel.Obj = g;
            }
        }
    }
    // Rights of the record's parent; the count goes on from what was there.
    if (aNode->ParentNode()) {
        EACH_CHILD(s, aNode->ParentNode()) if (Has(s, "right_records")) ReadRightRecords(s);
    }
    for (int i = 0; i < XMLParcel.RightCnt; ++i) {
        const TXMLRight& r = XMLParcel.XMLRight[static_cast<size_t>(i)];
        if (!rights.empty()) rights += "; ";
        rights += r.Owner + " " + r.Kind + " рег.№ " + r.Register1 + " " + ShortDate(r.DateReg1);
    }
    if (XMLParcel.IsGraphic && XMLParcel.Obj) {
        NewGMRecord(true, 2);
        WriteGrParcel(*XMLParcel.Obj, false);
        SetGMField("IsGraphic", TcsVariant(1));
    } else {
        NewGMRecord(false, 2);
        SetGMField("IsGraphic", TcsVariant(0));
    }
    SetGMField("КадастровыйНомер", TcsVariant(number));
    SetGMField("ВидТекст", TcsVariant(typeText));
    SetGMField("Назначение", TcsVariant(purpose));
    SetGMField("Площадь", TcsVariant(area));
    SetGMField("Местоположение", TcsVariant(address));
    SetGMField("КадастроваяСтоимость", TcsVariant(cost));
    SetGMField("ЕИКС", TcsVariant(unit));
    for (size_t k = 0; k < 5 && k < characteristics.size(); ++k) {
        SetGMField("ВидХ" + std::to_string(k + 1), TcsVariant(characteristics[k].first));
        SetGMField("Характеристика" + std::to_string(k + 1), TcsVariant(characteristics[k].second));
    }
    SetGMField("Права", TcsVariant(rights));
    SetGMField("КадРаботы", TcsVariant(works));
    SetGMField("ContDate", TcsVariant(XMLParcel.ContDate));
    SetGMField("ContGUID", TcsVariant(XMLParcel.ContGUID));
    SetGMField("iBlock", TcsVariant(XMLParcel.Block));
    SetGMField("iParcel", TcsVariant(XMLParcel.Number));
    PostGMRecord();
}

}  // namespace tmi
