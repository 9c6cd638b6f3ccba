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

void TlibImportXML::WriteGrPoint(double aX, double aY) { Writer(*this).WriteGrPoint(aX, aY); }
void TlibImportXML::WriteGrParcel(TGrParcel& aParcel, bool aAsRegion) { Writer(*this).WriteGrParcel(aParcel, aAsRegion); }
void TlibImportXML::WriteGrParcelLines(const TGrParcel& aParcel) { Writer(*this).WriteGrParcelLines(aParcel); }
void TlibImportXML::WriteGrCont(const TGrCont& aCont) { Writer(*this).WriteGrCont(aCont); }
// A TcsGeometry of this product comes from a new-family record, which holds x (the northing)
// and y (the easting) as read: the clause puts the easting first, as for the land records.
void TlibImportXML::WriteGeometry(const TcsGeometry& aGeometry) {
    TcsMifClauseWriter w = Writer(*this);
    w.SetEastingFirst(true);
    w.WriteGeometry(aGeometry);
}
void TlibImportXML::WriteGeometryParts(const TcsGeometry& aGeometry, double aRadius, int aPosition, int aPartKind,
                                       const std::vector<int>& aIndices) {
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
