// The schema file: the built schema saved byte for byte as the fixture, loaded back property
// for property, first-version files, and files that are not schemas.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "scXMLProvider.h"
#include "schema_fixture.h"

using namespace tmi;
using namespace tmi::test;
namespace fs = std::filesystem;

namespace {

const fs::path kFixtures = fs::path(TM_FIXTURES) / "schema";

std::unique_ptr<TscXMLProvider> ProviderFor(TscSchema& aSchema, const fs::path& aFile) {
    auto p = std::make_unique<TscXMLProvider>(&aSchema);
    p->SetConnectionString("FileName=" + aFile.string());
    return p;
}

}  // namespace

TEST(SchemaXML, ProviderNamesAndRegistration) {
    TscSchema s;
    TscXMLProvider p(&s);
    EXPECT_EQ(p.GetProviderName(), "scXMLProvider");
    EXPECT_EQ(p.GetVisibleProviderName(), "XML файл (структура схемы)");
    EXPECT_EQ(p.GetProviderFileExt(), "xml");
    EXPECT_EQ(p.GetProviderFileExtFilter(), "Файлы схемы|*.xml");
    RegisterXMLProvider();
    ASSERT_NE(ProviderManager().Find("scXMLProvider"), nullptr);
    EXPECT_NE(std::find(ProviderManager().Log.begin(), ProviderManager().Log.end(), "Зарегестрирован провайдер: scXMLProvider"),
              ProviderManager().Log.end());
}

TEST(SchemaXML, BuiltSchemaIsTheFixtureByteForByteAndLoadsBackWhole) {
    TempFolder tmp;
    const fs::path file = tmp.path / "out.xml";
    TscSchema built;
    built.Open(ProviderFor(built, file), false);
    test::BuildOutputTables(built);
    built.Save();
    const fs::path fixture = kFixtures / "output-tables.xml";
    if (std::getenv("TM_UPDATE_FIXTURES")) fs::copy_file(file, fixture, fs::copy_options::overwrite_existing);
    const std::string bytes = ReadAll(file);
    EXPECT_EQ(bytes, ReadAll(fixture)) << "saved schema differs from " << fixture;
    // The file is cp1251; what the code page lacks is a character reference.
    EXPECT_NE(bytes.find("encoding=\"cp1251\""), std::string::npos);
    EXPECT_NE(bytes.find("&#8776;"), std::string::npos) << "≈ is not in cp1251";
    EXPECT_NE(bytes.find("\xD3\xF7\xE0\xF1\xF2\xEA\xE8"), std::string::npos) << "Участки in cp1251";
    EXPECT_NE(bytes.find("<!--Source version schema class: 0.7-->"), std::string::npos);
    EXPECT_NE(bytes.find("type=\"primary\""), std::string::npos);
    EXPECT_NE(bytes.find("type=\"spatial\""), std::string::npos);
    EXPECT_NE(bytes.find("Allownull=\"False\""), std::string::npos) << "a false Boolean is written";
    EXPECT_EQ(bytes.find("<Providers"), std::string::npos) << "providers are no schema objects";

    TscSchema loaded;
    loaded.Open(ProviderFor(loaded, fixture), true);
    ASSERT_TRUE(loaded.Loaded());
    EXPECT_EQ(Dump(loaded), Dump(built));
    EXPECT_EQ(loaded.TableByName("Участки")->Glyph(), std::string("\x89PNG\r\n\x1a\n\0\x01\xff", 11));
    EXPECT_EQ(loaded.TableByName("Участки")->Fields().Count(), 41);
    // The debug log of the load, list by list.
    std::vector<std::string> debug;
    for (const auto& e : loaded.Debug().Items()) debug.push_back(e.Text);
    EXPECT_NE(std::find(debug.begin(), debug.end(), "Загрузка TscTables"), debug.end());
    EXPECT_NE(std::find(debug.begin(), debug.end(), "Нет обработчика загрузки для TscProviders"), debug.end());
    EXPECT_EQ(debug.back().rfind("Общее время ", 0), 0u);
}

