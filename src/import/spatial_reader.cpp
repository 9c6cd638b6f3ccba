// The spatial reader: spatial elements of both families into rings, holes, points and radii;
// the node accessors that every reader uses.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>

#include "reader_support.h"
#include "xml_errors.h"

namespace tmi {

using xml::PXMLNode;
using namespace readers;

namespace {

// The left spelling, or the right one when the left gave an empty string.
std::string_view Either(PXMLNode aNode, std::string_view aLeft, std::string_view aRight) {
    const std::string_view left = aNode->GetAttribute(aLeft);
    return left.empty() ? aNode->GetAttribute(aRight) : left;
}

double StrictFloat(std::string_view aText) { return StrictSpatialFloat(aText); }

bool IsClassicRing(PXMLNode n) { return Has(n, "Spatial_Element") || Has(n, "SpatialElement"); }
bool IsClassicUnit(PXMLNode n) { return Has(n, "Spelement_Unit") || Has(n, "SpelementUnit"); }

std::string Counted(const char* aWhat, int aIndex, int aCount) {
    return std::string(aWhat) + " " + std::to_string(aIndex) + " из " + std::to_string(aCount);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Node accessors

int TlibImportXML::ChildCount(PXMLNode aNode) const {
    int n = 0;
    for (PXMLNode c = FirstElement(aNode); c; c = NextElement(c)) ++n;
    return n;
}

PXMLNode TlibImportXML::ChildAt(PXMLNode aNode, int aIndex) {
    if (aIndex < 0) return nullptr;
    // From the last child served when it stands before the wanted one, else from the first.
    PXMLNode c = nullptr;
    int at = 0;
    if (fChildParent == aNode && fChildNode && fChildIndex <= aIndex) {
        c = fChildNode;
        at = fChildIndex;
    } else {
        c = FirstElement(aNode);
    }
    while (c && at < aIndex) {
        c = NextElement(c);
        ++at;
    }
    fChildParent = aNode;
    fChildNode = c;
    fChildIndex = c ? at : -1;
    return c;
}

double TlibImportXML::FloatText(PXMLNode aNode) {
    double v = 0;
    return TryStrToFloat(aNode->Text(), v) ? v : 0;
}

std::string TlibImportXML::ChildTextLike(PXMLNode aNode, std::string_view aName) { return ChildTextContaining(aNode, aName); }

std::string TlibImportXML::ChildTextIs(PXMLNode aNode, std::string_view aName) {
    for (PXMLNode c = FirstElement(aNode); c; c = NextElement(c))
        if (Is(c, aName)) return c->Text();
    return {};
}

std::string TlibImportXML::DeepChildText(PXMLNode aNode, std::string_view aName) {
    // Depth first without recursion; a match with empty text does not end the search.
    PXMLNode n = FirstElement(aNode);
    while (n) {
        if (Is(n, aName)) {
            std::string text = n->Text();
            if (!text.empty()) return text;
        }
        if (PXMLNode child = FirstElement(n)) {
            n = child;
            continue;
        }
        while (n && n != aNode && !NextElement(n)) n = n->ParentNode();
        if (!n || n == aNode) break;
        n = NextElement(n);
    }
    return {};
}

double TlibImportXML::LooseFloat(std::string_view aText) { return SpatialFloat(aText); }

// ---------------------------------------------------------------------------------------------
// Progress and points

void TlibImportXML::ShowElementProgress() {
    if (!FProgress) return;
    FProgress->SetText(ContourStr.empty() ? ParcelStr + "\n" + ElementStr : ParcelStr + "\n" + ContourStr + ", " + ElementStr);
}

void TlibImportXML::ShowContourProgress() {
    if (FProgress) FProgress->SetText(ParcelStr + "\n" + ContourStr);
}

void TlibImportXML::Extremes(double aX, double aY, bool aRect) {
    if (aX < xmin) xmin = aX;
    if (aY < ymin) ymin = aY;
    if (aX > xmax) xmax = aX;
    if (aY > ymax) ymax = aY;
    if (!aRect) return;
    if (aX < GRect.left) GRect.left = aX;
    if (aX > GRect.right) GRect.right = aX;
    if (aY < GRect.bottom) GRect.bottom = aY;
    if (aY > GRect.top) GRect.top = aY;
}

int32_t TlibImportXML::AddPointDecl(const std::string& aNpt, const std::string& aNpt2, const std::string& aKnuch,
                                    int32_t aStatus, double aDelta, double aY, double aX) {
    contour = -1;
    if (fPoints == -2 || fPoints == -3) return -1;
    if (fPoints == 2 &&
        std::none_of(arrCn.begin(), arrCn.end(), [&](const std::string& cn) { return SameText(cn, aKnuch); }))
        return -1;
    arPoints.Add(aX, aY, aNpt, aNpt2, aKnuch, aStatus, aDelta);
    nPoints = static_cast<int32_t>(arPoints.size());
    return -1;
}

void TPointList::Add(double aX, double aY, std::string_view aNpt, std::string_view aNpt2, std::string_view aKnuch,
                     int32_t aStatus, double aDelta) {
    if (fCount % kChunk == 0 && fCount / kChunk == fChunks.size()) {
        fChunks.reserve(fChunks.size() + 1);
        fChunks.push_back(static_cast<TPointDecl*>(fArena.Take(sizeof(TPointDecl) * kChunk)));
    }
    TPointDecl p;
    p.x = aX;
    p.y = aY;
    // The tolerance is the delta as its general text form reads back; the points of a plan
    // mostly share one delta, so the last conversion is kept.
    uint64_t bits = 0;
    std::memcpy(&bits, &aDelta, sizeof bits);
    if (!fHasDelta || bits != fLastDeltaBits) {
        fLastHasTol = TryStrToFloat(FloatToStr(aDelta), fLastTol);
        fLastDeltaBits = bits;
        fHasDelta = true;
    }
    p.tol = fLastTol;
    p.hasTol = fLastHasTol;
    p.npt = Keep(aNpt);
    p.npt2 = aNpt2 == aNpt ? p.npt : Keep(aNpt2);
    if (!fHasKnuch || aKnuch != fLastKnuch) {
        fLastKnuchRef = Keep(aKnuch);
        fLastKnuch.assign(aKnuch);
        fHasKnuch = true;
    }
    p.knuch = fLastKnuchRef;
    p.status = static_cast<int16_t>(aStatus);
    fChunks[fCount / kChunk][fCount % kChunk] = p;
    ++fCount;
}

uint32_t TPointList::Keep(std::string_view aText) {
    if (aText.size() > UINT32_MAX - sizeof(uint32_t)) throw std::length_error("A point's text is too long.");
    const auto length = static_cast<uint32_t>(aText.size());
    const size_t need = sizeof length + aText.size();
    size_t block = fTextBlocks.size() - 1;
    size_t offset = fTextUsed;
    if (fTextBlocks.empty() || need > kTextBlock - fTextUsed) {
        // A new block; a text longer than a block has one of its own, which fills several
        // slots, and the next text starts another.
        const size_t slots = (need + kTextBlock - 1) / kTextBlock;
        if ((fTextBlocks.size() + slots) * kTextBlock > UINT32_MAX) throw std::length_error("Too many points.");
        fTextBlocks.reserve(fTextBlocks.size() + slots);
        block = fTextBlocks.size();
        fTextBlocks.push_back(static_cast<char*>(fArena.Take(slots * kTextBlock)));
        fTextBlocks.resize(block + slots, nullptr);
        offset = 0;
        fTextUsed = slots == 1 ? 0 : kTextBlock;
    }
    char* at = fTextBlocks[block] + offset;
    std::memcpy(at, &length, sizeof length);
    if (length) std::memcpy(at + sizeof length, aText.data(), length);
    if (fTextUsed < kTextBlock) fTextUsed += need;
    return static_cast<uint32_t>(block * kTextBlock + offset);
}

std::string_view TPointList::Text(uint32_t aRef) const noexcept {
    const char* at = fTextBlocks[aRef / kTextBlock] + aRef % kTextBlock;
    uint32_t length = 0;
    std::memcpy(&length, at, sizeof length);
    return {at + sizeof length, length};
}

void TPointList::clear() noexcept {
    fChunks.clear();
    fChunks.shrink_to_fit();
    fTextBlocks.clear();
    fTextBlocks.shrink_to_fit();
    fArena.Release();
    fCount = 0;
    fTextUsed = kTextBlock;
    fHasKnuch = false;
    fLastKnuch.clear();
    fHasDelta = false;
}

// ---------------------------------------------------------------------------------------------
// Classic family

void TlibImportXML::DecidePointNumbering(PXMLNode aRing) {
    bool candidate = true;
    for (PXMLNode unit = FirstElement(aRing); unit; unit = NextElement(unit)) {
        if (!IsClassicUnit(unit)) continue;
        if (!unit->HasAttribute("Su_Nmb") && !unit->HasAttribute("SuNmb")) {
            candidate = false;
            break;
        }
        bool decided = false;
        for (PXMLNode o = FirstElement(unit); o; o = NextElement(o)) {
            if (!Has(o, "Ordinate")) continue;
            if (!o->HasAttribute("Ord_Nmb") && !o->HasAttribute("OrdNmb")) {
                candidate = true;
                decided = true;
                break;
            }
            if (Either(o, "Ord_Nmb", "OrdNmb") != "1") {
                candidate = false;
                decided = true;
                break;
            }
        }
        if (decided) break;
    }
    if (candidate) fPntMain = 1;
}

TGrParcelRef TlibImportXML::ReadEntitySpatial(PXMLNode aNode) {
    fRings.Build = RewriteXML;
    return fRings.ReadEntitySpatialClassic(aNode, fReversXY);
}

void TlibImportXML::ClassicRing(PXMLNode aRing) {
    if (fPntMain == 0) DecidePointNumbering(aRing);
}

void TlibImportXML::ClassicUnit(PXMLNode aUnit) {
    if (!RewriteXML) return;
    fUnitNumber = std::string(Either(aUnit, "Su_Nmb", "SuNmb"));
    fUnitType = std::string(Either(aUnit, "Type_Unit", "TypeUnit"));
}

void TlibImportXML::ClassicOrdinate(double aX, double aY, PXMLNode aOrdinate, double aDelta) {
    Extremes(aX, aY, false);
    if (!RewriteXML) return;
    const std::string& su = fUnitNumber;
    std::string npt, ord;
    if (SameText(fUnitType, "Точка")) {
        npt = std::string(Either(aOrdinate, "Num_Geopoint", "NumGeopoint"));
        if (fPntMain == 0) {
            ord = std::string(Either(aOrdinate, "Ord_Nmb", "OrdNmb"));
            if (ord.empty() && !su.empty()) {
                ord = su;
                fPntMain = 1;
            }
        }
        if (fPntMain != 0) {
            if (su.empty()) {
                ord = std::string(Either(aOrdinate, "Ord_Nmb", "OrdNmb"));
                if (!ord.empty()) fPntMain = 0;
            } else {
                ord = su;
            }
        }
        if (npt.empty()) npt = ord;
        if (npt.empty()) npt = su;
    } else {
        npt = su;
    }
    AddPointDecl(npt, ord, XMLParcel.Number, 1, aDelta, aY, aX);
}

TGrParcelRef TlibImportXML::ReadEntitySpatialPlain(PXMLNode aNode, bool aSortRings) {
    double largest = -10000000.0;
    int largestIndex = -1;
    int rings = 0;
    TGrContRef last;
    for (PXMLNode ring = FirstElement(aNode); ring; ring = NextElement(ring)) {
        if (!IsClassicRing(ring)) continue;
        TGrContRef cont = RewriteXML ? std::make_shared<TGrCont>() : nullptr;
        ++rings;
        for (PXMLNode unit = FirstElement(ring); unit; unit = NextElement(unit)) {
            if (!IsClassicUnit(unit)) continue;
            for (PXMLNode o = FirstElement(unit); o; o = NextElement(o)) {
                if (!Has(o, "Ordinate")) continue;
                const double ax = StrictFloat(o->GetAttribute("X")), ay = StrictFloat(o->GetAttribute("Y"));
                const double x = fReversXY ? ax : ay, y = fReversXY ? ay : ax;
                Extremes(x, y, false);
                if (RewriteXML) cont->AddPoint(x, y);
            }
        }
        if (RewriteXML) {
            fRings.SPList.push_back(TcsSpatialRings::TEntry{cont, 1});
            last = cont;
            const double area = ContourArea(*cont);
            if (area > largest) {
                largest = area;
                largestIndex = static_cast<int>(fRings.SPList.size()) - 1;
            }
        }
    }
    if (!RewriteXML) return nullptr;
    TGrParcelRef parcel;
    if (aSortRings && rings >= 2) {
        fRings.SPList[static_cast<size_t>(largestIndex)].fFlag = 0;
        parcel = fRings.SortContours();
    } else {
        // Only the last ring read counts.
        if (!last) throw xml::EListError();
        last->IsInternal = false;
        parcel = std::make_shared<TGrParcel>();
        parcel->Add(last);
    }
    ClearSPList();
    return parcel;
}

TGrContRef TlibImportXML::ReadRealtyContour(PXMLNode aNode) {
    TGrContRef cont;
    for (PXMLNode element = FirstElement(aNode); element; element = NextElement(element)) {
        if (!Has(element, "SpatialElement")) continue;
        if (RewriteXML) cont = std::make_shared<TGrCont>();  // the last element wins
        for (PXMLNode unit = FirstElement(element); unit; unit = NextElement(unit)) {
            if (!Has(unit, "SpelementUnit")) continue;
            for (PXMLNode o = FirstElement(unit); o; o = NextElement(o)) {
                if (!Has(o, "Ordinate")) continue;
                const double ax = StrictFloat(o->GetAttribute("X")), ay = StrictFloat(o->GetAttribute("Y"));
                if (RewriteXML) cont->AddPoint(fReversXY ? ax : ay, fReversXY ? ay : ax);
            }
        }
    }
    return RewriteXML ? cont : nullptr;
}

TGrParcelRef TlibImportXML::ReadContours(PXMLNode aNode) {
    fRings.Build = RewriteXML;
    return fRings.ReadContoursClassic(aNode, fReversXY);
}

// ---------------------------------------------------------------------------------------------
// New family

TGrParcelRef TlibImportXML::ReadEntitySpatialNew(PXMLNode aNode, bool aCheckClosed) {
    fRings.Build = RewriteXML;
    return fRings.ReadEntitySpatialNew(aNode, aCheckClosed, false);
}

TGrParcelRef TlibImportXML::ReadEntitySpatialPrefixed(PXMLNode aNode, bool aCheckClosed) {
    fRings.Build = RewriteXML;
    return fRings.ReadEntitySpatialNew(aNode, aCheckClosed, true);
}

TGrParcelRef TlibImportXML::ReadContoursNew(PXMLNode aNode, bool aCheckClosed, bool aShowProgress, bool& aFound) {
    fRings.Build = RewriteXML;
    return fRings.ReadContoursNew(aNode, aCheckClosed, aShowProgress, aFound, false);
}

TGrParcelRef TlibImportXML::ReadContoursPrefixed(PXMLNode aNode, bool aCheckClosed, bool aShowProgress, bool& aFound) {
    fRings.Build = RewriteXML;
    return fRings.ReadContoursNew(aNode, aCheckClosed, aShowProgress, aFound, true);
}

// What the shared ring reader tells the job: progress texts, cancel points, extremes and the
// point rows of every ordinate.
bool TlibImportXML::SpatialElement(int aIndex, int aCount) {
    ElementStr = Counted("Элемент", aIndex, aCount);
    ShowElementProgress();
    return !Cancelled();
}

bool TlibImportXML::ContourListItem(int aIndex, int aCount) {
    ContourStr = Counted("Контур", aIndex, aCount);
    if (aCount > 10) {
        ShowContourProgress();
        if (Cancelled()) return false;
    }
    return true;
}

bool TlibImportXML::ContourFound(PXMLNode aContour, bool aShowProgress) {
    if (aShowProgress && !simpleProgress && FProgress) {
        FProgress->Next(std::max(1, ChildCount(aContour)));
        if (Cancelled()) return false;
    }
    // A classic contour carries its number as an attribute, in one of four spellings.
    NumbPp.clear();
    for (const char* attribute : {"Number_PP", "NumberPP", "Number_Record", "NumberRecord"}) {
        NumbPp = std::string(aContour->GetAttribute(attribute));
        if (!NumbPp.empty()) break;
    }
    return true;
}

bool TlibImportXML::ContourListEnd(int aCount, bool aShowProgress) {
    ContourStr.clear();
    if (!aShowProgress || aCount < 11) return true;
    if (FProgress) FProgress->SetText(ParcelStr);
    return !Cancelled();
}

void TlibImportXML::Ordinate(double aX, double aY, PXMLNode aOrdinate) {
    Extremes(aX, aY, true);
    if (!RewriteXML) return;
    const std::string ord = ChildTextLike(aOrdinate, "ord_nmb");
    std::string npt = ChildTextLike(aOrdinate, "num_geopoint");
    if (npt.empty() || SameText(npt, "NaN")) npt = ord;
    const std::string deltaText = ChildTextLike(aOrdinate, "delta_geopoint");
    const double delta = deltaText.empty() ? 0 : LooseFloat(deltaText);
    AddPointDecl(npt, ord, XMLParcel.Number, 1, delta, aY, aX);
}

void TlibImportXML::ReadGeometryContour(PXMLNode aNode, TcsGeometry& aGeometry) {
    TcsRingClassifier rings;
    // Under debugPrint every element the walk looks at goes to the log by name.
    auto visit = [this](PXMLNode aChild, std::string_view aName) {
        if (debugPrint && OnLog) OnLog(std::string(aChild->NodeName()));
        return Is(aChild, aName);
    };
    for (PXMLNode es = FirstElement(aNode); es; es = NextElement(es)) {
        if (!visit(es, "entity_spatial")) continue;
        for (PXMLNode list = FirstElement(es); list; list = NextElement(list)) {
            if (!visit(list, "spatials_elements")) continue;
            for (PXMLNode element = FirstElement(list); element; element = NextElement(element)) {
                if (!visit(element, "spatial_element")) continue;
                TcsCustomGeometry* object = aGeometry.AddGeometryObject();
                for (PXMLNode ords = FirstElement(element); ords; ords = NextElement(ords)) {
                    if (!visit(ords, "ordinates")) continue;
                    for (PXMLNode o = FirstElement(ords); o; o = NextElement(o)) {
                        if (!visit(o, "ordinate")) continue;
                        std::string num = ChildTextIs(o, "num_geopoint");
                        if (SameText(num, "NaN")) num = "0";
                        double x = 0, y = 0;
                        if (!TryStrToFloat(ChildTextIs(o, "x"), x) || !TryStrToFloat(ChildTextIs(o, "y"), y)) continue;
                        object->Coords().AddCoord(num, x, y);
                        if (fWriteRad) {
                            double r = 0;
                            if (!TryStrToFloat(ChildTextIs(o, "r"), r)) r = 0;
                            fPointRad.AddPoint(x, y, r);
                        }
                    }
                }
                object->InternalUpdateBounds();
                rings.Add(*object);
                object->SetGeometryType(object->CalcGeometryType());
            }
        }
    }
}

}  // namespace tmi
