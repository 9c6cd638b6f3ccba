// The cadastre processes over hand-written fixtures: the formula language (its forms and what
// it refuses), and the new-format plan converted into SQLite.
#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <map>
#include <string>

#include "csRosreestrXMLCadastr.h"
#include "csRosreestrXMLFormula.h"
#include "csUniversalRegistration.h"
#include "universal_test_util.h"

using namespace tmi;
using namespace tmi::test;

namespace {

// Decodes by a table of path -> code -> text, and notes which paths it was asked about.
class TTableDecoder : public TcsFormulaDecoder {
public:
    std::map<std::string, std::map<std::string, std::string>> Codes;
    std::vector<std::string> Asked;
    std::string Decode(std::string_view aRelative, std::string aValue) override {
        Asked.emplace_back(aRelative);
        auto path = Codes.find(std::string(aRelative));
        if (path == Codes.end()) return aValue;
        auto code = path->second.find(aValue);
        return code == path->second.end() ? aValue : code->second;
    }
};

struct Record {
    xml::TXMLDocument Doc;
    explicit Record(const std::string& aText) { EXPECT_TRUE(Doc.LoadFromText(std::string(aText))); }
    [[nodiscard]] xml::PXMLNode Node() const { return Doc.DocumentElement(); }
};

std::string Eval(const std::string& aFormula, const Record& aRecord, TcsFormulaDecoder& aDecoder,
                 std::vector<std::string>* aMore = nullptr) {
    return TcsFormula::Parse(aFormula).Evaluate(aRecord.Node(), aDecoder, aMore);
}

const char kRecord[] =
    "<land_record State='01'>"
    "<object><common_data><cad_number>1:2:3:4</cad_number><type><value>Участок</value></type></common_data>"
    "<subtype><value></value></subtype></object>"
    "<params><category><type><code>003002000000</code></type></category></params>"
    "<rights><right><name>Собственность</name></right><right><name></name></right><right><name>Аренда</name></right></rights>"
    "<empty/>"
    "</land_record>";

}  // namespace

// ---------------------------------------------------------------------------------------------
// The formula language

TEST(Formula, EachFormEvaluatesAsItsFirstCharacterSays) {
    const Record r(kRecord);
    TTableDecoder d;
    d.Codes["params/category/type/code"] = {{"003002000000", "Земли населенных пунктов"}};
    d.Codes["@State"] = {{"01", "Учтённый"}};
    EXPECT_EQ(Eval("=Здание", r, d), "Здание");
    EXPECT_EQ(Eval("=a|b&c", r, d), "a|b&c") << "a constant is the whole rest";
    EXPECT_EQ(Eval("object/common_data/cad_number", r, d), "1:2:3:4");
    EXPECT_EQ(Eval("params/category/type/code", r, d), "Земли населенных пунктов") << "codes arrive as their text";
    EXPECT_EQ(Eval("@State", r, d), "Учтённый");
    EXPECT_EQ(Eval("object/missing", r, d), "");
    EXPECT_EQ(Eval("object/@missing", r, d), "");
    // Alternatives: the first that is not empty, decoded by its own path.
    EXPECT_EQ(Eval("object/subtype/value|params/category/type/code", r, d), "Земли населенных пунктов");
    EXPECT_EQ(Eval("object/nothing|=нет", r, d), "нет");
    // Concatenation keeps its separators when one side is empty, and is empty when no path found anything.
    EXPECT_EQ(Eval("object/subtype/value&=, &object/common_data/type/value", r, d), ", Участок");
    EXPECT_EQ(Eval("object/common_data/cad_number&= (&@State&=)", r, d), "1:2:3:4 (Учтённый)");
    EXPECT_EQ(Eval("object/a&= &object/b", r, d), "");
    // "+": the children's values joined; the child's path is looked up below the list's.
    d.Asked.clear();
    EXPECT_EQ(Eval("+rights+name", r, d), "Собственность, Аренда");
    EXPECT_EQ(d.Asked.front(), "rights/right/name");
    EXPECT_EQ(Eval("+nowhere+name", r, d), "");
    EXPECT_EQ(Eval("+empty+name", r, d), "");
    // "*": each child's value is a further value, none joined.
    std::vector<std::string> more{"stale"};
    EXPECT_EQ(Eval("*rights*name", r, d, &more), "");
    EXPECT_EQ(more, (std::vector<std::string>{"Собственность", "Аренда"}));
    EXPECT_EQ(Eval("*rights*name|=без имени", r, d, &more), "");
    EXPECT_EQ(more, (std::vector<std::string>{"Собственность", "без имени", "Аренда"}));
}

