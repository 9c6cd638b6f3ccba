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

}  // namespace tmi
