#include "scSQLiteProvider.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "scRTreePack.h"

namespace tmi {

namespace {

// The engine's own tables: reference systems, geometry registers, spatial indices, logs.
bool EngineTable(const std::string& aName) {
    static const char* const prefixes[] = {"sqlite_", "idx_", "spatial_ref_sys", "geometry_columns", "views_geometry_columns",
                                           "virts_geometry_columns", "vector_layers", "spatialite_history", "sql_statements_log",
                                           "data_licenses", "SpatialIndex", "ElementaryGeometries", "KNN", "SE_", "rl2map",
                                           "wms_", "topologies", "networks", "raster_coverages", "vector_coverages", "ISO_",
                                           "stored_", "geom_cols_ref_sys"};
    for (const char* p : prefixes)
        if (aName.rfind(p, 0) == 0) return true;
    return false;
}

}  // namespace

TscSQLiteDataManager::~TscSQLiteDataManager() { Disconnect(); }

void TscSQLiteDataManager::Raise(const std::string& aWhat) const {
    throw EscSchemaException(aWhat + (fDB ? std::string(": ") + sqlite3_errmsg(fDB) : std::string()));
}

void TscSQLiteDataManager::Connect() {
    const std::string file = static_cast<TscSQLiteProvider&>(fProvider).FileName();
    if (file.empty()) throw EscSchemaException("не задан параметр FileName");
    sqlite3* db = nullptr;
    const int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        const std::string words = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
        sqlite3_close(db);
        throw EscSchemaException("файл \"" + file + "\": " + words);
    }
    fDB = db;
    sqlite3_extended_result_codes(fDB, 1);
    sqlite3_busy_timeout(fDB, 5000);
    sqlite3_db_config(fDB, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
    char* error = nullptr;
    fSpatial = sqlite3_load_extension(fDB, "mod_spatialite", nullptr, &error) == SQLITE_OK;
    sqlite3_free(error);
    sqlite3_db_config(fDB, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
    sqlite3_exec(fDB, "PRAGMA foreign_keys = ON", nullptr, nullptr, nullptr);
}

void TscSQLiteDataManager::Disconnect() {
    for (auto& [sql, statement] : fStatements) sqlite3_finalize(statement);
    fStatements.clear();
    if (fDB) sqlite3_close_v2(fDB);
    fDB = nullptr;
}

sqlite3_stmt* TscSQLiteDataManager::Prepare(const std::string& aSQL, bool aCache) {
    if (!fDB) throw EscSchemaException("нет соединения с базой данных");
    if (aCache)
        if (auto it = fStatements.find(aSQL); it != fStatements.end()) {
            sqlite3_reset(it->second);
            sqlite3_clear_bindings(it->second);
            return it->second;
        }
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    if (sqlite3_prepare_v2(fDB, aSQL.c_str(), static_cast<int>(aSQL.size()), &statement, &tail) != SQLITE_OK) Raise("SQLite");
    if (aCache) fStatements.emplace(aSQL, statement);
    return statement;
}

void TscSQLiteDataManager::Bind(sqlite3_stmt* aStatement, const std::vector<TscDBParam>& aParams) {
    for (const TscDBParam& p : aParams) {
        const int index = sqlite3_bind_parameter_index(aStatement, (":" + p.Name).c_str());
        if (index == 0) continue;
        int rc = SQLITE_OK;
        if (!p.Value) rc = sqlite3_bind_null(aStatement, index);
        else if (p.Blob) rc = sqlite3_bind_blob64(aStatement, index, p.Value->data(), p.Value->size(), SQLITE_TRANSIENT);
        else if (double d = 0; p.IsFloat && TryStrToFloat(*p.Value, d)) rc = sqlite3_bind_double(aStatement, index, d);
        else rc = sqlite3_bind_text64(aStatement, index, p.Value->data(), p.Value->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        if (rc != SQLITE_OK) Raise("SQLite");
    }
}

void TscSQLiteDataManager::DoExecute(const std::string& aSQL, const std::vector<TscDBParam>& aParams) {
    if (!fDB) throw EscSchemaException("нет соединения с базой данных");
    // Several statements in one text run as a batch, without parameters.
    const char* tail = nullptr;
    sqlite3_stmt* probe = nullptr;
    const bool cached = fStatements.count(aSQL) != 0;
    if (!cached) {
        if (sqlite3_prepare_v2(fDB, aSQL.c_str(), static_cast<int>(aSQL.size()), &probe, &tail) != SQLITE_OK) Raise("SQLite");
        const std::string rest = tail ? Trim(tail) : std::string();
        const bool batch = rest.find_first_not_of(';') != std::string::npos;
        if (batch) {
            sqlite3_finalize(probe);
            char* error = nullptr;
            if (sqlite3_exec(fDB, aSQL.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
                const std::string words = error ? error : "ошибка";
                sqlite3_free(error);
                throw EscSchemaException("SQLite: " + words);
            }
            return;
        }
        if (!probe) return;  // only a comment
        fStatements.emplace(aSQL, probe);
    }
    sqlite3_stmt* statement = Prepare(aSQL, true);
    Bind(statement, aParams);
    int rc = sqlite3_step(statement);
    // SpatiaLite's functions answer 0 where they fail (an unknown SRID, a column not added).
    if (rc == SQLITE_ROW && sqlite3_column_count(statement) == 1 && sqlite3_column_type(statement, 0) == SQLITE_INTEGER &&
        sqlite3_column_int64(statement, 0) == 0 && sqlite3_stmt_readonly(statement) == 0) {
        sqlite3_reset(statement);
        throw EscSchemaException("SpatiaLite: функция вернула 0");
    }
    while (rc == SQLITE_ROW) rc = sqlite3_step(statement);
    if (rc != SQLITE_DONE) {
        const std::string words = sqlite3_errmsg(fDB);
        sqlite3_reset(statement);
        throw EscSchemaException("SQLite: " + words);
    }
    sqlite3_reset(statement);
}

std::unique_ptr<TscDataSet> TscSQLiteDataManager::DoQuery(const std::string& aSQL, const std::vector<TscDBParam>& aParams,
                                                          TscFetchControl* aControl) {
    // A query with parameters is asked again with other values: its prepared form is kept.
    const bool cached = !aParams.empty();
    sqlite3_stmt* statement = Prepare(aSQL, cached);
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> guard(statement, cached ? sqlite3_reset : sqlite3_finalize);
    Bind(statement, aParams);
    auto rows = std::make_unique<TscDataSet>();
    const int columns = sqlite3_column_count(statement);
    for (int c = 0; c < columns; ++c) rows->Fields.emplace_back(sqlite3_column_name(statement, c));
    int rc = SQLITE_OK;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        if (aControl && aControl->Cancel) throw EscSchemaException("Выборка прервана");
        auto& row = rows->Rows.emplace_back(static_cast<size_t>(columns));
        for (int c = 0; c < columns; ++c) {
            switch (sqlite3_column_type(statement, c)) {
            case SQLITE_NULL: break;
            case SQLITE_FLOAT: row[static_cast<size_t>(c)] = SQLFloatText(sqlite3_column_double(statement, c)); break;
            case SQLITE_BLOB: {
                const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, c));
                row[static_cast<size_t>(c)] = std::string(bytes ? bytes : "", static_cast<size_t>(sqlite3_column_bytes(statement, c)));
                break;
            }
            default: {
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, c));
                row[static_cast<size_t>(c)] = std::string(text ? text : "", static_cast<size_t>(sqlite3_column_bytes(statement, c)));
            }
            }
        }
        if (aControl) ++aControl->Rows;
    }
    if (rc == SQLITE_INTERRUPT) throw EscSchemaException("Выборка прервана");
    if (rc != SQLITE_DONE) Raise("SQLite");
    return rows;
}