TEST(Formula, MalformedFormulasRaiseAtLoadNamingFormulaSlotAndReason) {
    struct Case {
        std::string Formula;
        std::string Reason;
    };
    const Case cases[] = {
        {"", "пустая формула"},
        {"a||b", "пустая часть у «|»"},
        {"a&", "пустая часть у «&»"},
        {"&a", "пустая часть у «&»"},
        {"+path", "нет элемента после пути"},
        {"+path+", "пустой элемент"},
        {"+a+b+c", "вложенная форма «+»"},
        {"+a++b+c", "вложенная форма «+»"},
        {"*a*+b+c", "вложенная форма «*»"},
        {"+a+=const", "элемент «+» может быть только путём"},
        {"count(a)", "функция «count» не поддерживается"},
        {"a[position()=1]", "условие в пути"},
        {"a[1", "незакрытая «[»"},
        {"a//b", "пустой шаг пути"},
        {"/a", "пустой шаг пути"},
        {"a/@b/c", "атрибут не в конце пути"},
        {"a b", "недопустимый символ « »"},
        {"a|b&c", "форма «&» внутри «|»"},
        {std::string("a\0b", 3), "нулевой байт"},
        {"a\xff" "b", "неверная последовательность UTF-8"},
        {"a\xd0", "неверная последовательность UTF-8"},
    };
    for (const Case& c : cases) {
        TcsFormulaTable table;
        try {
            table.Add(7, c.Formula);
            ADD_FAILURE() << "accepted: " << c.Formula;
        } catch (const EcsFormulaError& e) {
            const std::string m = e.what();
            EXPECT_NE(m.find("слот 7"), std::string::npos) << m;
            EXPECT_NE(m.find(c.Reason), std::string::npos) << c.Formula << " -> " << m;
            EXPECT_NE(m.find("«" + FormulaForMessage(c.Formula) + "»"), std::string::npos) << m;
        }
    }
    // Broken bytes are shown, not passed on.
    EXPECT_EQ(FormulaForMessage(std::string("a\0\xff", 3)), "a\\x00\\xFF");
    // A hundred thousand parts: refused quickly, the message cut short.
    std::string huge = "a";
    for (int i = 0; i < 100000; ++i) huge += "&b";
    try {
        TcsFormulaTable("land_record", std::vector<const char*>{nullptr, huge.c_str()});
        ADD_FAILURE() << "accepted 10^5 parts";
    } catch (const EcsFormulaError& e) {
        const std::string m = e.what();
        EXPECT_NE(m.find("таблица land_record, слот 1"), std::string::npos) << m.substr(0, 200);
        EXPECT_NE(m.find("слишком много частей"), std::string::npos);
        EXPECT_LT(m.size(), 400u);
    }
}

TEST(Formula, EveryTableOfTheProcessParses) {
    const TcsCadastrTables& t = CadastrTablesNew();
    EXPECT_EQ(t.Parcel.Slots().size(), 18u);
    EXPECT_EQ(t.Parcel.Slots().front().Slot, 0);
    EXPECT_EQ(t.Parcel.Slots().back().Slot, 21);
    for (const TcsFormulaTable* b : {&t.Build, &t.Construction, &t.UnderConstruction}) EXPECT_LE(b->Slots().back().Slot, 48);
    EXPECT_EQ(t.Build.Slots().back().Slot, 48);
    EXPECT_EQ(t.Zone.Slots().size(), 12u);
    for (const TcsFormulaTable* b : {&t.SubjectBound, &t.Coastline, &t.LocalityBound, &t.MunicipalBound})
        EXPECT_EQ(b->Slots().size(), 6u);
}

