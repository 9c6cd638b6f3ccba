// Delivery of posted messages on Qt's event loop: a QTimer of the main thread calls the
// manager's ProcessAllMessages, and runs the calls that workers synchronise to it.
#pragma once

#include "csMessage.h"

namespace tmi {

// Installs the Qt timer into the manager when a Qt application exists; returns whether it did.
bool UseQtMessageTimer(TcsMessageManager& aManager);

}  // namespace tmi
