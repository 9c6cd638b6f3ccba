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
    // Boundary records: an open line kept as it is; a coastline named by water type and name.
    EXPECT_EQ(Rows(out / "Границы.mid"),
              (std::vector<std::string>{
                  "0,\"Граница МО\",\"\",\"24:21-3.1\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\","
                  "\"\",\"\",\"\",\"\",\"\",\"\",\"\"",
                  "0,\"Береговая линия\",\"Река Енисей\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\","
                  "\"\",\"\",\"\",\"\",\"\",\"\",\"\",\"\""}));
    EXPECT_EQ(Clauses(out / "Границы.mif")[0], "Pline 3");
    // A zone record: the boundary's type lands in the name, replacing the number read before it.
    const auto zones = Rows(out / "Зоны.mid");
    ASSERT_EQ(zones.size(), 1u);
    EXPECT_EQ(zones[0].substr(0, zones[0].find("24:21-6.1") + 10), "0,0,\"\",\"Охранная зона\",\"Зона\",\"24:21-6.1\"");
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

TEST(NewZones, ZoneDocumentAndRegistryEntry) {
    const fs::path out = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_newzones");
    fs::remove_all(out);
    fs::create_directories(out);
    setenv("XDG_DOCUMENTS_DIR", out.c_str(), 1);
    auto run = [&](const std::string& aXML) {
        std::ofstream(out / "doc.xml") << aXML;
        TlibImportXML job;
        job.fXMLName = (out / "doc.xml").string();
        job.fOutputFile = out.string();  // without its delimiter: the note file adds one
        job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000,10000)";
        EXPECT_TRUE(job.Execute());
        job.Clear();
    };
    run("<extract_about_zone><zone_territory_coastline_surveying><zones_and_territories>"
        "<reg_numb_border>24:00-6.5</reg_numb_border><content_restrict_encumbrances>Запрет</content_restrict_encumbrances>"
        "<type_boundary><value>Зона</value></type_boundary><object><name_by_doc>Охранная</name_by_doc></object>"
        "<decisions_requisites>"
        "<decision_requisites><document_name>Д1</document_name><document_date>2020-01-02</document_date></decision_requisites>"
        "<decision_requisites><document_name>Д2</document_name></decision_requisites>"
        "<decision_requisites><document_name>Д3</document_name></decision_requisites>"
        "<decision_requisites><document_name>Д4</document_name></decision_requisites>"
        "<decision_requisites><document_name>Д5</document_name></decision_requisites>"
        "</decisions_requisites></zones_and_territories></zone_territory_coastline_surveying></extract_about_zone>");
    const auto zone = Rows(out / "Зоны.mid");
    ASSERT_EQ(zone.size(), 1u);
    EXPECT_NE(zone[0].find("\"Зона\",\"Охранная\",\"24:00-6.5\",\"\",\"Д1\",\"\",\"02.01.2020\""), std::string::npos) << zone[0];
    EXPECT_NE(zone[0].find("\"Д3\""), std::string::npos);
    EXPECT_EQ(zone[0].find("\"Д4\""), std::string::npos);  // four kept, three written

    run("<interact_entry_boundaries><information_registry_boundaries><iBND2:information_registry_boundary>"
        "<iBND2:name_object>Сервитут</iBND2:name_object><iBND2:information_boundary><iBND2:public_easement>"
        "<iBND2:establishment_public_easement><iBND2:object_public_easement><iBND2:quarter_cad_number>24:21:1</iBND2:quarter_cad_number>"
        "<iBND2:other>Примечание к сервитуту</iBND2:other></iBND2:object_public_easement>"
        "</iBND2:establishment_public_easement></iBND2:public_easement></iBND2:information_boundary>"
        "</iBND2:information_registry_boundary></information_registry_boundaries></interact_entry_boundaries>");
    const auto entry = Rows(out / "Зоны.mid");
    ASSERT_EQ(entry.size(), 1u);
    EXPECT_NE(entry[0].find("\"Сервитут\""), std::string::npos) << entry[0];
    EXPECT_NE(entry[0].find("\"местоположение: \",\"ФИАС  ОКАТО  КЛАДР  ОКТМО\",\"кварт: 24:21:1\""), std::string::npos) << entry[0];
    EXPECT_EQ(Rows(out / "Участки.mid").size(), 1u);
    std::ifstream note(out / "Зоны" / "Примечание" / ".txt");
    std::string line;
    std::getline(note, line);
    EXPECT_EQ(line, "Примечание к сервитуту");
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(out);
}

