// The new-format boundaries and zones.
#include "libImportXML.h"

namespace tmi {

// The boundary register and zone readers are not built yet: their elements are passed over,
// and the records of a plan's boundary groups and zones are not taken.
void TlibImportXML::ReadZoneTerritorySurveying(xml::PXMLNode) {}
void TlibImportXML::ReadRegistryBoundaries(xml::PXMLNode) {}
bool TlibImportXML::ReadBoundaryRecord(xml::PXMLNode, int, std::string_view) { return false; }
bool TlibImportXML::ReadZoneRecord(xml::PXMLNode, int) { return false; }

}  // namespace tmi
