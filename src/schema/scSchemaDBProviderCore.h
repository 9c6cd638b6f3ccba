// A schema kept in a relational database: a metadata table per root list, a row per object,
// its published properties as columns; and the tables the schema describes, generated from
// its tables, fields, indices, relations and coordinate systems. The same passes either run
// against the engine ("RealMode") or write the statements as a script ("OnlySQL").
// The bases here are engine-neutral; each engine's adapter supplies the connection, the
// statement templates and the spatial SQL.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "scSchema.h"

namespace tmi {

class TcsCustomGeometry;

enum TscDBMSType { dbNone, dbFile, dbUniversal, dbOracle, dbMSSQL, dbPostgreSQL, dbMySQL, dbInterBase, dbAccess };
enum TscQueryType { qtInfo, qtSQL };
enum TscApplyPropertyOption { aoAddTableTitle, aoNotSetRequired };
enum TscSetValueOption { svoNotFindRecordRaise, svoExecuteExceptionRaise };
enum TscGeometryOperation { goIntersect };

// The feature bit of a provider whose engine has spatial operations.
constexpr int kProviderFeatureSpatial = 16;

// Literal forms of values in SQL text.
// A double in the shortest form that reads back as the same double.
std::string SQLFloatText(double aValue);
// Text in single quotes, quotes doubled.
std::string SQLQuoted(std::string_view aText);
// An identifier in double quotes, quotes doubled: names keep their case and may be any text.
std::string SQLIdentifier(std::string_view aName);
// A date-time as the engine reads it; "Null" for the zero date.
std::string SQLDateTimeLiteral(TscDBMSType aDBMS, TDateTime aValue);
// Bytes as the engine's hexadecimal literal.
std::string SQLBytesLiteral(TscDBMSType aDBMS, std::string_view aBytes);
// A value of a property of that kind: strings quoted, "Null" for an empty value, Booleans as
// 1 and 0, numbers with "." as the separator.
std::string SQLLiteral(TscDBMSType aDBMS, TcsPropertyKind aKind, const TcsVariant& aValue, bool aBlob = false);

// One property mapped to a column.
struct TDBFieldElement {
    std::string PropertyName;
    std::string FieldName;
    TcsVariant Value;
    std::string ParamName;
    TcsPropertyKind Kind = TcsPropertyKind::Variant;
    bool Blob = false;  // the value's text is bytes
};

class TscSQLDBCustomHandler;

class TDBFieldElements {
public:
    void Add(TDBFieldElement aElement) { fItems.push_back(std::move(aElement)); }
    void Delete(int aIndex) { fItems.erase(fItems.begin() + aIndex); }
    [[nodiscard]] const TDBFieldElement& GetItem(int aIndex) const { return fItems.at(static_cast<size_t>(aIndex)); }
    [[nodiscard]] const TDBFieldElement* GetItemByPropertyName(std::string_view aName) const;
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fItems.size()); }
    [[nodiscard]] const std::vector<TDBFieldElement>& Items() const noexcept { return fItems; }
    // The object's columns, as its handler maps them.
    void LoadElements(const TscObject& aObject, const TscObject* aParent, const TscSQLDBCustomHandler& aHandler);
    void Clear() { fItems.clear(); }

private:
    std::vector<TDBFieldElement> fItems;
};

// The objects already handled in one session.
class TscAppledObjects {
public:
    [[nodiscard]] bool ObjectApplied(const void* aObject) const { return fItems.count(aObject) != 0; }
    [[nodiscard]] bool Exist(const void* aObject) const { return ObjectApplied(aObject); }
    void AddAppliedObject(const void* aObject) { fItems.insert(aObject); }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fItems.size()); }

private:
    std::unordered_set<const void*> fItems;
};

// One pass of statements over objects: each object once.
struct TscSQLSession {
    TscAppledObjects Applied;
    bool Recursive = true;
    // Compare with the stored rows: update what is there, insert what is not.
    bool Analize = false;
    // Insert every object whatever its state (a fresh store).
    bool FullInsert = false;
    int Done = 0;
    int Total = 0;
    std::function<void(int, int)> OnProgress;
    void Step() {
        ++Done;
        if (OnProgress) OnProgress(Done, Total);
    }
};

