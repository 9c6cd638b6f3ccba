// The packed R*Tree against SQLite's own: a tree written straight into the three tables of an
// rtree virtual table must pass SQLite's check, answer window queries as a scan of the entries
// does, and hold each box exactly as SQLite itself would have stored it.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "csCommon.h"
#include "scRTreePack.h"

namespace tmi {
namespace {

struct TBox {
    int64_t Id;
    double MinX, MaxX, MinY, MaxY;
};

// A file, so that the packed tree is read by an rtree opened afresh. Small pages make small
// nodes: 18 entries to a node for 512 bytes.
class Db {
public:
    explicit Db(int aPageSize = 4096) {
        const char* tmp = std::getenv("TMPDIR");
        fPath = std::string(tmp && *tmp ? tmp : "/tmp") + "/tm-rtree-pack-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".sqlite";
        std::remove(fPath.c_str());
        sqlite3_open(fPath.c_str(), &fDB);
        Exec("PRAGMA page_size = " + std::to_string(aPageSize));
        Exec("PRAGMA synchronous = OFF");
        Exec("CREATE VIRTUAL TABLE packed USING rtree(pkid, xmin, xmax, ymin, ymax)");
        Exec("CREATE VIRTUAL TABLE inserted USING rtree(pkid, xmin, xmax, ymin, ymax)");
    }
    ~Db() {
        sqlite3_close(fDB);
        std::remove(fPath.c_str());
    }
    void Reopen() {
        sqlite3_close(fDB);
        sqlite3_open(fPath.c_str(), &fDB);
    }
    Db(const Db&) = delete;
    Db& operator=(const Db&) = delete;

