// The MIF/MID writer: the header, the value forms, rows without values, recoding, and the
// catalogue of the thirteen tables.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "code_pages.h"
#include "csTableCatalogue.h"

using namespace tmi;

namespace {

TGMField Text(int aSize) {
    TGMField f;
    f.FieldName = "T";
    f.FieldType = ftText;
    f.FieldSize = aSize;
    return f;
}

TGMField Typed(int aType) {
    TGMField f;
    f.FieldName = "N";
    f.FieldType = aType;
    return f;
}

std::string ReadUtf8(const std::string& aPath) {
    std::ifstream in(aPath, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    std::string out;
    xml::AppendWindows1251AsUTF8(s.str().data(), s.str().size(), out);
    return out;
}

std::string TempFolder(const std::string& aName) {
    const auto dir = std::filesystem::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_writer_" + aName);
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir.string() + "/";
}

}  // namespace

TEST(WriterValues, TextIsQuotedEscapedAndCut) {
    EXPECT_EQ(MidValue(Text(50), TcsVariant("ООО \"Ромашка\"")), "\"ООО ''Ромашка''\"");
    EXPECT_EQ(MidValue(Text(50), TcsVariant("a\r\nb\nc")), "\"a  b c\"");
    EXPECT_EQ(MidValue(Text(5), TcsVariant("Точка")), "\"Точка\"");   // exactly the size: not cut
    EXPECT_EQ(MidValue(Text(5), TcsVariant("Точкаx")), "\"Точка\"");  // one more: cut
    EXPECT_EQ(MidValue(Text(5), TcsVariant("ab\"cd")), "\"ab''c\"");   // the replacement counts
    EXPECT_EQ(MidValue(Text(50), TcsVariant("a\\b,c")), "\"a\\b,c\"");  // no other escaping
    EXPECT_EQ(MidValue(Text(12), TcsVariant(EncodeDateTime(2023, 10, 21))), "\"21.10.2023\"");
    EXPECT_EQ(MidValue(Text(12), TcsVariant(TDateTime{})), "\"\"");
    EXPECT_EQ(MidValue(Text(12), TcsVariant(2.5)), "\"2.5\"");
}

TEST(WriterValues, NumbersAndDates) {
    EXPECT_EQ(MidValue(Typed(ftFloat), TcsVariant(100.0)), "100");
    EXPECT_EQ(MidValue(Typed(ftFloat), TcsVariant(0.1)), "0.1");
    EXPECT_EQ(MidValue(Typed(ftFloat), TcsVariant(392781.63)), "392781.63");
    EXPECT_EQ(MidValue(Typed(ftFloat), TcsVariant(1.0 / 3)), "0.333333333333333");
    EXPECT_EQ(MidValue(Typed(ftFloat), TcsVariant(1e20)), "1E20");
    EXPECT_EQ(MidValue(Typed(ftFloat), TcsVariant(-1.5e-7)), "-1.5E-7");
    EXPECT_EQ(MidValue(Typed(ftFloat), TcsVariant("12.5")), "12.5");
    EXPECT_EQ(MidValue(Typed(ftInteger), TcsVariant(42)), "42");
    EXPECT_EQ(MidValue(Typed(ftInteger), TcsVariant(true)), "1");
    EXPECT_EQ(MidValue(Typed(ftInteger), TcsVariant(2.5)), "2");
    EXPECT_EQ(MidValue(Typed(ftInteger), TcsVariant("7")), "7");
    EXPECT_EQ(MidValue(Typed(ftDate), TcsVariant(EncodeDateTime(2001, 3, 26))), "20010326");
    EXPECT_EQ(GeneralFloat(-0.0), "0");
}

TEST(WriterTable, HeaderRowsAndRecoding) {
    const std::string folder = TempFolder("table");
    std::vector<TGMField> fields;
    TGMField geom;
    geom.FieldName = "Geometry";
    geom.FieldType = ftGeometry;
    geom.FieldGeom = true;
    TGMField id = Typed(ftInteger);
    id.FieldName = "TableId";
    TGMField name = Text(250);
    name.FieldName = "Название";
    TGMField area = Typed(ftFloat);
    area.FieldName = "Площадь";
    TGMField memo = Typed(ftLongText);
    memo.FieldName = "Memo";
    TGMField when = Typed(ftDate);
    when.FieldName = "When";
    fields = {id, geom, name, area, memo, when};
    TMITable t("Проба", 2);
    t.Create(folder, fields, "CoordSys NonEarth Units \"m\" Bounds (0,0) (1,1)");
    t.NewRecord(false);
    t.SetField("название", TcsVariant("Ёлка € \"1\""));
    t.SetField("Нет такой", TcsVariant(5));  // ignored, without a word
    t.Post();
    t.NewRecord(false);
    t.Post();
    t.NewRecord(true);
    t.WriteMifLine("Point 1 2");
    t.SetField("TableId", TcsVariant(3));
    t.SetField("Площадь", TcsVariant(100.0));
    t.Post();
    t.Close();
    EXPECT_EQ(ReadUtf8(folder + "Проба.mif"),
              "Version 300\r\nCharset \"WindowsCyrillic\"\r\nDelimiter \",\"\r\n"
              "CoordSys NonEarth Units \"m\" Bounds (0,0) (1,1)\r\nColumns 5\r\nTableId Integer\r\n"
              "Название Char(150)\r\nПлощадь Float\r\nMemo Char(150)\r\nWhen Date\r\nData\r\n\r\n"
              "none\r\nnone\r\nPoint 1 2\r\n");
    // "€" is in Windows-1251; the raw bytes are checked for a character that is not.
    EXPECT_EQ(ReadUtf8(folder + "Проба.mid"),
              "0,\"Ёлка € ''1''\",0,\"\",\r\n0,\"\",0,\"\",\r\n3,\"\",100,\"\",\r\n");
}

// Names compare without regard to case and the first column that matches is filled, even
// when a later one has the exact spelling.
TEST(WriterTable, TheFirstColumnOfANameWins) {
    const std::string folder = TempFolder("names");
    TGMField upper = Text(10), lower = Text(10);
    upper.FieldName = "Имя";
    lower.FieldName = "имя";
    TMITable t("Имена", 2);
    t.Create(folder, {upper, lower}, "CoordSys");
    t.NewRecord(false);
    t.SetField("имя", TcsVariant("a"));
    t.Post();
    t.Close();
    EXPECT_EQ(ReadUtf8(folder + "Имена.mid"), "\"a\",\"\"\r\n");
}

TEST(WriterTable, CharactersOutsideTheCodePageBecomeQuestionMarks) {
    std::string out;
    AppendAsWindows1251(out, "Дом \xE2\x84\x96 5 \xF0\x9F\x98\x80 \xE4\xB8\xAD");
    EXPECT_EQ(out, "\xC4\xEE\xEC \xB9 5 ? ?");
}

TEST(WriterTable, UnwritableFolderNamesTheFile) {
    TMITable t("X", 1);
    try {
        t.Create("/nonexistent/folder/", {}, "CoordSys");
        FAIL();
    } catch (const EInOutError& e) {
        EXPECT_NE(std::string(e.what()).find("/nonexistent/folder/X.mif"), std::string::npos);
    }
}

TEST(Catalogue, ThirteenTablesInOrderWithTheirColumns) {
    const auto tables = TableCatalogue();
    std::vector<std::string> names;
    for (const auto& t : tables) names.push_back(t.fName);
    EXPECT_EQ(names, (std::vector<std::string>{"Участки", "ЧастиУчастка", "Объекты", "Точки", "ТочкиОМС", "Квартал",
                                               "Границы", "Зоны", "Спецзоны", "Смежники", "СтарыеКадНомера",
                                               "НовыеКадНомера", "Паспорт"}));
    std::vector<size_t> counts;
    for (const auto& t : tables) counts.push_back(t.fColumns.size());
    EXPECT_EQ(counts, (std::vector<size_t>{40, 25, 28, 9, 12, 11, 25, 28, 5, 7, 5, 5, 5}));
    // Geometry in second place, third in the parcel parts; none in the lists of numbers.
    EXPECT_EQ(TableTemplate(tables[0])[1].FieldName, "Geometry");
    EXPECT_EQ(TableTemplate(tables[1])[2].FieldName, "Geometry");
    EXPECT_EQ(TableTemplate(tables[12]).size(), 5u);
    EXPECT_FALSE(TableTemplate(tables[3])[0].FieldKey);  // "Точки" has no key
    EXPECT_TRUE(TableTemplate(tables[4])[0].FieldKey);
    // "НомераУчастков" keeps its limit of 250 behind a header of Char(150).
    const auto zones = TableTemplate(tables[7]);
    const auto it = std::find_if(zones.begin(), zones.end(), [](const TGMField& f) { return f.FieldName == "НомераУчастков"; });
    ASSERT_NE(it, zones.end());
    EXPECT_EQ(it->FieldSize, 250);
    EXPECT_EQ(MidValue(*it, TcsVariant(std::string(300, 'x'))).size(), 252u);
}
