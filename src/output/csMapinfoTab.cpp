#include "csMapinfoTab.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "csCommon.h"

namespace tmi {

std::string GeneralFloat(double aValue) { return std::isfinite(aValue) ? FloatToStr(aValue) : std::string("0"); }

namespace {

// The first aChars characters of a UTF-8 text.
std::string_view CutChars(std::string_view aText, size_t aChars) {
    size_t i = 0, chars = 0;
    while (i < aText.size()) {
        if (chars == aChars) return aText.substr(0, i);
        ++i;
        while (i < aText.size() && (static_cast<unsigned char>(aText[i]) & 0xC0) == 0x80) ++i;
        ++chars;
    }
    return aText;
}

int32_t AsInt32(const TcsVariant& aValue) {
    switch (aValue.Type()) {
        case TcsVarType::Float: {
            // Rounding as a variant conversion does: half to even.
            const double v = std::nearbyint(aValue.AsFloat());
            if (v > 2147483647.0 || v < -2147483648.0) return 0;
            return static_cast<int32_t>(v);
        }
        default: {
            const int64_t v = aValue.AsInteger();
            return static_cast<int32_t>(static_cast<uint32_t>(v));
        }
    }
}

std::string TextOf(const TcsVariant& aValue) {
    switch (aValue.Type()) {
        case TcsVarType::Float: return GeneralFloat(aValue.AsFloat());
        case TcsVarType::DateTime: {
            // A date given to a text column: dd.mm.yyyy; a zero date is empty.
            const TDateTime d = aValue.AsDateTime();
            if (d.fValue == 0) return {};
            int y, m, day, h, n, s, ms;
            DecodeDateTime(d, y, m, day, h, n, s, ms);
            char buf[16];
            std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", day, m, y);
            return buf;
        }
        default: return aValue.AsString();
    }
}

}  // namespace

void AppendMidValue(std::string& aOut, const TGMField& aField, const TcsVariant& aValue) {
    switch (aField.FieldType) {
        case ftText:
        case ftLongText: {
            std::string converted;
            const std::string* held = aValue.StringPtr();
            if (!held) {
                converted = TextOf(aValue);
                held = &converted;
            }
            // Quotes doubled, line breaks as spaces, then cut to the column's size in
            // characters: a doubled quote counts as two.
            const size_t limit = aField.FieldSize ? static_cast<size_t>(*aField.FieldSize) : SIZE_MAX;
            size_t chars = 0;
            bool first = true;
            // True while the character may start: the cut falls before the first one past the size.
            auto starts = [&](unsigned char aByte) {
                if (!first && (aByte & 0xC0) == 0x80) return true;  // a continuation byte goes with its character
                first = false;
                if (chars == limit) return false;
                ++chars;
                return true;
            };
            aOut += '"';
            for (const char c : *held) {
                if (c == '"') {
                    if (!starts('\'')) break;
                    aOut += '\'';
                    if (!starts('\'')) break;
                    aOut += '\'';
                } else {
                    const char out = (c == '\r' || c == '\n') ? ' ' : c;
                    if (!starts(static_cast<unsigned char>(out))) break;
                    aOut += out;
                }
            }
            aOut += '"';
            return;
        }
        case ftFloat: {
            const double v = aValue.AsFloat();
            if (std::isfinite(v))
                AppendFloat(aOut, v);
            else
                aOut += '0';
            return;
        }
        case ftInteger: {
            char buf[16];
            const auto r = std::to_chars(buf, buf + sizeof buf, AsInt32(aValue));
            aOut.append(buf, r.ptr);
            return;
        }
        case ftDate: {
            const TDateTime d = aValue.AsDateTime();
            int y, m, day, h, n, s, ms;
            DecodeDateTime(d, y, m, day, h, n, s, ms);
            char buf[16];
            std::snprintf(buf, sizeof buf, "%04d%02d%02d", y, m, day);
            aOut += buf;
            return;
        }
        default: return;
    }
}

std::string MidValue(const TGMField& aField, const TcsVariant& aValue) {
    std::string out;
    AppendMidValue(out, aField, aValue);
    return out;
}

void TMITable::SetTemplate(const std::vector<TGMField>& aTemplate) {
    FieldList.clear();
    for (const TGMField& f : aTemplate) {
        TGMField copy = f;
        copy.FieldValue.clear();
        if (copy.FieldType == ftLongText) copy.FieldSize = 150;
        FieldList.push_back(std::move(copy));
    }
    fFirstOfName.assign(FieldList.size(), 0);
    for (size_t i = 0; i < FieldList.size(); ++i) {
        size_t first = 0;
        while (!SameText(FieldList[first].FieldName, FieldList[i].FieldName)) ++first;
        fFirstOfName[i] = static_cast<int>(first);
    }
}

void TMITable::Create(const std::string& aFolder, const std::vector<TGMField>& aTemplate, const std::string& aCoordSys) {
    hdrMif.Rewrite(aFolder + Name_ + ".mif");
    hdrMif.WriteLine("Version 300");
    hdrMif.WriteLine("Charset \"WindowsCyrillic\"");
    hdrMif.WriteLine("Delimiter \",\"");
    hdrMif.WriteLine(aCoordSys);
    SetTemplate(aTemplate);
    int columns = 0;
    for (const TGMField& f : FieldList)
        if (!f.FieldGeom) ++columns;
    hdrMif.WriteLine("Columns " + std::to_string(columns));
    for (const TGMField& f : FieldList) {
        if (f.FieldGeom) continue;
        switch (f.FieldType) {
            case ftInteger: hdrMif.WriteLine(f.FieldName + " Integer"); break;
            case ftFloat: hdrMif.WriteLine(f.FieldName + " Float"); break;
            case ftLongText: hdrMif.WriteLine(f.FieldName + " Char(150)"); break;
            case ftText: {
                const int size = f.FieldSize.value_or(150);
                hdrMif.WriteLine(f.FieldName + " Char(" + std::to_string(size < 200 ? size : 150) + ")");
                break;
            }
            case ftDate: hdrMif.WriteLine(f.FieldName + " Date"); break;
            default: break;
        }
    }
    hdrMif.WriteLine("Data");
    hdrMif.WriteLine("");
    hdrMid.Rewrite(aFolder + Name_ + ".mid");
}

void TMITable::CreateTab(const std::string& aPath, const std::vector<TGMField>& aTemplate, const std::string& aCoordSys,
                         const TcsGeometryBounds& aBounds, TcsMapinfoTableError aOnError) {
    if (FieldList.empty()) SetTemplate(aTemplate);
    fTab = std::make_unique<TcsMapinfoTable>();
    fTab->FFileName = aPath;
    fTab->FCoordSysString = aCoordSys;
    fTab->Bounds().Assign(aBounds);
    fTab->FTagName = Name_;
    fTab->FOnError = std::move(aOnError);
    fTab->CreateTable("tab");
    for (const TGMField& f : aTemplate) {
        if (f.FieldGeom) continue;
        switch (f.FieldType) {
            case ftInteger: fTab->AddField(f.FieldName, TABFT_Integer, false, false, 0, 8); break;
            case ftFloat: fTab->AddField(f.FieldName, TABFT_Float, false, false, 0, 8); break;
            case ftDate: fTab->AddField(f.FieldName, TABFT_Date, false, false, 0, 8); break;
            case ftText: {
                const int size = f.FieldSize.value_or(150);
                fTab->AddField(f.FieldName, TABFT_Char, false, false, 0, size < 200 ? size : 150);
                break;
            }
            case ftLongText: fTab->AddField(f.FieldName, TABFT_Char, false, false, 0, 150); break;
            default: break;
        }
    }
}

void TMITable::NewTabRecord(bool aGraphic, int aKind) {
    if (!fTab) return;
    int feature = TABFC_NoGeom;
    if (aGraphic) {
        switch (aKind) {
            case 2: feature = TABFC_Region; break;
            case 1: feature = TABFC_Polyline; break;
            case 10: feature = TABFC_Point; break;
            default: feature = TABFC_NoGeom; break;
        }
    }
    fTab->CreateFeature(feature);
}

void TMITable::WriteTabGeometry(const TcsGeometry& aGeometry) {
    if (fTab) fTab->WriteGeometry(aGeometry);
}

void TMITable::NewRecord(bool aGraphic) {
    if (!HasMif()) return;
    if (!aGraphic) hdrMif.WriteLine("none");
    strBuf.clear();
    for (TGMField& f : FieldList) f.FieldValue.clear();
}

int TMITable::ColumnIndex(std::string_view aName) const {
    // The first column whose name matches without regard to case: "Имя" before "имя". The
    // readers give the catalogue's spelling, so an exact match is looked for first and
    // stands for the first column its name folds to, which Create worked out once.
    for (size_t i = 0; i < FieldList.size(); ++i)
        if (FieldList[i].FieldName == aName) return fFirstOfName[i];
    for (size_t i = 0; i < FieldList.size(); ++i)
        if (SameText(FieldList[i].FieldName, aName)) return static_cast<int>(i);
    return -1;
}

void TMITable::SetField(std::string_view aName, const TcsVariant& aValue) {
    const int i = ColumnIndex(aName);
    if (i < 0) return;
    TGMField& f = FieldList[static_cast<size_t>(i)];
    if (f.FieldGeom) return;
    if (HasMif()) {
        f.FieldValue.clear();
        AppendMidValue(f.FieldValue, f, aValue);
    }
    if (!fTab) return;
    // The TAB takes text: cut to the column's size, floats and integers as the MID has them,
    // dates as the short date; long text is not carried.
    switch (f.FieldType) {
        case ftText: {
            const int size = f.FieldSize.value_or(150);
            fTab->SetFieldValue(std::string(CutChars(TextOf(aValue), static_cast<size_t>(size < 200 ? size : 150))), f.FieldName);
            break;
        }
        case ftFloat: fTab->SetFieldValue(GeneralFloat(aValue.AsFloat()), f.FieldName); break;
        case ftInteger: fTab->SetFieldValue(std::to_string(AsInt32(aValue)), f.FieldName); break;
        case ftDate: {
            const TDateTime d = aValue.AsDateTime();
            fTab->SetFieldValue(d.fValue == 0 ? std::string() : TextOf(TcsVariant(d)), f.FieldName);
            break;
        }
        default: break;
    }
}

void TMITable::Post() {
    if (fTab && !HasMif()) {
        // The table alone waits a moment around freeing each feature, as it always has.
        fTab->WriteActiveFeature();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        fTab->DestroyActiveFeature();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ++fRows;
        return;
    }
    if (fTab) {
        fTab->WriteActiveFeature();
        fTab->DestroyActiveFeature();
    }
    // The line is built in a buffer the table keeps, so that a row costs no allocation.
    std::string& line = fLine;
    line.clear();
    for (const TGMField& f : FieldList) {
        if (f.FieldGeom) continue;
        std::string_view value = f.FieldValue;
        if (value.empty()) {
            if (f.FieldType == ftText || f.FieldType == ftLongText)
                value = "\"\"";
            else if (f.FieldType == ftDate)
                value = {};
            else
                value = "0";
        }
        // A comma only when the line so far is not empty.
        if (!line.empty()) line += ',';
        line += value;
    }
    hdrMid.WriteLine(line);
    ++fRows;
}

void TMITable::Close() {
    if (fTab) {
        fTab->CloseTable();
        fTab.reset();
    }
    Name_.clear();
    hdrMif.Close();
    hdrMid.Close();
    FieldList.clear();
    fFirstOfName.clear();
}

}  // namespace tmi
