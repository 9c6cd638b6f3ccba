// The universal conversion over hand-written fixtures: the streaming reader, the manager's
// states and gates, session items and their commit order, the full walk with its XSD, saved
// settings, and the database destination's transaction.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "OXmlPDOM.h"
#include "csUniversalRegistration.h"
#include "csXMLDBDestination.h"
#include "test_process.h"
#include "universal_test_util.h"

namespace fs = std::filesystem;
using namespace tmi;
using tmi::test::TTestRecordProcess;
using namespace tmi::test;

namespace {

// Registers the test process for one test; the module's classes stay registered.
struct Registered {
    Registered() {
        RegisterUniversalClasses();
        ProcessInfoManager().Register<TTestRecordProcess>();
        TTestRecordProcess::XSDName = "TestDocument.xsd";
        TTestRecordProcess::FromFirst = true;
        TTestRecordProcess::Tolerate = false;
        TTestRecordProcess::NeedFull = false;
        UseFullSchema = false;
    }
    ~Registered() {
        ProcessInfoManager().UnRegisterClass(TTestRecordProcess::StaticClassName());
        UseFullSchema = false;
    }
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// The streaming reader

TEST(SeqParser, ReportsHeadersInOrderAndReadsARecordWholeOnlyWhenAsked) {
    TcsXMLSeqParser parser;
    parser.OpenFile(kDocument);
    std::vector<std::string> seen;
    xml::PXMLNode node = nullptr;
    std::string wholeRecord;
    while (parser.ReadNextChildHeader(node)) {
        if (node->NodeType() == xml::ntProcessingInstruction) seen.push_back("?" + std::string(node->NodeName()));
        else seen.push_back(std::string(parser.ActivePath()));
        if (parser.ActivePath() == "/TestDocument/Record" && node->GetAttribute("id") == "r2") {
            parser.ReadNodeChildren(node);
            for (xml::PXMLNode c = node->FirstChild(); c; c = c->NextSibling()) wholeRecord += std::string(c->NodeName()) + " ";
            EXPECT_EQ(node->FindChild("Name")->Text(), "Мост");
        }
        parser.ClearNode();
    }
    // r2's children were read with it, so they are not reported as headers.
    EXPECT_EQ(wholeRecord, "Name Kind Point Point Point ");
    const std::vector<std::string> expected = {
        "?xml-stylesheet", "/TestDocument", "/TestDocument/Header", "/TestDocument/Header/Title",
        "/TestDocument/Record", "/TestDocument/Record/Name", "/TestDocument/Record/Kind", "/TestDocument/Record/Area",
        "/TestDocument/Record/Address", "/TestDocument/Record/Address/Street", "/TestDocument/Record/Address/House",
        "/TestDocument/Record/Owner", "/TestDocument/Record/Owner/FullName", "/TestDocument/Record/Owner",
        "/TestDocument/Record/Owner/FullName", "/TestDocument/Record/Point", "/TestDocument/Record/Point",
        "/TestDocument/Record/Point", "/TestDocument/Record/Point", "/TestDocument/Record", "/TestDocument/Record",
        "/TestDocument/Record/Name", "/TestDocument/Record/Kind", "/TestDocument/Record/Area"};
    EXPECT_EQ(seen, expected);
    EXPECT_TRUE(parser.Eof());
    EXPECT_EQ(parser.Depth(), 0);
}

TEST(SeqParser, GoToPathFindsAnElementAndStartsOverFromTheRoot) {
    TcsXMLSeqParser parser;
    parser.OpenFile(kDocument);
    ASSERT_TRUE(parser.GoToPath("/TestDocument/Header/Title"));
    EXPECT_EQ(parser.Depth(), 3);
    EXPECT_FALSE(parser.GoToPath("/TestDocument/Nothing"));
    ASSERT_TRUE(parser.GoToPath("/"));
    xml::PXMLNode node = nullptr;
    ASSERT_TRUE(parser.ReadNextChildHeader(node));
    EXPECT_EQ(node->NodeType(), xml::ntProcessingInstruction);
}

TEST(SeqParser, SkippedContentIsPassedOverUnbuiltAndTheWalkGoesOnAfterIt) {
    const std::string text =
        "<Root><Ring n='1'><Ring><Point X='1'/><!-- <Ring> --><![CDATA[</Ring>]]><?pi </Ring>?>t</Ring><Point/></Ring>"
        "<Tail a='&gt;'>x</Tail><Ring/>"
        // Values holding what ends a tag, the other quote, a tag across lines, spaces before "/>".
        "<Ring><P v=\"a>b\" w='\"/>' /><Q\n x = \"</Ring>\"\n>text > more</Q ><R\t/></Ring><End/></Root>";
    TcsXMLSeqParser parser;
    parser.OpenBuffer(text.data(), text.size());
    std::vector<std::string> seen;
    parser.OnText = [&](std::string_view aPath, std::string_view aText) { seen.push_back(std::string(aPath) + "=" + std::string(aText)); };
    parser.OnEndElement = [&](std::string_view aPath) { seen.push_back("/" + std::string(aPath)); };
    xml::PXMLNode node = nullptr;
    while (parser.ReadNextChildHeader(node)) {
        seen.emplace_back(parser.ActivePath());
        if (node->LocalName() == "Ring") parser.SkipNodeChildren();
        parser.ClearNode();
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"/Root", "/Root/Ring", "//Root/Ring", "/Root/Tail", "/Root/Tail=x", "//Root/Tail",
                                              "/Root/Ring", "//Root/Ring", "/Root/Ring", "//Root/Ring", "/Root/End", "//Root/End",
                                              "//Root"}));
    EXPECT_TRUE(parser.Eof());
}

