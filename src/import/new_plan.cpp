// The new-format plan reader: cadastral blocks, their record sections, survey points, the
// block boundary, the boundary groups and the zones.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "reader_support.h"

namespace tmi {

using namespace readers;

namespace {

std::string Counted(const char* aFormat, int aIndex, int aCount) {
    std::string s(aFormat);
    const size_t a = s.find("%d");
    s.replace(a, 2, std::to_string(aIndex));
    const size_t b = s.find("%d");
    s.replace(b, 2, std::to_string(aCount));
    return s;
}

// The record sections of base_data, in the order they are tested.
struct RecordSection {
    const char* fSection;
    int fGate;  // 0 parcels, 1 objects
    const char* fHeader;
    const char* fLineLoad;
    const char* fLineCheck;
    const char* fRecord;
    int fKind;  // -1 land record, else the realty kind
};

constexpr RecordSection kSections[] = {
    {"land_records", 0, "Загрузка участков...", "Загрузка участка: %d из %d, Номер: ", "Проверка участка: %d из %d, Номер: ",
     "land_record", -1},
    {"build_records", 1, "Загрузка зданий...", "Загрузка здания: %d из %d, Номер: ", "Проверка здания: %d из %d, Номер: ",
     "build_record", 0},
    {"construction_records", 1, "Загрузка сооружений...", "Загрузка сооружения: %d из %d, Номер: ",
     "Проверка сооружения: %d из %d, Номер: ", "construction_record", 1},
    {"object_under_construction_records", 1, "Загрузка объектов незавершенного строительства...",
     "Загрузка ОНС: %d из %d, Номер: ", "Проверка ОНС: %d из %d, Номер: ", "object_under_construction_record", 2},
};

constexpr const char* kBoundaryGroups[] = {"subject_boundaries", "municipal_boundaries", "inhabited_locality_boundaries",
                                           "coastline_boundaries"};
constexpr const char* kBoundaryRecords[] = {"subject_boundary_record", "municipal_boundary_record",
                                            "inhabited_locality_boundary_record", "coastline_record"};

}  // namespace

std::string_view TlibImportXML::StripNodePrefix(std::string_view aName) {
    const size_t colon = aName.find(':');
    return colon == std::string_view::npos ? aName : aName.substr(colon + 1);
}

void TlibImportXML::ResetGRect() {
    GRect.left = GRect.bottom = 1.0E7;
    GRect.right = GRect.top = -1.0E7;
}

void TlibImportXML::ReadCadastralBlocks(xml::PXMLNode aNode) {
    EACH_CHILD(c, aNode) {
        if (Is(c, "cadastral_block")) ReadCadastralBlock(c);
        if (DoAbort) return;
    }
}

int TlibImportXML::CountLandProgress(xml::PXMLNode aNode) {
    if (!aNode) return 0;
    TProgressWeights weights;
    EACH_CHILD(record, aNode) {
        weights.Record();
        EACH_CHILD(location, record) {
            if (!Is(location, "contours_location")) continue;
            EACH_CHILD(contours, location) {
                if (!Is(contours, "contours")) continue;
                EACH_CHILD(contour, contours) {
                    if (!Is(contour, "contour")) continue;
                    weights.Contour();
                    EACH_CHILD(c, contour) {
                        if (Has(c, "entity_spatial")) weights.SpatialElement(ChildCount(c));
                    }
                }
            }
        }
    }
    FMaxElementCount = weights.Largest();
    return weights.Total();
}

void TlibImportXML::ReadCadastralBlock(xml::PXMLNode aNode) {
    double blockArea = 0;
    std::string blockUnit, blockNote;
    TGrParcelRef blockGeometry;
    TtmRect blockRect{};
    int boundCount = 0, zoneCount = 0;
    XMLBound.clear();
    XMLZone.clear();
    auto stop = [&] { return DoAbort; };
    EACH_CHILD(c, aNode) {
        if (Is(c, "cadastral_number")) {
            XMLParcel.Block = c->Text();
        } else if (Is(c, "area_quarter")) {
            EACH_CHILD(a, c) {
                if (!Is(a, "area")) continue;
                // A variant conversion: blank is 0, other bad text raises.
                const std::string text = Trim(a->Text());
                double v = 0;
                if (!text.empty() && !TryStrToFloat(text, v)) throw Exception("Could not convert variant of type (String) into type (Double)");
                blockArea = v * 10000;
            }
            blockUnit = "059";
        } else if (Is(c, "record_data")) {
            EACH_CHILD(base, c) {
                if (!Is(base, "base_data")) continue;
                EACH_CHILD(section, base) {
                    const RecordSection* s = nullptr;
                    for (const RecordSection& candidate : kSections)
                        if (Is(section, candidate.fSection)) {
                            s = &candidate;
                            break;
                        }
                    if (!s || !(s->fGate == 0 ? fWriteParcels : fWriteObj)) continue;
                    SetProgressText(RewriteXML ? s->fHeader : "Проверка экстремумов в файле XML...");
                    if (FProgress) FProgress->SetMax(s->fKind < 0 ? CountLandProgress(section) : ChildCount(section));
                    simpleProgress = s->fKind >= 0;
                    const int n = ChildCount(section);
                    int i = 0;
                    bool left = false;
                    EACH_CHILD(record, section) {
                        ParcelStr = Counted(RewriteXML ? s->fLineLoad : s->fLineCheck, ++i, n);
                        if (Is(record, s->fRecord)) {
                            debugPrint = false;
                            if (s->fKind < 0)
                                ReadLandRecord(record);
                            else
                                ReadRealtyRecord(record, s->fKind);
                        }
                        if (FProgress) FProgress->Next();
                        if (Cancelled() || DoAbort) {
                            left = true;
                            break;
                        }
                    }
                    if (FProgress) FProgress->SetMax(0);
                    if (left) return;
                }
            }
        } else if (Is(c, "oms_points")) {
            // The values are read and go nowhere: the table exists and stays without rows.
            if (RewriteXML) OpenGMTable("ТочкиОМС");
            EACH_CHILD(p, c) {
                if (!Is(p, "oms_point")) continue;
                EACH_CHILD(v, p) {
                    if (Is(v, "ord_x") || Is(v, "ord_y")) (void)FloatText(v);
                }
            }
            if (RewriteXML) CloseGMTable();
        } else if (Is(c, "spatial_data")) {
            if (FProgress) FProgress->SetMax(0);
            SetProgressText(RewriteXML ? "Импортируем границу квартала" : "Проверяем границу квартала");
            const int n = ChildCount(c);
            if (FProgress) FProgress->SetMax(n);
            simpleProgress = true;
            int i = 0;
            EACH_CHILD(e, c) {
                ++i;
                debugPrint = false;
                if (Has(e, "entity_spatial")) {
                    ParcelStr = Counted(RewriteXML ? "Загрузка квартала: %d из %d" : "Проверка квартала: %d из %d", i, n);
                    XMLStopCont = true;
                    ResetGRect();
                    blockGeometry = ReadEntitySpatialNew(e, true);
                    blockRect = GRect;
                    qvRect = GRect;
                    break;  // only the first
                }
                if (FProgress) FProgress->Next();
                if (Cancelled()) return;
            }
            if (FProgress) FProgress->SetMax(0);
        } else if (Is(c, "Note")) {
            blockNote = c->Text();
        } else if (std::any_of(std::begin(kBoundaryGroups), std::end(kBoundaryGroups), [&](const char* g) { return Is(c, g); })) {
            if (!fWriteBounds) continue;
            if (RewriteXML) {
                if (FProgress) FProgress->SetMax(0);
                SetProgressText("Импортируем границы");
                OpenGMTable("Границы");
                if (FProgress) FProgress->SetMax(ChildCount(c));
            }
            simpleProgress = true;
            const int n = ChildCount(c);
            int i = 0;
            bool left = false;
            EACH_CHILD(r, c) {
                ++i;
                if (std::none_of(std::begin(kBoundaryRecords), std::end(kBoundaryRecords), [&](const char* name) { return Is(r, name); }))
                    continue;
                ParcelStr = Counted(RewriteXML ? "Загрузка границы: %d из %d" : "Проверка границы: %d из %d", i, n);
                ++boundCount;
                ResetGRect();
                if (!ReadBoundaryRecord(r, boundCount, c->NodeName())) {
                    --boundCount;
                    continue;
                }
                XMLBound[static_cast<size_t>(boundCount - 1)].GRect = GRect;
                if (!RewriteXML) continue;
                const TXMLBound& b = XMLBound[static_cast<size_t>(boundCount - 1)];
                if (b.Obj) {
                    NewGMRecord(true, 1);
                    WriteGrParcelLines(*b.Obj);
                } else {
                    NewGMRecord(false, 1);
                }
                SetGMField("ВидГраницы", TcsVariant(b.BType));
                SetGMField("Название", TcsVariant(b.BName));
                SetGMField("УчетныйНомер", TcsVariant(b.UchNum));
                PostGMRecord();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                if (FProgress) FProgress->Next();
                if (Cancelled()) {
                    left = true;
                    break;
                }
            }
            if (RewriteXML) {
                if (FProgress) FProgress->SetMax(0);
                CloseGMTable();
            }
            if (left) return;
        } else if (Is(c, "zones_and_territories_boundaries")) {
            if (!fWriteZones) continue;
            if (RewriteXML) {
                if (FProgress) FProgress->SetMax(0);
                SetProgressText("Импортируем зоны");
                OpenGMTable("Зоны");
                if (FProgress) FProgress->SetMax(ChildCount(c));
            }
            simpleProgress = true;
            const int n = ChildCount(c);
            int i = 0;
            bool left = false;
            EACH_CHILD(r, c) {
                ++i;
                if (!Is(r, "zones_and_territories_record")) continue;
                ParcelStr = Counted(RewriteXML ? "Загрузка зоны: %d из %d" : "Проверка зоны: %d из %d", i, n);
                ++zoneCount;
                ResetGRect();
                if (!ReadZoneRecord(r, zoneCount)) {
                    --zoneCount;
                    continue;
                }
                XMLZone[static_cast<size_t>(zoneCount - 1)].GRect = GRect;
                if (!RewriteXML) continue;
                const TXMLBound& z = XMLZone[static_cast<size_t>(zoneCount - 1)];
                if (z.Obj) {
                    NewGMRecord(true, 2);
                    WriteGrParcel(*z.Obj, true);
                } else {
                    NewGMRecord(false, 2);
                }
                SetGMField("ВидЗоны", TcsVariant(z.BType));
                SetGMField("Содержание", TcsVariant(z.BName));
                SetGMField("УчетныйНомер", TcsVariant(z.UchNum));
                PostGMRecord();
                if (FProgress) FProgress->Next();
                if (Cancelled()) {
                    left = true;
                    break;
                }
            }
            if (RewriteXML) {
                if (FProgress) FProgress->SetMax(0);
                CloseGMTable();
            }
            if (left) return;
        }
        if (stop()) return;
    }
    if (!RewriteXML) return;
    OpenGMTable("Квартал");
    if (blockGeometry) {
        NewGMRecord(true, 2);
        WriteGrParcel(*blockGeometry, true);
    } else {
        NewGMRecord(false, 2);
    }
    SetGMField("КадастровыйНомер", TcsVariant(XMLParcel.Block));
    SetGMField("Площадь", TcsVariant(blockArea));
    SetGMField("ЕдИзм", TcsVariant(blockUnit));
    SetGMField("Примечание", TcsVariant(blockNote));
    SetGMField("pX1", TcsVariant(blockRect.left));
    SetGMField("pY1", TcsVariant(blockRect.bottom));
    SetGMField("pX2", TcsVariant(blockRect.right));
    SetGMField("pY2", TcsVariant(blockRect.top));
    SetGMField("ContDate", TcsVariant(XMLParcel.ContDate));
    SetGMField("ContGUID", TcsVariant(XMLParcel.ContGUID));
    SetGMField("iBlock", TcsVariant(XMLParcel.Block));
    SetGMField("iParcel", TcsVariant(std::string()));
    PostGMRecord();
    CloseGMTable();
    XMLBound.clear();
}

}  // namespace tmi
