// The object core: the edit protocol, lists and IDs, deletion with what depends on an object,
// the checks before a save, and what a user may do.
#include <gtest/gtest.h>

#include "schema_fixture.h"

using namespace tmi;
using tmi::test::BuildOutputTables;
using tmi::test::FieldOf;

namespace {

std::string Thrown(const std::function<void()>& aCall) {
    try {
        aCall();
    } catch (const EscSchemaException& e) {
        return e.what();
    }
    return "<nothing>";
}

struct Built : ::testing::Test {
    void SetUp() override {
        BuildOutputTables(schema);
        schema.ClearModifyObjects();
    }
    TscSchema schema;
};

}  // namespace

TEST(SchemaCore, RootListsInOrder) {
    TscSchema s;
    std::vector<std::string> names;
    for (const auto& list : s.ROOTObjects()) names.push_back(list->GetStorageName());
    EXPECT_EQ(names, (std::vector<std::string>{"Providers", "Packages", "Tables", "Fields", "FieldModes", "Aspects", "Indices",
                                               "Relations", "Rights", "Roles", "Users", "UsersRolesLinks", "GraphSchemas",
                                               "OuterDataSources", "Settings", "DistributiveVersions", "Klasses",
                                               "CoordSystems"}));
    EXPECT_EQ(Thrown([&] { s.Tables().SetFilter("ID", TcsVariant(1)); }), "Запрещено устанавлививать фильтр коренному хранилищу");
}

TEST_F(Built, EditPostCancelProtocol) {
    TscTable* t = schema.TableByName("Квартал");
    ASSERT_NE(t, nullptr);
    // Outside an edit: setters and Post refuse.
    EXPECT_EQ(Thrown([&] { t->SetTitle("x"); }), "TscObject.AddModifyProperty: Объект не в режиме редактирования");
    EXPECT_EQ(Thrown([&] { t->Post(); }), "Объект не в режиме редактирования.");

    t->Edit();
    EXPECT_EQ(t->ObjectStatus(), osEdit);
    t->SetTitle("Блок");
    t->SetVisible(false);
    t->ExtendedProperties().SetValueOf("Слой", TcsVariant("кварталы"));
    ASSERT_EQ(t->ModifyProperties().Count(), 2);
    EXPECT_EQ(t->ModifyProperties().FindProperty("Title")->FOldValue.AsString(), "Квартал");
    t->Cancel();
    EXPECT_EQ(t->ObjectStatus(), osNormal);
    EXPECT_EQ(t->Title(), "Квартал");
    EXPECT_TRUE(t->Visible());
    EXPECT_TRUE(t->ExtendedProperties().ValueOf("Слой").IsEmpty()) << "the property added in the edit is gone";
    EXPECT_TRUE(schema.ModifiedObjects().empty());

    // Cancel restores the values of extended properties that were there before.
    TscTable* parcels = schema.TableByName("Участки");
    parcels->Edit();
    parcels->ExtendedProperties().SetValueOf("Цвет", TcsVariant("красный"));
    EXPECT_EQ(parcels->ExtendedProperties().ValueOf("Цвет").AsString(), "красный");
    parcels->Cancel();
    EXPECT_EQ(parcels->ExtendedProperties().ValueOf("Цвет").AsString(), "зелёный");

    t->Edit();
    t->SetTitle("Блок");
    t->Post();
    EXPECT_EQ(t->ObjectStatus(), osNormal);
    EXPECT_TRUE(t->Modified());
    EXPECT_EQ(schema.ModifiedObjects(), std::vector<TscObject*>{t});

    // A new object stays new through Post, until the next save or load.
    auto* added = static_cast<TscTable*>(schema.Tables().GetNewObject());
    added->Edit();
    added->SetBaseName("Новая");
    added->Post();
    EXPECT_EQ(added->ObjectStatus(), osNew);
    EXPECT_TRUE(added->NewObject());
    schema.ClearModifyObjects();
    EXPECT_EQ(added->ObjectStatus(), osNormal);
}

TEST_F(Built, WorkModesDecideWhoMayEdit) {
    TscTable* t = schema.TableByName("Квартал");
    EXPECT_EQ(Thrown([&] { schema.Open(std::unique_ptr<TscCustomProvider>(), false); }),
              "Ошибка открытия схемы. Не назначен провайдер");
    schema.SetWorkMode(wmApplication);
    EXPECT_EQ(Thrown([&] { t->Edit(); }), "Запрещено редактирование объекта.");
    TscTable temporary(&schema, omTemporary);
    temporary.SetObjectStatus(osNormal);
    temporary.Edit();  // temporary objects may always be edited
    temporary.Cancel();
    schema.SetAllowApplicationModify(true);
    t->Edit();
    t->SetTitle("Блок");
    t->Post();
    EXPECT_TRUE(t->Modified());
    EXPECT_TRUE(schema.ModifiedObjects().empty()) << "changes in the application are not entered for saving";
    schema.SetWorkMode(wmProgrammer);
    t->Edit();
    t->Cancel();
}

