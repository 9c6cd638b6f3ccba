// The concrete schema: tables, fields, field modes, aspects, indices, relations, packages,
// outer sources and graph schemas, settings, versions, classifiers, users, roles and rights,
// and the cache that answers what a user may do.
#pragma once

#include <map>
#include <set>

#include "scSchemaCoordSystems.h"
#include "scSchemaCore.h"

namespace tmi {

class TscSchema;

class TscSystemObject : public TscObject {
    TCS_PERSISTENT(TscSystemObject)
public:
    using TscObject::TscObject;
    [[nodiscard]] TscSchema* OwnerSchema() const;
};

// An object with a picture, kept as bytes.
class TscSystemObjectWithGlyph : public TscSystemObject {
    TCS_PERSISTENT(TscSystemObjectWithGlyph)
    SC_PROP(std::string, Glyph)
public:
    using TscSystemObject::TscSystemObject;
};

enum TscTableType {
    ttUnknown, ttNormal, ttOuter, ttMapInfo, ttMitab, ttMapInfoWMS, ttExcel, ttAccess, ttMapInfoRaster, ttVector, ttRaster
};
enum TscFieldDataType {
    fdInteger, fdInt64, fdDecimal, fdMoney, fdFloat, fdDatetime, fdString, fdText, fdChar, fdImage, fdSmallImage,
    fdGraphic, fdBit, fdGUID, fdXML, fdDate
};
enum TscFieldGeometryType { sgtUnknown, sgtLinear, sgtPlanar, sgtAny, sgtRaster, sgtText, sgtPoint };
enum TscRepresentation {
    rpDefault, rpText, rpLabel, rpMemo, rpComboBox, rpCheckBox, rpRadioGroup, rpMasterForm, rpClassificator,
    rpClassificatorComboBox, rpAddress, rpUchastokTextKN, rpKvartalTextKN, rpKvartalMasterKN, rpArea, rpUserName,
    rpGUID, rpMasterFormEx, rpClassificatorLabel, rpMasterFormMulti, rpClassificatorMulti
};
enum TscAlignment { taLeftJustify, taRightJustify, taCenter };
enum TscIndexType { itPrimary, itIndex, itConstraint, itSpatial };
enum TscSortOrder { soAscending, soDescending };
enum TscRelationType { rtPhysical, rtVisual, rtFunctional, rtGraphical };
enum TscActionType { atQuery, atForm, atInternal, atNone, atModule };
enum TscRelationRole { drRestrict, drCascade, drSetNull, drSetDefault };
enum TscRightType {
    rtGrantSelect, rtGrantInsert, rtGrantUpdate, rtGrantDelete, rtFunctionEnabled, rtGrantExecuteSP, rtPluginEnabled,
    rtGrantGroupDelete, rtGrantGroupUpdate, rtGrantInsertAttachFile, rtGrantDeleteAttachFile
};
enum TscRightObjectType { rotTable, rotField, rotInternalFunction };
enum TAUTHENTICATION_Type { atUnknown, atDatabase, atOs, atNetwork, atProxy };

// The names of each enumeration's values, by ordinal, as files write them.
const std::vector<std::string>& EnumNames(std::string_view aEnumeration);

class TscPackage : public TscSystemObject {
    TCS_PERSISTENT(TscPackage)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Title)
    SC_PROP(int64_t, PackageType)
    SC_PROP(std::string, Version)
public:
    using TscSystemObject::TscSystemObject;
};

class TscAspect : public TscSystemObject {
    TCS_PERSISTENT(TscAspect)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Title)
    SC_PROP(std::string, Hint)
public:
    using TscSystemObject::TscSystemObject;
};

class TscTable;

class TscField : public TscSystemObjectWithGlyph {
    TCS_PERSISTENT(TscField)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, BaseNameSQL)
    SC_PROP(std::string, Title)
    SC_PROP(std::string, Hint)
    SC_PROP(std::string, Remarka)
    SC_PROP(TcsVariant, TableID)
    SC_PROP(TscFieldDataType, DataType)
    SC_PROP(TcsVariant, FieldModeID)
    SC_PROP(std::string, Formula)
    SC_PROP(std::string, DefaultValue)
    SC_PROP(int64_t, Precision)
    SC_PROP(int64_t, Scale)
    SC_PROP(int64_t, Length)
    SC_PROP(bool, Allownull)
    SC_PROP(int64_t, FieldProperties)
    SC_PROP_AS(TscObjectTypeWork, FieldTypeWork, "ObjectTypeWork")
    SC_PROP(TscFieldGeometryType, GeometryType)
