#include "csIniFile.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "csCommon.h"

namespace tmi {

TcsIniFile::TcsIniFile(std::string aFileName) : fFileName(std::move(aFileName)) {
    std::error_code ec;
    if (std::filesystem::exists(fFileName, ec)) LoadFromFile(fFileName);
}

bool TcsIniFile::LoadFromFile(const std::string& aFileName) {
    std::ifstream in(aFileName, std::ios::binary);
    if (!in) return false;
    std::stringstream text;
    text << in.rdbuf();
    LoadFromString(text.str());
    return true;
}

void TcsIniFile::LoadFromString(std::string_view aText) {
    fSections.clear();
    if (aText.substr(0, 3) == "\xEF\xBB\xBF") aText.remove_prefix(3);
    Section* current = nullptr;
    size_t start = 0;
    while (start < aText.size()) {
        size_t end = aText.find('\n', start);
        if (end == std::string_view::npos) end = aText.size();
        std::string line = Trim(aText.substr(start, end - start));
        start = end + 1;
        if (line.empty() || line[0] == ';' || line[0] == '#') continue;
        if (line.front() == '[' && line.back() == ']') {
            current = &TakeSection(Trim(std::string_view(line).substr(1, line.size() - 2)));
            continue;
        }
        if (!current) continue;
        const size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = Trim(std::string_view(line).substr(0, eq));
        const std::string value = Trim(std::string_view(line).substr(eq + 1));
        bool replaced = false;
        for (auto& kv : current->fValues)
            if (SameText(kv.first, key)) {
                kv.second = value;
                replaced = true;
                break;
            }
        if (!replaced) current->fValues.emplace_back(key, value);
    }
}

std::string TcsIniFile::ToString() const {
    std::string out;
    for (const Section& s : fSections) {
        if (!out.empty()) out += "\n";
        out += "[" + s.fName + "]\n";
        for (const auto& kv : s.fValues) out += kv.first + "=" + kv.second + "\n";
    }
    return out;
}

bool TcsIniFile::SaveToFile(const std::string& aFileName) const {
    std::ofstream out(aFileName, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    const std::string text = ToString();
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    return static_cast<bool>(out);
}

bool TcsIniFile::UpdateFile() const { return !fFileName.empty() && SaveToFile(fFileName); }

const TcsIniFile::Section* TcsIniFile::FindSection(std::string_view aSection) const {
    for (const Section& s : fSections)
        if (SameText(s.fName, aSection)) return &s;
    return nullptr;
}

TcsIniFile::Section& TcsIniFile::TakeSection(std::string_view aSection) {
    for (Section& s : fSections)
        if (SameText(s.fName, aSection)) return s;
    fSections.push_back(Section{std::string(aSection), {}});
    return fSections.back();
}

bool TcsIniFile::SectionExists(std::string_view aSection) const { return FindSection(aSection) != nullptr; }

bool TcsIniFile::ValueExists(std::string_view aSection, std::string_view aKey) const {
    const Section* s = FindSection(aSection);
    if (!s) return false;
    for (const auto& kv : s->fValues)
        if (SameText(kv.first, aKey)) return true;
    return false;
}

std::string TcsIniFile::ReadString(std::string_view aSection, std::string_view aKey, std::string_view aDefault) const {
    if (const Section* s = FindSection(aSection))
        for (const auto& kv : s->fValues)
            if (SameText(kv.first, aKey)) return kv.second;
    return std::string(aDefault);
}

int64_t TcsIniFile::ReadInteger(std::string_view aSection, std::string_view aKey, int64_t aDefault) const {
    int64_t v = 0;
    return TryStrToInt(ReadString(aSection, aKey, ""), v) ? v : aDefault;
}

bool TcsIniFile::ReadBool(std::string_view aSection, std::string_view aKey, bool aDefault) const {
    const std::string text = ReadString(aSection, aKey, "");
    int64_t v = 0;
    if (TryStrToInt(text, v)) return v != 0;
    if (SameText(text, "true")) return true;
    if (SameText(text, "false")) return false;
    return aDefault;
}

void TcsIniFile::WriteString(std::string_view aSection, std::string_view aKey, std::string_view aValue) {
    Section& s = TakeSection(aSection);
    // Values are one line each.
    std::string value(aValue);
    for (char& c : value)
        if (c == '\r' || c == '\n') c = ' ';
    for (auto& kv : s.fValues)
        if (SameText(kv.first, aKey)) {
            kv.second = value;
            return;
        }
    s.fValues.emplace_back(std::string(aKey), value);
}

void TcsIniFile::WriteInteger(std::string_view aSection, std::string_view aKey, int64_t aValue) {
    WriteString(aSection, aKey, std::to_string(aValue));
}

void TcsIniFile::WriteBool(std::string_view aSection, std::string_view aKey, bool aValue) {
    WriteString(aSection, aKey, aValue ? "1" : "0");
}

std::vector<std::string> TcsIniFile::ReadSections() const {
    std::vector<std::string> names;
    for (const Section& s : fSections) names.push_back(s.fName);
    return names;
}

std::vector<std::string> TcsIniFile::ReadSection(std::string_view aSection) const {
    std::vector<std::string> keys;
    if (const Section* s = FindSection(aSection))
        for (const auto& kv : s->fValues) keys.push_back(kv.first);
    return keys;
}

void TcsIniFile::DeleteKey(std::string_view aSection, std::string_view aKey) {
    for (Section& s : fSections) {
        if (!SameText(s.fName, aSection)) continue;
        for (auto it = s.fValues.begin(); it != s.fValues.end(); ++it)
            if (SameText(it->first, aKey)) {
                s.fValues.erase(it);
                return;
            }
    }
}

void TcsIniFile::EraseSection(std::string_view aSection) {
    for (auto it = fSections.begin(); it != fSections.end(); ++it)
        if (SameText(it->fName, aSection)) {
            fSections.erase(it);
            return;
        }
}

}  // namespace tmi
