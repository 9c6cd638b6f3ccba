// TcsXMLDBDestination: session items into the tables of a database made from the conversion's
// schema (SQLite with SpatiaLite, or PostgreSQL with PostGIS).
//
// A table takes the items of one part type, named by its extended property "PartType" (a
// number; "*" for any part no other table takes; "values" for the values no column takes).
// Each field names its source in its Formula: "#N" is value slot N, "$PART" the item's part
// path, anything else a value's source path. The fields "ID", "PARENT_ID", "XML_ID" and
// "QUARTALS_ID" and a geometry field are filled by the destination itself; a value table has
// "ITEM_ID", "ITEM_TABLE", "SOURCE", "VALUE" and "DATA_TYPE".
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "csRosreestrXMLCore.h"
#include "scSchema.h"
#include "scSchemaDBProviderCore.h"

namespace tmi {

class TscDBCustomProvider;

class TcsXMLDBDestination : public TcsXMLProcessDestination {
    TCS_PERSISTENT(TcsXMLDBDestination)
public:
    explicit TcsXMLDBDestination(TcsComponent* aOwner = nullptr);
    ~TcsXMLDBDestination() override;

    std::string GetTitle() const override { return "База данных"; }
    std::string GetType() const override { return "Database"; }
    // Opens the database the config's FileName names (a URL or a SQLite file), making it
    // and its tables when it is not there; the tables of a database made here are made by the
    // writer's thread while the walk begins.
    void InitDestination() override;
    void BeginTransaction() override;
    void RollbackTransaction() override;
    void CommitTransaction() override;
    bool FindSession(TcsXMLProcessSessionItem& aItem, std::string_view aPath, TcsVariant& aKey) override;
    void GetKey(int aPartType, const std::string& aPartText, TcsVariant& aValue) override;
    bool CommitSession(TcsXMLProcessSessionItem& aItem) override;
    // Commits a walk that reached the end of its file; anything else is rolled back, and a
    // database this run made is removed.
    void Complite() override;
    void Clear() override;
    std::string GetLastProcessInformation() const override;

    // Rows written by the last conversion, by table in schema order.
    [[nodiscard]] std::vector<std::pair<std::string, int64_t>> RowCounts() const;
    // Items no table took.
    [[nodiscard]] int64_t Unplaced() const noexcept { return fUnplaced; }
    [[nodiscard]] bool CreatedDatabase() const noexcept { return fCreated; }

private:
    enum class TSource : uint8_t { Key, Parent, XmlID, QuartalsID, Geometry, Slot, Path, Part, ItemID, ItemTable, ValueSource, Value, DataType };
    struct TFieldMap {
        std::string Column;
        TSource Source = TSource::Path;
        int Slot = -1;
        std::string Path;
        TscFieldDataType Type = fdString;
        int64_t Length = 0;
        std::string Param;  // its parameter's name in the table's statements ("p1", "p2", ...)
    };
    struct TTableMap {
        std::string Name;
        int PartType = -1;
        bool AnyPart = false;
        bool ValueTable = false;
        std::vector<TFieldMap> Fields;
        int SRID = 0;
        int64_t NextKey = 1;
        int64_t Rows = 0;
        std::string InsertSQL[2];  // with the geometry as WKT, and as WKB
        std::string UpdateSQL[2];
        std::set<int64_t> Found;  // keys of rows that were already stored
        bool Fresh = false;       // empty when the conversion began: only its own rows are there
        int FindField = -1;       // the column a row is found by: the first value column
    };

    // The values of find columns written to fresh tables by this conversion: a fixed-size
    // filter that answers "maybe" or "surely not", so a lookup need not wait for the rows the
    // writer has not stored yet unless the value may be among them.
    class TWrittenValues {
    public:
        void Add(size_t aTable, std::string_view aValue);
        [[nodiscard]] bool MayHold(size_t aTable, std::string_view aValue) const;
        void Clear() { fBits.clear(); }

    private:
        std::vector<uint64_t> fBits;
    };

    void MapTables(TscSchema& aSchema);
    // The index of the item's value a slot or path column takes; -1 when there is none.
    [[nodiscard]] static int ValueIndex(const TFieldMap& aField, const TcsXMLProcessSessionItem& aItem);
    [[nodiscard]] TTableMap* TableFor(int aPartType, const std::string& aPartText);
    void ReadNextKeys();
    // The keys of tables that are empty: a database made for this conversion.
    void StartKeys();
    // The parameter of one column: NULL when the value does not parse as the column's type.
    [[nodiscard]] TscDBParam Param(const TFieldMap& aField, const std::string& aName, const TcsVariant& aValue) const;
    void WriteValues(const TTableMap& aTable, TcsXMLProcessSessionItem& aItem, const TcsVariant& aKey);
    // Runs a statement, through the writer while a transaction is open.
    void Run(TscProviderCommand&& aCommand);
    // Drops the rows of the conversion: what the writer holds, the transaction, and a database
    // this run made.
    void Abandon();

    TscSchema* fSchema = nullptr;
    std::unique_ptr<TscDBCustomProvider> fProvider;
    std::unique_ptr<TscCommandQueue> fWriter;
    TWrittenValues fWritten;
    std::vector<TTableMap> fTables;
    TTableMap* fValueTable = nullptr;
    bool fCreated = false;
    bool fInTransaction = false;
    int64_t fUnplaced = 0;
};

}  // namespace tmi
