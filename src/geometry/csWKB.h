// Well-known binary, read back: the text form of a WKB geometry of two dimensions (either byte
// order; points, lines, polygons, their multi forms and collections), numbers written in their
// shortest exact form as the WKT writers here write them.
#pragma once

#include <string>
#include <string_view>

namespace tmi {

// The WKT of the geometry; empty when the bytes are not a whole WKB geometry of two dimensions.
[[nodiscard]] std::string WKBToWKT(std::string_view aWKB);

}  // namespace tmi
