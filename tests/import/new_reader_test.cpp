// The new-format plan reader over a hand-written plan: the statement, a land record with its
// address, params and contour, a building in the same frame, the block row and its boundary.
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

std::vector<std::string> Rows(const fs::path& aFile) {
    std::ifstream in(aFile, std::ios::binary);
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

// The clause lines after "Data" and the empty line.
std::vector<std::string> Clauses(const fs::path& aMif) {
    auto rows = Rows(aMif);
    const auto data = std::find(rows.begin(), rows.end(), "Data");
    return data == rows.end() ? rows : std::vector<std::string>(data + 2, rows.end());
}

}  // namespace

TEST(NewPlan, LandRecordBuildingAndBlock) {
    const fs::path out = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_newplan");
    fs::remove_all(out);
    fs::create_directories(out);
    setenv("XDG_DOCUMENTS_DIR", out.c_str(), 1);
    {
        TlibImportXML job;
        job.fXMLName = std::string(TM_FIXTURES) + "/import/new_plan.xml";
        job.fOutputFile = out.string() + "/";
        job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000,10000)";
        job.fWriteObj = true;
        ASSERT_TRUE(job.Execute());
        EXPECT_EQ(job.XMLSert.Organization, "Филиал");
        job.Clear();
    }
    // The statement dates the record; the short number keeps its colon; the code of the
    // category is the land category number.
    EXPECT_EQ(Rows(out / "Участки.mid"),
              (std::vector<std::string>{
                  "1,\"24:21:1003001\",\"24:21:1003001:15\",\":15\",\"\",1,\"Землепользование\",\"\",\"21.10.2023\","
                  "\"21.10.2023\",3,\"Земли населенных пунктов\",\"\",\"\",\"Земельный участок\",\"Емельяновский р-н, ул Лесная\","
                  "\"04\",\"2400\",\"\",\"\",400,\"КУВИ-1\",\"\",\"\",\"\",1234.5,\"руб.\",\"\",\"\",\"\",\"\",\"\",\"\",\"\","
                  "\"21.10.2023\",\"КУВИ-1\",\"24:21:1003001\",\"24:21:1003001:15\",\"\",0"}));
    // <y> is the easting, written first, for the land record and for the building alike.
    EXPECT_EQ(Clauses(out / "Участки.mif"),
              (std::vector<std::string>{"Region 1", "5", "2000 1000", "2020 1000", "2020 1020", "2000 1020", "2000 1000",
                                        "Pen (1,2,0)", "Brush (2,16777215,16777215)"}));
    const auto building = Clauses(out / "Объекты.mif");
    ASSERT_GE(building.size(), 3u);
    EXPECT_EQ(building[0], "Region 1");
    EXPECT_EQ(building[2], "2005 1005");
    EXPECT_EQ(Rows(out / "Объекты.mid"),
              (std::vector<std::string>{
                  "0,\"24:21:1003001:100\",\"\",1,\"\",\"Здание\",\"Жилой дом\",50.5,\"\",\"\",\"\",0,\"руб.\",\"\",0,\"\",0,\"\",0,"
                  "\"\",0,\"\",0,\"21.10.2023\",\"КУВИ-1\",\"24:21:1003001\",\"24:21:1003001:100\",\"\""}));
    // The area of the quarter is scaled by 10000 under the unit "059"; a NOTE in upper case counts.
    EXPECT_EQ(Rows(out / "Квартал.mid"),
              (std::vector<std::string>{
                  "0,\"24:21:1003001\",125000,\"059\",\"Заметка\",\"21.10.2023\",\"КУВИ-1\",\"24:21:1003001\",\"\",\"\",0"}));
    EXPECT_EQ(Clauses(out / "Квартал.mif")[2], "1900 900");
    // Survey points of a new-format plan are read and written nowhere.
    EXPECT_TRUE(Rows(out / "ТочкиОМС.mid").empty());
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(out);
}

TEST(NewPlan, ShortNumbersAndGates) {
    EXPECT_EQ(TlibImportXML::ShortParcelNumber("24:21:1003001:15"), ":15");
    EXPECT_EQ(TlibImportXML::ShortParcelNumber("15"), "15");
    EXPECT_EQ(TlibImportXML::StripNodePrefix("ns:cadastral_block"), "cadastral_block");
    TlibImportXML job;
    job.ResetGRect();
    EXPECT_EQ(job.GRect.left, 1.0E7);
    EXPECT_EQ(job.GRect.top, -1.0E7);
}
