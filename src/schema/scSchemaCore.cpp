#include "scSchemaCore.h"

#include <algorithm>
#include <charconv>
#include <unordered_set>

namespace tmi {

namespace {

std::string Fmt(std::string_view aPattern, std::string_view aArg) {
    std::string out(aPattern);
    const size_t at = out.find("%s") != std::string::npos ? out.find("%s") : out.find("%d");
    if (at != std::string::npos) out.replace(at, 2, aArg);
    return out;
}

std::string Num(int64_t aValue) { return std::to_string(aValue); }

std::string WithoutTsc(const std::string& aClassName) {
    return aClassName.rfind("Tsc", 0) == 0 ? aClassName.substr(3) : aClassName;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Modify log

const TscModifyPropertyLogEntry* TscModifyProperties::FindProperty(std::string_view aName) const {
    for (const auto& e : fItems)
        if (SameText(e.FPropertyName, aName)) return &e;
    return nullptr;
}

void TscModifyProperties::AddModifyProperty(std::string_view aName, const TcsVariant& aOld, const TcsVariant& aNew) {
    // A property changed twice keeps its first old value.
    for (auto& e : fItems)
        if (SameText(e.FPropertyName, aName)) {
            e.FNewValue = aNew;
            e.FDateModify = std::chrono::system_clock::now();
            return;
        }
    fItems.push_back({std::string(aName), aOld, aNew, std::chrono::system_clock::now()});
}

// ---------------------------------------------------------------------------------------------
// Objects

TscCustomObject::TscCustomObject(TcsComponent* aSchema, TscObjectMode aMode)
    : TcsPropertyComponent(aSchema), fSchema(dynamic_cast<TscCustomSchema*>(aSchema)), fObjectMode(aMode) {}

TscCustomObject::~TscCustomObject() = default;

TscExtendedProperties& TscCustomObject::ExtendedProperties() {
    if (!fExtendedProperties) {
        auto* self = static_cast<TscObject*>(this);
        fExtendedProperties = std::make_unique<TscExtendedProperties>(fSchema, self);
        if (self->InEdit()) fExtendedProperties->Edit();  // made during an edit: it takes part in it
    }
    return *fExtendedProperties;
}

bool TscCustomObject::HasExtendedProperties() const { return fExtendedProperties && fExtendedProperties->Count() > 0; }

std::string TscCustomObject::GetDisplayName() const {
    const TcsVariant title = GetPropertyValueByName("Title");
    if (!title.AsString().empty()) return title.AsString();
    return GetPropertyValueByName("BaseName").AsString();
}

std::string TscCustomObject::GetStorageName() const { return WithoutTsc(ClassName()); }

// The component's name and tag are of the running program, never of a file.
bool TscCustomObject::NotWriteProperty(std::string_view aPropertyName) const {
    return SameText(aPropertyName, "Tag") || SameText(aPropertyName, "Name");
}

TCS_PROPERTIES(TscObject, TcsPropertyComponent)

TscObject::TscObject(TcsComponent* aSchema, TscObjectMode aMode) : TscCustomObject(aSchema, aMode) {}

TscObject::~TscObject() = default;

void TscObject::LogChange(const char* aName, const TcsVariant& aOld, const TcsVariant& aNew) {
    if (!fLogOpen) {
        // A new object that is not edited has nothing to roll back to.
        if (fObjectStatus == osNew) {
            if (fAddedToRoot && fSchema)
                if (TscObjects* root = fSchema->GetRootObjectsByObject(*this)) root->Changed();
            return;
        }
        throw EscSchemaException("TscObject.AddModifyProperty: Объект не в режиме редактирования");
    }
    if (!PropertyTable().Find(aName))
        throw EscSchemaException(Fmt(Fmt("TscObject.AddModifyProperty: Свойство %s у объекта %s не найдено", aName),
                                     ClassName()));
    fModifyLog.AddModifyProperty(aName, aOld, aNew);
    if (fAddedToRoot && fSchema)
        if (TscObjects* root = fSchema->GetRootObjectsByObject(*this)) root->Changed();
}

void TscObject::SaveStateSnapshot() {
    fSnapshot = std::make_unique<TcsNamedVariantsList>();
    TcsSupportPropertyObject(*this).SaveState(*fSnapshot);
}

void TscObject::LoadStateSnapshot() {
    if (fSnapshot) TcsSupportPropertyObject(*this).LoadState(*fSnapshot);
}

void TscObject::Edit() {
    if (fObjectStatus != osNormal && fObjectStatus != osNew) return;
    if (fSchema && fSchema != this && !fSchema->CheckEdit(*this))
        throw EscSchemaException("Запрещено редактирование объекта.");
    SaveStateSnapshot();
    if (fObjectStatus != osNew) fObjectStatus = osEdit;
    fModifyLog.Clear();
    fLogOpen = true;
    for (TscObjects* list : ChildObjects()) list->Edit();
    if (fExtendedProperties) fExtendedProperties->Edit();
}

void TscObject::Post() {
    if (fObjectStatus == osNormal || !fLogOpen) throw EscSchemaException("Объект не в режиме редактирования.");
    fSnapshot.reset();
    if (fModifyLog.Count() > 0) fModified = true;
    if (fObjectStatus == osNew) fNewObject = true;
    bool childModified = false;
    for (TscObjects* list : ChildObjects()) {
        list->Post();
        childModified = childModified || list->HasModify();
    }
    if (fExtendedProperties) {
        fExtendedProperties->Post();
        childModified = childModified || fExtendedProperties->HasModify();
    }
    if (childModified) fModified = true;
    if (fSchema && fSchema != this && fObjectStatus != osNew && fModified &&
        !(fSchema->WorkMode() == wmApplication && fSchema->AllowApplicationModify()))
        fSchema->AddModifiedObject(this);
    fLogOpen = false;
    if (fObjectStatus != osNew) fObjectStatus = osNormal;
}

void TscObject::Cancel() {
    if (!fLogOpen) return;
    const bool wasNew = fObjectStatus == osNew;
    fObjectStatus = osLoadingState;  // setters don't log while the snapshot comes back
    LoadStateSnapshot();
    fSnapshot.reset();
    fObjectStatus = wasNew ? osNew : osNormal;
    fModifyLog.Clear();
    fLogOpen = false;
    for (TscObjects* list : ChildObjects()) list->Cancel();
    if (fExtendedProperties) fExtendedProperties->Cancel();
    if (fAddedToRoot && fSchema)
        if (TscObjects* root = fSchema->GetRootObjectsByObject(*this)) root->Changed();
}

void TscObject::Assign(const TcsPersistent& aSource) {
    if (aSource.ClassName() != ClassName())
        throw EscSchemaException("Cannot assign a " + aSource.ClassName() + " to a " + ClassName());
    const TscObjectStatus keep = fObjectStatus;
    if (fObjectStatus != osEdit && fObjectStatus != osNew) fObjectStatus = osLoadingState;
    for (const TcsPropertyInfo& p : PropertyTable().All())
        if (p.fGet && p.fSet && p.fKind != TcsPropertyKind::Object) p.fSet(*this, p.fGet(aSource));
    fObjectStatus = keep;
    const auto* source = dynamic_cast<const TscObject*>(&aSource);
    if (source && source->HasExtendedProperties()) {
        TscExtendedProperties& mine = ExtendedProperties();
        for (TscObject* e : source->fExtendedProperties->Objects()) {
            auto copy = std::make_unique<TscExtendedProperty>(fSchema);
            copy->Assign(*e);
            mine.Add(std::move(copy));
        }
    }
}

void TscObject::AssignWithOldNew(const TscObject& aSource, TscOldNewObjects& aOldNew) {
    Assign(aSource);
    aOldNew.AddProcessedObject(&aSource, this);
}

void TscObject::SetPropertyValuesByName(std::string_view aName, const TcsVariant& aValue) {
    const TcsPropertyInfo* p = PropertyTable().Find(aName);
    if (!p || !p->fSet) return;
    std::string error;
    if (!ValidatePropertyValue(aName, aValue, error)) throw EscSchemaException(error);
    p->fSet(*this, aValue);
}

TcsVariant TscObject::PropertyValuesByIndex(int aIndex) const {
    const TcsPropertyInfo& p = PropertyTable().At(aIndex);
    return p.fGet ? p.fGet(*this) : TcsVariant();
}

bool TscObject::PropertyIsKeyType(std::string_view aProperty) const {
    return SameText(aProperty, GetKeyPropertyName()) ||
           (aProperty.size() > 2 && SameText(aProperty.substr(aProperty.size() - 2), "ID"));
}

bool TscObject::PropertyMayBeGUID(std::string_view aPropertyName) const { return PropertyIsKeyType(aPropertyName); }

TcsVariant TscObject::KeyValue() const { return GetPropertyValueByName(GetKeyPropertyName()); }

std::string TscObject::BaseNameText() const { return GetPropertyValueByName("BaseName").AsString(); }

std::string TscObject::CheckName() const { return ClassName() + " " + BaseNameText() + " (" + KeyText() + ")"; }

TscObject* TscOldNewObjects::NewObjectByOldObject(const TscObject* aOld) const {
    auto it = fPairs.find(aOld);
    return it == fPairs.end() ? nullptr : it->second;
}

const TscObject* TscOldNewObjects::OldObjectNewByObject(const TscObject* aNew) const {
    for (const auto& [old, copy] : fPairs)
        if (copy == aNew) return old;
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Lists

TscObjects::TscObjects(TscCustomSchema* aSchema, TscObjectsStorageType aStorageType, TscObject* aOwner)
    : fSchema(aSchema), fStorageType(aStorageType), fOwner(aOwner) {}

TscObjects::~TscObjects() = default;

void TscObjects::SetObjectClass(std::string aObjectClassName,
                                std::function<std::unique_ptr<TscObject>(TscCustomSchema*, TscObjectMode)> aFactory) {
    fObjectClassName = std::move(aObjectClassName);
    fFactory = std::move(aFactory);
}

std::string TscObjects::GetStorageName() const { return WithoutTsc(fClassName); }

TscObjects* TscObjects::Root() const {
    if (fStorageType == stWithRoot && fSchema) return fSchema->GetRootObjectsByObjectClass(fObjectClassName);
    return const_cast<TscObjects*>(this);
}

void TscObjects::SetFilter(std::string aName, TcsVariant aValue) {
    if (fStorageType == stRoot) throw EscSchemaException("Запрещено устанавлививать фильтр коренному хранилищу");
    if (aName == fFilterPropertyName && aValue == fFilterPropertyValue) return;
    fFilterPropertyName = std::move(aName);
    fFilterPropertyValue = std::move(aValue);
    fViewVersion = 0;
}

bool TscObjects::FilterRefreshed() const {
    const TscObjects* root = Root();
    return fStorageType != stWithRoot || (root && fViewVersion == root->fVersion);
}

const std::vector<TscObject*>& TscObjects::GroupOf(std::string_view aProperty, const TcsVariant& aValue) const {
    static const std::vector<TscObject*> none;
    auto& [version, groups] = fGroups[std::string(aProperty)];
    if (version != fVersion) {
        groups.clear();
        for (TscObject* o : fItems) groups[o->GetPropertyValueByName(aProperty).AsString()].push_back(o);
        version = fVersion;
    }
    auto it = groups.find(aValue.AsString());
    return it == groups.end() ? none : it->second;
}

const std::vector<TscObject*>& TscObjects::ViewItems() const {
    const TscObjects* root = Root();
    if (!root || root == this) return fItems;
    if (fViewVersion != root->fVersion) {
        fViewItems = fFilterPropertyName.empty() ? root->fItems : root->GroupOf(fFilterPropertyName, fFilterPropertyValue);
        fViewVersion = root->fVersion;
    }
    return fViewItems;
}

const std::vector<TscObject*>& TscObjects::Objects() const {
    return fStorageType == stWithRoot ? ViewItems() : fItems;
}

int TscObjects::Count() const { return static_cast<int>(Objects().size()); }

TscObject* TscObjects::Items(int aIndex) const {
    const auto& items = Objects();
    if (aIndex < 0 || static_cast<size_t>(aIndex) >= items.size())
        throw EscSchemaException("TscObjects.Items: индекс " + Num(aIndex) + " вне списка " + fClassName);
    return items[static_cast<size_t>(aIndex)];
}

void TscObjects::RefreshCache(bool aForce) const {
    if (!aForce && fCacheVersion == fVersion) return;
    fIndexCash.clear();
    for (TscObject* o : fItems) {
        const TcsVariant id = o->KeyValue();
        if (!id.IsEmpty()) fIndexCash.emplace(id.AsString(), o);
    }
    fCacheVersion = fVersion;
}

TscObject* TscObjects::ItemsByID(const TcsVariant& aID) const {
    if (aID.IsEmpty()) return nullptr;
    const TscObjects* root = Root();
    if (!root) return nullptr;
    root->RefreshCache();
    auto it = root->fIndexCash.find(aID.AsString());
    if (it == root->fIndexCash.end()) return nullptr;
    return root == this || HasObject(it->second) ? it->second : nullptr;
}

namespace {
TscObject* FindByText(const std::vector<TscObject*>& aItems, std::string_view aProperty, std::string_view aText) {
    for (TscObject* o : aItems)
        if (SameText(o->GetPropertyValueByName(aProperty).AsString(), aText)) return o;
    return nullptr;
}
}  // namespace

TscObject* TscObjects::ItemByBaseName(std::string_view aName) const { return FindByText(Objects(), "BaseName", aName); }
TscObject* TscObjects::ItemByTitle(std::string_view aTitle) const { return FindByText(Objects(), "Title", aTitle); }
TscObject* TscObjects::ItemByHint(std::string_view aHint) const { return FindByText(Objects(), "Hint", aHint); }

int TscObjects::IndexOf(const TscObject* aObject) const {
    const auto& items = Objects();
    auto it = std::find(items.begin(), items.end(), aObject);
    return it == items.end() ? -1 : static_cast<int>(it - items.begin());
}

bool TscObjects::HasModify() const {
    for (TscObject* o : Objects())
        if (o->Modified() || o->NewObject()) return true;
    return !fDeleted.empty();
}

void TscObjects::CheckClass(const TscObject& aObject) const {
    if (fObjectClassName != "TscObject" && aObject.ClassName() != fObjectClassName)
        throw EscSchemaException(Fmt("Объект может содержать только объекты типа %s", fObjectClassName));
}

bool TscObjects::AllowAppendObject(const TscObject& aObject) const { return aObject.ClassName() == fObjectClassName; }

TscObject* TscObjects::AddToRoot(std::unique_ptr<TscObject> aObject) {
    TscObject* o = aObject.get();
    o->SetSchema(fSchema);
    if (o->ObjectStatus() == osCreating || o->ObjectStatus() == osLoadingState) o->SetObjectStatus(osNormal);
    o->SetAddedToRoot(true);
    int64_t id = 0;
    if (fLastID > 0 && o->KeyValue().Type() == TcsVarType::Integer && (id = o->KeyValue().AsInteger()) > fLastID)
        fLastID = id;
    fOwned.push_back(std::move(aObject));
    fItems.push_back(o);
    Changed();
    return o;
}

TscObject* TscObjects::Add(std::unique_ptr<TscObject> aObject) {
    if (!aObject) return nullptr;
    CheckClass(*aObject);
    if (fOwner && fOwner->ObjectStatus() == osNormal && aObject->ObjectMode() != omTemporary && fStorageType != stRoot &&
        fOwner->ObjectMode() != omTemporary)
        throw EscSchemaException(Fmt("Объект должен быть в режиме редактирования %s", fOwner->GetDisplayName()));
    const std::string id = aObject->KeyText();
    try {
        switch (fStorageType) {
        case stRoot:
            return AddToRoot(std::move(aObject));
        case stWithRoot: {
            TscObjects* root = Root();
            if (!root) throw EscSchemaException("нет корневого списка " + fObjectClassName);
            if (!fFilterPropertyName.empty()) {
                const TscObjectStatus keep = aObject->ObjectStatus();
                aObject->SetObjectStatus(osLoadingState);
                aObject->SetPropertyValueByName(fFilterPropertyName, fFilterPropertyValue);
                aObject->SetObjectStatus(keep);
            }
            return root->AddToRoot(std::move(aObject));
        }
        case stStandart: {
            TscObject* o = aObject.get();
            o->SetSchema(fSchema);
            if (o->ObjectStatus() == osCreating || o->ObjectStatus() == osLoadingState) o->SetObjectStatus(osNormal);
            if (fStatus == osEdit) {
                fPending.push_back(std::move(aObject));
            } else {
                fOwned.push_back(std::move(aObject));
                fItems.push_back(o);
            }
            Changed();
            return o;
        }
        }
    } catch (const EscSchemaException&) {
        throw;
    } catch (const std::exception&) {
        throw EscSchemaException(Fmt(Fmt("TscObjects.Add: Ошибка добавления объекта %s с идентификатором %d", fObjectClassName), id));
    }
    return nullptr;
}

std::unique_ptr<TscObject> TscObjects::GetNewTemplate(int aType) const {
    (void)aType;
    if (!fFactory) throw EscSchemaException("TscObjects: класс объектов не задан для " + fClassName);
    return fFactory(fSchema, omPersistent);
}

TscObject* TscObjects::GetNewObject(int aType) {
    std::unique_ptr<TscObject> o = GetNewTemplate(aType);
    o->SetObjectStatus(osNew);
    if (o->PropertyExist("ID")) {
        const TcsVariant id = (fStorageType == stWithRoot && Root()) ? Root()->GetNewID(aType) : GetNewID(aType);
        o->SetPropertyValueByName("ID", id);
    }
    return Add(std::move(o));
}

TcsVariant TscObjects::GetNewID(int aType) {
    if (aType == 1 || aType == 2) return TcsVariant(NewGUIDString());
    if (fStorageType == stWithRoot && Root() && Root() != this) return Root()->GetNewID(aType);
    if (fLastID <= 0) {
        int64_t top = 0;
        auto scan = [&top](const TscObject* o) {
            const TcsVariant id = o->KeyValue();
            if (o->ObjectMode() == omPersistent && id.Type() == TcsVarType::Integer) top = std::max(top, id.AsInteger());
        };
        for (const TscObject* o : fItems) scan(o);
        for (const auto& o : fDeleted) scan(o.get());
        fLastID = top;
    }
    return TcsVariant(++fLastID);
}

std::string TscObjects::GetUniqueBaseName() const {
    const std::string stem = WithoutTsc(fObjectClassName);
    for (int n = 1;; ++n) {
        std::string name = stem + std::to_string(n);
        if (!ItemByBaseName(name)) return name;
    }
}

void TscObjects::GetBaseNames(std::vector<std::string>& aList) const {
    for (TscObject* o : Objects()) aList.push_back(o->BaseNameText());
}

TscObject* TscObjects::GetItemByExtendedProperty(std::string_view aName, const TcsVariant& aValue) const {
    for (TscObject* o : Objects())
        if (o->HasExtendedProperties() && o->ExtendedProperties().ValueOf(aName).AsString() == aValue.AsString()) return o;
    return nullptr;
}

int TscObjects::GetObjectByPackageCount(const TcsVariant& aPackageID) const {
    int n = 0;
    for (TscObject* o : Objects())
        if (o->GetPropertyValueByName("PackageID").AsString() == aPackageID.AsString()) ++n;
    return n;
}

void TscObjects::Unlink(TscObject* aObject) {
    fItems.erase(std::remove(fItems.begin(), fItems.end(), aObject), fItems.end());
    Changed();
}

void TscObjects::DeleteObject(TscObject* aObject, bool aRealMode, std::vector<TscObject*>* aRelObjects) {
    if (!aObject) return;
    // The object and everything that depends on it, each once, the object first.
    std::vector<TscObject*> all{aObject};
    std::unordered_set<TscObject*> seen{aObject};
    for (size_t i = 0; i < all.size(); ++i) {
        std::vector<TscObject*> related;
        all[i]->GetRelatedObjects(related);
        for (TscObject* r : related)
            if (r && seen.insert(r).second) all.push_back(r);
    }
    for (TscObject* o : all) {
        TscObjects* home = fStorageType == stStandart ? this : (fSchema ? fSchema->GetRootObjectsByObject(*o) : nullptr);
        if (!home) continue;
        auto it = std::find_if(home->fOwned.begin(), home->fOwned.end(), [o](const auto& p) { return p.get() == o; });
        if (it == home->fOwned.end()) continue;
        std::unique_ptr<TscObject> taken = std::move(*it);
        home->fOwned.erase(it);
        home->Unlink(o);
        if (fSchema) fSchema->ForgetModified(o);
        if (!aRealMode) {
            taken->SetDeleted(true);
            if (aRelObjects && o != aObject) aRelObjects->push_back(o);
            home->fDeleted.push_back(std::move(taken));
        }
    }
}

void TscObjects::AppendObjects(const TscObjects& aObjects, TscOldNewObjects& aOldNew) {
    for (TscObject* o : aObjects.Objects()) {
        std::unique_ptr<TscObject> copy = GetNewTemplate();
        copy->SetObjectStatus(osNew);
        copy->AssignWithOldNew(*o, aOldNew);
        Add(std::move(copy));
    }
}

void TscObjects::Clear() {
    if (fStorageType == stWithRoot) {
        fViewItems.clear();
        fViewVersion = 0;
        return;
    }
    fItems.clear();
    fOwned.clear();
    fPending.clear();
    fDeleted.clear();
    fLastID = 0;
    Changed();
}

void TscObjects::Edit() {
    fStatus = osEdit;
    if (fStorageType == stStandart)
        for (TscObject* o : fItems) o->Edit();
}

void TscObjects::Post() {
    fStatus = osPosting;
    if (fStorageType == stStandart) {
        for (TscObject* o : fItems)
            if (o->InEdit()) o->Post();
        for (auto& p : fPending) {
            if (p->InEdit()) p->Post();
            p->SetNewObject(true);
            fItems.push_back(p.get());
            fOwned.push_back(std::move(p));
        }
        fPending.clear();
        Changed();
    }
    fStatus = osNormal;
}

void TscObjects::Cancel() {
    if (fStorageType == stStandart) {
        for (TscObject* o : fItems)
            if (o->InEdit()) o->Cancel();
        fPending.clear();
        Changed();
    }
    fStatus = osNormal;
}

// ---------------------------------------------------------------------------------------------
// Extended properties

TCS_PROPERTIES(TscExtendedProperty, TscObject,
               Property("ID", &TscExtendedProperty::ID, &TscExtendedProperty::SetID),
               Property("BaseName", &TscExtendedProperty::BaseName, &TscExtendedProperty::SetBaseName),
               Property("Description", &TscExtendedProperty::Description, &TscExtendedProperty::SetDescription),
               Property("Value", &TscExtendedProperty::Value, &TscExtendedProperty::SetValue),
               Property("ObjectID", &TscExtendedProperty::ObjectID, &TscExtendedProperty::SetObjectID),
               Property("ObjectClassString", &TscExtendedProperty::ObjectClassString, &TscExtendedProperty::SetObjectClassString),
               Property("Enabled", &TscExtendedProperty::Enabled, &TscExtendedProperty::SetEnabled))

TscExtendedProperties::TscExtendedProperties(TscCustomSchema* aSchema, TscObject* aOwner)
    : TscObjects(aSchema, stStandart, aOwner) {
    SetClassName("TscExtendedProperties");
    SetObjectClass("TscExtendedProperty", [](TscCustomSchema* s, TscObjectMode m) { return std::make_unique<TscExtendedProperty>(s, m); });
}

TcsVariant TscExtendedProperties::ValueOf(std::string_view aName) const {
    TscObject* o = ItemByBaseName(aName);
    return o ? static_cast<TscExtendedProperty*>(o)->Value() : TcsVariant();
}

void TscExtendedProperties::SetValueOf(std::string_view aName, const TcsVariant& aValue) {
    auto* o = static_cast<TscExtendedProperty*>(ItemByBaseName(aName));
    if (!o) {
        auto made = std::make_unique<TscExtendedProperty>(Schema());
        made->SetObjectStatus(osNew);
        made->SetBaseName(std::string(aName));
        made->SetEnabled(true);
        if (Owner()) {
            made->SetObjectID(Owner()->KeyValue());
            made->SetObjectClassString(Owner()->ClassName());
        }
        o = static_cast<TscExtendedProperty*>(Add(std::move(made)));
        const TscObjectStatus keep = o->ObjectStatus();
        o->SetObjectStatus(osLoadingState);
        o->SetValue(aValue);
        o->SetObjectStatus(keep);
        return;
    }
    o->SetValue(aValue);
}

// ---------------------------------------------------------------------------------------------
// Debug log

void TscDebug::Start() {
    fItems.clear();
    fStart = std::chrono::steady_clock::now();
    fActive = true;
}

int64_t TscDebug::Elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - fStart).count();
}

void TscDebug::Print(std::string aText) {
    if (fActive) fItems.push_back({std::move(aText), Elapsed()});
}

// ---------------------------------------------------------------------------------------------
// Providers and handlers

TscCustomSchema* TscCustomHandler::Schema() const { return fProvider ? fProvider->Schema() : nullptr; }

TscCustomProvider::TscCustomProvider(TscCustomSchema* aSchema) : fSchema(aSchema), fSchemaGUID(NewGUIDString()) {}

TscCustomProvider::~TscCustomProvider() = default;

void TscCustomProvider::Load(TscObjects& aObjects) {
    if (TscCustomHandler* h = GetHandlerByObjects(aObjects)) h->Load(aObjects);
}

void TscCustomProvider::Save(TscObjects& aObjects) {
    if (TscCustomHandler* h = GetHandlerByObjects(aObjects)) h->Save(aObjects);
}

void TscCustomProvider::Save(TscObject& aObject) {
    if (TscCustomHandler* h = GetHandlerByObject(aObject)) h->Save(aObject, true);
}

void TscCustomProvider::SaveSchema(TscCustomSchema& aSchema) {
    for (const auto& list : aSchema.ROOTObjects()) Save(*list);
}

TscCustomHandler* TscCustomProvider::GetHandlerByObjectClass(std::string_view aClassName) const {
    for (const auto& h : fHandlers)
        if (h->GetObjectClass() == aClassName) return h.get();
    return nullptr;
}

TscCustomHandler* TscCustomProvider::GetHandlerByObject(const TscObject& aObject) const {
    if (TscCustomHandler* h = GetHandlerByObjectClass(aObject.ClassName())) return h;
    return DefaultHandler();
}

TscCustomHandler* TscCustomProvider::GetHandlerByObjects(const TscObjects& aObjects) const {
    if (TscCustomHandler* h = GetHandlerByObjectClass(aObjects.ObjectClass())) return h;
    if (aObjects.Count() > 0)
        if (TscCustomHandler* h = GetHandlerByObjectClass(aObjects.Items(0)->ClassName())) return h;
    return DefaultHandler();
}

void TscCustomProvider::SetConnectParametr(std::string_view aParametrName, std::string_view aParametrValue) {
    std::vector<std::string> parts;
    bool found = false;
    for (std::string& part : Split(fConnectionString, ';')) {
        if (Trim(part).empty()) continue;
        const size_t eq = part.find('=');
        if (eq != std::string::npos && SameText(Trim(part.substr(0, eq)), aParametrName)) {
            part = std::string(aParametrName) + "=" + std::string(aParametrValue);
            found = true;
        }
        parts.push_back(part);
    }
    if (!found) parts.push_back(std::string(aParametrName) + "=" + std::string(aParametrValue));
    fConnectionString.clear();
    for (const std::string& p : parts) fConnectionString += (fConnectionString.empty() ? "" : ";") + p;
}

std::string TscCustomProvider::GetConnectParametr(std::string_view aParametrName) const {
    for (const std::string& part : Split(fConnectionString, ';')) {
        const size_t eq = part.find('=');
        if (eq != std::string::npos && SameText(Trim(part.substr(0, eq)), aParametrName)) return part.substr(eq + 1);
    }
    return {};
}

void TscFileCustomProvider::SaveObjects(TscObjects& aObjects) {
    if (aObjects.Schema()) SaveSchema(*aObjects.Schema());
}

void TscProviderManager::RegisterProvider(TscProviderLink aLink) {
    for (auto& l : fLinks)
        if (SameText(l.ProviderName, aLink.ProviderName)) {
            l = std::move(aLink);
            return;
        }
    Log.push_back("Зарегестрирован провайдер: " + aLink.ProviderName);
    fLinks.push_back(std::move(aLink));
}

const TscProviderLink* TscProviderManager::Find(std::string_view aProviderName) const {
    for (const auto& l : fLinks)
        if (SameText(l.ProviderName, aProviderName)) return &l;
    return nullptr;
}

std::unique_ptr<TscCustomProvider> TscProviderManager::CreateProvider(std::string_view aProviderName, TscCustomSchema* aSchema) const {
    const TscProviderLink* link = Find(aProviderName);
    if (!link) throw EscSchemaException(Fmt("Провайдер %s не зарегистрирован", aProviderName));
    return link->Create(aSchema);
}

TscProviderManager& ProviderManager() {
    static TscProviderManager manager;
    return manager;
}

// ---------------------------------------------------------------------------------------------
// Schema

TscCustomSchema::TscCustomSchema(TscSchemaWorkMode aSchemaMode) : TscObject(nullptr), fWorkMode(aSchemaMode) {
    fSchema = this;
    fObjectStatus = osNormal;
}

TscCustomSchema::~TscCustomSchema() {
    fState = ssDestroy;
    fModifiedObjects.clear();
    fRoots.clear();
}

TscObjects& TscCustomSchema::AddRoot(std::string aListClass, std::string aObjectClass,
                                     std::function<std::unique_ptr<TscObject>(TscCustomSchema*, TscObjectMode)> aFactory) {
    auto list = std::make_unique<TscObjects>(this, stRoot);
    list->SetClassName(std::move(aListClass));
    list->SetObjectClass(std::move(aObjectClass), std::move(aFactory));
    return AddRoot(std::move(list));
}

TscObjects& TscCustomSchema::AddRoot(std::unique_ptr<TscObjects> aList) {
    fRoots.push_back(std::move(aList));
    return *fRoots.back();
}

void TscCustomSchema::SetState(TscSchemaState aState) {
    fState = aState;
    if (OnSchemaEvent) OnSchemaEvent(*this, static_cast<int>(aState));
}

bool TscCustomSchema::CheckEdit(const TscObject& aObject) const {
    if (fState == ssAfterCreating || fState == ssLoading || fState == ssAnalizing) return true;
    switch (fWorkMode) {
    case wmSystem:
        return true;
    case wmApplication:
        return aObject.ObjectMode() == omTemporary || fAllowApplicationModify;
    case wmProgrammer:
        return aObject.ObjectMode() != omPersistent || (aObject.AllowModifyObject() && aObject.AllowEditPersistent());
    }
    return false;
}

void TscCustomSchema::AddModifiedObject(TscObject* aObject) {
    if (std::find(fModifiedObjects.begin(), fModifiedObjects.end(), aObject) == fModifiedObjects.end())
        fModifiedObjects.push_back(aObject);
}

void TscCustomSchema::ForgetModified(const TscObject* aObject) {
    fModifiedObjects.erase(std::remove(fModifiedObjects.begin(), fModifiedObjects.end(), aObject), fModifiedObjects.end());
}

void TscCustomSchema::Open(std::unique_ptr<TscCustomProvider> aProvider, bool aLoad) {
    if (!aProvider) throw EscSchemaException("Ошибка открытия схемы. Не назначен провайдер");
    fDebug.Start();
    fSourceGUID = NewGUIDString();
    fDebug.Print(Fmt("Подключение %s", aProvider->ConnectionString()));
    SetState(ssConnecting);
    fObjectStatus = osLoadingState;
    fProvider = std::move(aProvider);
    fProvider->SetSchema(this);
    try {
        if (!fProvider->Active()) fProvider->Connect();
    } catch (...) {
        fObjectStatus = osNormal;
        fProvider.reset();
        SetState(ssClosed);
        throw;
    }
    SetState(ssConnected);
    fDebug.Print(Fmt("Подключено. %d", Num(fDebug.Elapsed())));
    for (auto& local : fLocalProviders)
        if (!local->Active()) local->Connect();
    fObjectStatus = osNormal;
    if (aLoad) Load();
}

void TscCustomSchema::Open(std::string_view aConnectStr, bool aLoad) {
    const size_t semi = aConnectStr.find(';');
    const std::string name = Trim(aConnectStr.substr(0, semi));
    std::unique_ptr<TscCustomProvider> provider = ProviderManager().CreateProvider(name, this);
    provider->SetConnectionString(semi == std::string_view::npos ? std::string() : std::string(aConnectStr.substr(semi + 1)));
    Open(std::move(provider), aLoad);
}

void TscCustomSchema::Open(bool aLoad) {
    if (!fProvider) throw EscSchemaException("Ошибка открытия схемы. Не назначен провайдер");
    Open(std::move(fProvider), aLoad);
}

void TscCustomSchema::Load() {
    Clear();
    SetState(ssLoading);
    const int64_t start = fDebug.Elapsed();
    try {
        if (!fProvider) throw EscSchemaException("Ошибка открытия схемы. Не назначен провайдер");
        fProvider->DoBeforeLoad();
        for (const auto& list : fRoots) {
            fDebug.Print(Fmt("Загрузка %s", list->ClassName()));
            const int64_t t = fDebug.Elapsed();
            TscCustomHandler* handler = fProvider->GetHandlerByObjects(*list);
            if (!handler) {
                fDebug.Print(Fmt("Нет обработчика загрузки для %s", list->ClassName()));
                continue;
            }
            handler->Load(*list);
            fDebug.Print("Загружено " + Num(list->Count()) + " Ок. " + Num(fDebug.Elapsed() - t) + " mc");
        }
        fProvider->DoAfterLoad();
        fProvider->PostLoad();
        fDebug.Print("Загрузка локальных схем");
        for (auto& local : fLocalProviders)
            for (const auto& list : fRoots) local->Load(*list);
        fDebug.Print(Fmt("Общее время %d", Num(fDebug.Elapsed() - start)));
        ClearModifyObjects();
        fLoaded = true;
        SetState(ssLoaded);
    } catch (const std::exception& e) {
        ShowModalMessage(std::string("Ошибка загрузки схемы: ") + e.what());
        Clear();
        fObjectStatus = osNormal;
        fDebug.Stop();
        SetState(fProvider ? ssConnected : ssClosed);
    }
}

std::vector<std::string> TscCustomSchema::CheckAll() const {
    std::vector<std::string> errors;
    for (const auto& list : fRoots) {
        for (TscObject* o : list->Objects()) o->CheckSave(errors);
        list->CheckSave(errors);
    }
    return errors;
}

void TscCustomSchema::Save(bool aClearModify) {
    if (!fProvider) throw EscSchemaException("Ошибка сохранения схемы. Не назначен провайдер");
    Save(*fProvider, aClearModify);
}

void TscCustomSchema::Save(TscCustomProvider& aProvider, bool aClearModify) {
    const int64_t start = fDebug.Elapsed();
    fDebug.Print(Fmt("Подготовка к сохранению %d", Num(static_cast<int64_t>(fModifiedObjects.size()))));
    if (!aProvider.Active()) throw EscSchemaException("Провайдер схемы не активен: " + aProvider.GetFullDescription());
    const std::vector<std::string> errors = CheckAll();
    if (!errors.empty()) RaiseCheckErrors(errors);
    const TscSchemaState before = fState;
    SetState(ssSave);
    try {
        aProvider.BeforeSave();
        if (aProvider.ProviderType() == ptFile) {
            aProvider.SaveSchema(*this);
        } else {
            for (const auto& list : fRoots)
                if (list->HasModify()) aProvider.Save(*list);
        }
        aProvider.AfterSave();
        fDebug.Print(Fmt("AProvider.Commit Начало %d", Num(fDebug.Elapsed())));
        aProvider.Commit();
        fDebug.Print(Fmt("AProvider.Commit Сделали %d", Num(fDebug.Elapsed())));
    } catch (...) {
        SetState(before);
        throw;
    }
    if (aClearModify) ClearModifyObjects();
    fDebug.Print(Fmt("Общее время %d", Num(fDebug.Elapsed() - start)));
    SetState(before == ssSave ? ssLoaded : before);
}

void TscCustomSchema::SaveObjects(TscObjects& aObjects) {
    if (aObjects.Schema() != this) throw EscSchemaException("TscCustomSchema.SaveObjects: Использован список из другой схемы");
    if (!fProvider) throw EscSchemaException("Ошибка сохранения схемы. Не назначен провайдер");
    if (auto* file = dynamic_cast<TscFileCustomProvider*>(fProvider.get())) {
        Save(*file, true);
        return;
    }
    fProvider->Save(aObjects);
    fProvider->Commit();
}

void TscCustomSchema::Close() {
    if (fProvider) fProvider->Close();
    Clear();
    fProvider.reset();
    SetState(ssClosed);
}

void TscCustomSchema::Clear() {
    fModifiedObjects.clear();
    for (auto& list : fRoots) list->Clear();
    fLoaded = false;
}

void TscCustomSchema::ClearModifyObjects() {
    fModifiedObjects.clear();
    for (auto& list : fRoots) {
        for (TscObject* o : list->Objects()) {
            o->SetModified(false);
            o->SetNewObject(false);
            if (o->ObjectStatus() == osNew) o->SetObjectStatus(osNormal);
        }
        list->StoredDelete();
    }
}

void TscCustomSchema::BeginAnalize() { SetState(ssAnalizing); }

void TscCustomSchema::EndAnalize() {
    CheckAnalize();
    SetState(fLoaded ? ssLoaded : ssConnected);
}

void TscCustomSchema::CheckAnalize() const {
    if (fState != ssAnalizing) throw EscSchemaException("Схема не в режиме анализа.");
}

void TscCustomSchema::CheckLoading() const {
    if (fState != ssLoading) throw EscSchemaException("Схема не в режиме загрузки");
}

TscObjects* TscCustomSchema::GetRootObjectsByObjectClass(std::string_view aObjectClassName) const {
    for (const auto& list : fRoots)
        if (list->ObjectClass() == aObjectClassName) return list.get();
    return nullptr;
}

TscObjects* TscCustomSchema::GetRootObjectsByObjectsClass(std::string_view aObjectsClassName) const {
    for (const auto& list : fRoots)
        if (list->ClassName() == aObjectsClassName) return list.get();
    return nullptr;
}

TscObjects* TscCustomSchema::GetRootObjectsByKeyClassName(std::string_view aName) const {
    for (const auto& list : fRoots)
        if (SameText(list->ObjectClass(), aName) || SameText(list->GetStorageName(), aName)) return list.get();
    return nullptr;
}

TscObject* TscCustomSchema::GetObjectByID(std::string_view aObjectClassName, const TcsVariant& aID) const {
    TscObjects* list = GetRootObjectsByObjectClass(aObjectClassName);
    return list ? list->ItemsByID(aID) : nullptr;
}

TcsVariant PropertyValueFromText(const TcsPropertyInfo& aProperty, const std::string& aText) {
    int64_t i = 0;
    double f = 0;
    switch (aProperty.fKind) {
    case TcsPropertyKind::Boolean: {
        bool b = false;
        return TcsVariant(TryStrToBool(Trim(aText), b) && b);
    }
    case TcsPropertyKind::Enumeration: {
        const std::string t = Trim(aText);
        for (size_t n = 0; n < aProperty.fEnumNames.size(); ++n)
            if (SameText(aProperty.fEnumNames[n], t)) return TcsVariant(static_cast<int64_t>(n));
        return TcsVariant(TryStrToInt(t, i) ? i : 0);
    }
    case TcsPropertyKind::Integer:
        if (TryStrToInt(Trim(aText), i)) return TcsVariant(i);
        return TcsVariant(static_cast<int64_t>(0));
    case TcsPropertyKind::Float:
        return TcsVariant(TryStrToFloat(Trim(aText), f) ? f : 0.0);
    case TcsPropertyKind::Variant:
        // An ID is an integer when the whole text is one; GUIDs and other texts stay text.
        if (TryStrToInt(aText, i)) return TcsVariant(i);
        return TcsVariant(aText);
    default:
        return TcsVariant(aText);
    }
}

void RaiseCheckErrors(const std::vector<std::string>& aErrors) {
    std::string text = "Проверьте ошибки схемы перед сохранением.\n";
    for (size_t i = 0; i < aErrors.size(); ++i) text += (i ? "\n" : "") + aErrors[i];
    throw EscCheckSaveException(text);
}

std::string MaskPassword(const std::string& aConnectionString) {
    std::string out;
    size_t start = 0;
    while (start <= aConnectionString.size()) {
        size_t end = aConnectionString.find(';', start);
        if (end == std::string::npos) end = aConnectionString.size();
        std::string part = aConnectionString.substr(start, end - start);
        const size_t eq = part.find('=');
        if (eq != std::string::npos && SameText(Trim(part.substr(0, eq)), "Password")) part = part.substr(0, eq + 1) + "***";
        if (start) out += ';';
        out += part;
        start = end + 1;
    }
    return out;
}

std::string TscCustomProvider::GetFullDescription() const {
    return GetVisibleProviderName() + ": " + MaskPassword(fConnectionString);
}

}  // namespace tmi