TEST(SeqParser, BrokenDocumentsRaiseWithWhereAndNeverEndAsComplete) {
    enum { kHeaders, kWhole, kSkip };
    auto walk = [](const std::string& aText, int aRecords) {
        TcsXMLSeqParser parser;
        parser.OpenBuffer(aText.data(), aText.size());
        xml::PXMLNode node = nullptr;
        while (parser.ReadNextChildHeader(node)) {
            if (aRecords == kWhole && parser.Depth() == 2) parser.ReadNodeChildren(node);
            if (aRecords == kSkip && parser.Depth() == 2) parser.SkipNodeChildren();
            parser.ClearNode();
        }
    };
    const std::string truncated = "<Root>\n<Record><Name>a</Name></Record>\n<Record><Na";
    for (const int records : {kHeaders, kWhole, kSkip}) {
        try {
            walk(truncated, records);
            ADD_FAILURE() << "a truncated document ended as if complete";
        } catch (const EcsXMLSeqParserError& e) {
            EXPECT_NE(std::string(e.what()).find("строка 3"), std::string::npos) << e.what();
            EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos) << "one line: " << e.what();
        }
        // What is skipped is still checked: tags closed by their own names, quotes, comments
        // and sections ended.
        for (const char* broken : {"<Root><Record><A></B></Record></Root>", "<Root><Record><A x='1></A></Record></Root>",
                                   "<Root><Record><!-- </Record></Root>", "<Root><Record><![CDATA[ </Record></Root>",
                                   "<Root><Record><1A/></Record></Root>",
                                   "<Root><Record></Record x></Root>"})
            EXPECT_THROW(walk(broken, records), EcsXMLSeqParserError) << broken;
    }
    EXPECT_THROW(walk("<Root><A></B></Root>", kHeaders), EcsXMLSeqParserError);
    EXPECT_THROW(walk(std::string("\x00\x01\x02garbage", 10), kHeaders), EcsXMLSeqParserError);
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "<a>";
    EXPECT_THROW(walk(deep, kHeaders), EcsXMLSeqParserError);
    EXPECT_THROW(walk("<Root><r>" + deep, kWhole), EcsXMLSeqParserError);
    EXPECT_THROW(walk("<Root><r>" + deep, kSkip), EcsXMLSeqParserError);
}

// ---------------------------------------------------------------------------------------------
// The manager

