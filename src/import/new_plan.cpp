// The new-format plan reader: cadastral blocks and what they hold.
#include "libImportXML.h"

namespace tmi {

// Read by the new-format plan reader; until it exists the blocks yield no rows.
void TlibImportXML::ReadCadastralBlocks(xml::PXMLNode) {}

}  // namespace tmi
