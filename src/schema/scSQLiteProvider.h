// The schema in an SQLite file with SpatiaLite: provider "scSQLiteProvider", connection
// parameter "FileName". SpatiaLite (mod_spatialite) is loaded on connect; without it the
// provider works but has no geometry.
#pragma once

#include "scSchemaDBProviderCore.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tmi {

class TscSQLiteDataManager : public TscSTDataManager {
public:
    explicit TscSQLiteDataManager(TscDBCustomProvider& aProvider) : TscSTDataManager(aProvider) {}
    ~TscSQLiteDataManager() override;

    [[nodiscard]] TscDBMSType DBMSType() const override { return dbFile; }
    void Connect() override;
    void Disconnect() override;
    [[nodiscard]] bool Connected() const override { return fDB != nullptr; }
    // SQLite keeps names of any length.
    [[nodiscard]] size_t MaxIdentifierLength() const override { return 1U << 20; }
    [[nodiscard]] bool TableExist(std::string_view aOwnerName, std::string_view aTableName) override;
    void DoExecute(const std::string& aSQL, const std::vector<TscDBParam>& aParams) override;
    std::unique_ptr<TscDataSet> DoQuery(const std::string& aSQL, const std::vector<TscDBParam>& aParams,
                                        TscFetchControl* aControl) override;
    void Interrupt() override;
    [[nodiscard]] std::vector<std::string> CatalogueTables() override;
    [[nodiscard]] std::vector<TscCatalogueColumn> CatalogueColumns(const std::string& aTable) override;
    [[nodiscard]] bool Spatial() const noexcept { return fSpatial; }
    // Fills the two-dimensional R*Tree aIndex anew, at once, with the bounds of every geometry of
    // aTable.aColumn under its row id; what it held before goes.
    void RefillSpatialIndex(const std::string& aIndex, const std::string& aTable, const std::string& aColumn);

private:
    sqlite3_stmt* Prepare(const std::string& aSQL, bool aCache);
    void Bind(sqlite3_stmt* aStatement, const std::vector<TscDBParam>& aParams);
    [[noreturn]] void Raise(const std::string& aWhat) const;

    sqlite3* fDB = nullptr;
    bool fSpatial = false;
    std::unordered_map<std::string, sqlite3_stmt*> fStatements;
};

class TscSQLiteProvider : public TscDBCustomProvider {
public:
    explicit TscSQLiteProvider(TscCustomSchema* aSchema);
    [[nodiscard]] std::string GetProviderName() const override { return "scSQLiteProvider"; }
    [[nodiscard]] std::string GetVisibleProviderName() const override { return "SQLite (SpatiaLite)"; }
    [[nodiscard]] TscDBMSType GetDBMSType() const override { return dbFile; }
    [[nodiscard]] int GetProviderFeatures() const override;
    [[nodiscard]] std::string FileName() const;
    [[nodiscard]] std::string DatabaseName() const override { return FileName(); }

    // Makes the file; a file that is there already is refused.
    void CreateDatabase() override;
    void DropDatabase() override;

    [[nodiscard]] std::string ColumnTypeSQL(const TscField& aField) const override;
    [[nodiscard]] std::string MetaColumnTypeSQL(TcsPropertyKind aKind, bool aBlob) const override;
    [[nodiscard]] std::vector<std::string> SpatialPreambleSQL() const override;
    [[nodiscard]] std::vector<std::string> ReferenceSystemSQL(int aSRID, const std::string& aWKT,
                                                              const std::string& aProj4) const override;
    [[nodiscard]] std::string GeometryColumnInlineSQL(const TscField&, int) const override { return {}; }
    [[nodiscard]] std::vector<std::string> GeometryColumnAfterSQL(const TscTable& aTable, const TscField& aField,
                                                                  int aSRID) const override;
    [[nodiscard]] std::vector<std::string> SpatialIndexSQL(const TscTable& aTable, const TscField& aField,
                                                           const std::string& aIndexName) const override;
    [[nodiscard]] bool ForeignKeysInline() const override { return true; }
    [[nodiscard]] std::string CatalogueGeometryType(int) const override { return "GEOMETRY"; }
    [[nodiscard]] bool IndexExists(const TscTable& aTable, const TscIndex& aIndex) override;
    // A load's spatial indices lose their insert triggers until the load ends; then each is
    // filled anew from its table at once, and its trigger is put back as it was.
    void BeginBulkLoad(const std::vector<std::pair<std::string, std::string>>& aGeometryColumns) override;
    void EndBulkLoad() override;

protected:
    [[nodiscard]] std::unique_ptr<TscDataManager> CreateDataManager() override {
        return std::make_unique<TscSQLiteDataManager>(*this);
    }
    [[nodiscard]] std::unique_ptr<TscSQLDBCustomHandler> NewHandler(std::string aObjectClass, std::string aTable, bool aChild,
                                                                   TscSQLDBCustomHandler::TscObjectFactory aFactory) override {
        return std::make_unique<TscSQLDBStandardHandler>(this, std::move(aObjectClass), std::move(aTable), aChild, std::move(aFactory));
    }

private:
    // A trigger set aside for the load: the column it indexes, its name and its statement.
    struct TSuspendedTrigger {
        std::string Table, Column, Name, SQL;
    };
    std::vector<TSuspendedTrigger> fSuspendedTriggers;
};

// SRIDs from this number on are systems of the user's, not EPSG's.
constexpr int kFirstCustomSRID = 900000;

}  // namespace tmi