TEST(ConvertManager, StatesGatesAndTheFirstLook) {
    Registered registered;
    TempFolder temp;
    auto m = NewManager(kDocument, temp / "out.sqlite");
    EXPECT_EQ(m->State(), msNone);
    TTestRecordProcess::NeedFull = true;
    m->UpdateInfo(false);
    EXPECT_EQ(m->State(), msFirstInfo);
    ASSERT_NE(m->ActiveProcess(), nullptr);
    const TcsXMLInfo& info = m->Analizer().XMLInfo();
    EXPECT_EQ(info.RootNodeName, "TestDocument");
    EXPECT_EQ(info.StyleSheetHref, "view.xsl");
    EXPECT_TRUE(info.HasXSLLocalPath);
    ASSERT_EQ(info.RootAttributes.size(), 1u);
    EXPECT_EQ(info.RootAttributesText(), "Version=2");
    ASSERT_GE(m->InfoString().size(), 4u);
    EXPECT_EQ(m->InfoString()[0], (std::pair<std::string, std::string>{"Корневой элемент", "TestDocument"}));
    EXPECT_EQ(m->InfoString()[1], (std::pair<std::string, std::string>{"Обработчик стиля", "view.xsl"}));
    EXPECT_EQ(m->InfoString()[2].first, "Есть локальный обраб. стиля");
    EXPECT_EQ(m->InfoString()[3].first, "Локальный обработчик стиля");

    std::string message;
    EXPECT_TRUE(m->CheckProcess(message));
    EXPECT_EQ(message, "Требуется дождаться обработки всего файла");
    std::vector<std::string> statuses;
    m->FOnStatusProcedure = [&](const std::string& aText, TcsStatusKind aKind, int64_t) {
        if (aKind == skOpen) statuses.push_back(aText);
        return true;
    };
    m->UpdateFullInfo();
    EXPECT_EQ(m->State(), msFullInfo);
    EXPECT_TRUE(m->UpdatedFullInfo());
    EXPECT_EQ(statuses, std::vector<std::string>{"Подготовка..."});
    EXPECT_EQ(info.KeyValue("RECORDS"), "3");
    EXPECT_EQ(info.KeyValue("XSDPATH"), kFixtures + "TestDocument.xsd");
    message.clear();
    EXPECT_TRUE(m->CheckProcess(message));
    EXPECT_EQ(message, "");
}

TEST(ConvertManager, AFileNoProcessClaimsIsRefusedAndNoDatabaseIsMade) {
    Registered registered;
    TempFolder temp;
    const std::string other = WriteText(temp / "other.xml", "<Other a=\"1\"><b/></Other>");
    auto m = NewManager(other, temp / "out.sqlite");
    m->UpdateInfo(true);
    EXPECT_EQ(m->ActiveProcess(), nullptr);
    EXPECT_EQ(m->Analizer().XMLInfo().StyleSheetHref, "");
    EXPECT_FALSE(m->Analizer().XMLInfo().HasXSLLocalPath);
    std::string message;
    EXPECT_FALSE(m->CheckProcess(message));
    EXPECT_EQ(message, "Не определён тип файла");
    EXPECT_FALSE(fs::exists(temp / "out.sqlite"));
}

TEST(ConvertManager, ASecondIntializeAddsNoDestinationAndBrokenInputsRaise) {
    Registered registered;
    TempFolder temp;
    TcsConvertManager m;
    m.Intialize(kSchemas, kFixtures);
    m.Intialize(kSchemas, kFixtures);
    EXPECT_EQ(m.Destinations().Count(), DestinationInfoManager().Count());
    ASSERT_NE(m.ActiveDestination(), nullptr);
    EXPECT_NE(m.Trace().Storage().size(), 0u);

    TTestRecordProcess::XSDName = "sub/Missing.xsd";
    m.SetFileName(kDocument);
    try {
        m.UpdateInfo(false);
        ADD_FAILURE() << "a missing XSD went unnoticed";
    } catch (const std::exception& e) {
        EXPECT_EQ(std::string(e.what()), "Файл XSD не найден: " + kFixtures + "sub/Missing.xsd");
    }
    const std::string broken = WriteText(temp / "broken.xml", "<schema><tables><Table ID=\"1\"");
    EXPECT_THROW(m.Intialize(broken, kFixtures), std::exception);
}

TEST(ConvertManager, TheFilesCoordinateSystemsAreFoundThroughTheLinksAndNoted) {
    TcsConvertManager m;
    EXPECT_EQ(m.FindCoordSystem("МСК-26 от СК-95, зона 1"), nullptr);
    TcsCoordSystemManager systems(nullptr, true);
    TcsRosreestrXMLCoordSysLinksManager links;
    links.SetCoordSystemManager(&systems);
    links.AddLink("МСК-26 от СК-95, зона 1", "plan_m");
    m.CoordSysLinks = &links;
    TcsGeometryBounds bounds;
    bounds.ProcessCoord(10, 20);
    bounds.ProcessCoord(30, 40);
    ASSERT_NE(m.UpdateXmlInfoCoordSystem("МСК-26 от СК-95, зона 1", &bounds), nullptr);
    EXPECT_EQ(m.UpdateXmlInfoCoordSystem("Своя", &bounds), nullptr);
    const TcsXMLCoordSystemsInfo& info = *m.Analizer().XMLInfo().CoordSystemsInfo();
    ASSERT_EQ(info.Count(), 1);
    EXPECT_EQ(info.IDs(0), "plan_m");
    EXPECT_TRUE(info.HasUnknownCRS());
    EXPECT_EQ(info.CountUnknownCRS(), 1);
}