// Parameters of database creation.
struct TscDBGenerateParam {
    std::string Name;
    std::string Value;
};
using TscDBGenerateParams = std::vector<TscDBGenerateParam>;

// A row set read whole: column names and cells as text (no value for NULL).
class TscDataSet {
public:
    std::vector<std::string> Fields;
    std::vector<std::vector<std::optional<std::string>>> Rows;
    [[nodiscard]] int FieldIndex(std::string_view aName) const;
    [[nodiscard]] int RecordCount() const noexcept { return static_cast<int>(Rows.size()); }
    [[nodiscard]] const std::optional<std::string>& Cell(int aRow, int aField) const;
    // The cell as a value: unassigned for NULL, an integer when the text is a whole number.
    [[nodiscard]] TcsVariant Value(int aRow, std::string_view aField) const;
};
using TscDataSetClass = std::function<std::unique_ptr<TscDataSet>()>;

// A parameter of a statement: text, or bytes for a blob; no value for NULL.
struct TscDBParam {
    std::string Name;
    std::optional<std::string> Value;
    bool Blob = false;
    bool IsFloat = false;
};

class TscProviderCommand {
public:
    std::string CommandText;
    std::vector<TscDBParam> Parameters;
    void SetParameter(std::string aName, std::optional<std::string> aValue, bool aBlob = false, bool aFloat = false) {
        Parameters.push_back({std::move(aName), std::move(aValue), aBlob, aFloat});
    }
};

// What a background fetch shares with the thread that waits for it.
struct TscFetchControl {
    std::atomic<int64_t> Rows{0};
    std::atomic<bool> Cancel{false};
};

// A column of the engine's catalogue.
struct TscCatalogueColumn {
    std::string Name;
    std::string Type;  // as the adapter spells the generated type
    bool NotNull = false;
};

class TscDBCustomProvider;
class TscDataManagerSQLGenerator;

// The access layer above one engine: statements with parameters, queries, transactions.
class TscDataManager {
public:
    explicit TscDataManager(TscDBCustomProvider& aProvider) : fProvider(aProvider) {}
    virtual ~TscDataManager();
    TscDataManager(const TscDataManager&) = delete;
    TscDataManager& operator=(const TscDataManager&) = delete;

    [[nodiscard]] TscDBCustomProvider& Provider() const noexcept { return fProvider; }
    [[nodiscard]] virtual TscDBMSType DBMSType() const = 0;
    virtual void Connect() = 0;
    virtual void Disconnect() = 0;
    [[nodiscard]] virtual bool Connected() const = 0;
    // The longest identifier the engine keeps whole, in bytes.
    [[nodiscard]] virtual size_t MaxIdentifierLength() const = 0;
    [[nodiscard]] virtual std::string QuoteIdentifier(std::string_view aName) const { return SQLIdentifier(aName); }

    // Runs a statement; raises with the engine's words. Statements of the same text reuse
    // one prepared form.
    void ExecuteSQL(const std::string& aSQL, bool aThreadMode = false);
    void Execute(const TscProviderCommand& aCommand);
    [[nodiscard]] std::unique_ptr<TscDataSet> Query(const std::string& aSQL, const std::vector<TscDBParam>& aParams = {});
    // The field of the first row; unassigned (or a raise, with aRaise) when there is no row.
    TcsVariant GetSQLResult(const std::string& aSQL, std::string_view aFieldResult, bool aRaise);
    // The first column of every row.
    std::vector<std::string> GetSQLListResult(const std::string& aSQL);
    [[nodiscard]] virtual bool TableExist(std::string_view aOwnerName, std::string_view aTableName) = 0;
    void SetFieldValue(std::string_view aTableName, std::string_view aFieldName, const TcsVariant& aKeyValue,
                       const TcsVariant& aValue, std::set<TscSetValueOption> aOption = {});
    // One more than the largest "ID" of the table.
    TcsVariant GetNewIDValue(std::string_view aTableName);
    [[nodiscard]] virtual std::string GetSequenceNewValueSQL(std::string_view aTableName) const;