// ---------------------------------------------------------------------------------------------
// The new-format plan

namespace {

const std::string kPlan = kFixtures + "kpt11-small.xml";

struct Cadastre {
    Cadastre() { RegisterUniversalClasses(); }
};

// Converts a document with some kinds left out; the failure's text, empty when done.
std::string ConvertPlan(const std::string& aDatabase, uint32_t aExclude = 0, const std::string& aFile = kPlan) {
    auto m = NewManager(aFile, aDatabase);
    m->UpdateInfo(true);
    auto* process = dynamic_cast<TcsRosReestrKad*>(m->ActiveProcess());
    if (!process) return "not a cadastre process";
    process->Config().Exclude = aExclude;
    std::string message;
    if (!m->CheckProcess(message)) return message;
    std::string failure;
    try {
        m->StartProcess(true);
    } catch (const std::exception& e) {
        failure = e.what();
        m->Finished = false;
    }
    m->EndProcess();
    return failure;
}

}  // namespace

TEST(CadastrePlan, TheFullLookFindsTheDocumentsFacts) {
    Cadastre c;
    TempFolder temp;
    auto m = NewManager(kPlan, temp / "plan.sqlite");
    m->UpdateInfo(true);
    ASSERT_NE(dynamic_cast<TcsRosReestrKadPlNew*>(m->ActiveProcess()), nullptr);
    EXPECT_EQ(m->ActiveProcess()->GetTitle(), "Кадастровый план территории вер. 11");
    const TcsXMLInfo& info = m->Analizer().XMLInfo();
    ASSERT_NE(dynamic_cast<const TcsXmlInfoRosReestr*>(&info), nullptr) << "the process chose its info";
    EXPECT_EQ(info.KeyValue("ParselCount"), "2");
    EXPECT_EQ(info.KeyValue("BuildCount"), "1");
    EXPECT_EQ(info.KeyValue("ConstructionCount"), "1");
    EXPECT_EQ(info.KeyValue("Zones_and_territories_recordCount"), "1");
    EXPECT_TRUE(info.HasDateDocument);
    std::map<std::string, std::string> lines(m->InfoString().begin(), m->InfoString().end());
    EXPECT_EQ(lines["Кадастровый номер"], "11:19:0801020") << "the block's number, never a parcel's";
    EXPECT_EQ(lines["Площадь в м2"], "58.29") << "read under the misspelt area_qurter";
    EXPECT_EQ(lines["Система координат в док."], "11.У.025");
    EXPECT_EQ(lines["Версия"], "КУВИ-001/2022-1");
}

TEST(CadastrePlan, RecordsBecomeRowsOfTheirTablesWithTheirBlockAndGeometry) {
    Cadastre c;
    TempFolder temp;
    const std::string db = temp / "plan.sqlite";
    ASSERT_EQ(ConvertPlan(db), "");
    EXPECT_EQ(Rows(db, "SELECT ID, КадастровыйНомер, Площадь FROM QUARTALS"), (std::vector<std::string>{"1|11:19:0801020|58.29"}));
    EXPECT_EQ(Rows(db, "SELECT QUARTALS_ID, КадастровыйНомер, Вид, Категория, Площадь1, КадастроваяСтоимость, ЕИКС, "
                       "Местоположение, GEOMETRY IS NOT NULL FROM PARCELS ORDER BY ID"),
              (std::vector<std::string>{
                  "1|11:19:0801020:1|Землепользование, Земельный участок|Земли населенных пунктов|1063.0|996084.15|рубль|"
                  "г. Сосногорск, ул. Рабочая|1",
                  "1|11:19:0801020:2|NULL|Земли сельскохозяйственного назначения|60.0|NULL|рубль|NULL|0",
              }));
    // A building's area from its base parameter, a construction's from params/area.
    EXPECT_EQ(Rows(db, "SELECT ВидТекст, КадастровыйНомер, Площадь, Назначение FROM OBJECTS ORDER BY ID"),
              (std::vector<std::string>{"Здание|11:19:0801020:50|99.5|Нежилое", "Сооружение|11:19:0801020:51|14.0|Гараж"}));
    EXPECT_EQ(Rows(db, "SELECT УчетныйНомер, ТипГраницы, GEOMETRY IS NULL FROM ZONES"),
              (std::vector<std::string>{"11:00-6.23|Зона с особыми условиями|1"}));
}

