#include "csSetting.h"

#include <cstdio>
#include <filesystem>

#include "csCommon.h"

namespace tmi {

void TcsSetting::Assign(const TcsVariant& aValue) {
    if (Value == aValue) return;
    Value = aValue;
    fModified = true;
}

void TcsSetting::Load(const TcsIniFile& aIni) {
    if (!aIni.ValueExists(fSection, fName)) return;
    fLoaded = true;
    const std::string text = aIni.ReadString(fSection, fName, "");
    switch (Value.Type()) {
        case TcsVarType::Empty:
            if (!text.empty()) Assign(TcsVariant(text));
            break;
        case TcsVarType::String: Assign(TcsVariant(text)); break;
        case TcsVarType::Integer: {
            int64_t v = 0;
            if (TryStrToInt(text, v)) Assign(TcsVariant(v));
            break;
        }
        case TcsVarType::Boolean: {
            bool b = false;
            if (TryStrToBool(text, b)) Assign(TcsVariant(b));
            break;
        }
        case TcsVarType::Float: {
            double f = 0;
            if (TryStrToFloat(text, f)) Assign(TcsVariant(f));
            break;
        }
        case TcsVarType::DateTime: {
            TDateTime d;
            if (TryStrToDateTime(text, d)) Assign(TcsVariant(d));
            break;
        }
        default: break;
    }
}

void TcsSetting::Save(TcsIniFile& aIni, bool aOnlyModified) const {
    if (fSettingType == stConfiguration) return;
    if (aOnlyModified && !fModified) return;
    switch (Value.Type()) {
        case TcsVarType::Empty: aIni.DeleteKey(fSection, fName); break;
        case TcsVarType::Integer: aIni.WriteInteger(fSection, fName, Value.AsInteger()); break;
        case TcsVarType::Boolean: aIni.WriteBool(fSection, fName, Value.AsBoolean()); break;
        default: aIni.WriteString(fSection, fName, Value.AsString()); break;
    }
}

// ---------------------------------------------------------------------------------------------

TcsSettings::TcsSettings(std::string_view aDefaultSection)
    : fDefaultSection(aDefaultSection.empty() ? "Common" : std::string(aDefaultSection)) {}

int TcsSettings::IndexOf(std::string_view aSection, std::string_view aName) const {
    for (size_t i = 0; i < fList.size(); ++i)
        if ((aSection.empty() || SameText(fList[i]->Section(), aSection)) && SameText(fList[i]->Name(), aName))
            return static_cast<int>(i);
    return -1;
}

TcsSetting* TcsSettings::Find(std::string_view aSection, std::string_view aName) const {
    const int i = IndexOf(aSection, aName);
    return i < 0 ? nullptr : fList[static_cast<size_t>(i)].get();
}

TcsSetting* TcsSettings::Add(std::string_view aSection, std::string_view aName, const TcsVariant& aValue) {
    if (TcsSetting* s = Find(aSection, aName)) {
        // An existing Boolean given anything else: 0 or "0" is false, the rest true.
        if (s->Value.Type() == TcsVarType::Boolean && aValue.Type() != TcsVarType::Boolean) {
            const bool zero = (aValue.Type() == TcsVarType::Integer && aValue.AsInteger() == 0) ||
                              (aValue.Type() == TcsVarType::String && aValue.AsString() == "0");
            s->Assign(TcsVariant(!zero));
        } else {
            s->Assign(aValue);
        }
        return s;
    }
    fList.push_back(std::make_unique<TcsSetting>(std::string(aSection), std::string(aName), aValue));
    return fList.back().get();
}

bool TcsSettings::Modified(std::string_view aSection, std::string_view aName) const {
    const TcsSetting* s = Find(aSection, aName);
    return s && s->Modified();
}

bool TcsSettings::Loaded(std::string_view aSection, std::string_view aName) const {
    const TcsSetting* s = Find(aSection, aName);
    return s && s->Loaded();
}

void TcsSettings::Delete(std::string_view aSection, std::string_view aName) {
    const int i = IndexOf(aSection, aName);
    if (i >= 0) fList.erase(fList.begin() + i);
}

int64_t TcsSettings::ReadInteger(std::string_view aSection, std::string_view aName, int64_t aDefault) const {
    const TcsSetting* s = Find(aSection, aName);
    if (!s || s->Value.IsEmpty()) return aDefault;
    if (s->Value.Type() == TcsVarType::Integer) return s->Value.AsInteger();
    int64_t v = 0;
    if (s->Value.Type() == TcsVarType::String) return TryStrToInt(s->Value.AsString(), v) ? v : aDefault;
    if (s->Value.Type() == TcsVarType::Boolean) return s->Value.AsInteger();
    return TryStrToInt(s->Value.AsString(), v) ? v : aDefault;
}

bool TcsSettings::ReadBoolean(std::string_view aSection, std::string_view aName, bool aDefault) const {
    const TcsSetting* s = Find(aSection, aName);
    if (!s || s->Value.IsEmpty()) return aDefault;
    return s->Value.AsBoolean();
}

std::string TcsSettings::ReadString(std::string_view aSection, std::string_view aName, std::string_view aDefault) const {
    const TcsSetting* s = Find(aSection, aName);
    if (!s || s->Value.IsEmpty()) return std::string(aDefault);
    return s->Value.AsString();
}

void TcsSettings::CheckInteger(std::string_view aSection, std::string_view aName, int64_t aMin, int64_t aDefault,
                               int64_t aMax) {
    TcsSetting* s = Find(aSection, aName);
    if (!s) return;
    int64_t v = 0;
    const bool isInteger = s->Value.Type() == TcsVarType::Integer ? (v = s->Value.AsInteger(), true)
                                                                  : TryStrToInt(s->Value.AsString(), v);
    if (!isInteger || v < aMin || v > aMax) s->Assign(TcsVariant(aDefault));
}

TcsVariant TcsSettings::GetValues(std::string_view aSection, std::string_view aName) const {
    const TcsSetting* s = Find(aSection, aName);
    return s ? s->Value : TcsVariant();
}

void TcsSettings::SetValues(std::string_view aSection, std::string_view aName, const TcsVariant& aValue) {
    Add(aSection, aName, aValue);
}

void TcsSettings::SaveWindowPosition(std::string_view aName, const TcsWindowPlacement& p) {
    char buf[96];
    std::snprintf(buf, sizeof buf, "%d,%d,%d,%d,%d", p.fLeft, p.fTop, p.fWidth, p.fHeight, p.fState);
    Add(aName, TcsVariant(std::string(buf)));
}

bool TcsSettings::LoadWindowPosition(std::string_view aName, TcsWindowPlacement& aPlacement) const {
    const TcsSetting* s = Find(aName);
    if (!s || s->Value.IsEmpty()) return false;
    TcsWindowPlacement p;
    if (std::sscanf(s->Value.AsString().c_str(), "%d,%d,%d,%d,%d", &p.fLeft, &p.fTop, &p.fWidth, &p.fHeight, &p.fState) != 5)
        return false;
    aPlacement = p;
    return true;
}

void TcsSettings::Load(const TcsIniFile& aIni, bool aOnlyExisting) {
    if (aOnlyExisting) {
        for (auto& s : fList) s->Load(aIni);
        return;
    }
    // Every key of the file, as text, through Add: a known setting takes the text by the
    // modified rule, whatever its type was.
    for (const std::string& section : aIni.ReadSections())
        for (const std::string& key : aIni.ReadSection(section))
            Add(section, key, TcsVariant(aIni.ReadString(section, key, "")))->SetLoaded(true);
}

void TcsSettings::Load(const std::string& aFileName, bool aOnlyExisting) {
    std::error_code ec;
    if (!std::filesystem::exists(aFileName, ec)) return;
    TcsIniFile ini(aFileName);
    Load(ini, aOnlyExisting);
}

void TcsSettings::Save(TcsIniFile& aIni, bool aOnlyModified) const {
    for (const auto& s : fList) s->Save(aIni, aOnlyModified);
    // The INI object keeps its text in memory: what was written reaches its file now.
    if (!aIni.FileName().empty()) (void)aIni.UpdateFile();
}

bool TcsSettings::Save(const std::string& aFileName, bool aOnlyModified) const {
    // The file is cleared whole: keys the store does not know are gone.
    TcsIniFile ini;
    for (const auto& s : fList) s->Save(ini, aOnlyModified);
    return ini.SaveToFile(aFileName);
}

TcsSettings& GlobalSettings() {
    static TcsSettings settings;
    return settings;
}

}  // namespace tmi