    void BeginTrans();
    void CommitTrans();
    void RollbackTrans();
    [[nodiscard]] bool InTrans() const noexcept { return fInTrans; }

    // The classes behind queries: none in the base.
    [[nodiscard]] virtual TscDataSetClass GetDataSetClass() const { return {}; }
    [[nodiscard]] virtual TscDataSetClass GetCloneDataSetClass() const { return {}; }
    [[nodiscard]] std::unique_ptr<TscDataSet> CreateDataSet() const;
    [[nodiscard]] std::unique_ptr<TscDataSet> CreateCloneDataSet() const;
    [[nodiscard]] TscDataManagerSQLGenerator& SQLGenerator();

    // The engine's own work, in its adapter.
    virtual void DoExecute(const std::string& aSQL, const std::vector<TscDBParam>& aParams) = 0;
    virtual std::unique_ptr<TscDataSet> DoQuery(const std::string& aSQL, const std::vector<TscDBParam>& aParams,
                                                TscFetchControl* aControl) = 0;
    // Stops a running statement; called from another thread.
    virtual void Interrupt() {}
    // The user's tables, without the engine's own (reference systems, geometry registers,
    // spatial index tables).
    [[nodiscard]] virtual std::vector<std::string> CatalogueTables() = 0;
    [[nodiscard]] virtual std::vector<TscCatalogueColumn> CatalogueColumns(const std::string& aTable) = 0;

protected:
    [[nodiscard]] virtual std::unique_ptr<TscDataManagerSQLGenerator> GetSQLGeneratorClass();

    TscDBCustomProvider& fProvider;

private:
    std::unique_ptr<TscDataManagerSQLGenerator> fGenerator;
    bool fInTrans = false;
};

// A query fetched by a thread of its own; the caller watches the rows arrive and may cancel.
class TscQueryThread {
public:
    TscQueryThread(TscDataManager& aManager, std::string aSQL, bool aExecuteOnly = false);
    ~TscQueryThread();
    TscQueryThread(const TscQueryThread&) = delete;
    TscQueryThread& operator=(const TscQueryThread&) = delete;
    void Start();
    [[nodiscard]] int64_t GetFetchProgress() const noexcept { return fControl.Rows.load(); }
    [[nodiscard]] bool Finished() const noexcept { return fFinished.load(); }
    void FetchCancel();
    // Waits for the end: the rows, or the raise the fetch ended with.
    std::unique_ptr<TscDataSet> WaitFor();

private:
    TscDataManager& fManager;
    std::string fSQL;
    bool fExecuteOnly;
    TscFetchControl fControl;
    std::thread fThread;
    std::atomic<bool> fFinished{false};
    std::unique_ptr<TscDataSet> fResult;
    std::exception_ptr fError;
};

// Statements run in order by a thread of their own while the caller makes the next ones: the
// caller hands over a statement and goes on; a failure comes back at its next Push or at Flush.
// Between Start and Flush (or Discard) the data manager belongs to the queue's thread; the
// caller must not use it. Memory is bounded: Push waits while the statements handed over and
// not yet run hold more than about two megabytes, or eight while a task posted before them
// (the database being made) keeps them waiting and the thread has not caught up since.
class TscCommandQueue {
public:
    explicit TscCommandQueue(TscDataManager& aManager);
    ~TscCommandQueue();
    TscCommandQueue(const TscCommandQueue&) = delete;
    TscCommandQueue& operator=(const TscCommandQueue&) = delete;

