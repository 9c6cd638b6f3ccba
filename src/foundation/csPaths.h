// Process-wide values and the user's folders.
#pragma once

#include <cstdint>
#include <string>

namespace tmi {

// Which host program the module serves: 0 MapInfo, 2 QGIS, 3 Axioma, 4 MapInfo or QGIS.
uint8_t& HostMode();
// 32 or 64, by the pointer size of the build.
int32_t& Bitness();

// The user's temporary folder ($TMPDIR, else /tmp), with a trailing "/".
std::string TempFolder();
// The Documents folder: the XDG documents folder when it exists, else $HOME, else the
// temporary folder; with a trailing "/".
std::string DocumentsFolder();
// A regular file stands at the path (a link to one counts).
bool IsFile(const std::string& aPath);
// The folder with a trailing "/".
std::string IncludeTrailingDelimiter(std::string aFolder);

}  // namespace tmi