TEST(SchemaXML, SaveReplacesTheFileOnlyWhenChecksPass) {
    TempFolder tmp;
    const fs::path file = tmp.path / "s.xml";
    fs::copy_file(kFixtures / "output-tables.xml", file);
    TscSchema s;
    s.Open(ProviderFor(s, file), true);
    // Duplicate names and dangling relations load, but no save passes.
    TscTable* block = s.TableByName("Квартал");
    block->Edit();
    auto* twin = static_cast<TscField*>(block->Fields().GetNewObject());
    twin->SetBaseName("TABLEID");
    block->Post();
    auto* r = static_cast<TscRelation*>(s.Relations().GetNewObject());
    r->SetBaseName("x");
    try {
        s.Save();
        FAIL() << "saved";
    } catch (const EscCheckSaveException& e) {
        const std::string text = e.what();
        EXPECT_EQ(text.rfind("Проверьте ошибки схемы перед сохранением.\n", 0), 0u);
        EXPECT_NE(text.find("TscField TABLEID"), std::string::npos);
        EXPECT_NE(text.find("TscRelation x"), std::string::npos);
    }
    EXPECT_EQ(ReadAll(file), ReadAll(kFixtures / "output-tables.xml"));
    s.Fields().DeleteObject(twin);
    s.Relations().DeleteObject(r);
    s.Save();
    EXPECT_EQ(ReadAll(file), ReadAll(kFixtures / "output-tables.xml"));
    EXPECT_EQ(std::distance(fs::directory_iterator(tmp.path), fs::directory_iterator()), 1) << "no temporary file left";
}

TEST(SchemaXML, FirstVersionFileLoadsAndSavesInTheCurrentLayout) {
    TscSchema s;
    s.Open(ProviderFor(s, kFixtures / "first-version.xml"), true);
    ASSERT_TRUE(s.Loaded());
    EXPECT_TRUE(static_cast<TscXMLProvider*>(s.Provider())->FirstVersion());
    TscTable* parcels = s.TableByName("Parcels");
    ASSERT_NE(parcels, nullptr);
    EXPECT_EQ(parcels->Title(), "Участки") << "Name is read as Title";
    EXPECT_EQ(parcels->Remarka(), "земельные участки");
    EXPECT_EQ(parcels->AspectID().AsInteger(), 2);
    ASSERT_EQ(parcels->Fields().Count(), 2);
    auto* number = parcels->FieldByName("CadNum");
    EXPECT_EQ(number->Title(), "Номер");
    EXPECT_EQ(number->FieldModeID().AsInteger(), 3);
    EXPECT_EQ(number->Length(), 50);
    ASSERT_EQ(parcels->Indices().Count(), 1);
    auto* key = static_cast<TscIndex*>(parcels->Indices().Items(0));
    EXPECT_EQ(key->IndexType(), itPrimary) << "\" Primary \" in a first-version file";
    EXPECT_EQ(key->IndexFieldsString(), "TableId");
    // Two outer tables of one unknown source: one source, made once.
    ASSERT_EQ(s.OuterDataSources().Count(), 1);
    EXPECT_EQ(static_cast<TscOuterDataSource*>(s.OuterDataSources().Items(0))->BaseName(), "GISDB");
    EXPECT_TRUE(s.TableByName("Roads")->Outer());
    EXPECT_EQ(s.TableByName("Rivers")->OuterSource(), s.OuterDataSources().Items(0));
    auto* mode = static_cast<TscFieldMode*>(s.FieldModes().Items(0));
    EXPECT_EQ(mode->BaseName(), "kn");
    EXPECT_EQ(mode->Title(), "Кадастровый номер");
    EXPECT_EQ(mode->Represent(), rpUchastokTextKN);
    auto* relation = static_cast<TscRelation*>(s.Relations().Items(0));
    EXPECT_EQ(relation->Title(), "Дорога участка");
    EXPECT_EQ(relation->ParentFieldID().AsInteger(), 10);
    EXPECT_EQ(relation->ChildFieldID().AsInteger(), 12);
    EXPECT_TRUE(s.CheckAll().empty());

    // Saved, it is the current layout, and gives the same objects again.
    TempFolder tmp;
    const fs::path out = tmp.path / "upgraded.xml";
    auto provider = ProviderFor(s, out);
    provider->Open();
    s.Save(*provider);
    const std::string text = ReadAll(out);
    EXPECT_EQ(text.find(" Name="), std::string::npos);
    EXPECT_NE(text.find("<fields>"), std::string::npos);
    EXPECT_NE(text.find("<Indices>"), std::string::npos);
    TscSchema again;
    again.Open(ProviderFor(again, out), true);
    EXPECT_FALSE(static_cast<TscXMLProvider*>(again.Provider())->FirstVersion());
    EXPECT_EQ(Dump(again), Dump(s));
}