TEST(CadastrePlan, TheParcelsRingsKeepTheirHoleAsTheLiveImportReadsThem) {
    Cadastre c;
    TempFolder temp;
    auto m = NewManager(kPlan, temp / "plan.sqlite");
    xml::TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromFile(kPlan));
    xml::PXMLNode record = doc.DocumentElement();
    for (const char* step : {"cadastral_blocks", "cadastral_block", "record_data", "base_data", "land_records", "land_record",
                             "contours_location"})
        record = record->FindChild(step);
    ASSERT_NE(record, nullptr);
    TcsRosReestrKadPlNew process;
    TcsXMLProcessSessionItem item;
    ASSERT_TRUE(process.FillSpatialDataNewContours(item, record, true));
    EXPECT_EQ(item.Geometry().GetWKT(false),
              "MULTIPOLYGON (((200 100, 240 100, 240 130, 200 130, 200 100), (210 110, 220 110, 220 120, 210 110)))");
    TcsXMLProcessSessionItem none;
    EXPECT_FALSE(process.FillSpatialDataNewContours(none, nullptr, true));
    EXPECT_FALSE(none.HasGeometry());
}

TEST(CadastrePlan, AnExcludedKindOpensNoItemAndASecondConversionAddsNoRows) {
    Cadastre c;
    TempFolder temp;
    const std::string db = temp / "plan.sqlite";
    ASSERT_EQ(ConvertPlan(db, reObjects | reZones), "");
    EXPECT_EQ(Rows(db, "SELECT COUNT(*) FROM OBJECTS"), (std::vector<std::string>{"0"}));
    EXPECT_EQ(Rows(db, "SELECT COUNT(*) FROM ZONES"), (std::vector<std::string>{"0"}));
    EXPECT_EQ(Rows(db, "SELECT COUNT(*) FROM PARCELS"), (std::vector<std::string>{"2"}));
    ASSERT_EQ(ConvertPlan(db), "");
    ASSERT_EQ(ConvertPlan(db), "");
    for (const char* table : {"QUARTALS", "PARCELS", "OBJECTS", "ZONES"}) {
        const auto rows = Rows(db, std::string("SELECT COUNT(*), COUNT(DISTINCT ID) FROM ") + table);
        const std::string expected = std::string(table) == "PARCELS" || std::string(table) == "OBJECTS" ? "2|2" : "1|1";
        EXPECT_EQ(rows, (std::vector<std::string>{expected})) << table;
    }
    EXPECT_EQ(Rows(db, "SELECT COUNT(*) FROM XML_ITEMS"), (std::vector<std::string>{"0"})) << "every item found its table";
    // Rows updated by the later conversions are indexed once each.
    EXPECT_EQ(SpatialIndexState(db, "PARCELS", "GEOMETRY"), "1|3|1|1");
    EXPECT_EQ(SpatialIndexChecked(db, "PARCELS", "GEOMETRY"), "1");
}

