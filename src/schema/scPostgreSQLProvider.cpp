#include "scPostgreSQLProvider.h"

#include <filesystem>

#include <libpq-fe.h>

#include <mutex>

#include "csDLLHeader.h"

namespace tmi {

// What we call of libpq.
#define TM_LIBPQ_FUNCTIONS(X) \
    X(PQcancel) X(PQclear) X(PQconnectdbParams) X(PQerrorMessage) X(PQexec) X(PQexecPrepared) X(PQfinish) \
    X(PQfname) X(PQfreeCancel) X(PQftype) X(PQgetCancel) X(PQgetResult) X(PQgetisnull) X(PQgetlength) \
    X(PQgetvalue) X(PQnfields) X(PQntuples) X(PQprepare) X(PQresultErrorMessage) X(PQresultStatus) \
    X(PQsendQueryParams) X(PQsetNoticeProcessor) X(PQsetSingleRowMode) X(PQstatus)

// libpq, bound when the first connection opens: a program that never talks to PostgreSQL does
// not load it with its chain (TLS, Kerberos, LDAP), which would cost every start of the
// program or the module several milliseconds. It stays loaded: a connection may be closed by
// a static's destructor at exit.
class TscLibPQ : public TcsDLLHeader {
public:
    TscLibPQ() : TcsDLLHeader("libpq.so.5", true) {}

#define TM_LIBPQ_POINTER(aName) decltype(&::aName) aName = nullptr;
    TM_LIBPQ_FUNCTIONS(TM_LIBPQ_POINTER)
#undef TM_LIBPQ_POINTER

protected:
    void BindFunctions() override {
#define TM_LIBPQ_BIND(aName) Bind(aName, #aName);
        TM_LIBPQ_FUNCTIONS(TM_LIBPQ_BIND)
#undef TM_LIBPQ_BIND
    }
};

namespace {

const TscLibPQ& LoadedLibPQ() {
    static TscLibPQ library;
    static std::mutex guard;
    const std::lock_guard<std::mutex> lock(guard);
    try {
        library.Initialize();
    } catch (const EcsDLLError& e) {
        throw EscSchemaException(std::string("PostgreSQL: ") + e.what());
    }
    if (library.MissingFunctions() > 0)
        throw EscSchemaException("PostgreSQL: в библиотеке " + library.LoadedFrom() + " нет " +
                                 std::to_string(library.MissingFunctions()) + " нужных функций");
    return library;
}

constexpr unsigned kByteaOid = 17;

std::string Words(const TscLibPQ& aPQ, const PGconn* aConn) {
    std::string text = aConn ? aPQ.PQerrorMessage(aConn) : "нет памяти";
    return Trim(text);
}

// Our statements name parameters ":p1"; the server numbers them "$1" in order of first use.
// Quoted text and identifiers are left as they are.
std::string NumberParameters(const std::string& aSQL, const std::vector<TscDBParam>& aParams, std::vector<const TscDBParam*>& aOrder) {
    std::string out;
    out.reserve(aSQL.size());
    std::vector<std::string> seen;
    for (size_t i = 0; i < aSQL.size(); ++i) {
        const char c = aSQL[i];
        if (c == '\'' || c == '"') {
            const size_t end = aSQL.find(c, i + 1);
            const size_t stop = end == std::string::npos ? aSQL.size() : end + 1;
            out.append(aSQL, i, stop - i);
            i = stop - 1;
            continue;
        }
        if (c == ':' && i + 1 < aSQL.size() && (std::isalpha(static_cast<unsigned char>(aSQL[i + 1])) || aSQL[i + 1] == '_') &&
            (i == 0 || aSQL[i - 1] != ':')) {
            size_t end = i + 1;
            while (end < aSQL.size() && (std::isalnum(static_cast<unsigned char>(aSQL[end])) || aSQL[end] == '_')) ++end;
            const std::string name = aSQL.substr(i + 1, end - i - 1);
            const TscDBParam* param = nullptr;
            for (const TscDBParam& p : aParams)
                if (p.Name == name) param = &p;
            if (param) {
                auto it = std::find(seen.begin(), seen.end(), name);
                if (it == seen.end()) {
                    seen.push_back(name);
                    aOrder.push_back(param);
                    it = seen.end() - 1;
                }
                out += "$" + std::to_string(it - seen.begin() + 1);
                i = end - 1;
                continue;
            }
        }
        out += c;
    }
    return out;
}

struct TscPGValues {
    std::vector<const char*> Values;
    std::vector<int> Lengths;
    std::vector<int> Formats;
    explicit TscPGValues(const std::vector<const TscDBParam*>& aOrder) {
        for (const TscDBParam* p : aOrder) {
            Values.push_back(p->Value ? p->Value->c_str() : nullptr);
            Lengths.push_back(p->Value ? static_cast<int>(p->Value->size()) : 0);
            Formats.push_back(p->Blob ? 1 : 0);
        }
    }
};

std::string FromHex(std::string_view aText) {
    auto value = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return 0;
    };
    std::string out;
    for (size_t i = 0; i + 1 < aText.size(); i += 2) out += static_cast<char>(value(aText[i]) * 16 + value(aText[i + 1]));
    return out;
}

}  // namespace