TEST(ConvertManager, SettingsRoundTrip) {
    Registered registered;
    TempFolder temp;
    {
        TcsConvertManager m;
        m.Intialize(kSchemas, kFixtures);
        m.ActiveDestination()->Config().FileName = "postgresql://u@h:5433/db";
        m.ActiveDestination()->Config().UseFixedBounds = true;
        m.ActiveDestination()->Config().UserBounds()->SetXMax(500);
        m.WriteToFile(temp / "settings.xml");
    }
    TcsConvertManager m;
    m.Intialize(kSchemas, kFixtures);
    m.ReadFromFile(temp / "settings.xml");
    const TcsXMLProcessDestinationConfig& c = m.ActiveDestination()->Config();
    EXPECT_EQ(c.FileName, "postgresql://u@h:5433/db");
    EXPECT_TRUE(c.UseFixedBounds);
    EXPECT_EQ(c.ActiveBounds().XMax(), 500);
    std::stringstream text;
    text << std::ifstream(temp / "settings.xml").rdbuf();
    EXPECT_NE(text.str().find("DestinationClass=\"TcsXMLDBDestination\""), std::string::npos) << text.str();
    EXPECT_NE(text.str().find("<ActiveDestination>TcsXMLDBDestination</ActiveDestination>"), std::string::npos);
}

// ---------------------------------------------------------------------------------------------
// Session items

namespace {

// A destination that notes what it is asked and refuses what it is told to.
class TRecordingDestination : public TcsXMLProcessDestination {
public:
    using TcsXMLProcessDestination::TcsXMLProcessDestination;
    std::vector<std::string> Log;
    std::string Refuse;
    void BeginTransaction() override { Log.push_back("begin"); }
    bool CommitSession(TcsXMLProcessSessionItem& aItem) override {
        if (aItem.PartTypeString() == Refuse) return false;
        Log.push_back(aItem.PartTypeString() + "<" + aItem.ParentKey().AsString());
        return true;
    }
    void CommitAllSession(bool) override { Log.push_back("all"); }
};

}  // namespace

TEST(SessionItems, CommitOrderWithAndWithoutFromFirst) {
    for (const bool fromFirst : {false, true}) {
        TcsConvertManager m;
        m.Destinations().Add(std::make_unique<TRecordingDestination>());
        auto* d = static_cast<TRecordingDestination*>(m.Destinations().Items(0));
        d->SetManager(&m);
        m.SetProcessDestination("TcsXMLProcessDestination");
        ASSERT_EQ(m.ActiveDestination(), d);
        TcsXMLProcessController& c = m.Session();
        TcsXMLProcessSessionItem* a = c.OpenSessionItem(std::string("a"), nullptr, true);
        TcsXMLProcessSessionItem* b = c.OpenSessionItem(std::string("b"), a, true);
        c.OpenSessionItem(std::string("c"), b, true);
        c.OpenSessionItem(std::string("d"), a, true);
        EXPECT_EQ(a->GetKey().AsInteger(), 1);
        c.CommitAllSession(false, fromFirst);
        const std::vector<std::string> expected =
            fromFirst ? std::vector<std::string>{"begin", "a<", "b<1", "c<2", "d<1", "all"}
                      : std::vector<std::string>{"begin", "d<1", "c<2", "b<1", "a<", "all"};
        EXPECT_EQ(d->Log, expected) << (fromFirst ? "from first" : "from last");
        EXPECT_EQ(c.SessionItems().Count(), 0);
        EXPECT_FALSE(c.InTransaction());
    }
}

