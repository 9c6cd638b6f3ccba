// The new-format boundaries and zones.
#include "libImportXML.h"

namespace tmi {

// Read by the boundary and zone readers; until they exist these elements yield no rows.
void TlibImportXML::ReadZoneTerritorySurveying(xml::PXMLNode) {}
void TlibImportXML::ReadRegistryBoundaries(xml::PXMLNode) {}

}  // namespace tmi