TEST_F(Built, ListsViewsAndIDs) {
    TscTable* parcels = schema.TableByName("Участки");
    TscObjects& fields = parcels->Fields();
    EXPECT_EQ(fields.Count(), 41) << "the catalogue's columns and the geometry";
    EXPECT_EQ(static_cast<TscField*>(fields.Items(0))->BaseName(), "TableId");
    // A field found by ID through the view only when it is this table's.
    TscField* other = FieldOf(schema, "Точки", "X");
    EXPECT_EQ(fields.ItemsByID(other->ID()), nullptr);
    EXPECT_EQ(schema.Fields().ItemsByID(other->ID()), other);

    // A field is no table: the list names the class it takes.
    const std::string refused = Thrown([&] { schema.Tables().Add(std::make_unique<TscField>(&schema)); });
    EXPECT_NE(refused.find("TscTable"), std::string::npos) << refused;
    // A view of an owner that is not edited refuses new objects.
    EXPECT_NE(Thrown([&] { fields.Add(std::make_unique<TscField>(&schema)); }).find("Объект должен быть в режиме редактирования"),
              std::string::npos);

    // IDs: one more than the largest, never reused after a delete.
    const int64_t top = schema.Tables().GetNewID().AsInteger();
    TscObject* last = schema.Tables().GetNewObject();
    EXPECT_EQ(last->KeyValue().AsInteger(), top + 1);
    schema.Tables().DeleteObject(last);
    EXPECT_EQ(schema.Tables().GetNewObject()->KeyValue().AsInteger(), top + 2);
    EXPECT_EQ(schema.Tables().GetNewID(1).AsString().size(), 38u) << "types 1 and 2 are GUIDs";
    EXPECT_EQ(schema.Tables().GetUniqueBaseName(), "Table1");
    static_cast<TscTable*>(schema.Tables().GetNewObject())->SetBaseName("Table1");
    EXPECT_EQ(schema.Tables().GetUniqueBaseName(), "Table2");
}

TEST_F(Built, DeletingATableTakesWhatDependsOnIt) {
    const int fields = schema.Fields().Count(), indices = schema.Indices().Count(), rights = schema.Rights().Count();
    TscTable* parts = schema.TableByName("ЧастиУчастка");
    const int ownFields = parts->Fields().Count(), ownIndices = parts->Indices().Count();
    // Soft delete: everything moves to the deleted objects of its root list.
    std::vector<TscObject*> related;
    schema.Tables().DeleteObject(parts, false, &related);
    EXPECT_EQ(schema.TableByName("ЧастиУчастка"), nullptr);
    EXPECT_EQ(schema.Fields().Count(), fields - ownFields);
    EXPECT_EQ(schema.Indices().Count(), indices - ownIndices);
    EXPECT_EQ(schema.Relations().Count(), 1) << "the relation to the parts went with its field";
    EXPECT_EQ(schema.Rights().Count(), rights - 1) << "the select right on the table";
    EXPECT_EQ(schema.Tables().DeletedObjectsCount(), 1);
    EXPECT_EQ(schema.Fields().DeletedObjectsCount(), ownFields);
    EXPECT_EQ(related.size(), static_cast<size_t>(ownFields + ownIndices + 2));
    EXPECT_TRUE(schema.Tables().DeletedObjects()[0]->Deleted());

    // Real mode: gone at once.
    TscTable* points = schema.TableByName("Точки");
    const int pointFields = points->Fields().Count();
    schema.Tables().DeleteObject(points, true);
    EXPECT_EQ(schema.Fields().Count(), fields - ownFields - pointFields);
    EXPECT_EQ(schema.Relations().Count(), 0);
    EXPECT_EQ(schema.Tables().DeletedObjectsCount(), 1);
    EXPECT_TRUE(schema.CheckAll().empty());
}