TEST(SessionItems, ARefusedItemStopsTheCommitAndStaysOpen) {
    TcsConvertManager m;
    m.Destinations().Add(std::make_unique<TRecordingDestination>());
    auto* d = static_cast<TRecordingDestination*>(m.Destinations().Items(0));
    m.SetProcessDestination("TcsXMLProcessDestination");
    d->Refuse = "b";
    TcsXMLProcessController& c = m.Session();
    TcsXMLProcessSessionItem* a = c.OpenSessionItem(std::string("a"), nullptr, false);
    c.OpenSessionItem(std::string("b"), a, false);
    c.OpenSessionItem(std::string("c"), a, false);
    EXPECT_EQ(c.CommitSession(c.SessionItems().Items(1)), -1);
    EXPECT_EQ(c.SessionItems().Count(), 3);
    c.CommitAllSession(false, false);
    EXPECT_EQ(d->Log, (std::vector<std::string>{"begin", "c<", "all"}));
    EXPECT_EQ(c.SessionItems().Count(), 2);
}

TEST(SessionItems, SetValueBySourceUpdatesTheValueOfThatSourceOnly) {
    TcsXMLProcessSessionItem item;
    item.SetValue("/a/bb", kValueText, "1");
    item.SetValue("/a/b", kValueText, "2");
    item.SetValue("/a/c", kValueText, "3");
    TcsXMLProcessSessionItemValue& again = item.SetValue("/a/b", kValueNumber, "4");
    EXPECT_EQ(item.Values().ValueCount(), 3);
    EXPECT_EQ(&again, item.Values().GetValueSourceItem("/a/b"));
    EXPECT_EQ(again.Value.AsString(), "4");
    EXPECT_EQ(again.OldValue.AsString(), "2");
    EXPECT_TRUE(again.Changed);
    EXPECT_EQ(again.DataType, kValueNumber);
    EXPECT_EQ(item.Values().GetValueSourceItem("/a/bb")->Value.AsString(), "1");
    item.AddValue("=x", 5, kValueText, "slot");
    EXPECT_EQ(item.Values().GetValue(5).AsString(), "slot");
    EXPECT_EQ(item.Values().GetValueItem(item.Values().ValueIndexInPart(5))->PartTypeString, "=x");
}

// ---------------------------------------------------------------------------------------------
// Into a database

TEST(DatabaseDestination, ConvertsTheFixtureIntoSQLiteWithGeometryThatOGRReads) {
    Registered registered;
    TempFolder temp;
    const std::string db = temp / "out.sqlite";
    auto m = NewManager(kDocument, db);
    ASSERT_EQ(Convert(*m), "");
    EXPECT_EQ(Rows(db, "SELECT ID, PARENT_ID, NAME, VALUE_1, VALUE_2 FROM XML_ITEMS ORDER BY ID"),
              (std::vector<std::string>{"1|NULL|Дом на углу|01|120.5", "2|1|Иванов И. И.|NULL|NULL", "3|1|Петрова А. А.|NULL|NULL",
                                        "4|NULL|Мост|02|NULL", "5|NULL|Сарай & склад|03|не число"}));
    EXPECT_EQ(Rows(db, "SELECT COUNT(*) FROM XML_ITEMS WHERE GEOMETRY IS NOT NULL"), std::vector<std::string>{"2"});
    const std::string command = "ogrinfo -ro -al -q '" + db + "' 2>&1";
    std::string out;
    if (FILE* p = popen(command.c_str(), "r")) {
        char buf[4096];
        while (size_t n = fread(buf, 1, sizeof buf, p)) out.append(buf, n);
        pclose(p);
    }
    EXPECT_NE(out.find("POLYGON ((0 0,0 10,10 10,10 0,0 0))"), std::string::npos) << out;

    // A second file into the same database continues its keys.
    auto again = NewManager(kDocument, db);
    ASSERT_EQ(Convert(*again), "");
    EXPECT_EQ(Rows(db, "SELECT MIN(ID), MAX(ID), COUNT(*) FROM XML_ITEMS"), std::vector<std::string>{"1|10|10"});
    // The spatial index, fed by the load itself while a file's rows are written, holds them all
    // afterwards, and its insert trigger is back.
    EXPECT_EQ(SpatialIndexState(db, "XML_ITEMS", "GEOMETRY"), "1|3|4|4");
    EXPECT_EQ(SpatialIndexChecked(db, "XML_ITEMS", "GEOMETRY"), "1");
    EXPECT_EQ(Rows(db, "SELECT DISTINCT xmin, xmax, ymin, ymax FROM idx_XML_ITEMS_GEOMETRY i JOIN XML_ITEMS t ON i.pkid = t.ROWID "
                       "WHERE t.NAME = 'Дом на углу'"),
              std::vector<std::string>{"0.0|10.0|0.0|10.0"});
}

