#include "scSchemaDBProviderCore.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>

#include "csGeometryCoordSysCore.h"
#include "csGeometryCore.h"

namespace tmi {

namespace {

// The template with each "%s" replaced by the next argument.
std::string Fill(std::string_view aTemplate, std::initializer_list<std::string_view> aArgs) {
    std::string out;
    auto arg = aArgs.begin();
    for (size_t i = 0; i < aTemplate.size(); ++i) {
        if (aTemplate[i] == '%' && i + 1 < aTemplate.size() && aTemplate[i + 1] == 's' && arg != aArgs.end()) {
            out += *arg++;
            ++i;
        } else {
            out += aTemplate[i];
        }
    }
    return out;
}

std::string Join(const std::vector<std::string>& aParts, std::string_view aSeparator) {
    std::string out;
    for (size_t i = 0; i < aParts.size(); ++i) {
        if (i) out += aSeparator;
        out += aParts[i];
    }
    return out;
}

std::string Two(int aValue) { return (aValue < 10 ? "0" : "") + std::to_string(aValue); }

bool IsBlobProperty(std::string_view aName) { return aName == "Glyph" || aName == "FileCS"; }

// The text a value is stored as (a parameter's text); no value for NULL.
std::optional<std::string> StoredText(const TDBFieldElement& aElement) {
    const TcsVariant& v = aElement.Value;
    if (v.IsEmpty()) return std::nullopt;
    switch (aElement.Kind) {
    case TcsPropertyKind::Boolean: return std::string(v.AsBoolean() ? "1" : "0");
    case TcsPropertyKind::Integer:
    case TcsPropertyKind::Enumeration: return std::to_string(v.AsInteger());
    case TcsPropertyKind::Float: return SQLFloatText(v.AsFloat());
    default: {
        std::string text = v.AsString();
        if (text.empty()) return std::nullopt;
        return text;
    }
    }
}

// The owner's key in a child table: its class and key, so that owners of different classes
// sharing a number stay apart.
std::string OwnerKey(const TscObject& aOwner) { return aOwner.ClassName() + ":" + aOwner.KeyText(); }

std::string IndexFieldsText(const TscIndex& aIndex) {
    std::string out;
    for (const TscIndexField& f : aIndex.IndexFields()) {
        if (!out.empty()) out += ';';
        out += f.FieldID.AsString() + ":" + EnumNames("TscSortOrder")[f.Order];
    }
    return out;
}

void ReadIndexFields(TscIndex& aIndex, const std::string& aText) {
    aIndex.ClearIndexFields();
    for (const std::string& part : Split(aText, ';')) {
        if (Trim(part).empty()) continue;
        const size_t colon = part.find(':');
        const std::string id = part.substr(0, colon);
        int64_t n = 0;
        const TcsVariant key = TryStrToInt(id, n) ? TcsVariant(n) : TcsVariant(id);
        const bool descending = colon != std::string::npos && part.substr(colon + 1) == "soDescending";
        aIndex.AddIndexField(key, descending ? soDescending : soAscending);
    }
}

bool SameStored(const std::optional<std::string>& aStored, const std::optional<std::string>& aMine, TcsPropertyKind aKind) {
    if (!aStored || !aMine) return aStored.has_value() == aMine.has_value();
    if (aKind == TcsPropertyKind::Float) {
        double a = 0, b = 0;
        return TryStrToFloat(*aStored, a) && TryStrToFloat(*aMine, b) && a == b;
    }
    return *aStored == *aMine;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Literals

std::string SQLFloatText(double aValue) {
    if (!std::isfinite(aValue)) return "Null";
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, aValue);
    return std::string(buffer, result.ptr);
}

std::string SQLQuoted(std::string_view aText) {
    std::string out = "'";
    for (char c : aText) {
        if (c == '\'') out += '\'';
        out += c;
    }
    return out + "'";
}

std::string SQLIdentifier(std::string_view aName) {
    std::string out = "\"";
    for (char c : aName) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

std::string SQLDateTimeLiteral(TscDBMSType aDBMS, TDateTime aValue) {
    if (aValue.fValue == 0) return "Null";
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, ms = 0;
    DecodeDateTime(aValue, y, mo, d, h, mi, s, ms);
    const std::string dmy = Two(d) + "." + Two(mo) + "." + std::to_string(y) + " " + Two(h) + ":" + Two(mi) + ":" + Two(s);
    const std::string iso = std::to_string(y) + "-" + Two(mo) + "-" + Two(d) + " " + Two(h) + ":" + Two(mi) + ":" + Two(s);
    switch (aDBMS) {
    case dbOracle: return Fill("TO_DATE('%s', 'DD.MM.YYYY HH24:MI:SS')", {dmy});
    case dbMSSQL: return Fill("CONVERT(datetime, '%s', 120)", {iso});
    case dbPostgreSQL: return Fill("to_timestamp('%s', 'DD.MM.YYYY HH24:MI:SS')", {dmy});
    default: return SQLQuoted(iso);
    }
}

std::string SQLBytesLiteral(TscDBMSType aDBMS, std::string_view aBytes) {
    static const char* digits = "0123456789ABCDEF";
    std::string hex;
    hex.reserve(aBytes.size() * 2);
    for (unsigned char c : aBytes) {
        hex += digits[c >> 4];
        hex += digits[c & 15];
    }
    switch (aDBMS) {
    case dbPostgreSQL: return "'\\x" + hex + "'::bytea";
    case dbFile: return "X'" + hex + "'";
    default: return "0x" + hex;
    }
}

std::string SQLLiteral(TscDBMSType aDBMS, TcsPropertyKind aKind, const TcsVariant& aValue, bool aBlob) {
    if (aValue.IsEmpty()) return "Null";
    if (aBlob) return aValue.AsString().empty() ? "Null" : SQLBytesLiteral(aDBMS, aValue.AsString());
    switch (aKind) {
    case TcsPropertyKind::Boolean: return aValue.AsBoolean() ? "1" : "0";
    case TcsPropertyKind::Integer:
    case TcsPropertyKind::Enumeration: return std::to_string(aValue.AsInteger());
    case TcsPropertyKind::Float: return SQLFloatText(aValue.AsFloat());
    case TcsPropertyKind::DateTime: return SQLDateTimeLiteral(aDBMS, aValue.AsDateTime());
    default: {
        const std::string text = aValue.AsString();
        return text.empty() ? "Null" : SQLQuoted(text);
    }
    }
}

// ---------------------------------------------------------------------------------------------
// Field elements, data sets

const TDBFieldElement* TDBFieldElements::GetItemByPropertyName(std::string_view aName) const {
    for (const TDBFieldElement& e : fItems)
        if (SameText(e.PropertyName, aName)) return &e;
    return nullptr;
}

void TDBFieldElements::LoadElements(const TscObject& aObject, const TscObject* aParent, const TscSQLDBCustomHandler& aHandler) {
    fItems.clear();
    aHandler.GetPropertiesSQL(aObject, aParent, *this);
}

int TscDataSet::FieldIndex(std::string_view aName) const {
    for (size_t i = 0; i < Fields.size(); ++i)
        if (SameText(Fields[i], aName)) return static_cast<int>(i);
    return -1;
}

const std::optional<std::string>& TscDataSet::Cell(int aRow, int aField) const {
    return Rows.at(static_cast<size_t>(aRow)).at(static_cast<size_t>(aField));
}

TcsVariant TscDataSet::Value(int aRow, std::string_view aField) const {
    const int field = FieldIndex(aField);
    if (field < 0) return {};
    const std::optional<std::string>& cell = Cell(aRow, field);
    if (!cell) return {};
    int64_t n = 0;
    if (TryStrToInt(*cell, n)) return TcsVariant(n);
    return TcsVariant(*cell);
}

// ---------------------------------------------------------------------------------------------
// Data manager

TscDataManager::~TscDataManager() = default;


namespace {
void CheckCommandText(const std::string& aSQL) {
    if (Trim(aSQL).empty()) throw EscSchemaException("Ошибка: Строка команды не должна быть пустой! ");
}
}  // namespace

void TscDataManager::ExecuteSQL(const std::string& aSQL, bool aThreadMode) {
    CheckCommandText(aSQL);
    if (!aThreadMode) {
        DoExecute(aSQL, {});
        return;
    }
    TscQueryThread thread(*this, aSQL, true);
    thread.Start();
    thread.WaitFor();
}

void TscDataManager::Execute(const TscProviderCommand& aCommand) {
    CheckCommandText(aCommand.CommandText);
    DoExecute(aCommand.CommandText, aCommand.Parameters);
}

std::unique_ptr<TscDataSet> TscDataManager::Query(const std::string& aSQL, const std::vector<TscDBParam>& aParams) {
    CheckCommandText(aSQL);
    return DoQuery(aSQL, aParams, nullptr);
}

TcsVariant TscDataManager::GetSQLResult(const std::string& aSQL, std::string_view aFieldResult, bool aRaise) {
    std::unique_ptr<TscDataSet> rows = Query(aSQL);
    if (rows->RecordCount() == 0) {
        if (aRaise) throw EscSchemaException("Запрос не вернул ни одной записи: " + aSQL);
        return {};
    }
    if (aFieldResult.empty()) return rows->Fields.empty() ? TcsVariant() : rows->Value(0, rows->Fields[0]);
    return rows->Value(0, aFieldResult);
}

std::vector<std::string> TscDataManager::GetSQLListResult(const std::string& aSQL) {
    std::vector<std::string> out;
    std::unique_ptr<TscDataSet> rows = Query(aSQL);
    for (int i = 0; i < rows->RecordCount(); ++i)
        if (!rows->Fields.empty()) out.push_back(rows->Cell(i, 0).value_or(""));
    return out;
}

void TscDataManager::SetFieldValue(std::string_view aTableName, std::string_view aFieldName, const TcsVariant& aKeyValue,
                                   const TcsVariant& aValue, std::set<TscSetValueOption> aOption) {
    const std::string table = QuoteIdentifier(aTableName);
    const std::string key = QuoteIdentifier("ID");
    std::vector<TscDBParam> params{{"p1", aKeyValue.AsString(), false, false}};
    if (aOption.count(svoNotFindRecordRaise) &&
        DoQuery("SELECT 1 FROM " + table + " WHERE " + key + " = :p1", params, nullptr)->RecordCount() == 0)
        throw EscSchemaException("Запись " + aKeyValue.AsString() + " в таблице " + std::string(aTableName) + " не найдена");
    TscProviderCommand command;
    command.CommandText = "UPDATE " + table + " SET " + QuoteIdentifier(aFieldName) + " = :p1 WHERE " + key + " = :p2";
    command.SetParameter("p1", aValue.IsEmpty() ? std::nullopt : std::optional<std::string>(aValue.AsString()));
    command.SetParameter("p2", aKeyValue.AsString());
    try {
        Execute(command);
    } catch (const std::exception&) {
        if (aOption.count(svoExecuteExceptionRaise)) throw;
    }
}

std::string TscDataManager::GetSequenceNewValueSQL(std::string_view aTableName) const {
    return "SELECT COALESCE(MAX(" + QuoteIdentifier("ID") + "), 0) + 1 FROM " + QuoteIdentifier(aTableName);
}

TcsVariant TscDataManager::GetNewIDValue(std::string_view aTableName) {
    return GetSQLResult(GetSequenceNewValueSQL(aTableName), "", true);
}

void TscDataManager::BeginTrans() {
    DoExecute("BEGIN", {});
    fInTrans = true;
}

void TscDataManager::CommitTrans() {
    DoExecute("COMMIT", {});
    fInTrans = false;
}

void TscDataManager::RollbackTrans() {
    fInTrans = false;
    DoExecute("ROLLBACK", {});
}

std::unique_ptr<TscDataSet> TscDataManager::CreateDataSet() const {
    TscDataSetClass make = GetDataSetClass();
    if (!make) throw EscSchemaException("Не назначен класс датасета");
    return make();
}

std::unique_ptr<TscDataSet> TscDataManager::CreateCloneDataSet() const {
    TscDataSetClass make = GetCloneDataSetClass();
    if (!make) throw EscSchemaException("Не определён класс датасета");
    return make();
}

TscDataManagerSQLGenerator& TscDataManager::SQLGenerator() {
    if (!fGenerator) fGenerator = GetSQLGeneratorClass();
    return *fGenerator;
}

std::unique_ptr<TscDataManagerSQLGenerator> TscDataManager::GetSQLGeneratorClass() {
    return std::make_unique<TscDataManagerSQLGenerator>(*this);
}

// ---------------------------------------------------------------------------------------------
// Background fetch

TscQueryThread::TscQueryThread(TscDataManager& aManager, std::string aSQL, bool aExecuteOnly)
    : fManager(aManager), fSQL(std::move(aSQL)), fExecuteOnly(aExecuteOnly) {}

TscQueryThread::~TscQueryThread() {
    if (fThread.joinable()) {
        FetchCancel();
        fThread.join();
    }
}

void TscQueryThread::Start() {
    CheckCommandText(fSQL);
    fThread = std::thread([this] {
        try {
            if (fExecuteOnly) fManager.DoExecute(fSQL, {});
            else fResult = fManager.DoQuery(fSQL, {}, &fControl);
        } catch (...) {
            fError = std::current_exception();
        }
        fFinished = true;
    });
}

void TscQueryThread::FetchCancel() {
    fControl.Cancel = true;
    if (!fFinished) fManager.Interrupt();
}

std::unique_ptr<TscDataSet> TscQueryThread::WaitFor() {
    if (fThread.joinable()) fThread.join();
    if (fError) std::rethrow_exception(fError);
    return std::move(fResult);
}

// ---------------------------------------------------------------------------------------------
// Statements run by a thread of their own

namespace {
// A batch goes to the thread at this many statements or bytes; the caller waits while the
// batches not yet run hold more than kPendingBytes. Behind a task (the database being made)
// it may run further ahead, up to kBehindTaskBytes, until the thread has caught up.
constexpr size_t kBatchCommands = 256;
constexpr size_t kBatchBytes = 256 << 10;
constexpr size_t kPendingBytes = 2 << 20;
constexpr size_t kBehindTaskBytes = 8 << 20;

size_t BytesOf(const TscProviderCommand& aCommand) {
    size_t n = sizeof(aCommand) + aCommand.CommandText.size();
    for (const TscDBParam& p : aCommand.Parameters) n += sizeof(p) + p.Name.size() + (p.Value ? p.Value->size() : 0);
    return n;
}
}  // namespace

TscCommandQueue::TscCommandQueue(TscDataManager& aManager) : fManager(aManager) {}

TscCommandQueue::~TscCommandQueue() { Discard(); }

void TscCommandQueue::Start() {
    if (Running()) return;
    fStop = fDrop = fBusy = false;
    fError = nullptr;
    fPendingBytes = 0;
    fTasks = 0;
    fBehindTask = false;
    fThread = std::thread([this] { Run(); });
}

void TscCommandQueue::Run() {
    std::unique_lock<std::mutex> lock(fMutex);
    for (;;) {
        fWake.wait(lock, [this] { return fStop || !fBatches.empty(); });
        if (fBatches.empty() || fDrop) break;
        THandedOver work = std::move(fBatches.front());
        fBatches.pop_front();
        const size_t bytes = work.Bytes;
        const bool task = static_cast<bool>(work.Task);
        fBusy = true;
        const bool failed = static_cast<bool>(fError);
        lock.unlock();
        std::exception_ptr error;
        // After a failure the rest is not run: the caller rolls the whole of it back.
        if (!failed) try {
                if (work.Task) work.Task();
                else
                    for (const TscProviderCommand& c : work.Commands) fManager.Execute(c);
            } catch (...) {
                error = std::current_exception();
            }
        work = THandedOver();
        lock.lock();
        if (error && !fError) fError = error;
        fBusy = false;
        fPendingBytes -= bytes;
        if (task) --fTasks;
        if (fTasks == 0 && fPendingBytes < kPendingBytes) fBehindTask = false;
        fRoom.notify_all();
    }
    fBusy = false;
    fRoom.notify_all();
}

void TscCommandQueue::HandOver(std::unique_lock<std::mutex>& aLock) {
    if (fFilling.empty()) return;
    const auto room = [this] { return fPendingBytes < (fBehindTask ? kBehindTaskBytes : kPendingBytes) || fError; };
    if (!room()) fRoom.wait(aLock, room);
    fPendingBytes += fFillingBytes;
    fBatches.push_back(THandedOver{std::move(fFilling), {}, fFillingBytes});
    fFilling = TBatch();
    fFilling.reserve(kBatchCommands);
    fFillingBytes = 0;
    fWake.notify_one();
}

void TscCommandQueue::Push(TscProviderCommand aCommand) {
    if (!Running()) {
        fManager.Execute(aCommand);
        return;
    }
    fFillingBytes += BytesOf(aCommand);
    fFilling.push_back(std::move(aCommand));
    if (fFilling.size() < kBatchCommands && fFillingBytes < kBatchBytes) return;
    std::unique_lock<std::mutex> lock(fMutex);
    if (fError) std::rethrow_exception(fError);
    HandOver(lock);
}

void TscCommandQueue::Post(std::function<void()> aTask) {
    if (!Running()) {
        aTask();
        return;
    }
    std::unique_lock<std::mutex> lock(fMutex);
    if (fError) std::rethrow_exception(fError);
    HandOver(lock);
    fBatches.push_back(THandedOver{{}, std::move(aTask), 0});
    ++fTasks;
    fBehindTask = true;
    fWake.notify_one();
}

void TscCommandQueue::Sync() {
    if (!Running()) return;
    std::unique_lock<std::mutex> lock(fMutex);
    HandOver(lock);
    fRoom.wait(lock, [this] { return fBatches.empty() && !fBusy; });
    if (fError) std::rethrow_exception(fError);
}

void TscCommandQueue::Flush() {
    if (!Running()) return;
    {
        std::unique_lock<std::mutex> lock(fMutex);
        HandOver(lock);
        fStop = true;
        fWake.notify_one();
    }
    fThread.join();
    std::exception_ptr error = fError;
    fError = nullptr;
    if (error) std::rethrow_exception(error);
}

void TscCommandQueue::Discard() noexcept {
    if (Running()) {
        {
            std::lock_guard<std::mutex> lock(fMutex);
            fStop = fDrop = true;
            fWake.notify_one();
        }
        fThread.join();
    }
    fBatches.clear();
    fFilling.clear();
    fFillingBytes = fPendingBytes = 0;
    fTasks = 0;
    fBehindTask = false;
    fError = nullptr;
}

// ---------------------------------------------------------------------------------------------
// SQL generator

std::string TscDataManagerSQLGenerator::GetGeometryWKTSelectSQL(std::string_view, std::string_view) const { return {}; }
std::string TscDataManagerSQLGenerator::GetGeometryWKBSelectSQL(std::string_view, std::string_view) const { return {}; }
std::string TscDataManagerSQLGenerator::GetXMLToStringSelectSQL(std::string_view, std::string_view) const { return {}; }
std::string TscDataManagerSQLGenerator::GetWKBToGeometrySQL(std::string_view) const { return {}; }
std::string TscDataManagerSQLGenerator::GetGeometrySQL(const TcsCustomGeometry&, int) const { return {}; }

std::string TscDataManagerSQLGenerator::GetGeometryOperationSQL(TscGeometryOperation) const { return "intersect"; }

std::string TscDataManagerSQLGenerator::GetWhereGeometrySQL(const TcsCustomGeometry& aGeometry, std::string_view aGeometryField,
                                                            TscGeometryOperation aOperation, int aSRID) const {
    if ((fManager.Provider().GetProviderFeatures() & kProviderFeatureSpatial) == 0) return {};
    return std::string(aGeometryField) + " " + GetGeometryOperationSQL(aOperation) + " " + GetGeometrySQL(aGeometry, aSRID);
}

namespace {
std::string Aliased(std::string aExpression, std::string_view aAlias) {
    return aAlias.empty() ? aExpression : aExpression + " AS " + std::string(aAlias);
}
}  // namespace

std::string TscSTSQLGenerator::GetGeometryWKTSelectSQL(std::string_view aGeometryField, std::string_view aAlias) const {
    return Aliased("ST_AsText(" + std::string(aGeometryField) + ")", aAlias);
}

std::string TscSTSQLGenerator::GetGeometryWKBSelectSQL(std::string_view aGeometryField, std::string_view aAlias) const {
    return Aliased("ST_AsBinary(" + std::string(aGeometryField) + ")", aAlias);
}

std::string TscSTSQLGenerator::GetXMLToStringSelectSQL(std::string_view aXMLField, std::string_view aAlias) const {
    return Aliased("CAST(" + std::string(aXMLField) + " AS TEXT)", aAlias);
}

std::string TscSTSQLGenerator::GetWKBToGeometrySQL(std::string_view aWKBString) const {
    const std::string hex(aWKBString);
    if (fManager.DBMSType() == dbPostgreSQL) return "ST_GeomFromWKB(decode(" + SQLQuoted(hex) + ", 'hex'))";
    return "ST_GeomFromWKB(X" + SQLQuoted(hex) + ")";
}

std::string TscSTSQLGenerator::GetGeometrySQL(const TcsCustomGeometry& aGeometry, int aSRID) const {
    return "ST_GeomFromText(" + SQLQuoted(aGeometry.GetWKT(false)) + ", " + std::to_string(aSRID) + ")";
}

std::string TscSTSQLGenerator::GetGeometryOperationSQL(TscGeometryOperation) const { return "ST_Intersects"; }

std::string TscSTSQLGenerator::GetWhereGeometrySQL(const TcsCustomGeometry& aGeometry, std::string_view aGeometryField,
                                                   TscGeometryOperation aOperation, int aSRID) const {
    if ((fManager.Provider().GetProviderFeatures() & kProviderFeatureSpatial) == 0) return {};
    std::string call = GetGeometryOperationSQL(aOperation) + "(" + std::string(aGeometryField) + ", " + GetGeometrySQL(aGeometry, aSRID) + ")";
    // SpatiaLite answers 1, 0 or -1 (an error): only 1 is true.
    return fManager.DBMSType() == dbPostgreSQL ? call : call + " = 1";
}

// ---------------------------------------------------------------------------------------------
// Handler

TscSQLDBCustomHandler::TscSQLDBCustomHandler(TscDBCustomProvider* aProvider, std::string aObjectClass,
                                             std::string aTableName, bool aChild, TscObjectFactory aFactory)
    : TscCustomHandler(aProvider),
      fObjectClass(std::move(aObjectClass)),
      fTableName(std::move(aTableName)),
      fChild(aChild),
      fFactory(std::move(aFactory)) {}

TscDBCustomProvider& TscSQLDBCustomHandler::DBProvider() const { return *static_cast<TscDBCustomProvider*>(fProvider); }

void TscSQLDBCustomHandler::SetStreamParameter(TscProviderCommand& aCommand, const std::string& aParamName, const std::string& aBytes) {
    aCommand.SetParameter(aParamName, aBytes.empty() ? std::nullopt : std::optional<std::string>(aBytes), true);
}

void TscSQLDBCustomHandler::SetGlyphParameter(TscProviderCommand& aCommand, const std::string& aParamName, const std::string& aBytes) {
    SetStreamParameter(aCommand, aParamName, aBytes);
}

void TscSQLDBCustomHandler::SetTextParameter(TscProviderCommand& aCommand, const std::string& aParamName, const std::string& aText) {
    aCommand.SetParameter(aParamName, aText.empty() ? std::nullopt : std::optional<std::string>(aText));
}

std::string TscSQLDBCustomHandler::GetBaseNameForSQL(std::string_view aBaseName) const { return DBProvider().Quote(aBaseName); }

std::string TscSQLDBCustomHandler::GetPropertiesCommand() const { return "SELECT * FROM " + GetBaseNameForSQL(fTableName); }

void TscSQLDBCustomHandler::GetPropertiesSQL(const TscObject& aObject, const TscObject* aParent, TDBFieldElements& aElements) const {
    int n = 0;
    auto add = [&](std::string aName, TcsVariant aValue, TcsPropertyKind aKind, bool aBlob) {
        aElements.Add({aName, aName, std::move(aValue), "p" + std::to_string(++n), aKind, aBlob});
    };
    for (const TcsPropertyInfo& p : aObject.PropertyTable().All()) {
        if (!p.fGet || !p.fSet || p.fKind == TcsPropertyKind::Object || aObject.NotWriteProperty(p.fName)) continue;
        add(p.fName, p.fGet(aObject), p.fKind, IsBlobProperty(p.fName));
    }
    if (const auto* index = dynamic_cast<const TscIndex*>(&aObject))
        add("IndexFields", TcsVariant(IndexFieldsText(*index)), TcsPropertyKind::String, false);
    if (dynamic_cast<const TscMapinfoCoordSystem*>(&aObject)) add("MapinfoBinary", TcsVariant(), TcsPropertyKind::String, true);
    if (fChild) add("OwnerID", aParent ? TcsVariant(OwnerKey(*aParent)) : TcsVariant(), TcsPropertyKind::Variant, false);
}

bool TscSQLDBCustomHandler::AllowUpdatePropertySQL(const TDBFieldElement& aElement) const {
    return !SameText(aElement.FieldName, GetKeyField()) && aElement.FieldName != "OwnerID";
}

namespace {

// The column list and the values: parameters of the command, or literal text.
void AddValue(TscSQLDBCustomHandler& aHandler, TscDBMSType aDBMS, const TDBFieldElement& e, TscProviderCommand* aCommand,
              std::vector<std::string>& aValues) {
    if (!aCommand) {
        aValues.push_back(SQLLiteral(aDBMS, e.Kind, e.Value, e.Blob));
        return;
    }
    aValues.push_back(":" + e.ParamName);
    if (e.Blob) {
        const std::string bytes = e.Value.AsString();
        if (e.PropertyName == "Glyph") aHandler.SetGlyphParameter(*aCommand, e.ParamName, bytes);
        else aHandler.SetStreamParameter(*aCommand, e.ParamName, bytes);
    } else if (e.Kind == TcsPropertyKind::String) {
        aHandler.SetTextParameter(*aCommand, e.ParamName, e.Value.AsString());
    } else {
        aCommand->SetParameter(e.ParamName, StoredText(e), false, e.Kind == TcsPropertyKind::Float);
    }
}

}  // namespace

std::string TscSQLDBCustomHandler::PrepareInsertSQL(const TscObject& aObject, const TscObject* aParent, bool aAppendEndSymbol,
                                                    TscProviderCommand* aCommand) {
    const std::string pattern = GetInsertSQLTemplate();
    if (pattern.empty()) throw EscSchemaException("Нет шаблона вставки для класса " + aObject.ClassName());
    TDBFieldElements elements;
    elements.LoadElements(aObject, aParent, *this);
    InternalPrepareInsertElements(elements);
    std::vector<std::string> columns, values;
    for (const TDBFieldElement& e : elements.Items()) {
        if (!AllowInsertPropertySQL(e)) continue;
        columns.push_back(GetBaseNameForSQL(e.FieldName));
        AddValue(*this, DBProvider().GetDBMSType(), e, aCommand, values);
    }
    std::string sql = Fill(pattern, {GetBaseNameForSQL(fTableName), Join(columns, ","), Join(values, ",")});
    if (aCommand) aCommand->CommandText = sql;
    return aAppendEndSymbol ? sql + DBProvider().Terminator() : sql;
}

std::string TscSQLDBCustomHandler::PrepareUpdateSQL(const TscObject& aObject, const TscObject* aParent, bool aAll,
                                                    bool aAppendEndSymbol, TscProviderCommand* aCommand) {
    const std::string pattern = GetUpdateSQLTemplate();
    if (pattern.empty()) throw EscSchemaException("Нет шаблона изменения для класса " + aObject.ClassName());
    TDBFieldElements elements;
    elements.LoadElements(aObject, aParent, *this);
    InternalPrepareUpdateElements(elements);
    std::vector<std::string> pairs, values;
    const TscModifyProperties& modified = aObject.ModifyProperties();
    for (const TDBFieldElement& e : elements.Items()) {
        if (!AllowUpdatePropertySQL(e)) continue;
        if (!aAll && modified.Count() > 0 && !modified.FindProperty(e.PropertyName)) continue;
        values.clear();
        AddValue(*this, DBProvider().GetDBMSType(), e, aCommand, values);
        pairs.push_back(Fill("%s = %s", {GetBaseNameForSQL(e.FieldName), values.front()}));
    }
    if (pairs.empty()) return {};
    const TDBFieldElement* key = elements.GetItemByPropertyName(GetKeyField());
    if (!key) throw EscSchemaException("У объекта класса " + aObject.ClassName() + " нет свойства " + GetKeyField());
    values.clear();
    AddValue(*this, DBProvider().GetDBMSType(), *key, aCommand, values);
    std::string condition = Fill("%s = %s", {GetKeyBaseNameForSQL(), values.front()});
    if (fChild) {
        values.clear();
        AddValue(*this, DBProvider().GetDBMSType(), *elements.GetItemByPropertyName("OwnerID"), aCommand, values);
        condition += " AND " + GetBaseNameForSQL("OwnerID") + " = " + values.front();
    }
    std::string sql = Fill(pattern, {GetBaseNameForSQL(fTableName), Join(pairs, ","), condition});
    if (aCommand) aCommand->CommandText = sql;
    return aAppendEndSymbol ? sql + DBProvider().Terminator() : sql;
}

std::string TscSQLDBCustomHandler::PrepareDeleteSQL(const TscObject& aObject, bool aAppendEndSymbol, TscProviderCommand* aCommand) {
    const std::string pattern = GetDeleteSQLTemplate();
    if (pattern.empty()) throw EscSchemaException("Нет шаблона удаления для класса " + aObject.ClassName());
    if (!aObject.PropertyExist("ID")) throw EscSchemaException("У объекта класса " + aObject.ClassName() + " нет свойства ID");
    const TDBFieldElement key{"ID", "ID", aObject.KeyValue(), "p1", TcsPropertyKind::Variant, false};
    std::vector<std::string> values;
    AddValue(*this, DBProvider().GetDBMSType(), key, aCommand, values);
    std::string sql = Fill(pattern, {GetBaseNameForSQL(fTableName), Fill("%s = %s", {GetKeyBaseNameForSQL(), values.front()})});
    if (aCommand) aCommand->CommandText = sql;
    return aAppendEndSymbol ? sql + DBProvider().Terminator() : sql;
}

void TscSQLDBCustomHandler::DoInsertMeta(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession) {
    (void)aSession;
    TscDBCustomProvider& provider = DBProvider();
    if (provider.OnlySQL()) {
        provider.Emit(PrepareInsertSQL(aObject, aParent, false, nullptr), &aObject);
        return;
    }
    TscProviderCommand command;
    PrepareInsertSQL(aObject, aParent, false, &command);
    provider.Emit(command.CommandText, &aObject, &command);
    if (fStoredKeys) fStoredKeys->insert(aObject.KeyText());
}

void TscSQLDBCustomHandler::DoUpdateMeta(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession, bool aAll) {
    (void)aSession;
    TscDBCustomProvider& provider = DBProvider();
    if (provider.OnlySQL()) {
        const std::string sql = PrepareUpdateSQL(aObject, aParent, aAll, false, nullptr);
        if (!sql.empty()) provider.Emit(sql, &aObject);
        return;
    }
    TscProviderCommand command;
    if (!PrepareUpdateSQL(aObject, aParent, aAll, false, &command).empty()) provider.Emit(command.CommandText, &aObject, &command);
}

void TscSQLDBCustomHandler::DoDeleteMeta(TscObject& aObject, TscSQLSession& aSession) {
    (void)aSession;
    TscDBCustomProvider& provider = DBProvider();
    if (provider.OnlySQL()) {
        provider.Emit(PrepareDeleteSQL(aObject, false, nullptr), &aObject);
        return;
    }
    TscProviderCommand command;
    PrepareDeleteSQL(aObject, false, &command);
    provider.Emit(command.CommandText, &aObject, &command);
}

void TscSQLDBCustomHandler::DoFullDeleteMeta(TscSQLSession& aSession) {
    (void)aSession;
    DBProvider().Emit("DELETE FROM " + GetBaseNameForSQL(fTableName));
}

void TscSQLDBCustomHandler::DoFullUpdateMeta(TscObjects& aObjects, TscSQLSession& aSession) {
    DoFullDeleteMeta(aSession);
    for (TscObject* o : aObjects.Objects()) DoInsertMeta(*o, aObjects.Owner(), aSession);
}

void TscSQLDBCustomHandler::DoSaveMetaWithAnalize(TscObject& aObject, const TscObject* aParentObject, TscSQLSession& aSession,
                                                  bool aRecursive) {
    (void)aRecursive;
    BeforeSaveMeta(aObject, aSession);
    if (aObject.Deleted()) DoDeleteMeta(aObject, aSession);
    else if (StoredKeyExists(aObject.KeyText())) DoUpdateMeta(aObject, aParentObject, aSession, true);
    else DoInsertMeta(aObject, aParentObject, aSession);
    AfterSaveMeta(aObject, aSession);
}

void TscSQLDBCustomHandler::ModifySQL(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession) {
    if (aObject.Deleted()) DeleteSQL(aObject, aSession);
    else if (aObject.NewObject() || aObject.ObjectStatus() == osNew || aSession.FullInsert) NewSQL(aObject, aParent, aSession);
    else if (aObject.Modified() || aObject.ModifyProperties().Count() > 0) {
        BeforeSaveMeta(aObject, aSession);
        DoUpdateMeta(aObject, aParent, aSession);
        AfterSaveMeta(aObject, aSession);
    }
}

void TscSQLDBCustomHandler::NewSQL(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession) {
    BeforeSaveMeta(aObject, aSession);
    DoInsertMeta(aObject, aParent, aSession);
    AfterSaveMeta(aObject, aSession);
}

void TscSQLDBCustomHandler::DeleteSQL(TscObject& aObject, TscSQLSession& aSession) { DoDeleteMeta(aObject, aSession); }

void TscSQLDBCustomHandler::AnalizeSQL(TscObject& aObject, const TscObject* aParent, TscSQLSession& aSession) {
    DoSaveMetaWithAnalize(aObject, aParent, aSession, aSession.Recursive);
}

void TscSQLDBCustomHandler::SQL(TscObject* aObject, const TscObject* aParent, TscSQLSession& aSession) {
    if (!aObject) throw EscSchemaException("TscSQLDBCustomHandler.SQL: пустой объект");
    if (aObject->ObjectMode() == omTemporary) {
        if (TscCustomSchema* s = Schema()) s->Debug().Print("Временнный объект \"" + aObject->BaseNameText() + "\" пропущен");
        return;
    }
    if (aObject->ObjectMode() == omPersistent && !aSession.Applied.ObjectApplied(aObject)) {
        if (aSession.Analize) AnalizeSQL(*aObject, aParent, aSession);
        else ModifySQL(*aObject, aParent, aSession);
        aSession.Applied.AddAppliedObject(aObject);
    }
    aSession.Step();
    if (!aSession.Recursive) return;
    TscDBCustomProvider& provider = DBProvider();
    std::vector<TscObjects*> children = aObject->ChildObjects();
    if (aObject->HasExtendedProperties()) children.push_back(&aObject->ExtendedProperties());
    for (TscObjects* list : children) {
        auto* handler = dynamic_cast<TscSQLDBCustomHandler*>(provider.GetHandlerByObjects(*list));
        if (!handler) continue;
        if (!handler->IsChild()) {
            handler->SQL(list, aObject, aSession);
            continue;
        }
        // A child list is stored whole: the owner's rows are replaced unless the store is fresh.
        if (!aSession.FullInsert && !list->Objects().empty() && !aObject->NewObject()) {
            TscProviderCommand command;
            command.CommandText = "DELETE FROM " + handler->GetBaseNameForSQL(handler->TableName()) + " WHERE " +
                                  handler->GetBaseNameForSQL("OwnerID") + " = " +
                                  (provider.OnlySQL() ? SQLQuoted(OwnerKey(*aObject)) : std::string(":p1"));
            command.SetParameter("p1", OwnerKey(*aObject));
            provider.Emit(command.CommandText, aObject, provider.OnlySQL() ? nullptr : &command);
        }
        for (TscObject* child : list->Objects()) {
            if (aSession.Applied.ObjectApplied(child)) continue;
            handler->NewSQL(*child, aObject, aSession);
            aSession.Applied.AddAppliedObject(child);
        }
    }
}

void TscSQLDBCustomHandler::SQL(TscObjects* aObjects, const TscObject* aParent, TscSQLSession& aSession) {
    if (!aObjects) throw EscSchemaException("TscSQLDBCustomHandler.SQL: пустой объект");
    aSession.Total += aObjects->DeletedObjectsCount() + aObjects->Count();
    const auto& deleted = aObjects->DeletedObjects();
    for (auto it = deleted.rbegin(); it != deleted.rend(); ++it) {
        TscObject* o = it->get();
        if (aSession.Applied.ObjectApplied(o)) continue;
        DeleteSQL(*o, aSession);
        aSession.Applied.AddAppliedObject(o);
        aSession.Step();
    }
    for (TscObject* o : aObjects->Objects()) SQL(o, aParent, aSession);
    AfterSQL(aSession);
}

bool TscSQLDBCustomHandler::HasRowsOf(const std::string& aOwnerKey) {
    if (!fOwners) {
        fOwners.emplace();
        const TscDataSet& rows = StoredRows();
        const int owner = rows.FieldIndex("OwnerID");
        for (int i = 0; owner >= 0 && i < rows.RecordCount(); ++i) fOwners->insert(rows.Cell(i, owner).value_or(""));
    }
    return fOwners->count(aOwnerKey) != 0;
}

bool TscSQLDBCustomHandler::StoredKeyExists(const std::string& aKey) {
    if (!fStoredKeys) {
        fStoredKeys.emplace();
        TscDataManager& manager = DBProvider().DataManager();
        if (manager.TableExist("", fTableName))
            for (const std::string& key : manager.GetSQLListResult("SELECT " + GetKeyBaseNameForSQL() + " FROM " +
                                                                   GetBaseNameForSQL(fTableName)))
                fStoredKeys->insert(key);
    }
    return fStoredKeys->count(aKey) != 0;
}

const TscDataSet& TscSQLDBCustomHandler::StoredRows() {
    if (!fRows) {
        TscDataManager& manager = DBProvider().DataManager();
        fRows = manager.TableExist("", fTableName) ? manager.Query(GetPropertiesCommand()) : std::make_unique<TscDataSet>();
    }
    return *fRows;
}

void TscSQLDBCustomHandler::ApplyRow(const TscDataSet& aRows, int aRow, TscObject& aObject) const {
    for (const TcsPropertyInfo& p : aObject.PropertyTable().All()) {
        if (!p.fGet || !p.fSet || p.fKind == TcsPropertyKind::Object || aObject.NotWriteProperty(p.fName)) continue;
        const int column = aRows.FieldIndex(p.fName);
        if (column < 0) continue;
        const std::optional<std::string>& cell = aRows.Cell(aRow, column);
        if (!cell) continue;
        p.fSet(aObject, IsBlobProperty(p.fName) ? TcsVariant(*cell) : PropertyValueFromText(p, *cell));
    }
    if (auto* index = dynamic_cast<TscIndex*>(&aObject)) {
        const int column = aRows.FieldIndex("IndexFields");
        if (column >= 0 && aRows.Cell(aRow, column)) ReadIndexFields(*index, *aRows.Cell(aRow, column));
    }
}

void TscSQLDBCustomHandler::Load(TscObjects& aObjects) {
    for (TscObjects* sub : aObjects.SubLists())
        if (TscCustomHandler* h = DBProvider().GetHandlerByObjects(*sub)) h->Load(*sub);
    if (auto* systems = dynamic_cast<TscCoordSystems*>(&aObjects)) DBProvider().ReadSupportFlags(*systems);
    const TscDataSet& rows = StoredRows();
    const int owner = rows.FieldIndex("OwnerID");
    const std::string ownerKey = aObjects.Owner() ? OwnerKey(*aObjects.Owner()) : std::string();
    for (int i = 0; i < rows.RecordCount(); ++i) {
        if (fChild && (owner < 0 || rows.Cell(i, owner).value_or("") != ownerKey)) continue;
        std::unique_ptr<TscObject> o = aObjects.GetNewTemplate();
        o->SetObjectMode(fProvider->ObjectMode());
        ApplyRow(rows, i, *o);
        o->ActivateHandlerObject(this);
        // Lists the object holds come from their own tables, before it joins its list.
        for (TscObjects* list : o->ChildObjects()) {
            if (list->StorageType() != stStandart) continue;
            if (auto* handler = dynamic_cast<TscSQLDBCustomHandler*>(DBProvider().GetHandlerByObjects(*list)))
                if (handler->IsChild()) handler->Load(*list);
        }
        auto* extended = dynamic_cast<TscSQLDBCustomHandler*>(DBProvider().GetHandlerByObjectClass("TscExtendedProperty"));
        if (extended && extended != this && extended->HasRowsOf(OwnerKey(*o))) extended->Load(o->ExtendedProperties());
        aObjects.Add(std::move(o));
    }
}

void TscSQLDBCustomHandler::Save(TscObjects& aObjects) {
    TscSQLSession session;
    SQL(&aObjects, aObjects.Owner(), session);
}

std::string TscSQLDBCustomHandler::CreateTableSQL() const {
    std::unique_ptr<TscObject> sample = fFactory();
    TDBFieldElements elements;
    TscObject owner;
    elements.LoadElements(*sample, fChild ? &owner : nullptr, *this);
    std::vector<std::string> columns;
    for (const TDBFieldElement& e : elements.Items()) {
        std::string column = GetBaseNameForSQL(e.FieldName) + " " + DBProvider().MetaColumnTypeSQL(e.Kind, e.Blob);
        if (!fChild && SameText(e.FieldName, GetKeyField())) column += " PRIMARY KEY";
        columns.push_back(column);
    }
    return "CREATE TABLE IF NOT EXISTS " + GetBaseNameForSQL(fTableName) + " (" + Join(columns, ", ") + ")";
}

TscDBObjectStatus TscSQLDBCustomHandler::CompareStored(const TscObject& aObject, const TscObject* aParent) {
    const TscDataSet& rows = StoredRows();
    TDBFieldElements elements;
    elements.LoadElements(aObject, aParent, *this);
    const int key = rows.FieldIndex(aObject.PropertyExist("ID") ? "ID" : "BaseName");
    const int owner = rows.FieldIndex("OwnerID");
    const std::string keyText = aObject.PropertyExist("ID") ? aObject.KeyText() : aObject.BaseNameText();
    for (int i = 0; i < rows.RecordCount(); ++i) {
        if (key < 0 || rows.Cell(i, key).value_or("") != keyText) continue;
        if (fChild && aParent && (owner < 0 || rows.Cell(i, owner).value_or("") != OwnerKey(*aParent))) continue;
        for (const TDBFieldElement& e : elements.Items()) {
            const int column = rows.FieldIndex(e.FieldName);
            if (column < 0) return osdbModify;
            if (!SameStored(rows.Cell(i, column), StoredText(e), e.Kind)) return osdbModify;
        }
        return osdbNormal;
    }
    return osdbNotCreated;
}

// ---------------------------------------------------------------------------------------------
// Provider

TscDBCustomProvider::TscDBCustomProvider(TscCustomSchema* aSchema) : TscCustomProvider(aSchema) {}

TscDBCustomProvider::~TscDBCustomProvider() {
    try {
        if (fDataManager && fDataManager->Connected()) fDataManager->Disconnect();
    } catch (...) {
    }
}

void TscDBCustomProvider::ExtractAuthParams(const std::string& aConnectionString, std::string& aUserName, std::string& aPassword,
                                            bool& aInternalAuth) {
    aUserName.clear();
    aPassword.clear();
    aInternalAuth = true;
    for (const std::string& part : Split(aConnectionString, ';')) {
        const size_t eq = part.find('=');
        if (eq == std::string::npos) continue;
        const std::string name = Trim(part.substr(0, eq));
        const std::string value = part.substr(eq + 1);
        bool os = false;
        if (SameText(name, "User_Name")) aUserName = value;
        else if (SameText(name, "Password")) aPassword = value;
        else if (SameText(name, "OSAuthent")) aInternalAuth = !(TryStrToBool(Trim(value), os) && os);
    }
}

std::string TscDBCustomProvider::GetDefaultConnectionString(const TscDBGenerateParams& aParametrs) const {
    std::string out = GetProviderName();
    for (const TscDBGenerateParam& p : aParametrs) out += ";" + p.Name + "=" + p.Value;
    return out;
}

TcsVariant TscDBCustomProvider::GetNewIDValue(const TscObject& aObject) {
    if (fSchema)
        if (TscObjects* list = fSchema->GetRootObjectsByObject(aObject))
            if (auto* handler = dynamic_cast<TscSQLDBCustomHandler*>(GetHandlerByObjects(*list)))
                return GetNewIDValue(handler->TableName());
    throw EscSchemaException("Нет таблицы для класса " + aObject.ClassName());
}

TcsVariant TscDBCustomProvider::GetNewIDValue(std::string_view aTableName) { return DataManager().GetNewIDValue(aTableName); }

TscDataManager& TscDBCustomProvider::DataManager() {
    if (!fDataManager) fDataManager = CreateDataManager();
    return *fDataManager;
}

std::string TscDBCustomProvider::DescribeForError() const { return GetVisibleProviderName() + ", база данных \"" + DatabaseName() + "\""; }

void TscDBCustomProvider::Open() {
    if (OnlySQL()) {  // a script needs no connection
        fActive = true;
        return;
    }
    try {
        if (!DataManager().Connected()) DataManager().Connect();
    } catch (const std::exception& e) {
        throw EscSchemaException("Ошибка подключения (" + DescribeForError() + "): " + e.what());
    }
    fActive = true;
    for (int i = 0; i < HandlersCount(); ++i) GetHandlerByIndex(i)->CloseCache();
}

void TscDBCustomProvider::DisConnect() {
    if (fSchema) fSchema->Debug().Print("TscDBCustomProvider.DisConnect ");
    if (fDataManager && fDataManager->Connected()) fDataManager->Disconnect();
    fActive = false;
}

bool TscDBCustomProvider::OnlySQL() const { return SameText(Trim(GetConnectParametr("WorkMode")), "OnlySQL"); }


void TscDBCustomProvider::Emit(const std::string& aSQL, const TscObject* aObject, const TscProviderCommand* aCommand) {
    if (OnlySQL()) {
        CheckCommandText(aSQL);
        fScript += aSQL;
        fScript += Terminator();
        fScript += '\n';
        return;
    }
    try {
        if (aCommand) DataManager().Execute(*aCommand);
        else DataManager().ExecuteSQL(aSQL);
    } catch (const std::exception& e) {
        std::string text = "Ошибка выполнения SQL";
        if (aObject) text += " (" + aObject->CheckName() + ")";
        throw EscSchemaException(text + ":\n" + aSQL + "\n" + e.what());
    }
}

void TscDBCustomProvider::AddDefaultHandlers() {
    // Objects kept in lists of other objects carry their owner's key.
    auto add = [this](const char* aTable, auto aSample, bool aChild) {
        using T = std::remove_pointer_t<decltype(aSample)>;
        AddHandler(NewHandler(T::StaticClassName(), aTable, aChild, [] { return std::unique_ptr<TscObject>(std::make_unique<T>()); }));
    };
    add("Packages", (TscPackage*)nullptr, false);
    add("Tables", (TscTable*)nullptr, false);
    add("Fields", (TscField*)nullptr, false);
    add("FieldModes", (TscFieldMode*)nullptr, false);
    add("Aspects", (TscAspect*)nullptr, false);
    add("Indices", (TscIndex*)nullptr, false);
    add("Relations", (TscRelation*)nullptr, false);
    add("Rights", (TscRight*)nullptr, false);
    add("Roles", (TscRole*)nullptr, false);
    add("Users", (TscUser*)nullptr, false);
    add("UsersRolesLinks", (TscUsersRolesLink*)nullptr, false);
    add("GraphSchemas", (TscGraphSchema*)nullptr, false);
    add("OuterDataSources", (TscOuterDataSource*)nullptr, false);
    add("OuterGraphSchemas", (TscOuterGraphSchema*)nullptr, true);
    add("Settings", (TscSetting*)nullptr, false);
    add("DistributiveVersions", (TscDistributiveVersion*)nullptr, false);
    add("Klasses", (TscKlass*)nullptr, false);
    add("KlassElements", (TscKlassElement*)nullptr, true);
    add("WKTCoordSystems", (TscWKTCoordSystem*)nullptr, false);
    add("WKTCoordSystemBounds", (TscWKTCoordSystemBound*)nullptr, true);
    add("MapinfoCoordSystems", (TscMapinfoCoordSystem*)nullptr, false);
    add("GeomediaCoordSystems", (TscGeomediaCoordSystem*)nullptr, false);
    add("CoordSystemSets", (TscCoordSystemSet*)nullptr, false);
    add("CoordSystems", (TscTableCoordSystem*)nullptr, false);
    add("ExtendedProperties", (TscExtendedProperty*)nullptr, true);
}

std::unique_ptr<TscSQLDBCustomHandler> TscDBCustomProvider::NewHandler(std::string aObjectClass, std::string aTable, bool aChild,
                                                                       TscSQLDBCustomHandler::TscObjectFactory aFactory) {
    return std::make_unique<TscSQLDBCustomHandler>(this, std::move(aObjectClass), std::move(aTable), aChild, std::move(aFactory));
}

TscCustomHandler* TscDBCustomProvider::GetHandlerByObjects(const TscObjects& aObjects) const {
    if (aObjects.ClassName() == "TscProviders") return nullptr;
    return GetHandlerByObjectClass(aObjects.ObjectClass());
}

void TscDBCustomProvider::RefreshCache() {
    for (int i = 0; i < HandlersCount(); ++i) GetHandlerByIndex(i)->RefreshCache(false, true);
}

void TscDBCustomProvider::CloseCache() {
    for (int i = 0; i < HandlersCount(); ++i) GetHandlerByIndex(i)->CloseCache();
}

void TscDBCustomProvider::Load(TscObjects& aObjects) {
    if (TscCustomHandler* h = GetHandlerByObjects(aObjects)) h->Load(aObjects);
}

void TscDBCustomProvider::DoAfterLoad() { CloseCache(); }

std::vector<TscObjects*> TscDBCustomProvider::ListsInSaveOrder(TscCustomSchema& aSchema) const {
    // Tables and fields first, then the other lists in the schema's order, sub-lists before
    // their list.
    std::vector<TscObjects*> out;
    for (const char* first : {"TscTable", "TscField"})
        if (TscObjects* list = aSchema.GetRootObjectsByObjectClass(first)) out.push_back(list);
    for (const auto& list : aSchema.ROOTObjects()) {
        if (std::find(out.begin(), out.end(), list.get()) != out.end() || list->ClassName() == "TscProviders") continue;
        for (TscObjects* sub : list->SubLists()) out.push_back(sub);
        out.push_back(list.get());
    }
    return out;
}

void TscDBCustomProvider::EmitHeader() {
    if (!OnlySQL()) return;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    fScript = "--Скрипт сохранение метаданных схемы\n--Дата создания " + Two(local.tm_hour) + "-" + Two(local.tm_min) + " " +
              Two(local.tm_mday) + "." + Two(local.tm_mon + 1) + "." + std::to_string(local.tm_year + 1900) + "\n";
}

void TscDBCustomProvider::WriteMetadata(TscCustomSchema& aSchema, TscSQLSession& aSession, bool aFresh) {
    aSession.FullInsert = aFresh;
    aSession.Analize = !aFresh;
    for (int i = 0; i < HandlersCount(); ++i) Emit(static_cast<TscSQLDBCustomHandler*>(GetHandlerByIndex(i))->CreateTableSQL());
    for (TscObjects* list : ListsInSaveOrder(aSchema)) {
        auto* handler = dynamic_cast<TscSQLDBCustomHandler*>(GetHandlerByObjects(*list));
        if (!handler) {
            throw EscSchemaException("Нет обработчика для класса объекта " + list->ObjectClass());
        }
        const int before = aSession.Done;
        handler->SQL(list, nullptr, aSession);
        aSchema.Debug().Print("Сделал " + std::to_string(aSession.Done - before));
        if (auto* systems = dynamic_cast<TscCoordSystems*>(list)) WriteSupportFlags(*systems);
    }
}

void TscDBCustomProvider::WriteSupportFlags(TscCoordSystems& aSystems) {
    // The flags of the coordinate systems list: one row.
    const std::string table = Quote(kSupportTable);
    const std::string flag = MetaColumnTypeSQL(TcsPropertyKind::Boolean, false);
    Emit("CREATE TABLE IF NOT EXISTS " + table + " (" + Quote("MapinfoSupport") + " " + flag + ", " + Quote("GeomediaSupport") + " " +
         flag + ")");
    Emit("DELETE FROM " + table);
    Emit("INSERT INTO " + table + " VALUES (" + (aSystems.MapinfoSupport() ? "1" : "0") + ", " +
         (aSystems.GeomediaSupport() ? "1" : "0") + ")");
}

void TscDBCustomProvider::ReadSupportFlags(TscCoordSystems& aSystems) {
    TscDataManager& manager = DataManager();
    if (!manager.TableExist("", kSupportTable)) return;
    std::unique_ptr<TscDataSet> rows = manager.Query("SELECT * FROM " + Quote(kSupportTable));
    if (rows->RecordCount() == 0) return;
    aSystems.SetMapinfoSupport(rows->Value(0, "MapinfoSupport").AsInteger() != 0);
    aSystems.SetGeomediaSupport(rows->Value(0, "GeomediaSupport").AsInteger() != 0);
}

void TscDBCustomProvider::SaveSchema(TscCustomSchema& aSchema) {
    aSchema.Debug().Print("Режим работы - " + std::string(OnlySQL() ? "OnlySQL" : "RealMode"));
    EmitHeader();
    const bool fresh = OnlySQL() || !DataManager().TableExist("", "Tables");
    TscSQLSession session;
    if (!OnlySQL()) DataManager().BeginTrans();
    try {
        WriteMetadata(aSchema, session, fresh);
        if (!OnlySQL()) DataManager().CommitTrans();
    } catch (...) {
        if (!OnlySQL() && DataManager().InTrans()) DataManager().RollbackTrans();
        throw;
    }
    CloseCache();
}

void TscDBCustomProvider::BeforeSave() {
    if (!OnlySQL()) DataManager().BeginTrans();
}

void TscDBCustomProvider::Save(TscObjects& aObjects) {
    try {
        for (TscObjects* sub : aObjects.SubLists())
            if (auto* h = dynamic_cast<TscSQLDBCustomHandler*>(GetHandlerByObjects(*sub))) h->Save(*sub);
        if (auto* h = dynamic_cast<TscSQLDBCustomHandler*>(GetHandlerByObjects(aObjects))) h->Save(aObjects);
        if (auto* systems = dynamic_cast<TscCoordSystems*>(&aObjects)) WriteSupportFlags(*systems);
    } catch (...) {
        if (!OnlySQL() && DataManager().InTrans()) DataManager().RollbackTrans();
        throw;
    }
}

void TscDBCustomProvider::Commit() {
    if (!OnlySQL() && fDataManager && fDataManager->InTrans()) fDataManager->CommitTrans();
    CloseCache();
}

bool TscDBCustomProvider::ReferenceSystemExists(int aSRID) {
    TscDataManager& manager = DataManager();
    return manager.TableExist("", "spatial_ref_sys") &&
           manager.Query("SELECT 1 FROM spatial_ref_sys WHERE srid = " + std::to_string(aSRID))->RecordCount() > 0;
}

std::string TscDBCustomProvider::IndexName(const TscIndex& aIndex) {
    static const char* prefixes[] = {"pk_", "ix_", "uq_", "sx_"};
    return prefixes[std::clamp(static_cast<int>(aIndex.IndexType()), 0, 3)] + aIndex.TableID().AsString() + "_" + aIndex.KeyText();
}

std::string TscDBCustomProvider::ForeignKeyName(const TscRelation& aRelation) { return "fk_" + aRelation.KeyText(); }

int TscDBCustomProvider::SRIDOf(TscSchema& aSchema, const TscTable& aTable, const TscField& aField) const {
    TscCoordSystems& systems = aSchema.CoordSystems();
    TscCoordSystemSet* set = nullptr;
    if (TscTableCoordSystem* link = systems.GetByFieldTableCoordSystem(aField.ID()))
        set = static_cast<TscCoordSystemSet*>(systems.CoordSysSet().ItemsByID(link->CoordSysSetID()));
    if (!set) set = systems.GetCoordsystemSet(aTable.ID());
    TscWKTCoordSystem* wkt = set ? systems.WKTSystemOf(*set) : nullptr;
    return wkt ? static_cast<int>(wkt->SRID().AsInteger()) : 0;
}

namespace {

bool Generated(const TscTable& aTable) { return !aTable.Outer() && !aTable.NotGenerate(); }

const char* RoleSQL(TscRelationRole aRole) {
    switch (aRole) {
    case drCascade: return "CASCADE";
    case drSetNull: return "SET NULL";
    case drSetDefault: return "SET DEFAULT";
    default: return "RESTRICT";
    }
}

}  // namespace

void TscDBCustomProvider::GenerateTables(TscSchema& aSchema) {
    TscCoordSystems& systems = aSchema.CoordSystems();
    // Reference systems the columns use, before any column uses them.
    std::set<int> known;
    for (TscObject* o : systems.CoordSysSet().Objects()) {
        auto* set = static_cast<TscCoordSystemSet*>(o);
        TscWKTCoordSystem* wkt = systems.WKTSystemOf(*set);
        const int srid = wkt ? static_cast<int>(wkt->SRID().AsInteger()) : 0;
        if (srid <= 0 || !known.insert(srid).second) continue;
        if (!OnlySQL() && ReferenceSystemExists(srid)) continue;
        std::string proj4;
        if (TscMapinfoCoordSystem* mapinfo = systems.MapinfoSystemOf(*set)) {
            TcsCoordSystem model;
            model.SetMapinfo(mapinfo->CoordSysString());
            proj4 = model.Proj4();
        }
        for (const std::string& sql : ReferenceSystemSQL(srid, wkt->WKT(), proj4)) Emit(sql, wkt);
    }
    std::vector<std::string> foreignKeys;
    auto foreignKey = [&](const TscRelation& r, const TscField& child, const TscField& parent, const TscTable& parentTable) {
        return "CONSTRAINT " + Quote(ForeignKeyName(r)) + " FOREIGN KEY (" + Quote(child.BaseName()) + ") REFERENCES " +
               Quote(parentTable.BaseName()) + " (" + Quote(parent.BaseName()) + ") ON DELETE " + RoleSQL(r.DeleteRole()) +
               " ON UPDATE " + RoleSQL(r.UpdateRole());
    };
    for (TscObject* o : aSchema.Tables().Objects()) {
        auto* table = static_cast<TscTable*>(o);
        if (!Generated(*table)) continue;
        std::vector<std::string> columns;
        std::vector<const TscField*> geometries;
        for (TscObject* f : table->Fields().Objects()) {
            auto* field = static_cast<TscField*>(f);
            if (field->DataType() == fdGraphic) {
                const std::string inlineSQL = GeometryColumnInlineSQL(*field, SRIDOf(aSchema, *table, *field));
                if (inlineSQL.empty()) {
                    geometries.push_back(field);
                    continue;
                }
                columns.push_back(inlineSQL);
                continue;
            }
            columns.push_back(Quote(field->BaseName()) + " " + ColumnTypeSQL(*field) + (field->Allownull() ? "" : " NOT NULL"));
        }
        for (TscObject* i : table->Indices().Objects()) {
            auto* index = static_cast<TscIndex*>(i);
            if (index->IndexType() != itPrimary && index->IndexType() != itConstraint) continue;
            std::vector<std::string> names;
            for (int n = 0; n < static_cast<int>(index->IndexFields().size()); ++n)
                if (TscField* f = index->GetIndexField(n)) names.push_back(Quote(f->BaseName()));
            columns.push_back("CONSTRAINT " + Quote(IndexName(*index)) +
                              (index->IndexType() == itPrimary ? " PRIMARY KEY (" : " UNIQUE (") + Join(names, ", ") + ")");
        }
        for (TscObject* r : aSchema.Relations().Objects()) {
            auto* relation = static_cast<TscRelation*>(r);
            if (relation->RelationType() != rtPhysical) continue;
            TscField* child = aSchema.FieldByID(relation->ChildFieldID());
            TscField* parent = aSchema.FieldByID(relation->ParentFieldID());
            if (!child || !parent || child->Table() != table || !parent->Table() || !Generated(*parent->Table())) continue;
            const std::string constraint = foreignKey(*relation, *child, *parent, *parent->Table());
            if (ForeignKeysInline()) columns.push_back(constraint);
            else foreignKeys.push_back("ALTER TABLE " + Quote(table->BaseName()) + " ADD " + constraint);
        }
        Emit("CREATE TABLE " + Quote(table->BaseName()) + " (" + Join(columns, ", ") + ")", table);
        for (const TscField* g : geometries)
            for (const std::string& sql : GeometryColumnAfterSQL(*table, *g, SRIDOf(aSchema, *table, *g))) Emit(sql, g);
        for (TscObject* i : table->Indices().Objects()) {
            auto* index = static_cast<TscIndex*>(i);
            if (index->IndexType() == itIndex) {
                std::vector<std::string> names;
                for (int n = 0; n < static_cast<int>(index->IndexFields().size()); ++n)
                    if (TscField* f = index->GetIndexField(n))
                        names.push_back(Quote(f->BaseName()) + (index->IndexFields()[static_cast<size_t>(n)].Order == soDescending ? " DESC" : ""));
                Emit(std::string(index->Unique() ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") + Quote(IndexName(*index)) + " ON " +
                         Quote(table->BaseName()) + " (" + Join(names, ", ") + ")",
                     index);
            } else if (index->IndexType() == itSpatial && !index->IndexFields().empty()) {
                if (TscField* f = index->GetIndexField(0))
                    for (const std::string& sql : SpatialIndexSQL(*table, *f, IndexName(*index))) Emit(sql, index);
            }
        }
    }
    for (const std::string& sql : foreignKeys) Emit(sql);
}

void TscDBCustomProvider::GenerateMapinfoMetadata(TscSchema& aSchema) {
    TscCoordSystems& systems = aSchema.CoordSystems();
    if (!systems.MapinfoSupport()) return;
    const std::string text = MetaColumnTypeSQL(TcsPropertyKind::String, false);
    const std::string number = MetaColumnTypeSQL(TcsPropertyKind::Float, false);
    const std::string integer = MetaColumnTypeSQL(TcsPropertyKind::Integer, false);
    Emit("CREATE TABLE IF NOT EXISTS " + Quote("mapinfocatalog") + " (" + Quote("TABLENAME") + " " + text + ", " +
         Quote("SPATIALCOLUMN") + " " + text + ", " + Quote("COORDINATESYSTEM") + " " + text + ", " + Quote("DB_X_LL") + " " +
         number + ", " + Quote("DB_Y_LL") + " " + number + ", " + Quote("DB_X_UR") + " " + number + ", " + Quote("DB_Y_UR") + " " +
         number + ", " + Quote("GeometryType") + " " + integer + ", " + Quote("GeometryTypeEx") + " " + integer + ", " +
         Quote("InternalDMBS") + " " + integer + ", " + Quote("InternalDMBSGeometry") + " " + integer + ", " +
         Quote("InternalDMBSGeography") + " " + integer + ")");
    for (TscObject* o : aSchema.Tables().Objects()) {
        auto* table = static_cast<TscTable*>(o);
        if (!Generated(*table) || !table->Graphical()) continue;
        for (TscObject* f : table->Fields().Objects()) {
            auto* field = static_cast<TscField*>(f);
            if (field->DataType() != fdGraphic) continue;
            TscCoordSystemSet* set = systems.GetCoordsystemSet(table->ID());
            TscMapinfoCoordSystem* mapinfo = set ? systems.MapinfoSystemOf(*set) : nullptr;
            Emit("DELETE FROM " + Quote("mapinfocatalog") + " WHERE " + Quote("TABLENAME") + " = " + SQLQuoted(table->BaseName()) +
                     " AND " + Quote("SPATIALCOLUMN") + " = " + SQLQuoted(field->BaseName()),
                 table);
            Emit("INSERT INTO " + Quote("mapinfocatalog") + " VALUES (" + SQLQuoted(table->BaseName()) + ", " +
                     SQLQuoted(field->BaseName()) + ", " + (mapinfo ? SQLQuoted(mapinfo->CoordSysString()) : "Null") + ", " +
                     SQLFloatText(mapinfo ? mapinfo->db_x_ll() : 0) + ", " + SQLFloatText(mapinfo ? mapinfo->db_y_ll() : 0) + ", " +
                     SQLFloatText(mapinfo ? mapinfo->db_x_ur() : 0) + ", " + SQLFloatText(mapinfo ? mapinfo->db_y_ur() : 0) + ", " +
                     std::to_string(static_cast<int>(field->GeometryType())) + ", 0, " + std::to_string(static_cast<int>(GetDBMSType())) +
                     ", 1, 0)",
                 table);
        }
    }
}

void TscDBCustomProvider::Generate(TscCustomSchema& aSchema, TscSQLSession* aSession, const TscDBGenerateParams& aParametrs,
                                   bool aCreateDatabase) {
    auto* schema = dynamic_cast<TscSchema*>(&aSchema);
    if (!schema) throw EscSchemaException("TscDBCustomProvider.Generate: схема не того класса");
    // Names the engine would cut or refuse, and every object's own check, before anything runs.
    std::vector<std::string> errors = aSchema.CheckAll();
    const size_t limit = DataManager().MaxIdentifierLength();
    auto checkName = [&](const TscObject& aObject, const std::string& aName) {
        if (aName.size() > limit)
            errors.push_back(aObject.CheckName() + ": имя \"" + aName + "\" длиннее " + std::to_string(limit) + " байт");
    };
    for (TscObject* o : schema->Tables().Objects()) {
        auto* table = static_cast<TscTable*>(o);
        if (!Generated(*table)) continue;
        checkName(*table, table->BaseName());
        for (TscObject* f : table->Fields().Objects()) checkName(*f, static_cast<TscField*>(f)->BaseName());
    }
    if (!errors.empty()) RaiseCheckErrors(errors);
    GenerateParamToSchema(aParametrs);
    aSchema.Debug().Print("Режим работы - " + std::string(OnlySQL() ? "OnlySQL" : "RealMode"));
    bool created = false;
    if (!OnlySQL()) {
        if (aCreateDatabase) {
            CreateDatabase();
            created = true;
        }
        try {
            Open();
        } catch (...) {
            if (created) DropDatabase();
            throw;
        }
    }
    EmitHeader();
    TscSQLSession own;
    TscSQLSession& session = aSession ? *aSession : own;
    try {
        const bool fresh = OnlySQL() || !DataManager().TableExist("", "Tables");
        if (!OnlySQL()) DataManager().BeginTrans();
        for (const std::string& sql : SpatialPreambleSQL()) Emit(sql);
        WriteMetadata(aSchema, session, fresh);
        GenerateTables(*schema);
        GenerateMapinfoMetadata(*schema);
        if (!OnlySQL()) DataManager().CommitTrans();
    } catch (...) {
        if (!OnlySQL()) {
            try {
                if (DataManager().InTrans()) DataManager().RollbackTrans();
            } catch (...) {
            }
            if (created) {
                DisConnect();
                DropDatabase();
            }
        }
        CloseCache();
        throw;
    }
    CloseCache();
    AfterGenerate();
}

void TscDBCustomProvider::Analize(TscCustomSchema& aSchema) {
    auto* schema = dynamic_cast<TscSchema*>(&aSchema);
    if (!schema) return;
    fRunTimeAdded.clear();
    CloseCache();
    // The metadata rows.
    for (TscObjects* list : ListsInSaveOrder(aSchema)) {
        auto* handler = dynamic_cast<TscSQLDBCustomHandler*>(GetHandlerByObjects(*list));
        if (!handler) continue;
        for (TscObject* o : list->Objects()) {
            o->SetDBObjectStatus(handler->CompareStored(*o, nullptr));
            for (TscObjects* children : o->ChildObjects()) {
                auto* child = dynamic_cast<TscSQLDBCustomHandler*>(GetHandlerByObjects(*children));
                if (!child || !child->IsChild()) continue;
                for (TscObject* c : children->Objects()) c->SetDBObjectStatus(child->CompareStored(*c, o));
            }
        }
    }
    // The tables against the catalogue.
    TscDataManager& manager = DataManager();
    std::set<std::string> catalogue;
    for (const std::string& t : manager.CatalogueTables()) catalogue.insert(t);
    std::set<std::string> known;
    for (int i = 0; i < HandlersCount(); ++i) known.insert(static_cast<TscSQLDBCustomHandler*>(GetHandlerByIndex(i))->TableName());
    known.insert("mapinfocatalog");
    known.insert(kSupportTable);
    auto worse = [](TscObject& aObject, TscDBObjectStatus aStatus) {
        if (aObject.DBObjectStatus() == osdbNormal || aStatus == osdbNotCreated) aObject.SetDBObjectStatus(aStatus);
    };
    for (TscObject* o : schema->Tables().Objects()) {
        auto* table = static_cast<TscTable*>(o);
        if (!Generated(*table)) continue;
        known.insert(table->BaseName());
        if (!catalogue.count(table->BaseName())) {
            worse(*table, osdbNotCreated);
            for (TscObject* f : table->Fields().Objects()) worse(*f, osdbNotCreated);
            for (TscObject* i : table->Indices().Objects()) worse(*i, osdbNotCreated);
            continue;
        }
        const std::vector<TscCatalogueColumn> columns = manager.CatalogueColumns(table->BaseName());
        bool changed = false;
        for (TscObject* f : table->Fields().Objects()) {
            auto* field = static_cast<TscField*>(f);
            auto it = std::find_if(columns.begin(), columns.end(), [&](const TscCatalogueColumn& c) { return c.Name == field->BaseName(); });
            if (it == columns.end()) {
                worse(*field, osdbNotCreated);
                changed = true;
                continue;
            }
            const std::string expected =
                field->DataType() == fdGraphic ? CatalogueGeometryType(SRIDOf(*schema, *table, *field)) : ColumnTypeSQL(*field);
            const bool nullOK = field->DataType() == fdGraphic || it->NotNull == !field->Allownull();
            if (!SameText(it->Type, expected) || !nullOK) {
                worse(*field, osdbModify);
                changed = true;
            }
        }
        for (TscObject* i : table->Indices().Objects())
            if (!IndexExists(*table, *static_cast<TscIndex*>(i))) {
                worse(*i, osdbNotCreated);
                changed = true;
            }
        if (changed) worse(*table, osdbModify);
    }
    for (const std::string& t : catalogue)
        if (!known.count(t)) fRunTimeAdded.push_back(t);
    CloseCache();
}

}  // namespace tmi
