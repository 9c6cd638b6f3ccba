// Schemas in real databases: every test runs on SQLite with SpatiaLite and on a private
// PostgreSQL server with PostGIS (started by the suite; its socket folder in TM_PG_SOCKET).

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <thread>

#include "csGeometryCore.h"
#include "scPostgreSQLProvider.h"
#include "scSQLiteProvider.h"
#include "schema_fixture.h"

using namespace tmi;
using namespace tmi::test;
namespace fs = std::filesystem;

namespace {

std::string Thrown(const std::function<void()>& aAction) {
    try {
        aAction();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "(nothing raised)";
}

int Shell(const std::string& aCommand) {
    const int status = std::system(aCommand.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The numbers of a WKT text, in order.
std::vector<double> NumbersOf(const std::string& aText) {
    std::vector<double> out;
    static const std::regex number(R"(-?\d+(\.\d+)?([eE][-+]?\d+)?)");
    for (auto it = std::sregex_iterator(aText.begin(), aText.end(), number); it != std::sregex_iterator(); ++it)
        out.push_back(std::stod(it->str()));
    return out;
}

// The coordinates of a little-endian WKB value, in order.
std::vector<double> NumbersOfWKB(const std::string& aBytes) {
    std::vector<double> out;
    size_t at = 0;
    auto u32 = [&] {
        uint32_t v = 0;
        std::memcpy(&v, aBytes.data() + at, 4);
        at += 4;
        return v;
    };
    auto f64 = [&] {
        double v = 0;
        std::memcpy(&v, aBytes.data() + at, 8);
        at += 8;
        out.push_back(v);
    };
    std::function<void()> geometry = [&] {
        ++at;  // byte order
        const uint32_t type = u32() % 1000;
        if (type == 1) {
            f64(), f64();
        } else if (type == 3) {
            for (uint32_t rings = u32(); rings; --rings)
                for (uint32_t points = u32(); points; --points) f64(), f64();
        } else if (type == 6 || type == 4 || type == 7) {
            for (uint32_t parts = u32(); parts; --parts) geometry();
        }
    };
    geometry();
    return out;
}

// The first line where two listings part, with its neighbour; empty when they agree.
std::string FirstDifference(const std::vector<std::string>& a, const std::vector<std::string>& b) {
    for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        const std::string x = i < a.size() ? a[i] : "(none)", y = i < b.size() ? b[i] : "(none)";
        if (x != y) return "line " + std::to_string(i) + ":\n  " + x + "\n  " + y;
    }
    return {};
}

class DB : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (Postgres()) {
            const char* socket = std::getenv("TM_PG_SOCKET");
            if (!socket || !*socket) {
                if (std::getenv("CI")) FAIL() << "TM_PG_SOCKET is not set: the suite's PostgreSQL server did not start";
                GTEST_SKIP() << "no PostgreSQL server for the suite (TM_PG_SOCKET)";
            }
            fSocket = socket;
        }
        std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? static_cast<char>(std::tolower(c)) : '_';
        fBase = "t" + std::to_string(::getpid()) + "_" + name.substr(0, 40);
    }
    void TearDown() override {
        if (Postgres() && !fSocket.empty())
            for (const std::string& db : fMade)
                Shell("psql -h " + fSocket + " -U tm -d postgres -q -c 'DROP DATABASE IF EXISTS \"" + db + "\" WITH (FORCE)' >/dev/null 2>&1");
    }

    [[nodiscard]] bool Postgres() const { return GetParam() == "postgresql"; }
    std::string Database(const std::string& aSuffix) {
        fMade.push_back(fBase + aSuffix);
        return Postgres() ? fBase + aSuffix : (fTmp.path / (fBase + aSuffix + ".sqlite")).string();
    }
    std::string Connection(const std::string& aDatabase, const std::string& aExtra = {}) const {
        std::string out = Postgres() ? "Server=" + fSocket + ";Database=" + aDatabase + ";User_Name=tm" : "FileName=" + aDatabase;
        return aExtra.empty() ? out : out + ";" + aExtra;
    }
    std::unique_ptr<TscDBCustomProvider> Provider(TscSchema& aSchema, const std::string& aDatabase, const std::string& aExtra = {}) {
        std::unique_ptr<TscDBCustomProvider> p;
        if (Postgres()) p = std::make_unique<TscPostgreSQLProvider>(&aSchema);
        else p = std::make_unique<TscSQLiteProvider>(&aSchema);
        p->SetConnectionString(Connection(aDatabase, aExtra));
        return p;
    }
    // The engine's own client runs the script into a new database.
    int RunClient(const fs::path& aScript, const std::string& aDatabase) {
        if (!Postgres()) return Shell("sqlite3 -bail " + aDatabase + " < " + aScript.string() + " > /dev/null");
        if (Shell("psql -h " + fSocket + " -U tm -d postgres -q -c 'CREATE DATABASE \"" + aDatabase + "\"' > /dev/null") != 0) return -1;
        return Shell("psql -h " + fSocket + " -U tm -d " + aDatabase + " -v ON_ERROR_STOP=1 -1 -q -f " + aScript.string() + " > /dev/null");
    }
    // What the engine's catalogue says of the schema's tables: columns, indices, keys, geometry.
    std::vector<std::string> Catalogue(TscDataManager& aManager) {
        std::vector<std::string> out;
        for (const std::string& t : aManager.CatalogueTables()) {
            out.push_back("table " + t);
            for (const TscCatalogueColumn& c : aManager.CatalogueColumns(t))
                out.push_back("  " + c.Name + " " + c.Type + (c.NotNull ? " not null" : ""));
        }
        const char* const queries[] = {
            "SELECT name, sql FROM sqlite_master WHERE type = 'index' AND sql IS NOT NULL ORDER BY name",
            "SELECT m.name, f.* FROM sqlite_master m, pragma_foreign_key_list(m.name) f WHERE m.type = 'table' ORDER BY 1, 2",
            "SELECT f_table_name, f_geometry_column, srid, geometry_type FROM geometry_columns ORDER BY 1, 2",
            "SELECT srid, auth_name, proj4text FROM spatial_ref_sys WHERE srid >= 900000 ORDER BY 1",
            "SELECT indexname, indexdef FROM pg_indexes WHERE schemaname = current_schema() ORDER BY 1",
            "SELECT conname, pg_get_constraintdef(oid) FROM pg_constraint WHERE connamespace = current_schema()::regnamespace "
            "ORDER BY 1",
            "SELECT f_table_name, f_geometry_column, srid, type FROM geometry_columns ORDER BY 1, 2",
            "SELECT srid, auth_name, proj4text FROM spatial_ref_sys WHERE srid >= 900000 ORDER BY 1"};
        for (int i = Postgres() ? 4 : 0; i < (Postgres() ? 8 : 4); ++i) {
            std::unique_ptr<TscDataSet> rows = aManager.Query(queries[i]);
            for (int r = 0; r < rows->RecordCount(); ++r) {
                std::string line = "row";
                for (int c = 0; c < static_cast<int>(rows->Fields.size()); ++c) line += " | " + rows->Cell(r, c).value_or("NULL");
                out.push_back(line);
            }
        }
        return out;
    }
    // Every metadata row, in key order.
    std::vector<std::string> MetadataRows(TscDBCustomProvider& aProvider) {
        std::vector<std::string> out;
        for (int i = 0; i < aProvider.HandlersCount(); ++i) {
            auto* h = static_cast<TscSQLDBCustomHandler*>(aProvider.GetHandlerByIndex(i));
            std::unique_ptr<TscDataSet> rows = aProvider.DataManager().Query("SELECT * FROM " + aProvider.Quote(h->TableName()));
            std::vector<std::string> lines;
            for (int r = 0; r < rows->RecordCount(); ++r) {
                std::string line = h->TableName();
                for (int c = 0; c < static_cast<int>(rows->Fields.size()); ++c)
                    line += " " + rows->Fields[static_cast<size_t>(c)] + "=" + rows->Cell(r, c).value_or("NULL");
                lines.push_back(line);
            }
            std::sort(lines.begin(), lines.end());
            out.insert(out.end(), lines.begin(), lines.end());
        }
        return out;
    }
    // The output tables in a local coordinate system.
    static void Build(TscSchema& aSchema) {
        BuildOutputTables(aSchema);
        SetLocalCoordSystem(aSchema);
    }

    TempFolder fTmp;
    std::string fSocket;
    std::string fBase;
    std::vector<std::string> fMade;
};

TEST_P(DB, GeneratedSchemaLoadsBackWholeAndAnalysisFollowsTheCatalogue) {
    const std::string db = Database("a");
    TscSchema built;
    Build(built);
    auto provider = Provider(built, db);
    provider->Generate(built, nullptr, {}, true);

    TscSchema loaded;
    loaded.Open(Provider(loaded, db), true);
    ASSERT_TRUE(loaded.Loaded());
    EXPECT_EQ(FirstDifference(Dump(loaded), Dump(built)), "");
    EXPECT_EQ(loaded.Settings().ItemByBaseName("Awkward")->PropertyValuesByName("Value").AsString(),
              "it's a \\path; DROP TABLE \"Tables\";\n-- next line");
    EXPECT_TRUE(loaded.CoordSystems().MapinfoSupport());
    EXPECT_TRUE(loaded.CheckAll().empty()) << "every geometry field's set came back";

    auto* db2 = static_cast<TscDBCustomProvider*>(loaded.Provider());
    db2->Analize(loaded);
    std::vector<std::string> abnormal;
    auto collect = [&](TscObjects& aList) {
        for (TscObject* o : aList.Objects()) {
            if (o->DBObjectStatus() != osdbNormal) abnormal.push_back(o->CheckName() + " " + std::to_string(o->DBObjectStatus()));
            for (TscObjects* child : o->ChildObjects())
                if (child->StorageType() == stStandart)
                    for (TscObject* c : child->Objects())
                        if (c->DBObjectStatus() != osdbNormal) abnormal.push_back(c->CheckName());
        }
    };
    for (const auto& list : loaded.ROOTObjects()) {
        for (TscObjects* sub : list->SubLists()) collect(*sub);
        if (list->ClassName() != "TscProviders") collect(*list);
    }
    EXPECT_TRUE(abnormal.empty()) << abnormal.front();
    EXPECT_TRUE(db2->RunTimeAddedTables().empty());

    // A column dropped by hand, a table made by hand.
    db2->DataManager().ExecuteSQL("ALTER TABLE \"Участки\" DROP COLUMN \"Примечание\"");
    db2->DataManager().ExecuteSQL("CREATE TABLE \"ручная\" (x integer)");
    db2->Analize(loaded);
    TscTable* parcels = loaded.TableByName("Участки");
    EXPECT_EQ(parcels->FieldByName("Примечание")->DBObjectStatus(), osdbNotCreated);
    EXPECT_EQ(parcels->FieldByName("КадастровыйНомер")->DBObjectStatus(), osdbNormal);
    EXPECT_EQ(parcels->DBObjectStatus(), osdbModify);
    EXPECT_EQ(loaded.TableByName("Квартал")->DBObjectStatus(), osdbNormal);
    EXPECT_EQ(db2->RunTimeAddedTables(), std::vector<std::string>{"ручная"});

    // The custom system entered the engine's register with the model's Proj4.
    const std::string proj4 =
        db2->DataManager().GetSQLResult("SELECT proj4text FROM spatial_ref_sys WHERE srid = 910021", "", true).AsString();
    EXPECT_NE(proj4.find("+proj=tmerc"), std::string::npos) << proj4;
    EXPECT_NE(proj4.find("+lon_0=46.5"), std::string::npos) << proj4;
}

TEST_P(DB, ScriptRunByTheEnginesClientMakesTheSameDatabase) {
    TscSchema built;
    Build(built);
    auto script = Provider(built, "unused", "WorkMode=OnlySQL");
    script->Generate(built, nullptr, {}, true);
    const std::string text = script->Script();
    EXPECT_EQ(text.rfind("--Скрипт сохранение метаданных схемы\n--Дата создания ", 0), 0u);
    EXPECT_NE(text.find("\"Спецзоны\""), std::string::npos);
    EXPECT_NE(built.Debug().Items().size(), 0u);
    bool mode = false;
    for (const auto& e : built.Debug().Items()) mode = mode || e.Text == "Режим работы - OnlySQL";
    EXPECT_TRUE(mode);
    const fs::path file = fTmp.path / "script.sql";
    WriteAll(file, text);
    const std::string byClient = Database("client");
    ASSERT_EQ(RunClient(file, byClient), 0) << text.substr(0, 2000);

    const std::string direct = Database("direct");
    TscSchema other;
    Build(other);
    auto real = Provider(other, direct);
    real->Generate(other, nullptr, {}, true);
    bool realMode = false;
    for (const auto& e : other.Debug().Items()) realMode = realMode || e.Text == "Режим работы - RealMode";
    EXPECT_TRUE(realMode);

    TscSchema scriptSchema;
    auto scripted = Provider(scriptSchema, byClient);
    scripted->Open();
    const std::vector<std::string> catalogue = Catalogue(real->DataManager());
    EXPECT_EQ(FirstDifference(Catalogue(scripted->DataManager()), catalogue), "");
    EXPECT_EQ(FirstDifference(MetadataRows(*scripted), MetadataRows(*real)), "");
    // What the catalogue must hold.
    auto has = [&](const std::string& aPart) {
        return std::any_of(catalogue.begin(), catalogue.end(), [&](const std::string& l) { return l.find(aPart) != std::string::npos; });
    };
    EXPECT_TRUE(has("table Участки"));
    EXPECT_TRUE(has("910021"));
    EXPECT_TRUE(has(Postgres() ? "FOREIGN KEY (\"КодУчастка\") REFERENCES \"Участки\"(\"TableId\") ON UPDATE RESTRICT ON DELETE CASCADE"
                               : "| ЧастиУчастка | 0 | 0 | Участки | КодУчастка | TableId | RESTRICT | CASCADE"));
    EXPECT_TRUE(has(Postgres() ? "  TableId integer not null" : "  TableId INTEGER not null"));
    EXPECT_TRUE(has("ix_1_3"));
}

TEST_P(DB, ARefusedStatementRollsTheWholeRunBack) {
    // A table outside the schema takes the ninth table's name.
    const std::string db = Database("r");
    TscSchema schema;
    Build(schema);
    auto provider = Provider(schema, db);
    provider->CreateDatabase();
    provider->Open();
    provider->DataManager().ExecuteSQL("CREATE TABLE \"Спецзоны\" (x integer)");
    const std::string error = Thrown([&] { provider->Generate(schema, nullptr, {}, false); });
    EXPECT_NE(error.find("TscTable Спецзоны (9)"), std::string::npos) << error;
    EXPECT_NE(error.find("CREATE TABLE \"Спецзоны\" (\"TableId\""), std::string::npos) << error;
    EXPECT_NE(error.find(Postgres() ? "already exists" : "already exists"), std::string::npos) << error;
    provider->Open();
    EXPECT_EQ(provider->DataManager().CatalogueTables(), std::vector<std::string>{"Спецзоны"});

    // A run that made its database removes it again.
    const std::string fresh = Database("f");
    TscSchema bad;
    Build(bad);
    TscTable* passport = bad.TableByName("Паспорт");
    auto* index = static_cast<TscIndex*>(passport->Indices().GetNewObject());
    index->SetBaseName("IX_чужое");
    index->SetIndexType(itIndex);
    index->AddIndexField(FieldOf(bad, "Участки", "Категория")->ID());
    auto failing = Provider(bad, fresh);
    const std::string second = Thrown([&] { failing->Generate(bad, nullptr, {}, true); });
    EXPECT_NE(second.find("TscIndex IX_чужое"), std::string::npos) << second;
    if (Postgres())
        EXPECT_EQ(Shell("psql -h " + fSocket + " -U tm -d " + fresh + " -c 'select 1' >/dev/null 2>&1"), 2) << "database left";
    else
        EXPECT_FALSE(fs::exists(fresh));
}

TEST_P(DB, FailedConnectionsNameProviderAndDatabaseButNeverThePassword) {
    TscSchema schema;
    schema.Debug().Start();
    auto provider = Provider(schema, Postgres() ? "no_such_db" : (fTmp.path / "none" / "x.sqlite").string(), "Password=s3cr3t");
    const std::string error = Thrown([&] { provider->Open(); });
    EXPECT_NE(error.find(provider->GetVisibleProviderName()), std::string::npos) << error;
    EXPECT_NE(error.find(Postgres() ? "no_such_db" : "x.sqlite"), std::string::npos) << error;
    EXPECT_NE(error.find(Postgres() ? "does not exist" : "unable to open"), std::string::npos) << error;
    EXPECT_EQ(error.find("s3cr3t"), std::string::npos) << error;
    EXPECT_EQ(provider->GetFullDescription().find("s3cr3t"), std::string::npos);
    for (const auto& e : schema.Debug().Items()) EXPECT_EQ(e.Text.find("s3cr3t"), std::string::npos);
    if (!Postgres()) {
        provider->SetConnectionString("FileName=/proc/tm-no-write/x.sqlite");
        const std::string create = Thrown([&] { provider->CreateDatabase(); });
        EXPECT_NE(create.find("Ошибка создания базы данных (SQLite (SpatiaLite), база данных \"/proc/tm-no-write/x.sqlite\")"),
                  std::string::npos)
            << create;
    } else {
        provider->SetConnectionString("Server=" + (fTmp.path / "nowhere").string() + ";Database=x;User_Name=tm;Password=s3cr3t");
        const std::string server = Thrown([&] { provider->Open(); });
        EXPECT_NE(server.find("No such file or directory"), std::string::npos) << server;
        EXPECT_EQ(server.find("s3cr3t"), std::string::npos) << server;
    }
    // An empty command raises before anything runs, connected or not.
    EXPECT_EQ(Thrown([&] { provider->DataManager().ExecuteSQL(" \n "); }), "Ошибка: Строка команды не должна быть пустой! ");
}

TEST_P(DB, GeometriesComeBackThroughTextAndBinaryAndIntersectionsAreExact) {
    const std::string db = Database("g");
    TscSchema schema;
    Build(schema);
    auto provider = Provider(schema, db);
    provider->Generate(schema, nullptr, {}, true);
    TscDataManager& m = provider->DataManager();
    TscDataManagerSQLGenerator& sql = m.SQLGenerator();
    EXPECT_EQ(provider->GetProviderFeatures() & kProviderFeatureSpatial, kProviderFeatureSpatial);
    const std::vector<std::string> shapes = {
        "POLYGON ((0 0, 10 0, 10 10, 0 10, 0 0), (2 2, 2 4, 4 4, 4 2, 2 2))",
        "MULTIPOLYGON (((20 0, 30 0, 30 10, 20 10, 20 0)), ((40 0, 50 0, 50 10, 40 10, 40 0)))",
        "POINT (1300000.125 -5514743.565)",
        "POLYGON ((10 0, 15 0, 15 5, 10 5, 10 0))",       // touches the first at its edge
        "POLYGON ((-5 -5, -1 -5, -5 -1, -5 -5))",          // a triangle whose box the query overlaps
    };
    for (size_t i = 0; i < shapes.size(); ++i) {
        TcsGeometry g;
        g.SetWKT(shapes[i]);
        m.ExecuteSQL("INSERT INTO \"Участки\" (\"TableId\", \"Geometry\") VALUES (" + std::to_string(i + 1) + ", " +
                     sql.GetGeometrySQL(g, 910021) + ")");
    }
    std::unique_ptr<TscDataSet> rows =
        m.Query("SELECT \"TableId\", " + sql.GetGeometryWKTSelectSQL("\"Geometry\"", "a") + ", " +
                sql.GetGeometryWKBSelectSQL("\"Geometry\"", "b") + " FROM \"Участки\" ORDER BY 1");
    ASSERT_EQ(rows->RecordCount(), 5);
    for (int i = 0; i < 3; ++i) {
        const std::vector<double> expected = NumbersOf(shapes[static_cast<size_t>(i)]);
        EXPECT_EQ(NumbersOf(rows->Value(i, "a").AsString()), expected) << rows->Value(i, "a").AsString();
        EXPECT_EQ(NumbersOfWKB(*rows->Cell(i, 2)), expected);
    }
    // A binary value goes back in through its hexadecimal text.
    std::string hex;
    for (unsigned char c : *rows->Cell(0, 2)) hex += "0123456789abcdef"[c >> 4], hex += "0123456789abcdef"[c & 15];
    EXPECT_EQ(m.GetSQLResult("SELECT ST_AsText(" + sql.GetWKBToGeometrySQL(hex) + ")", "", true).AsString(),
              rows->Value(0, "a").AsString());

    TcsGeometry query;
    query.SetWKT("POLYGON ((-2 0, 10 0, 10 -2, -2 -2, -2 0))");  // along the first's bottom edge, over the triangle's box
    const std::string where = sql.GetWhereGeometrySQL(query, "\"Geometry\"", goIntersect, 910021);
    EXPECT_EQ(where.rfind("ST_Intersects(\"Geometry\", ST_GeomFromText(", 0), 0u) << where;
    EXPECT_EQ(m.GetSQLListResult("SELECT \"TableId\" FROM \"Участки\" WHERE " + where + " ORDER BY 1"),
              (std::vector<std::string>{"1", "4"}));
    // The base knows no engine: an infix operation, and nothing without spatial features.
    TscDataManagerSQLGenerator base(m);
    EXPECT_EQ(base.GetGeometryOperationSQL(goIntersect), "intersect");
    EXPECT_EQ(base.GetWhereGeometrySQL(query, "g", goIntersect), "g intersect ");
}

TEST_P(DB, SessionsDeleteFirstAndWriteEachObjectOnce) {
    TscSchema schema;
    Build(schema);
    schema.ClearModifyObjects();
    auto provider = Provider(schema, "unused", "WorkMode=OnlySQL");
    provider->Open();
    TscTable* passport = schema.TableByName("Паспорт");
    schema.Tables().DeleteObject(passport, false);
    auto* added = static_cast<TscTable*>(schema.Tables().GetNewObject());
    added->SetBaseName("Новая");
    TscTable* block = schema.TableByName("Квартал");
    block->Edit();
    block->SetTitle("Кварталы");
    block->Post();
    schema.Save(*provider);
    const std::string& script = provider->Script();
    const size_t deleted = script.find("DELETE FROM \"Tables\" WHERE \"ID\" = '13'");
    const size_t inserted = script.find("INSERT INTO \"Tables\"");
    ASSERT_NE(deleted, std::string::npos) << script;
    ASSERT_NE(inserted, std::string::npos) << script;
    EXPECT_LT(deleted, inserted);
    EXPECT_EQ(script.find("INSERT INTO \"Tables\"", inserted + 1), std::string::npos) << "one insert: the new table";
    EXPECT_NE(script.find("UPDATE \"Tables\" SET \"Title\" = 'Кварталы' WHERE \"ID\" = '6'"), std::string::npos) << script;
    EXPECT_NE(script.find("DELETE FROM \"Fields\" WHERE \"ID\" = '209'"), std::string::npos) << "its fields go with it";

    // A session applies an object once, however often it is handed over.
    auto* handler = static_cast<TscSQLDBCustomHandler*>(provider->GetHandlerByObjectClass("TscTable"));
    TscSQLSession session;
    session.FullInsert = true;
    const size_t before = provider->Script().size();
    handler->SQL(added, nullptr, session);
    handler->SQL(added, nullptr, session);
    const std::string tail = provider->Script().substr(before);
    EXPECT_EQ(tail.find("INSERT INTO \"Tables\""), tail.rfind("INSERT INTO \"Tables\""));
    EXPECT_EQ(Thrown([&] { handler->SQL(static_cast<TscObject*>(nullptr), nullptr, session); }),
              "TscSQLDBCustomHandler.SQL: пустой объект");
}

TEST_P(DB, BackgroundFetchReportsProgressAndCancels) {
    const std::string db = Database("q");
    TscSchema schema;
    auto provider = Provider(schema, db);
    provider->CreateDatabase();
    provider->Open();
    const std::string many = Postgres() ? "SELECT x FROM generate_series(1, 20000000) AS x"
                                        : "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 20000000) SELECT x FROM c";
    TscQueryThread thread(provider->DataManager(), many);
    thread.Start();
    while (thread.GetFetchProgress() < 1000 && !thread.Finished()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_GE(thread.GetFetchProgress(), 1000);
    thread.FetchCancel();
    EXPECT_EQ(Thrown([&] { thread.WaitFor(); }), "Выборка прервана");

    TscQueryThread small(provider->DataManager(), Postgres() ? "SELECT x FROM generate_series(1, 100) AS x"
                                                            : "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 100) "
                                                              "SELECT x FROM c");
    small.Start();
    std::unique_ptr<TscDataSet> rows = small.WaitFor();
    EXPECT_EQ(rows->RecordCount(), 100);
    EXPECT_EQ(small.GetFetchProgress(), 100);
    EXPECT_EQ(rows->Value(99, "x").AsInteger(), 100);
}

TEST_P(DB, QueuedStatementsRunInOrderAndAFailureComesBackOnce) {
    const std::string db = Database("w");
    TscSchema schema;
    auto provider = Provider(schema, db);
    provider->CreateDatabase();
    provider->Open();
    TscDataManager& m = provider->DataManager();
    m.ExecuteSQL("CREATE TABLE w (n integer PRIMARY KEY, t text NOT NULL, g text)");
    auto insert = [](int aN, std::optional<std::string> aText, std::string aBig = {}) {
        TscProviderCommand c;
        c.CommandText = "INSERT INTO w (n, t, g) VALUES (:p1, :p2, :p3)";
        c.SetParameter("p1", std::to_string(aN));
        c.SetParameter("p2", std::move(aText));
        c.SetParameter("p3", std::move(aBig));
        return c;
    };
    auto count = [&] { return m.GetSQLResult("SELECT count(*) AS c FROM w", "c", true).AsInteger(); };

    // Many batches, some of them large enough to hold the caller back, in one transaction;
    // an update after its insert sees the row, so the order held.
    m.BeginTrans();
    {
        TscCommandQueue queue(m);
        queue.Start();
        for (int i = 1; i <= 3000; ++i) queue.Push(insert(i, "r" + std::to_string(i), i % 100 == 0 ? std::string(300000, 'x') : ""));
        TscProviderCommand update;
        update.CommandText = "UPDATE w SET t = 'last' WHERE n = 3000";
        queue.Push(std::move(update));
        // Sync lends the connection back between statements.
        queue.Sync();
        EXPECT_EQ(count(), 3000);
        queue.Push(insert(3001, "after sync"));
        queue.Flush();
        EXPECT_FALSE(queue.Running());
    }
    m.CommitTrans();
    EXPECT_EQ(count(), 3001);
    EXPECT_EQ(m.GetSQLResult("SELECT t FROM w WHERE n = 3000", "t", true).AsString(), "last");
    EXPECT_EQ(m.GetSQLResult("SELECT sum(n) AS s FROM w", "s", true).AsInteger(), 3001LL * 3002 / 2);

    // A refused statement: its failure comes back, the statements after it are not run, and
    // the caller rolls back.
    m.BeginTrans();
    {
        TscCommandQueue queue(m);
        queue.Start();
        queue.Push(insert(5000, "fine"));
        queue.Push(insert(5001, std::nullopt));  // NOT NULL
        for (int i = 5002; i < 5010; ++i) queue.Push(insert(i, "never"));
        const std::string error = Thrown([&] { queue.Flush(); });
        EXPECT_NE(error.find(Postgres() ? "null" : "NOT NULL"), std::string::npos) << error;
        EXPECT_EQ(Thrown([&] { queue.Flush(); }), "(nothing raised)");  // raised once
    }
    // (PostgreSQL answers nothing more in a transaction a statement has failed.)
    if (!Postgres()) {
        EXPECT_EQ(m.GetSQLResult("SELECT count(*) AS c FROM w WHERE n >= 5000", "c", true).AsInteger(), 1);
    }
    m.RollbackTrans();
    EXPECT_EQ(count(), 3001);

    // Discard drops what has not run; a queue left running is discarded by its end.
    m.BeginTrans();
    {
        TscCommandQueue queue(m);
        queue.Start();
        for (int i = 6000; i < 6100; ++i) queue.Push(insert(i, "dropped"));
        queue.Discard();
        EXPECT_FALSE(queue.Running());
        // Not started: statements run at once.
        queue.Push(insert(7000, "direct"));
        EXPECT_EQ(m.GetSQLResult("SELECT t FROM w WHERE n = 7000", "t", true).AsString(), "direct");
        TscCommandQueue left(m);
        left.Start();
        left.Push(insert(7001, "left"));
    }
    m.RollbackTrans();
    EXPECT_EQ(count(), 3001);
}

TEST_P(DB, PostedTasksRunInTurnAndTheCallerRunsFurtherAheadOfThem) {
    const std::string db = Database("p");
    TscSchema schema;
    auto provider = Provider(schema, db);
    provider->CreateDatabase();
    provider->Open();
    TscDataManager& m = provider->DataManager();
    auto insert = [](int aN, std::string aText) {
        TscProviderCommand c;
        c.CommandText = "INSERT INTO p (n, t) VALUES (:p1, :p2)";
        c.SetParameter("p1", std::to_string(aN));
        c.SetParameter("p2", std::move(aText));
        return c;
    };
    auto count = [&] { return m.GetSQLResult("SELECT count(*) AS c FROM p", "c", true).AsInteger(); };

    // A slow task makes the table the statements behind it go to. Meanwhile the caller hands
    // over more than the usual bound of statements without waiting: the task is held until
    // the caller is done, and would give up (failing the test) if the caller waited for it.
    {
        TscCommandQueue queue(m);
        queue.Start();
        std::atomic<bool> released{false};
        std::atomic<bool> gaveUp{false};
        queue.Post([&] {
            const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while (!released && std::chrono::steady_clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            gaveUp = !released;
            m.ExecuteSQL("CREATE TABLE p (n integer PRIMARY KEY, t text NOT NULL)");
        });
        for (int i = 1; i <= 40; ++i) queue.Push(insert(i, std::string(100000, 'a')));  // 4 MB
        released = true;
        queue.Post([&] { m.ExecuteSQL("UPDATE p SET t = 'between' WHERE n = 40"); });
        queue.Push(insert(41, "last"));
        queue.Flush();
        EXPECT_FALSE(gaveUp) << "the caller waited for the task";
    }
    EXPECT_EQ(count(), 41);
    EXPECT_EQ(m.GetSQLResult("SELECT t FROM p WHERE n = 40", "t", true).AsString(), "between");

    // A failed task comes back as a statement would, and nothing behind it runs.
    {
        TscCommandQueue queue(m);
        queue.Start();
        queue.Post([] { throw EscSchemaException("the database could not be made"); });
        queue.Push(insert(100, "never"));
        EXPECT_EQ(Thrown([&] { queue.Flush(); }), "the database could not be made");
    }
    EXPECT_EQ(count(), 41);

    // Without the thread a task runs at once.
    TscCommandQueue idle(m);
    idle.Post([&] { m.ExecuteSQL("DELETE FROM p WHERE n > 1"); });
    EXPECT_EQ(count(), 1);
}

TEST_P(DB, CommandLineGeneratesAndDumpsTheSchemaFile) {
    const std::string tool = TM_TMSCHEMA;
    const std::string file = (fs::path(TM_FIXTURES) / "schema" / "output-tables.xml").string();
    const std::string db = Database("cli");
    const std::string url = Postgres() ? "'postgresql://tm@/" + db + "?host=" + fSocket + "'" : "sqlite:" + db;
    ASSERT_EQ(Shell(tool + " generate " + file + " --db " + url + " > /dev/null"), 0);
    const fs::path dumped = fTmp.path / "dumped.xml";
    ASSERT_EQ(Shell(tool + " dump --db " + url + " " + dumped.string()), 0);
    EXPECT_EQ(ReadAll(dumped), ReadAll(file)) << "the metadata read back is the file";
    const fs::path script = fTmp.path / "script.sql";
    ASSERT_EQ(Shell(tool + " sql " + file + " --dbms " + GetParam() + " > " + script.string()), 0);
    EXPECT_EQ(RunClient(script, Database("cli2")), 0);
    // A second generate meets its own tables: refused whole, the database as it was.
    EXPECT_EQ(Shell(tool + " generate " + file + " --db " + url + " > /dev/null 2>&1"), 2);
    ASSERT_EQ(Shell(tool + " dump --db " + url + " " + dumped.string()), 0);
    EXPECT_EQ(ReadAll(dumped), ReadAll(file));
}

INSTANTIATE_TEST_SUITE_P(Engines, DB, ::testing::Values("sqlite", "postgresql"),
                         [](const ::testing::TestParamInfo<std::string>& aInfo) { return aInfo.param; });

TEST(DBLiterals, EachEngineReadsItsOwnForms) {
    const TDateTime when = EncodeDateTime(2026, 11, 23, 9, 5, 7);
    EXPECT_EQ(SQLDateTimeLiteral(dbOracle, when), "TO_DATE('23.11.2026 09:05:07', 'DD.MM.YYYY HH24:MI:SS')");
    EXPECT_EQ(SQLDateTimeLiteral(dbMSSQL, when), "CONVERT(datetime, '2026-11-23 09:05:07', 120)");
    EXPECT_EQ(SQLDateTimeLiteral(dbPostgreSQL, when), "to_timestamp('23.11.2026 09:05:07', 'DD.MM.YYYY HH24:MI:SS')");
    EXPECT_EQ(SQLDateTimeLiteral(dbPostgreSQL, TDateTime{0}), "Null");
    EXPECT_EQ(SQLLiteral(dbFile, TcsPropertyKind::Boolean, TcsVariant(true)), "1");
    EXPECT_EQ(SQLLiteral(dbFile, TcsPropertyKind::String, TcsVariant("")), "Null");
    EXPECT_EQ(SQLLiteral(dbFile, TcsPropertyKind::String, TcsVariant("it's")), "'it''s'");
    EXPECT_EQ(SQLLiteral(dbPostgreSQL, TcsPropertyKind::String, TcsVariant("\\x;\n")), "'\\x;\n'");
    EXPECT_EQ(SQLLiteral(dbPostgreSQL, TcsPropertyKind::String, TcsVariant(std::string("\x01\xff", 2)), true), "'\\x01FF'::bytea");
    EXPECT_EQ(SQLLiteral(dbFile, TcsPropertyKind::String, TcsVariant(std::string("\x01\xff", 2)), true), "X'01FF'");
    for (double v : {0.1 + 0.2, 1e-300, 123456.78901234567, -5514743.565, 5e-324}) {
        const std::string text = SQLFloatText(v);
        EXPECT_EQ(std::strtod(text.c_str(), nullptr), v) << text;
    }
    EXPECT_EQ(SQLFloatText(0.1 + 0.2), "0.30000000000000004");
}

}  // namespace
