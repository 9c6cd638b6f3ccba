#include "csSpatialRings.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "csCommon.h"
#include "xml_errors.h"

namespace tmi {

using xml::PXMLNode;

namespace {

PXMLNode FirstElement(PXMLNode aNode) {
    PXMLNode c = aNode->FirstChild();
    while (c && c->NodeType() != xml::ntElement) c = c->NextSibling();
    return c;
}

PXMLNode NextElement(PXMLNode aNode) {
    PXMLNode c = aNode->NextSibling();
    while (c && c->NodeType() != xml::ntElement) c = c->NextSibling();
    return c;
}

// The two name tests of the readers: a case-sensitive part of the name (so a prefix or a
// longer name passes), or the whole name with case ignored.
bool Has(PXMLNode aNode, std::string_view aPart) { return aNode->NodeName().find(aPart) != std::string_view::npos; }
bool Is(PXMLNode aNode, std::string_view aName) { return SameText(aNode->NodeName(), aName); }

int ChildCount(PXMLNode aNode) {
    int n = 0;
    for (PXMLNode c = FirstElement(aNode); c; c = NextElement(c)) ++n;
    return n;
}

void Stamp(TGrCont& aCont, const TcsSpatialRings& aRings) {
    aCont.cont = aRings.fcont;
    aCont.es = aRings.fes;
    aCont.reg = aRings.freg;
}

bool IsClassicRing(PXMLNode n) { return Has(n, "Spatial_Element") || Has(n, "SpatialElement"); }
bool IsClassicUnit(PXMLNode n) { return Has(n, "Spelement_Unit") || Has(n, "SpelementUnit"); }

// The left spelling of an attribute, or the right one when the left gave an empty string.
std::string_view Either(PXMLNode aNode, std::string_view aLeft, std::string_view aRight) {
    const std::string_view left = aNode->GetAttribute(aLeft);
    return left.empty() ? aNode->GetAttribute(aRight) : left;
}

}  // namespace

double StrictSpatialFloat(std::string_view aText) {
    double v = 0;
    if (!TryStrToFloat(aText, v)) throw Exception("'" + std::string(aText) + "' is not a valid floating point value");
    return v;
}

double SpatialFloat(std::string_view aText) {
    std::string text = Trim(aText);
    if (text.empty()) return 0;
    std::replace(text.begin(), text.end(), ',', '.');
    double v = 0;
    return TryStrToFloat(text, v) ? v : 0;
}

std::string ChildTextContaining(PXMLNode aNode, std::string_view aName) {
    for (PXMLNode c = FirstElement(aNode); c; c = NextElement(c))
        if (Has(c, aName)) return c->Text();
    return {};
}

TGrParcelRef TcsSpatialRings::SortContours() {
    auto parcel = std::make_shared<TGrParcel>();
    for (TEntry& entry : SPList) {
        TGrCont& c = *entry.fCont;
        c.IsInternal = false;
        Stamp(c, *this);
        for (const TEntry& other : SPList)
            if (&other != &entry && ContourInContour(*other.fCont, c)) {
                c.IsInternal = true;
                break;
            }
    }
    for (const TEntry& e : SPList)
        if (!e.fCont->IsInternal) parcel->Add(e.fCont);
    for (const TEntry& e : SPList)
        if (e.fCont->IsInternal) parcel->Add(e.fCont);
    return parcel;
}

TGrParcelRef TcsSpatialRings::ReadEntitySpatialNew(PXMLNode aNode, bool aCheckClosed, bool aPrefixed) {
    const std::string_view xName = aPrefixed ? "EnSpa2:x" : "x";
    const std::string_view yName = aPrefixed ? "EnSpa2:y" : "y";
    TGrParcelRef result;
    for (PXMLNode list = FirstElement(aNode); list; list = NextElement(list)) {
        if (aPrefixed ? !Has(list, "spatials_elements") : !Is(list, "spatials_elements")) continue;
        int rings = 0;
        double largest = -10000000.0;
        int largestIndex = -1;
        const int m = ChildCount(list);
        int i = 0;
        for (PXMLNode element = FirstElement(list); element; element = NextElement(element), ++i) {
            if (m > 10 && !fEvents->SpatialElement(i + 1, m)) {
                Clear();
                return nullptr;
            }
            if (!Has(element, "spatial_element")) continue;
            TGrContRef cont = Build ? std::make_shared<TGrCont>() : nullptr;
            double firstX = -9900000.0, firstY = -9900000.0;
            ++rings;
            ++freg;
            for (PXMLNode ords = FirstElement(element); ords; ords = NextElement(ords)) {
                if (!Has(ords, "ordinates")) continue;
                for (PXMLNode o = FirstElement(ords); o; o = NextElement(o)) {
                    if (!Has(o, "ordinate")) continue;
                    const double x = SpatialFloat(ChildTextContaining(o, yName));
                    const double y = SpatialFloat(ChildTextContaining(o, xName));
                    if (firstX < -9000000.0 && firstY < -9000000.0) {
                        firstX = x;
                        firstY = y;
                    }
                    fEvents->Ordinate(x, y, o);
                    if (Build) cont->AddPoint(x, y);
                }
            }
            if (!Build) continue;
            if (aCheckClosed) {
                const TGrPoint* last = cont->GetPoint(cont->Count() - 1);
                if (!last || last->x != firstX || last->y != firstY) {
                    --rings;  // an open ring is dropped
                    continue;
                }
            }
            SPList.push_back(TEntry{cont, 1});
            const double area = ContourArea(*cont);
            if (area > largest) {
                largest = area;
                largestIndex = static_cast<int>(SPList.size()) - 1;
            }
        }
        if (!Build) continue;
        // Only the last list of an entity_spatial decides the result.
        result = nullptr;
        if (rings == 1 && !SPList.empty()) {
            TGrCont& c = *SPList[0].fCont;
            c.IsInternal = false;
            Stamp(c, *this);
            result = std::make_shared<TGrParcel>();
            result->Add(SPList[0].fCont);
        } else if (rings > 1 && aCheckClosed) {
            SPList[static_cast<size_t>(largestIndex)].fFlag = 0;
            result = SortContours();
        } else if (rings > 1) {
            result = std::make_shared<TGrParcel>();
            for (const TEntry& e : SPList) {
                e.fCont->IsInternal = false;
                Stamp(*e.fCont, *this);
                result->Add(e.fCont);
            }
        }
        Clear();
    }
    return result;
}

TGrParcelRef TcsSpatialRings::ReadContoursNew(PXMLNode aNode, bool aCheckClosed, bool aShowProgress, bool& aFound,
                                              bool aPrefixed) {
    aFound = false;
    auto merged = std::make_shared<TGrParcel>();
    int read = 0;
    for (PXMLNode list = FirstElement(aNode); list; list = NextElement(list)) {
        if (aPrefixed ? !Has(list, "contours") : !Is(list, "contours")) continue;
        const int n = ChildCount(list);
        int i = 0;
        for (PXMLNode c = FirstElement(list); c; c = NextElement(c), ++i) {
            if (aShowProgress && !fEvents->ContourListItem(i + 1, n)) return nullptr;
            if (aPrefixed ? !Has(c, "contour") : !Is(c, "contour")) continue;
            if (!fEvents->ContourFound(c, aShowProgress)) return nullptr;
            ++fcont;
            fes = 0;
            for (PXMLNode e = FirstElement(c); e; e = NextElement(e)) {
                if (!Has(e, "entity_spatial")) continue;
                ++fes;
                freg = 0;
                TGrParcelRef part = ReadEntitySpatialNew(e, aCheckClosed, aPrefixed);
                if (Build && part) {
                    for (int k = 0; k < part->Count(); ++k) merged->Add(part->ContourRef(k));
                    ++read;
                }
            }
        }
        fEvents->ContourListEnd(n, aShowProgress);
    }
    if (read == 0) return nullptr;
    const int count = merged->Count();
    for (int i = 0; i < count; ++i) {
        merged->Contour(i)->id = i;
        merged->Contour(i)->extId = -1;
    }
    // Holes over the whole object: a ring inside another is internal to the first such ring.
    for (int i = 0; i < count; ++i) {
        TGrCont& ring = *merged->Contour(i);
        ring.IsInternal = false;
        for (int j = 0; j < count; ++j) {
            if (j == i) continue;
            if (ContourInContour(*merged->Contour(j), ring)) {
                ring.IsInternal = true;
                ring.extId = merged->Contour(j)->id;
                break;
            }
        }
    }
    // Of two equal rings the first is marked: the later one still counts when the first is tried.
    for (int i = 0; i < count; ++i) merged->Contour(i)->IsDeleted = false;
    for (int i = 0; i < count; ++i) {
        for (int j = 0; j < count; ++j) {
            if (j == i || merged->Contour(j)->IsDeleted) continue;
            if (SameContour(*merged->Contour(j), *merged->Contour(i))) {
                merged->Contour(i)->IsDeleted = true;
                break;
            }
        }
    }
    auto result = std::make_shared<TGrParcel>();
    for (int i = 0; i < count; ++i)
        if (!merged->Contour(i)->IsInternal && !merged->Contour(i)->IsDeleted) result->Add(merged->ContourRef(i));
    for (int i = 0; i < count; ++i)
        if (merged->Contour(i)->IsInternal && !merged->Contour(i)->IsDeleted) result->Add(merged->ContourRef(i));
    aFound = true;
    return result;
}

// ---------------------------------------------------------------------------------------------
// The classic family

TGrParcelRef TcsSpatialRings::ReadEntitySpatialClassic(PXMLNode aNode, bool aReversXY) {
    const int n = ChildCount(aNode);
    double largest = -10000000.0;
    int largestIndex = -1;
    int rings = 0;
    double delta = 0;  // an ordinate without a delta repeats the last one read in this element
    int i = 0;
    for (PXMLNode ring = FirstElement(aNode); ring; ring = NextElement(ring), ++i) {
        if (n > 10 && !fEvents->SpatialElement(i + 1, n)) {
            Clear();
            return nullptr;
        }
        if (!IsClassicRing(ring)) continue;
        TGrContRef cont = Build ? std::make_shared<TGrCont>() : nullptr;
        ++rings;
        fEvents->ClassicRing(ring);
        for (PXMLNode unit = FirstElement(ring); unit; unit = NextElement(unit)) {
            if (!IsClassicUnit(unit)) continue;
            fEvents->ClassicUnit(unit);
            for (PXMLNode o = FirstElement(unit); o; o = NextElement(o)) {
                if (!Has(o, "Ordinate")) continue;
                const double ax = StrictSpatialFloat(o->GetAttribute("X")), ay = StrictSpatialFloat(o->GetAttribute("Y"));
                const double x = aReversXY ? ax : ay, y = aReversXY ? ay : ax;
                if (Build) {
                    const std::string_view deltaText = Either(o, "Delta_Geopoint", "DeltaGeopoint");
                    if (!deltaText.empty()) delta = StrictSpatialFloat(deltaText);
                    cont->AddPoint(x, y);
                }
                fEvents->ClassicOrdinate(x, y, o, delta);
            }
        }
        if (!Build) continue;
        SPList.push_back(TEntry{cont, 1});
        const double area = ContourArea(*cont);
        if (area > largest) {
            largest = area;
            largestIndex = static_cast<int>(SPList.size()) - 1;
        }
    }
    if (!Build) return nullptr;
    TGrParcelRef parcel;
    if (rings < 2) {
        // An element with no ring has no first entry to take.
        if (SPList.empty()) throw xml::EListError();
        SPList[0].fCont->IsInternal = false;
        parcel = std::make_shared<TGrParcel>();
        parcel->Add(SPList[0].fCont);
    } else {
        SPList[static_cast<size_t>(largestIndex)].fFlag = 0;
        parcel = SortContours();
    }
    Clear();
    return parcel;
}

TGrParcelRef TcsSpatialRings::ReadContoursClassic(PXMLNode aNode, bool aReversXY) {
    const int n = ChildCount(aNode);
    auto merged = std::make_shared<TGrParcel>();
    int read = 0;
    int i = 0;
    for (PXMLNode c = FirstElement(aNode); c; c = NextElement(c), ++i) {
        if (!fEvents->ContourListItem(i + 1, n)) return nullptr;
        if (!Is(c, "Contour")) continue;
        if (!fEvents->ContourFound(c, true)) return nullptr;
        for (PXMLNode e = FirstElement(c); e; e = NextElement(e)) {
            if (!Has(e, "Entity_Spatial") && !Has(e, "EntitySpatial")) continue;
            TGrParcelRef part = ReadEntitySpatialClassic(e, aReversXY);
            if (Build && part) {
                for (int k = 0; k < part->Count(); ++k) merged->Add(part->ContourRef(k));
                ++read;
            }
        }
    }
    if (!fEvents->ContourListEnd(n, true)) return nullptr;
    return read > 0 ? merged : nullptr;
}

// ---------------------------------------------------------------------------------------------
// WKT

namespace {

void AppendNumber(std::string& aOut, double aValue) {
    char buffer[32];
    const auto r = std::to_chars(buffer, buffer + sizeof buffer, aValue);
    aOut.append(buffer, r.ptr);
}

// A ring as WKT wants it: closed.
void AppendRing(std::string& aOut, const TGrCont& aRing) {
    aOut += '(';
    for (int i = 0; i < aRing.Count(); ++i) {
        if (i) aOut += ", ";
        AppendNumber(aOut, aRing[i].x);
        aOut += ' ';
        AppendNumber(aOut, aRing[i].y);
    }
    const TGrPoint& first = aRing[0];
    const TGrPoint& last = aRing[aRing.Count() - 1];
    if (first.x != last.x || first.y != last.y) {
        aOut += ", ";
        AppendNumber(aOut, first.x);
        aOut += ' ';
        AppendNumber(aOut, first.y);
    }
    aOut += ')';
}

// The polygons of an object: each outer ring with the holes that go to it.
struct TPolygonRings {
    const TGrCont* Outer;
    std::vector<const TGrCont*> Holes;
};

std::vector<TPolygonRings> PolygonsOf(const TGrParcel& aParcel) {
    std::vector<TPolygonRings> polygons;
    for (int i = 0; i < aParcel.Count(); ++i) {
        const TGrCont* ring = aParcel.Contour(i);
        if (ring->Count() < 3) continue;
        if (!ring->IsInternal || polygons.empty()) {
            polygons.push_back({ring, {}});
            continue;
        }
        size_t owner = polygons.size() - 1;
        for (size_t k = 0; k < polygons.size(); ++k)
            if (ContourInContour(*polygons[k].Outer, *ring)) {
                owner = k;
                break;
            }
        polygons[owner].Holes.push_back(ring);
    }
    return polygons;
}

void AppendUInt32(std::string& aOut, uint32_t aValue) {
    char bytes[4];
    for (char& b : bytes) {
        b = static_cast<char>(aValue & 0xFF);
        aValue >>= 8;
    }
    aOut.append(bytes, 4);
}

void AppendDouble(std::string& aOut, double aValue) {
    uint64_t bits = 0;
    std::memcpy(&bits, &aValue, sizeof bits);
    char bytes[8];
    for (char& b : bytes) {
        b = static_cast<char>(bits & 0xFF);
        bits >>= 8;
    }
    aOut.append(bytes, 8);
}

// A ring closed, as in the WKT.
void AppendRingWKB(std::string& aOut, const TGrCont& aRing) {
    const TGrPoint& first = aRing[0];
    const TGrPoint& last = aRing[aRing.Count() - 1];
    const bool open = first.x != last.x || first.y != last.y;
    AppendUInt32(aOut, static_cast<uint32_t>(aRing.Count() + (open ? 1 : 0)));
    for (int i = 0; i < aRing.Count(); ++i) {
        AppendDouble(aOut, aRing[i].x);
        AppendDouble(aOut, aRing[i].y);
    }
    if (open) {
        AppendDouble(aOut, first.x);
        AppendDouble(aOut, first.y);
    }
}

}  // namespace

std::string GrParcelWKT(const TGrParcel& aParcel) {
    const std::vector<TPolygonRings> polygons = PolygonsOf(aParcel);
    if (polygons.empty()) return {};
    std::string wkt = "MULTIPOLYGON (";
    for (size_t k = 0; k < polygons.size(); ++k) {
        if (k) wkt += ", ";
        wkt += '(';
        AppendRing(wkt, *polygons[k].Outer);
        for (const TGrCont* hole : polygons[k].Holes) {
            wkt += ", ";
            AppendRing(wkt, *hole);
        }
        wkt += ')';
    }
    wkt += ')';
    return wkt;
}

std::string GrParcelWKB(const TGrParcel& aParcel) {
    const std::vector<TPolygonRings> polygons = PolygonsOf(aParcel);
    if (polygons.empty()) return {};
    size_t size = 9;
    for (const TPolygonRings& p : polygons) {
        size += 9 + 4 + 16 * (static_cast<size_t>(p.Outer->Count()) + 1);
        for (const TGrCont* hole : p.Holes) size += 4 + 16 * (static_cast<size_t>(hole->Count()) + 1);
    }
    std::string wkb;
    wkb.reserve(size);
    constexpr char kLittleEndian = 1;
    constexpr uint32_t kPolygon = 3, kMultiPolygon = 6;
    wkb += kLittleEndian;
    AppendUInt32(wkb, kMultiPolygon);
    AppendUInt32(wkb, static_cast<uint32_t>(polygons.size()));
    for (const TPolygonRings& p : polygons) {
        wkb += kLittleEndian;
        AppendUInt32(wkb, kPolygon);
        AppendUInt32(wkb, static_cast<uint32_t>(1 + p.Holes.size()));
        AppendRingWKB(wkb, *p.Outer);
        for (const TGrCont* hole : p.Holes) AppendRingWKB(wkb, *hole);
    }
    return wkb;
}

}  // namespace tmi
