// The classic plan reader: the document header, the certificate, and the walk of packages,
// regions, blocks and parcels.
#include <cstdio>

#include "libImportXML.h"

namespace tmi {

namespace {

bool TryDate(const std::string& aText, TDateTime& aDate) {
    // DD.MM.YYYY only: two digits, a point, two digits, a point, four digits.
    int d = 0, m = 0, y = 0;
    char tail = 0;
    if (aText.size() != 10 || aText[2] != '.' || aText[5] != '.') return false;
    if (std::sscanf(aText.c_str(), "%2d.%2d.%4d%c", &d, &m, &y, &tail) != 3) return false;
    TDateTime probe;
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", d, m, y);
    if (!TryStrToDateTime(buf, probe)) return false;
    aDate = probe;
    return true;
}

// Characters aFrom..aFrom+aCount-1 (1-based), as far as the text reaches.
std::string Chars(const std::string& aText, size_t aFrom, size_t aCount) {
    return aFrom - 1 < aText.size() ? aText.substr(aFrom - 1, aCount) : std::string();
}

}  // namespace

TDateTime TlibImportXML::ParseXmlDate(std::string_view aText) {
    const std::string text(aText);
    if (text.empty()) return TDateTime{};
    TDateTime date;
    if (TryDate(Chars(text, 1, 2) + "." + Chars(text, 4, 2) + "." + Chars(text, 7, 4), date)) return date;
    if (TryDate(Chars(text, 9, 2) + "." + Chars(text, 6, 2) + "." + Chars(text, 1, 4), date)) return date;
    return TDateTime{};
}

int32_t TlibImportXML::ReadEDocument(xml::PXMLNode aNode) {
    XMLeDoc.DocType = std::string(aNode->GetAttribute("CodeType"));
    XMLeDoc.DocVer = std::string(aNode->GetAttribute("Version"));
    for (xml::PXMLNode child = aNode->FirstChild(); child; child = child->NextSibling()) {
        if (child->NodeType() != xml::ntElement) continue;
        if (NameContains(child, "Sender")) {
            XMLeDoc.SenderName = std::string(child->GetAttribute("Name"));
            XMLeDoc.SenderDate = ParseXmlDate(child->GetAttribute("Date_Upload"));
            fDu = XMLeDoc.SenderDate;
        } else if (NameContains(child, "Recipient")) {
            XMLeDoc.Recipient = std::string(child->GetAttribute("Name"));
        }
    }
    // The strict conversion: a document without a numeric code raises.
    int64_t code = 0;
    if (!TryStrToInt(XMLeDoc.DocType, code) || code < INT32_MIN || code > INT32_MAX)
        throw Exception("'" + XMLeDoc.DocType + "' is not a valid integer value");
    return static_cast<int32_t>(code);
}

void TlibImportXML::ReadCertificationDoc(xml::PXMLNode aNode) {
    for (xml::PXMLNode child = aNode->FirstChild(); child; child = child->NextSibling()) {
        if (child->NodeType() != xml::ntElement) continue;
        if (NameContains(child, "Organization"))
            XMLSert.Organization = child->Text();
        else if (NameContains(child, "Date"))
            XMLSert.Date = ParseXmlDate(child->Text());
        else if (NameContains(child, "Number"))
            XMLSert.Number = child->Text();
        else if (NameContains(child, "Appointment"))
            XMLSert.Appointment = child->Text();
        else if (NameContains(child, "FIO"))
            XMLSert.FIO = child->Text();
    }
}

// The classic walk of packages, regions, blocks and parcels is read by the classic plan
// reader; until it exists these elements yield no rows.
void TlibImportXML::ReadPackage(xml::PXMLNode) {}
void TlibImportXML::ReadRegionLevel(xml::PXMLNode) {}
void TlibImportXML::ReadParcel(xml::PXMLNode, std::string_view) {}

}  // namespace tmi
