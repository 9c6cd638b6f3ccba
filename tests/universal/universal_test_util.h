// What the universal conversion's tests share: a temporary folder, fixtures, a manager set up
// as tmconvert sets it up, and rows read back from SQLite.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "csXMLDBDestination.h"

namespace tmi::test {

namespace fs = std::filesystem;

inline const std::string kFixtures = std::string(TM_FIXTURES) + "/universal/";
inline const std::string kDocument = kFixtures + "test-document.xml";
inline const std::string kSchemas = std::string(TM_SOURCE_DIR) + "/data/Schemas";

struct TempFolder {
    fs::path Path;
    TempFolder() {
        const char* tmp = std::getenv("TMPDIR");
        Path = fs::path(tmp && *tmp ? tmp : "/tmp") /
               ("tm-universal-" + std::to_string(::getpid()) + "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(Path);
        fs::create_directories(Path);
    }
    ~TempFolder() { fs::remove_all(Path); }
    std::string operator/(const std::string& aName) const { return (Path / aName).string(); }
};

inline std::string WriteText(const std::string& aFile, const std::string& aText) {
    std::ofstream(aFile, std::ios::binary) << aText;
    return aFile;
}

// Rows of a query over a SQLite file, each row's columns joined by "|".
inline std::vector<std::string> Rows(const std::string& aDatabase, const std::string& aSQL) {
    std::vector<std::string> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(aDatabase.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        ADD_FAILURE() << "cannot open " << aDatabase;
        return rows;
    }
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db, aSQL.c_str(), -1, &s, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << sqlite3_errmsg(db);
    } else {
        while (sqlite3_step(s) == SQLITE_ROW) {
            std::string row;
            for (int i = 0; i < sqlite3_column_count(s); ++i) {
                const auto* t = sqlite3_column_text(s, i);
                row += (i ? "|" : "") + (t ? std::string(reinterpret_cast<const char*>(t)) : std::string("NULL"));
            }
            rows.push_back(row);
        }
    }
    sqlite3_finalize(s);
    sqlite3_close(db);
    return rows;
}

// A geometry column's spatial index as "enabled|triggers|indexed rows|rows with a geometry": on,
// with its three triggers, and holding each row that has a geometry once, it reads "1|3|n|n".
inline std::string SpatialIndexState(const std::string& aDatabase, const std::string& aTable, const std::string& aColumn) {
    const std::string name = aTable + "_" + aColumn;
    const auto rows = Rows(aDatabase, "SELECT (SELECT spatial_index_enabled FROM geometry_columns WHERE f_table_name = lower('" + aTable +
                                          "') AND f_geometry_column = lower('" + aColumn + "')), "
                                          "(SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger' AND name IN ('gii_" + name +
                                          "', 'giu_" + name + "', 'gid_" + name + "')), "
                                          "(SELECT COUNT(*) FROM \"idx_" + name + "\" i JOIN \"" + aTable + "\" t ON i.pkid = t.ROWID), "
                                          "(SELECT COUNT(*) FROM \"" + aTable + "\" WHERE \"" + aColumn + "\" IS NOT NULL)");
    return rows.empty() ? std::string() : rows.front();
}

// SpatiaLite's own check of a spatial index against its table: "1" when every row with a
// geometry is in it once, with the bounds of that geometry, and nothing else is.
inline std::string SpatialIndexChecked(const std::string& aDatabase, const std::string& aTable, const std::string& aColumn) {
    sqlite3* db = nullptr;
    std::string result = "cannot open";
    if (sqlite3_open_v2(aDatabase.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_enable_load_extension(db, 1);
        sqlite3_stmt* s = nullptr;
        const std::string sql = "SELECT CheckSpatialIndex('" + aTable + "', '" + aColumn + "')";
        if (sqlite3_exec(db, "SELECT load_extension('mod_spatialite')", nullptr, nullptr, nullptr) != SQLITE_OK ||
            sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) {
            result = sqlite3_errmsg(db);
        } else if (sqlite3_step(s) == SQLITE_ROW) {
            const auto* t = sqlite3_column_text(s, 0);
            result = t ? reinterpret_cast<const char*>(t) : "NULL";
        }
        sqlite3_finalize(s);
    }
    sqlite3_close(db);
    return result;
}

// A manager set up as tmconvert sets it up: schemas, XSD folder, the database destination.
inline std::unique_ptr<TcsConvertManager> NewManager(const std::string& aFile, const std::string& aDatabase) {
    auto m = std::make_unique<TcsConvertManager>();
    m->Intialize(kSchemas, kFixtures);
    m->ActivateDestination(TcsXMLDBDestination::StaticClassName());
    m->ActiveDestination()->Config().FileName = aDatabase;
    m->SetFileName(aFile);
    return m;
}

// The whole sequence; the failure's text, empty when the file was converted.
inline std::string Convert(TcsConvertManager& aManager) {
    std::string failure;
    try {
        aManager.UpdateInfo(true);
        std::string message;
        if (!aManager.CheckProcess(message)) return message;
        aManager.StartProcess(true);
    } catch (const std::exception& e) {
        failure = e.what();
        aManager.Finished = false;
    }
    aManager.EndProcess();
    return failure;
}


// An XSD folder as a user would have it for the real extracts: every package of the shared
// data, plus a stand-in for the version 11 plan schema the data lacks (the root alone).
// The shared XSD packages with what they lack filled in (make_xsd_folder.py), for the real
// extracts.
inline void MakeRealXSDFolder(const fs::path& aShared, const fs::path& aFolder) {
    const std::string command = "python3 '" + std::string(TM_SOURCE_DIR) + "/tests/universal/make_xsd_folder.py' '" +
                                aShared.string() + "' '" + std::string(TM_FIXTURES) + "' '" + aFolder.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// The socket folder of the suite's PostgreSQL server, or nil; under CI its absence is a failure,
// since the suite starts the server itself.
inline const char* SuitePgSocket() {
    const char* socket = std::getenv("TM_PG_SOCKET");
    if (socket && *socket) return socket;
    if (std::getenv("CI")) ADD_FAILURE() << "TM_PG_SOCKET is not set: the suite's PostgreSQL server did not start";
    return nullptr;
}

// psql's unaligned answer to aSQL in database aDatabase of the suite's server, errors included.
inline std::string Psql(const char* aSocket, const std::string& aDatabase, const fs::path& aFolder, const std::string& aSQL) {
    const fs::path script = aFolder / "query.sql";
    std::ofstream(script) << aSQL << ";\n";
    std::string out;
    const std::string command = "psql -h " + std::string(aSocket) + " -U tm -d " + aDatabase + " -At -f '" + script.string() + "' 2>&1";
    if (FILE* p = popen(command.c_str(), "r")) {
        char buf[4096];
        while (size_t n = fread(buf, 1, sizeof buf, p)) out.append(buf, n);
        pclose(p);
    }
    return out;
}

inline void DropPgDatabase(const char* aSocket, const std::string& aDatabase) {
    std::system(("psql -h " + std::string(aSocket) + " -U tm -d postgres -q -c 'DROP DATABASE IF EXISTS \"" + aDatabase +
                 "\" WITH (FORCE)' >/dev/null 2>&1").c_str());
}

}  // namespace tmi::test