    void Start();
    [[nodiscard]] bool Running() const noexcept { return fThread.joinable(); }
    // Hands over a statement; raises the failure of an earlier one, if any.
    void Push(TscProviderCommand aCommand);
    // Hands over work that runs on the thread in its turn among the statements (making the
    // database they go to, opening their transaction); its failure comes back as a statement's
    // would. Without the thread it runs at once.
    void Post(std::function<void()> aTask);
    // Waits until every statement handed over has run; raises the first failure. Until the
    // next Push the caller may use the data manager.
    void Sync();
    // Sync, and the thread ends: the data manager is the caller's again.
    void Flush();
    // Ends the thread at once: what was not run is dropped, a failure forgotten.
    void Discard() noexcept;

private:
    using TBatch = std::vector<TscProviderCommand>;
    struct THandedOver {
        TBatch Commands;
        std::function<void()> Task;  // run instead of the commands when set
        size_t Bytes = 0;
    };
    void Run();
    void HandOver(std::unique_lock<std::mutex>& aLock);

    TscDataManager& fManager;
    TBatch fFilling;
    size_t fFillingBytes = 0;
    std::mutex fMutex;
    std::condition_variable fWake;   // the thread: a batch, or the end
    std::condition_variable fRoom;   // the caller: room for a batch, or all run
    std::deque<THandedOver> fBatches;
    size_t fPendingBytes = 0;
    int fTasks = 0;             // tasks handed over and not yet run
    bool fBehindTask = false;   // statements wait behind a task: the caller may run further ahead
    bool fBusy = false;
    bool fStop = false;
    bool fDrop = false;
    std::exception_ptr fError;
    std::thread fThread;
};

// The geometry-specific SQL. The base knows only the spatial condition's infix form.
class TscDataManagerSQLGenerator {
public:
    explicit TscDataManagerSQLGenerator(TscDataManager& aManager) : fManager(aManager) {}
    virtual ~TscDataManagerSQLGenerator() = default;
    [[nodiscard]] virtual std::string GetGeometryWKTSelectSQL(std::string_view aGeometryField, std::string_view aAlias) const;
    [[nodiscard]] virtual std::string GetGeometryWKBSelectSQL(std::string_view aGeometryField, std::string_view aAlias) const;
    [[nodiscard]] virtual std::string GetXMLToStringSelectSQL(std::string_view aXMLField, std::string_view aAlias) const;
    [[nodiscard]] virtual std::string GetWKBToGeometrySQL(std::string_view aWKBString) const;
    [[nodiscard]] virtual std::string GetGeometrySQL(const TcsCustomGeometry& aGeometry, int aSRID = 0) const;
    [[nodiscard]] virtual std::string GetGeometryOperationSQL(TscGeometryOperation aOperation) const;
    // The condition that picks rows whose geometry stands in that relation to aGeometry;
    // empty when the engine has no spatial operations.
    [[nodiscard]] virtual std::string GetWhereGeometrySQL(const TcsCustomGeometry& aGeometry, std::string_view aGeometryField,
                                                          TscGeometryOperation aOperation, int aSRID = 0) const;

protected:
    TscDataManager& fManager;
};

// The spatial SQL of engines with the ST_ functions (SpatiaLite, PostGIS). A spatial
// condition is a function call: no engine takes the infix form.
class TscSTSQLGenerator : public TscDataManagerSQLGenerator {
public:
    using TscDataManagerSQLGenerator::TscDataManagerSQLGenerator;
    [[nodiscard]] std::string GetGeometryWKTSelectSQL(std::string_view aGeometryField, std::string_view aAlias) const override;
    [[nodiscard]] std::string GetGeometryWKBSelectSQL(std::string_view aGeometryField, std::string_view aAlias) const override;
    [[nodiscard]] std::string GetXMLToStringSelectSQL(std::string_view aXMLField, std::string_view aAlias) const override;
    [[nodiscard]] std::string GetWKBToGeometrySQL(std::string_view aWKBString) const override;
    [[nodiscard]] std::string GetGeometrySQL(const TcsCustomGeometry& aGeometry, int aSRID = 0) const override;
    [[nodiscard]] std::string GetGeometryOperationSQL(TscGeometryOperation aOperation) const override;
    [[nodiscard]] std::string GetWhereGeometrySQL(const TcsCustomGeometry& aGeometry, std::string_view aGeometryField,
                                                  TscGeometryOperation aOperation, int aSRID = 0) const override;
};

