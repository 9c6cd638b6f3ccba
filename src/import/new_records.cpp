// The new-format land and construction records.
#include "libImportXML.h"

namespace tmi {

// Read by the new-format record readers; until they exist these elements yield no rows.
void TlibImportXML::ReadDetailsStatement(xml::PXMLNode) {}
void TlibImportXML::ReadLandRecord(xml::PXMLNode) {}
void TlibImportXML::ReadConstructionExtract(xml::PXMLNode) {}

}  // namespace tmi