TscPostgreSQLDataManager::~TscPostgreSQLDataManager() { Disconnect(); }

void TscPostgreSQLDataManager::Connect() { ConnectTo(Trim(fProvider.GetConnectParametr("Database"))); }

void TscPostgreSQLDataManager::ConnectTo(const std::string& aDatabase) {
    Disconnect();
    std::string user, password;
    bool internal = true;
    TscDBCustomProvider::ExtractAuthParams(fProvider.ConnectionString(), user, password, internal);
    const std::string host = Trim(fProvider.GetConnectParametr("Server"));
    const std::string port = Trim(fProvider.GetConnectParametr("Port"));
    std::vector<const char*> keys, values;
    auto add = [&](const char* aKey, const std::string& aValue) {
        if (aValue.empty()) return;
        keys.push_back(aKey);
        values.push_back(aValue.c_str());
    };
    add("host", host);
    add("port", port);
    add("dbname", aDatabase);
    add("user", user);
    if (internal) add("password", password);
    const std::string encoding = "UTF8", timeout = "10", application = "tmMiniImport";
    add("client_encoding", encoding);
    add("connect_timeout", timeout);
    add("application_name", application);
    keys.push_back(nullptr);
    values.push_back(nullptr);
    fPQ = &LoadedLibPQ();
    PGconn* conn = fPQ->PQconnectdbParams(keys.data(), values.data(), 0);
    if (!conn || fPQ->PQstatus(conn) != CONNECTION_OK) {
        const std::string words = Words(*fPQ, conn);
        fPQ->PQfinish(conn);
        throw EscSchemaException(words);
    }
    fConn = conn;
    fPQ->PQsetNoticeProcessor(fConn, [](void*, const char*) {}, nullptr);
}

void TscPostgreSQLDataManager::Disconnect() {
    if (fConn) fPQ->PQfinish(fConn);
    fConn = nullptr;
    fPrepared.clear();
}

void TscPostgreSQLDataManager::DoExecute(const std::string& aSQL, const std::vector<TscDBParam>& aParams) {
    if (!fConn) throw EscSchemaException("нет соединения с базой данных");
    PGresult* result = nullptr;
    if (aParams.empty()) {
        result = fPQ->PQexec(fConn, aSQL.c_str());
    } else {
        std::vector<const TscDBParam*> order;
        const std::string text = NumberParameters(aSQL, aParams, order);
        auto it = fPrepared.find(aSQL);
        if (it == fPrepared.end()) {
            const std::string name = "tm" + std::to_string(fPrepared.size() + 1);
            PGresult* prepared = fPQ->PQprepare(fConn, name.c_str(), text.c_str(), static_cast<int>(order.size()), nullptr);
            const bool ok = fPQ->PQresultStatus(prepared) == PGRES_COMMAND_OK;
            const std::string words = ok ? "" : Trim(fPQ->PQresultErrorMessage(prepared));
            fPQ->PQclear(prepared);
            if (!ok) throw EscSchemaException("PostgreSQL: " + words);
            it = fPrepared.emplace(aSQL, name).first;
        }
        TscPGValues values(order);
        result = fPQ->PQexecPrepared(fConn, it->second.c_str(), static_cast<int>(order.size()), values.Values.data(),
                                     values.Lengths.data(), values.Formats.data(), 0);
    }
    const ExecStatusType status = fPQ->PQresultStatus(result);
    const bool ok = status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
    const std::string words = ok ? "" : (result ? Trim(fPQ->PQresultErrorMessage(result)) : Words(*fPQ, fConn));
    fPQ->PQclear(result);
    if (!ok) throw EscSchemaException("PostgreSQL: " + words);
}

