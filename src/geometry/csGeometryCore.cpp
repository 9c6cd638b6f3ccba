#include "csGeometryCore.h"

#include <libxml/tree.h>

#include <cmath>

#include "csWKB.h"

namespace tmi {

namespace {

constexpr double kSentinel = 10000000.0;

// "%0:.f %1:.f": no decimals; "." whatever the locale.
std::string Pair(double aFirst, double aSecond, int aDecimals) {
    return FloatToFixed(aFirst, aDecimals) + " " + FloatToFixed(aSecond, aDecimals);
}

bool IsNested(const TcsCustomGeometry* aObject) { return dynamic_cast<const TcsGeometry*>(aObject) != nullptr; }

}  // namespace

TCS_PROPERTIES(TcsGeometryBounds, TcsInfoLowData,
               Property("XMax", &TcsGeometryBounds::XMax, &TcsGeometryBounds::SetXMax),
               Property("YMax", &TcsGeometryBounds::YMax, &TcsGeometryBounds::SetYMax),
               Property("XMin", &TcsGeometryBounds::XMin, &TcsGeometryBounds::SetXMin),
               Property("YMin", &TcsGeometryBounds::YMin, &TcsGeometryBounds::SetYMin))

TCS_PROPERTIES(TcsGeometryCoord, TcsInfoLowData,
               Field("X", &TcsGeometryCoord::X),
               Field("Y", &TcsGeometryCoord::Y),
               Field("Z", &TcsGeometryCoord::Z),
               Field("Num", &TcsGeometryCoord::Num),
               Field("IsEndPoint", &TcsGeometryCoord::IsEndPoint))

TCS_PROPERTIES(TcsGeometryStyle, TcsInfo)

TCS_PROPERTIES(TcsCustomGeometry, TcsInfoLowData,
               Property("GeometryType", &TcsCustomGeometry::GetGeometryType, &TcsCustomGeometry::SetGeometryTypeValue),
               ObjectProperty("Style", &TcsCustomGeometry::Style),
               ObjectProperty("Coords", &TcsCustomGeometry::CoordsObject),
               Property("IsInterior", &TcsCustomGeometry::IsInterior, &TcsCustomGeometry::SetIsInterior),
               ObjectProperty("Bounds", &TcsCustomGeometry::BoundsObject),
               Property("WKT", &TcsCustomGeometry::WKT))

TCS_PROPERTIES(TcsGeometry, TcsCustomGeometry,
               ObjectProperty("Collection", &TcsGeometry::CollectionObject),
               Field("CoordSystemString", &TcsGeometry::CoordSystemString),
               Field("CoordSystemID", &TcsGeometry::CoordSystemID))

// ---------------------------------------------------------------------------------------------
// Bounds

void TcsGeometryBounds::Reset() {
    FXMax = -kSentinel;
    FYMax = -kSentinel;
    FXMin = kSentinel;
    FYMin = kSentinel;
    FChanged = false;
}

bool TcsGeometryBounds::ProcessCoord(double aX, double aY) {
    bool widened = false;
    if (aX > FXMax) FXMax = aX, widened = true;
    if (aX < FXMin) FXMin = aX, widened = true;
    if (aY > FYMax) FYMax = aY, widened = true;
    if (aY < FYMin) FYMin = aY, widened = true;
    if (widened) FChanged = true;
    return widened;
}

void TcsGeometryBounds::MergeBound(const TcsGeometryBounds& aBounds) {
    if (aBounds.FXMax > FXMax) FXMax = aBounds.FXMax, FChanged = true;
    if (aBounds.FXMin < FXMin) FXMin = aBounds.FXMin, FChanged = true;
    if (aBounds.FYMax > FYMax) FYMax = aBounds.FYMax, FChanged = true;
    if (aBounds.FYMin < FYMin) FYMin = aBounds.FYMin, FChanged = true;
}

bool TcsGeometryBounds::BoundsInBounds(const TcsGeometryBounds& aInner) const noexcept {
    return aInner.FXMin >= FXMin && aInner.FXMax <= FXMax && aInner.FYMin >= FYMin && aInner.FXMax <= FXMax;
}

bool TcsGeometryBounds::CoordInBounds(double aX, double aY) const noexcept {
    return aX >= FXMin && aX <= FXMax && aY >= FYMin && aY <= FXMax;
}

void TcsGeometryBounds::GetCenterCoord(double& aX, double& aY) const noexcept {
    aX = FXMax - (FXMax - FXMin) / 2;
    aY = FYMax - (FYMax - FYMin) / 2;
}

std::string TcsGeometryBounds::GetBoundsString() const {
    return FloatToStr(FXMin) + ", " + FloatToStr(FXMax) + ", " + FloatToStr(FYMin) + ", " + FloatToStr(FYMax);
}

void TcsGeometryBounds::Inflate(double aDelta) noexcept {
    FXMax += aDelta;
    FYMax += aDelta;
    FXMin -= aDelta;
    FYMin -= aDelta;
}

void TcsGeometryBounds::Assign(const TcsPersistent& aSource) {
    if (const auto* b = dynamic_cast<const TcsGeometryBounds*>(&aSource)) {
        FXMax = b->FXMax;
        FYMax = b->FYMax;
        FXMin = b->FXMin;
        FYMin = b->FYMin;
        FChanged = b->FChanged;
        return;
    }
    TcsInfoLowData::Assign(aSource);
}

// ---------------------------------------------------------------------------------------------
// Coordinates

TcsGeometryCoord* TcsGeometryCoords::AddCoord(std::string_view aNum, double aX, double aY) {
    auto coord = std::make_unique<TcsGeometryCoord>(ParentInfo());
    coord->Num = std::string(aNum);
    coord->X = aX;
    coord->Y = aY;
    if (fParentBounds) fParentBounds->ProcessCoord(aX, aY);
    return static_cast<TcsGeometryCoord*>(Add(std::move(coord)));
}

TcsGeometryCoord* TcsGeometryCoords::AddCoord(std::string_view aNum, double aX, double aY, double aZ) {
    TcsGeometryCoord* c = AddCoord(aNum, aX, aY);
    c->Z = aZ;
    return c;
}

TcsGeometryCoord* TcsGeometryCoords::AddCoord(const std::vector<double>& aX, const std::vector<double>& aY,
                                              const std::vector<double>& aZ) {
    TcsGeometryCoord* last = nullptr;
    SetCapacity(static_cast<size_t>(Count()) + aX.size());
    for (size_t i = 0; i < aX.size(); ++i)
        last = AddCoord({}, aX[i], i < aY.size() ? aY[i] : 0.0, i < aZ.size() ? aZ[i] : 0.0);
    return last;
}

void TcsGeometryCoords::FillCoordArray(std::vector<double>& aX, std::vector<double>& aY) const {
    aX.resize(static_cast<size_t>(Count()));
    aY.resize(static_cast<size_t>(Count()));
    for (int i = 0; i < Count(); ++i) {
        aX[static_cast<size_t>(i)] = (*this)[i].X;
        aY[static_cast<size_t>(i)] = (*this)[i].Y;
    }
}

bool TcsGeometryCoords::GetBounds(TcsGeometryBounds& aBounds) const {
    bool widened = false;
    for (int i = 0; i < Count(); ++i)
        if (aBounds.ProcessCoord((*this)[i].X, (*this)[i].Y)) widened = true;
    return widened;
}

void TcsGeometryCoords::Assign(const TcsGeometryCoords& aCoords) {
    SetCapacity(static_cast<size_t>(Count() + aCoords.Count()));
    for (int i = 0; i < aCoords.Count(); ++i) AddCoord(aCoords[i].Num, aCoords[i].X, aCoords[i].Y);
}

void TcsGeometryCoords::SwapCoords() {
    for (int i = 0; i < Count(); ++i) std::swap((*this)[i].X, (*this)[i].Y);
}

bool PointInRing(const TcsGeometryCoords& aRing, double aX, double aY) {
    const int n = aRing.Count();
    if (n < 2) return false;
    bool inside = false;
    const long double px = aX, py = aY;
    for (int i = 0; i + 1 < n; ++i) {
        const long double ax = aRing[i].X, ay = aRing[i].Y;
        const long double bx = aRing[i + 1].X, by = aRing[i + 1].Y;
        if ((ay < py) == (by >= py)) {
            const long double t = (py - ay) * (bx - ax) / (by - ay);
            if (px - ax < t) inside = !inside;
        }
    }
    return inside;
}

// ---------------------------------------------------------------------------------------------
// Simple objects

TcsCustomGeometry::TcsCustomGeometry(TcsComponent* aOwner)
    : TcsInfoLowData(aOwner),
      FCoords(std::make_unique<TcsGeometryCoords>(this)),
      FBounds(std::make_unique<TcsGeometryBounds>(this)) {
    FCoords->SetParentBounds(FBounds.get());
}

TcsCustomGeometry::~TcsCustomGeometry() = default;

void TcsCustomGeometry::InternalUpdateBounds() {
    FBounds->Reset();
    FCoords->GetBounds(*FBounds);
}

void TcsCustomGeometry::UpdateBounds() { InternalUpdateBounds(); }

bool TcsCustomGeometry::IsClearCoord() const { return FCoords->Count() == 0; }

void TcsCustomGeometry::Clear() {
    FCoords->Clear();
    FBounds->Reset();
}

std::string TcsCustomGeometry::GetWKT(bool) const { return {}; }

std::string TcsCustomGeometry::GetWKTName() const {
    switch (GetGeometryType()) {
        case gtPoint: return "POINT";
        case gtMultiPoint: return "MULTIPOINT";
        case gtLine: return "LINE";
        case gtPolyLine: return "POLYLINE";
        case gtPoligon: return "POLIGON";
        case gtCollection: return "COLLECTION";
        default: return {};
    }
}

std::string TcsCustomGeometry::GetGMLCoords() const {
    std::string out;
    for (int i = 0; i < FCoords->Count(); ++i) {
        if (i) out += ' ';
        out += Pair((*FCoords)[i].X, (*FCoords)[i].Y, 10);
    }
    return out;
}

std::string TcsCustomGeometry::GetWKTCoords(bool aRevert) const {
    std::string out = "(";
    for (int i = 0; i < FCoords->Count(); ++i) {
        if (i) out += ',';
        const TcsGeometryCoord& c = (*FCoords)[i];
        out += aRevert ? Pair(c.Y, c.X, 0) : Pair(c.X, c.Y, 0);
    }
    out += ")";
    return out;
}

TcsGeometryType TcsCustomGeometry::GetGeometryType() const {
    return FSetInternalType ? FInternalType : CalcGeometryType();
}

TcsGeometryType TcsCustomGeometry::CalcGeometryType() const {
    const int n = FCoords->Count();
    if (n == 0) return gtNone;
    if (n == 1) return gtPoint;
    if (n == 2) return gtPolyLine;
    const TcsGeometryCoord& first = (*FCoords)[0];
    const TcsGeometryCoord& last = (*FCoords)[n - 1];
    return (first.X == last.X && first.Y == last.Y) ? gtPoligon : gtPolyLine;
}

void TcsCustomGeometry::SetGeometryType(TcsGeometryType aGType) {
    FInternalType = aGType;
    FSetInternalType = true;
}

void TcsCustomGeometry::SetStyleClass(std::function<std::unique_ptr<TcsGeometryStyle>(TcsComponent*)> aStyleClass) {
    FStyle.reset();
    if (aStyleClass) FStyle = aStyleClass(this);
}

void TcsCustomGeometry::SwapCoords() {
    FCoords->SwapCoords();
    UpdateBounds();
}

void TcsCustomGeometry::Recalc(const TcsCoordProcedure& aProcedure) {
    for (int i = 0; i < FCoords->Count(); ++i) {
        TcsGeometryCoord& c = (*FCoords)[i];
        double x = c.X, y = c.Y;
        aProcedure(x, y);
        c.X = x;
        c.Y = y;
    }
    UpdateBounds();
}

bool TcsCustomGeometry::GetIsInteriorOf(const TcsCustomGeometry& aGeometry) const {
    if (GetGeometryType() != gtPoligon || aGeometry.GetGeometryType() != gtPoligon) return false;
    if (!aGeometry.Bounds().BoundsInBounds(*FBounds)) return false;
    for (int i = 0; i < FCoords->Count(); ++i)
        if (!PointInRing(aGeometry.Coords(), (*FCoords)[i].X, (*FCoords)[i].Y)) return false;
    return true;
}

void TcsCustomGeometry::Assign(const TcsPersistent& aSource) {
    const auto* source = dynamic_cast<const TcsCustomGeometry*>(&aSource);
    if (!source) {
        TcsInfoLowData::Assign(aSource);
        return;
    }
    // Decided against the letter of the original: the interior flag is copied with the
    // coordinates. It is part of the shape (a composite's copy would otherwise lose its holes
    // and write other WKT and MIF), not of the object's identity.
    SetGeometryType(source->GetGeometryType());
    FIsInterior = source->FIsInterior;
    FCoords->Clear();
    FCoords->Assign(*source->FCoords);
    UpdateBounds();
}

// ---------------------------------------------------------------------------------------------
// The composite

TcsInfoClass TcsGometryObjectCollection::ItemClass(TcsXmlNode aXmlNode) const {
    const std::string name = reinterpret_cast<const char*>(aXmlNode->name);
    if (name == "Geometry") return InfoClassOf<TcsGeometry>();
    if (name == "CustomGeometry") return InfoClassOf<TcsCustomGeometry>();
    return TcsInfoList::ItemClass(aXmlNode);
}

TcsGeometry::TcsGeometry(TcsComponent* aOwner)
    : TcsCustomGeometry(aOwner), FCollection(std::make_unique<TcsGometryObjectCollection>(this)) {}

TcsGeometry::~TcsGeometry() = default;

TcsCustomGeometry* TcsGeometry::AddGeometryObject() {
    FActiveGeometry = static_cast<TcsCustomGeometry*>(FCollection->Add(std::make_unique<TcsCustomGeometry>(this)));
    return FActiveGeometry;
}

TcsCustomGeometry* TcsGeometry::AddGeometryObject(TcsInfoClass aObjectClass) {
    std::unique_ptr<TcsInfo> object = aObjectClass->fCreate(this);
    auto* geometry = dynamic_cast<TcsCustomGeometry*>(object.get());
    if (!geometry) throw Exception("Класс " + aObjectClass->fClassName + " не является геометрией");
    object.release();
    FActiveGeometry = static_cast<TcsCustomGeometry*>(FCollection->Add(std::unique_ptr<TcsInfo>(geometry)));
    return FActiveGeometry;
}

void TcsGeometry::AppendGeometry(const TcsGeometry& aGeometry) {
    for (int i = 0; i < aGeometry.Count(); ++i) {
        const TcsCustomGeometry* source = aGeometry.Items(i);
        TcsCustomGeometry* copy = IsNested(source) ? AddGeometryObject(InfoClassOf<TcsGeometry>()) : AddGeometryObject();
        copy->Assign(*source);
    }
    UpdateBounds();
    RecalcGeometryType();
}

void TcsGeometry::RecalcGeometryType() {
    for (int i = 0; i < Count(); ++i) {
        TcsCustomGeometry* object = Items(i);
        if (auto* nested = dynamic_cast<TcsGeometry*>(object))
            nested->RecalcGeometryType();
        else
            object->SetGeometryType(object->CalcGeometryType());
    }
    SetGeometryType(CalcGeometryType());
}

// The sums below take each object's own coordinates; a nested composite's own are empty in
// use, so it adds nothing and is not walked into.
double TcsGeometry::GetArea() const {
    double total = 0;
    for (int i = 0; i < Count(); ++i) {
        const TcsGeometryCoords& c = Items(i)->Coords();
        double sum = 0;
        for (int k = 0; k + 1 < c.Count(); ++k) sum += c[k].X * c[k + 1].Y - c[k + 1].X * c[k].Y;
        total += std::fabs(sum) / 2;
    }
    return total;
}

double TcsGeometry::GetPointCount() const {
    double total = 0;
    for (int i = 0; i < Count(); ++i) total += Items(i)->Coords().Count();
    return total;
}

bool TcsGeometry::GetIsMultiPoligon() const {
    if (GetGeometryType() != gtPoligon || Count() <= 1) return false;
    for (int i = 1; i < Count(); ++i)
        if (!Items(i)->IsInterior()) return true;
    return false;
}

bool TcsGeometry::GeometryInBounds(const TcsGeometryBounds& aBounds) const {
    for (int i = 0; i < Count(); ++i) {
        const TcsGeometryCoords& c = Items(i)->Coords();
        for (int k = 0; k < c.Count(); ++k)
            if (!(c[k].X > aBounds.XMin() && c[k].X < aBounds.XMax() && c[k].Y > aBounds.YMin() && c[k].Y < aBounds.YMax()))
                return false;
    }
    return true;
}

void TcsGeometry::SetWKT(const std::string& aWKT, bool) { FInternalWKT = aWKT; }

std::string TcsGeometry::GetGeoJSON() const {
    std::string geometry = "{}";
    const TcsGeometryType type = GetGeometryType();
    auto first = [](const TcsCustomGeometry* o) {
        if (o->Coords().Count() == 0) return std::string("[]");
        const TcsGeometryCoord& c = o->Coords()[0];
        return "[" + FloatToStr(c.Y) + "," + FloatToStr(c.X) + "]";
    };
    if (type == gtPoint && Count() > 0) {
        geometry = "{\"type\":\"Point\",\"coordinates\":" + first(Items(0)) + "}";
    } else if (type == gtMultiPoint) {
        std::string points;
        for (int i = 0; i < Count(); ++i) points += (i ? "," : "") + first(Items(i));
        geometry = "{\"type\":\"MultiPoint\",\"coordinates\":[" + points + "]}";
    }
    return "{\"type\":\"FeatureCollection\",\"totalFeatures\":1,\"features\":[{\"type\":\"Feature\",\"id\":\"1\","
           "\"geometry\":" + geometry + "}]}";
}

void TcsGeometry::UpdateBounds() {
    FBounds->Reset();
    for (int i = 0; i < Count(); ++i) {
        TcsCustomGeometry* object = Items(i);
        object->UpdateBounds();
        FBounds->MergeBound(object->Bounds());
    }
}

bool TcsGeometry::IsClearCoord() const { return Count() == 0 || Items(0)->IsClearCoord(); }

void TcsGeometry::Clear() {
    FCoords->Clear();
    FCollection->Clear();
    FActiveGeometry = nullptr;
    CoordSystemString.clear();
    CoordSystemID.clear();
    FCoordSystem = nullptr;
    FInternalWKT.clear();
    FInternalWKB.clear();
    FBounds->Reset();
}

TcsGeometryType TcsGeometry::CalcGeometryType() const {
    if (Count() == 0) return gtNone;
    const TcsGeometryType first = Items(0)->GetGeometryType();
    if (Count() == 1) return first;
    for (int i = 1; i < Count(); ++i)
        if (Items(i)->GetGeometryType() != first) return gtCollection;
    return first == gtPoint ? gtMultiPoint : first;
}

TcsGeometryType TcsGeometry::GetGeometryType() const { return CalcGeometryType(); }

std::string TcsGeometry::GetGMLCoords() const {
    std::string out;
    for (int i = 0; i < Count(); ++i) {
        const std::string part = Items(i)->GetGMLCoords();
        if (part.empty()) continue;
        if (!out.empty()) out += ' ';
        out += part;
    }
    return out;
}

std::string TcsGeometry::MultiForm(bool aRevert) const {
    const TcsGeometryType type = GetGeometryType();
    if (Count() == 1) {
        const TcsCustomGeometry* object = Items(0);
        std::string head;
        switch (type) {
            case gtPoint:
            case gtMultiPoint: head = "POINT "; break;
            case gtLine: head = "LINESTRING "; break;
            case gtPolyLine: head = "MULTILINESTRING "; break;
            case gtPoligon: head = "POLYGON "; break;
            default: break;
        }
        if (type == gtPoint) return head;
        return head + "(" + object->GetWKTCoords(aRevert) + ")";
    }
    std::string head;
    switch (type) {
        case gtPoint:
        case gtMultiPoint: head = "MULTIPOINT "; break;
        case gtLine:
        case gtPolyLine: head = "MULTILINESTRING "; break;
        case gtPoligon: head = "MULTIPOLYGON "; break;
        default: break;
    }
    std::string body;
    if (type == gtPoligon) {
        // An interior ring opens a group and the next non-interior ring closes it.
        bool open = false;
        for (int i = 0; i < Count(); ++i) {
            const TcsCustomGeometry* ring = Items(i);
            if (i) body += ',';
            if (!open) body += '(';
            body += ring->GetWKTCoords(aRevert);
            if (!ring->IsInterior()) body += ')';
            open = ring->IsInterior();
        }
        if (open) body += ')';
    } else {
        for (int i = 0; i < Count(); ++i) {
            if (i) body += ',';
            body += Items(i)->GetWKTCoords(aRevert);
        }
    }
    return head + "(" + body + ")";
}

std::string TcsGeometry::GetWKT(bool aRevert) const {
    if (!FInternalWKT.empty()) return FInternalWKT;
    if (!FInternalWKB.empty()) return WKBToWKT(FInternalWKB);
    if (Count() == 0) return {};
    const TcsCustomGeometry* first = Items(0);
    if (Count() == 1 && !IsNested(first)) {
        switch (first->GetGeometryType()) {
            case gtPoint: return "POINT " + first->GetWKTCoords(aRevert);
            case gtLine:
            case gtPolyLine: return "LINESTRING " + first->GetWKTCoords(aRevert);
            case gtPoligon: return "POLYGON (" + first->GetWKTCoords(aRevert) + ")";
            default: return {};
        }
    }
    if (GetGeometryType() != gtCollection) return MultiForm(aRevert);
    // A collection lists its objects from last to first.
    std::string out = "GEOMETRYCOLLECTION (";
    for (int i = Count() - 1; i >= 0; --i) {
        const TcsCustomGeometry* object = Items(i);
        if (i != Count() - 1) out += ',';
        if (const auto* nested = dynamic_cast<const TcsGeometry*>(object)) {
            out += nested->MultiForm(aRevert);
            continue;
        }
        switch (object->GetGeometryType()) {
            case gtPoint: out += " POINT " + object->GetWKTCoords(aRevert); break;
            case gtLine:
            case gtPolyLine: out += " LINESTRING " + object->GetWKTCoords(aRevert); break;
            case gtPoligon: out += " POLYGON (" + object->GetWKTCoords(aRevert) + ")"; break;
            default: break;
        }
    }
    return out + ")";
}

void TcsGeometry::SwapCoords() {
    for (int i = 0; i < Count(); ++i) Items(i)->SwapCoords();
    UpdateBounds();
}

void TcsGeometry::Recalc(const TcsCoordProcedure& aProcedure) {
    for (int i = 0; i < Count(); ++i) Items(i)->Recalc(aProcedure);
    UpdateBounds();
}

void TcsGeometry::Assign(const TcsPersistent& aSource) {
    const auto* source = dynamic_cast<const TcsGeometry*>(&aSource);
    if (!source) {
        TcsCustomGeometry::Assign(aSource);
        return;
    }
    Clear();
    FInternalWKT = source->FInternalWKT;
    FInternalWKB = source->FInternalWKB;
    for (int i = 0; i < source->Count(); ++i) {
        const TcsCustomGeometry* object = source->Items(i);
        TcsCustomGeometry* copy = IsNested(object) ? AddGeometryObject(InfoClassOf<TcsGeometry>()) : AddGeometryObject();
        copy->Assign(*object);
    }
    UpdateBounds();
    // The link to the coordinate system goes across; the two strings of this object stay as
    // Clear left them.
    FCoordSystem = source->FCoordSystem;
}

void TcsRingClassifier::Add(TcsCustomGeometry& aRing) {
    if (fOuter) aRing.SetIsInterior(aRing.GetIsInteriorOf(*fOuter));
    if (!aRing.IsInterior()) fOuter = &aRing;
}

}  // namespace tmi
