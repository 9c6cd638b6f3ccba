// The formula tables of the new-format cadastre process: what each value slot of an item holds,
// in data. An empty slot stays unset. Paths run from the record's element.
#include <array>

#include "csRosreestrXMLCadastr.h"

namespace tmi {

namespace {

#define SETTLEMENT "address_location/address/address_fias/level_settlement/"
#define DETAILED "address_location/address/address_fias/detailed_level/"
// "type name" of one address level, as "street/type_street&= &street/name_street".
#define LEVEL(base, level, type, name) base level "/" type "&= &" base level "/" name

// Land records (part type 1).
constexpr std::array<const char*, 22> kParcel = {
    /* 0 */ "object/common_data/cad_number",
    /* 1 */ "cad_links/common_land/common_land_cad_number/cad_number",
    /* 2 */ nullptr,
    /* 3 */ "@State",
    /* 4 */ "@DateCreated",
    /* 5 */ "params/area/value",
    /* 6 */ "object/subtype/value&=, &object/common_data/type/value",
    /* 7 */ SETTLEMENT "okato",
    /* 8 */ SETTLEMENT "kladr",
    /* 9 */ SETTLEMENT "region/value",
    /* 10 */ LEVEL(SETTLEMENT, "district", "type_district", "name_district"),
    /* 11 */ "Location/Address/Other",
    /* 12 */ "address_location/address/readable_address",
    /* 13 */ "params/category/type/value",
    /* 14 */ "params/permitted_use/permitted_use_established/land_use/value",
    /* 15 */ "params/permitted_use/permitted_use_established/by_document",
    /* 16 */ nullptr,
    /* 17 */ "cost/value",
    /* 18 */ "=рубль",
    /* 19 */ nullptr,
    /* 20 */ nullptr,
    /* 21 */ "SpecialNote",
};

// Buildings, constructions and objects under construction (part type 3): 49 slots each; the
// three differ in slots 0, 2, 3 and 43 to 48.
constexpr size_t kBuildSlots = 49;
using TBuildTable = std::array<const char*, kBuildSlots>;

constexpr TBuildTable BuildTable(const char* aKind, const char* aArea, const char* aPurpose, bool aBaseParameters) {
    TBuildTable t{};
    t[0] = aKind;
    t[1] = "cost/value";
    t[2] = aArea;
    t[3] = aPurpose;
    t[4] = "object/common_data/cad_number";
    t[5] = "object/common_data/type/value";
    t[7] = SETTLEMENT "okato";
    t[8] = SETTLEMENT "kladr";
    t[9] = "address_location/address/readable_address";
    t[10] = "address_location/address/note";
    t[11] = SETTLEMENT "oktmo";
    t[12] = SETTLEMENT "postal_code";
    t[13] = SETTLEMENT "region/value";
    t[14] = LEVEL(SETTLEMENT, "district", "type_district", "name_district");
    t[15] = LEVEL(SETTLEMENT, "city", "type_city", "name_city");
    t[16] = LEVEL(SETTLEMENT, "urban_district", "type_urban_district", "name_urban_district");
    t[17] = LEVEL(SETTLEMENT, "soviet_village", "type_soviet_village", "name__soviet_village");
    t[18] = LEVEL(SETTLEMENT, "locality", "type_locality", "name_locality");
    t[19] = LEVEL(DETAILED, "street", "type_street", "name_street");
    t[20] = LEVEL(DETAILED, "level1", "type_level1", "name_level1");
    t[21] = LEVEL(DETAILED, "level2", "type_level2", "name_level2");
    t[22] = LEVEL(DETAILED, "level3", "type_level3", "name_level3");
    t[23] = LEVEL(DETAILED, "apartment", "type_apartment", "name_apartment");
    t[31] = "cad_links/united_cad_number/cad_number";
    t[41] = "params/permitted_uses/permitted_use/name";
    t[42] = SETTLEMENT "fias";
    if (aBaseParameters) {
        t[43] = "base_parameters/base_parameter/built_up_area";
        t[44] = "base_parameters/base_parameter/extension";
        t[45] = "base_parameters/base_parameter/depth";
        t[46] = "base_parameters/base_parameter/occurence_depth";
        t[47] = "base_parameters/base_parameter/volume";
        t[48] = "base_parameters/base_parameter/height";
    }
    return t;
}

constexpr TBuildTable kBuild = BuildTable("=Здание", "params/base_parameters/base_parameter/area", "params/purpose", true);
constexpr TBuildTable kConstruction = BuildTable("=Сооружение", "params/area", "params/purpose/value", false);
constexpr TBuildTable kUnderConstruction = BuildTable("=Объект незавершенного строительства", "params/area", "params/purpose", false);

#define ZONE "b_object_zones_and_territories/"

// Zones and territories (part type 4); slot 0 the zone's number.
constexpr std::array<const char*, 12> kZone = {
    /* 0 */ ZONE "b_object/reg_numb_border",
    /* 1 */ ZONE "b_object/type_boundary/value",
    /* 2 */ ZONE "type_zone/value",
    /* 3 */ ZONE "name_by_doc",
    /* 4 */ ZONE "number",
    /* 5 */ ZONE "index",
    /* 6 */ ZONE "description",
    /* 7 */ ZONE "content_restrict_encumbrances",
    /* 8 */ ZONE "authority_decision",
    /* 9 */ "record_info/registration_date",
    /* 10 */ ZONE "b_object/type_boundary/code",
    /* 11 */ ZONE "type_zone/code",
};

// Survey points (part type 5); slot 0 the point's number.
constexpr std::array<const char*, 5> kOmsPoint = {
    /* 0 */ "p_nmb",
    /* 1 */ "p_name",
    /* 2 */ "p_klass",
    /* 3 */ "ord_x",
    /* 4 */ "ord_y",
};

// Boundaries (part type 6): six slots, the first as each kind describes itself.
#define BOUND_TABLE(base, first)                                                                                          \
    std::array<const char*, 6> {                                                                                          \
        first, base "b_object/reg_numb_border", base "b_object/type_boundary/value", "record_info/registration_date", \
            base "b_object/type_boundary/code", base "name"                                                               \
    }
constexpr auto kSubjectBound = BOUND_TABLE("b_object_subject_boundary/", "b_object_subject_boundary/description");
constexpr auto kCoastline = BOUND_TABLE("b_object_coastline/", "b_object_coastline/water/water_object_type");
constexpr auto kLocalityBound =
    BOUND_TABLE("b_object_inhabited_locality_boundary/", "b_object_inhabited_locality_boundary/description");
constexpr auto kMunicipalBound = BOUND_TABLE("b_object_municipal_boundary/", "b_object_municipal_boundary/description");

// Survey projects (part type 7); slot 0 the project's number.
constexpr std::array<const char*, 4> kSurveying = {
    /* 0 */ "b_object_surveying_project/b_object/reg_numb_border",
    /* 1 */ "b_object_surveying_project/b_object/type_boundary/value",
    /* 2 */ "record_info/registration_date",
    /* 3 */ "b_object_surveying_project/description",
};

// ---------------------------------------------------------------------------------------------
// The classic family, in the same slots. Addresses of the classic types name each level by its
// attributes, as <District Name="..." Type="р-н"/>; codes are the schema's, decoded by it.

#define ADDRESS_LEVEL(base, level) base level "/@Type&= &" base level "/@Name"
#define PLACE "Location/Address/"

// Parcels (part type 1) of the plan and of the parcel extracts.
constexpr std::array<const char*, 22> kParcelClassic = {
    /* 0 */ "@CadastralNumber|@Definition",
    /* 1 */ "ParentCadastralNumbers/CadastralNumber|Unified_Land_Unit/Preceding_Land_Unit",
    /* 2 */ nullptr,
    /* 3 */ "@State",
    /* 4 */ "@DateCreated",
    /* 5 */ "Area/Area|Areas/Area/Area",
    /* 6 */ "@Name|Name",
    /* 7 */ PLACE "OKATO|" PLACE "Code_OKATO",
    /* 8 */ PLACE "KLADR|" PLACE "Code_KLADR",
    /* 9 */ PLACE "Region",
    /* 10 */ ADDRESS_LEVEL(PLACE, "District"),
    /* 11 */ PLACE "Other",
    /* 12 */ PLACE "Note",
    /* 13 */ "Category/@Category|Category",
    /* 14 */ "Utilization/@Kind|Utilization/@Utilization",
    /* 15 */ "Utilization/@ByDoc",
    /* 16 */ nullptr,
    /* 17 */ "CadastralCost/@Value",
    /* 18 */ "=рубль",
    /* 19 */ nullptr,
    /* 20 */ nullptr,
    /* 21 */ "SpecialNote",
};

// Buildings, constructions, objects under construction and flats (part type 3).
constexpr TBuildTable BuildTableClassic(const char* aKind, const char* aPurpose) {
    TBuildTable t{};
    t[0] = aKind;
    t[1] = "CadastralCost/@Value";
    t[2] = "Area";
    t[3] = aPurpose;
    t[4] = "@CadastralNumber";
    t[5] = "ObjectType";
    t[7] = "Address/OKATO|Address/Code_OKATO";
    t[8] = "Address/KLADR|Address/Code_KLADR";
    t[9] = "Address/Note";
    t[10] = "Address/Other";
    t[11] = "Address/OKTMO";
    t[12] = "Address/PostalCode";
    t[13] = "Address/Region";
    t[14] = ADDRESS_LEVEL("Address/", "District");
    t[15] = ADDRESS_LEVEL("Address/", "City");
    t[16] = ADDRESS_LEVEL("Address/", "UrbanDistrict");
    t[17] = ADDRESS_LEVEL("Address/", "SovietVillage");
    t[18] = ADDRESS_LEVEL("Address/", "Locality");
    t[19] = ADDRESS_LEVEL("Address/", "Street");
    t[20] = "Address/Level1/@Type&= &Address/Level1/@Value";
    t[21] = "Address/Level2/@Type&= &Address/Level2/@Value";
    t[22] = "Address/Level3/@Type&= &Address/Level3/@Value";
    t[23] = "Address/Apartment/@Type&= &Address/Apartment/@Value";
    t[31] = "ParentCadastralNumbers/CadastralNumber";
    t[41] = "Name";
    t[42] = "Address/FIAS";
    return t;
}

constexpr TBuildTable kBuildingClassic = BuildTableClassic("=Здание", "AssignationBuilding");
constexpr TBuildTable kConstructionClassic = BuildTableClassic("=Сооружение", "AssignationName");
constexpr TBuildTable kUncompletedClassic = BuildTableClassic("=Объект незавершенного строительства", "AssignationName");
constexpr TBuildTable kFlatClassic = BuildTableClassic("=Помещение", "Assignation/AssignationCode");

// The object of a building extract in the registry's form (KVOKS/Object), of any kind.
constexpr TBuildTable ObjectTableClassic() {
    TBuildTable t{};
    t[0] = "ObjectTypeText";
    t[2] = "Area/Area";
    t[4] = "CadastralNumber";
    t[5] = "ObjectType";
    t[7] = "Address/Code_OKATO";
    t[8] = "Address/Code_KLADR";
    t[9] = "Address/Content";
    t[13] = "Address/Region";
    t[14] = "Address/District";
    t[18] = "Address/Locality";
    t[19] = "Address/Street";
    t[20] = "Address/Level1";
    t[41] = "Name";
    return t;
}
constexpr TBuildTable kObjectClassic = ObjectTableClassic();

// Zones (part type 4); slot 0 the zone's account number.
constexpr std::array<const char*, 10> kZoneClassic = {
    /* 0 */ "AccountNumber",
    /* 1 */ nullptr,
    /* 2 */ "CodeZone|CodeZoneDoc",
    /* 3 */ "Name",
    /* 4 */ nullptr,
    /* 5 */ nullptr,
    /* 6 */ "Description",
    /* 7 */ "SpecialZone/ContentRestrictions|TerritorialZone/PermittedUses/PermittedUse/TypePermittedUse",
    /* 8 */ "Documents/Document/Name",
    /* 9 */ "Documents/Document/Date",
};

// Survey points (part type 5).
constexpr std::array<const char*, 5> kOmsPointClassic = {"PNmb", "PName", "PKlass", "OrdX", "OrdY"};

// Boundaries (part type 6).
constexpr std::array<const char*, 4> kBoundClassic = {
    /* 0 */ "AccountNumber",
    /* 1 */ "Description",
    /* 2 */ nullptr,
    /* 3 */ "Documents/Document/Date",
};

// Rights (part type 8), from a record's Rights or an extract's ObjectRight; slot 0 is set by
// the process.
constexpr std::array<const char*, 9> kRight = {
    /* 0 */ nullptr,
    /* 1 */ "Registration/Name|Name|NoRegistration",
    /* 2 */ "Owner/Organization/Content|Owner/Person/Content|Owner/Governance/Content|Owner/Content|NoOwner",
    /* 3 */ "Registration/RegNumber",
    /* 4 */ "Registration/RegDate",
    /* 5 */ "Registration/Type|Type",
    /* 6 */ "Encumbrance/Name",
    /* 7 */ "Encumbrance/DocFound/Content|Registration/DocFound/Content|DocFound/Content",
    /* 8 */ "@RightNumber",
};

}  // namespace

const TcsCadastrTables& CadastrTablesNew() {
    static const TcsCadastrTables tables{
        {"land_record", kParcel},
        {"build_record", kBuild},
        {"construction_record", kConstruction},
        {"object_under_construction_record", kUnderConstruction},
        {"zones_and_territories_record", kZone},
        {"oms_point", kOmsPoint},
        {"subject_boundary_record", kSubjectBound},
        {"coastline_record", kCoastline},
        {"inhabited_locality_boundary_record", kLocalityBound},
        {"municipal_boundary_record", kMunicipalBound},
        {"surveying_project_record", kSurveying},
    };
    return tables;
}

const TcsCadastrTablesClassic& CadastrTablesClassic() {
    static const TcsCadastrTablesClassic tables{
        {"Parcel", kParcelClassic},
        {"Building", kBuildingClassic},
        {"Construction", kConstructionClassic},
        {"Uncompleted", kUncompletedClassic},
        {"Flat", kFlatClassic},
        {"Object", kObjectClassic},
        {"Zone", kZoneClassic},
        {"OMSPoint", kOmsPointClassic},
        {"Bound", kBoundClassic},
        {"Right", kRight},
    };
    return tables;
}

}  // namespace tmi
