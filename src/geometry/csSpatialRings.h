// The rings of spatial elements: what the import job and the universal conversion both read
// out of a record. A contour's entity_spatial holds lists of spatial elements; each element is
// one ring of ordinates. The reader turns them into a TGrParcel, outer rings first and holes
// after, and tells whoever drives it of each ordinate and each long list as it goes (the job
// draws its progress, notes extremes and point rows there; a conversion needs none of it).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "OXmlPDOM.h"
#include "csGrParcel.h"

namespace tmi {

// What a reader tells as it goes. Each answer of false cancels the read, which then gives nil.
class TcsSpatialRingEvents {
public:
    virtual ~TcsSpatialRingEvents() = default;
    // Element aIndex (from 1) of a list of more than ten spatial elements begins.
    virtual bool SpatialElement(int aIndex, int aCount) { (void)aIndex, (void)aCount; return true; }
    // Child aIndex (from 1) of a contours list begins, before its name is looked at (only
    // when the read shows progress).
    virtual bool ContourListItem(int aIndex, int aCount) { (void)aIndex, (void)aCount; return true; }
    // A contour is about to be read.
    virtual bool ContourFound(xml::PXMLNode aContour, bool aShowProgress) { (void)aContour, (void)aShowProgress; return true; }
    // A contours list of aCount children was read through; false cancels (only a classic list
    // asks).
    virtual bool ContourListEnd(int aCount, bool aShowProgress) { (void)aCount, (void)aShowProgress; return true; }
    // One ordinate: x is the easting (the document's y), y the northing.
    virtual void Ordinate(double aX, double aY, xml::PXMLNode aOrdinate) { (void)aX, (void)aY, (void)aOrdinate; }
    // The classic family: a ring (Spatial_Element) begins, a unit (Spelement_Unit) of it
    // begins, and one ordinate of the unit with the delta that stands for it (the last one
    // given in the element when the ordinate has none; read only when rings are built).
    virtual void ClassicRing(xml::PXMLNode aRing) { (void)aRing; }
    virtual void ClassicUnit(xml::PXMLNode aUnit) { (void)aUnit; }
    virtual void ClassicOrdinate(double aX, double aY, xml::PXMLNode aOrdinate, double aDelta) {
        (void)aX, (void)aY, (void)aOrdinate, (void)aDelta;
    }
};

class TcsSpatialRings {
public:
    explicit TcsSpatialRings(TcsSpatialRingEvents* aEvents = nullptr) : fEvents(aEvents ? aEvents : &fQuiet) {}

    // The rings of one entity_spatial of the new family: each spatials_elements list in turn,
    // the last one deciding. aCheckClosed drops rings that do not end where they begin and
    // puts holes after their outer rings; without it several rings are all outer. aPrefixed
    // reads the "EnSpa2:" names of the boundary extracts.
    TGrParcelRef ReadEntitySpatialNew(xml::PXMLNode aNode, bool aCheckClosed, bool aPrefixed = false);
    // Every contour of the "contours" lists below aNode as one object: a ring inside another
    // is a hole of the first such ring; a ring equal to another is written once. aFound: a
    // ring was read. aShowProgress tells the contours as they come.
    TGrParcelRef ReadContoursNew(xml::PXMLNode aNode, bool aCheckClosed, bool aShowProgress, bool& aFound,
                                 bool aPrefixed = false);
    // The rings of one classic Entity_Spatial (either spelling): each Spatial_Element a ring
    // of its units' ordinates, X and Y attributes; aReversXY takes X as the easting. One ring
    // is the object; of several the largest is outer and each ring inside another a hole.
    // Raises on an ordinate whose numbers do not parse, and xml::EListError when the element
    // holds no ring.
    TGrParcelRef ReadEntitySpatialClassic(xml::PXMLNode aNode, bool aReversXY);
    // Every Contour of a classic Contours list as one object; nil when none has a ring.
    TGrParcelRef ReadContoursClassic(xml::PXMLNode aNode, bool aReversXY);
    // The rings gathered so far as one object: each ring inside another is a hole, holes last.
    TGrParcelRef SortContours();

    struct TEntry {
        TGrContRef fCont;
        int32_t fFlag = 1;  // 0 on the entry of the largest ring
    };
    // The rings of the element being read; a classic reader gathers its rings here too.
    std::vector<TEntry> SPList;
    void Clear() { SPList.clear(); }
    // The contour, entity and ring numbers the rings are stamped with.
    int32_t fcont = 0, fes = 0, freg = 0;
    // False: rings are read for their ordinates only, and nothing is built.
    bool Build = true;

private:
    TcsSpatialRingEvents fQuiet;
    TcsSpatialRingEvents* fEvents;
};

// A classic coordinate or delta: raises on text that is not a number.
double StrictSpatialFloat(std::string_view aText);
// A number of a spatial element: 0 for blank text; "." and "," both read as the decimal mark;
// 0 when it does not parse.
double SpatialFloat(std::string_view aText);
// Text of the first child whose name contains aName (case-sensitive); empty when none.
std::string ChildTextContaining(xml::PXMLNode aNode, std::string_view aName);

// The object as WKT: one polygon per outer ring with its holes (a hole goes to the ring it
// lies in, else to the outer ring before it); empty when there is no ring of three points.
std::string GrParcelWKT(const TGrParcel& aParcel);
// The same multipolygon as WKB (little-endian, two dimensions); empty where the WKT is.
std::string GrParcelWKB(const TGrParcel& aParcel);

}  // namespace tmi
