// Geometry clauses of the MIF file.
#include "libImportXML.h"

namespace tmi {

namespace {
constexpr const char* kSymbol = "Symbol (35,0,12)";
}

std::string TlibImportXML::FormatCoord(double aValue) { return GeneralFloat(aValue); }

void TlibImportXML::WriteGrPoint(double aX, double aY) {
    double x = 0, y = 0;
    TransformPoint(x, y, aY, aX);
    TMITable& t = OpenTable();
    t.WriteMifLine("Point " + FormatCoord(x) + " " + FormatCoord(y));
    t.WriteMifLine(kSymbol);
}

}  // namespace tmi
