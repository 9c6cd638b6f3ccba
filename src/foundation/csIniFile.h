// TcsIniFile: sections of key=value lines in a UTF-8 text file. Section and key names
// compare without regard to case; values are text. Order of sections and keys is kept.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tmi {

class TcsIniFile {
public:
    TcsIniFile() = default;
    // Reads the file when it exists; UpdateFile writes back to it.
    explicit TcsIniFile(std::string aFileName);

    [[nodiscard]] const std::string& FileName() const noexcept { return fFileName; }
    bool LoadFromFile(const std::string& aFileName);
    void LoadFromString(std::string_view aText);
    [[nodiscard]] std::string ToString() const;
    // Writes to FileName; false when the file cannot be written.
    bool UpdateFile() const;
    bool SaveToFile(const std::string& aFileName) const;

    [[nodiscard]] bool SectionExists(std::string_view aSection) const;
    [[nodiscard]] bool ValueExists(std::string_view aSection, std::string_view aKey) const;
    [[nodiscard]] std::string ReadString(std::string_view aSection, std::string_view aKey, std::string_view aDefault) const;
    [[nodiscard]] int64_t ReadInteger(std::string_view aSection, std::string_view aKey, int64_t aDefault) const;
    [[nodiscard]] bool ReadBool(std::string_view aSection, std::string_view aKey, bool aDefault) const;
    void WriteString(std::string_view aSection, std::string_view aKey, std::string_view aValue);
    void WriteInteger(std::string_view aSection, std::string_view aKey, int64_t aValue);
    void WriteBool(std::string_view aSection, std::string_view aKey, bool aValue);
    [[nodiscard]] std::vector<std::string> ReadSections() const;
    [[nodiscard]] std::vector<std::string> ReadSection(std::string_view aSection) const;  // its keys
    void DeleteKey(std::string_view aSection, std::string_view aKey);
    void EraseSection(std::string_view aSection);
    void Clear() { fSections.clear(); }

private:
    struct Section {
        std::string fName;
        std::vector<std::pair<std::string, std::string>> fValues;
    };
    [[nodiscard]] const Section* FindSection(std::string_view aSection) const;
    Section& TakeSection(std::string_view aSection);

    std::string fFileName;
    std::vector<Section> fSections;
};

}  // namespace tmi
