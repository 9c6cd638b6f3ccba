// The table layer: the readers declare, open and fill tables by name; the files are the
// output subsystem's.
#include "csTableCatalogue.h"
#include "libImportXML.h"
#include "xml_errors.h"

namespace tmi {

void TlibImportXML::ClearGMFields() {
    FieldList.clear();
    fGraphic = false;
}

void TlibImportXML::AddGMField(std::string_view aName, int aType, bool aGeometry, bool aPrimaryKey, bool aKey, int aSize) {
    TGMField f;
    f.FieldName = std::string(aName);
    f.FieldType = aType;
    if (aType == ftText || aType == ftLongText) f.FieldSize = aSize;
    f.FieldGeom = aGeometry;
    f.FieldPrimaryKey = aPrimaryKey;
    f.FieldKey = aKey;
    FieldList.push_back(std::move(f));
    if (aGeometry) fGraphic = true;
}

void TlibImportXML::CreateGMTable(std::string_view aName, int aKind) {
    auto table = std::make_unique<TMITable>(std::string(aName), aKind);
    const std::string coordSys = nspec > 0 && !specAr.empty() ? "CoordSys Earth Projection " + specAr[0].csmapinfo : miCoordSys;
    // 0: the pair of MIF/MID files; 1: a TAB table instead, in the job's clause; 2: both.
    if (fWriteStyle != 1) table->Create(OutputFolder(), FieldList, coordSys);
    if (fWriteStyle == 1 || fWriteStyle == 2) {
        TcsGeometryBounds bounds;
        bounds.SetXMin(csXmin);
        bounds.SetYMin(csYmin);
        bounds.SetXMax(csXmax);
        bounds.SetYMax(csYmax);
        // An error of the library ends the file, as a file that cannot be written does.
        table->CreateTab(OutputFolder() + std::string(aName) + ".tab", FieldList, fWriteStyle == 1 ? miCoordSys : coordSys,
                         bounds, [](TcsMapinfoTable&, const std::string& aText) { throw EInOutError(aText); });
    }
    fMITables.push_back(std::move(table));
}

void TlibImportXML::CreateGMTables() {
    for (const TGMTableDecl& decl : TableCatalogue()) {
        ClearGMFields();
        for (const TGMField& f : TableTemplate(decl))
            AddGMField(f.FieldName, f.FieldType, f.FieldGeom, f.FieldPrimaryKey, f.FieldKey, f.FieldSize.value_or(0));
        CreateGMTable(decl.fName, decl.fKind);
    }
    ClearGMFields();
}

void TlibImportXML::OpenGMTable(std::string_view aName) {
    fListInd = -1;
    for (size_t i = 0; i < fMITables.size(); ++i)
        if (SameText(fMITables[i]->Name_, aName)) {
            fListInd = static_cast<int32_t>(i);
            fSpType = fMITables[i]->Type_;
            break;
        }
    fGraphic = false;
    fTabName = std::string(aName);
}

TMITable& TlibImportXML::OpenTable() {
    if (fListInd < 0 || fListInd >= static_cast<int32_t>(fMITables.size())) throw xml::EListError();
    return *fMITables[static_cast<size_t>(fListInd)];
}

void TlibImportXML::NewGMRecord(bool aGraphic, int8_t aKind) {
    fTypeGr = aKind;
    TMITable& table = OpenTable();
    table.NewRecord(aGraphic);
    table.NewTabRecord(aGraphic, aKind);
}

void TlibImportXML::SetGMField(std::string_view aName, const TcsVariant& aValue) { OpenTable().SetField(aName, aValue); }

void TlibImportXML::PostGMRecord() { OpenTable().Post(); }

// The columns of a parcel's row that both families fill alike.
void TlibImportXML::SetParcelColumns(const TXMLParcel& p, const std::string& aHolders) {
    SetGMField("НомерЕЗ", TcsVariant(p.NumberEZ));
    SetGMField("СтатусУчастка", TcsVariant(p.Status));
    SetGMField("Дата1", TcsVariant(p.Date1));
    SetGMField("Дата2", TcsVariant(p.Date2));
    SetGMField("Katzem", TcsVariant(p.Katzem));
    SetGMField("Категория", TcsVariant(p.Category));
    SetGMField("РазрИспользование", TcsVariant(p.Mean));
    SetGMField("Примечание", TcsVariant(p.Remarka));
    SetGMField("Наименование", TcsVariant(p.Name_));
    SetGMField("Местоположение", TcsVariant(p.Place));
    SetGMField("ОКАТО", TcsVariant(p.OKATO));
    SetGMField("КЛАДР", TcsVariant(p.KLADR));
    SetGMField("Землепользователь", TcsVariant(aHolders));
    for (int i = 0; i < 3 && i < p.AreaCnt; ++i) {
        SetGMField("ТипПлощади" + std::to_string(i + 1), TcsVariant(p.XMLArea[static_cast<size_t>(i)].TypeStr));
        SetGMField("Площадь" + std::to_string(i + 1), TcsVariant(p.XMLArea[static_cast<size_t>(i)].Value));
    }
}

}  // namespace tmi
