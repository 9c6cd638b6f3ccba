// The classic plan reader over a hand-written plan: levels, the certificate after the blocks,
// the block row, survey points, parcels with their details, parts, neighbours and numbers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "code_pages.h"
#include "libImportXML.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

class ClassicPlan : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        fOut = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_classic");
        fs::remove_all(fOut);
        fs::create_directories(fOut);
        setenv("XDG_DOCUMENTS_DIR", fOut.c_str(), 1);
        TlibImportXML job;
        job.fXMLName = std::string(TM_FIXTURES) + "/import/classic_plan.xml";
        job.fOutputFile = fOut.string() + "/";
        job.XSDPath = std::string(TM_FIXTURES) + "/xsd";
        job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (1000,1000)";
        job.fPoints = 1;
        job.fWriteObj = true;
        ASSERT_TRUE(job.Execute());
        fCodeType = job.fCode_Type;
        job.Clear();
        unsetenv("XDG_DOCUMENTS_DIR");
    }
    static void TearDownTestSuite() { fs::remove_all(fOut); }

    static std::vector<std::string> Rows(const std::string& aTable, const char* aExtension = ".mid") {
        std::ifstream in(fOut / (aTable + aExtension), std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        std::string utf8;
        xml::AppendWindows1251AsUTF8(s.str().data(), s.str().size(), utf8);
        std::vector<std::string> rows;
        size_t start = 0;
        for (size_t at = utf8.find("\r\n"); at != std::string::npos; at = utf8.find("\r\n", start)) {
            rows.push_back(utf8.substr(start, at - start));
            start = at + 2;
        }
        return rows;
    }

    static inline fs::path fOut;
    static inline int32_t fCodeType = 0;
};

}  // namespace

TEST_F(ClassicPlan, ParcelsWithTheirDetails) {
    EXPECT_EQ(fCodeType, 101);
    const auto rows = Rows("Участки");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0],
              "1,\"77:01:0001001\",\"77:01:0001001:1\",\"\",\"\",1,\"\",\"Учтенный\",\"12.04.2005\",\"01.03.2015\",2,"
              "\"Земли населенных пунктов\",\"Под магазин\",\"\",\"\","
              "\"Тверской р-н, г Москва, ул Примерная, д  1, дом у реки\",\"45286\",\"7700\",\"ООО ''Ромашка''\",\"\",1200,"
              "\"КП-1\",\"Администрация\",\"\",\"05.03.2012\",1000.5,\"Рубль\",\"\",\"Собственность 77-01/1 от 01.05.2006\","
              "\"Аренда022006000000\",\"Особые отметки\",\"\",\"\",\"\",\"04.03.2012\",\"КП-1\",\"77:01:0001001\","
              "\"77:01:0001001:1\",\"\",0");
    // Numbered by its definition; what its elements do not say is kept from the parcel before,
    // and a payment of kind 16010 is the cadastral cost.
    EXPECT_EQ(rows[1],
              "2,\"77:01:0001001\",\"ЗУ1\",\"\",\"\",0,\"\",\"Ранее учтенный\",\"\",\"\",2,\"Земли населенных пунктов\","
              "\"Под магазин\",\"\",\"\",\"Тверской р-н, г Москва, ул Примерная, д  1, дом у реки\",\"45286\",\"7700\",\"\","
              "\"\",500,\"КП-1\",\"Администрация\",\"\",\"05.03.2012\",777,\"Рубль\",\"01.01.2011\",\"\",\"\","
              "\"Особые отметки\",\"\",\"\",\"\",\"04.03.2012\",\"КП-1\",\"77:01:0001001\",\"ЗУ1\",\"\",0");
    const auto mif = Rows("Участки", ".mif");
    const auto data = std::find(mif.begin(), mif.end(), "Data");
    ASSERT_NE(data, mif.end());
    // The attribute Y is the map's x.
    EXPECT_EQ(std::vector<std::string>(data + 2, data + 10),
              (std::vector<std::string>{"Region 1", "4", "0 0", "40 0", "40 30", "0 0", "Pen (1,2,0)",
                                        "Brush (2,16777215,16777215)"}));
    EXPECT_EQ(*(data + 10), "none");
}

TEST_F(ClassicPlan, PartsNeighboursAndNumbers) {
    EXPECT_EQ(Rows("ЧастиУчастка"), (std::vector<std::string>{
                                        "0,1,\"1\",\"7\",1,\"\",\"\",\"02.01.2010\",\"\",\"\",\"\",\"проход\",\"\",\"\",15,\"\","
                                        "16,\"\",17,\"04.03.2012\",\"КП-1\",\"77:01:0001001\",\"77:01:0001001:1\",\"\",0"}));
    EXPECT_EQ(Rows("Смежники"), (std::vector<std::string>{
                                    "0,\"77:01:0001001:2\",\"ул. Соседняя, 2\",\"\",\"77:01:0001001\",\"77:01:0001001:1\",\"\""}));
    EXPECT_EQ(Rows("СтарыеКадНомера"),
              (std::vector<std::string>{"0,\"77:01:0001001:99\",\"77:01:0001001\",\"77:01:0001001:1\",\"\""}));
    EXPECT_EQ(Rows("НовыеКадНомера").size(), 2u);
    EXPECT_EQ(Rows("Спецзоны"), (std::vector<std::string>{"0,\"Охранная зона\",\"77:01:0001001\",\"\",\"\""}));
    EXPECT_EQ(Rows("Паспорт"), (std::vector<std::string>{"0,1,\"77:01:0001001\",\"ЗУ1\",\"\""}));
    // The parts, the parcel and the block boundary: every classic ring records its points.
    EXPECT_EQ(Rows("Точки").size(), 12u);
}