// The data manager of engines with the ST_ functions: whole row sets, the spatial generator.
class TscSTDataManager : public TscDataManager {
public:
    using TscDataManager::TscDataManager;
    [[nodiscard]] TscDataSetClass GetDataSetClass() const override {
        return [] { return std::make_unique<TscDataSet>(); };
    }
    [[nodiscard]] TscDataSetClass GetCloneDataSetClass() const override { return GetDataSetClass(); }

protected:
    [[nodiscard]] std::unique_ptr<TscDataManagerSQLGenerator> GetSQLGeneratorClass() override {
        return std::make_unique<TscSTSQLGenerator>(*this);
    }
};

// Turns objects of one class into statements on its metadata table, and loads them back.
class TscSQLDBCustomHandler : public TscCustomHandler {
public:
    using TscObjectFactory = std::function<std::unique_ptr<TscObject>()>;
    TscSQLDBCustomHandler(TscDBCustomProvider* aProvider, std::string aObjectClass, std::string aTableName, bool aChild,
                          TscObjectFactory aFactory);

    [[nodiscard]] std::string GetObjectClass() const override { return fObjectClass; }
    [[nodiscard]] std::string SectionName() const override { return fTableName; }
    [[nodiscard]] const std::string& TableName() const noexcept { return fTableName; }
    // Objects of a list held by another object: the table carries the owner's key.
    [[nodiscard]] bool IsChild() const noexcept { return fChild; }
    [[nodiscard]] TscDBCustomProvider& DBProvider() const;

    virtual void SetStreamParameter(TscProviderCommand& aCommand, const std::string& aParamName, const std::string& aBytes);
    virtual void SetGlyphParameter(TscProviderCommand& aCommand, const std::string& aParamName, const std::string& aBytes);
    virtual void SetTextParameter(TscProviderCommand& aCommand, const std::string& aParamName, const std::string& aText);
    [[nodiscard]] virtual std::string GetInsertSQLTemplate() const { return {}; }
    [[nodiscard]] virtual std::string GetBaseNameForSQL(std::string_view aBaseName) const;
    [[nodiscard]] virtual std::string GetKeyBaseNameForSQL() const { return GetBaseNameForSQL(GetKeyField()); }
    [[nodiscard]] virtual std::string GetUpdateSQLTemplate() const { return {}; }
    [[nodiscard]] virtual std::string GetDeleteSQLTemplate() const { return {}; }
    [[nodiscard]] virtual std::string GetKeyField() const { return "ID"; }
    // The statement that reads the table's rows.
    [[nodiscard]] virtual std::string GetPropertiesCommand() const;
    // The columns of an object: its published properties, an index's fields, a child's owner.
    virtual void GetPropertiesSQL(const TscObject& aObject, const TscObject* aParent, TDBFieldElements& aElements) const;
    [[nodiscard]] virtual bool AllowInsertPropertySQL(const TDBFieldElement& aElement) const { (void)aElement; return true; }
    [[nodiscard]] virtual bool AllowUpdatePropertySQL(const TDBFieldElement& aElement) const;
    // The insert of the object; with a command, the values go as its parameters, else as text.
    std::string PrepareInsertSQL(const TscObject& aObject, const TscObject* aParent, bool aAppendEndSymbol,
                                 TscProviderCommand* aCommand);
    virtual void InternalPrepareInsertElements(TDBFieldElements& aElements) { (void)aElements; }
    // The update of the properties the edit changed (all with aAll).
    std::string PrepareUpdateSQL(const TscObject& aObject, const TscObject* aParent, bool aAll, bool aAppendEndSymbol,
                                 TscProviderCommand* aCommand);
    virtual void InternalPrepareUpdateElements(TDBFieldElements& aElements) { (void)aElements; }
    std::string PrepareDeleteSQL(const TscObject& aObject, bool aAppendEndSymbol, TscProviderCommand* aCommand);

