// The new-format boundaries and zones: the boundary and zone records of a plan's groups, the
// document of one zone, and the boundary register's entries about easements and zones.
#include <filesystem>
#include <fstream>

#include "reader_support.h"

namespace tmi {

using namespace readers;

namespace {

std::string Like(xml::PXMLNode aNode, std::string_view aName) { return TlibImportXML::ChildTextLike(aNode, aName); }

void AppendWithBlank(std::string& aText, const std::string& aPart) {
    if (!aText.empty()) aText += " ";
    aText += aPart;
}

constexpr const char* kBoundaryGroupNames[] = {"subject_boundaries", "municipal_boundaries", "inhabited_locality_boundaries",
                                               "coastline_boundaries"};
constexpr const char* kBoundaryObjects[] = {"b_object_subject_boundary", "b_object_municipal_boundary",
                                            "b_object_inhabited_locality_boundary", "b_object_zones_and_territories",
                                            "b_object_coastline"};

// Equal test on the name without its prefix.
bool IsLocal(xml::PXMLNode aNode, std::string_view aName) {
    return SameText(TlibImportXML::StripNodePrefix(aNode->NodeName()), aName);
}
bool HasLocal(xml::PXMLNode aNode, std::string_view aPart) {
    return TlibImportXML::StripNodePrefix(aNode->NodeName()).find(aPart) != std::string_view::npos;
}

}  // namespace

bool TlibImportXML::ReadBoundaryRecord(xml::PXMLNode aNode, int aNumber, std::string_view aGroup) {
    bool known = false;
    for (const char* g : kBoundaryGroupNames) known = known || SameText(aGroup, g);
    if (!known) return false;
    if (static_cast<int>(XMLBound.size()) < aNumber) XMLBound.resize(static_cast<size_t>(aNumber));
    TXMLBound& b = XMLBound[static_cast<size_t>(aNumber - 1)];
    b.BType.clear();
    b.BName.clear();
    EACH_CHILD(c, aNode) {
        bool object = false;
        for (const char* o : kBoundaryObjects) object = object || Is(c, o);
        if (object) {
            EACH_CHILD(d, c) {
                if (Is(d, "b_object")) {
                    b.UchNum = Like(d, "reg_numb_border");
                    EACH_CHILD(t, d) if (Is(t, "type_boundary")) b.BType = Like(t, "value");
                } else if (Is(d, "water")) {
                    // The name of a coastline: water type and name, in document order.
                    EACH_CHILD(w, d) {
                        if (Is(w, "water_object_type")) AppendWithBlank(b.BName, Like(w, "value"));
                        else if (Is(w, "water_object_name")) AppendWithBlank(b.BName, w->Text());
                    }
                }
            }
        } else if (Is(c, "b_contours_location")) {
            bool found = false;
            TGrParcelRef g = ReadContoursNew(c, false, true, found);
            if (Cancelled()) break;
            b.Obj = found ? g : nullptr;
        }
    }
    return true;
}

bool TlibImportXML::ReadZoneRecord(xml::PXMLNode aNode, int aNumber) {
    if (static_cast<int>(XMLZone.size()) < aNumber) XMLZone.resize(static_cast<size_t>(aNumber));
    TXMLBound& z = XMLZone[static_cast<size_t>(aNumber - 1)];
    z.BType.clear();
    z.BName.clear();
    EACH_CHILD(c, aNode) {
        if (Is(c, "b_object_zones_and_territories")) {
            EACH_CHILD(d, c) {
                if (Is(d, "b_object")) {
                    z.UchNum = Like(d, "reg_numb_border");
                    // The boundary's type lands in the name here.
                    EACH_CHILD(t, d) if (Is(t, "type_boundary")) z.BName = Like(t, "value");
                } else if (Is(d, "type_zone")) {
                    z.BType = Like(d, "value");
                } else if (Is(d, "number")) {
                    z.BName = z.BName.empty() ? d->Text() : z.BName + " " + d->Text();
                }
            }
        } else if (Is(c, "b_contours_location")) {
            bool found = false;
            z.Obj = ReadContoursNew(c, false, true, found);
            if (Cancelled()) break;
        }
    }
    return true;
}

void TlibImportXML::ReadZoneTerritorySurveying(xml::PXMLNode aNode) {
    if (XMLZone.empty()) XMLZone.resize(1);
    TXMLBound& z = XMLZone[0];
    z.BType.clear();
    z.BName.clear();
    bool found = false;
    EACH_CHILD(zone, aNode) {
        if (!Is(zone, "zones_and_territories")) continue;
        z.UchNum = Like(zone, "reg_numb_border");
        z.UtName = Like(zone, "content_restrict_encumbrances");
        EACH_CHILD(c, zone) {
            if (Is(c, "type_boundary")) {
                z.BType = Like(c, "value");
            } else if (Is(c, "object")) {
                z.BName = Like(c, "name_by_doc");
                EACH_CHILD(t, c) if (Is(t, "type_zone")) z.BType = Like(t, "value");
            } else if (Is(c, "decisions_requisites")) {
                int count = 0;
                EACH_CHILD(d, c) {
                    if (!Is(d, "decision_requisites")) continue;
                    if (++count >= 5) continue;  // four are kept
                    const size_t k = static_cast<size_t>(count - 1);
                    z.DocName[k] = Like(d, "document_name");
                    z.DocNumber[k] = Like(d, "document_number");
                    z.DocDate[k] = ParseXmlDate(Like(d, "document_date"));
                    z.DocOrgan[k] = Like(d, "document_issuer");
                    EACH_CHILD(code, d) if (Is(code, "document_code")) z.DocType[k] = Like(code, "value");
                }
            } else if (Is(c, "contours_location")) {
                z.Obj = ReadContoursNew(c, true, true, found);
                if (Cancelled()) return;
            }
        }
    }
    if (!RewriteXML) return;
    OpenGMTable("Зоны");
    if (found && z.Obj) {
        NewGMRecord(true, 2);
        WriteGrParcel(*z.Obj, true);
    } else {
        NewGMRecord(false, 2);
    }
    SetGMField("ВидЗоны", TcsVariant(z.BType));
    SetGMField("Содержание", TcsVariant(z.BName));
    SetGMField("Примечание", TcsVariant(z.UtName));
    SetGMField("УчетныйНомер", TcsVariant(z.UchNum));
    for (size_t k = 0; k < 3; ++k) {
        const std::string n = std::to_string(k + 1);
        SetGMField("ДокТип" + n, TcsVariant(z.DocType[k]));
        SetGMField("ДокНазвание" + n, TcsVariant(z.DocName[k]));
        SetGMField("ДокНомер" + n, TcsVariant(z.DocNumber[k]));
        SetGMField("ДокДата" + n, TcsVariant(z.DocDate[k]));
        SetGMField("ДокОрган" + n, TcsVariant(z.DocOrgan[k]));
    }
    PostGMRecord();
}

void TlibImportXML::ReadRegistryBoundaries(xml::PXMLNode aNode) {
    std::string kind, name, whole = "1", location, block, fias, okato, kladr, oktmo, district, period, note, zoneType,
                number, protectedObject, purpose, purposeOther, holderType, holder, decision;
    int kindOfEntry = 0;
    TGrParcelRef geometry;
    bool found = false;
    auto locations = [&](xml::PXMLNode aNodeWithLocations, bool aDistrict) {
        EACH_CHILD(l, aNodeWithLocations) {
            if (!HasLocal(l, "location")) continue;
            EACH_CHILD(part, l) {
                if (HasLocal(part, "fias")) fias = part->Text();
                else if (HasLocal(part, "okato")) okato = part->Text();
                else if (HasLocal(part, "kladr")) kladr = part->Text();
                else if (HasLocal(part, "oktmo")) oktmo = part->Text();
                else if (aDistrict && HasLocal(part, "district")) {
                    std::string type, districtName;
                    EACH_CHILD(d, part) {
                        if (HasLocal(d, "type_district")) type = d->Text();
                        else if (HasLocal(d, "name_district")) districtName = d->Text();
                    }
                    if (!type.empty() && !districtName.empty()) district = type + " " + districtName;
                }
            }
        }
    };
    auto holderOf = [&](xml::PXMLNode aHolder) {
        EACH_CHILD(le, aHolder) {
            if (!HasLocal(le, "legal_entity")) continue;
            EACH_CHILD(c, le) {
                if (HasLocal(c, "type")) {
                    holderType = fClassList.GetKlassString("Тип субъекта правоотношений", c->Text());
                } else if (HasLocal(c, "entity_govement")) {
                    EACH_CHILD(r, c) {
                        if (!HasLocal(r, "resident")) continue;
                        EACH_CHILD(v, r) {
                            if (HasLocal(v, "full_name")) AppendWithBlank(holder, v->Text());
                            else if (HasLocal(v, "inn")) AppendWithBlank(holder, "ИНН " + v->Text());
                            else if (HasLocal(v, "ogrn")) AppendWithBlank(holder, "ОГРН " + v->Text());
                        }
                    }
                } else if (HasLocal(c, "contacts")) {
                    EACH_CHILD(v, c) {
                        if (HasLocal(v, "email")) AppendWithBlank(holder, "Email " + v->Text());
                        else if (HasLocal(v, "mailing_addess")) AppendWithBlank(holder, "Почтовый адрес " + v->Text());
                    }
                }
            }
        }
    };
    auto contours = [&](xml::PXMLNode aLocation) {
        geometry = ReadContoursPrefixed(aLocation, false, whole == "1", found);
        if (Cancelled()) return false;
        EACH_CHILD(t, aLocation) if (HasLocal(t, "location_text")) location = t->Text();
        return true;
    };
    EACH_CHILD(entry, aNode) {
        if (!IsLocal(entry, "information_registry_boundary")) continue;
        kind = name = location = block = fias = okato = kladr = oktmo = district = period = note = zoneType = number =
            protectedObject = purpose = purposeOther = holderType = holder = decision = "";
        whole = "1";
        kindOfEntry = 0;
        geometry = nullptr;
        found = false;
        EACH_CHILD(c, entry) {
            if (IsLocal(c, "type_boundary")) {
                const std::string code = Like(c, "code");
                kind = fClassList.GetKlassString("Вид объекта реестра границ", code.empty() ? c->Text() : code);
            } else if (IsLocal(c, "name_object")) {
                name = c->Text();
            } else if (IsLocal(c, "all_border_or_part_border")) {
                whole = c->Text();
            } else if (IsLocal(c, "information_boundary")) {
                EACH_CHILD(branch, c) {
                    const bool easement = IsLocal(branch, "public_easement");
                    const bool zone = IsLocal(branch, "zones_and_territories");
                    if (!easement && !zone) continue;
                    kindOfEntry = easement ? 1 : 2;
                    EACH_CHILD(change, branch) {
                        if (easement ? !(IsLocal(change, "establishment_public_easement") || IsLocal(change, "changing_public_easement"))
                                     : !(IsLocal(change, "establishment_zones_and_territories") ||
                                         IsLocal(change, "changing_zones_and_territories")))
                            continue;
                        EACH_CHILD(part, change) {
                            if (IsLocal(part, easement ? "object_public_easement" : "object_zones_and_territories")) {
                                EACH_CHILD(v, part) {
                                    if (easement) {
                                        if (HasLocal(v, "quarter_cad_number")) block = v->Text();
                                        else if (HasLocal(v, "locations")) locations(v, false);
                                        else if (HasLocal(v, "authority_decision")) decision = v->Text();
                                        else if (HasLocal(v, "other")) note = v->Text();
                                    } else {
                                        if (HasLocal(v, "cadastral_district")) block = v->Text();
                                        else if (HasLocal(v, "name_by_doc")) name = v->Text();
                                        else if (HasLocal(v, "type_zone")) zoneType = fClassList.GetKlassString("Типы зон", v->Text());
                                        else if (HasLocal(v, "number")) number = v->Text();
                                        else if (HasLocal(v, "locations")) locations(v, true);
                                        else if (HasLocal(v, "authority_decision")) decision = v->Text();
                                        else if (HasLocal(v, "other")) note = v->Text();
                                    }
                                }
                            } else if (easement && IsLocal(part, "parameter_public_easement")) {
                                EACH_CHILD(v, part) {
                                    if (HasLocal(v, "purpose_public_easement"))
                                        purpose = fClassList.GetKlassString("Цели установления публичного сервитута", v->Text());
                                    else if (HasLocal(v, "period_type"))
                                        period = Like(v, "deal_validity_time");
                                    else if (HasLocal(v, "purpose_other"))
                                        purposeOther = v->Text();
                                    else if (HasLocal(v, "holder_public_easement"))
                                        holderOf(v);
                                }
                            } else if (!easement && IsLocal(part, "zone_parameter")) {
                                EACH_CHILD(v, part) {
                                    if (HasLocal(v, "content_restrict_encumbrances")) {
                                        note = v->Text();
                                    } else if (HasLocal(v, "period")) {
                                        period = Like(v, "deal_validity_time");
                                        if (!Like(v, "iBND2:deal_validity_time").empty()) period = Like(v, "iBND2:deal_validity_time");
                                        if (Like(v, "indefinitely") == "true" || Like(v, "iBND2:indefinitely") == "true") period = "бессрочно";
                                    } else if (HasLocal(v, "protected_object")) {
                                        protectedObject = v->Text();
                                    } else if (HasLocal(v, "holder_public_easement")) {
                                        holderOf(v);
                                    }
                                }
                            } else if (IsLocal(part, "contours_location")) {
                                if (!contours(part)) return;
                            }
                        }
                    }
                }
            }
        }
    }
    if (!RewriteXML) return;
    // One row after the walk: of several entries the last one's data stands.
    OpenGMTable("Зоны");
    if (found && geometry) {
        NewGMRecord(true, 2);
        WriteGrParcel(*geometry, true);
        SetGMField("IsGraphic", TcsVariant(1));
    } else {
        NewGMRecord(false, 2);
    }
    SetGMField("TableId", TcsVariant(1));
    SetGMField("ContGUID", TcsVariant(docGUID));
    SetGMField("ContDate", TcsVariant(docDate));
    SetGMField("iBlock", TcsVariant(block));
    SetGMField("iParcel", TcsVariant(docGUID));
    SetGMField("УчетныйНомер", TcsVariant(number));
    SetGMField("ВидЗоны", TcsVariant(kind));
    SetGMField("Содержание", TcsVariant(name));
    SetGMField("ДокТип1", TcsVariant("местоположение: " + location));
    std::string codes = "ФИАС " + fias + " ОКАТО " + okato + " КЛАДР " + kladr + " ОКТМО " + oktmo;
    if (!district.empty()) codes += " " + district;
    SetGMField("ДокНазвание1", TcsVariant(Trim(codes)));
    if (kindOfEntry == 1) SetGMField("ДокНомер1", TcsVariant("кварт: " + block));
    if (kindOfEntry == 2) SetGMField("ДокНомер1", TcsVariant("кад.район: " + block));
    SetGMField("ДокОрган1", TcsVariant("срок сервитута: " + period));
    SetGMField("Примечание", TcsVariant(note));
    SetGMField("ДокТип2", TcsVariant(zoneType));
    SetGMField("ДокНазвание2", TcsVariant(protectedObject));
    SetGMField("ДокНазвание3", TcsVariant(rootnm));
    SetGMField("ДокОрган2", TcsVariant(docGUID));
    PostGMRecord();
    XMLParcel.Number = docGUID;
    XMLParcel.Block = block;
    OpenGMTable("Участки");
    NewGMRecord(false, 2);
    SetGMField("ContGUID", TcsVariant(docGUID));
    SetGMField("ContDate", TcsVariant(docDate));
    SetGMField("iBlock", TcsVariant(block));
    SetGMField("iParcel", TcsVariant(docGUID));
    PostGMRecord();
    // The note file: "<output>/Зоны/Примечание/.txt", replaced by every document.
    std::string folder = Trim(fOutputFile);
    if (!folder.empty() && folder.back() != '/') folder += '/';
    folder += "Зоны/Примечание";
    std::error_code ec;
    if (!std::filesystem::is_directory(folder, ec)) {
        std::filesystem::create_directories(folder, ec);
        if (ec) return;
    }
    std::ofstream file(folder + "/.txt", std::ios::binary | std::ios::trunc);
    if (!file) throw Exception("Не удалось записать файл " + folder + "/.txt");
    file << note << "\n";
}

}  // namespace tmi
