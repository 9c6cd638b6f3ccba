#include "csCoordSysLinks.h"

#include "csRTTITools.h"

namespace tmi {

TcsXMLCoordSystemsInfo::TcsXMLCoordSystemsInfo(TcsComponent* aOwner)
    : TcsInfoLowData(aOwner), FAllBounds(std::make_unique<TcsGeometryBounds>(this)) {}

void TcsXMLCoordSystemsInfo::AddCoordSystemID(const std::string& aID, const TcsGeometryBounds* aBounds) {
    size_t at = 0;
    while (at < fIDs.size() && fIDs[at] != aID) ++at;
    if (at == fIDs.size()) {
        fIDs.push_back(aID);
        fBounds.push_back(std::make_unique<TcsGeometryBounds>(this));
        if (FDefaultCoordSystemInfo.empty()) FDefaultCoordSystemInfo = aID;
    }
    if (aBounds) fBounds[at]->MergeBound(*aBounds);
}

void TcsXMLCoordSystemsInfo::AddUnknown(const std::string& aInfo, const TcsGeometryBounds* aBounds) {
    FHasUnknownCRS = true;
    ++FCountUnknownCRS;
    if (!aInfo.empty() && FUnknownCRSInfo.find(aInfo) == std::string::npos)
        FUnknownCRSInfo += (FUnknownCRSInfo.empty() ? "" : ", ") + aInfo;
    if (aBounds) FAllBounds->MergeBound(*aBounds);
}

TcsRosreestrXMLCoordSysLink* TcsRosreestrXMLCoordSysLinks::FindByName(std::string_view aName) const {
    for (int i = 0; i < Count(); ++i)
        if (SameText(Items(i)->Name, aName)) return Items(i);
    return nullptr;
}

// The base finder finds nothing.
TcsCoordSystem* TcsRosreestrXMLCoordSysLinkFinder::FindCoordSystem(const std::string&) { return nullptr; }
TcsCoordSystem* TcsRosreestrXMLCoordSysLinkFinder::FindCoordSystem(TcsGeometry*, TcsGeometryBounds*, xml::PXMLNode, TcsInfo*) {
    return nullptr;
}
TcsCoordSystem* TcsRosreestrXMLCoordSysLinkFinder::FindCoordSystemAndRecovery(TcsGeometry*, TcsGeometryBounds*, xml::PXMLNode,
                                                                               TcsInfo*, bool) {
    return nullptr;
}
TcsCoordSystem* TcsRosreestrXMLCoordSysLinkFinder::RegisterCoordSystems(TcsCoordSystemManager*) { return nullptr; }

TcsRosreestrXMLCoordSysLinksManager::TcsRosreestrXMLCoordSysLinksManager(TcsComponent* aOwner) : TcsManager(aOwner) {}

TcsRosreestrXMLCoordSysLink* TcsRosreestrXMLCoordSysLinksManager::AddLink(const std::string& aLinkName,
                                                                          const std::string& aCoordsysID) {
    auto* link = static_cast<TcsRosreestrXMLCoordSysLink*>(FCoordSysLinks->Add(std::make_unique<TcsRosreestrXMLCoordSysLink>(this)));
    link->Name = aLinkName;
    link->CoordSysID = aCoordsysID;
    return link;
}

TcsCoordSystem* TcsRosreestrXMLCoordSysLinksManager::GetCoordsysByName(std::string_view aName) const {
    // The built-in links win over the user's: the first list that has the name decides.
    for (const TcsRosreestrXMLCoordSysLinks* links : {FCoordSysLinks.get(), FUserCoordSysLinks.get()})
        if (const TcsRosreestrXMLCoordSysLink* link = links->FindByName(aName))
            return FCoordSystemManager ? FCoordSystemManager->CoordSystems()->GetItemByID(link->CoordSysID) : nullptr;
    return nullptr;
}

void TcsRosreestrXMLCoordSysLinksManager::InternalInitialize() {
    TcsManager::InternalInitialize();
    if (!FFindInfoManager) return;
    for (int i = 0; i < FFindInfoManager->Count(); ++i) {
        std::unique_ptr<TcsInfo> made = FFindInfoManager->ClassItems(i)->fCreate(this);
        auto* finder = dynamic_cast<TcsRosreestrXMLCoordSysLinkFinder*>(made.get());
        if (!finder) continue;  // a class of another kind registered by mistake
        made.release();
        std::unique_ptr<TcsRosreestrXMLCoordSysLinkFinder> owned(finder);
        finder->RegisterCoordSystems(FCoordSystemManager);
        FFinders->Add(std::move(owned));
        finder->FLinkManager = this;
    }
}

TcsCoordSystem* TcsRosreestrXMLCoordSysLinksManager::FindXmlInfoCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds,
                                                                            xml::PXMLNode aXmlNode, TcsInfo* aXMLInfo) {
    for (int i = 0; i < FFinders->Count(); ++i)
        if (TcsCoordSystem* found = FFinders->Items(i)->FindCoordSystem(aGeometry, aBounds, aXmlNode, aXMLInfo)) return found;
    return nullptr;
}

TcsCoordSystem* TcsRosreestrXMLCoordSysLinksManager::FindCoordSystemAndRecovery(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds,
                                                                                xml::PXMLNode aXmlNode, TcsInfo* aXMLInfo,
                                                                                bool aRecovery) {
    for (int i = 0; i < FFinders->Count(); ++i)
        if (TcsCoordSystem* found = FFinders->Items(i)->FindCoordSystemAndRecovery(aGeometry, aBounds, aXmlNode, aXMLInfo, aRecovery))
            return found;
    return nullptr;
}

TcsCoordSystem* TcsRosreestrXMLCoordSysLinksManager::UpdateXmlInfoCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds,
                                                                              xml::PXMLNode aXmlNode, TcsInfo* aXMLInfo) {
    TcsCoordSystem* found = FindXmlInfoCoordSystem(aGeometry, aBounds, aXmlNode, aXMLInfo);
    const auto* holder = dynamic_cast<const IcsXMLCoordSystemsHolder*>(aXMLInfo);
    TcsXMLCoordSystemsInfo* info = holder ? holder->CoordSystemsInfo() : nullptr;
    if (!info) return found;
    if (found)
        info->AddCoordSystemID(found->ID(), aBounds);
    else
        info->AddUnknown({}, aBounds);
    return found;
}

TCS_PROPERTIES(TcsXMLCoordSystemsInfo, TcsInfoLowData, ObjectProperty("AllBounds", &TcsXMLCoordSystemsInfo::AllBounds))
TCS_PROPERTIES(TcsRosreestrXMLCoordSysLink, TcsInfoLowData, Field("Name", &TcsRosreestrXMLCoordSysLink::Name),
               Field("CoordSysID", &TcsRosreestrXMLCoordSysLink::CoordSysID),
               Field("Description", &TcsRosreestrXMLCoordSysLink::Description))
TCS_PROPERTIES(TcsRosreestrXMLCoordSysLinkFinder, TcsInfo)
TCS_PROPERTIES(TcsRosreestrXMLCoordSysLinksManager, TcsManager,
               ObjectProperty("UserCoordSysLinks", &TcsRosreestrXMLCoordSysLinksManager::UserCoordSysLinks))

}  // namespace tmi
