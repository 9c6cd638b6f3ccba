// Links from the names extracts give their coordinate systems to the systems of a manager,
// and the plug-in point where registered finders work a system out of an extract's data.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "OXmlPDOM.h"
#include "csGeometryCoordSysCore.h"
#include "csGeometryCore.h"
#include "csInfoCore.h"

namespace tmi {

// What an extract's description keeps of its coordinate systems: the systems met with the
// extent of their data, and the extent of data whose system is not known.
class TcsXMLCoordSystemsInfo : public TcsInfoLowData {
    TCS_PERSISTENT(TcsXMLCoordSystemsInfo)
public:
    explicit TcsXMLCoordSystemsInfo(TcsComponent* aOwner = nullptr);
    // Enters the system (once) and widens its extent by the bounds.
    void AddCoordSystemID(const std::string& aID, const TcsGeometryBounds* aBounds);
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fIDs.size()); }
    [[nodiscard]] const std::string& IDs(int aIndex) const { return fIDs.at(static_cast<size_t>(aIndex)); }
    [[nodiscard]] TcsGeometryBounds* BoundsOf(int aIndex) const { return fBounds.at(static_cast<size_t>(aIndex)).get(); }
    [[nodiscard]] std::string DefaultCoordSystemInfo() const { return FDefaultCoordSystemInfo; }
    [[nodiscard]] TcsGeometryBounds* AllBounds() const noexcept { return FAllBounds.get(); }
    [[nodiscard]] bool HasUnknownCRS() const noexcept { return FHasUnknownCRS; }
    [[nodiscard]] const std::string& UnknownCRSInfo() const noexcept { return FUnknownCRSInfo; }
    [[nodiscard]] int CountUnknownCRS() const noexcept { return FCountUnknownCRS; }
    // Data of no known system: its extent goes to the whole.
    void AddUnknown(const std::string& aInfo, const TcsGeometryBounds* aBounds);

private:
    std::string FDefaultCoordSystemInfo;
    std::unique_ptr<TcsGeometryBounds> FAllBounds;
    bool FHasUnknownCRS = false;
    std::string FUnknownCRSInfo;
    int FCountUnknownCRS = 0;
    std::vector<std::string> fIDs;
    std::vector<std::unique_ptr<TcsGeometryBounds>> fBounds;
};

// What the links manager asks of an extract's description.
class IcsXMLCoordSystemsHolder {
public:
    virtual ~IcsXMLCoordSystemsHolder() = default;
    [[nodiscard]] virtual TcsXMLCoordSystemsInfo* CoordSystemsInfo() const = 0;
};

class TcsRosreestrXMLCoordSysLink : public TcsInfoLowData {
    TCS_PERSISTENT(TcsRosreestrXMLCoordSysLink)
public:
    using TcsInfoLowData::TcsInfoLowData;
    std::string Name;        // as the extract gives it
    std::string CoordSysID;  // the identifier in the coordinate system manager
    std::string Description;
};

class TcsRosreestrXMLCoordSysLinks : public TcsInfoList {
public:
    using TcsInfoList::TcsInfoList;
    [[nodiscard]] std::string ClassName() const override { return "TcsRosreestrXMLCoordSysLinks"; }
    [[nodiscard]] TcsRosreestrXMLCoordSysLink* Items(int aIndex) const {
        return static_cast<TcsRosreestrXMLCoordSysLink*>(TcsInfoList::Items(aIndex));
    }
    [[nodiscard]] TcsInfoClass ItemClass(TcsXmlNode) const override { return InfoClassOf<TcsRosreestrXMLCoordSysLink>(); }
    // The first link of that name, without regard to case; nil when none.
    [[nodiscard]] TcsRosreestrXMLCoordSysLink* FindByName(std::string_view aName) const;
};

class TcsRosreestrXMLCoordSysLinksManager;

// One way of finding a coordinate system. This class finds none: concrete finders are
// registered as classes and made by the links manager.
class TcsRosreestrXMLCoordSysLinkFinder : public TcsInfo {
    TCS_PERSISTENT(TcsRosreestrXMLCoordSysLinkFinder)
public:
    using TcsInfo::TcsInfo;
    virtual TcsCoordSystem* FindCoordSystem(const std::string& aName);
    virtual TcsCoordSystem* FindCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aXmlNode,
                                            TcsInfo* aXMLInfo);
    virtual TcsCoordSystem* FindCoordSystemAndRecovery(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aXmlNode,
                                                       TcsInfo* aXMLInfo, bool aRecovery);
    // May add the systems the finder needs to the manager.
    virtual TcsCoordSystem* RegisterCoordSystems(TcsCoordSystemManager* aManager);
    [[nodiscard]] TcsRosreestrXMLCoordSysLinksManager* LinkManager() const noexcept { return FLinkManager; }

