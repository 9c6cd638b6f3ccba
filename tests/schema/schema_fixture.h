// A realistic schema for the tests: the thirteen tables of every import with their columns,
// keys, an index on the cadastral number, two relations, a field mode, an extended property,
// a role with rights and a user in it.
#pragma once

#include "csMapinfoTab.h"
#include "csTableCatalogue.h"
#include "scSchema.h"

namespace tmi::test {

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
}

}  // namespace tmi::test