    virtual void DoSaveMetaWithAnalize(TscObject& aObject, const TscObject* aParentObject, TscSQLSession& aSession, bool aRecursive);
    virtual void BeforeSaveMeta(TscObject& aObject, TscSQLSession& aSession) { (void)aObject, (void)aSession; }
    virtual void AfterSaveMeta(TscObject& aObject, TscSQLSession& aSession) { (void)aObject, (void)aSession; }
    virtual void DoUpdateMeta(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession, bool aAll = false);
    virtual void DoInsertMeta(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession);
    virtual void DoDeleteMeta(TscObject& aObject, TscSQLSession& aSession);
    virtual void DoFullDeleteMeta(TscSQLSession& aSession);
    virtual void DoFullUpdateMeta(TscObjects& aObjects, TscSQLSession& aSession);
    // Insert, update or delete, as the object's state says.
    virtual void ModifySQL(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession);
    virtual void NewSQL(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession);
    virtual void DeleteSQL(TscObject& aObject, TscSQLSession& aSession);
    virtual void AnalizeSQL(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession);
    virtual void AfterSQL(TscSQLSession& aSession) { (void)aSession; }

    // An object and, in a recursive session, what it holds; a list, deleted objects first.
    void SQL(TscObject* aObject, const TscObject* aParent, TscSQLSession& aSession);
    void SQL(TscObjects* aObjects, const TscObject* aParent, TscSQLSession& aSession);

    void Load(TscObjects& aObjects) override;
    void Save(TscObjects& aObjects) override;
    void CloseCache() override {
        fStoredKeys.reset();
        fRows.reset();
        fOwners.reset();
    }
    // The metadata table's statement.
    [[nodiscard]] std::string CreateTableSQL() const;
    // The object's stored row, compared with its properties: osdbNormal, osdbModify or osdbNotCreated.
    [[nodiscard]] TscDBObjectStatus CompareStored(const TscObject& aObject, const TscObject* aParent);
    // The table's rows, read once until the cache closes.
    [[nodiscard]] const TscDataSet& StoredRows();
    // Whether a child table holds rows of that owner.
    [[nodiscard]] bool HasRowsOf(const std::string& aOwnerKey);

private:
    [[nodiscard]] bool StoredKeyExists(const std::string& aKey);
    void ApplyRow(const TscDataSet& aRows, int aRow, TscObject& aObject) const;

    std::string fObjectClass;
    std::string fTableName;
    bool fChild;
    TscObjectFactory fFactory;
    std::optional<std::unordered_set<std::string>> fStoredKeys;
    std::unique_ptr<TscDataSet> fRows;
    std::optional<std::unordered_set<std::string>> fOwners;
};

// The handler of engines that speak standard SQL.
class TscSQLDBStandardHandler : public TscSQLDBCustomHandler {
public:
    using TscSQLDBCustomHandler::TscSQLDBCustomHandler;
    [[nodiscard]] std::string GetInsertSQLTemplate() const override { return "INSERT INTO %s (%s) VALUES (%s)"; }
    [[nodiscard]] std::string GetUpdateSQLTemplate() const override { return "UPDATE %s SET %s WHERE %s"; }
    [[nodiscard]] std::string GetDeleteSQLTemplate() const override { return "DELETE FROM %s WHERE %s"; }
};

// A database provider. Connection parameters: the engine's own, and "WorkMode" ("OnlySQL":
// the statements go to Script(); "RealMode", the default: they run).
class TscDBCustomProvider : public TscCustomProvider {
public:
    explicit TscDBCustomProvider(TscCustomSchema* aSchema);
    ~TscDBCustomProvider() override;

