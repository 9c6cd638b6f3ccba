// The table layer's files: one open table writes a .mif file (header and one object clause
// per row) and a .mid file (one comma-separated line per row).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "csMifFile.h"
#include "csMitab.h"
#include "csVariant.h"

namespace tmi {

// Column types.
enum : int {
    ftInteger = 4,
    ftFloat = 7,
    ftDate = 8,
    ftText = 10,      // text of a declared size
    ftLongText = 12,  // long text; 150 when the table is made
    ftGeometry = 20,  // the geometry column: in neither file
};

struct TGMField {
    std::string FieldName;
    int FieldType = ftText;
    std::optional<int> FieldSize;  // text only
    bool FieldKey = false;
    bool FieldPrimaryKey = false;
    bool FieldGeom = false;
    std::string FieldValue;  // the current row's value, already in MID form; empty when unset
};

// The MID form of a value for a column: text quoted with '"' doubled to "''", line breaks
// as blanks and cut to the size; floats in the general form of 15 digits; integers as
// 32-bit decimals; dates as yyyymmdd.
std::string MidValue(const TGMField& aField, const TcsVariant& aValue);
// The same, appended to aOut.
void AppendMidValue(std::string& aOut, const TGMField& aField, const TcsVariant& aValue);

// A float in the general form of at most 15 significant digits, "." as separator.
std::string GeneralFloat(double aValue);

// One open table.
class TMITable {
public:
    TMITable(std::string aName, int aKind) : Name_(std::move(aName)), Type_(aKind) {}

    // Makes both files in aFolder (with its trailing "/") from the template: the header of
    // the .mif and an empty .mid. Raises EInOutError naming the file.
    void Create(const std::string& aFolder, const std::vector<TGMField>& aTemplate, const std::string& aCoordSys);
    void NewRecord(bool aGraphic);
    // The first column of that name without regard to case; an unknown name is ignored.
    void SetField(std::string_view aName, const TcsVariant& aValue);
    // Text of the object clause: goes to the .mif as it stands.
    void WriteMif(std::string_view aText) { hdrMif.Write(aText); }
    void WriteMifLine(std::string_view aText) { hdrMif.WriteLine(aText); }
    void Post();
    // Both files on disk as far as written; raises EInOutError naming the file.
    void Flush() {
        hdrMif.Flush();
        hdrMid.Flush();
    }
    void Close();

    // The TAB side of the table: a TcsMapinfoTable at aPath (".tab" included), in the clause
    // and bounds given, with the columns mapped to MITAB's types. Alone it stands for the
    // pair of files; after Create the table writes both.
    void CreateTab(const std::string& aPath, const std::vector<TGMField>& aTemplate, const std::string& aCoordSys,
                   const TcsGeometryBounds& aBounds, TcsMapinfoTableError aOnError);
    // The feature of a row: none for a row without graphics, else by the kind (2 region,
    // 1 polyline, 10 point, anything else none).
    void NewTabRecord(bool aGraphic, int aKind);
    void WriteTabGeometry(const TcsGeometry& aGeometry);
    [[nodiscard]] bool HasMif() const noexcept { return hdrMif.IsOpen(); }
    [[nodiscard]] TcsMapinfoTable* Tab() const noexcept { return fTab.get(); }

    [[nodiscard]] int ColumnIndex(std::string_view aName) const;
    [[nodiscard]] const std::vector<TGMField>& Fields() const noexcept { return FieldList; }
    [[nodiscard]] const std::string& MifFileName() const noexcept { return hdrMif.FileName(); }
    [[nodiscard]] const std::string& MidFileName() const noexcept { return hdrMid.FileName(); }
    [[nodiscard]] int Rows() const noexcept { return fRows; }

    std::string Name_;
    int Type_;
    int counter = 0;

private:
    void SetTemplate(const std::vector<TGMField>& aTemplate);

    std::vector<TGMField> FieldList;
    std::vector<int> fFirstOfName;  // per column: the first column whose name folds to its name
    TcsAnsiTextFile hdrMif;
    TcsAnsiTextFile hdrMid;
    std::string strBuf;
    std::string fLine;  // the row being written
    int fRows = 0;
    std::unique_ptr<TcsMapinfoTable> fTab;
};

}  // namespace tmi