// A database made for a file has every geometry table's spatial index, enabled, with its
// triggers, holding every row with the bounds of its geometry; a file without records leaves
// them there and empty.
TEST(CadastrePlan, ADatabaseMadeForAFileHasEverySpatialIndex) {
    Cadastre c;
    TempFolder temp;
    const std::string empty = temp / "empty.xml";
    std::ofstream(empty) << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<extract_cadastral_plan_territory>"
                            "<details_statement><group_top_requisites><date_formation>2022-04-05</date_formation>"
                            "</group_top_requisites></details_statement><cadastral_blocks/></extract_cadastral_plan_territory>\n";
    const std::string full = temp / "plan.sqlite", none = temp / "empty.sqlite";
    ASSERT_EQ(ConvertPlan(full), "");
    ASSERT_EQ(ConvertPlan(none, 0, empty), "");
    for (const char* table : {"XML_ITEMS", "PARCELS", "OBJECTS", "ZONES", "OMS_POINTS", "BOUNDS", "PROJECTS"}) {
        const std::string state = SpatialIndexState(full, table, "GEOMETRY");
        EXPECT_EQ(state.substr(0, 4), "1|3|") << table;
        const std::string counts = state.substr(4);
        EXPECT_EQ(counts.substr(0, counts.find('|')), counts.substr(counts.find('|') + 1)) << table << ": every row indexed";
        EXPECT_EQ(SpatialIndexChecked(full, table, "GEOMETRY"), "1") << table;
        EXPECT_EQ(SpatialIndexState(none, table, "GEOMETRY"), "1|3|0|0") << table;
    }
    EXPECT_EQ(SpatialIndexState(full, "PARCELS", "GEOMETRY"), "1|3|1|1");
}

TEST(CadastrePlan, AMissingPlanSchemaIsNamed) {
    Cadastre c;
    TempFolder temp;
    auto m = std::make_unique<TcsConvertManager>();
    m->Intialize(kSchemas, temp.Path.string());
    m->SetFileName(kPlan);
    try {
        m->UpdateInfo(true);
        ADD_FAILURE() << "no schema, and no word of it";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("Файл XSD не найден: " + (temp / "KPT/KPT_v11/extract_cadastral_plan_territory_v01.xsd")),
                  std::string::npos)
            << e.what();
    }
}

// ---------------------------------------------------------------------------------------------
// The classic family

namespace {

const std::string kClassicPlan = kFixtures + "kpt-classic-small.xml";

}  // namespace

TEST(CadastreClassic, TheFullLookCountsRecordsAndReadsTheBlocksAreaInSquareMetres) {
    Cadastre c;
    TempFolder temp;
    auto m = NewManager(kClassicPlan, temp / "plan.sqlite");
    m->UpdateInfo(true);
    ASSERT_NE(dynamic_cast<TcsRosReestrKadPlClassic*>(m->ActiveProcess()), nullptr);
    const TcsXMLInfo& info = m->Analizer().XMLInfo();
    EXPECT_EQ(info.KeyValue("ParselCount"), "4");
    EXPECT_EQ(info.KeyValue("BuildCount"), "1");
    EXPECT_EQ(info.KeyValue("ConstructionCount"), "1");
    EXPECT_EQ(info.KeyValue("Oms_PointCount"), "1");
    EXPECT_EQ(info.KeyValue("Zones_and_territories_recordCount"), "1");
    EXPECT_EQ(info.KeyValue("RIGHT_COUNT"), "2");
    EXPECT_EQ(info.Number, "21/19-1234");
    std::map<std::string, std::string> lines(m->InfoString().begin(), m->InfoString().end());
    EXPECT_EQ(lines["Кадастровый номер"], "21:02:010107");
    EXPECT_EQ(lines["Площадь в м2"], "25000") << "hectares (059) become square metres";
}