TEST(NewConstruction, CharacteristicsRightsAndWorks) {
    const fs::path out = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_construction");
    fs::remove_all(out);
    fs::create_directories(out);
    setenv("XDG_DOCUMENTS_DIR", out.c_str(), 1);
    std::ofstream(out / "doc.xml")
        << "<extract_about_property_construction><construction_record>"
           "<object><common_data><cad_number>24:21:1:50</cad_number><type><code>002001004000</code></type></common_data></object>"
           "<params><base_parameters><base_parameter><extension>120.5</extension></base_parameter>"
           "<base_parameter><area>33</area></base_parameter></base_parameters>"
           "<purpose>Газопровод</purpose><floors>2</floors><year_built>1999</year_built></params>"
           "<cost>1234.5</cost>"
           "<cad_works><cad_work><fio_cad_ingineer><surname>Петров</surname><name>Пётр</name></fio_cad_ingineer>"
           "<date_cadastral>2021-06-07</date_cadastral></cad_work></cad_works>"
           "<contours><contour><entity_spatial><spatials_elements><spatial_element><ordinates>"
           "<ordinate><x>10</x><y>20</y></ordinate><ordinate><x>10</x><y>30</y></ordinate>"
           "<ordinate><x>15</x><y>30</y></ordinate><ordinate><x>15</x><y>40</y></ordinate></ordinates>"
           "</spatial_element></spatials_elements></entity_spatial></contour></contours>"
           "</construction_record></extract_about_property_construction>";
    {
        TlibImportXML job;
        job.fXMLName = (out / "doc.xml").string();
        job.fOutputFile = out.string() + "/";
        job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000,10000)";
        EXPECT_TRUE(job.Execute());
        job.Clear();
    }
    const auto rows = Rows(out / "Объекты.mid");
    ASSERT_EQ(rows.size(), 1u);
    // Characteristics in the order met; the cost's unit; a line of four points written as a
    // polyline (fewer points would be no writable contour).
    EXPECT_NE(rows[0].find("\"24:21:1:50\""), std::string::npos) << rows[0];
    EXPECT_NE(rows[0].find("\"Газопровод\",33,"), std::string::npos) << rows[0];
    EXPECT_NE(rows[0].find("1234.5,\"рублей\",\"Протяженность, м\",120.5,\"Количество этажей\",2,"
                           "\"Год завершения строительства\",1999"),
              std::string::npos)
        << rows[0];
    const auto clauses = Clauses(out / "Объекты.mif");
    EXPECT_EQ(clauses[0], "Pline Multiple 1");
    EXPECT_EQ(clauses[2], "20 10");
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(out);
}

TEST(NewLandExtract, RightsAndParts) {
    const fs::path out = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_landextract");
    fs::remove_all(out);
    fs::create_directories(out);
    setenv("XDG_DOCUMENTS_DIR", out.c_str(), 1);
    std::ofstream(out / "doc.xml")
        << "<extract_about_property_land><details_statement><group_top_requisites>"
           "<date_formation>2024-02-03</date_formation><registration_number>КУВИ-9</registration_number>"
           "</group_top_requisites></details_statement>"
           "<land_record><object><common_data><cad_number>24:21:1:7</cad_number><quarter_cad_number>24:21:1</quarter_cad_number>"
           "</common_data></object><params><area><value>1000</value></area></params>"
           "<object_parts><object_part><part_number>1</part_number><entry_date>2020-05-06</entry_date>"
           "<area><value>25.5</value></area></object_part></object_parts></land_record>"
           "<right_records><right_record><right_data><right_type><value>Собственность</value></right_type>"
           "<right_number>24-1/2</right_number></right_data><record_info><registration_date>2019-08-09T10:00:00</registration_date>"
           "</record_info><right_holders><right_holder><individual><surname>Иванов</surname><name>Иван</name></individual>"
           "</right_holder></right_holders></right_record></right_records></extract_about_property_land>";
    {
        TlibImportXML job;
        job.fXMLName = (out / "doc.xml").string();
        job.fOutputFile = out.string() + "/";
        job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000,10000)";
        EXPECT_TRUE(job.Execute());
        job.Clear();
    }
    const auto parcels = Rows(out / "Участки.mid");
    ASSERT_EQ(parcels.size(), 1u);
    // Holders and rights only in a land extract; no trailing blank without a patronymic.
    EXPECT_NE(parcels[0].find("\"Иванов Иван\",\"\",1000,\"КУВИ-9\""), std::string::npos) << parcels[0];
    EXPECT_NE(parcels[0].find("\"Иванов Иван Собственность 24-1/2 от 09.08.2019\""), std::string::npos) << parcels[0];
    EXPECT_EQ(Rows(out / "ЧастиУчастка.mid"),
              (std::vector<std::string>{"0,1,\"\",\"1\",0,\"\",\"\",\"06.05.2020\",\"\",\"\",\"\",\"\",\"\",\"\",25.5,\"\",0,"
                                        "\"\",0,\"03.02.2024\",\"КУВИ-9\",\"24:21:1\",\"24:21:1:7\",\"\",0"}));
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(out);
}
