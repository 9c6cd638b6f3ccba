#include "csUniversalRegistration.h"

#include "csRosreestrXMLCadastr.h"
#include "csXMLDBDestination.h"
#include "scPostgreSQLProvider.h"

namespace tmi {

void RegisterUniversalClasses() {
    static const bool done = [] {
        RegisterDBProviders();
        DestinationInfoManager().Register<TcsXMLDBDestination>();
        RegisterCadastrProcesses();
        return true;
    }();
    (void)done;
}

}  // namespace tmi