std::unique_ptr<TscDataSet> TscPostgreSQLDataManager::DoQuery(const std::string& aSQL, const std::vector<TscDBParam>& aParams,
                                                              TscFetchControl* aControl) {
    if (!fConn) throw EscSchemaException("нет соединения с базой данных");
    std::vector<const TscDBParam*> order;
    const std::string text = NumberParameters(aSQL, aParams, order);
    TscPGValues values(order);
    if (!fPQ->PQsendQueryParams(fConn, text.c_str(), static_cast<int>(order.size()), nullptr, values.Values.data(),
                                values.Lengths.data(), values.Formats.data(), 0))
        throw EscSchemaException("PostgreSQL: " + Words(*fPQ, fConn));
    fPQ->PQsetSingleRowMode(fConn);
    auto rows = std::make_unique<TscDataSet>();
    std::string error;
    bool cancelled = false;
    while (PGresult* result = fPQ->PQgetResult(fConn)) {
        const ExecStatusType status = fPQ->PQresultStatus(result);
        if (status == PGRES_SINGLE_TUPLE || status == PGRES_TUPLES_OK) {
            const int columns = fPQ->PQnfields(result);
            if (rows->Fields.empty())
                for (int c = 0; c < columns; ++c) rows->Fields.emplace_back(fPQ->PQfname(result, c));
            for (int r = 0; r < fPQ->PQntuples(result) && !cancelled; ++r) {
                auto& row = rows->Rows.emplace_back(static_cast<size_t>(columns));
                for (int c = 0; c < columns; ++c) {
                    if (fPQ->PQgetisnull(result, r, c)) continue;
                    std::string cell(fPQ->PQgetvalue(result, r, c), static_cast<size_t>(fPQ->PQgetlength(result, r, c)));
                    if (fPQ->PQftype(result, c) == kByteaOid && cell.rfind("\\x", 0) == 0) cell = FromHex(std::string_view(cell).substr(2));
                    row[static_cast<size_t>(c)] = std::move(cell);
                }
                if (aControl) {
                    ++aControl->Rows;
                    if (aControl->Cancel && !cancelled) {
                        cancelled = true;
                        Interrupt();
                    }
                }
            }
        } else if (status != PGRES_COMMAND_OK && error.empty()) {
            error = Trim(fPQ->PQresultErrorMessage(result));
        }
        fPQ->PQclear(result);
    }
    if (cancelled || (aControl && aControl->Cancel)) throw EscSchemaException("Выборка прервана");
    if (!error.empty()) throw EscSchemaException("PostgreSQL: " + error);
    return rows;
}

void TscPostgreSQLDataManager::Interrupt() {
    if (!fConn) return;
    if (PGcancel* cancel = fPQ->PQgetCancel(fConn)) {
        char buffer[256];
        fPQ->PQcancel(cancel, buffer, sizeof buffer);
        fPQ->PQfreeCancel(cancel);
    }
}

bool TscPostgreSQLDataManager::TableExist(std::string_view, std::string_view aTableName) {
    return DoQuery("SELECT 1 FROM information_schema.tables WHERE table_schema = current_schema() AND table_name = :p1",
                   {{"p1", std::string(aTableName)}}, nullptr)
               ->RecordCount() > 0;
}

std::vector<std::string> TscPostgreSQLDataManager::CatalogueTables() {
    std::vector<std::string> out;
    for (const std::string& name : GetSQLListResult("SELECT table_name FROM information_schema.tables WHERE table_schema = "
                                                    "current_schema() AND table_type = 'BASE TABLE' ORDER BY table_name"))
        if (name != "spatial_ref_sys") out.push_back(name);
    return out;
}

std::vector<TscCatalogueColumn> TscPostgreSQLDataManager::CatalogueColumns(const std::string& aTable) {
    std::unique_ptr<TscDataSet> rows = DoQuery(
        "SELECT a.attname, format_type(a.atttypid, a.atttypmod) AS type, a.attnotnull::int AS notnull FROM pg_attribute a "
        "JOIN pg_class c ON a.attrelid = c.oid JOIN pg_namespace n ON c.relnamespace = n.oid WHERE n.nspname = current_schema() "
        "AND c.relname = :p1 AND a.attnum > 0 AND NOT a.attisdropped ORDER BY a.attnum",
        {{"p1", aTable}}, nullptr);
    std::vector<TscCatalogueColumn> out;
    for (int i = 0; i < rows->RecordCount(); ++i)
        out.push_back({rows->Value(i, "attname").AsString(), rows->Value(i, "type").AsString(), rows->Value(i, "notnull").AsInteger() != 0});
    return out;
}

// ---------------------------------------------------------------------------------------------