TEST(DatabaseDestination, AFailedFileLeavesTheDatabaseAsItWasAndRemovesOneItMade) {
    Registered registered;
    TempFolder temp;
    const std::string db = temp / "out.sqlite";
    std::string text;
    {
        std::stringstream s;
        s << std::ifstream(kDocument).rdbuf();
        text = s.str();
    }
    const std::string truncated = WriteText(temp / "truncated.xml", text.substr(0, text.find("<Record id=\"r3\">") + 30));
    auto first = NewManager(truncated, db);
    const std::string failure = Convert(*first);
    EXPECT_NE(failure, "");
    EXPECT_FALSE(fs::exists(db)) << "the database made for a failed file stays";

    ASSERT_EQ(Convert(*NewManager(kDocument, db)), "");
    const auto before = Rows(db, "SELECT * FROM XML_ITEMS ORDER BY ID");
    EXPECT_NE(Convert(*NewManager(truncated, db)), "");
    EXPECT_EQ(Rows(db, "SELECT * FROM XML_ITEMS ORDER BY ID"), before);

    // A stop through the status callback rolls back as well.
    auto stopped = NewManager(kDocument, db);
    int calls = 0;
    stopped->FOnStatusProcedure = [&](const std::string&, TcsStatusKind aKind, int64_t) { return aKind != skPosition || ++calls < 8; };
    EXPECT_EQ(Convert(*stopped), "");
    EXPECT_FALSE(stopped->Finished);
    EXPECT_EQ(Rows(db, "SELECT * FROM XML_ITEMS ORDER BY ID"), before);
    EXPECT_EQ(SpatialIndexState(db, "XML_ITEMS", "GEOMETRY"), "1|3|2|2") << "the rolled back files leave the index as it was";
    EXPECT_EQ(SpatialIndexChecked(db, "XML_ITEMS", "GEOMETRY"), "1");
}

TEST(DatabaseDestination, AFileWithoutRecordsStillLeavesItsNewDatabaseWithEveryTable) {
    // The tables of a new database are made beside the walk; a walk with nothing to store
    // still waits for them.
    Registered registered;
    TempFolder temp;
    const std::string db = temp / "out.sqlite";
    const std::string empty =
        WriteText(temp / "empty.xml", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<TestDocument Version=\"2\"><Header/></TestDocument>");
    ASSERT_EQ(Convert(*NewManager(empty, db)), "");
    EXPECT_EQ(Rows(db, "SELECT COUNT(*) FROM XML_ITEMS"), std::vector<std::string>{"0"});
    EXPECT_EQ(SpatialIndexChecked(db, "XML_ITEMS", "GEOMETRY"), "1");
    ASSERT_EQ(Convert(*NewManager(kDocument, db)), "");
    EXPECT_EQ(Rows(db, "SELECT MIN(ID), MAX(ID) FROM XML_ITEMS"), std::vector<std::string>{"1|5"});
}

TEST(DatabaseDestination, ConvertsIntoANewPostgreSQLDatabaseAndRollsBackAFailedFile) {
    const char* socket = SuitePgSocket();
    if (!socket) GTEST_SKIP() << "no PostgreSQL server for the suite (TM_PG_SOCKET)";
    Registered registered;
    TempFolder temp;
    const std::string name = "tmconv_" + std::to_string(::getpid());
    const std::string url = "postgresql://tm@/" + name + "?host=" + socket;
    auto psql = [&](const std::string& aSQL) { return Psql(socket, name, temp.Path, aSQL); };
    ASSERT_EQ(Convert(*NewManager(kDocument, url)), "");
    EXPECT_EQ(psql("SELECT COUNT(*), COUNT(\"GEOMETRY\") FROM \"XML_ITEMS\""), "5|2\n");
    EXPECT_EQ(psql("SELECT \"VALUE_2\" FROM \"XML_ITEMS\" WHERE \"NAME\" = 'Сарай & склад'"), "не число\n");
    const std::string truncated = WriteText(temp / "truncated.xml", "<TestDocument><Record id=\"r\"><Name>a</Name></Record><Record>");
    EXPECT_NE(Convert(*NewManager(truncated, url)), "");
    EXPECT_EQ(psql("SELECT COUNT(*) FROM \"XML_ITEMS\""), "5\n");
    DropPgDatabase(socket, name);
}

