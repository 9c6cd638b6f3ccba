// The cadastre processes over hand-written fixtures: the formula language (its forms and what
// it refuses), and the new-format plan converted into SQLite.
#include <gtest/gtest.h>

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

// Converts the plan with some kinds left out; the failure's text, empty when done.
std::string ConvertPlan(const std::string& aDatabase, uint32_t aExclude = 0) {
    auto m = NewManager(kPlan, aDatabase);
    m->UpdateInfo(true);
    auto* process = dynamic_cast<TcsRosReestrKadPlNew*>(m->ActiveProcess());
    if (!process) return "not the plan's process";
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