TEST(CadastreClassic, RecordsTakeTheNewSlotsAndTheirRingsInBothSpellings) {
    Cadastre c;
    TempFolder temp;
    const std::string db = temp / "plan.sqlite";
    ASSERT_EQ(ConvertPlan(db, 0, kClassicPlan), "");
    EXPECT_EQ(Rows(db, "SELECT ID, КадастровыйНомер, Площадь FROM QUARTALS"), (std::vector<std::string>{"1|21:02:010107|25000.0"}));
    EXPECT_EQ(Rows(db, "SELECT QUARTALS_ID, КадастровыйНомер, СтатусУчастка, Площадь1, ОКАТО, Район, Местоположение, "
                       "РазрИспользованиеДок, КадастроваяСтоимость, ЕИКС, GEOMETRY IS NOT NULL FROM PARCELS ORDER BY ID"),
              (std::vector<std::string>{
                  // Prefixed address parts are found by their local names.
                  "1|21:02:010107:1|01|1200.0|97401|р-н Чебоксарский|у д. Ишлеи|для огородничества|1500.5|рубль|1",
                  "1|21:02:010107:2|NULL|77.0|NULL|NULL|NULL|NULL|NULL|рубль|1",
                  // No spatial element, or one without a ring: no geometry and no error.
                  "1|21:02:010107:3|NULL|5.0|NULL|NULL|NULL|NULL|NULL|рубль|0",
                  "1|21:02:010107:4|NULL|NULL|NULL|NULL|NULL|NULL|NULL|рубль|0",
              }));
    EXPECT_EQ(Rows(db, "SELECT ВидТекст, КадастровыйНомер, Площадь, Назначение FROM OBJECTS ORDER BY ID"),
              (std::vector<std::string>{"Здание|21:02:010107:10|54.3|204002000000", "Сооружение|21:02:010107:11|NULL|Газопровод"}));
    EXPECT_EQ(Rows(db, "SELECT Номер, X, Y, GEOMETRY IS NOT NULL FROM OMS_POINTS"), (std::vector<std::string>{"7|400.5|300.25|1"}));
    EXPECT_EQ(Rows(db, "SELECT УчетныйНомер, Описание, Содержание FROM ZONES"),
              (std::vector<std::string>{"21.02.2.15|Охранная зона газопровода|без согласования"}));
    // Each right a row of its own, a child of its parcel.
    EXPECT_EQ(Rows(db, "SELECT r.УчетныйНомер, r.ВидПрава, p.КадастровыйНомер FROM OBJECT_RIGHTS r JOIN PARCELS p ON p.ID = r.PARENT_ID "
                       "ORDER BY r.ID"),
              (std::vector<std::string>{"21:02:010107:1 №1|Собственность|21:02:010107:1", "21:02:010107:1 №2|Аренда|21:02:010107:1"}));
}

TEST(CadastreClassic, AnExcludedKindIsLeftOutAndASecondConversionAddsNoRows) {
    Cadastre c;
    TempFolder temp;
    const std::string db = temp / "plan.sqlite";
    ASSERT_EQ(ConvertPlan(db, reParcels | rePoints, kClassicPlan), "");
    EXPECT_EQ(Rows(db, "SELECT (SELECT COUNT(*) FROM PARCELS), (SELECT COUNT(*) FROM OMS_POINTS), (SELECT COUNT(*) FROM OBJECTS), "
                       "(SELECT COUNT(*) FROM OBJECT_RIGHTS)"),
              (std::vector<std::string>{"0|0|2|0"}));
    ASSERT_EQ(ConvertPlan(db, 0, kClassicPlan), "");
    ASSERT_EQ(ConvertPlan(db, 0, kClassicPlan), "");
    EXPECT_EQ(Rows(db, "SELECT (SELECT COUNT(*) FROM QUARTALS), (SELECT COUNT(*) FROM PARCELS), (SELECT COUNT(*) FROM OBJECTS), "
                       "(SELECT COUNT(*) FROM ZONES), (SELECT COUNT(*) FROM OMS_POINTS), (SELECT COUNT(*) FROM OBJECT_RIGHTS)"),
              (std::vector<std::string>{"1|4|2|1|1|2"}));
}