    [[nodiscard]] TscPoviderType ProviderType() const override { return ptDatabase; }
    void ChangeUserName(std::string_view aUserName) { SetConnectParametr("User_Name", aUserName); }
    void ChangePassWord(std::string_view aPassword) { SetConnectParametr("Password", aPassword); }
    void ChangeDatabase(std::string_view aDatabase) { SetConnectParametr("Database", aDatabase); }
    void ChangeInternalAuth(bool aInternal) { SetConnectParametr("OSAuthent", aInternal ? "0" : "1"); }
    // The user, the password and whether the engine's own authentication is used.
    static void ExtractAuthParams(const std::string& aConnectionString, std::string& aUserName, std::string& aPassword,
                                  bool& aInternalAuth);
    [[nodiscard]] virtual int GetProviderFeatures() const { return 0; }
    [[nodiscard]] virtual TscDBMSType GetDBMSType() const = 0;
    [[nodiscard]] virtual std::vector<std::string> GetInstanceList() { return {}; }
    [[nodiscard]] virtual std::vector<std::string> GetDatabaseList() { return {}; }
    [[nodiscard]] virtual std::string GetDefaultConnectionString(const TscDBGenerateParams& aParametrs) const;
    TcsVariant GetNewIDValue(const TscObject& aObject);
    TcsVariant GetNewIDValue(std::string_view aTableName);

    // Connects; a failure raises EscSchemaException naming the provider, the database and
    // the engine's words, never the password.
    void Open() override;
    void Close() override { DisConnect(); }
    void DisConnect();
    [[nodiscard]] std::unique_ptr<TscProviderCommand> CreateCommands() const { return std::make_unique<TscProviderCommand>(); }

    // Writes the schema's metadata and makes its tables, in one transaction; aCreateDatabase
    // makes the database first (and removes it again when the run fails).
    void Generate(TscCustomSchema& aSchema, TscSQLSession* aSession, const TscDBGenerateParams& aParametrs, bool aCreateDatabase);
    virtual void CreateDatabase() = 0;
    // Removes what CreateDatabase made.
    virtual void DropDatabase() = 0;
    virtual void GenerateParamToSchema(const TscDBGenerateParams& aParametrs) { (void)aParametrs; }
    virtual void AfterGenerate() {}
    // Many rows written in one transaction. The engine may set aside the work it does for each
    // row of the given geometry columns (table, column) and do it once when the load ends:
    // SQLite fills a column's spatial index from its table at once instead of adding every row
    // to it. Both run inside the load's transaction, so its rollback undoes them as well.
    virtual void BeginBulkLoad(const std::vector<std::pair<std::string, std::string>>& aGeometryColumns) {
        (void)aGeometryColumns;
    }
    virtual void EndBulkLoad() {}
    void RefreshCache();
    void CloseCache();
    // The changed objects' statements (all objects' in a fresh store), one transaction.
    void SaveSchema(TscCustomSchema& aSchema) override;
    // A save of the changed lists: one transaction from BeforeSave to Commit, rolled back
    // when a statement fails.
    void BeforeSave() override;
    void Save(TscObjects& aObjects) override;
    void Commit() override;
    void Load(TscObjects& aObjects) override;
    void DoAfterLoad() override;
    // Sets every object's DBObjectStatus from the metadata rows and the engine's catalogue.
    void Analize(TscCustomSchema& aSchema) override;
    // Catalogue tables that are neither the schema's nor the metadata's (found by Analize).
    [[nodiscard]] const std::vector<std::string>& RunTimeAddedTables() const noexcept { return fRunTimeAdded; }

    [[nodiscard]] bool OnlySQL() const;
    [[nodiscard]] const std::string& Script() const noexcept { return fScript; }
    [[nodiscard]] TscDataManager& DataManager();
    [[nodiscard]] TscCustomHandler* GetHandlerByObjects(const TscObjects& aObjects) const override;
    [[nodiscard]] TscCustomHandler* DefaultHandler() const override { return nullptr; }