TEST(DatabaseDestination, AnUnwritableOutputIsNamed) {
    Registered registered;
    auto m = NewManager(kDocument, "/proc/no-such-folder/out.sqlite");
    const std::string failure = Convert(*m);
    EXPECT_NE(failure.find("/proc/no-such-folder/out.sqlite"), std::string::npos) << failure;
}

// ---------------------------------------------------------------------------------------------
// The full walk

namespace {

// Leaf texts and attributes of the records, counted on a document loaded whole.
int LeavesAndAttributes(xml::PXMLNode aNode) {
    int n = 0;
    for (xml::PXMLNode a = aNode->FirstAttribute(); a; a = a->NextSibling()) ++n;
    bool element = false;
    for (xml::PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling())
        if (c->NodeType() == xml::ntElement) {
            element = true;
            n += LeavesAndAttributes(c);
        }
    if (!element && !aNode->Text().empty()) ++n;
    return n;
}

}  // namespace

TEST(FullWalk, EveryLeafAndAttributeReachesOneValueAndRepeatsBecomeChildItems) {
    Registered registered;
    UseFullSchema = true;
    TempFolder temp;
    const std::string db = temp / "full.sqlite";
    auto m = NewManager(kDocument, db);
    ASSERT_EQ(Convert(*m), "");

    xml::TXMLDocument whole;
    ASSERT_TRUE(whole.LoadFromFile(kDocument));
    int expected = 0;
    for (xml::PXMLNode r = whole.DocumentElement()->FirstChild(); r; r = r->NextSibling())
        if (r->NodeName() == "Record") expected += LeavesAndAttributes(r);
    // Values are in the value table, except those a column took (none by path in the schema).
    EXPECT_EQ(Rows(db, "SELECT COUNT(*) FROM XML_VALUES"), std::vector<std::string>{std::to_string(expected)});
    EXPECT_EQ(Rows(db, "SELECT VALUE FROM XML_VALUES WHERE SOURCE = '/TestDocument/Record/Kind' ORDER BY ID"),
              (std::vector<std::string>{"Здание", "Сооружение", "03"}));
    EXPECT_EQ(Rows(db, "SELECT SOURCE, VALUE FROM XML_VALUES WHERE SOURCE LIKE '%Address%' ORDER BY SOURCE"),
              (std::vector<std::string>{"/TestDocument/Record/Address/@Code|77", "/TestDocument/Record/Address/House|1а",
                                        "/TestDocument/Record/Address/Street|Лесная"}));
    // Owners and points are child rows of their record.
    EXPECT_EQ(Rows(db, "SELECT c.PART_PATH, COUNT(*) FROM XML_ITEMS c JOIN XML_ITEMS p ON c.PARENT_ID = p.ID "
                       "WHERE p.PART_PATH = '/TestDocument/Record' GROUP BY c.PART_PATH ORDER BY 1"),
              (std::vector<std::string>{"/TestDocument/Record/Owner|2", "/TestDocument/Record/Point|7"}));
    EXPECT_EQ(Rows(db, "SELECT v.VALUE FROM XML_VALUES v JOIN XML_ITEMS i ON v.ITEM_ID = i.ID "
                       "WHERE i.PART_PATH = '/TestDocument/Record/Owner' AND v.SOURCE LIKE '%FullName' ORDER BY v.ID"),
              (std::vector<std::string>{"Иванов И. И.", "Петрова А. А."}));
}

TEST(FullWalk, AnElementTheXSDDoesNotKnowRaisesUnlessTolerated) {
    Registered registered;
    UseFullSchema = true;
    TempFolder temp;
    const std::string file = WriteText(temp / "unknown.xml",
                                       "<TestDocument><Record id=\"x\"><Name>n</Name><Extra a=\"1\">text<Deep>d</Deep></Extra>"
                                       "<Extra a=\"2\"/></Record></TestDocument>");
    EXPECT_EQ(Convert(*NewManager(file, temp / "a.sqlite")), "Не найден XSD элемент по пути /TestDocument/Record/Extra");
    EXPECT_FALSE(fs::exists(temp / "a.sqlite"));
    TTestRecordProcess::Tolerate = true;
    ASSERT_EQ(Convert(*NewManager(file, temp / "b.sqlite")), "");
    EXPECT_EQ(Rows(temp / "b.sqlite", "SELECT SOURCE, VALUE FROM XML_VALUES WHERE SOURCE LIKE '%Extra%' ORDER BY ID"),
              (std::vector<std::string>{"/TestDocument/Record/Extra/@a|1", "/TestDocument/Record/Extra|text",
                                        "/TestDocument/Record/Extra/Deep|d", "/TestDocument/Record/Extra/@a|2"}));
}