TEST_F(ClassicPlan, BlockRowAndSurveyPoints) {
    EXPECT_EQ(Rows("Квартал"), (std::vector<std::string>{
                                   "0,\"77:01:0001001\",12.5,\"Га\",\"Квартал ''центр''\",\"04.03.2012\",\"КП-1\","
                                   "\"77:01:0001001\",\"\",\"\",0"}));
    // OrdY is the map's first axis, and the column "X" holds it.
    EXPECT_EQ(Rows("ТочкиОМС"), (std::vector<std::string>{
                                    "0,\"1\",\"Пункт\",\"ОМС 1\",200,100,\"77:01:0001001\",\"04.03.2012\",\"КП-1\","
                                    "\"77:01:0001001\",\"\",\"\""}));
    const auto mif = Rows("ТочкиОМС", ".mif");
    EXPECT_NE(std::find(mif.begin(), mif.end(), "Point 200 100"), mif.end());
}

TEST_F(ClassicPlan, BoundsZonesAndRealty) {
    // Documents: a known code, an unknown one, a code whose tail is no number.
    EXPECT_EQ(Rows("Границы"),
              (std::vector<std::string>{
                  "0,\"Граница муниципального образования\",\"Тверской\",\"77.01.2.1\",\"Свидетельство\",\"Решение\",\"1\","
                  "\"03.02.2001\",\"Дума\",\"Иной документ\",\"\",\"2\",\"\",\"\",\"Иной документ\",\"\",\"3\",\"\",\"\",\"\","
                  "\"\",\"\",\"\",\"\",\"\"",
                  // A Name that is not the first child is not seen.
                  "0,\"Граница населенного пункта\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\","
                  "\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\""}));
    const auto bounds = Rows("Границы", ".mif");
    EXPECT_NE(std::find(bounds.begin(), bounds.end(), "Region 1"), bounds.end());
    // A zone's documents give no date and no organ.
    EXPECT_EQ(Rows("Зоны"), (std::vector<std::string>{
                                "0,0,\"\",\"\",\"Охранная\",\"77.01.2.9\",\"Свидетельство\",\"Карта\",\"5\",\"\",\"\",\"\",\"\","
                                "\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",0"}));
    // A row after every child of the building; every pair carries the fifth parameter.
    const auto objects = Rows("Объекты");
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_EQ(objects[0].substr(0, 39), "0,\"77:01:0001001:1001\",\"\",0,\"\",\"\",\"\",0,");
    EXPECT_NE(objects[1].find(",100.5,"), std::string::npos);
    EXPECT_NE(objects[2].find(",\"\",5,\"\",5,\"\",5,\"\",5,\"\",5,"), std::string::npos);
}

TEST(ClassicDetails, AreasCategoryAndDocumentsRead) {
    xml::TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromXML(
        "<p><Area><Area>10</Area><Innccuracy>2.5</Innccuracy><Inaccuracy>9</Inaccuracy></Area>"
        "<Areas><Area><Area>20</Area></Area></Areas>"
        "<Category>003009000000</Category><Category Category=\"003004000000\">003001000000</Category><Category>12345x7</Category>"
        "<Bound><Documents><Document><Number>1</Number></Document><Document><Number>2</Number></Document>"
        "<Document><Number>3</Number></Document><Document><Number>4</Number></Document><Document><Number>5</Number></Document>"
        "<Document><Number>6</Number></Document></Documents></Bound></p>"));
    TlibImportXML job;
    xml::PXMLNode n = doc.DocumentElement()->FirstChild();
    job.ReadArea(n, 1);
    job.ReadAreaList(n->NextSibling(), 1);
    // Area and Areas add up; the schema's spelling "Innccuracy" is the one read.
    ASSERT_EQ(job.XMLParcel.AreaCnt, 2);
    EXPECT_EQ(job.XMLParcel.XMLArea[0].Value, 10);
    EXPECT_EQ(job.XMLParcel.XMLArea[0].Tolerance, 2.5);
    EXPECT_EQ(job.XMLParcel.XMLArea[1].Value, 20);
    n = n->NextSibling()->NextSibling();
    job.ReadCategory(n);  // a sixth character of 9 gives 8
    EXPECT_EQ(job.XMLParcel.Katzem, 8);
    n = n->NextSibling();
    job.ReadCategory(n);  // the attribute goes first
    EXPECT_EQ(job.XMLParcel.Katzem, 4);
    n = n->NextSibling();
    EXPECT_THROW(job.ReadCategory(n), Exception);  // a non-digit in the sixth place
    // A sixth document of a bound is ignored; the fifth stays.
    job.ReadBound(n->NextSibling(), 1);
    EXPECT_EQ(job.XMLBound[0].DocNumber[4], "5");
}