TEST(SchemaXML, LooseValuesFallBackToDefaults) {
    TempFolder tmp;
    const fs::path file = tmp.path / "loose.xml";
    WriteAll(file,
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<schema><tables>"
             "<Table ID=\"{6F9619FF-8B86-D011-B42D-00C04FC964FF}\" BaseName=\"T\" Visible=\"TRUE\" Logged=\"nonsense\" "
             "TableType=\"ttNoSuch\" Colour=\"red\"/>"
             "<table ID=\"7\" BaseName=\"U\" Graphical=\"1\"/><Other ID=\"9\"/></tables>"
             "<fields><Field ID=\"1\" BaseName=\"f\" TableID=\"7\" Length=\"long\" Precision=\"4.5\"/></fields>"
             "</schema>");
    TscSchema s;
    s.Open(ProviderFor(s, file), true);
    ASSERT_TRUE(s.Loaded());
    ASSERT_EQ(s.Tables().Count(), 2) << "element names compare without case; others are skipped";
    auto* t = s.TableByName("T");
    EXPECT_EQ(t->ID().Type(), TcsVarType::String) << "a GUID ID stays text";
    EXPECT_TRUE(t->Visible());
    EXPECT_FALSE(t->Logged());
    EXPECT_EQ(t->TableType(), ttUnknown);
    EXPECT_EQ(s.TableByName("U")->ID().Type(), TcsVarType::Integer);
    EXPECT_TRUE(s.TableByName("U")->Graphical());
    auto* f = static_cast<TscField*>(s.Fields().Items(0));
    EXPECT_EQ(f->Length(), 0);
    EXPECT_EQ(f->Precision(), 0);
    EXPECT_EQ(f->Table(), s.TableByName("U"));
}

TEST(SchemaXML, FilesThatAreNotSchemasRaiseAndChangeNothing) {
    TempFolder tmp;
    std::string deep;
    for (int i = 0; i < 5000; ++i) deep += "<a>";
    const std::pair<const char*, std::string> cases[] = {
        {"truncated", ReadAll(kFixtures / "output-tables.xml").substr(0, 3000)},
        {"binary", std::string("\x00\x01\x02\xff\xfe<schema>\x00", 12)},
        {"deep", "<schema>" + deep},
        {"other root", "<?xml version=\"1.0\"?>\n<tables/>"},
        {"empty", ""},
    };
    for (const auto& [what, text] : cases) {
        const fs::path file = tmp.path / (std::string(what) + ".xml");
        WriteAll(file, text);
        TscSchema s;
        std::string message;
        try {
            s.Open(ProviderFor(s, file), true);
        } catch (const EscSchemaException& e) {
            message = e.what();
        }
        EXPECT_NE(message.find(file.string()), std::string::npos) << what << ": " << message;
        EXPECT_NE(message.find("строка"), std::string::npos) << what << ": " << message;
        EXPECT_EQ(ReadAll(file), text) << what;
        // The schema stays empty and usable.
        EXPECT_EQ(s.Tables().Count(), 0);
        static_cast<TscTable*>(s.Tables().GetNewObject())->SetBaseName("T");
        auto other = ProviderFor(s, tmp.path / (std::string(what) + "-saved.xml"));
        other->Open();
        s.Save(*other);
        EXPECT_TRUE(fs::exists(tmp.path / (std::string(what) + "-saved.xml")));
    }
}

TEST(SchemaXML, InputsTheFuzzerOnceBrokeOnLoadOrFailCleanly) {
    const fs::path folder = fs::path(TM_FIXTURES) / "fuzz";
    TempFolder tmp;
    int seen = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().rfind("schema-", 0) != 0) continue;
        ++seen;
        TscSchema s;
        try {
            s.Open(ProviderFor(s, entry.path()), true);
            if (s.CheckAll().empty()) {
                auto out = ProviderFor(s, tmp.path / "out.xml");
                out->Open();
                s.Save(*out);
            }
        } catch (const EscSchemaException&) {
        }
    }
    SUCCEED() << seen << " inputs";
}

TEST(SchemaXML, FailedLoadGoesToTheOperator) {
    // A provider whose tables cannot be read: the schema is cleared, nothing is raised.
    struct Broken : TscXMLProvider {
        using TscXMLProvider::TscXMLProvider;
        void DoAfterLoad() override { throw EscSchemaException("нет доступа"); }
    };
    std::vector<std::string> shown;
    TcsModalMessage saved = ModalMessageHandler();
    ModalMessageHandler() = [&shown](const std::string& aText) { shown.push_back(aText); };
    TscSchema s;
    auto p = std::make_unique<Broken>(&s);
    p->SetConnectionString("FileName=" + (kFixtures / "output-tables.xml").string());
    s.Open(std::move(p), true);
    ModalMessageHandler() = saved;
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0], "Ошибка загрузки схемы: нет доступа");
    EXPECT_FALSE(s.Loaded());
    EXPECT_EQ(s.Tables().Count(), 0);
}

