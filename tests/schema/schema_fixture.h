// A realistic schema for the tests: the thirteen tables of every import with their columns,
// keys, an index on the cadastral number, two relations, a field mode, an extended property,
// a role with rights and a user in it; and the graphical tables in a local coordinate system.
#pragma once

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "csMapinfoTab.h"
#include "csTableCatalogue.h"
#include "csGeometryCoordSysCore.h"
#include "scSchema.h"

namespace tmi::test {

inline std::string ReadAll(const std::filesystem::path& aPath) {
    std::ifstream in(aPath, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void WriteAll(const std::filesystem::path& aPath, std::string_view aText) {
    std::ofstream(aPath, std::ios::binary | std::ios::trunc).write(aText.data(), static_cast<std::streamsize>(aText.size()));
}

struct TempFolder {
    TempFolder() : path(std::filesystem::temp_directory_path() / ("tm_schema_" + std::to_string(::getpid()) + "_" + std::to_string(counter++))) {
        std::filesystem::create_directories(path);
    }
    ~TempFolder() { std::filesystem::remove_all(path); }
    std::filesystem::path path;
    static inline int counter = 0;
};

// A value's text; a double in the shortest form that reads back exactly.
inline std::string ExactText(const TcsVariant& aValue) {
    if (aValue.Type() != TcsVarType::Float) return aValue.AsString();
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, aValue.AsFloat());
    return std::string(buffer, result.ptr);
}

// Every published value of every object, extended properties and index fields included.
inline std::vector<std::string> Dump(const TscSchema& aSchema) {
    std::vector<std::string> lines;
    auto object = [&lines](const std::string& aPrefix, TscObject& o) {
        std::string line = aPrefix + o.ClassName();
        for (const TcsPropertyInfo& p : o.PropertyTable().All())
            if (p.fGet && p.fKind != TcsPropertyKind::Object) {
                const TcsVariant v = p.fGet(o);
                line += " " + p.fName + "=" + std::to_string(static_cast<int>(v.Type())) + ":" + ExactText(v);
            }
        lines.push_back(line);
        if (o.HasExtendedProperties())
            for (TscObject* e : o.ExtendedProperties().Objects()) {
                std::string ext = "  ext";
                for (const TcsPropertyInfo& p : e->PropertyTable().All())
                    if (p.fGet) ext += " " + p.fName + "=" + p.fGet(*e).AsString();
                lines.push_back(ext);
            }
        if (auto* index = dynamic_cast<TscIndex*>(&o))
            for (const TscIndexField& f : index->IndexFields())
                lines.push_back("  fld " + std::to_string(static_cast<int>(f.FieldID.Type())) + ":" + f.FieldID.AsString() + " " +
                                std::to_string(f.Order));
    };
    for (const auto& list : aSchema.ROOTObjects()) {
        for (TscObjects* sub : list->SubLists())
            for (TscObject* o : sub->Objects()) object("", *o);
        for (TscObject* o : list->Objects()) {
            object("", *o);
            for (TscObjects* child : o->ChildObjects())
                if (child->StorageType() == stStandart)
                    for (TscObject* c : child->Objects()) object("  ", *c);
        }
    }
    return lines;
}


inline TscFieldDataType DataTypeOf(int aColumnType) {
    switch (aColumnType) {
    case ftInteger: return fdInteger;
    case ftFloat: return fdFloat;
    default: return fdString;
    }
}

inline TscField* FieldOf(TscSchema& aSchema, const char* aTable, const char* aField) {
    TscTable* t = aSchema.TableByName(aTable);
    return t ? t->FieldByName(aField) : nullptr;
}

// Builds the objects into an empty schema (any state but loading).
inline constexpr const char* kLocalClause =
    "CoordSys Earth Projection 8, 1001, \"m\", 46.5, 0, 1, 1300000, -5514743.565 Bounds (-10000000, -10000000) (10000000, 10000000)";

inline void BuildOutputTables(TscSchema& aSchema) {
    auto* mode = static_cast<TscFieldMode*>(aSchema.FieldModes().GetNewObject());
    mode->SetBaseName("КадастровыйНомер");
    mode->SetTitle("Кадастровый номер");
    mode->SetRepresent(rpUchastokTextKN);
    mode->SetDisplayWidth(20);
    mode->SetVisible(true);
    mode->SetTextColor(255);

    for (const TGMTableDecl& decl : TableCatalogue()) {
        auto* t = static_cast<TscTable*>(aSchema.Tables().GetNewObject());
        t->SetBaseName(decl.fName);
        t->SetTitle(decl.fName);
        t->SetTableType(ttNormal);
        t->SetGraphical(decl.fSpatial);
        t->SetVisible(true);
        t->SetKeyFieldNames("TableId");
        for (const TGMColumnDecl& column : decl.fColumns) {
            auto* f = static_cast<TscField*>(t->Fields().GetNewObject());
            f->SetBaseName(column.fName);
            f->SetTitle(column.fName);
            f->SetDataType(DataTypeOf(column.fType));
            f->SetLength(column.fType == ftText ? column.fSize : 0);
            f->SetAllownull(std::string_view(column.fName) != "TableId");
            if (std::string_view(column.fName) == "КадастровыйНомер") f->SetFieldModeID(mode->ID());
        }
        if (decl.fSpatial) {
            auto* g = static_cast<TscField*>(t->Fields().GetNewObject());
            g->SetBaseName("Geometry");
            g->SetDataType(fdGraphic);
            g->SetGeometryType(sgtAny);
            g->SetAllownull(true);
            auto* spatial = static_cast<TscIndex*>(t->Indices().GetNewObject());
            spatial->SetBaseName(std::string("SX_") + decl.fName);
            spatial->SetIndexType(itSpatial);
            spatial->AddIndexField(g->ID());
        }
        auto* key = static_cast<TscIndex*>(t->Indices().GetNewObject());
        key->SetBaseName(std::string("PK_") + decl.fName);
        key->SetIndexType(itPrimary);
        key->SetUnique(true);
        key->AddIndexField(t->FieldByName("TableId")->ID());
        if (TscField* number = t->FieldByName("КадастровыйНомер")) {
            auto* index = static_cast<TscIndex*>(t->Indices().GetNewObject());
            index->SetBaseName(std::string("IX_") + decl.fName + "_КН");
            index->SetIndexType(itIndex);
            index->AddIndexField(number->ID(), soDescending);
        }
    }
    TscTable* parcels = aSchema.TableByName("Участки");
    parcels->SetTitle("Участки «ЗУ» & \"части\" ≈ 1");
    parcels->SetGlyph(std::string("\x89PNG\r\n\x1a\n\0\x01\xff", 11));
    parcels->ExtendedProperties().SetValueOf("Цвет", TcsVariant("зелёный"));

    auto* parts = static_cast<TscRelation*>(aSchema.Relations().GetNewObject());
    parts->SetBaseName("ЧастиУчастка_Участки");
    parts->SetTitle("Части участка");
    parts->SetRelationType(rtPhysical);
    parts->SetParentFieldID(FieldOf(aSchema, "Участки", "TableId")->ID());
    parts->SetChildFieldID(FieldOf(aSchema, "ЧастиУчастка", "КодУчастка")->ID());
    parts->SetDeleteRole(drCascade);
    parts->SetVisible(true);
    auto* points = static_cast<TscRelation*>(aSchema.Relations().GetNewObject());
    points->SetBaseName("Точки_Участки");
    points->SetRelationType(rtVisual);
    points->SetActionType(atForm);
    points->SetParentFieldID(FieldOf(aSchema, "Участки", "КадастровыйНомер")->ID());
    points->SetChildFieldID(FieldOf(aSchema, "Точки", "КадастровыйНомер")->ID());

    auto* role = static_cast<TscRole*>(aSchema.Roles().GetNewObject());
    role->SetBaseName("Оператор");
    role->SetTitle("Оператор");
    for (TscObject* o : aSchema.Tables().Objects())
        role->AddRight(rtGrantSelect, rotTable, static_cast<TscTable*>(o)->ObjectFullName());
    for (const char* field : {"Площадь1", "Примечание"})
        role->AddRight(rtGrantUpdate, rotField, FieldOf(aSchema, "Участки", field)->ObjectFullName());
    auto* user = static_cast<TscUser*>(aSchema.Users().GetNewObject());
    user->SetBaseName("ivanov");
    user->SetTitle("Иванов И. И.");
    user->SetAuthenticationType(atDatabase);
    auto* link = static_cast<TscUsersRolesLink*>(aSchema.UsersRolesLinks().GetNewObject());
    link->SetUserID(user->ID());
    link->SetRoleID(role->ID());

    auto* klass = static_cast<TscKlass*>(aSchema.Klasses().GetNewObject());
    klass->SetBaseName("dCategories");
    klass->SetTitle("Категории земель");
    for (const char* code : {"003001000000", "003002000000"}) {
        auto* e = static_cast<TscKlassElement*>(klass->KlassElements().GetNewObject());
        e->SetIDK(code);
        e->SetKlassID(klass->ID());
        e->SetShortName(code[5] == '1' ? "Земли с/х назначения" : "Земли населённых пунктов");
    }
    auto* setting = static_cast<TscSetting*>(aSchema.Settings().GetNewObject());
    setting->SetBaseName("Version");
    setting->SetValue("2.0.22");
    auto* awkward = static_cast<TscSetting*>(aSchema.Settings().GetNewObject());
    awkward->SetBaseName("Awkward");
    awkward->SetValue("it's a \\path; DROP TABLE \"Tables\";\n-- next line");
}

// The graphical tables in a local system of the user's: its MapInfo clause, and the
// well-known text the coordinate system model makes of it, under a user-range SRID.
inline void SetLocalCoordSystem(TscSchema& aSchema) {
    TscCoordSystems& systems = aSchema.CoordSystems();
    TcsCoordSystem model;
    model.SetMapinfo(kLocalClause);
    auto* wkt = static_cast<TscWKTCoordSystem*>(systems.WKTCoordSystems().GetNewObject());
    wkt->SetTitle("МСК-21 зона 1");
    wkt->SetWKT(model.WKT());
    wkt->SetSRID(TcsVariant(int64_t{910021}));
    auto* mapinfo = static_cast<TscMapinfoCoordSystem*>(systems.MapinfoCoordSystems().GetNewObject());
    mapinfo->SetTitle("МСК-21 зона 1");
    mapinfo->SetCoordSysString(kLocalClause);
    mapinfo->Setdb_x_ll(0.1 + 0.2);
    mapinfo->Setdb_y_ll(-5514743.565);
    mapinfo->Setdb_x_ur(1e-300);
    mapinfo->Setdb_y_ur(123456.78901234567);
    auto* set = static_cast<TscCoordSystemSet*>(systems.CoordSysSet().GetNewObject());
    set->SetTitle("МСК-21");
    set->SetDefaultCS(true);
    set->SetWKTCS_ID(wkt->ID());
    set->SetMapinfoCS_ID(mapinfo->ID());
    for (TscObject* o : aSchema.Tables().Objects()) {
        auto* table = static_cast<TscTable*>(o);
        if (TscField* geometry = table->FieldByName("Geometry")) systems.SetTableCoordSystem(*table, geometry, *set);
    }
    systems.SetMapinfoSupport(true);
}

}  // namespace tmi::test
