#include "csXMLDBDestination.h"

#include <algorithm>

#include "scPostgreSQLProvider.h"
#include "scSQLiteProvider.h"
#include "utf8.h"

namespace tmi {

TCS_PROPERTIES(TcsXMLDBDestination, TcsXMLProcessDestination)

namespace {

std::string PropertyOf(TscTable& aTable, std::string_view aName) {
    if (!aTable.HasExtendedProperties()) return {};
    for (TscObject* o : aTable.ExtendedProperties().Objects()) {
        auto* p = static_cast<TscExtendedProperty*>(o);
        if (SameText(p->BaseName(), aName)) return p->Value().AsString();
    }
    return {};
}

// The first aChars characters of a UTF-8 text.
std::string CutChars(const std::string& aText, int64_t aChars) {
    if (aChars <= 0 || static_cast<int64_t>(aText.size()) <= aChars) return aText;
    size_t at = 0;
    for (int64_t n = 0; n < aChars && at < aText.size(); ++n) {
        const auto c = static_cast<unsigned char>(aText[at]);
        at += c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    }
    return aText.substr(0, std::min(at, aText.size()));
}

// The filter's size: 2^25 bits (4 MB), four bits a value. With 400,000 values about one
// lookup in 200,000 is a false "maybe", which costs only a wait for the writer.
constexpr uint64_t kFilterBits = uint64_t{1} << 25;
constexpr int kFilterProbes = 4;

uint64_t Mixed(uint64_t aValue) {
    aValue ^= aValue >> 31;
    aValue *= 0x7FB5D329728EA185ULL;
    aValue ^= aValue >> 27;
    aValue *= 0x81DADEF4BC2DD44DULL;
    return aValue ^ (aValue >> 33);
}

template <typename F>
void ForEachProbe(size_t aTable, std::string_view aValue, F&& aProbe) {
    const uint64_t h = std::hash<std::string_view>{}(aValue) ^ Mixed(aTable + 1);
    const uint64_t step = Mixed(h) | 1;
    for (int i = 0; i < kFilterProbes; ++i) aProbe((h + static_cast<uint64_t>(i) * step) & (kFilterBits - 1));
}

}  // namespace

void TcsXMLDBDestination::TWrittenValues::Add(size_t aTable, std::string_view aValue) {
    if (fBits.empty()) fBits.assign(kFilterBits / 64, 0);
    ForEachProbe(aTable, aValue, [this](uint64_t aBit) { fBits[aBit >> 6] |= uint64_t{1} << (aBit & 63); });
}

bool TcsXMLDBDestination::TWrittenValues::MayHold(size_t aTable, std::string_view aValue) const {
    if (fBits.empty()) return false;
    bool all = true;
    ForEachProbe(aTable, aValue, [&](uint64_t aBit) { all = all && (fBits[aBit >> 6] >> (aBit & 63) & 1) != 0; });
    return all;
}

TcsXMLDBDestination::TcsXMLDBDestination(TcsComponent* aOwner) : TcsXMLProcessDestination(aOwner) {}

TcsXMLDBDestination::~TcsXMLDBDestination() {
    try {
        Clear();
    } catch (...) {
    }
}

int TcsXMLDBDestination::ValueIndex(const TFieldMap& aField, const TcsXMLProcessSessionItem& aItem) {
    if (aField.Source == TSource::Slot) return aItem.Values().ValueIndexInPart(aField.Slot);
    if (aField.Source == TSource::Path) return aItem.Values().ValueIndexInPartBySource(aField.Path);
    return -1;
}

void TcsXMLDBDestination::MapTables(TscSchema& aSchema) {
    fTables.clear();
    fValueTable = nullptr;
    for (TscObject* o : aSchema.Tables().Objects()) {
        auto* table = static_cast<TscTable*>(o);
        const std::string part = PropertyOf(*table, "PartType");
        if (part.empty()) continue;
        TTableMap m;
        m.Name = table->BaseName();
        m.AnyPart = part == "*";
        m.ValueTable = SameText(part, "values");
        if (!m.AnyPart && !m.ValueTable) {
            int64_t n = 0;
            if (!TryStrToInt(part, n)) throw Exception("Таблица " + m.Name + ": PartType не число: " + part);
            m.PartType = static_cast<int>(n);
        }
        for (TscObject* fo : table->Fields().Objects()) {
            auto* field = static_cast<TscField*>(fo);
            TFieldMap f;
            f.Column = field->BaseName();
            f.Type = field->DataType();
            f.Length = field->Length();
            const std::string formula = field->Formula();
            if (f.Type == fdGraphic) {
                f.Source = TSource::Geometry;
                m.SRID = fProvider ? fProvider->SRIDOf(aSchema, *table, *field) : 0;
            } else if (SameText(f.Column, "ID")) f.Source = TSource::Key;
            else if (SameText(f.Column, "PARENT_ID")) f.Source = TSource::Parent;
            else if (SameText(f.Column, "XML_ID")) f.Source = TSource::XmlID;
            else if (SameText(f.Column, "QUARTALS_ID")) f.Source = TSource::QuartalsID;
            else if (m.ValueTable && SameText(f.Column, "ITEM_ID")) f.Source = TSource::ItemID;
            else if (m.ValueTable && SameText(f.Column, "ITEM_TABLE")) f.Source = TSource::ItemTable;
            else if (m.ValueTable && SameText(f.Column, "SOURCE")) f.Source = TSource::ValueSource;
            else if (m.ValueTable && SameText(f.Column, "VALUE")) f.Source = TSource::Value;
            else if (m.ValueTable && SameText(f.Column, "DATA_TYPE")) f.Source = TSource::DataType;
            else if (formula.empty()) continue;  // a column nothing fills
            else if (formula == "$PART") f.Source = TSource::Part;
            else if (formula[0] == '#') {
                int64_t slot = 0;
                if (!TryStrToInt(std::string_view(formula).substr(1), slot) || slot < 0)
                    throw Exception("Поле " + m.Name + "." + f.Column + ": неверный номер значения: " + formula);
                f.Source = TSource::Slot;
                f.Slot = static_cast<int>(slot);
            } else {
                f.Source = TSource::Path;
                f.Path = formula;
            }
            m.Fields.push_back(std::move(f));
        }
        for (size_t i = 0; i < m.Fields.size() && m.FindField < 0; ++i)
            if (m.Fields[i].Source == TSource::Slot || m.Fields[i].Source == TSource::Path) m.FindField = static_cast<int>(i);
        if (std::none_of(m.Fields.begin(), m.Fields.end(), [](const TFieldMap& f) { return f.Source == TSource::Key; }))
            throw Exception("Таблица " + m.Name + ": нет поля ID");
        int n = 0;
        const TFieldMap* key = nullptr;
        for (TFieldMap& f : m.Fields) {
            f.Param = "p" + std::to_string(++n);
            if (f.Source == TSource::Key) key = &f;
        }
        // The key's parameter keeps its number in the update, so one parameter list serves both;
        // a geometry comes as text or as WKB, each with statements of its own.
        const int keyParam = static_cast<int>(key - m.Fields.data()) + 1;
        for (const bool wkb : {false, true}) {
            std::string columns, values, sets;
            for (const TFieldMap& f : m.Fields) {
                const std::string param = ":" + f.Param;
                const std::string value = f.Source != TSource::Geometry ? param
                                          : std::string(wkb ? "ST_GeomFromWKB(" : "ST_GeomFromText(") + param + ", " +
                                                std::to_string(m.SRID) + ")";
                columns += (columns.empty() ? "" : ", ") + SQLIdentifier(f.Column);
                values += (values.empty() ? "" : ", ") + value;
                if (f.Source != TSource::Key) sets += (sets.empty() ? "" : ", ") + SQLIdentifier(f.Column) + " = " + value;
            }
            m.InsertSQL[wkb] = "INSERT INTO " + SQLIdentifier(m.Name) + " (" + columns + ") VALUES (" + values + ")";
            m.UpdateSQL[wkb] = sets.empty() ? std::string()
                                            : "UPDATE " + SQLIdentifier(m.Name) + " SET " + sets + " WHERE " + SQLIdentifier("ID") +
                                                  " = :p" + std::to_string(keyParam);
        }
        fTables.push_back(std::move(m));
    }
    for (TTableMap& t : fTables)
        if (t.ValueTable) fValueTable = &t;
}

void TcsXMLDBDestination::InitDestination() {
    Clear();
    if (!FManager) throw Exception("Назначение без менеджера конвертации");
    fSchema = &FManager->Schema();
    const std::string& target = Config().FileName;
    if (target.empty()) throw Exception("Не задана база данных");
    fProvider = CreateDBProviderByURL(fSchema, target);
    if (!fProvider) fProvider = CreateDBProviderByURL(fSchema, "sqlite:" + target);
    MapTables(*fSchema);
    if (fTables.empty()) throw Exception("В схеме нет таблиц с PartType");
    if (!DatabaseExists(*fProvider)) {
        // A database made for this file starts with empty tables, so its keys are known
        // without it. It is made here, where a target that cannot be written fails at once;
        // its tables are made by the writer's thread while the walk reads the first records.
        // Until the writer is synced the data manager is that thread's.
        fProvider->CreateDatabase();
        fCreated = true;
        StartKeys();
        fWriter = std::make_unique<TscCommandQueue>(fProvider->DataManager());
        fWriter->Start();
        fWriter->Post([this] {
            fProvider->Generate(*fSchema, nullptr, {}, false);
            if (!fProvider->DataManager().Connected()) fProvider->Open();
        });
        return;
    }
    fProvider->Open();
    bool complete = true;
    for (const TTableMap& t : fTables)
        if (!fProvider->DataManager().TableExist("", t.Name)) complete = false;
    if (!complete) fProvider->Generate(*fSchema, nullptr, {}, false);
    if (!fProvider->DataManager().Connected()) fProvider->Open();
    ReadNextKeys();
}

void TcsXMLDBDestination::StartKeys() {
    for (TTableMap& t : fTables) {
        t.NextKey = 1;
        t.Fresh = true;
        t.Rows = 0;
        t.Found.clear();
    }
    fWritten = TWrittenValues();
    fUnplaced = 0;
}

void TcsXMLDBDestination::ReadNextKeys() {
    StartKeys();
    for (TTableMap& t : fTables) {
        const TcsVariant max = fProvider->DataManager().GetSQLResult(
            "SELECT MAX(" + SQLIdentifier("ID") + ") AS M FROM " + SQLIdentifier(t.Name), "M", false);
        if (max.IsEmpty()) continue;
        t.NextKey = max.AsInteger() + 1;
        t.Fresh = false;
    }
}

void TcsXMLDBDestination::BeginTransaction() {
    if (!fProvider || fInTransaction) return;
    fInTransaction = true;
    std::vector<std::pair<std::string, std::string>> geometry;
    for (const TTableMap& t : fTables)
        for (const TFieldMap& f : t.Fields)
            if (f.Source == TSource::Geometry) geometry.emplace_back(t.Name, f.Column);
    // The rows are stored by a thread of their own while the walk reads on; the transaction
    // opens there, after the database the thread may still be making.
    if (!fWriter) fWriter = std::make_unique<TscCommandQueue>(fProvider->DataManager());
    fWriter->Start();
    fWriter->Post([this, geometry = std::move(geometry)] {
        fProvider->DataManager().BeginTrans();
        fProvider->BeginBulkLoad(geometry);
    });
}

void TcsXMLDBDestination::RollbackTransaction() {
    fWriter.reset();  // what it still holds is dropped
    if (!fProvider || !fInTransaction) return;
    fInTransaction = false;
    // The transaction may not have opened: the database it was to go to failed to be made.
    if (fProvider->DataManager().InTrans()) fProvider->DataManager().RollbackTrans();
}

void TcsXMLDBDestination::CommitTransaction() {
    if (!fProvider) return;
    // The writer ends first: the database it was making and the rows it holds are stored,
    // or their failure raises here.
    if (fWriter) fWriter->Flush();
    fWriter.reset();
    if (!fInTransaction) return;
    fProvider->EndBulkLoad();
    fInTransaction = false;
    fProvider->DataManager().CommitTrans();
}

TcsXMLDBDestination::TTableMap* TcsXMLDBDestination::TableFor(int aPartType, const std::string& aPartText) {
    (void)aPartText;
    TTableMap* any = nullptr;
    for (TTableMap& t : fTables) {
        if (t.ValueTable) continue;
        if (!t.AnyPart && aPartType >= 0 && t.PartType == aPartType) return &t;
        if (t.AnyPart && !any) any = &t;
    }
    return any;
}

void TcsXMLDBDestination::GetKey(int aPartType, const std::string& aPartText, TcsVariant& aValue) {
    TTableMap* t = TableFor(aPartType, aPartText);
    if (!t) {
        TcsXMLProcessDestination::GetKey(aPartType, aPartText, aValue);
        return;
    }
    aValue = TcsVariant(t->NextKey++);
}

bool TcsXMLDBDestination::FindSession(TcsXMLProcessSessionItem& aItem, std::string_view aPath, TcsVariant& aKey) {
    (void)aPath;
    TTableMap* t = TableFor(aItem.ItemPartType(), aItem.PartTypeString());
    if (!t || !fProvider) return false;
    // The row whose first value column holds the item's value of it.
    if (t->FindField < 0) return false;
    const TFieldMap& f = t->Fields[static_cast<size_t>(t->FindField)];
    const int i = ValueIndex(f, aItem);
    if (i < 0) return false;
    TscDBParam value = Param(f, "p1", aItem.Values().GetValueItem(i)->Value);
    if (!value.Value) return false;  // NULL equals nothing
    if (t->Fresh && !fWritten.MayHold(static_cast<size_t>(t - fTables.data()), *value.Value)) return false;
    // The rows handed to the writer must be stored before the database is asked.
    if (fWriter) fWriter->Sync();
    const auto rows = fProvider->DataManager().Query("SELECT " + SQLIdentifier("ID") + " FROM " + SQLIdentifier(t->Name) +
                                                         " WHERE " + SQLIdentifier(f.Column) + " = :p1",
                                                     {std::move(value)});
    if (rows->RecordCount() == 0) return false;
    aKey = rows->Value(0, "ID");
    t->Found.insert(aKey.AsInteger());
    return true;
}

void TcsXMLDBDestination::Run(TscProviderCommand&& aCommand) {
    if (fWriter) fWriter->Push(std::move(aCommand));
    else fProvider->DataManager().Execute(aCommand);
}

TscDBParam TcsXMLDBDestination::Param(const TFieldMap& aField, const std::string& aName, const TcsVariant& aValue) const {
    TscDBParam p;
    p.Name = aName;
    if (aValue.IsEmpty()) return p;
    // A text value is read where it stands; others are written out once.
    std::string written;
    const std::string* held = aValue.StringPtr();
    if (!held) {
        written = aValue.AsString();
        held = &written;
    }
    const std::string& text = *held;
    switch (aField.Type) {
    case fdInteger:
    case fdInt64:
    case fdBit: {
        int64_t n = 0;
        if (TryStrToInt(Trim(text), n)) p.Value = std::to_string(n);
        break;
    }
    case fdFloat:
    case fdDecimal:
    case fdMoney: {
        double d = 0;
        if (TryStrToFloat(Trim(text), d)) {
            p.Value = FloatToStr(d);
            p.IsFloat = true;
        }
        break;
    }
    case fdString:
    case fdChar: p.Value = CutChars(text, aField.Length); break;
    default: p.Value = held == &written ? std::move(written) : text; break;
    }
    return p;
}

bool TcsXMLDBDestination::CommitSession(TcsXMLProcessSessionItem& aItem) {
    if (!fProvider) return false;
    TTableMap* t = TableFor(aItem.ItemPartType(), aItem.PartTypeString());
    if (!t) {
        ++fUnplaced;
        return true;
    }
    const TcsVariant key = aItem.GetKey();
    TscProviderCommand command;
    command.Parameters.reserve(t->Fields.size());
    const TcsVariant none;
    bool wkb = false;
    for (const TFieldMap& f : t->Fields) {
        if (f.Source == TSource::Geometry) {
            std::optional<std::string> geometry;
            if (aItem.HasGeometry()) {
                wkb = !aItem.Geometry().WKB().empty();
                if (wkb) geometry = aItem.Geometry().WKB();
                else if (std::string text = aItem.Geometry().GetWKT(false); !text.empty()) geometry = std::move(text);
            }
            command.Parameters.push_back(TscDBParam{f.Param, std::move(geometry), wkb});
            continue;
        }
        // The item's own values are read in place; the few made here live in made.
        const TcsVariant* value = &none;
        TcsVariant made;
        switch (f.Source) {
        case TSource::Key: value = &key; break;
        case TSource::Parent:
            made = aItem.ParentKey();
            value = &made;
            break;
        case TSource::XmlID:
            if (const auto* v = aItem.Values().GetValueSourceItem("XML_ID")) value = &v->Value;
            else if (FManager && FManager->ExternalFileInfo().StorageID != 0) {
                made = TcsVariant(FManager->ExternalFileInfo().StorageID);
                value = &made;
            }
            break;
        case TSource::QuartalsID:
            if (const auto* v = aItem.Values().GetValueSourceItem("QUARTALS_ID")) value = &v->Value;
            break;
        case TSource::Slot:
        case TSource::Path:
            if (const int i = ValueIndex(f, aItem); i >= 0) value = &aItem.Values().GetValueItem(i)->Value;
            break;
        case TSource::Part:
            made = aItem.PartTypeString();
            value = &made;
            break;
        default: break;
        }
        command.Parameters.push_back(Param(f, f.Param, *value));
    }
    const bool update = t->Found.count(key.AsInteger()) > 0 && !t->UpdateSQL[wkb].empty();
    command.CommandText = update ? t->UpdateSQL[wkb] : t->InsertSQL[wkb];
    if (t->Fresh && t->FindField >= 0)
        if (const auto& found = command.Parameters[static_cast<size_t>(t->FindField)].Value)
            fWritten.Add(static_cast<size_t>(t - fTables.data()), *found);
    Run(std::move(command));
    ++t->Rows;
    WriteValues(*t, aItem, key);
    return true;
}

void TcsXMLDBDestination::WriteValues(const TTableMap& aTable, TcsXMLProcessSessionItem& aItem, const TcsVariant& aKey) {
    if (!fValueTable) return;
    // The values no column of the item's table took.
    std::vector<char> taken(static_cast<size_t>(aItem.Values().ValueCount()), 0);
    for (const TFieldMap& f : aTable.Fields)
        if (const int i = ValueIndex(f, aItem); i >= 0) taken[static_cast<size_t>(i)] = 1;
    for (int i = 0; i < aItem.Values().ValueCount(); ++i) {
        const TcsXMLProcessSessionItemValue& v = *aItem.Values().GetValueItem(i);
        if (taken[static_cast<size_t>(i)] || v.DataType == kValueKey || !v.ValueSetted) continue;
        if (v.Source == "XML_ID" || v.Source == "QUARTALS_ID") continue;
        TscProviderCommand command;
        command.CommandText = fValueTable->InsertSQL[0];
        for (const TFieldMap& f : fValueTable->Fields) {
            TcsVariant value;
            switch (f.Source) {
            case TSource::Key: value = TcsVariant(fValueTable->NextKey++); break;
            case TSource::ItemID: value = aKey; break;
            case TSource::ItemTable: value = aTable.Name; break;
            case TSource::ValueSource: value = v.Source.empty() ? "#" + std::to_string(v.PartType) : v.Source; break;
            case TSource::Value: value = v.Value; break;
            case TSource::DataType: value = TcsVariant(static_cast<int64_t>(v.DataType)); break;
            default: break;
            }
            command.Parameters.push_back(Param(f, f.Param, value));
        }
        Run(std::move(command));
        ++fValueTable->Rows;
    }
}

void TcsXMLDBDestination::Complite() {
    if (!fProvider) return;
    if (FManager && FManager->Finished) {
        try {
            CommitTransaction();
            return;
        } catch (...) {
            // A row the writer could not store fails the whole file, as it would have mid-walk.
            FManager->Finished = false;
            Abandon();
            throw;
        }
    }
    Abandon();
}

void TcsXMLDBDestination::Abandon() {
    RollbackTransaction();
    for (TTableMap& t : fTables) t.Rows = 0;
    if (fCreated) {
        fProvider->DisConnect();
        fProvider->DropDatabase();
        fCreated = false;
    }
}

void TcsXMLDBDestination::Clear() {
    fWriter.reset();
    if (fProvider) {
        if (fInTransaction) RollbackTransaction();
        fProvider->DisConnect();
    }
    fProvider.reset();
    fCreated = false;
    fInTransaction = false;
}

std::vector<std::pair<std::string, int64_t>> TcsXMLDBDestination::RowCounts() const {
    std::vector<std::pair<std::string, int64_t>> counts;
    for (const TTableMap& t : fTables) counts.emplace_back(t.Name, t.Rows);
    return counts;
}

std::string TcsXMLDBDestination::GetLastProcessInformation() const {
    std::string text;
    for (const auto& [name, rows] : RowCounts()) text += name + ": " + std::to_string(rows) + "\n";
    if (fUnplaced > 0) text += "без таблицы: " + std::to_string(fUnplaced) + "\n";
    return text;
}

}  // namespace tmi