public:
    using TscSystemObjectWithGlyph::TscSystemObjectWithGlyph;
    [[nodiscard]] TscTable* Table() const;
    // The table's full name, ".", the field's name: the key of the field's rights.
    [[nodiscard]] std::string ObjectFullName() const;
    void GetRelatedObjects(std::vector<TscObject*>& aObjects) override;
    void CheckSave(std::vector<std::string>& aErrors) const override;
};

class TscFieldMode : public TscSystemObject {
    TCS_PERSISTENT(TscFieldMode)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, Title)
    SC_PROP(std::string, BaseName)
    SC_PROP(TscRepresentation, Represent)
    SC_PROP(TscAlignment, Alignment)
    SC_PROP(int64_t, DisplayWidth)
    SC_PROP(std::string, Hint)
    SC_PROP(std::string, ValidChars)
    SC_PROP(bool, Visible)
    SC_PROP(std::string, CustomConstraint)
    SC_PROP(std::string, ConstraintMessage)
    SC_PROP(bool, ReadOnly)
    SC_PROP(bool, Required)
    SC_PROP(bool, Currency)
    SC_PROP(std::string, MinValue)
    SC_PROP(std::string, MaxValue)
    SC_PROP(int64_t, Precision)
    SC_PROP(std::string, DisplayFormat)
    SC_PROP(std::string, EditFormat)
    SC_PROP(std::string, EditMask)
    SC_PROP(std::string, ClassChapter)
    SC_PROP(int64_t, TextColor)
    SC_PROP(int64_t, BackColor)
public:
    using TscSystemObject::TscSystemObject;
};

// A field of an index with its sort order.
struct TscIndexField {
    TcsVariant FieldID;
    TscSortOrder Order = soAscending;
};

class TscIndex : public TscSystemObject {
    TCS_PERSISTENT(TscIndex)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(TcsVariant, TableID)
    SC_PROP(TscIndexType, IndexType)
    SC_PROP(bool, Unique)
    SC_PROP(bool, Clustered)
    SC_PROP(int64_t, FillFactor)
public:
    using TscSystemObject::TscSystemObject;
    [[nodiscard]] const std::vector<TscIndexField>& IndexFields() const noexcept { return fIndexFields; }
    void AddIndexField(const TcsVariant& aFieldID, TscSortOrder aOrder = soAscending);
    [[nodiscard]] TscField* GetIndexField(int aIndex) const;
    void ClearIndexFields() { fIndexFields.clear(); }
    // The names of the fields, separated by ";".
    [[nodiscard]] std::string IndexFieldsString() const;
    void CheckSave(std::vector<std::string>& aErrors) const override;
    void Assign(const TcsPersistent& aSource) override;

private:
    std::vector<TscIndexField> fIndexFields;
};

class TscRelation : public TscSystemObjectWithGlyph {
    TCS_PERSISTENT(TscRelation)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Title)
    SC_PROP(std::string, Hint)
    SC_PROP(TscRelationType, RelationType)
    SC_PROP(TcsVariant, ParentFieldID)
    SC_PROP(TcsVariant, ParentDisplayFieldID)
    SC_PROP(TcsVariant, ChildFieldID)
    SC_PROP(TcsVariant, ChildDisplayFieldID)
    SC_PROP(TcsVariant, QueryID)
    SC_PROP(TcsVariant, FormID)
    SC_PROP(TscActionType, ActionType)
    SC_PROP(TcsVariant, ModuleID)
    SC_PROP(bool, Visible)
    SC_PROP(bool, Linked)
    SC_PROP(TscRelationRole, DeleteRole)
    SC_PROP(TscRelationRole, UpdateRole)
public:
    using TscSystemObjectWithGlyph::TscSystemObjectWithGlyph;
    void CheckSave(std::vector<std::string>& aErrors) const override;
};

class TscOuterGraphSchema : public TscSystemObject {
    TCS_PERSISTENT(TscOuterGraphSchema)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(TcsVariant, OuterDataSourceID)
    SC_PROP(TcsVariant, GraphSchemaID)
public:
    using TscSystemObject::TscSystemObject;
};

class TscOuterGraphSchemas : public TscObjects {
public:
    TscOuterGraphSchemas(TscCustomSchema* aSchema, TscObject* aOwner);
};

