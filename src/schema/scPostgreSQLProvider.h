// The schema in a PostgreSQL database with PostGIS: provider "scPostgreSQLProvider",
// connection parameters "Server" (a host, or the folder of the server's socket), "Port",
// "Database", "User_Name", "Password", "OSAuthent".
#pragma once

#include "scSQLiteProvider.h"

struct pg_conn;

namespace tmi {

class TscLibPQ;

class TscPostgreSQLDataManager : public TscSTDataManager {
public:
    explicit TscPostgreSQLDataManager(TscDBCustomProvider& aProvider) : TscSTDataManager(aProvider) {}
    ~TscPostgreSQLDataManager() override;

    [[nodiscard]] TscDBMSType DBMSType() const override { return dbPostgreSQL; }
    void Connect() override;
    // A connection to another database of the same server (the maintenance one, say).
    void ConnectTo(const std::string& aDatabase);
    void Disconnect() override;
    [[nodiscard]] bool Connected() const override { return fConn != nullptr; }
    // PostgreSQL cuts longer names silently.
    [[nodiscard]] size_t MaxIdentifierLength() const override { return 63; }
    [[nodiscard]] bool TableExist(std::string_view aOwnerName, std::string_view aTableName) override;
    void DoExecute(const std::string& aSQL, const std::vector<TscDBParam>& aParams) override;
    std::unique_ptr<TscDataSet> DoQuery(const std::string& aSQL, const std::vector<TscDBParam>& aParams,
                                        TscFetchControl* aControl) override;
    void Interrupt() override;
    [[nodiscard]] std::vector<std::string> CatalogueTables() override;
    [[nodiscard]] std::vector<TscCatalogueColumn> CatalogueColumns(const std::string& aTable) override;

private:
    const TscLibPQ* fPQ = nullptr;  // bound by the first connection
    pg_conn* fConn = nullptr;
    std::unordered_map<std::string, std::string> fPrepared;  // text, statement name
};

class TscPostgreSQLProvider : public TscDBCustomProvider {
public:
    explicit TscPostgreSQLProvider(TscCustomSchema* aSchema);
    [[nodiscard]] std::string GetProviderName() const override { return "scPostgreSQLProvider"; }
    [[nodiscard]] std::string GetVisibleProviderName() const override { return "PostgreSQL (PostGIS)"; }
    [[nodiscard]] TscDBMSType GetDBMSType() const override { return dbPostgreSQL; }
    // Spatial when PostGIS is in the database; asked once per connection, and again after a
    // generate (which adds it).
    [[nodiscard]] int GetProviderFeatures() const override;
    void AfterGenerate() override;
    void Open() override {
        fFeatures.reset();
        TscDBCustomProvider::Open();
    }
    [[nodiscard]] std::string DatabaseName() const override { return Trim(GetConnectParametr("Database")); }
    [[nodiscard]] std::vector<std::string> GetDatabaseList() override;

    // Makes the database (UTF8) and adds PostGIS to it.
    void CreateDatabase() override;
    void DropDatabase() override;

    [[nodiscard]] std::string ColumnTypeSQL(const TscField& aField) const override;
    [[nodiscard]] std::string MetaColumnTypeSQL(TcsPropertyKind aKind, bool aBlob) const override;
    [[nodiscard]] std::vector<std::string> SpatialPreambleSQL() const override { return {"CREATE EXTENSION IF NOT EXISTS postgis"}; }
    [[nodiscard]] std::vector<std::string> ReferenceSystemSQL(int aSRID, const std::string& aWKT,
                                                              const std::string& aProj4) const override;
    [[nodiscard]] std::string GeometryColumnInlineSQL(const TscField& aField, int aSRID) const override;
    [[nodiscard]] std::vector<std::string> GeometryColumnAfterSQL(const TscTable&, const TscField&, int) const override { return {}; }
    [[nodiscard]] std::vector<std::string> SpatialIndexSQL(const TscTable& aTable, const TscField& aField,
                                                           const std::string& aIndexName) const override;
    [[nodiscard]] bool ForeignKeysInline() const override { return false; }
    [[nodiscard]] std::string CatalogueGeometryType(int aSRID) const override;
    [[nodiscard]] bool IndexExists(const TscTable& aTable, const TscIndex& aIndex) override;

protected:
    [[nodiscard]] std::unique_ptr<TscDataManager> CreateDataManager() override {
        return std::make_unique<TscPostgreSQLDataManager>(*this);
    }
    [[nodiscard]] std::unique_ptr<TscSQLDBCustomHandler> NewHandler(std::string aObjectClass, std::string aTable, bool aChild,
                                                                   TscSQLDBCustomHandler::TscObjectFactory aFactory) override {
        return std::make_unique<TscSQLDBStandardHandler>(this, std::move(aObjectClass), std::move(aTable), aChild, std::move(aFactory));
    }

private:
    mutable std::optional<int> fFeatures;
    // Runs statements in the server's maintenance database.
    void Maintenance(const std::vector<std::string>& aStatements);
};

// Registers both database providers with the provider manager (once).
void RegisterDBProviders();

// A database provider from a URL: "sqlite:PATH", or
// "postgresql://[USER[:PASSWORD]@][HOST][:PORT]/DATABASE[?host=SOCKETDIR]"; nullptr when the
// text is neither.
std::unique_ptr<TscDBCustomProvider> CreateDBProviderByURL(TscCustomSchema* aSchema, const std::string& aURL);
// Whether the database a provider names is there: the SQLite file, or a PostgreSQL database
// that accepts the connection (which stays open). Raises for any failure other than a
// missing database.
bool DatabaseExists(TscDBCustomProvider& aProvider);

}  // namespace tmi