TEST(CadastreClassic, RingsInEitherSpellingMakeOneGeometryPerRecord) {
    xml::TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromFile(kClassicPlan));
    xml::PXMLNode parcels = doc.DocumentElement();
    for (const char* step : {"CadastralBlocks", "CadastralBlock", "Parcels"}) parcels = parcels->FindChild(step);
    ASSERT_NE(parcels, nullptr);
    std::vector<std::string> wkt;
    TcsRosReestrKadPlClassic process;
    for (xml::PXMLNode p = parcels->FirstChild(); p; p = p->NextSibling()) {
        if (p->NodeType() != xml::ntElement) continue;
        TcsXMLProcessSessionItem item;
        wkt.push_back(process.FillSpatialDataClassic(item, p) ? item.Geometry().GetWKT(false) : "none");
    }
    EXPECT_EQ(wkt, (std::vector<std::string>{
                       // A ring inside another is its hole.
                       "MULTIPOLYGON (((200 100, 240 100, 240 130, 200 130, 200 100), (210 110, 220 110, 220 120, 210 110)))",
                       // Two contours in the underscored spelling: one geometry of two polygons.
                       "MULTIPOLYGON (((0 0, 10 0, 10 10, 0 0)), ((50 50, 60 50, 60 60, 50 50)))",
                       "none",
                       "none",
                   }));
}

// ---------------------------------------------------------------------------------------------
// PostgreSQL

TEST(CadastrePostgreSQL, HoldsTheSameRowsAsSQLite) {
    const char* socket = SuitePgSocket();
    if (!socket) GTEST_SKIP() << "no PostgreSQL server for the suite (TM_PG_SOCKET)";
    Cadastre c;
    TempFolder temp;
    const std::string name = "tmcadastre_" + std::to_string(::getpid());
    const std::string url = "postgresql://tm@/" + name + "?host=" + socket;
    const std::string sqlite = temp / "plan.sqlite";
    for (const std::string& file : {kPlan, kClassicPlan}) {
        ASSERT_EQ(ConvertPlan(sqlite, 0, file), "") << file;
        ASSERT_EQ(ConvertPlan(url, 0, file), "") << file;
    }
    // The columns of each table as text both engines print alike: numbers to two places,
    // geometry as whether there is one.
    struct TTable {
        const char* Name;
        std::vector<std::string> Texts, Numbers;
        bool Geometry = true;
    };
    const TTable tables[] = {
        {"QUARTALS", {"ID", "КадастровыйНомер"}, {"Площадь"}, false},
        {"PARCELS", {"ID", "QUARTALS_ID", "КадастровыйНомер", "Категория", "Вид"}, {"Площадь1", "КадастроваяСтоимость"}},
        {"OBJECTS", {"ID", "QUARTALS_ID", "КадастровыйНомер", "ВидТекст", "Назначение"}, {"Площадь"}},
        {"ZONES", {"ID", "УчетныйНомер", "Описание"}, {}},
        {"OMS_POINTS", {"ID", "Номер"}, {"X", "Y"}},
        {"OBJECT_RIGHTS", {"ID", "PARENT_ID", "УчетныйНомер", "ВидПрава"}, {}, false},
    };
    auto query = [](const TTable& aTable, bool aPostgres) {
        std::string sql = "SELECT ";
        for (const std::string& t : aTable.Texts) sql += "COALESCE(CAST(\"" + t + "\" AS TEXT), '-') || '|' || ";
        for (const std::string& n : aTable.Numbers)
            sql += aPostgres ? "COALESCE(CAST(ROUND(CAST(\"" + n + "\" AS NUMERIC), 2) AS TEXT), '-') || '|' || "
                             : "CASE WHEN \"" + n + "\" IS NULL THEN '-' ELSE PRINTF('%.2f', \"" + n + "\") END || '|' || ";
        sql += aTable.Geometry ? "CASE WHEN \"GEOMETRY\" IS NULL THEN '0' ELSE '1' END" : "'-'";
        return sql + " FROM \"" + aTable.Name + "\" ORDER BY \"ID\"";
    };
    for (const TTable& t : tables) {
        const std::vector<std::string> lite = Rows(sqlite, query(t, false));
        const std::string pg = Psql(socket, name, temp.Path, query(t, true));
        std::string expected;
        for (const std::string& row : lite) expected += row + "\n";
        EXPECT_FALSE(lite.empty()) << t.Name;
        EXPECT_EQ(pg, expected) << t.Name;
    }
    DropPgDatabase(socket, name);
}
