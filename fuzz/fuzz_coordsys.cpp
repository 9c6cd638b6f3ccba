// The CoordSys clause parser: any text gives defaults, a parsed system with its texts, or
// one of the two documented exceptions.
#include <cstddef>
#include <cstdint>
#include <string>

#include "csGeometryCoordSysCore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    const std::string clause(reinterpret_cast<const char*>(aData), aSize);
    tmi::TcsCoordSystem cs;
    try {
        cs.SetMapinfo(clause);
    } catch (const tmi::EConvertError&) {
        return 0;
    } catch (const tmi::EcsCoordSystemError&) {
        return 0;
    }
    (void)cs.Proj4();
    (void)cs.WKT();
    double x = 1, y = 2;
    cs.Affine(x, y);
    cs.DeAffine(x, y);
    return 0;
}
