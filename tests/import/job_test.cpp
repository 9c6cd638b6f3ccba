// The job: Execute's outcomes and error texts, the result list, recognition of every kind of
// root, the system tables and the thirteen tables of every import.
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "code_pages.h"
#include "libImportXML.h"

using namespace tmi;

namespace {

namespace fs = std::filesystem;

class Job : public ::testing::Test {
protected:
    void SetUp() override {
        fRoot = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_job_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(fRoot);
        fs::create_directories(fRoot / "out");
        fs::create_directories(fRoot / "docs");
        setenv("XDG_DOCUMENTS_DIR", (fRoot / "docs").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("XDG_DOCUMENTS_DIR");
        fs::remove_all(fRoot);
    }
    std::string Write(const std::string& aName, const std::string& aText) {
        const fs::path p = fRoot / aName;
        std::ofstream(p, std::ios::binary) << aText;
        return p.string();
    }
    void Prepare(TlibImportXML& aJob, const std::string& aFile) {
        aJob.fXMLName = aFile;
        aJob.fOutputFile = (fRoot / "out").string() + "/";
        aJob.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000000,10000000)";
    }
    std::string Out(const std::string& aFile) {
        std::ifstream in(fRoot / "out" / aFile, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        std::string utf8;
        xml::AppendWindows1251AsUTF8(s.str().data(), s.str().size(), utf8);
        return utf8;
    }
    std::string ResultList() {
        std::ifstream in(fRoot / "docs" / "tmMiniImportRes.ini");
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    // Runs a whole job on a document and returns it, tables closed.
    std::unique_ptr<TlibImportXML> Run(const std::string& aXML, bool* aResult = nullptr) {
        auto job = std::make_unique<TlibImportXML>();
        Prepare(*job, Write("doc.xml", aXML));
        const bool ok = job->Execute();
        if (aResult) *aResult = ok;
        job->Clear();
        return job;
    }
    fs::path fRoot;
};

}  // namespace

TEST_F(Job, MissingFileGivesCode2AndAnEmptyList) {
    TlibImportXML job;
    Prepare(job, (fRoot / "gone.xml").string());
    EXPECT_FALSE(job.Execute());
    EXPECT_EQ(job.fImpError, 2);
    EXPECT_EQ(job.GetError(), "Не найден файл XML для импорта");
    EXPECT_TRUE(fs::exists(fRoot / "docs" / "tmMiniImportRes.ini"));
    EXPECT_EQ(ResultList(), "");
    EXPECT_TRUE(fs::is_empty(fRoot / "out"));
}

TEST_F(Job, NoRootGivesCode4WithoutText) {
    for (const std::string& text : {std::string(""), std::string("<?xml version=\"1.0\"?>"), std::string("<a><b></a>"),
                                   std::string("\x01\x02\x03 binary"), std::string("<a")}) {
        TlibImportXML job;
        Prepare(job, Write("bad.xml", text));
        EXPECT_FALSE(job.Execute()) << text;
        EXPECT_EQ(job.fImpError, 4);
        EXPECT_EQ(job.GetError(), "");
    }
}

// A folder is no file: code 2 and its text, as for a missing file.
TEST_F(Job, AFolderNamedLikeTheFileIsNotFound) {
    fs::create_directories(fRoot / "plan.xml");
    TlibImportXML folder;
    Prepare(folder, (fRoot / "plan.xml").string());
    EXPECT_FALSE(folder.Execute());
    EXPECT_EQ(folder.fImpError, 2);
    EXPECT_EQ(folder.GetError(), "Не найден файл XML для импорта");
}

// What cannot be written must not pass for written: the result list and the tables.
TEST_F(Job, WriteFailuresReachTheCaller) {
    {
        // A folder where the result list should be: an old list must not stand for this run.
        fs::create_directories(fRoot / "docs" / "tmMiniImportRes.ini");
        TlibImportXML job;
        Prepare(job, Write("doc.xml", "<KPT/>"));
        EXPECT_THROW(job.Execute(), EInOutError);
        fs::remove_all(fRoot / "docs" / "tmMiniImportRes.ini");
    }
    // Files may grow to a few hundred bytes: a table's header is more than that.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = 300;
    const std::string doc = Write("doc2.xml", "<KPT/>");
    setrlimit(RLIMIT_FSIZE, &small);
    std::string thrown;
    {
        TlibImportXML job;
        Prepare(job, doc);
        try {
            job.Execute();
        } catch (const EInOutError& e) {
            thrown = e.what();
        }
    }
    // A job freed without Clear() still tells of a table it could not complete.
    std::vector<std::string> told;
    {
        TlibImportXML job;
        job.OnMessage = [&](const std::string& aText) { told.push_back(aText); };
        Prepare(job, doc);
        job.CreateGMTables();
    }
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_NE(thrown.find("Не удалось записать файл " + (fRoot / "out").string()), std::string::npos) << thrown;
    ASSERT_FALSE(told.empty());
    EXPECT_NE(told[0].find("Не удалось записать файл"), std::string::npos) << told[0];
}

TEST_F(Job, ClearEmptiesEverythingTheJobHolds) {
    TlibImportXML job;
    // A deliberate departure: the turning points grow as they come, nothing is set aside
    // for 300,000 of them at creation.
    EXPECT_EQ(job.arPoints.size(), 0u);
    job.fRings.SPList.push_back({std::make_shared<TGrCont>(), 1});
    job.arPoints.Add(0, 0, "1", "1", "66:41:1", 1, 0);
    job.nPoints = 1;
    job.Clear();
    EXPECT_TRUE(job.fRings.SPList.empty());
    EXPECT_EQ(job.arPoints.size(), 0u);
    EXPECT_EQ(job.nPoints, 0);
}

// The minimum is stored as a double before the maximum is widened by it.
TEST_F(Job, WidenedExtremesUseTheStoredMinimum) {
    int differ = 0;
    for (int i = 1; i <= 2000; ++i) {
        double lo = -1234.567 * i / 7.0, hi = 98765.4321 + i / 3.0;
        const long double extended = static_cast<long double>(lo) - (static_cast<long double>(hi) - lo) * 0.05L;
        const double stored = static_cast<double>(extended);
        const double expected = static_cast<double>(hi + (static_cast<long double>(hi) - stored) * 0.05L);
        const double unrounded = static_cast<double>(hi + (static_cast<long double>(hi) - extended) * 0.05L);
        if (expected != unrounded) ++differ;
        TlibImportXML::WidenExtremes(lo, hi);
        ASSERT_EQ(lo, stored) << i;
        ASSERT_EQ(hi, expected) << i;
    }
    EXPECT_GT(differ, 0);  // the cases that tell the two orders apart are among them
}

TEST_F(Job, EveryImportMakesThirteenTablesAndOnePassportRow) {
    bool ok = false;
    auto job = Run("<unknown_root><child/></unknown_root>", &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(job->fImpError, 0);
    int pairs = 0;
    for (const auto& e : fs::directory_iterator(fRoot / "out")) pairs += e.path().extension() == ".mif";
    EXPECT_EQ(pairs, 13);
    EXPECT_EQ(Out("Паспорт.mid"), "0,0,\"\",\"\",\"\"\r\n");
    EXPECT_EQ(Out("Участки.mid"), "");
    // One line a table, folder and name, no extension.
    const std::string list = ResultList();
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 13);
    EXPECT_EQ(list.substr(0, list.find('\n')), (fRoot / "out").string() + "/Участки");
}

TEST_F(Job, RecognitionOfEveryRoot) {
    struct Case {
        const char* fXML;
        int fSchemaType;
        const char* fDocVer;
        int fDocStyle;
        int fIsKpt;
    };
    const Case cases[] = {
        {"<Region_Cadastr CodeType=\"101\" Version=\"08\"/>", 101, "08", 0, 0},
        {"<KPT xmlns=\"urn://x-artefacts-rosreestr-ru/outgoing/kpt/10.0.1\"/>", 1, "10", 1, 1},
        {"<KVZU xmlns=\"urn://x-artefacts-rosreestr-ru/outgoing/kvzu/6.0.9\"/>", 2, "06", 1, 0},
        {"<KPZU xmlns=\"urn://x-artefacts-rosreestr-ru/outgoing/kpzu/6.0.1\"/>", 3, "06", 1, 0},
        {"<KPT xmlns=\"urn://other/space\"/>", 1, "", 1, 1},
        {"<KPT/>", 0, "", 1, 0},
        {"<ns:KPT xmlns:ns=\"urn:x\" xmlns=\"urn://x/kpt/9.0.1\"/>", 1, "09", 1, 1},
        {"<extract_cadastral_plan_territory/>", 1, "11", 1, 1},
        {"<extract_about_property_land/>", 2, "08", 1, 0},
        {"<extract_about_zone/>", 2, "08", 1, 0},
        {"<extract_base_params_land/>", 2, "01", 1, 0},
        {"<extract_about_property_construction/>", 3, "01", 1, 0},
        {"<interact_entry_boundaries CodeType=\"5\" Version=\"02\"/>", 6, "02", 1, 0},
        {"<Extract_Cadastral_Plan_Territory/>", 1, "11", 1, 1},
        {"<something_else/>", 0, "", 1, 0},
    };
    for (const Case& c : cases) {
        auto job = Run(c.fXML);
        EXPECT_EQ(job->XMLeDoc.SchemaType, c.fSchemaType) << c.fXML;
        EXPECT_EQ(job->XMLeDoc.DocVer, c.fDocVer) << c.fXML;
        EXPECT_EQ(job->XMLeDoc.DocStyle, c.fDocStyle) << c.fXML;
        EXPECT_EQ(Out("Паспорт.mid"), "0," + std::to_string(c.fIsKpt) + ",\"\",\"\",\"\"\r\n") << c.fXML;
    }
    auto prefixed = Run("<ns:extract_about_zone xmlns:ns=\"urn:z\"/>");
    EXPECT_EQ(prefixed->rootnm, "extract_about_zone");
}

TEST_F(Job, DocumentCodesOfTheClassicHeader) {
    bool ok = false;
    auto plan = Run("<Region_Cadastr CodeType=\"101\"><eDocument CodeType=\"101\" Version=\"08\">"
                    "<Sender Name=\"Филиал\" Date_Upload=\"2009-04-15\"/><Recipient Name=\"МО\"/></eDocument></Region_Cadastr>",
                    &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(plan->fCode_Type, 101);
    EXPECT_EQ(plan->fDoc_Name, "Кадастровый план территории");
    EXPECT_EQ(plan->XMLeDoc.SenderName, "Филиал");
    EXPECT_EQ(plan->XMLeDoc.Recipient, "МО");
    EXPECT_EQ(DateTimeToStr(plan->XMLeDoc.SenderDate), "15.04.2009");
    EXPECT_EQ(Out("Паспорт.mid"), "0,1,\"\",\"\",\"\"\r\n");

    // A forbidden code: the job answers true, the system tables are still written.
    auto other = Run("<Region_Cadastr CodeType=\"5\"><eDocument CodeType=\"7\"/></Region_Cadastr>", &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(other->fImpError, 3);
    EXPECT_EQ(other->GetError(), "Недозволенный тип документа");
    EXPECT_EQ(Out("Паспорт.mid"), "0,0,\"\",\"\",\"\"\r\n");
}

TEST_F(Job, ACodeTypeThatIsNoNumberRaisesButTheListIsWritten) {
    auto job = std::make_unique<TlibImportXML>();
    Prepare(*job, Write("doc.xml", "<Region_Cadastr CodeType=\"abc\"/>"));
    EXPECT_THROW(job->Execute(), Exception);
    job->Clear();
    const std::string list = ResultList();
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 13);

    auto header = std::make_unique<TlibImportXML>();
    Prepare(*header, Write("doc2.xml", "<X><eDocument CodeType=\"x1\"/></X>"));
    EXPECT_THROW(header->Execute(), Exception);
}

TEST_F(Job, StatusCertificateAndDates) {
    auto job = Run("<KPT><status>Сведения: статус ранее учтенный</status><CertificationDoc><Organization>Орган</Organization>"
                   "<Date>2010-05-06</Date><Number>77</Number><Appointment>Инженер</Appointment><FIO>Иванов</FIO>"
                   "</CertificationDoc></KPT>");
    EXPECT_EQ(job->fStateXML, "статус ранее учтенный");
    EXPECT_EQ(job->XMLSert.Organization, "Орган");
    EXPECT_EQ(DateTimeToStr(job->XMLSert.Date), "06.05.2010");
    EXPECT_EQ(job->XMLSert.FIO, "Иванов");
    auto plain = Run("<KPT><status>Актуальные</status></KPT>");
    EXPECT_EQ(plain->fStateXML, "Актуальные");
    EXPECT_EQ(DateTimeToStr(TlibImportXML::ParseXmlDate("21.10.2023")), "21.10.2023");
    EXPECT_EQ(DateTimeToStr(TlibImportXML::ParseXmlDate("2023-10-21T10:00:00")), "21.10.2023");
    EXPECT_EQ(TlibImportXML::ParseXmlDate("2023-13-45").fValue, 0);
    EXPECT_EQ(TlibImportXML::ParseXmlDate("").fValue, 0);
}

TEST_F(Job, ExtremesWithoutCoordinatesAreZeros) {
    auto job = std::make_unique<TlibImportXML>();
    Prepare(*job, Write("doc.xml", "<KPT><Package/></KPT>"));
    job->chkBounds = true;
    job->csXmax = 5;
    EXPECT_TRUE(job->Execute());
    EXPECT_EQ(job->csXmin, 0);
    EXPECT_EQ(job->csXmax, 0);
    EXPECT_EQ(job->csYmax, 0);
}

TEST_F(Job, TurningPointsTableWhenAsked) {
    auto job = std::make_unique<TlibImportXML>();
    Prepare(*job, Write("doc.xml", "<KPT/>"));
    job->fPoints = 1;
    job->arPoints.Add(10.5, 20.25, "н1", "", "66:41:1", 0, 0.10);
    // A delta that is no number is written as the float columns write it.
    job->arPoints.Add(11, 21, "2", "", "66:41:1", 0, std::nan(""));
    job->nPoints = 2;
    EXPECT_TRUE(job->Execute());
    job->Clear();
    EXPECT_EQ(Out("Точки.mid"), "0,\"н1\",10.5,20.25,0.1,\"\",\"\",\"66:41:1\",\"\"\r\n0,\"2\",11,21,0,\"\",\"\",\"66:41:1\",\"\"\r\n");
    const std::string mif = Out("Точки.mif");
    EXPECT_NE(mif.find("Data\r\n\r\nPoint 10.5 20.25\r\nSymbol (35,0,12)\r\nPoint 11 21\r\nSymbol (35,0,12)\r\n"), std::string::npos);
}

TEST_F(Job, TransformPointShiftsOnlyInsideItsRange) {
    TlibImportXML job;
    double x = 0, y = 0;
    job.TransformPoint(x, y, 2, 1);
    EXPECT_EQ(x, 1);
    EXPECT_EQ(y, 2);
    SpecAlgo shift;
    shift.ifxmin = 0;
    shift.ifxmax = 100;
    shift.dx = 10;
    shift.dy = -5;
    shift.styleimport = 1;
    job.specAr.push_back(shift);
    job.nspec = 1;
    job.TransformPoint(x, y, 2, 1);
    EXPECT_EQ(x, 11);
    EXPECT_EQ(y, -3);
    job.TransformPoint(x, y, 2, 100);  // strict limits
    EXPECT_EQ(x, 100);
    EXPECT_EQ(y, 2);
}

TEST_F(Job, HostileDocumentsEndWithAnAnswerOrTheirOwnError) {
    // Nesting far deeper than any stack would take if the readers recursed over it.
    const int depth = 200000;
    auto nested = [&](const std::string& aName) {
        std::string s;
        for (int i = 0; i < depth; ++i) s += "<" + aName + ">";
        for (int i = 0; i < depth; ++i) s += "</" + aName + ">";
        return s;
    };
    bool ok = false;
    Run(nested("a"), &ok);
    EXPECT_TRUE(ok);
    Run("<extract_cadastral_plan_territory><cadastral_blocks><cadastral_block><cadastral_number>1:1:1</cadastral_number>"
        "<record_data><base_data><land_records><land_record><object><common_data><cad_number>1:1:1:1</cad_number>"
        "</common_data></object><contours_location><contours><contour>" +
            nested("entity_spatial") + "</contour></contours></contours_location><address_location>" + nested("address") +
            "</address_location></land_record></land_records></base_data></record_data></cadastral_block>"
            "</cadastral_blocks></extract_cadastral_plan_territory>",
        &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(Out("Участки.mid").rfind("1,\"1:1:1\",\"1:1:1:1\",", 0), 0u);  // the record still gets its row
    // A classic spatial element without a ring raises the list index error, which leaves the job.
    const std::string classic = "<KPT><CadastralBlocks><CadastralBlock CadastralNumber=\"1:1:1\"><Parcels>"
                                "<Parcel CadastralNumber=\"1:1:1:1\">" + nested("Entity_Spatial") +
                                "</Parcel></Parcels></CadastralBlock></CadastralBlocks></KPT>";
    EXPECT_THROW(Run(classic), xml::EOXmlException);
}