// A source of tables outside the schema's database.
class TscOuterDataSource : public TscSystemObject {
    TCS_PERSISTENT(TscOuterDataSource)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Title)
    SC_PROP(std::string, ExternalSchemaName)
    SC_PROP(std::string, SchemaParams)
public:
    explicit TscOuterDataSource(TcsComponent* aSchema = nullptr, TscObjectMode aMode = omPersistent);
    [[nodiscard]] TscOuterGraphSchemas& OuterGraphSchemas() { return fOuterGraphSchemas; }
    std::vector<TscObjects*> ChildObjects() override { return {&fOuterGraphSchemas}; }

private:
    TscOuterGraphSchemas fOuterGraphSchemas;
};

class TscGraphSchema : public TscSystemObject {
    TCS_PERSISTENT(TscGraphSchema)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Title)
public:
    using TscSystemObject::TscSystemObject;
};

class TscSetting : public TscSystemObject {
    TCS_PERSISTENT(TscSetting)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Value)
    SC_PROP(std::string, Remarka)
public:
    using TscSystemObject::TscSystemObject;
};

class TscDistributiveVersion : public TscSystemObject {
    TCS_PERSISTENT(TscDistributiveVersion)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Version)
    SC_PROP(std::string, Remarka)
public:
    using TscSystemObject::TscSystemObject;
};

class TscKlassElement : public TscSystemObject {
    TCS_PERSISTENT(TscKlassElement)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, IDK)
    SC_PROP(TcsVariant, KlassID)
    SC_PROP(TcsVariant, ParentID)
    SC_PROP(std::string, ShortName)
public:
    using TscSystemObject::TscSystemObject;
};

class TscKlassElements : public TscObjects {
public:
    TscKlassElements(TscCustomSchema* aSchema, TscObject* aOwner);
};

// A classifier: a coded list whose elements a field can point to.
class TscKlass : public TscSystemObject {
    TCS_PERSISTENT(TscKlass)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Title)
public:
    explicit TscKlass(TcsComponent* aSchema = nullptr, TscObjectMode aMode = omPersistent);
    [[nodiscard]] TscKlassElements& KlassElements() { return fElements; }
    std::vector<TscObjects*> ChildObjects() override { return {&fElements}; }

private:
    TscKlassElements fElements;
};

class TscTable : public TscSystemObjectWithGlyph {
    TCS_PERSISTENT(TscTable)
    SC_PROP_AS(bool, AppObject, "IsApplicationObject")
    SC_PROP_AS(bool, SysObject, "IsSystemObject")
    SC_PROP(TcsVariant, PackageID)
    SC_PROP(std::string, PackageName)
    SC_PROP(TscTableType, TableType)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, FullName)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, Title)
    SC_PROP(std::string, Remarka)
    SC_PROP(std::string, Hint)
    SC_PROP(std::string, KeyFieldNames)
    SC_PROP(bool, Logged)
    SC_PROP(bool, Outer)
    SC_PROP(std::string, OuterSourceName)
    SC_PROP(bool, Graphical)
    SC_PROP(TcsVariant, AspectID)
    SC_PROP(bool, Visible)
    SC_PROP(std::string, TreeFields)
    SC_PROP(std::string, TreeFieldsSQL)
    SC_PROP(std::string, DetailFields)
    SC_PROP(std::string, DetailFieldsSQL)
    SC_PROP(std::string, ForSelectFields)
    SC_PROP(bool, NotGenerate)
    SC_PROP(bool, IsTemplate)
    SC_PROP_AS(TcsVariant, IheritedTableID, "IheritedTable")
public:
    explicit TscTable(TcsComponent* aSchema = nullptr, TscObjectMode aMode = omPersistent);
    // The table's fields and indices: views of the schema's root lists.
    [[nodiscard]] TscObjects& Fields();
    [[nodiscard]] TscObjects& Indices();
    [[nodiscard]] TscField* FieldByName(std::string_view aName);
    [[nodiscard]] TscOuterDataSource* OuterSource() const;
    [[nodiscard]] TscTable* IheritedTable() const;
    // The full name, or the base name when there is none.
    [[nodiscard]] std::string ObjectFullName() const { return FullName().empty() ? BaseName() : FullName(); }
    std::vector<TscObjects*> ChildObjects() override;
    void GetRelatedObjects(std::vector<TscObject*>& aObjects) override;
    void CheckSave(std::vector<std::string>& aErrors) const override;

private:
    void Bind();
    std::unique_ptr<TscObjects> fFields;
    std::unique_ptr<TscObjects> fIndices;
};

