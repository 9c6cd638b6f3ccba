// Coordinate systems as schema metadata: a system per supported GIS (a MapInfo clause, a
// GeoMedia definition file, a well-known text with its SRID), sets that group one of each,
// and the links of a table's geometry field to a set.
#pragma once

#include "scSchemaCore.h"

namespace tmi {

class TscTable;
class TscField;

class TscMapinfoCoordSystem : public TscObject {
    TCS_PERSISTENT(TscMapinfoCoordSystem)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, Title)
    SC_PROP(std::string, CoordSysString)
    SC_PROP(double, db_x_ll)
    SC_PROP(double, db_y_ll)
    SC_PROP(double, db_x_ur)
    SC_PROP(double, db_y_ur)
public:
    using TscObject::TscObject;
};

class TscGeomediaCoordSystem : public TscObject {
    TCS_PERSISTENT(TscGeomediaCoordSystem)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, FileCS)  // the definition file, kept as bytes
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, GUID)
public:
    using TscObject::TscObject;
};

// One axis's limits of a well-known-text system.
class TscWKTCoordSystemBound : public TscObject {
    TCS_PERSISTENT(TscWKTCoordSystemBound)
    SC_PROP(TcsVariant, ID)
    SC_PROP(double, Low)
    SC_PROP(double, High)
    SC_PROP(std::string, Ord)
public:
    using TscObject::TscObject;
};

class TscWKTCoordSystem : public TscObject {
    TCS_PERSISTENT(TscWKTCoordSystem)
    SC_PROP(std::string, Title)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, WKT)
    SC_PROP(TcsVariant, SRID)
    SC_PROP(double, db_x_ll)
    SC_PROP(double, db_y_ll)
    SC_PROP(double, db_x_ur)
    SC_PROP(double, db_y_ur)
public:
    explicit TscWKTCoordSystem(TcsComponent* aSchema = nullptr, TscObjectMode aMode = omPersistent);
    [[nodiscard]] TscObjects& Bounds() { return fBounds; }
    std::vector<TscObjects*> ChildObjects() override { return {&fBounds}; }

private:
    TscObjects fBounds;
};

class TscCoordSystemSet : public TscObject {
    TCS_PERSISTENT(TscCoordSystemSet)
    SC_PROP(std::string, Title)
    SC_PROP(TcsVariant, ID)
    SC_PROP(bool, DefaultCS)
    SC_PROP(TcsVariant, WKTCS_ID)
    SC_PROP(TcsVariant, MapinfoCS_ID)
    SC_PROP(TcsVariant, GeomediaCS_ID)
public:
    using TscObject::TscObject;
};

// The link of a table's geometry field to a set.
class TscTableCoordSystem : public TscObject {
    TCS_PERSISTENT(TscTableCoordSystem)
    SC_PROP(TcsVariant, ID)
    SC_PROP(TcsVariant, TableID)
    SC_PROP(TcsVariant, FieldID)
    SC_PROP(TcsVariant, CoordSysSetID)
public:
    using TscObject::TscObject;
};

// The schema's root list of links, with the systems and sets as its own sub-lists.
class TscCoordSystems : public TscObjects {
public:
    explicit TscCoordSystems(TscCustomSchema* aSchema);

    [[nodiscard]] TscObjects& WKTCoordSystems() { return fWKT; }
    [[nodiscard]] TscObjects& MapinfoCoordSystems() { return fMapinfo; }
    [[nodiscard]] TscObjects& GeomediaCoordSystems() { return fGeomedia; }
    [[nodiscard]] TscObjects& CoordSysSet() { return fSets; }
    // The sub-lists in the order they take part in an edit.
    [[nodiscard]] std::vector<TscObjects*> SubLists() override { return {&fWKT, &fMapinfo, &fGeomedia, &fSets}; }

    [[nodiscard]] bool MapinfoSupport() const noexcept { return fMapinfoSupport; }
    [[nodiscard]] bool GeomediaSupport() const noexcept { return fGeomediaSupport; }
    // Only the programmer's and the system's work modes may change what is supported; a
    // schema being loaded takes the stored flags as they are.
    void SetMapinfoSupport(bool aValue);
    void SetGeomediaSupport(bool aValue);

    void Edit() override;
    void Post() override;
    void Cancel() override;

    // Links the table's field to the set: the existing link of that table and field, or a new one.
    TscTableCoordSystem* SetTableCoordSystem(const TscTable& aTable, const TscField* aField, const TscCoordSystemSet& aSet);
    [[nodiscard]] TscTableCoordSystem* GetByTableTableCoordSystem(const TcsVariant& aTableID) const;
    [[nodiscard]] TscTableCoordSystem* GetByFieldTableCoordSystem(const TcsVariant& aFieldID) const;
    // The set of the table's link; the default set when the table has none.
    [[nodiscard]] TscCoordSystemSet* GetCoordsystemSet(const TcsVariant& aTableID);
    // The set marked default; made from the first systems when there are systems but no sets.
    [[nodiscard]] TscCoordSystemSet* DefaultSet();
    [[nodiscard]] TscWKTCoordSystem* WKTSystemOf(const TscCoordSystemSet& aSet) const;
    [[nodiscard]] TscMapinfoCoordSystem* MapinfoSystemOf(const TscCoordSystemSet& aSet) const;
    // The well-known text of the default set, else Pulkovo 1942; on one line.
    [[nodiscard]] std::string DefaultWKT();

    void CheckSave(std::vector<std::string>& aErrors) const override;

private:
    TscObjects fWKT, fMapinfo, fGeomedia, fSets;
    bool fMapinfoSupport = false;
    bool fGeomediaSupport = false;
};

}  // namespace tmi