    // A statement of the run: executed, or written to the script. aObject names what it was for
    // when the engine refuses it.
    void Emit(const std::string& aSQL, const TscObject* aObject = nullptr, const TscProviderCommand* aCommand = nullptr);
    [[nodiscard]] std::string Quote(std::string_view aName) const { return SQLIdentifier(aName); }
    [[nodiscard]] std::string Terminator() const { return ";"; }

    // The DDL of the engine.
    [[nodiscard]] virtual std::string ColumnTypeSQL(const TscField& aField) const = 0;
    [[nodiscard]] virtual std::string MetaColumnTypeSQL(TcsPropertyKind aKind, bool aBlob) const = 0;
    // Statements that prepare a new database for geometry (a script's first lines too).
    [[nodiscard]] virtual std::vector<std::string> SpatialPreambleSQL() const = 0;
    // Statements that make a reference system known to the engine.
    [[nodiscard]] virtual std::vector<std::string> ReferenceSystemSQL(int aSRID, const std::string& aWKT,
                                                                      const std::string& aProj4) const = 0;
    // Whether the engine's reference-system table ("spatial_ref_sys" in both engines) holds the SRID.
    [[nodiscard]] bool ReferenceSystemExists(int aSRID);
    // The statements of a geometry column: inline (a column definition) or after the table.
    [[nodiscard]] virtual std::string GeometryColumnInlineSQL(const TscField& aField, int aSRID) const = 0;
    [[nodiscard]] virtual std::vector<std::string> GeometryColumnAfterSQL(const TscTable& aTable, const TscField& aField,
                                                                          int aSRID) const = 0;
    [[nodiscard]] virtual std::vector<std::string> SpatialIndexSQL(const TscTable& aTable, const TscField& aField,
                                                                   const std::string& aIndexName) const = 0;
    // Foreign keys inside CREATE TABLE (the engine cannot add them later) or as ALTER TABLE.
    [[nodiscard]] virtual bool ForeignKeysInline() const = 0;
    // The geometry column's type as the catalogue spells it.
    [[nodiscard]] virtual std::string CatalogueGeometryType(int aSRID) const = 0;
    [[nodiscard]] virtual std::string DatabaseName() const = 0;
    [[nodiscard]] virtual bool IndexExists(const TscTable& aTable, const TscIndex& aIndex) = 0;

    // The coordinate systems' support flags, in a table of their own.
    void WriteSupportFlags(TscCoordSystems& aSystems);
    void ReadSupportFlags(TscCoordSystems& aSystems);
    static constexpr const char* kSupportTable = "CoordSystemsSupport";

    // The generated names of a table's constraints and indices: short and unique.
    [[nodiscard]] static std::string IndexName(const TscIndex& aIndex);
    [[nodiscard]] static std::string ForeignKeyName(const TscRelation& aRelation);
    // The SRID a geometry field's set gives, 0 when none.
    [[nodiscard]] int SRIDOf(TscSchema& aSchema, const TscTable& aTable, const TscField& aField) const;

protected:
    [[nodiscard]] virtual std::unique_ptr<TscDataManager> CreateDataManager() = 0;
    // The handler of every root list and child list, by object class.
    void AddDefaultHandlers();
    // A handler of the engine (the base's has no statement templates).
    [[nodiscard]] virtual std::unique_ptr<TscSQLDBCustomHandler> NewHandler(std::string aObjectClass, std::string aTable, bool aChild,
                                                                           TscSQLDBCustomHandler::TscObjectFactory aFactory);

private:
    void EmitHeader();
    void WriteMetadata(TscCustomSchema& aSchema, TscSQLSession& aSession, bool aFresh);
    void GenerateTables(TscSchema& aSchema);
    void GenerateMapinfoMetadata(TscSchema& aSchema);
    [[nodiscard]] std::vector<TscObjects*> ListsInSaveOrder(TscCustomSchema& aSchema) const;
    [[nodiscard]] std::string DescribeForError() const;

    std::unique_ptr<TscDataManager> fDataManager;
    std::string fScript;
    std::vector<std::string> fRunTimeAdded;
    std::map<std::string, std::string> fLoadedOwners;
};

}  // namespace tmi