TEST_F(Built, ChecksBeforeSaving) {
    EXPECT_TRUE(schema.CheckAll().empty());
    auto* twin = static_cast<TscTable*>(schema.Tables().GetNewObject());
    twin->SetBaseName("участки");  // names compare without case
    auto* orphan = static_cast<TscField*>(schema.Fields().GetNewObject());
    orphan->SetBaseName("Сирота");
    orphan->SetTableID(TcsVariant(int64_t{9999}));
    TscTable* block = schema.TableByName("Квартал");
    block->Edit();
    static_cast<TscField*>(block->Fields().GetNewObject())->SetBaseName("tableid");
    auto* index = static_cast<TscIndex*>(block->Indices().GetNewObject());
    index->SetBaseName("IX_x");
    index->AddIndexField(TcsVariant(int64_t{7777}));
    block->Post();
    auto* dangling = static_cast<TscRelation*>(schema.Relations().GetNewObject());
    dangling->SetBaseName("Висячая");
    dangling->SetParentFieldID(FieldOf(schema, "Участки", "TableId")->ID());
    dangling->SetChildFieldID(TcsVariant(int64_t{8888}));
    auto* role = static_cast<TscRole*>(schema.Roles().Items(0));
    role->Edit();
    role->AddRight(rtGrantDelete, rotTable, "Нет такой");
    role->Post();

    const std::vector<std::string> errors = schema.CheckAll();
    const std::string all = [&] {
        std::string s;
        for (const auto& e : errors) s += e + "\n";
        return s;
    }();
    EXPECT_EQ(errors.size(), 8u) << all;  // both sides of each duplicate
    for (const char* expected : {"TscTable участки (", "TscTable Участки (", "TscField Сирота (", "TscField tableid (",
                                 "TscRelation Висячая (", "нет дочернего поля (8888)", "TscIndex IX_x (", "нет поля индекса (7777)",
                                 "право на несуществующий объект \"Нет такой\""})
        EXPECT_NE(all.find(expected), std::string::npos) << expected << "\n" << all;
}

TEST_F(Built, RightsAreTheUnionOfTheUsersRoles) {
    auto* user = static_cast<TscUser*>(schema.Users().Items(0));
    TscRightsCache cache(schema, *user);
    EXPECT_TRUE(cache.Full(rtGrantSelect, "Участки")) << "select on the table holds for every field";
    EXPECT_TRUE(cache.Part(rtGrantUpdate, "Участки")) << "update on two of the fields";
    EXPECT_FALSE(cache.Full(rtGrantUpdate, "Участки"));
    EXPECT_TRUE(cache.Can(rtGrantUpdate, "Участки.Площадь1"));
    EXPECT_FALSE(cache.Can(rtGrantUpdate, "Участки.TableId"));
    EXPECT_FALSE(cache.Can(rtGrantDelete, "Участки"));
    EXPECT_EQ(FieldOf(schema, "Участки", "Площадь1")->ObjectFullName(), "Участки.Площадь1");

    // A second role of the user adds delete on the parcels.
    auto* editor = static_cast<TscRole*>(schema.Roles().GetNewObject());
    editor->SetBaseName("Редактор");
    editor->AddRight(rtGrantDelete, rotTable, "Участки");
    auto* link = static_cast<TscUsersRolesLink*>(schema.UsersRolesLinks().GetNewObject());
    link->SetUserID(user->ID());
    link->SetRoleID(editor->ID());
    cache.Refresh();
    EXPECT_TRUE(cache.Can(rtGrantDelete, "Участки"));
    EXPECT_TRUE(cache.Can(rtGrantSelect, "Квартал"));

    // A table with two fields and the right on one of them: part, not full. Full on all.
    TscSchemaObjectRightLink link2("T", {"a", "b"});
    link2.IncludeRight(rtGrantInsert, "a");
    EXPECT_TRUE(link2.GetPartSubObjectRightState(rtGrantInsert));
    EXPECT_FALSE(link2.GetFullSubObjectRightState(rtGrantInsert));
    link2.IncludeFullRight(rtGrantInsert);
    EXPECT_TRUE(link2.GetFullSubObjectRightState(rtGrantInsert));
    EXPECT_FALSE(link2.GetPartSubObjectRightState(rtGrantInsert));
    link2.ExcludeRight(rtGrantInsert);
    EXPECT_FALSE(link2.GetHasSubObjectRight(rtGrantInsert));

    // Written back: one right per set member.
    TscSchemaObjectRightLinks links(schema);
    links.RefreshRigths({editor});
    links.GetItemsByObject("Квартал")->IncludeRight(rtGrantUpdate, "iBlock");
    links.SetItemsByObject(*editor);
    EXPECT_EQ(editor->Rights().Count(), 2);
}