// ---------------------------------------------------------------------------------------------
// tmconvert

namespace {

struct RunResult {
    int Status = -1;
    std::string Out;
};

RunResult RunTmconvert(const std::string& aArguments) {
    RunResult r;
    const std::string command = std::string(TM_TMCONVERT) + " " + aArguments + " 2>&1";
    FILE* p = popen(command.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    while (size_t n = fread(buf, 1, sizeof buf, p)) r.Out.append(buf, n);
    const int status = pclose(p);
    r.Status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

}  // namespace

TEST(Tmconvert, RefusesWhatItCannotConvertWithTheStatusesOfTmimport) {
    TempFolder temp;
    const std::string other = WriteText(temp / "other.xml", "<Other/>");
    RunResult r = RunTmconvert("'" + other + "' --db '" + (temp / "out.sqlite") + "' -q");
    EXPECT_EQ(r.Status, 1);
    EXPECT_NE(r.Out.find("Не определён тип файла"), std::string::npos) << r.Out;
    EXPECT_FALSE(fs::exists(temp / "out.sqlite"));
    r = RunTmconvert("'" + WriteText(temp / "bad.xml", "<Root><a>") + "' --db '" + (temp / "out.sqlite") + "' -q");
    EXPECT_EQ(r.Status, 1);
    EXPECT_EQ(std::count(r.Out.begin(), r.Out.end(), '\n'), 1) << r.Out;
    EXPECT_EQ(RunTmconvert("").Status, 2);
    EXPECT_EQ(RunTmconvert("x.xml --frobnicate").Status, 2);
    r = RunTmconvert("--help");
    EXPECT_EQ(r.Status, 0);
    for (const char* flag : {"--db", "--xsd", "--schema", "--full-schema", "--info", "--settings", "--save-settings", "-q"})
        EXPECT_NE(r.Out.find(flag), std::string::npos) << flag;
    r = RunTmconvert("'" + other + "' --db x.sqlite --schema '" + WriteText(temp / "broken-schema.xml", "<schema><tables>") + "'");
    EXPECT_EQ(r.Status, 1);
    EXPECT_NE(r.Out.find("broken-schema.xml"), std::string::npos) << r.Out;
}

TEST(Tmconvert, InfoNamesTheRootAndStyleSheetOfEveryRealExtract) {
    const fs::path data = fs::path(TM_SHARED_DATA) / "xml";
    if (!fs::is_directory(data)) {
        if (std::getenv("CI")) FAIL() << "the shared data is missing: " << data;
        GTEST_SKIP() << "no shared data at " << data;
    }
    TempFolder temp;
    MakeRealXSDFolder(data.parent_path(), temp.Path / "xsd");
    int files = 0;
    for (const auto& e : fs::recursive_directory_iterator(data)) {
        if (e.path().extension() != ".xml") continue;
        ++files;
        const RunResult r = RunTmconvert("'" + e.path().string() + "' --info --xsd '" + (temp / "xsd") + "'");
        EXPECT_EQ(r.Status, 0) << e.path() << "\n" << r.Out;
        xml::TXMLDocument whole;
        ASSERT_TRUE(whole.LoadFromFile(e.path().string())) << e.path();
        const std::string root(whole.DocumentElement()->NodeName());
        EXPECT_NE(r.Out.find("  Корневой элемент: " + root + "\n"), std::string::npos) << r.Out;
        std::string href;
        for (xml::PXMLNode n = whole.Node()->FirstChild(); n; n = n->NextSibling())
            if (n->NodeType() == xml::ntProcessingInstruction && n->NodeName() == "xml-stylesheet") {
                const std::string v(n->NodeValue());
                const size_t at = v.find("href=\"");
                if (at != std::string::npos) href = v.substr(at + 6, v.find('"', at + 6) - at - 6);
            }
        EXPECT_NE(r.Out.find("  Обработчик стиля: " + href + "\n"), std::string::npos) << r.Out;
    }
    EXPECT_GE(files, 20);
}
