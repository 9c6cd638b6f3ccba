#include "csUniversalRegistration.h"

#include "csXMLDBDestination.h"
#include "scPostgreSQLProvider.h"

namespace tmi {

void RegisterUniversalClasses() {
    static const bool done = [] {
        RegisterDBProviders();
        DestinationInfoManager().Register<TcsXMLDBDestination>();
        return true;
    }();
    (void)done;
}

}  // namespace tmi