TscPostgreSQLProvider::TscPostgreSQLProvider(TscCustomSchema* aSchema) : TscDBCustomProvider(aSchema) { AddDefaultHandlers(); }

int TscPostgreSQLProvider::GetProviderFeatures() const {
    auto* self = const_cast<TscPostgreSQLProvider*>(this);
    TscDataManager& manager = self->DataManager();
    if (!manager.Connected()) return 0;
    if (!fFeatures)
        fFeatures = manager.Query("SELECT 1 FROM pg_extension WHERE extname = 'postgis'")->RecordCount() > 0 ? kProviderFeatureSpatial : 0;
    return *fFeatures;
}

std::vector<std::string> TscPostgreSQLProvider::GetDatabaseList() {
    return DataManager().GetSQLListResult("SELECT datname FROM pg_database WHERE NOT datistemplate ORDER BY datname");
}

void TscPostgreSQLProvider::Maintenance(const std::vector<std::string>& aStatements) {
    TscPostgreSQLDataManager maintenance(*this);
    maintenance.ConnectTo("postgres");
    for (const std::string& sql : aStatements) maintenance.ExecuteSQL(sql);
}

void TscPostgreSQLProvider::CreateDatabase() {
    const std::string name = DatabaseName();
    try {
        if (name.empty()) throw EscSchemaException("не задан параметр Database");
        Maintenance({"CREATE DATABASE " + Quote(name) + " ENCODING 'UTF8' TEMPLATE template0"});
        TscPostgreSQLDataManager created(*this);
        created.ConnectTo(name);
        created.ExecuteSQL("CREATE EXTENSION IF NOT EXISTS postgis");
    } catch (const std::exception& e) {
        throw EscSchemaException("Ошибка создания базы данных (" + GetVisibleProviderName() + ", база данных \"" + name + "\"): " +
                                 e.what());
    }
}

void TscPostgreSQLProvider::AfterGenerate() { fFeatures.reset(); }

void TscPostgreSQLProvider::DropDatabase() {
    DisConnect();
    try {
        Maintenance({"DROP DATABASE IF EXISTS " + Quote(DatabaseName()) + " WITH (FORCE)"});
    } catch (const std::exception&) {
        // A database that cannot be dropped is left; the first error is the one to report.
    }
}

std::string TscPostgreSQLProvider::ColumnTypeSQL(const TscField& aField) const {
    switch (aField.DataType()) {
    case fdInteger: return "integer";
    case fdInt64: return "bigint";
    case fdDecimal:
        return aField.Precision() > 0 ? "numeric(" + std::to_string(aField.Precision()) + "," + std::to_string(aField.Scale()) + ")"
                                      : "numeric";
    case fdMoney: return "numeric(19,4)";
    case fdFloat: return "double precision";
    case fdDatetime: return "timestamp without time zone";
    case fdString: return aField.Length() > 0 ? "character varying(" + std::to_string(aField.Length()) + ")" : "text";
    case fdChar: return "character(" + std::to_string(aField.Length() > 0 ? aField.Length() : 1) + ")";
    case fdImage:
    case fdSmallImage: return "bytea";
    case fdGraphic: return "geometry";
    case fdBit: return "smallint";
    case fdGUID: return "character varying(38)";
    case fdXML: return "xml";
    case fdDate: return "date";
    default: return "text";
    }
}

std::string TscPostgreSQLProvider::MetaColumnTypeSQL(TcsPropertyKind aKind, bool aBlob) const {
    if (aBlob) return "bytea";
    switch (aKind) {
    case TcsPropertyKind::Boolean: return "smallint";
    case TcsPropertyKind::Integer:
    case TcsPropertyKind::Enumeration: return "bigint";
    case TcsPropertyKind::Float: return "double precision";
    default: return "text";
    }
}

std::vector<std::string> TscPostgreSQLProvider::ReferenceSystemSQL(int aSRID, const std::string& aWKT, const std::string& aProj4) const {
    if (aSRID < kFirstCustomSRID) return {};  // PostGIS knows the EPSG systems
    return {"INSERT INTO spatial_ref_sys (srid, auth_name, auth_srid, srtext, proj4text) VALUES (" + std::to_string(aSRID) +
            ", 'tmMiniImport', " + std::to_string(aSRID) + ", " + SQLQuoted(aWKT) + ", " + SQLQuoted(aProj4) +
            ") ON CONFLICT (srid) DO NOTHING"};
}

std::string TscPostgreSQLProvider::GeometryColumnInlineSQL(const TscField& aField, int aSRID) const {
    return Quote(aField.BaseName()) + " geometry(Geometry," + std::to_string(aSRID) + ")" + (aField.Allownull() ? "" : " NOT NULL");
}

