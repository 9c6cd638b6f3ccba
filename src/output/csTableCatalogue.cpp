// The table catalogue. Names of tables and columns are the vocabulary of the users' own
// queries and maps: they stay exactly as they are.
#include "csTableCatalogue.h"

namespace tmi {

namespace {

constexpr int I = ftInteger;
constexpr int F = ftFloat;
constexpr int C = ftText;

constexpr TGMColumnDecl kParcels[] = {
    {"TableId", I, 0}, {"КадастровыйБлок", C, 50}, {"КадастровыйНомер", C, 50}, {"КНомер", C, 50},
    {"НомерЕЗ", C, 50}, {"IsGraphic", I, 0}, {"Вид", C, 50}, {"СтатусУчастка", C, 50}, {"Дата1", C, 12},
    {"Дата2", C, 12}, {"Katzem", I, 0}, {"Категория", C, 190}, {"РазрИспользование", C, 190},
    {"Примечание", C, 190}, {"Наименование", C, 190}, {"Местоположение", C, 190}, {"ОКАТО", C, 40},
    {"КЛАДР", C, 40}, {"Землепользователь", C, 190}, {"ТипПлощади1", C, 50}, {"Площадь1", F, 0},
    {"НомерОснования", C, 150}, {"Получатель", C, 190}, {"Отправитель", C, 190}, {"ДатаВыгрузки", C, 12},
    {"КадастроваяСтоимость", F, 0}, {"ЕИКС", C, 50}, {"ДатаКС", C, 12}, {"ВидПрава", C, 190},
    {"Обременения", C, 190}, {"SpecialNote", C, 190}, {"SenderName", C, 190}, {"SenderDate", C, 12},
    {"Recipient", C, 190}, {"ContDate", C, 12}, {"ContGUID", C, 190}, {"iBlock", C, 50}, {"iParcel", C, 50},
    {"iUser", C, 50}, {"TempId", F, 0}};

constexpr TGMColumnDecl kParcelParts[] = {
    {"TableId", I, 0}, {"КодУчастка", I, 0}, {"КадастровыйНомер", C, 50}, {"УчетныйНомер", C, 50},
    {"IsGraphic", I, 0}, {"КадНомер", C, 50}, {"НомерЕЗ", C, 50}, {"Дата", C, 12}, {"Статус", C, 50},
    {"Весь", C, 50}, {"ДатаКонца", C, 12}, {"Назначение", C, 190}, {"Сервитут", C, 190},
    {"ТипПлощади1", C, 50}, {"Площадь1", F, 0}, {"ТипПлощади2", C, 50}, {"Площадь2", F, 0},
    {"ТипПлощади3", C, 50}, {"Площадь3", F, 0}, {"ContDate", C, 12}, {"ContGUID", C, 190}, {"iBlock", C, 50},
    {"iParcel", C, 50}, {"iUser", C, 50}, {"TempId", F, 0}};

constexpr TGMColumnDecl kObjects[] = {
    {"TableId", I, 0}, {"КадастровыйНомер", C, 50}, {"УчетныйНомер", C, 50}, {"IsGraphic", I, 0},
    {"КадНомер", C, 50}, {"ВидТекст", C, 50}, {"Назначение", C, 190}, {"Площадь", F, 0},
    {"Местоположение", C, 190}, {"ОКАТО", C, 50}, {"КЛАДР", C, 50}, {"КадастроваяСтоимость", F, 0},
    {"ЕИКС", C, 50}, {"ВидХ1", C, 50}, {"Характеристика1", F, 0}, {"ВидХ2", C, 50}, {"Характеристика2", F, 0},
    {"ВидХ3", C, 50}, {"Характеристика3", F, 0}, {"ВидХ4", C, 50}, {"Характеристика4", F, 0},
    {"ВидХ5", C, 50}, {"Характеристика5", F, 0}, {"ContDate", C, 12}, {"ContGUID", C, 190}, {"iBlock", C, 50},
    {"iParcel", C, 50}, {"iUser", C, 50}};

constexpr TGMColumnDecl kPoints[] = {
    {"TableId", I, 0}, {"ПорядковыйНомер", C, 50}, {"X", F, 0}, {"Y", F, 0}, {"Погрешность", F, 0},
    {"КадастровыйНомер", C, 50}, {"iBlock", C, 50}, {"iParcel", C, 50}, {"iUser", C, 50}};

constexpr TGMColumnDecl kSurveyPoints[] = {
    {"TableId", I, 0}, {"Номер", C, 50}, {"Название", C, 190}, {"Класс", C, 190}, {"X", F, 0}, {"Y", F, 0},
    {"КадастровыйНомер", C, 50}, {"ContDate", C, 12}, {"ContGUID", C, 190}, {"iBlock", C, 50},
    {"iParcel", C, 50}, {"iUser", C, 50}};

constexpr TGMColumnDecl kBlocks[] = {
    {"TableId", I, 0}, {"КадастровыйНомер", C, 50}, {"Площадь", F, 0}, {"ЕдИзм", C, 10}, {"Примечание", C, 190},
    {"ContDate", C, 12}, {"ContGUID", C, 190}, {"iBlock", C, 50}, {"iParcel", C, 50}, {"iUser", C, 50},
    {"TempId", F, 0}};

constexpr TGMColumnDecl kBounds[] = {
    {"TableId", I, 0}, {"ВидГраницы", C, 100}, {"Название", C, 190}, {"УчетныйНомер", C, 100},
    {"ДокТип1", C, 150}, {"ДокНазвание1", C, 150}, {"ДокНомер1", C, 45}, {"ДокДата1", C, 12},
    {"ДокОрган1", C, 190}, {"ДокТип2", C, 150}, {"ДокНазвание2", C, 150}, {"ДокНомер2", C, 45},
    {"ДокДата2", C, 12}, {"ДокОрган2", C, 190}, {"ДокТип3", C, 150}, {"ДокНазвание3", C, 150},
    {"ДокНомер3", C, 45}, {"ДокДата3", C, 12}, {"ДокОрган3", C, 190}, {"КадастровыйНомер", C, 50},
    {"ContDate", C, 12}, {"ContGUID", C, 190}, {"iBlock", C, 50}, {"iParcel", C, 50}, {"iUser", C, 50}};

// "НомераУчастков" is declared with 250: its values may be that long, while the header says
// Char(150).
constexpr TGMColumnDecl kZones[] = {
    {"TableId", I, 0}, {"IsGraphic", I, 0}, {"ТипГраницы", C, 100}, {"ВидЗоны", C, 100}, {"Содержание", C, 190},
    {"УчетныйНомер", C, 100}, {"ДокТип1", C, 150}, {"ДокНазвание1", C, 150}, {"ДокНомер1", C, 45},
    {"ДокДата1", C, 12}, {"ДокОрган1", C, 190}, {"ДокТип2", C, 150}, {"ДокНазвание2", C, 150},
    {"ДокНомер2", C, 45}, {"ДокДата2", C, 12}, {"ДокОрган2", C, 190}, {"ДокТип3", C, 150},
    {"ДокНазвание3", C, 150}, {"ДокНомер3", C, 45}, {"ДокДата3", C, 12}, {"ДокОрган3", C, 190},
    {"НомераУчастков", C, 250}, {"ContDate", C, 12}, {"ContGUID", C, 190}, {"iBlock", C, 50},
    {"iParcel", C, 50}, {"iUser", C, 50}, {"TempId", F, 0}};

constexpr TGMColumnDecl kSpecialZones[] = {
    {"TableId", I, 0}, {"Название", C, 190}, {"iBlock", C, 50}, {"iParcel", C, 50}, {"iUser", C, 50}};

constexpr TGMColumnDecl kNeighbours[] = {
    {"TableId", I, 0}, {"КадастровыйНомер", C, 50}, {"Адрес", C, 190}, {"Email", C, 100},
    {"iBlock", C, 50}, {"iParcel", C, 50}, {"iUser", C, 50}};

constexpr TGMColumnDecl kNumbers[] = {
    {"TableId", I, 0}, {"КадастровыйНомер", C, 50}, {"iBlock", C, 50}, {"iParcel", C, 50}, {"iUser", C, 50}};

constexpr TGMColumnDecl kPassport[] = {
    {"TableId", I, 0}, {"IsKpt", I, 0}, {"iBlock", C, 50}, {"iParcel", C, 50}, {"iUser", C, 50}};

constexpr TGMTableDecl kTables[] = {
    {"Участки", 2, true, 1, true, kParcels},
    {"ЧастиУчастка", 2, true, 2, true, kParcelParts},
    {"Объекты", 1, true, 1, true, kObjects},
    {"Точки", 10, true, 1, false, kPoints},
    {"ТочкиОМС", 10, true, 1, true, kSurveyPoints},
    {"Квартал", 2, true, 1, true, kBlocks},
    {"Границы", 3, true, 1, true, kBounds},
    {"Зоны", 2, true, 1, true, kZones},
    {"Спецзоны", 3, false, 0, true, kSpecialZones},
    {"Смежники", 3, false, 0, true, kNeighbours},
    {"СтарыеКадНомера", 3, false, 0, true, kNumbers},
    {"НовыеКадНомера", 3, false, 0, true, kNumbers},
    {"Паспорт", 3, false, 0, true, kPassport},
};

}  // namespace

std::span<const TGMTableDecl> TableCatalogue() { return kTables; }

std::vector<TGMField> TableTemplate(const TGMTableDecl& aTable) {
    std::vector<TGMField> fields;
    int at = 0;
    for (const TGMColumnDecl& c : aTable.fColumns) {
        if (aTable.fSpatial && at == aTable.fGeometryAt) {
            TGMField g;
            g.FieldName = "Geometry";
            g.FieldType = ftGeometry;
            g.FieldGeom = true;
            fields.push_back(std::move(g));
        }
        TGMField f;
        f.FieldName = c.fName;
        f.FieldType = c.fType;
        if (c.fType == ftText || c.fType == ftLongText) f.FieldSize = c.fSize;
        const bool key = aTable.fTableIdIsKey && f.FieldName == "TableId";
        f.FieldKey = key;
        f.FieldPrimaryKey = key;
        fields.push_back(std::move(f));
        ++at;
    }
    return fields;
}

}  // namespace tmi
