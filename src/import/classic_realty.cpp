// Classic realty objects, zones and bounds.
#include "libImportXML.h"

namespace tmi {

// Read by the classic realty, zone and bound readers; until they exist these elements yield
// no rows.
void TlibImportXML::ReadClassicBounds(xml::PXMLNode) {}
void TlibImportXML::ReadClassicZones(xml::PXMLNode) {}
void TlibImportXML::ReadObjectsRealty(xml::PXMLNode) {}

}  // namespace tmi