private:
    friend class TcsRosreestrXMLCoordSysLinksManager;
    TcsRosreestrXMLCoordSysLinksManager* FLinkManager = nullptr;
};

class TcsRosreestrXMLCoordSysLinkFinders : public TcsInfoList {
public:
    using TcsInfoList::TcsInfoList;
    [[nodiscard]] std::string ClassName() const override { return "TcsRosreestrXMLCoordSysLinkFinders"; }
    [[nodiscard]] TcsRosreestrXMLCoordSysLinkFinder* Items(int aIndex) const {
        return static_cast<TcsRosreestrXMLCoordSysLinkFinder*>(TcsInfoList::Items(aIndex));
    }
};

// The registry of finder classes.
class TcsRosreestrXMLCoordSysLinkFindInfoManager : public TcsInfoManager {};

class TcsRosreestrXMLCoordSysLinksManager : public TcsManager {
    TCS_PERSISTENT(TcsRosreestrXMLCoordSysLinksManager)
public:
    explicit TcsRosreestrXMLCoordSysLinksManager(TcsComponent* aOwner = nullptr);

    void SetCoordSystemManager(TcsCoordSystemManager* aManager) noexcept { FCoordSystemManager = aManager; }
    [[nodiscard]] TcsCoordSystemManager* CoordSystemManager() const noexcept { return FCoordSystemManager; }
    void SetFindInfoManager(TcsRosreestrXMLCoordSysLinkFindInfoManager* aManager) noexcept { FFindInfoManager = aManager; }
    [[nodiscard]] TcsRosreestrXMLCoordSysLinks* CoordSysLinks() const noexcept { return FCoordSysLinks.get(); }
    [[nodiscard]] TcsRosreestrXMLCoordSysLinks* UserCoordSysLinks() const noexcept { return FUserCoordSysLinks.get(); }
    [[nodiscard]] TcsRosreestrXMLCoordSysLinkFinders* Finders() const noexcept { return FFinders.get(); }

    // A built-in link; the user's list is never added to here.
    TcsRosreestrXMLCoordSysLink* AddLink(const std::string& aLinkName, const std::string& aCoordsysID);
    // The first built-in link of that name decides, else the first of the user's; nil when
    // neither has it (or the manager has no system of the link's identifier).
    [[nodiscard]] TcsCoordSystem* GetCoordsysByName(std::string_view aName) const;
    [[nodiscard]] virtual TcsCoordSystem* GetCoordsysByXmlInfo(TcsInfo* aXMLInfo) const { return nullptr; }
    // The first finder's answer that is not nil.
    TcsCoordSystem* FindXmlInfoCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aXmlNode,
                                           TcsInfo* aXMLInfo);
    TcsCoordSystem* FindCoordSystemAndRecovery(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aXmlNode,
                                               TcsInfo* aXMLInfo, bool aRecovery);
    // Records the system found with the bounds in the extract's description; with none
    // found, the bounds widen the extent of data of no known system.
    TcsCoordSystem* UpdateXmlInfoCoordSystem(TcsGeometry* aGeometry, TcsGeometryBounds* aBounds, xml::PXMLNode aXmlNode,
                                             TcsInfo* aXMLInfo);

protected:
    void InternalInitialize() override;

private:
    TcsCoordSystemManager* FCoordSystemManager = nullptr;
    std::unique_ptr<TcsRosreestrXMLCoordSysLinks> FCoordSysLinks = std::make_unique<TcsRosreestrXMLCoordSysLinks>();
    std::unique_ptr<TcsRosreestrXMLCoordSysLinks> FUserCoordSysLinks = std::make_unique<TcsRosreestrXMLCoordSysLinks>();
    TcsRosreestrXMLCoordSysLinkFindInfoManager* FFindInfoManager = nullptr;
    std::unique_ptr<TcsRosreestrXMLCoordSysLinkFinders> FFinders = std::make_unique<TcsRosreestrXMLCoordSysLinkFinders>();
};

}  // namespace tmi