std::string TscPostgreSQLProvider::CatalogueGeometryType(int aSRID) const {
    return aSRID > 0 ? "geometry(Geometry," + std::to_string(aSRID) + ")" : "geometry(Geometry)";
}

std::vector<std::string> TscPostgreSQLProvider::SpatialIndexSQL(const TscTable& aTable, const TscField& aField,
                                                                const std::string& aIndexName) const {
    return {"CREATE INDEX " + Quote(aIndexName) + " ON " + Quote(aTable.BaseName()) + " USING GIST (" + Quote(aField.BaseName()) + ")"};
}

bool TscPostgreSQLProvider::IndexExists(const TscTable&, const TscIndex& aIndex) {
    return DataManager()
               .Query("SELECT 1 FROM pg_indexes WHERE schemaname = current_schema() AND indexname = :p1", {{"p1", IndexName(aIndex)}})
               ->RecordCount() > 0;
}

void RegisterDBProviders() {
    static const bool done = [] {
        TscProviderLink sqlite;
        sqlite.ProviderName = "scSQLiteProvider";
        sqlite.VisibleName = "SQLite (SpatiaLite)";
        sqlite.Create = [](TscCustomSchema* s) -> std::unique_ptr<TscCustomProvider> { return std::make_unique<TscSQLiteProvider>(s); };
        sqlite.RegisterHandler("TscSQLDBStandardHandler");
        ProviderManager().RegisterProvider(std::move(sqlite));
        TscProviderLink postgres;
        postgres.ProviderName = "scPostgreSQLProvider";
        postgres.VisibleName = "PostgreSQL (PostGIS)";
        postgres.Create = [](TscCustomSchema* s) -> std::unique_ptr<TscCustomProvider> {
            return std::make_unique<TscPostgreSQLProvider>(s);
        };
        postgres.RegisterHandler("TscSQLDBStandardHandler");
        ProviderManager().RegisterProvider(std::move(postgres));
        return true;
    }();
    (void)done;
}

namespace {
const bool kRegistered = (RegisterDBProviders(), true);
}

std::unique_ptr<TscDBCustomProvider> CreateDBProviderByURL(TscCustomSchema* aSchema, const std::string& aURL) {
    if (aURL.rfind("sqlite:", 0) == 0) {
        auto p = std::make_unique<TscSQLiteProvider>(aSchema);
        p->SetConnectionString("FileName=" + aURL.substr(7));
        return p;
    }
    for (const std::string scheme : {"postgresql://", "postgres://"}) {
        if (aURL.rfind(scheme, 0) != 0) continue;
        std::string rest = aURL.substr(scheme.size());
        std::string user, password, host, port, database, query;
        if (const size_t q = rest.find('?'); q != std::string::npos) {
            query = rest.substr(q + 1);
            rest = rest.substr(0, q);
        }
        if (const size_t at = rest.rfind('@'); at != std::string::npos) {
            user = rest.substr(0, at);
            rest = rest.substr(at + 1);
            if (const size_t colon = user.find(':'); colon != std::string::npos) {
                password = user.substr(colon + 1);
                user = user.substr(0, colon);
            }
        }
        if (const size_t slash = rest.find('/'); slash != std::string::npos) {
            database = rest.substr(slash + 1);
            rest = rest.substr(0, slash);
        }
        if (const size_t colon = rest.rfind(':'); colon != std::string::npos) {
            port = rest.substr(colon + 1);
            rest = rest.substr(0, colon);
        }
        host = rest;
        for (const std::string& part : Split(query, '&'))
            if (part.rfind("host=", 0) == 0) host = part.substr(5);
        auto p = std::make_unique<TscPostgreSQLProvider>(aSchema);
        std::string text = "Server=" + host + ";Port=" + port + ";Database=" + database + ";User_Name=" + user;
        if (!password.empty()) text += ";Password=" + password;
        p->SetConnectionString(text);
        return p;
    }
    return nullptr;
}

bool DatabaseExists(TscDBCustomProvider& aProvider) {
    if (auto* sqlite = dynamic_cast<TscSQLiteProvider*>(&aProvider)) {
        std::error_code ec;
        return std::filesystem::exists(sqlite->FileName(), ec);
    }
    try {
        aProvider.Open();
    } catch (const std::exception& e) {
        if (std::string(e.what()).find("does not exist") == std::string::npos) throw;
        return false;
    }
    return true;
}

}  // namespace tmi