TEST(SchemaXML, CoordinateSystemsAreWrittenUnderOtherNamesThanTheyAreReadBy) {
    TempFolder tmp;
    const fs::path file = tmp.path / "cs.xml";
    TscSchema built;
    built.Open(ProviderFor(built, file), false);
    test::BuildOutputTables(built);
    test::SetLocalCoordSystem(built);
    built.Save();
    const std::string bytes = ReadAll(file);
    for (const char* written : {"<MapinfoCoordsystems>", "<WKTCordsystems>", "<CordsystemSets>", "<CordsystemSet ",
                                "<CoordSystems MapinfoSupport=\"True\" GeomediaSupport=\"False\">"})
        EXPECT_NE(bytes.find(written), std::string::npos) << written;

    TscSchema loaded;
    loaded.Open(ProviderFor(loaded, file), true);
    ASSERT_TRUE(loaded.Loaded());
    TscCoordSystems& systems = loaded.CoordSystems();
    EXPECT_TRUE(systems.MapinfoSupport());
    EXPECT_EQ(systems.Count(), 8) << "the links come back";
    EXPECT_EQ(systems.WKTCoordSystems().Count() + systems.MapinfoCoordSystems().Count() + systems.CoordSysSet().Count(), 0)
        << "the systems and sets do not";
    // So the links point to no set, and the schema no longer passes its checks.
    const std::vector<std::string> errors = loaded.CheckAll();
    ASSERT_EQ(errors.size(), 8u);
    EXPECT_EQ(errors[0], "Поле Участки.Geometry: не задана система координат");
    EXPECT_EQ(systems.DefaultWKT().rfind("GEOGCS[\"Pulkovo 1942 (Mapinfo Datum)\"", 0), 0u);

    // A file written with the reading names is read whole.
    std::string renamed = bytes;
    for (auto [from, to] : {std::pair{"MapinfoCoordsystems>", "MapinfoCoordSystems>"}, std::pair{"WKTCordsystems>", "WKTCoordSystems>"},
                            std::pair{"CordsystemSets>", "CoordSystemSets>"}})
        for (size_t at = renamed.find(from); at != std::string::npos; at = renamed.find(from, at + 1))
            renamed.replace(at, std::string_view(from).size(), to);
    WriteAll(file, renamed);
    TscSchema again;
    again.Open(ProviderFor(again, file), true);
    EXPECT_EQ(again.CoordSystems().CoordSysSet().Count(), 1);
    EXPECT_EQ(again.CoordSystems().MapinfoCoordSystems().Count(), 1);
    EXPECT_NE(again.CoordSystems().DefaultWKT().find("Transverse_Mercator"), std::string::npos);
    EXPECT_TRUE(again.CheckAll().empty());
}

TEST(SchemaXML, FileNameTakesThePrefix) {
    TempFolder tmp;
    TscSchema s;
    s.SetPrefixName("district");
    s.Open("scXMLProvider;FileName=\"" + (tmp.path / "%s.xml").string() + "\"", false);
    static_cast<TscTable*>(s.Tables().GetNewObject())->SetBaseName("T");
    s.Save();
    EXPECT_TRUE(fs::exists(tmp.path / "district.xml"));
}

TEST(SchemaXML, CommandLine) {
    TempFolder tmp;
    const std::string tool = TM_TMSCHEMA;
    const std::string out = (tmp.path / "out.txt").string();
    ASSERT_EQ(std::system((tool + " check " + (kFixtures / "output-tables.xml").string() + " > " + out).c_str()), 0);
    const std::string listing = ReadAll(out);
    EXPECT_NE(listing.find("Tables: 13"), std::string::npos) << listing;
    EXPECT_NE(listing.find("Relations: 2"), std::string::npos) << listing;
    const fs::path copy = tmp.path / "copy.xml";
    ASSERT_EQ(std::system((tool + " copy " + (kFixtures / "first-version.xml").string() + " " + copy.string()).c_str()), 0);
    EXPECT_EQ(ReadAll(copy).find(" Name="), std::string::npos);
    // A schema that does not pass its checks: every error, exit 1.
    const fs::path bad = tmp.path / "bad.xml";
    WriteAll(bad, "<schema><tables><Table ID=\"1\" BaseName=\"A\"/><Table ID=\"2\" BaseName=\"a\"/></tables></schema>");
    EXPECT_EQ(WEXITSTATUS(std::system((tool + " check " + bad.string() + " > " + out + " 2>&1").c_str())), 1);
    EXPECT_NE(ReadAll(out).find("TscTable a (2)"), std::string::npos) << ReadAll(out);
    EXPECT_EQ(WEXITSTATUS(std::system((tool + " check " + (tmp.path / "bad").string() + ".txt 2>/dev/null").c_str())), 2)
        << "a missing file is no schema";
}
