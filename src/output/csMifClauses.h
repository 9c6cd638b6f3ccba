// Geometry to MIF: the object clause of one row, from the rings of a reader (TGrParcel,
// TGrCont), a point, or a TcsGeometry. Every coordinate passes the transform first and is
// printed in the general form of 15 significant digits with ".".
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "csGeometryCore.h"
#include "csGrParcel.h"
#include "csMapinfoTab.h"

namespace tmi {

inline constexpr const char* kPenLine = "Pen (1,2,0)";
inline constexpr const char* kBrushLine = "Brush (2,16777215,16777215)";
inline constexpr const char* kSymbolLine = "Symbol (35,0,12)";

// (out x, out y, y0, x0): what every written coordinate passes through.
using TcsPointTransform = std::function<void(double& aX, double& aY, double aY0, double aX0)>;

class TcsMifClauseWriter {
public:
    TcsMifClauseWriter(TMITable& aTable, TcsPointTransform aTransform)
        : fTable(aTable), fTransform(std::move(aTransform)) {}

    // Region (or Pline Multiple) of the writable rings, each hole right behind its outer ring.
    void WriteGrParcel(TGrParcel& aParcel, bool aAsRegion);
    void WriteGrParcelLines(const TGrParcel& aParcel);
    void WriteGrCont(const TGrCont& aCont);
    void WriteGrPoint(double aX, double aY);
    void WriteGeometry(const TcsGeometry& aGeometry);
    void WriteGeometryParts(const TcsGeometry& aGeometry, double aRadius, int aPosition, int aPartKind,
                            const std::vector<int>& aIndices);
    // A ring that exists, has at least 4 points and is not deleted.
    static bool Writable(const TGrCont* aCont) noexcept { return aCont && aCont->Count() >= 4 && !aCont->IsDeleted; }
    static int CountGMContours(const TGrParcel& aParcel);
    // Coordinates of a TcsGeometry written Y first (the easting of a new-family record).
    void SetEastingFirst(bool aValue) noexcept { fEastingFirst = aValue; }

private:
    void Line(std::string_view aText) { fTable.WriteMifLine(aText); }
    void PointLine(double aX, double aY);
    void Points(const TGrCont& aCont);
    void Points(const TcsGeometryCoords& aCoords);

    TMITable& fTable;
    TcsPointTransform fTransform;
    std::string fLine;
    bool fEastingFirst = false;
};

}  // namespace tmi