    void Exec(const std::string& aSQL) { ASSERT_EQ(sqlite3_exec(fDB, aSQL.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(fDB); }

    std::vector<std::string> Rows(const std::string& aSQL, const std::vector<double>& aArgs = {}) {
        std::vector<std::string> rows;
        sqlite3_stmt* s = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(fDB, aSQL.c_str(), -1, &s, nullptr), SQLITE_OK) << sqlite3_errmsg(fDB);
        for (size_t i = 0; i < aArgs.size(); ++i) sqlite3_bind_double(s, static_cast<int>(i + 1), aArgs[i]);
        while (sqlite3_step(s) == SQLITE_ROW) {
            std::string row;
            for (int c = 0; c < sqlite3_column_count(s); ++c) {
                const auto* t = sqlite3_column_text(s, c);
                row += (c ? "|" : "") + std::string(t ? reinterpret_cast<const char*>(t) : "NULL");
            }
            rows.push_back(row);
        }
        sqlite3_finalize(s);
        return rows;
    }

    // The packed tree written over the table "packed", with the node size SQLite chose for it;
    // the same boxes inserted one by one into "inserted".
    void Fill(const std::vector<TBox>& aBoxes) {
        const size_t nodeSize = std::stoul(Rows("SELECT length(data) FROM packed_node WHERE nodeno = 1").front());
        Exec("BEGIN");
        std::vector<TscRTreeEntry> entries;
        for (const TBox& b : aBoxes) {
            entries.push_back({b.Id, RTreeBoxOf(b.MinX, b.MaxX, b.MinY, b.MaxY)});
            sqlite3_stmt* s = nullptr;
            sqlite3_prepare_v2(fDB, "INSERT INTO inserted VALUES (?, ?, ?, ?, ?)", -1, &s, nullptr);
            sqlite3_bind_int64(s, 1, b.Id);
            for (int i = 0; i < 4; ++i) sqlite3_bind_double(s, i + 2, (&b.MinX)[i]);
            EXPECT_EQ(sqlite3_step(s), SQLITE_DONE);
            sqlite3_finalize(s);
        }
        Exec("DELETE FROM packed_node; DELETE FROM packed_parent; DELETE FROM packed_rowid");
        TscRTreeSink sink;
        int64_t lastId = INT64_MIN;
        auto run = [&](const char* aSQL, int64_t a, int64_t b, const std::string* aBlob) {
            sqlite3_stmt* s = nullptr;
            sqlite3_prepare_v2(fDB, aSQL, -1, &s, nullptr);
            sqlite3_bind_int64(s, 1, a);
            if (aBlob) sqlite3_bind_blob(s, 2, aBlob->data(), static_cast<int>(aBlob->size()), SQLITE_TRANSIENT);
            else sqlite3_bind_int64(s, 2, b);
            EXPECT_EQ(sqlite3_step(s), SQLITE_DONE) << sqlite3_errmsg(fDB);
            sqlite3_finalize(s);
        };
        sink.Node = [&](int64_t n, const std::string& d) {
            EXPECT_EQ(d.size(), nodeSize);
            run("INSERT INTO packed_node VALUES (?, ?)", n, 0, &d);
        };
        sink.Parent = [&](int64_t n, int64_t p) { run("INSERT INTO packed_parent VALUES (?, ?)", n, p, nullptr); };
        sink.Entry = [&](int64_t id, int64_t n) {
            EXPECT_GT(id, lastId) << "entries in ascending id";
            lastId = id;
            run("INSERT INTO packed_rowid VALUES (?, ?)", id, n, nullptr);
        };
        PackRTree(entries, nodeSize, sink);
        Exec("COMMIT");
        Reopen();
    }

    // Checked, then compared with the tree SQLite built: every stored box, and window queries.
    void ExpectSameAsSQLite(std::mt19937& aRandom) {
        EXPECT_EQ(Rows("SELECT rtreecheck('packed')"), std::vector<std::string>{"ok"});
        EXPECT_EQ(Rows("SELECT * FROM packed ORDER BY pkid"), Rows("SELECT * FROM inserted ORDER BY pkid"));
        std::uniform_real_distribution<double> at(-1000, 1000), size(0, 400);
        for (int i = 0; i < 50; ++i) {
            const double x = at(aRandom), y = at(aRandom);
            const std::vector<double> window{x + size(aRandom), x, y + size(aRandom), y};
            const std::string where = " WHERE xmin <= ?1 AND xmax >= ?2 AND ymin <= ?3 AND ymax >= ?4 ORDER BY pkid";
            EXPECT_EQ(Rows("SELECT pkid FROM packed" + where, window), Rows("SELECT pkid FROM inserted" + where, window));
        }
    }

private:
    std::string fPath;
    sqlite3* fDB = nullptr;
};

std::vector<TBox> RandomBoxes(std::mt19937& aRandom, int aCount) {
    std::uniform_real_distribution<double> at(-1000, 1000), size(0, 30);
    std::vector<TBox> boxes;
    for (int i = 0; i < aCount; ++i) {
        const double x = at(aRandom), y = at(aRandom);
        // Every fifth is a point: a box with no extent.
        const double w = i % 5 ? size(aRandom) : 0, h = i % 5 ? size(aRandom) : 0;
        // Ids out of order and with gaps, as a table's row ids are after deletions.
        boxes.push_back({static_cast<int64_t>((i * 7919) % 100003) + 1, x, x + w, y, y + h});
    }
    return boxes;
}

TEST(RTreePack, TreesOfEveryDepthMatchWhatSQLiteBuildsRowByRow) {
    std::mt19937 random(20261123);
    // No entries: the empty root; one; a root that is a full leaf; one more than fits; trees
    // several levels deep, with the nodes SQLite makes for pages of 4 KB (51 entries), 512 bytes
    // (18) and 1 KB (39, with bytes to spare after the last).
    for (const auto& [count, pageSize] :
         std::vector<std::pair<int, int>>{{0, 4096}, {1, 4096}, {51, 4096}, {52, 4096}, {5000, 4096}, {3000, 512}, {1500, 1024}}) {
        SCOPED_TRACE("entries " + std::to_string(count) + ", page " + std::to_string(pageSize));
        Db db(pageSize);
        db.Fill(RandomBoxes(random, count));
        db.ExpectSameAsSQLite(random);
        if (count == 0) {
            EXPECT_EQ(db.Rows("SELECT hex(data) FROM packed_node"), db.Rows("SELECT hex(data) FROM inserted_node"));
        }
    }
}

TEST(RTreePack, CoordinatesAreWidenedToFloatsAsSQLiteWidensThem) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> far(-2e7, 2e7);
    std::vector<TBox> boxes;
    for (int i = 0; i < 2000; ++i) {
        const double x = far(random), y = far(random);
        boxes.push_back({i + 1, x, x + 0.01, y, std::nextafter(y, 1e9)});
    }
    boxes.push_back({5000, -0.0, 0.0, 1e-40, 3.4e38});  // signed zero, a float's denormal and top
    Db db;
    db.Fill(boxes);
    EXPECT_EQ(db.Rows("SELECT rtreecheck('packed')"), std::vector<std::string>{"ok"});
    EXPECT_EQ(db.Rows("SELECT * FROM packed ORDER BY pkid"), db.Rows("SELECT * FROM inserted ORDER BY pkid"));
}

TEST(RTreePack, ANodeThatCannotHoldTwoEntriesIsRefused) {
    std::vector<TscRTreeEntry> entries{{1, {}}, {2, {}}};
    const TscRTreeSink sink{[](int64_t, const std::string&) {}, [](int64_t, int64_t) {}, [](int64_t, int64_t) {}};
    EXPECT_THROW(PackRTree(entries, 4 + 24 + 23, sink), Exception);
    EXPECT_THROW(PackRTree(entries, 0, sink), Exception);
}

}  // namespace
}  // namespace tmi
