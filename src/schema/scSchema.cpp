#include "scSchema.h"

#include <algorithm>
#include <unordered_map>

namespace tmi {

namespace {

TcsPropertyInfo WithNames(TcsPropertyInfo aInfo, std::string_view aEnumeration) {
    aInfo.fEnumNames = EnumNames(aEnumeration);
    return aInfo;
}

template <class T>
T* As(TscObject* aObject) {
    return static_cast<T*>(aObject);
}

bool SameKey(const TcsVariant& a, const TcsVariant& b) { return !a.IsEmpty() && !b.IsEmpty() && a.AsString() == b.AsString(); }

template <class T>
std::function<std::unique_ptr<TscObject>(TscCustomSchema*, TscObjectMode)> Factory() {
    return [](TscCustomSchema* s, TscObjectMode m) { return std::make_unique<T>(s, m); };
}

// A view of the objects of class T in the schema's root list that belong to aOwner.
template <class T>
std::unique_ptr<TscObjects> OwnerView(TscCustomSchema* aSchema, TscObject* aOwner, const char* aListClass) {
    auto view = std::make_unique<TscObjects>(aSchema, stWithRoot, aOwner);
    view->SetClassName(aListClass);
    view->SetObjectClass(T::StaticClassName(), Factory<T>());
    return view;
}

}  // namespace

#define SC_P(C, N) Property(#N, &C::N, &C::Set##N)
#define SC_PA(C, N, Pub) Property(Pub, &C::N, &C::Set##N)
#define SC_PE(C, N, E) WithNames(Property(#N, &C::N, &C::Set##N), E)

const std::vector<std::string>& EnumNames(std::string_view aEnumeration) {
    static const std::unordered_map<std::string_view, std::vector<std::string>> names = {
        {"TscTableType", {"ttUnknown", "ttNormal", "ttOuter", "ttMapInfo", "ttMitab", "ttMapInfoWMS", "ttExcel", "ttAccess",
                          "ttMapInfoRaster", "ttVector", "ttRaster"}},
        {"TscFieldDataType", {"fdInteger", "fdInt64", "fdDecimal", "fdMoney", "fdFloat", "fdDatetime", "fdString", "fdText",
                              "fdChar", "fdImage", "fdSmallImage", "fdGraphic", "fdBit", "fdGUID", "fdXML", "fdDate"}},
        {"TscFieldGeometryType", {"sgtUnknown", "sgtLinear", "sgtPlanar", "sgtAny", "sgtRaster", "sgtText", "sgtPoint"}},
        {"TscRepresentation",
         {"rpDefault", "rpText", "rpLabel", "rpMemo", "rpComboBox", "rpCheckBox", "rpRadioGroup", "rpMasterForm",
          "rpClassificator", "rpClassificatorComboBox", "rpAddress", "rpUchastokTextKN", "rpKvartalTextKN",
          "rpKvartalMasterKN", "rpArea", "rpUserName", "rpGUID", "rpMasterFormEx", "rpClassificatorLabel",
          "rpMasterFormMulti", "rpClassificatorMulti"}},
        {"TscAlignment", {"taLeftJustify", "taRightJustify", "taCenter"}},
        {"TscIndexType", {"itPrimary", "itIndex", "itConstraint", "itSpatial"}},
        {"TscSortOrder", {"soAscending", "soDescending"}},
        {"TscRelationType", {"rtPhysical", "rtVisual", "rtFunctional", "rtGraphical"}},
        {"TscActionType", {"atQuery", "atForm", "atInternal", "atNone", "atModule"}},
        {"TscRelationRole", {"drRestrict", "drCascade", "drSetNull", "drSetDefault"}},
        {"TscRightType", {"rtGrantSelect", "rtGrantInsert", "rtGrantUpdate", "rtGrantDelete", "rtFunctionEnabled",
                          "rtGrantExecuteSP", "rtPluginEnabled", "rtGrantGroupDelete", "rtGrantGroupUpdate",
                          "rtGrantInsertAttachFile", "rtGrantDeleteAttachFile"}},
        {"TscRightObjectType", {"rotTable", "rotField", "rotInternalFunction"}},
        {"TAUTHENTICATION_Type", {"atUnknown", "atDatabase", "atOs", "atNetwork", "atProxy"}},
        {"TscObjectTypeWork", {"otwSystem", "otwApplication", "otwData"}},
    };
    static const std::vector<std::string> none;
    auto it = names.find(aEnumeration);
    return it == names.end() ? none : it->second;
}

// ---------------------------------------------------------------------------------------------
// Property tables: the file format of every class.

TCS_PROPERTIES(TscSystemObject, TscObject)
TCS_PROPERTIES(TscSystemObjectWithGlyph, TscSystemObject, SC_P(TscSystemObjectWithGlyph, Glyph))

TCS_PROPERTIES(TscPackage, TscSystemObject, SC_P(TscPackage, ID), SC_P(TscPackage, BaseName), SC_P(TscPackage, Title),
               SC_P(TscPackage, PackageType), SC_P(TscPackage, Version))

TCS_PROPERTIES(TscAspect, TscSystemObject, SC_P(TscAspect, ID), SC_P(TscAspect, BaseName), SC_P(TscAspect, Title),
               SC_P(TscAspect, Hint))

TCS_PROPERTIES(TscTable, TscSystemObjectWithGlyph, SC_PA(TscTable, AppObject, "IsApplicationObject"),
               SC_PA(TscTable, SysObject, "IsSystemObject"), SC_P(TscTable, PackageID), SC_P(TscTable, PackageName),
               SC_PE(TscTable, TableType, "TscTableType"), SC_P(TscTable, BaseName), SC_P(TscTable, FullName),
               SC_P(TscTable, ID), SC_P(TscTable, Title), SC_P(TscTable, Remarka), SC_P(TscTable, Hint),
               SC_P(TscTable, KeyFieldNames), SC_P(TscTable, Logged), SC_P(TscTable, Outer),
               SC_P(TscTable, OuterSourceName), SC_P(TscTable, Graphical), SC_P(TscTable, AspectID),
               SC_P(TscTable, Visible), SC_P(TscTable, TreeFields), SC_P(TscTable, TreeFieldsSQL),
               SC_P(TscTable, DetailFields), SC_P(TscTable, DetailFieldsSQL), SC_P(TscTable, ForSelectFields),
               SC_P(TscTable, NotGenerate), SC_P(TscTable, IsTemplate),
               SC_PA(TscTable, IheritedTableID, "IheritedTable"))

TCS_PROPERTIES(TscField, TscSystemObjectWithGlyph, SC_P(TscField, ID), SC_P(TscField, BaseName),
               SC_P(TscField, BaseNameSQL), SC_P(TscField, Title), SC_P(TscField, Hint), SC_P(TscField, Remarka),
               SC_P(TscField, TableID), SC_PE(TscField, DataType, "TscFieldDataType"), SC_P(TscField, FieldModeID),
               SC_P(TscField, Formula), SC_P(TscField, DefaultValue), SC_P(TscField, Precision), SC_P(TscField, Scale),
               SC_P(TscField, Length), SC_P(TscField, Allownull), SC_P(TscField, FieldProperties),
               WithNames(SC_PA(TscField, FieldTypeWork, "ObjectTypeWork"), "TscObjectTypeWork"),
               SC_PE(TscField, GeometryType, "TscFieldGeometryType"))

TCS_PROPERTIES(TscFieldMode, TscSystemObject, SC_P(TscFieldMode, ID), SC_P(TscFieldMode, Title),
               SC_P(TscFieldMode, BaseName), SC_PE(TscFieldMode, Represent, "TscRepresentation"),
               SC_PE(TscFieldMode, Alignment, "TscAlignment"), SC_P(TscFieldMode, DisplayWidth), SC_P(TscFieldMode, Hint),
               SC_P(TscFieldMode, ValidChars), SC_P(TscFieldMode, Visible), SC_P(TscFieldMode, CustomConstraint),
               SC_P(TscFieldMode, ConstraintMessage), SC_P(TscFieldMode, ReadOnly), SC_P(TscFieldMode, Required),
               SC_P(TscFieldMode, Currency), SC_P(TscFieldMode, MinValue), SC_P(TscFieldMode, MaxValue),
               SC_P(TscFieldMode, Precision), SC_P(TscFieldMode, DisplayFormat), SC_P(TscFieldMode, EditFormat),
               SC_P(TscFieldMode, EditMask), SC_P(TscFieldMode, ClassChapter), SC_P(TscFieldMode, TextColor),
               SC_P(TscFieldMode, BackColor))

TCS_PROPERTIES(TscIndex, TscSystemObject, SC_P(TscIndex, ID), SC_P(TscIndex, BaseName), SC_P(TscIndex, TableID),
               SC_PE(TscIndex, IndexType, "TscIndexType"), SC_P(TscIndex, Unique), SC_P(TscIndex, Clustered),
               SC_P(TscIndex, FillFactor))

TCS_PROPERTIES(TscRelation, TscSystemObjectWithGlyph, SC_P(TscRelation, ID), SC_P(TscRelation, BaseName),
               SC_P(TscRelation, Title), SC_P(TscRelation, Hint), SC_PE(TscRelation, RelationType, "TscRelationType"),
               SC_P(TscRelation, ParentFieldID), SC_P(TscRelation, ParentDisplayFieldID), SC_P(TscRelation, ChildFieldID),
               SC_P(TscRelation, ChildDisplayFieldID), SC_P(TscRelation, QueryID), SC_P(TscRelation, FormID),
               SC_PE(TscRelation, ActionType, "TscActionType"), SC_P(TscRelation, ModuleID), SC_P(TscRelation, Visible),
               SC_P(TscRelation, Linked), SC_PE(TscRelation, DeleteRole, "TscRelationRole"),
               SC_PE(TscRelation, UpdateRole, "TscRelationRole"))

TCS_PROPERTIES(TscOuterGraphSchema, TscSystemObject, SC_P(TscOuterGraphSchema, ID), SC_P(TscOuterGraphSchema, BaseName),
               SC_P(TscOuterGraphSchema, OuterDataSourceID), SC_P(TscOuterGraphSchema, GraphSchemaID))

TCS_PROPERTIES(TscOuterDataSource, TscSystemObject, SC_P(TscOuterDataSource, ID), SC_P(TscOuterDataSource, BaseName),
               SC_P(TscOuterDataSource, Title), SC_P(TscOuterDataSource, ExternalSchemaName),
               SC_P(TscOuterDataSource, SchemaParams))

TCS_PROPERTIES(TscGraphSchema, TscSystemObject, SC_P(TscGraphSchema, ID), SC_P(TscGraphSchema, BaseName),
               SC_P(TscGraphSchema, Title))

TCS_PROPERTIES(TscSetting, TscSystemObject, SC_P(TscSetting, ID), SC_P(TscSetting, BaseName), SC_P(TscSetting, Value),
               SC_P(TscSetting, Remarka))

TCS_PROPERTIES(TscDistributiveVersion, TscSystemObject, SC_P(TscDistributiveVersion, ID),
               SC_P(TscDistributiveVersion, BaseName), SC_P(TscDistributiveVersion, Version),
               SC_P(TscDistributiveVersion, Remarka))

TCS_PROPERTIES(TscKlassElement, TscSystemObject, SC_P(TscKlassElement, ID), SC_P(TscKlassElement, IDK),
               SC_P(TscKlassElement, KlassID), SC_P(TscKlassElement, ParentID), SC_P(TscKlassElement, ShortName))

TCS_PROPERTIES(TscKlass, TscSystemObject, SC_P(TscKlass, ID), SC_P(TscKlass, BaseName), SC_P(TscKlass, Title))

TCS_PROPERTIES(TscRight, TscSystemObject, SC_P(TscRight, ID), SC_P(TscRight, RoleID), SC_P(TscRight, ObjectFullName),
               SC_PE(TscRight, RightType, "TscRightType"), SC_PE(TscRight, SchemaObjectType, "TscRightObjectType"))

TCS_PROPERTIES(TscUsersRolesLink, TscSystemObject, SC_P(TscUsersRolesLink, ID), SC_P(TscUsersRolesLink, UserID),
               SC_P(TscUsersRolesLink, RoleID))

TCS_PROPERTIES(TscRole, TscSystemObject, SC_P(TscRole, ID), SC_P(TscRole, BaseName), SC_P(TscRole, Remarka),
               SC_P(TscRole, Title))

TCS_PROPERTIES(TscUser, TscSystemObject, SC_P(TscUser, ID), SC_P(TscUser, BaseName), SC_P(TscUser, FullName),
               SC_P(TscUser, ForSQLName), SC_P(TscUser, Title), SC_P(TscUser, DepartmentID), SC_P(TscUser, Standard),
               SC_P(TscUser, Password), SC_P(TscUser, GraphSchemaID),
               SC_PE(TscUser, AuthenticationType, "TAUTHENTICATION_Type"), SC_P(TscUser, ExternalAuthentication),
               SC_P(TscUser, BossID), SC_P(TscUser, Email), SC_P(TscUser, Locked), SC_P(TscUser, Exist),
               SC_P(TscUser, ToGenerate), SC_PA(TscUser, UserDeleted, "Deleted"), SC_P(TscUser, Current))

// A list class with no published properties of its own: the objects of the provider list.
class TscProviderInfo : public TscSystemObject {
    TCS_PERSISTENT(TscProviderInfo)
public:
    using TscSystemObject::TscSystemObject;
};
TCS_PROPERTIES(TscProviderInfo, TscSystemObject)

// ---------------------------------------------------------------------------------------------
// Objects

TscSchema* TscSystemObject::OwnerSchema() const { return dynamic_cast<TscSchema*>(Schema()); }

TscOuterGraphSchemas::TscOuterGraphSchemas(TscCustomSchema* aSchema, TscObject* aOwner)
    : TscObjects(aSchema, stStandart, aOwner) {
    SetClassName("TscOuterGraphSchemas");
    SetObjectClass("TscOuterGraphSchema", Factory<TscOuterGraphSchema>());
}

TscOuterDataSource::TscOuterDataSource(TcsComponent* aSchema, TscObjectMode aMode)
    : TscSystemObject(aSchema, aMode), fOuterGraphSchemas(dynamic_cast<TscCustomSchema*>(aSchema), this) {}

TscKlassElements::TscKlassElements(TscCustomSchema* aSchema, TscObject* aOwner) : TscObjects(aSchema, stStandart, aOwner) {
    SetClassName("TscKlassElements");
    SetObjectClass("TscKlassElement", Factory<TscKlassElement>());
}

TscKlass::TscKlass(TcsComponent* aSchema, TscObjectMode aMode)
    : TscSystemObject(aSchema, aMode), fElements(dynamic_cast<TscCustomSchema*>(aSchema), this) {}

TscTable::TscTable(TcsComponent* aSchema, TscObjectMode aMode) : TscSystemObjectWithGlyph(aSchema, aMode) {}

void TscTable::Bind() {
    if (!fFields) {
        fFields = OwnerView<TscField>(Schema(), this, "TscFields");
        fIndices = OwnerView<TscIndex>(Schema(), this, "TscIndices");
    }
    // The views follow the table's ID.
    fFields->SetFilter("TableID", ID());
    fIndices->SetFilter("TableID", ID());
}

TscObjects& TscTable::Fields() {
    Bind();
    return *fFields;
}

TscObjects& TscTable::Indices() {
    Bind();
    return *fIndices;
}

std::vector<TscObjects*> TscTable::ChildObjects() {
    if (!Schema()) return {};
    return {&Fields(), &Indices()};
}

TscField* TscTable::FieldByName(std::string_view aName) { return As<TscField>(Fields().ItemByBaseName(aName)); }

TscOuterDataSource* TscTable::OuterSource() const {
    TscSchema* s = OwnerSchema();
    return s && !OuterSourceName().empty() ? As<TscOuterDataSource>(s->OuterDataSources().ItemByBaseName(OuterSourceName())) : nullptr;
}

TscTable* TscTable::IheritedTable() const {
    TscSchema* s = OwnerSchema();
    return s ? s->TableByID(IheritedTableID()) : nullptr;
}

void TscTable::GetRelatedObjects(std::vector<TscObject*>& aObjects) {
    TscSchema* s = OwnerSchema();
    if (!s) return;
    for (TscObject* f : Fields().Objects()) aObjects.push_back(f);
    for (TscObject* i : Indices().Objects()) aObjects.push_back(i);
    const std::string name = ObjectFullName();
    for (TscObject* o : s->Rights().Objects()) {
        auto* r = As<TscRight>(o);
        if (r->SchemaObjectType() == rotTable && SameText(r->ObjectFullName(), name)) aObjects.push_back(r);
    }
}

void TscTable::CheckSave(std::vector<std::string>& aErrors) const {
    if (BaseName().empty()) aErrors.push_back(CheckName() + ": не задано имя таблицы");
    TscSchema* s = OwnerSchema();
    if (!s || BaseName().empty()) return;
    for (TscObject* o : s->Tables().Objects())
        if (o != this && SameText(As<TscTable>(o)->BaseName(), BaseName())) {
            aErrors.push_back(CheckName() + ": таблица с таким именем уже есть (" + o->KeyText() + ")");
            break;
        }
}

TscTable* TscField::Table() const {
    TscSchema* s = OwnerSchema();
    return s ? s->TableByID(TableID()) : nullptr;
}

std::string TscField::ObjectFullName() const {
    const TscTable* t = Table();
    return (t ? t->ObjectFullName() : std::string()) + "." + BaseName();
}

void TscField::GetRelatedObjects(std::vector<TscObject*>& aObjects) {
    TscSchema* s = OwnerSchema();
    if (!s) return;
    for (TscObject* o : s->Relations().Objects()) {
        auto* r = As<TscRelation>(o);
        if (SameKey(r->ParentFieldID(), ID()) || SameKey(r->ChildFieldID(), ID()) || SameKey(r->ParentDisplayFieldID(), ID()) ||
            SameKey(r->ChildDisplayFieldID(), ID()))
            aObjects.push_back(r);
    }
    if (TscTable* t = Table())
        for (TscObject* o : t->Indices().Objects())
            for (const TscIndexField& f : As<TscIndex>(o)->IndexFields())
                if (SameKey(f.FieldID, ID())) {
                    aObjects.push_back(o);
                    break;
                }
    const std::string name = ObjectFullName();
    for (TscObject* o : s->Rights().Objects()) {
        auto* r = As<TscRight>(o);
        if (r->SchemaObjectType() == rotField && SameText(r->ObjectFullName(), name)) aObjects.push_back(r);
    }
}

void TscField::CheckSave(std::vector<std::string>& aErrors) const {
    if (BaseName().empty()) aErrors.push_back(CheckName() + ": не задано имя поля");
    TscTable* t = Table();
    if (!t) {
        aErrors.push_back(CheckName() + ": нет таблицы поля (" + TableID().AsString() + ")");
        return;
    }
    if (BaseName().empty()) return;
    for (TscObject* o : t->Fields().Objects())
        if (o != this && SameText(As<TscField>(o)->BaseName(), BaseName())) {
            aErrors.push_back(CheckName() + ": в таблице " + t->BaseName() + " уже есть поле с таким именем (" + o->KeyText() + ")");
            break;
        }
}

void TscIndex::AddIndexField(const TcsVariant& aFieldID, TscSortOrder aOrder) {
    if (fObjectStatus == osNormal) throw EscSchemaException("TscObject.AddModifyProperty: Объект не в режиме редактирования");
    fIndexFields.push_back({aFieldID, aOrder});
}

TscField* TscIndex::GetIndexField(int aIndex) const {
    TscSchema* s = OwnerSchema();
    if (!s || aIndex < 0 || static_cast<size_t>(aIndex) >= fIndexFields.size()) return nullptr;
    return s->FieldByID(fIndexFields[static_cast<size_t>(aIndex)].FieldID);
}

std::string TscIndex::IndexFieldsString() const {
    std::string out;
    for (size_t i = 0; i < fIndexFields.size(); ++i) {
        const TscField* f = GetIndexField(static_cast<int>(i));
        out += (i ? ";" : "") + (f ? f->BaseName() : fIndexFields[i].FieldID.AsString());
    }
    return out;
}

void TscIndex::Assign(const TcsPersistent& aSource) {
    TscObject::Assign(aSource);
    if (const auto* source = dynamic_cast<const TscIndex*>(&aSource)) fIndexFields = source->fIndexFields;
}

void TscIndex::CheckSave(std::vector<std::string>& aErrors) const {
    TscSchema* s = OwnerSchema();
    if (!s) return;
    if (!s->TableByID(TableID())) aErrors.push_back(CheckName() + ": нет таблицы индекса (" + TableID().AsString() + ")");
    for (const TscIndexField& f : fIndexFields) {
        const TscField* field = s->FieldByID(f.FieldID);
        if (!field || !SameKey(field->TableID(), TableID()))
            aErrors.push_back(CheckName() + ": нет поля индекса (" + f.FieldID.AsString() + ")");
    }
}

void TscRelation::CheckSave(std::vector<std::string>& aErrors) const {
    TscSchema* s = OwnerSchema();
    if (!s) return;
    const std::pair<const char*, const TcsVariant*> ends[] = {{"родительского поля", &ParentFieldID()},
                                                             {"дочернего поля", &ChildFieldID()},
                                                             {"родительского поля отображения", &ParentDisplayFieldID()},
                                                             {"дочернего поля отображения", &ChildDisplayFieldID()}};
    for (size_t i = 0; i < 4; ++i) {
        const TcsVariant& id = *ends[i].second;
        if ((i < 2 || (!id.IsEmpty() && !id.AsString().empty())) && !s->FieldByID(id))
            aErrors.push_back(CheckName() + ": нет " + ends[i].first + " (" + id.AsString() + ")");
    }
}

void TscRight::CheckSave(std::vector<std::string>& aErrors) const {
    TscSchema* s = OwnerSchema();
    if (!s) return;
    if (!s->Roles().ItemsByID(RoleID())) aErrors.push_back(CheckName() + ": нет роли (" + RoleID().AsString() + ")");
    const std::string& name = ObjectFullName();
    bool found = false;
    if (SchemaObjectType() == rotTable) {
        for (TscObject* o : s->Tables().Objects())
            if (SameText(As<TscTable>(o)->ObjectFullName(), name)) found = true;
    } else if (SchemaObjectType() == rotField) {
        const size_t dot = name.rfind('.');
        if (dot != std::string::npos)
            for (TscObject* o : s->Tables().Objects())
                if (SameText(As<TscTable>(o)->ObjectFullName(), name.substr(0, dot)))
                    found = found || As<TscTable>(o)->FieldByName(name.substr(dot + 1)) != nullptr;
    } else {
        found = !name.empty();
    }
    if (!found) aErrors.push_back(CheckName() + ": право на несуществующий объект \"" + name + "\"");
}


void TscUsersRolesLink::CheckSave(std::vector<std::string>& aErrors) const {
    TscSchema* s = OwnerSchema();
    if (!s) return;
    if (!s->Users().ItemsByID(UserID())) aErrors.push_back(CheckName() + ": нет пользователя (" + UserID().AsString() + ")");
    if (!s->Roles().ItemsByID(RoleID())) aErrors.push_back(CheckName() + ": нет роли (" + RoleID().AsString() + ")");
}

TscRole::TscRole(TcsComponent* aSchema, TscObjectMode aMode) : TscSystemObject(aSchema, aMode) {}

void TscRole::Bind() {
    if (!fRights) {
        fRights = OwnerView<TscRight>(Schema(), this, "TscRights");
        fLinks = OwnerView<TscUsersRolesLink>(Schema(), this, "TscUsersRolesLinks");
    }
    fRights->SetFilter("RoleID", ID());
    fLinks->SetFilter("RoleID", ID());
}

TscObjects& TscRole::Rights() {
    Bind();
    return *fRights;
}

TscObjects& TscRole::UserRolesLinks() {
    Bind();
    return *fLinks;
}

std::vector<TscObjects*> TscRole::ChildObjects() {
    if (!Schema()) return {};
    return {&Rights(), &UserRolesLinks()};
}

void TscRole::GetRelatedObjects(std::vector<TscObject*>& aObjects) {
    for (TscObject* o : Rights().Objects()) aObjects.push_back(o);
    for (TscObject* o : UserRolesLinks().Objects()) aObjects.push_back(o);
}

TscRight* TscRole::AddRight(TscRightType aType, TscRightObjectType aObjectType, std::string aObjectFullName) {
    auto* r = As<TscRight>(Rights().GetNewObject());
    r->SetRightType(aType);
    r->SetSchemaObjectType(aObjectType);
    r->SetObjectFullName(std::move(aObjectFullName));
    return r;
}

TscUser* TscUser::Boss() const {
    TscSchema* s = OwnerSchema();
    return s ? As<TscUser>(s->Users().ItemsByID(BossID())) : nullptr;
}

std::vector<TscRole*> TscUser::Roles() const {
    std::vector<TscRole*> roles;
    TscSchema* s = OwnerSchema();
    if (!s) return roles;
    for (TscObject* o : s->UsersRolesLinks().Objects()) {
        auto* link = As<TscUsersRolesLink>(o);
        if (SameKey(link->UserID(), ID()))
            if (auto* role = As<TscRole>(s->Roles().ItemsByID(link->RoleID()))) roles.push_back(role);
    }
    return roles;
}

void TscUser::GetRelatedObjects(std::vector<TscObject*>& aObjects) {
    TscSchema* s = OwnerSchema();
    if (!s) return;
    for (TscObject* o : s->UsersRolesLinks().Objects())
        if (SameKey(As<TscUsersRolesLink>(o)->UserID(), ID())) aObjects.push_back(o);
}

// ---------------------------------------------------------------------------------------------
// The schema

TscSchema::TscSchema(TscSchemaWorkMode aSchemaMode) : TscCustomSchema(aSchemaMode) {
    AddRoot("TscProviders", "TscProviderInfo", Factory<TscProviderInfo>());
    AddRoot("TscPackages", "TscPackage", Factory<TscPackage>());
    AddRoot("TscTables", "TscTable", Factory<TscTable>());
    AddRoot("TscFields", "TscField", Factory<TscField>());
    AddRoot("TscFieldModes", "TscFieldMode", Factory<TscFieldMode>());
    AddRoot("TscAspects", "TscAspect", Factory<TscAspect>());
    AddRoot("TscIndices", "TscIndex", Factory<TscIndex>());
    AddRoot("TscRelations", "TscRelation", Factory<TscRelation>());
    AddRoot("TscRights", "TscRight", Factory<TscRight>());
    AddRoot("TscRoles", "TscRole", Factory<TscRole>());
    AddRoot("TscUsers", "TscUser", Factory<TscUser>());
    AddRoot("TscUsersRolesLinks", "TscUsersRolesLink", Factory<TscUsersRolesLink>());
    AddRoot("TscGraphSchemas", "TscGraphSchema", Factory<TscGraphSchema>());
    AddRoot("TscOuterDataSources", "TscOuterDataSource", Factory<TscOuterDataSource>());
    AddRoot("TscSettings", "TscSetting", Factory<TscSetting>());
    AddRoot("TscDistributiveVersions", "TscDistributiveVersion", Factory<TscDistributiveVersion>());
    AddRoot("TscKlasses", "TscKlass", Factory<TscKlass>());
    AddRoot(std::make_unique<TscCoordSystems>(this));
    SetState(ssClosed);
}

TscOuterDataSource* TscSchema::FindOrCreateOuterSource(const std::string& aBaseName) {
    if (TscObject* o = OuterDataSources().ItemByBaseName(aBaseName)) return As<TscOuterDataSource>(o);
    auto* source = As<TscOuterDataSource>(OuterDataSources().GetNewObject());
    source->SetBaseName(aBaseName);
    source->SetTitle(aBaseName);
    return source;
}

// ---------------------------------------------------------------------------------------------
// Rights

bool TscSchemaObjectRightLink::GetHasSubObjectRight(TscRightType aRight) const {
    for (const auto& [name, rights] : fSubRights)
        if (rights.count(aRight)) return true;
    return false;
}

const std::set<TscRightType>& TscSchemaObjectRightLink::GetSubObjectRights(const std::string& aSubObject) const {
    static const std::set<TscRightType> none;
    for (const auto& [name, rights] : fSubRights)
        if (SameText(name, aSubObject)) return rights;
    return none;
}

bool TscSchemaObjectRightLink::GetFullSubObjectRightState(TscRightType aRight) const {
    if (HasRight(aRight)) return true;  // a right on the table holds for every field
    if (fSubObjects.empty()) return false;
    for (const std::string& sub : fSubObjects)
        if (!GetSubObjectRights(sub).count(aRight)) return false;
    return true;
}

bool TscSchemaObjectRightLink::GetPartSubObjectRightState(TscRightType aRight) const {
    return !GetFullSubObjectRightState(aRight) && GetHasSubObjectRight(aRight);
}

void TscSchemaObjectRightLink::IncludeRight(TscRightType aRight, const std::string& aSubObject) {
    if (aSubObject.empty()) {
        fRights.insert(aRight);
        return;
    }
    for (auto& [name, rights] : fSubRights)
        if (SameText(name, aSubObject)) {
            rights.insert(aRight);
            return;
        }
    fSubRights[aSubObject].insert(aRight);
}

void TscSchemaObjectRightLink::IncludeFullRight(TscRightType aRight) {
    fRights.insert(aRight);
    for (const std::string& sub : fSubObjects) IncludeRight(aRight, sub);
}

void TscSchemaObjectRightLink::ExcludeRight(TscRightType aRight, const std::string& aSubObject) {
    if (aSubObject.empty()) {
        fRights.erase(aRight);
        for (auto& [name, rights] : fSubRights) rights.erase(aRight);
        return;
    }
    for (auto& [name, rights] : fSubRights)
        if (SameText(name, aSubObject)) rights.erase(aRight);
}

void TscSchemaObjectRightLink::Clear() {
    fRights.clear();
    fSubRights.clear();
}

void TscSchemaObjectRightLinks::RefreshLinks() {
    fLinks.clear();
    for (TscObject* o : fSchema.Tables().Objects()) {
        auto* t = As<TscTable>(o);
        std::vector<std::string> fields;
        for (TscObject* f : t->Fields().Objects()) fields.push_back(As<TscField>(f)->BaseName());
        fLinks.emplace_back(t->ObjectFullName(), std::move(fields));
    }
}

void TscSchemaObjectRightLinks::ClearRightsLinks() {
    for (auto& link : fLinks) link.Clear();
}

TscSchemaObjectRightLink* TscSchemaObjectRightLinks::GetItemsByObject(std::string_view aObjectFullName) {
    for (auto& link : fLinks)
        if (SameText(link.ObjectFullName(), aObjectFullName)) return &link;
    return nullptr;
}

void TscSchemaObjectRightLinks::RefreshRigths(const std::vector<const TscRole*>& aRoles) {
    if (fLinks.empty()) RefreshLinks();
    ClearRightsLinks();
    for (TscObject* o : fSchema.Rights().Objects()) {
        auto* r = As<TscRight>(o);
        if (!aRoles.empty() &&
            std::none_of(aRoles.begin(), aRoles.end(), [r](const TscRole* role) { return SameKey(role->ID(), r->RoleID()); }))
            continue;
        if (r->SchemaObjectType() == rotTable) {
            if (auto* link = GetItemsByObject(r->ObjectFullName())) link->IncludeRight(r->RightType());
        } else if (r->SchemaObjectType() == rotField) {
            const size_t dot = r->ObjectFullName().rfind('.');
            if (dot == std::string::npos) continue;
            if (auto* link = GetItemsByObject(std::string_view(r->ObjectFullName()).substr(0, dot)))
                link->IncludeRight(r->RightType(), r->ObjectFullName().substr(dot + 1));
        }
    }
}

std::set<TscRightType> TscSchemaObjectRightLinks::GetObjectRigths(std::string_view aObjectFullName) {
    const size_t dot = aObjectFullName.rfind('.');
    if (auto* link = GetItemsByObject(aObjectFullName)) return link->Rights();
    if (dot == std::string_view::npos) return {};
    auto* link = GetItemsByObject(aObjectFullName.substr(0, dot));
    if (!link) return {};
    std::set<TscRightType> rights = link->Rights();
    const auto& own = link->GetSubObjectRights(std::string(aObjectFullName.substr(dot + 1)));
    rights.insert(own.begin(), own.end());
    return rights;
}

void TscSchemaObjectRightLinks::SetItemsByObject(TscRole& aRole) {
    TscSchema& schema = const_cast<TscSchema&>(fSchema);
    std::vector<TscObject*> old(aRole.Rights().Objects());
    for (TscObject* o : old) schema.Rights().DeleteObject(o);
    for (const auto& link : fLinks) {
        for (TscRightType r : link.Rights()) aRole.AddRight(r, rotTable, link.ObjectFullName());
        for (const std::string& sub : link.SubObjects())
            for (TscRightType r : link.GetSubObjectRights(sub))
                if (!link.HasRight(r)) aRole.AddRight(r, rotField, link.ObjectFullName() + "." + sub);
    }
}

TscRightsCache::TscRightsCache(const TscSchema& aSchema, const TscUser& aUser) : fUser(aUser), fLinks(aSchema) {
    Refresh();
}

void TscRightsCache::Refresh() {
    std::vector<const TscRole*> roles;
    for (TscRole* r : fUser.Roles()) roles.push_back(r);
    fLinks.RefreshLinks();
    if (roles.empty()) {
        fLinks.ClearRightsLinks();
        return;
    }
    fLinks.RefreshRigths(roles);
}

bool TscRightsCache::Can(TscRightType aRight, std::string_view aObjectFullName) const {
    return const_cast<TscSchemaObjectRightLinks&>(fLinks).GetObjectRigths(aObjectFullName).count(aRight) != 0;
}

bool TscRightsCache::Full(TscRightType aRight, std::string_view aTableName) const {
    auto* link = const_cast<TscSchemaObjectRightLinks&>(fLinks).GetItemsByObject(aTableName);
    return link && link->GetFullSubObjectRightState(aRight);
}

bool TscRightsCache::Part(TscRightType aRight, std::string_view aTableName) const {
    auto* link = const_cast<TscSchemaObjectRightLinks&>(fLinks).GetItemsByObject(aTableName);
    return link && link->GetPartSubObjectRightState(aRight);
}

}  // namespace tmi
