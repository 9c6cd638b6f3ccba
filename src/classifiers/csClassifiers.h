// Code-to-text dictionaries read from the cadastre's classifier schemas: each file holds one
// xs:simpleType whose enumerations carry a documentation text.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tmi {

struct TClassRec {
    std::string value;  // the code as the enumeration writes it
    std::string text;   // its documentation
};

class TRRClass {
public:
    // Loads the file; raises when it cannot be read or holds no restriction at
    // "/xs:schema/xs:simpleType/xs:restriction". A file this process has read, unchanged
    // since, is not read again.
    TRRClass(std::string aName, const std::string& aFile);
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fList.size()); }
    void Add(std::string aName, std::string aValue) { fList.push_back(TClassRec{std::move(aValue), std::move(aName)}); }
    // The text of the first entry with exactly this code; empty when none.
    [[nodiscard]] std::string GetByValue(std::string_view aValue) const;
    [[nodiscard]] const std::string& ClassName() const noexcept { return classname; }

private:
    void Read(const std::string& aFile);

    std::vector<TClassRec> fList;
    std::string classname;
};

class TClassList {
public:
    // Loads the sixteen dictionaries from the roots derived from XSDPath.
    void Execute();
    // Adds the dictionary of the file; a missing file is reported (when aMsg) and skipped.
    void Add(std::string_view aName, const std::string& aFile, bool aMsg);
    // By the dictionary's name (case ignored), then the code (exact); empty when either is absent.
    [[nodiscard]] std::string GetKlassString(std::string_view aName, std::string_view aValue) const;
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fList.size()); }
    void Clear() { fList.clear(); }
    // The files of the dictionaries that are reported when missing, and those of them that
    // are not there, at the roots derived from XSDPath.
    [[nodiscard]] std::vector<std::string> ReportedFiles() const;
    [[nodiscard]] std::vector<std::string> MissingFiles() const;

    std::string XSDPath;
    // Where the messages go: "Не найден классификатор "<file>"."
    std::function<void(const std::string&)> OnMessage;

private:
    // The roots of the plan and the parcel extract schemas.
    void Roots(std::string& aPlan, std::string& aExtract) const;
    std::vector<std::unique_ptr<TRRClass>> fList;
};

// The folder the job hands to the list: "/Apps64" (64-bit) or "/Apps" removed, and
// "/XSDSchemes" as well when "/MP" is in the path.
std::string ClassifierFolder(std::string aXSDPath, int aBitness);

}  // namespace tmi