class TscRight : public TscSystemObject {
    TCS_PERSISTENT(TscRight)
    SC_PROP(TcsVariant, ID)
    SC_PROP(TcsVariant, RoleID)
    SC_PROP(std::string, ObjectFullName)
    SC_PROP(TscRightType, RightType)
    SC_PROP(TscRightObjectType, SchemaObjectType)
public:
    using TscSystemObject::TscSystemObject;
    void CheckSave(std::vector<std::string>& aErrors) const override;
};

class TscUsersRolesLink : public TscSystemObject {
    TCS_PERSISTENT(TscUsersRolesLink)
    SC_PROP(TcsVariant, ID)
    SC_PROP(TcsVariant, UserID)
    SC_PROP(TcsVariant, RoleID)
public:
    using TscSystemObject::TscSystemObject;
    void CheckSave(std::vector<std::string>& aErrors) const override;
};

class TscRole : public TscSystemObject {
    TCS_PERSISTENT(TscRole)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, Remarka)
    SC_PROP(std::string, Title)
public:
    explicit TscRole(TcsComponent* aSchema = nullptr, TscObjectMode aMode = omPersistent);
    [[nodiscard]] TscObjects& Rights();
    [[nodiscard]] TscObjects& UserRolesLinks();
    std::vector<TscObjects*> ChildObjects() override;
    void GetRelatedObjects(std::vector<TscObject*>& aObjects) override;
    // Grants a right on an object: a new TscRight of this role.
    TscRight* AddRight(TscRightType aType, TscRightObjectType aObjectType, std::string aObjectFullName);

private:
    void Bind();
    std::unique_ptr<TscObjects> fRights;
    std::unique_ptr<TscObjects> fLinks;
};

class TscUser : public TscSystemObject {
    TCS_PERSISTENT(TscUser)
    SC_PROP(TcsVariant, ID)
    SC_PROP(std::string, BaseName)
    SC_PROP(std::string, FullName)
    SC_PROP(std::string, ForSQLName)
    SC_PROP(std::string, Title)
    SC_PROP(TcsVariant, DepartmentID)
    SC_PROP(bool, Standard)
    SC_PROP(std::string, Password)
    SC_PROP(TcsVariant, GraphSchemaID)
    SC_PROP(TAUTHENTICATION_Type, AuthenticationType)
    SC_PROP(bool, ExternalAuthentication)
    SC_PROP(TcsVariant, BossID)
    SC_PROP(std::string, Email)
    SC_PROP(bool, Locked)
    SC_PROP(bool, Exist)
    SC_PROP(bool, ToGenerate)
    SC_PROP_AS(bool, UserDeleted, "Deleted")
    SC_PROP(bool, Current)
public:
    using TscSystemObject::TscSystemObject;
    [[nodiscard]] TscUser* Boss() const;
    [[nodiscard]] std::vector<class TscRole*> Roles() const;
    void GetRelatedObjects(std::vector<TscObject*>& aObjects) override;
};

class TscSchema : public TscCustomSchema {
public:
    explicit TscSchema(TscSchemaWorkMode aSchemaMode = wmSystem);
    [[nodiscard]] std::string ClassName() const override { return "TscSchema"; }
    [[nodiscard]] std::unique_ptr<TcsPersistent> NewLike(TcsComponent*) const override { return std::make_unique<TscSchema>(); }

    [[nodiscard]] TscObjects& ProviderList() const { return Root(0); }
    [[nodiscard]] TscObjects& Packages() const { return Root(1); }
    [[nodiscard]] TscObjects& Tables() const { return Root(2); }
    [[nodiscard]] TscObjects& Fields() const { return Root(3); }
    [[nodiscard]] TscObjects& FieldModes() const { return Root(4); }
    [[nodiscard]] TscObjects& Aspects() const { return Root(5); }
    [[nodiscard]] TscObjects& Indices() const { return Root(6); }
    [[nodiscard]] TscObjects& Relations() const { return Root(7); }
    [[nodiscard]] TscObjects& Rights() const { return Root(8); }
    [[nodiscard]] TscObjects& Roles() const { return Root(9); }
    [[nodiscard]] TscObjects& Users() const { return Root(10); }
    [[nodiscard]] TscObjects& UsersRolesLinks() const { return Root(11); }
    [[nodiscard]] TscObjects& GraphSchemas() const { return Root(12); }
    [[nodiscard]] TscObjects& OuterDataSources() const { return Root(13); }
    [[nodiscard]] TscObjects& Settings() const { return Root(14); }
    [[nodiscard]] TscObjects& DistributiveVersions() const { return Root(15); }
    [[nodiscard]] TscObjects& Klasses() const { return Root(16); }
    [[nodiscard]] TscCoordSystems& CoordSystems() const { return static_cast<TscCoordSystems&>(Root(17)); }