void TscSQLiteDataManager::RefillSpatialIndex(const std::string& aIndex, const std::string& aTable, const std::string& aColumn) {
    using TStatement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;
    auto prepare = [&](const std::string& aSQL) { return TStatement(Prepare(aSQL, false), sqlite3_finalize); };
    auto done = [&](sqlite3_stmt* aStatement) {
        if (sqlite3_step(aStatement) != SQLITE_DONE) Raise("SQLite");
        sqlite3_reset(aStatement);
    };
    // The tree's nodes are as large as its root, which it always has.
    const TStatement root = prepare("SELECT length(data) FROM " + SQLIdentifier(aIndex + "_node") + " WHERE nodeno = 1");
    if (sqlite3_step(root.get()) != SQLITE_ROW) throw EscSchemaException("SQLite: R*Tree " + aIndex + " без корня");
    const auto nodeSize = static_cast<size_t>(sqlite3_column_int64(root.get(), 0));

    std::vector<TscRTreeEntry> entries;
    {
        const std::string g = SQLIdentifier(aColumn);
        const TStatement rows = prepare("SELECT ROWID, MbrMinX(" + g + "), MbrMaxX(" + g + "), MbrMinY(" + g + "), MbrMaxY(" + g +
                                        ") FROM " + SQLIdentifier(aTable) + " WHERE " + g + " IS NOT NULL");
        int rc = SQLITE_ROW;
        while ((rc = sqlite3_step(rows.get())) == SQLITE_ROW) {
            // An empty geometry has no bounds and stays out, as SpatiaLite leaves it out.
            bool bounded = true;
            for (int c = 1; c <= 4; ++c) bounded = bounded && sqlite3_column_type(rows.get(), c) != SQLITE_NULL;
            if (!bounded) continue;
            entries.push_back({sqlite3_column_int64(rows.get(), 0),
                               RTreeBoxOf(sqlite3_column_double(rows.get(), 1), sqlite3_column_double(rows.get(), 2),
                                          sqlite3_column_double(rows.get(), 3), sqlite3_column_double(rows.get(), 4))});
        }
        if (rc != SQLITE_DONE) Raise("SQLite");
    }

    for (const char* part : {"_node", "_parent", "_rowid"})
        if (sqlite3_exec(fDB, ("DELETE FROM " + SQLIdentifier(aIndex + part)).c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            Raise("SQLite");
    const TStatement node = prepare("INSERT INTO " + SQLIdentifier(aIndex + "_node") + " (nodeno, data) VALUES (?1, ?2)");
    const TStatement parent = prepare("INSERT INTO " + SQLIdentifier(aIndex + "_parent") + " (nodeno, parentnode) VALUES (?1, ?2)");
    const TStatement owner = prepare("INSERT INTO " + SQLIdentifier(aIndex + "_rowid") + " (rowid, nodeno) VALUES (?1, ?2)");
    TscRTreeSink sink;
    sink.Node = [&](int64_t aNode, const std::string& aData) {
        sqlite3_bind_int64(node.get(), 1, aNode);
        sqlite3_bind_blob(node.get(), 2, aData.data(), static_cast<int>(aData.size()), SQLITE_STATIC);
        done(node.get());
    };
    sink.Parent = [&](int64_t aNode, int64_t aParent) {
        sqlite3_bind_int64(parent.get(), 1, aNode);
        sqlite3_bind_int64(parent.get(), 2, aParent);
        done(parent.get());
    };
    sink.Entry = [&](int64_t aId, int64_t aNode) {
        sqlite3_bind_int64(owner.get(), 1, aId);
        sqlite3_bind_int64(owner.get(), 2, aNode);
        done(owner.get());
    };
    PackRTree(entries, nodeSize, sink);
}

void TscSQLiteDataManager::Interrupt() {
    if (fDB) sqlite3_interrupt(fDB);
}

bool TscSQLiteDataManager::TableExist(std::string_view, std::string_view aTableName) {
    return DoQuery("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = :p1", {{"p1", std::string(aTableName)}}, nullptr)
               ->RecordCount() > 0;
}

std::vector<std::string> TscSQLiteDataManager::CatalogueTables() {
    std::vector<std::string> out;
    for (const std::string& name : GetSQLListResult("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"))
        if (!EngineTable(name)) out.push_back(name);
    return out;
}

std::vector<TscCatalogueColumn> TscSQLiteDataManager::CatalogueColumns(const std::string& aTable) {
    std::vector<TscCatalogueColumn> out;
    std::unique_ptr<TscDataSet> rows = Query("PRAGMA table_info(" + QuoteIdentifier(aTable) + ")");
    for (int i = 0; i < rows->RecordCount(); ++i)
        out.push_back({rows->Value(i, "name").AsString(), rows->Value(i, "type").AsString(), rows->Value(i, "notnull").AsInteger() != 0});
    return out;
}

// ---------------------------------------------------------------------------------------------

TscSQLiteProvider::TscSQLiteProvider(TscCustomSchema* aSchema) : TscDBCustomProvider(aSchema) { AddDefaultHandlers(); }

std::string TscSQLiteProvider::FileName() const {
    std::string name = Trim(GetConnectParametr("FileName"));
    if (name.size() >= 2 && (name.front() == '"' || name.front() == '\'') && name.back() == name.front())
        name = name.substr(1, name.size() - 2);
    return name;
}

int TscSQLiteProvider::GetProviderFeatures() const {
    auto* self = const_cast<TscSQLiteProvider*>(this);
    auto& manager = static_cast<TscSQLiteDataManager&>(self->DataManager());
    return manager.Connected() && manager.Spatial() ? kProviderFeatureSpatial : 0;
}

void TscSQLiteProvider::CreateDatabase() {
    const std::string file = FileName();
    std::error_code ec;
    if (std::filesystem::exists(file, ec))
        throw EscSchemaException("Ошибка создания базы данных (" + GetVisibleProviderName() + ", база данных \"" + file +
                                 "\"): файл уже существует");
    sqlite3* db = nullptr;
    const int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    std::string words = rc == SQLITE_OK ? "" : (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    // The file appears with the first write.
    if (rc == SQLITE_OK && sqlite3_exec(db, "PRAGMA user_version = 0; VACUUM", nullptr, nullptr, nullptr) != SQLITE_OK)
        words = sqlite3_errmsg(db);
    sqlite3_close(db);
    if (!words.empty()) {
        std::remove(file.c_str());
        throw EscSchemaException("Ошибка создания базы данных (" + GetVisibleProviderName() + ", база данных \"" + file + "\"): " + words);
    }
}

void TscSQLiteProvider::DropDatabase() {
    fSuspendedTriggers.clear();
    DisConnect();
    const std::string file = FileName();
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) std::remove((file + suffix).c_str());
}

std::string TscSQLiteProvider::ColumnTypeSQL(const TscField& aField) const {
    const auto length = [&](const char* aType, int64_t aDefault) {
        const int64_t n = aField.Length() > 0 ? aField.Length() : aDefault;
        return std::string(aType) + "(" + std::to_string(n) + ")";
    };
    switch (aField.DataType()) {
    case fdInteger: return "INTEGER";
    case fdInt64: return "BIGINT";
    case fdDecimal:
        return aField.Precision() > 0 ? "NUMERIC(" + std::to_string(aField.Precision()) + "," + std::to_string(aField.Scale()) + ")"
                                      : "NUMERIC";
    case fdMoney: return "NUMERIC(19,4)";
    case fdFloat: return "REAL";
    case fdDatetime: return "TIMESTAMP";
    case fdString: return aField.Length() > 0 ? length("VARCHAR", 0) : "TEXT";
    case fdChar: return length("CHAR", 1);
    case fdImage:
    case fdSmallImage: return "BLOB";
    case fdGraphic: return "GEOMETRY";
    case fdBit: return "SMALLINT";
    case fdGUID: return "VARCHAR(38)";
    case fdDate: return "DATE";
    default: return "TEXT";
    }
}

std::string TscSQLiteProvider::MetaColumnTypeSQL(TcsPropertyKind aKind, bool aBlob) const {
    if (aBlob) return "BLOB";
    switch (aKind) {
    case TcsPropertyKind::Boolean: return "SMALLINT";
    case TcsPropertyKind::Integer:
    case TcsPropertyKind::Enumeration: return "BIGINT";
    case TcsPropertyKind::Float: return "REAL";
    default: return "TEXT";
    }
}

std::vector<std::string> TscSQLiteProvider::SpatialPreambleSQL() const {
    if (OnlySQL()) return {"SELECT load_extension('mod_spatialite')", "SELECT InitSpatialMetaData(0, 'NONE')"};
    auto* self = const_cast<TscSQLiteProvider*>(this);
    auto& manager = static_cast<TscSQLiteDataManager&>(self->DataManager());
    if (!manager.Spatial() || manager.TableExist("", "spatial_ref_sys")) return {};
    return {"SELECT InitSpatialMetaData(0, 'NONE')"};
}

std::vector<std::string> TscSQLiteProvider::ReferenceSystemSQL(int aSRID, const std::string& aWKT, const std::string& aProj4) const {
    if (aSRID < kFirstCustomSRID) return {"SELECT InsertEpsgSrid(" + std::to_string(aSRID) + ")"};
    return {"INSERT OR IGNORE INTO spatial_ref_sys (srid, auth_name, auth_srid, ref_sys_name, proj4text, srtext) VALUES (" +
            std::to_string(aSRID) + ", 'tmMiniImport', " + std::to_string(aSRID) + ", " + SQLQuoted("SRID " + std::to_string(aSRID)) +
            ", " + SQLQuoted(aProj4) + ", " + SQLQuoted(aWKT) + ")"};
}

std::vector<std::string> TscSQLiteProvider::GeometryColumnAfterSQL(const TscTable& aTable, const TscField& aField, int aSRID) const {
    return {"SELECT AddGeometryColumn(" + SQLQuoted(aTable.BaseName()) + ", " + SQLQuoted(aField.BaseName()) + ", " +
            std::to_string(aSRID) + ", 'GEOMETRY', 'XY'" + (aField.Allownull() ? "" : ", 1") + ")"};
}

std::vector<std::string> TscSQLiteProvider::SpatialIndexSQL(const TscTable& aTable, const TscField& aField, const std::string&) const {
    return {"SELECT CreateSpatialIndex(" + SQLQuoted(aTable.BaseName()) + ", " + SQLQuoted(aField.BaseName()) + ")"};
}

void TscSQLiteProvider::BeginBulkLoad(const std::vector<std::pair<std::string, std::string>>& aGeometryColumns) {
    fSuspendedTriggers.clear();
    if (OnlySQL() || !static_cast<TscSQLiteDataManager&>(DataManager()).Spatial()) return;
    TscDataManager& manager = DataManager();
    for (const auto& [table, column] : aGeometryColumns) {
        const auto enabled = manager.Query("SELECT spatial_index_enabled AS E FROM geometry_columns"
                                           " WHERE f_table_name = lower(:p1) AND f_geometry_column = lower(:p2)",
                                           {{"p1", table}, {"p2", column}});
        if (enabled->RecordCount() == 0 || enabled->Value(0, "E").AsInteger() != 1) continue;
        // SpatiaLite's insert trigger adds a row to the index by a statement it compiles anew for
        // that row, one descent of the tree each. Its text is kept to be put back as it was.
        const auto trigger = manager.Query("SELECT name AS N, sql AS S FROM sqlite_master WHERE type = 'trigger'"
                                           " AND lower(tbl_name) = lower(:p1) AND lower(name) = lower(:p2)",
                                           {{"p1", table}, {"p2", "gii_" + table + "_" + column}});
        if (trigger->RecordCount() == 0) continue;
        TSuspendedTrigger t{table, column, trigger->Value(0, "N").AsString(), trigger->Value(0, "S").AsString()};
        manager.ExecuteSQL("DROP TRIGGER " + SQLIdentifier(t.Name));
        fSuspendedTriggers.push_back(std::move(t));
    }
}

void TscSQLiteProvider::EndBulkLoad() {
    auto& manager = static_cast<TscSQLiteDataManager&>(DataManager());
    for (const TSuspendedTrigger& t : fSuspendedTriggers) {
        // "gii_T_C" feeds "idx_T_C".
        manager.RefillSpatialIndex("idx_" + t.Name.substr(4), t.Table, t.Column);
        manager.ExecuteSQL(t.SQL);
    }
    fSuspendedTriggers.clear();
}

bool TscSQLiteProvider::IndexExists(const TscTable& aTable, const TscIndex& aIndex) {
    TscDataManager& manager = DataManager();
    switch (aIndex.IndexType()) {
    case itPrimary: {
        std::unique_ptr<TscDataSet> info = manager.Query("PRAGMA table_info(" + Quote(aTable.BaseName()) + ")");
        for (int n = 0; n < static_cast<int>(aIndex.IndexFields().size()); ++n) {
            TscField* field = aIndex.GetIndexField(n);
            bool found = false;
            for (int i = 0; i < info->RecordCount(); ++i)
                if (field && info->Value(i, "name").AsString() == field->BaseName() && info->Value(i, "pk").AsInteger() > 0) found = true;
            if (!found) return false;
        }
        return true;
    }
    case itConstraint: {
        std::unique_ptr<TscDataSet> list = manager.Query("PRAGMA index_list(" + Quote(aTable.BaseName()) + ")");
        for (int i = 0; i < list->RecordCount(); ++i)
            if (list->Value(i, "origin").AsString() == "u") return true;
        return false;
    }
    case itSpatial: {
        TscField* field = aIndex.GetIndexField(0);
        return field && manager.TableExist("", "idx_" + aTable.BaseName() + "_" + field->BaseName());
    }
    default:
        return manager.Query("SELECT 1 FROM sqlite_master WHERE type = 'index' AND name = :p1", {{"p1", IndexName(aIndex)}})
                   ->RecordCount() > 0;
    }
}

}  // namespace tmi
