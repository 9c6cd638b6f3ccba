// Geometry clauses: the job's operations hand the open table to the clause writer, with
// TransformPoint for every coordinate.
#include "csMifClauses.h"
#include "libImportXML.h"

namespace tmi {

namespace {
TcsMifClauseWriter Writer(TlibImportXML& aJob) {
    return TcsMifClauseWriter(aJob.OpenTable(), [&aJob](double& aX, double& aY, double aY0, double aX0) {
        aJob.TransformPoint(aX, aY, aY0, aX0);
    });
}
}  // namespace

std::string TlibImportXML::FormatCoord(double aValue) { return FloatToStr(aValue); }

// The TAB side of a row gets the same coordinates as the clause, in a TcsGeometry.
namespace {
void AddTransformed(TlibImportXML& aJob, TcsGeometry& aInto, const TGrCont& aCont) {
    TcsCustomGeometry* object = aInto.AddGeometryObject();
    for (int i = 0; i < aCont.Count(); ++i) {
        double x = aCont[i].x, y = aCont[i].y;
        aJob.TransformPoint(x, y, aCont[i].y, aCont[i].x);
        object->Coords().AddCoord("", x, y);
    }
    object->SetIsInterior(aCont.IsInternal);
}
}  // namespace

void TlibImportXML::WriteGrPoint(double aX, double aY) {
    TMITable& table = OpenTable();
    if (table.HasMif()) Writer(*this).WriteGrPoint(aX, aY);
    if (!table.Tab()) return;
    double x = aX, y = aY;
    TransformPoint(x, y, aY, aX);
    TcsGeometry g;
    g.AddGeometryObject()->Coords().AddCoord("", x, y);
    table.WriteTabGeometry(g);
}

void TlibImportXML::WriteGrParcel(TGrParcel& aParcel, bool aAsRegion) {
    TMITable& table = OpenTable();
    if (table.HasMif()) Writer(*this).WriteGrParcel(aParcel, aAsRegion);
    if (!table.Tab()) return;
    TcsGeometry g;
    for (int i = 0; i < aParcel.Count(); ++i)
        if (TcsMifClauseWriter::Writable(aParcel.Contour(i))) AddTransformed(*this, g, *aParcel.Contour(i));
    // The table alone leaves parcels and blocks without objects: the geometry is built and
    // dropped. Beside the MIF files the TAB gets it.
    if (table.HasMif()) table.WriteTabGeometry(g);
}

void TlibImportXML::WriteGrParcelLines(const TGrParcel& aParcel) {
    TMITable& table = OpenTable();
    if (table.HasMif()) Writer(*this).WriteGrParcelLines(aParcel);
    if (!table.Tab()) return;
    TcsGeometry g;
    for (int i = 0; i < aParcel.Count(); ++i) AddTransformed(*this, g, *aParcel.Contour(i));
    table.WriteTabGeometry(g);
}

void TlibImportXML::WriteGrCont(const TGrCont& aCont) {
    TMITable& table = OpenTable();
    if (table.HasMif()) Writer(*this).WriteGrCont(aCont);
    if (!table.Tab() || aCont.Count() < 2) return;
    TcsGeometry g;
    AddTransformed(*this, g, aCont);
    table.WriteTabGeometry(g);
}

// A TcsGeometry of this product comes from a new-family record, which holds x (the northing)
// and y (the easting) as read: the clause puts the easting first, as for the land records.
void TlibImportXML::WriteGeometry(const TcsGeometry& aGeometry) {
    TMITable& table = OpenTable();
    if (table.HasMif()) {
        TcsMifClauseWriter w = Writer(*this);
        w.SetEastingFirst(true);
        w.WriteGeometry(aGeometry);
    }
    if (!table.Tab()) return;
    TcsGeometry g;
    for (int i = 0; i < aGeometry.Count(); ++i) {
        const TcsCustomGeometry& item = *aGeometry.Items(i);
        TcsCustomGeometry* object = g.AddGeometryObject();
        for (int k = 0; k < item.Coords().Count(); ++k) {
            const TcsGeometryCoord& c = item.Coords()[k];
            double x = c.Y, y = c.X;
            TransformPoint(x, y, c.X, c.Y);
            object->Coords().AddCoord("", x, y);
        }
        object->SetIsInterior(item.IsInterior());
        if (item.GetGeometryType() == gtPoint) object->SetGeometryType(gtPoint);
    }
    table.WriteTabGeometry(g);
}
void TlibImportXML::WriteGeometryParts(const TcsGeometry& aGeometry, double aRadius, int aPosition, int aPartKind,
                                       const std::vector<int>& aIndices) {
    if (!OpenTable().HasMif()) return;
    TcsMifClauseWriter w = Writer(*this);
    w.SetEastingFirst(true);
    w.WriteGeometryParts(aGeometry, aRadius, aPosition, aPartKind, aIndices);
}
int TlibImportXML::CountGMContours(const TGrParcel& aParcel) { return TcsMifClauseWriter::CountGMContours(aParcel); }

bool TlibImportXML::CheckObjectLinear(const TGrCont& aCont, bool aCheck) const {
    if (!aCheck) return true;
    double left = 0, bottom = 0, right = 0, top = 0;
    aCont.GetRect(left, bottom, right, top);
    // Overlap: on each axis the smaller bound of one lies in the range of the other, ends included.
    auto overlap = [](double a1, double a2, double b1, double b2) {
        return (a1 >= b1 && a1 <= b2) || (b1 >= a1 && b1 <= a2);
    };
    return overlap(left, right, csXmin, csXmax) && overlap(bottom, top, csYmin, csYmax);
}

}  // namespace tmi