    [[nodiscard]] TscTable* TableByName(std::string_view aName) const { return static_cast<TscTable*>(Tables().ItemByBaseName(aName)); }
    [[nodiscard]] TscField* FieldByID(const TcsVariant& aID) const { return static_cast<TscField*>(Fields().ItemsByID(aID)); }
    [[nodiscard]] TscTable* TableByID(const TcsVariant& aID) const { return static_cast<TscTable*>(Tables().ItemsByID(aID)); }
    // The outer source of that base name, made when missing.
    TscOuterDataSource* FindOrCreateOuterSource(const std::string& aBaseName);

private:
    [[nodiscard]] TscObjects& Root(size_t aIndex) const { return *ROOTObjects()[aIndex]; }
};

// The rights of one schema object (a table) per role: a set for the object and a set per
// sub-object (its fields).
class TscSchemaObjectRightLink {
public:
    TscSchemaObjectRightLink(std::string aObjectFullName, std::vector<std::string> aSubObjects)
        : fObjectFullName(std::move(aObjectFullName)), fSubObjects(std::move(aSubObjects)) {}
    [[nodiscard]] const std::string& ObjectFullName() const noexcept { return fObjectFullName; }
    [[nodiscard]] bool HasRight(TscRightType aRight) const { return fRights.count(aRight) != 0; }
    [[nodiscard]] bool GetHasSubObjectRight(TscRightType aRight) const;
    [[nodiscard]] const std::set<TscRightType>& GetSubObjectRights(const std::string& aSubObject) const;
    // Every sub-object holds the right (also the answer when there are none).
    [[nodiscard]] bool GetFullSubObjectRightState(TscRightType aRight) const;
    // Some sub-objects hold it, not all.
    [[nodiscard]] bool GetPartSubObjectRightState(TscRightType aRight) const;
    void IncludeRight(TscRightType aRight, const std::string& aSubObject = {});
    void IncludeFullRight(TscRightType aRight);
    void ExcludeRight(TscRightType aRight, const std::string& aSubObject = {});
    void Clear();
    [[nodiscard]] const std::set<TscRightType>& Rights() const noexcept { return fRights; }
    [[nodiscard]] const std::vector<std::string>& SubObjects() const noexcept { return fSubObjects; }

private:
    std::string fObjectFullName;
    std::vector<std::string> fSubObjects;
    std::set<TscRightType> fRights;
    std::map<std::string, std::set<TscRightType>> fSubRights;
};

// The rights of a set of roles on every table of a schema, rebuilt from the TscRight objects.
class TscSchemaObjectRightLinks {
public:
    explicit TscSchemaObjectRightLinks(const TscSchema& aSchema) : fSchema(aSchema) {}
    // One link per table, with its fields as sub-objects.
    void RefreshLinks();
    // The sets from the rights of the given roles (all roles when empty).
    void RefreshRigths(const std::vector<const TscRole*>& aRoles = {});
    void ClearRightsLinks();
    [[nodiscard]] TscSchemaObjectRightLink* GetItemsByObject(std::string_view aObjectFullName);
    [[nodiscard]] std::set<TscRightType> GetObjectRigths(std::string_view aObjectFullName);
    // Writes the sets back as TscRight objects of the role: one per set member.
    void SetItemsByObject(TscRole& aRole);
    [[nodiscard]] const std::vector<TscSchemaObjectRightLink>& Links() const noexcept { return fLinks; }

private:
    const TscSchema& fSchema;
    std::vector<TscSchemaObjectRightLink> fLinks;
};

// What a user may do: the union of the rights of the user's roles.
class TscRightsCache {
public:
    TscRightsCache(const TscSchema& aSchema, const TscUser& aUser);
    [[nodiscard]] bool Can(TscRightType aRight, std::string_view aObjectFullName) const;
    [[nodiscard]] bool Full(TscRightType aRight, std::string_view aTableName) const;
    [[nodiscard]] bool Part(TscRightType aRight, std::string_view aTableName) const;
    void Refresh();

private:
    const TscUser& fUser;
    TscSchemaObjectRightLinks fLinks;
};

}  // namespace tmi
