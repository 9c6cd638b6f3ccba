#include "csMifClauses.h"

#include <algorithm>

namespace tmi {

void TcsMifClauseWriter::PointLine(double aX, double aY) {
    double x = aX, y = aY;
    if (fTransform) fTransform(x, y, aY, aX);
    fLine = FloatToStr(x);
    fLine += ' ';
    fLine += FloatToStr(y);
    Line(fLine);
}

void TcsMifClauseWriter::Points(const TGrCont& aCont) {
    for (int i = 0; i < aCont.Count(); ++i) PointLine(aCont[i].x, aCont[i].y);
}

void TcsMifClauseWriter::Points(const TcsGeometryCoords& aCoords) {
    for (int i = 0; i < aCoords.Count(); ++i)
        fEastingFirst ? PointLine(aCoords[i].Y, aCoords[i].X) : PointLine(aCoords[i].X, aCoords[i].Y);
}

int TcsMifClauseWriter::CountGMContours(const TGrParcel& aParcel) {
    int n = 0;
    for (int i = 0; i < aParcel.Count(); ++i) n += Writable(aParcel.Contour(i)) ? 1 : 0;
    return n;
}

void TcsMifClauseWriter::WriteGrParcel(TGrParcel& aParcel, bool aAsRegion) {
    if (CountGMContours(aParcel) == 0) {
        Line("none");
        return;
    }
    // Outer rings in order, each followed at once by its holes.
    std::vector<TGrCont*> order;
    for (int i = 0; i < aParcel.Count(); ++i) {
        TGrCont* c = aParcel.Contour(i);
        if (!Writable(c) || c->IsInternal) continue;
        order.push_back(c);
        for (int j = 0; j < aParcel.Count(); ++j) {
            TGrCont* h = aParcel.Contour(j);
            if (h != c && Writable(h) && h->IsInternal && h->extId == c->id) order.push_back(h);
        }
    }
    // A hole whose outer ring is missing becomes an outer ring of its own.
    if (static_cast<int>(order.size()) < aParcel.Count()) {
        for (int i = 0; i < aParcel.Count(); ++i) {
            TGrCont* c = aParcel.Contour(i);
            if (!Writable(c) || std::find(order.begin(), order.end(), c) != order.end()) continue;
            c->IsInternal = false;
            order.push_back(c);
        }
    }
    Line((aAsRegion ? "Region " : "Pline Multiple ") + std::to_string(order.size()));
    for (const TGrCont* c : order) {
        Line(std::to_string(c->Count()));
        Points(*c);
    }
    Line(kPenLine);
    if (aAsRegion) Line(kBrushLine);
}

void TcsMifClauseWriter::WriteGrParcelLines(const TGrParcel& aParcel) {
    if (aParcel.Count() == 0) {
        Line("none");
        return;
    }
    if (aParcel.Count() > 1) Line("Pline Multiple " + std::to_string(aParcel.Count()));
    for (int i = 0; i < aParcel.Count(); ++i) {
        const TGrCont& c = *aParcel.Contour(i);
        Line(aParcel.Count() == 1 ? "Pline " + std::to_string(c.Count()) : std::to_string(c.Count()));
        Points(c);
    }
    Line(kPenLine);
}

void TcsMifClauseWriter::WriteGrCont(const TGrCont& aCont) {
    if (aCont.Count() < 2) {
        Line("none");
        return;
    }
    Line("Pline " + std::to_string(aCont.Count()));
    Points(aCont);
}

void TcsMifClauseWriter::WriteGrPoint(double aX, double aY) {
    double x = aX, y = aY;
    if (fTransform) fTransform(x, y, aY, aX);
    Line("Point " + FloatToStr(x) + " " + FloatToStr(y));
    Line(kSymbolLine);
}

void TcsMifClauseWriter::WriteGeometry(const TcsGeometry& aGeometry) {
    const int parts = aGeometry.Count();
    auto first = [&](int i, double& x, double& y) {
        const TcsGeometryCoords& c = aGeometry.Items(i)->Coords();
        x = c.Count() > 0 ? (fEastingFirst ? c[0].Y : c[0].X) : 0;
        y = c.Count() > 0 ? (fEastingFirst ? c[0].X : c[0].Y) : 0;
    };
    switch (aGeometry.GetGeometryType()) {
        case gtPoint: {
            double x = 0, y = 0;
            first(0, x, y);
            WriteGrPoint(x, y);
            return;
        }
        case gtMultiPoint: {
            // One polyline through the points.
            Line("Pline " + std::to_string(parts));
            for (int i = 0; i < parts; ++i) {
                double x = 0, y = 0;
                first(i, x, y);
                PointLine(x, y);
            }
            Line(kPenLine);
            return;
        }
        case gtPolyLine: {
            if (parts > 1) {
                Line("Pline Multiple " + std::to_string(parts));
                for (int i = 0; i < parts; ++i) {
                    Line(std::to_string(aGeometry.Items(i)->Coords().Count()));
                    Points(aGeometry.Items(i)->Coords());
                }
            } else if (parts == 1) {
                Line("Pline " + std::to_string(aGeometry.Items(0)->Coords().Count()));
                Points(aGeometry.Items(0)->Coords());
            }
            Line(kPenLine);
            return;
        }
        case gtPoligon: {
            Line("Region " + std::to_string(parts));
            for (int i = 0; i < parts; ++i) {
                Line(std::to_string(aGeometry.Items(i)->Coords().Count()));
                Points(aGeometry.Items(i)->Coords());
            }
            Line(kPenLine);
            Line(kBrushLine);
            return;
        }
        case gtCollection: {
            std::vector<int> polygons, lines, points;
            for (int i = 0; i < parts; ++i) {
                switch (aGeometry.Items(i)->GetGeometryType()) {
                    case gtPoligon: polygons.push_back(i); break;
                    case gtPolyLine: lines.push_back(i); break;
                    case gtPoint: points.push_back(i); break;
                    default: break;
                }
            }
            const int kinds = !polygons.empty() + !lines.empty() + !points.empty();
            Line("Collection " + std::to_string(kinds));
            if (!polygons.empty()) {
                Line("Region " + std::to_string(polygons.size()));
                for (int i : polygons) {
                    Line(std::to_string(aGeometry.Items(i)->Coords().Count()));
                    Points(aGeometry.Items(i)->Coords());
                }
                Line(kPenLine);
                Line(kBrushLine);
            }
            if (!lines.empty()) {
                Line("Pline Multiple " + std::to_string(lines.size()));
                for (int i : lines) {
                    Line(std::to_string(aGeometry.Items(i)->Coords().Count()));
                    Points(aGeometry.Items(i)->Coords());
                }
                Line(kPenLine);
            }
            if (!points.empty()) {
                Line("Multipoint " + std::to_string(points.size()));
                for (int i : points) {
                    double x = 0, y = 0;
                    first(i, x, y);
                    PointLine(x, y);
                }
                Line(kSymbolLine);
            }
            return;
        }
        default: Line("none"); return;
    }
}

void TcsMifClauseWriter::WriteGeometryParts(const TcsGeometry& aGeometry, double aRadius, int aPosition, int aPartKind,
                                            const std::vector<int>& aIndices) {
    auto part = [&](int aIndex) -> const TcsGeometryCoords& { return aGeometry.Items(aIndex)->Coords(); };
    // Parts that are not there cannot be written: the object is written as none.
    const bool partsThere = std::all_of(aIndices.begin(), aIndices.end(), [&](int i) {
        return i >= 0 && i < aGeometry.Count() && aGeometry.Items(i) != nullptr;
    });
    const bool pointKind = aPartKind == 1 || aPartKind == 4;
    if (!partsThere || (pointKind && (aPosition < 0 || aPosition >= static_cast<int>(aIndices.size())))) {
        Line("none");
        return;
    }
    if (pointKind) {
        const TcsGeometryCoords& c = part(aIndices[static_cast<size_t>(aPosition)]);
        const double x = c.Count() > 0 ? (fEastingFirst ? c[0].Y : c[0].X) : 0;
        const double y = c.Count() > 0 ? (fEastingFirst ? c[0].X : c[0].Y) : 0;
        if (aRadius != 0) {
            // A round object becomes a circle.
            double x1 = 0, y1 = 0, x2 = 0, y2 = 0;
            if (fTransform) {
                fTransform(x1, y1, y - aRadius, x - aRadius);
                fTransform(x2, y2, y + aRadius, x + aRadius);
            } else {
                x1 = x - aRadius, y1 = y - aRadius, x2 = x + aRadius, y2 = y + aRadius;
            }
            Line("Ellipse " + FloatToStr(x1) + " " + FloatToStr(y1) + " " + FloatToStr(x2) + " " + FloatToStr(y2));
            Line(kPenLine);
            Line(kBrushLine);
        } else {
            WriteGrPoint(x, y);
        }
        return;
    }
    if (aPartKind == 2) {
        if (aIndices.size() > 1) Line("Pline Multiple " + std::to_string(aIndices.size()));
        for (int i : aIndices) {
            const TcsGeometryCoords& c = part(i);
            Line(aIndices.size() == 1 ? "Pline " + std::to_string(c.Count()) : std::to_string(c.Count()));
            Points(c);
        }
        Line(kPenLine);
        return;
    }
    Line("Region " + std::to_string(aIndices.size()));
    for (int i : aIndices) {
        const TcsGeometryCoords& c = part(i);
        Line(std::to_string(c.Count()));
        Points(c);
    }
    Line(kPenLine);
    Line(kBrushLine);
}

}  // namespace tmi
