// What the universal conversion registers for its callers.
#pragma once

namespace tmi {

// Registers the process and destination classes of the conversion (once).
void RegisterUniversalClasses();

}  // namespace tmi
