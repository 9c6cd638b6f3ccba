// TcsSettings: named, typed values grouped by section, kept in an INI file. A value keeps
// the type of its default, so text read from the file turns back into that type.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "csIniFile.h"
#include "csVariant.h"

namespace tmi {

enum TcsSettingType : uint8_t { stConfiguration, stGlobal, stUser, stClient };

class TcsSetting {
public:
    TcsSetting(std::string aSection, std::string aName, TcsVariant aValue)
        : fSection(std::move(aSection)), fName(std::move(aName)), Value(std::move(aValue)) {}

    [[nodiscard]] const std::string& Section() const noexcept { return fSection; }
    [[nodiscard]] const std::string& Name() const noexcept { return fName; }
    [[nodiscard]] int64_t AsInteger() const { return Value.AsInteger(); }
    [[nodiscard]] bool AsBoolean() const { return Value.AsBoolean(); }
    [[nodiscard]] TcsSettingType SettingType() const noexcept { return fSettingType; }
    void SetSettingType(TcsSettingType aType) noexcept { fSettingType = aType; }
    [[nodiscard]] bool Modified() const noexcept { return fModified; }
    void SetModified(bool aValue) noexcept { fModified = aValue; }
    [[nodiscard]] bool Loaded() const noexcept { return fLoaded; }
    void SetLoaded(bool aValue) noexcept { fLoaded = aValue; }

    // Stores the value only when it differs from the present one, and marks it modified.
    void Assign(const TcsVariant& aValue);
    // Loads the key of the INI file into the type of the present value.
    void Load(const TcsIniFile& aIni);
    // Writes the value by its type; an unassigned value deletes the key.
    void Save(TcsIniFile& aIni, bool aOnlyModified) const;

private:
    std::string fSection;
    std::string fName;

public:
    TcsVariant Value;

private:
    TcsSettingType fSettingType = stUser;
    bool fModified = false;
    bool fLoaded = false;
};

// A form's placement, kept as one string value.
struct TcsWindowPlacement {
    int fLeft = 0, fTop = 0, fWidth = 0, fHeight = 0, fState = 0;
};

class TcsSettings {
public:
    explicit TcsSettings(std::string_view aDefaultSection = {});

    [[nodiscard]] const std::string& DefaultSection() const noexcept { return fDefaultSection; }
    void SetDefaultSection(std::string aSection) { fDefaultSection = std::move(aSection); }
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fList.size()); }
    [[nodiscard]] TcsSetting* Items(int aIndex) const { return fList.at(static_cast<size_t>(aIndex)).get(); }

    TcsSetting* Add(std::string_view aSection, std::string_view aName, const TcsVariant& aValue);
    TcsSetting* Add(std::string_view aName, const TcsVariant& aValue) { return Add(fDefaultSection, aName, aValue); }
    // An empty section matches any section; names compare without regard to case.
    [[nodiscard]] TcsSetting* Find(std::string_view aSection, std::string_view aName) const;
    [[nodiscard]] TcsSetting* Find(std::string_view aName) const { return Find(fDefaultSection, aName); }
    [[nodiscard]] int IndexOf(std::string_view aSection, std::string_view aName) const;
    [[nodiscard]] int IndexOf(std::string_view aName) const { return IndexOf(fDefaultSection, aName); }
    [[nodiscard]] bool Exists(std::string_view aSection, std::string_view aName) const { return IndexOf(aSection, aName) >= 0; }
    [[nodiscard]] bool Exists(std::string_view aName) const { return Exists(fDefaultSection, aName); }
    [[nodiscard]] bool Modified(std::string_view aSection, std::string_view aName) const;
    [[nodiscard]] bool Modified(std::string_view aName) const { return Modified(fDefaultSection, aName); }
    [[nodiscard]] bool Loaded(std::string_view aSection, std::string_view aName) const;
    [[nodiscard]] bool Loaded(std::string_view aName) const { return Loaded(fDefaultSection, aName); }
    void Delete(std::string_view aSection, std::string_view aName);
    void Delete(std::string_view aName) { Delete(fDefaultSection, aName); }
    void Clear() { fList.clear(); }

    [[nodiscard]] int64_t ReadInteger(std::string_view aSection, std::string_view aName, int64_t aDefault) const;
    [[nodiscard]] int64_t ReadInteger(std::string_view aName, int64_t aDefault) const { return ReadInteger(fDefaultSection, aName, aDefault); }
    [[nodiscard]] bool ReadBoolean(std::string_view aSection, std::string_view aName, bool aDefault) const;
    [[nodiscard]] bool ReadBoolean(std::string_view aName, bool aDefault) const { return ReadBoolean(fDefaultSection, aName, aDefault); }
    [[nodiscard]] std::string ReadString(std::string_view aSection, std::string_view aName, std::string_view aDefault) const;
    [[nodiscard]] std::string ReadString(std::string_view aName, std::string_view aDefault) const { return ReadString(fDefaultSection, aName, aDefault); }
    // A present value that is no integer or lies outside aMin..aMax becomes aDefault; an
    // absent one stays absent.
    void CheckInteger(std::string_view aSection, std::string_view aName, int64_t aMin, int64_t aDefault, int64_t aMax);
    void CheckInteger(std::string_view aName, int64_t aMin, int64_t aDefault, int64_t aMax) { CheckInteger(fDefaultSection, aName, aMin, aDefault, aMax); }

    // Reading an absent name gives an unassigned value; writing one creates it.
    [[nodiscard]] TcsVariant GetValues(std::string_view aSection, std::string_view aName) const;
    void SetValues(std::string_view aSection, std::string_view aName, const TcsVariant& aValue);
    [[nodiscard]] TcsVariant ValueByName(std::string_view aName) const { return GetValues(fDefaultSection, aName); }
    void SetValueByName(std::string_view aName, const TcsVariant& aValue) { SetValues(fDefaultSection, aName, aValue); }

    void SaveWindowPosition(std::string_view aName, const TcsWindowPlacement& aPlacement);
    // False, and aPlacement untouched, when no placement is kept.
    bool LoadWindowPosition(std::string_view aName, TcsWindowPlacement& aPlacement) const;

    void Load(const TcsIniFile& aIni, bool aOnlyExisting);
    // A missing file loads nothing.
    void Load(const std::string& aFileName, bool aOnlyExisting);
    // Writes into an open INI object without clearing it.
    void Save(TcsIniFile& aIni, bool aOnlyModified) const;
    // Clears the file whole, writes and updates it: settings the store doesn't know are lost.
    bool Save(const std::string& aFileName, bool aOnlyModified) const;

private:
    std::vector<std::unique_ptr<TcsSetting>> fList;
    std::string fDefaultSection;
};

// The global store, default section "Common".
TcsSettings& GlobalSettings();

}  // namespace tmi
