#include "scSchemaCoordSystems.h"

#include "scSchema.h"

namespace tmi {

namespace {

template <class T>
std::function<std::unique_ptr<TscObject>(TscCustomSchema*, TscObjectMode)> Factory() {
    return [](TscCustomSchema* s, TscObjectMode m) { return std::make_unique<T>(s, m); };
}

bool SameKey(const TcsVariant& a, const TcsVariant& b) { return !a.IsEmpty() && !b.IsEmpty() && a.AsString() == b.AsString(); }

std::string OneLine(std::string aText) {
    std::string out;
    out.reserve(aText.size());
    for (char c : aText)
        if (c != '\r' && c != '\n') out += c;
    return out;
}

const char* const kPulkovo1942 =
    "GEOGCS[\"Pulkovo 1942 (Mapinfo Datum)\",DATUM[\"Pulkovo_1942(Mapinfo)\", SPHEROID[\"Krassowsky 1940\",6378245,298.3,"
    "AUTHORITY[\"EPSG\",\"7024\"]],TOWGS84[24,-123,-94,0.02,-0.25,-0.13,1.1], AUTHORITY[\"EPSG\",\"6284\"]],"
    "PRIMEM[\"Greenwich\",0,AUTHORITY[\"EPSG\",\"8901\"]], UNIT[\"degree\",0.0174532925199433,AUTHORITY[\"EPSG\",\"9122\"]]]";

}  // namespace

#define SC_P(C, N) Property(#N, &C::N, &C::Set##N)

TCS_PROPERTIES(TscMapinfoCoordSystem, TscObject, SC_P(TscMapinfoCoordSystem, ID), SC_P(TscMapinfoCoordSystem, Title),
               SC_P(TscMapinfoCoordSystem, CoordSysString), SC_P(TscMapinfoCoordSystem, db_x_ll),
               SC_P(TscMapinfoCoordSystem, db_y_ll), SC_P(TscMapinfoCoordSystem, db_x_ur), SC_P(TscMapinfoCoordSystem, db_y_ur))
TCS_PROPERTIES(TscGeomediaCoordSystem, TscObject, SC_P(TscGeomediaCoordSystem, ID), SC_P(TscGeomediaCoordSystem, FileCS),
               SC_P(TscGeomediaCoordSystem, BaseName), SC_P(TscGeomediaCoordSystem, GUID))
TCS_PROPERTIES(TscWKTCoordSystemBound, TscObject, SC_P(TscWKTCoordSystemBound, ID), SC_P(TscWKTCoordSystemBound, Low),
               SC_P(TscWKTCoordSystemBound, High), SC_P(TscWKTCoordSystemBound, Ord))
TCS_PROPERTIES(TscWKTCoordSystem, TscObject, SC_P(TscWKTCoordSystem, Title), SC_P(TscWKTCoordSystem, ID),
               SC_P(TscWKTCoordSystem, WKT), SC_P(TscWKTCoordSystem, SRID), SC_P(TscWKTCoordSystem, db_x_ll),
               SC_P(TscWKTCoordSystem, db_y_ll), SC_P(TscWKTCoordSystem, db_x_ur), SC_P(TscWKTCoordSystem, db_y_ur))
TCS_PROPERTIES(TscCoordSystemSet, TscObject, SC_P(TscCoordSystemSet, Title), SC_P(TscCoordSystemSet, ID),
               SC_P(TscCoordSystemSet, DefaultCS), SC_P(TscCoordSystemSet, WKTCS_ID), SC_P(TscCoordSystemSet, MapinfoCS_ID),
               SC_P(TscCoordSystemSet, GeomediaCS_ID))
TCS_PROPERTIES(TscTableCoordSystem, TscObject, SC_P(TscTableCoordSystem, ID), SC_P(TscTableCoordSystem, TableID),
               SC_P(TscTableCoordSystem, FieldID), SC_P(TscTableCoordSystem, CoordSysSetID))

TscWKTCoordSystem::TscWKTCoordSystem(TcsComponent* aSchema, TscObjectMode aMode)
    : TscObject(aSchema, aMode), fBounds(dynamic_cast<TscCustomSchema*>(aSchema), stStandart, this) {
    fBounds.SetClassName("TscWKTCoordSystemBounds");
    fBounds.SetObjectClass("TscWKTCoordSystemBound", Factory<TscWKTCoordSystemBound>());
}

TscCoordSystems::TscCoordSystems(TscCustomSchema* aSchema)
    : TscObjects(aSchema, stRoot),
      fWKT(aSchema, stStandart),
      fMapinfo(aSchema, stStandart),
      fGeomedia(aSchema, stStandart),
      fSets(aSchema, stStandart) {
    SetClassName("TscCoordSystems");
    SetObjectClass("TscTableCoordSystem", Factory<TscTableCoordSystem>());
    fWKT.SetClassName("TscWKTCoordSystems");
    fWKT.SetObjectClass("TscWKTCoordSystem", Factory<TscWKTCoordSystem>());
    fMapinfo.SetClassName("TscMapinfoCoordSystems");
    fMapinfo.SetObjectClass("TscMapinfoCoordSystem", Factory<TscMapinfoCoordSystem>());
    fGeomedia.SetClassName("TscGeomediaCoordSystems");
    fGeomedia.SetObjectClass("TscGeomediaCoordSystem", Factory<TscGeomediaCoordSystem>());
    fSets.SetClassName("TscCoordSystemSets");
    fSets.SetObjectClass("TscCoordSystemSet", Factory<TscCoordSystemSet>());
}

void TscCoordSystems::SetMapinfoSupport(bool aValue) {
    TscCustomSchema* schema = Schema();
    if (schema && schema->State() != ssLoading && schema->WorkMode() != wmProgrammer && schema->WorkMode() != wmSystem)
        throw EscSchemaException("Для изменения поддержки поддерживаемой ГИС требуется  уровень wmProgrammer, wmSystem");
    fMapinfoSupport = aValue;
}

void TscCoordSystems::SetGeomediaSupport(bool aValue) {
    TscCustomSchema* schema = Schema();
    if (schema && schema->State() != ssLoading && schema->WorkMode() != wmProgrammer && schema->WorkMode() != wmSystem)
        throw EscSchemaException("Для изменения поддержки поддерживаемой ГИС требуется уровень wmProgrammer, wmSystem");
    fGeomediaSupport = aValue;
}

void TscCoordSystems::Edit() {
    TscObjects::Edit();
    for (TscObjects* list : SubLists()) list->Edit();
}

void TscCoordSystems::Post() {
    TscObjects::Post();
    for (TscObjects* list : SubLists()) list->Post();
}

void TscCoordSystems::Cancel() {
    TscObjects::Cancel();
    for (TscObjects* list : SubLists()) list->Cancel();
}

TscTableCoordSystem* TscCoordSystems::SetTableCoordSystem(const TscTable& aTable, const TscField* aField,
                                                          const TscCoordSystemSet& aSet) {
    const TcsVariant fieldID = aField ? aField->ID() : TcsVariant();
    for (TscObject* o : Objects()) {
        auto* link = static_cast<TscTableCoordSystem*>(o);
        if (SameKey(link->TableID(), aTable.ID()) && link->FieldID().AsString() == fieldID.AsString()) {
            const bool edit = !link->InEdit();
            if (edit) link->Edit();
            link->SetCoordSysSetID(aSet.ID());
            if (edit) link->Post();
            return link;
        }
    }
    auto* link = static_cast<TscTableCoordSystem*>(GetNewObject());
    link->SetTableID(aTable.ID());
    link->SetFieldID(fieldID);
    link->SetCoordSysSetID(aSet.ID());
    return link;
}

TscTableCoordSystem* TscCoordSystems::GetByTableTableCoordSystem(const TcsVariant& aTableID) const {
    for (TscObject* o : Objects())
        if (SameKey(static_cast<TscTableCoordSystem*>(o)->TableID(), aTableID)) return static_cast<TscTableCoordSystem*>(o);
    return nullptr;
}

TscTableCoordSystem* TscCoordSystems::GetByFieldTableCoordSystem(const TcsVariant& aFieldID) const {
    for (TscObject* o : Objects())
        if (SameKey(static_cast<TscTableCoordSystem*>(o)->FieldID(), aFieldID)) return static_cast<TscTableCoordSystem*>(o);
    return nullptr;
}

TscCoordSystemSet* TscCoordSystems::GetCoordsystemSet(const TcsVariant& aTableID) {
    if (TscTableCoordSystem* link = GetByTableTableCoordSystem(aTableID))
        if (TscObject* set = fSets.ItemsByID(link->CoordSysSetID())) return static_cast<TscCoordSystemSet*>(set);
    return DefaultSet();
}

TscCoordSystemSet* TscCoordSystems::DefaultSet() {
    for (TscObject* o : fSets.Objects())
        if (static_cast<TscCoordSystemSet*>(o)->DefaultCS()) return static_cast<TscCoordSystemSet*>(o);
    if (fSets.Count() != 0 || (fWKT.Count() == 0 && fMapinfo.Count() == 0 && fGeomedia.Count() == 0)) return nullptr;
    // Systems without a set: the first of each kind becomes the default set.
    auto* set = static_cast<TscCoordSystemSet*>(fSets.GetNewObject());
    set->SetDefaultCS(true);
    set->SetTitle("Система координат по умолчанию (автоматически)");
    if (fWKT.Count()) set->SetWKTCS_ID(fWKT.Items(0)->KeyValue());
    if (fMapinfo.Count()) set->SetMapinfoCS_ID(fMapinfo.Items(0)->KeyValue());
    if (fGeomedia.Count()) set->SetGeomediaCS_ID(fGeomedia.Items(0)->KeyValue());
    return set;
}

TscWKTCoordSystem* TscCoordSystems::WKTSystemOf(const TscCoordSystemSet& aSet) const {
    return static_cast<TscWKTCoordSystem*>(fWKT.ItemsByID(aSet.WKTCS_ID()));
}

TscMapinfoCoordSystem* TscCoordSystems::MapinfoSystemOf(const TscCoordSystemSet& aSet) const {
    return static_cast<TscMapinfoCoordSystem*>(fMapinfo.ItemsByID(aSet.MapinfoCS_ID()));
}

std::string TscCoordSystems::DefaultWKT() {
    if (TscCoordSystemSet* set = DefaultSet())
        if (TscWKTCoordSystem* wkt = WKTSystemOf(*set)) return OneLine(wkt->WKT());
    return OneLine(kPulkovo1942);
}

void TscCoordSystems::CheckSave(std::vector<std::string>& aErrors) const {
    if (!fMapinfoSupport && !fGeomediaSupport) return;
    auto* schema = dynamic_cast<TscSchema*>(Schema());
    if (!schema) return;
    for (TscObject* o : schema->Tables().Objects()) {
        auto* table = static_cast<TscTable*>(o);
        if (!table->Graphical() || table->Outer()) continue;
        for (TscObject* f : table->Fields().Objects()) {
            auto* field = static_cast<TscField*>(f);
            if (field->DataType() != fdGraphic) continue;
            const TscTableCoordSystem* link = nullptr;
            for (TscObject* l : Objects()) {
                auto* candidate = static_cast<TscTableCoordSystem*>(l);
                if (SameKey(candidate->TableID(), table->ID()) && SameKey(candidate->FieldID(), field->ID())) link = candidate;
            }
            const TscObject* set = link ? fSets.ItemsByID(link->CoordSysSetID()) : nullptr;
            if (!set) {
                aErrors.push_back("Поле " + field->ObjectFullName() + ": не задана система координат");
                continue;
            }
            const auto* s = static_cast<const TscCoordSystemSet*>(set);
            if (fMapinfoSupport && !fMapinfo.ItemsByID(s->MapinfoCS_ID()))
                aErrors.push_back("Поле " + field->ObjectFullName() + ": в наборе \"" + s->Title() + "\" нет системы координат MapInfo");
            if (fGeomediaSupport && !fGeomedia.ItemsByID(s->GeomediaCS_ID()))
                aErrors.push_back("Поле " + field->ObjectFullName() + ": в наборе \"" + s->Title() + "\" нет системы координат GeoMedia");
        }
    }
}

}  // namespace tmi
