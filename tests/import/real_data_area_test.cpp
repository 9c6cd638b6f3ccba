// The spatial reader over the parcels of the real extracts: each parcel's area, from its
// outer rings less the rings inside them, against the area the extract declares.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>

#include "import_test_util.h"
#include "libImportXML.h"

using namespace tmi;
using xml::PXMLNode;
namespace fs = std::filesystem;
using test::InCI;
using test::Shell;

namespace {

PXMLNode Child(PXMLNode aNode, std::string_view aLocal) {
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling())
        if (c->NodeType() == xml::ntElement && LocalNameOf(c) == aLocal) return c;
    return nullptr;
}

double ParcelArea(const TGrParcel& aParcel) {
    double area = 0;
    for (int i = 0; i < aParcel.Count(); ++i) {
        const TGrCont& c = *aParcel.Contour(i);
        if (c.IsDeleted) continue;
        area += c.IsInternal ? -ContourArea(c) : ContourArea(c);
    }
    return area;
}

struct Tally {
    int fParcels = 0;
    std::vector<std::string> fApart;
    void Check(const std::string& aNumber, double aDeclared, const TGrParcelRef& aParcel) {
        if (!aParcel || aDeclared <= 0) return;
        ++fParcels;
        const double computed = ParcelArea(*aParcel);
        if (std::fabs(computed - aDeclared) > std::max(0.01 * aDeclared, 1.0))
            fApart.push_back(aNumber + " declared " + FloatToStr(aDeclared) + " computed " + FloatToStr(std::round(computed * 100) / 100));
    }
};

// Classic parcels: Area/Area in square metres, EntitySpatial or Contours.
void Classic(TlibImportXML& aJob, PXMLNode aRoot, Tally& aTally) {
    PXMLNode n = aRoot;
    while (n) {
        if (n->NodeType() == xml::ntElement && LocalNameOf(n) == "Parcel") {
            PXMLNode area = Child(n, "Area");
            PXMLNode value = area ? Child(area, "Area") : nullptr;
            PXMLNode unit = area ? Child(area, "Unit") : nullptr;
            if (value && (!unit || unit->Text() == "055")) {
                TGrParcelRef parcel;
                for (PXMLNode c = n->FirstChild(); c && !parcel; c = c->NextSibling()) {
                    if (c->NodeType() != xml::ntElement) continue;
                    const std::string_view local = LocalNameOf(c);
                    if (local == "EntitySpatial" || local == "Entity_Spatial") parcel = aJob.ReadEntitySpatial(c);
                    else if (local == "Contours") parcel = aJob.ReadContours(c);
                }
                double declared = 0;
                TryStrToFloat(value->Text(), declared);
                aTally.Check(std::string(n->GetAttribute("CadastralNumber")), declared, parcel);
            }
        }
        if (n->FirstChild()) {
            n = n->FirstChild();
            continue;
        }
        while (n && n != aRoot && !n->NextSibling()) n = n->ParentNode();
        if (!n || n == aRoot) break;
        n = n->NextSibling();
    }
}

// New-family land records: params/area/value, contours_location/contours.
void NewFamily(TlibImportXML& aJob, PXMLNode aRoot, Tally& aTally) {
    xml::IXMLNodeListPtr records;
    aRoot->SelectNodes("//land_record", records);
    for (PXMLNode record : *records) {
        PXMLNode params = Child(record, "params");
        PXMLNode area = params ? Child(params, "area") : nullptr;
        PXMLNode value = area ? Child(area, "value") : nullptr;
        PXMLNode location = Child(record, "contours_location");
        if (!value || !location) continue;
        bool found = false;
        TGrParcelRef parcel = aJob.ReadContoursNew(location, true, false, found);
        PXMLNode numberNode = record->SelectNode("object/common_data/cad_number");
        const std::string number = numberNode ? numberNode->Text() : std::string();
        aTally.Check(number, TlibImportXML::LooseFloat(value->Text()), parcel);
    }
}

}  // namespace

TEST(RealDataArea, DeclaredAreasMatchTheRingsRead) {
    const fs::path data = fs::path(TM_SHARED_DATA) / "xml";
    if (!fs::exists(data)) {
        if (InCI()) FAIL() << "the shared test data is missing: " << data;
        GTEST_SKIP();
    }
    const std::map<std::string, double> limits = {{"KPT08", 0.08}, {"KPT10", 0.03}, {"KVZU07", 0.03}, {"KPT11", 0.03}};
    for (const auto& [kind, limit] : limits) {
        Tally tally;
        for (const auto& e : fs::directory_iterator(data / kind)) {
            xml::TXMLDocument doc;
            ASSERT_TRUE(doc.LoadFromFile(e.path().string()));
            TlibImportXML job;
            job.RewriteXML = true;
            job.fPoints = -2;  // no points recorded
            if (kind == "KPT11")
                NewFamily(job, doc.DocumentElement(), tally);
            else
                Classic(job, doc.DocumentElement(), tally);
        }
        const double share = tally.fParcels ? static_cast<double>(tally.fApart.size()) / tally.fParcels : 0;
        std::string list;
        for (const std::string& a : tally.fApart) list += "\n  " + a;
        std::printf("%s: %d parcels, %zu apart (%.1f%%)%s\n", kind.c_str(), tally.fParcels, tally.fApart.size(), share * 100,
                    list.c_str());
        EXPECT_GT(tally.fParcels, 0) << kind;
        EXPECT_LE(share, limit) << kind << list;
    }
}
