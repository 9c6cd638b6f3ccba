// Helpers shared by the document layer's tests.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "OXmlPDOM.h"

namespace tmi::xml::test {

// Loads text and returns the document; the caller checks the result through ParseError.
inline bool Load(TXMLDocument& aDoc, std::string_view aXML) { return aDoc.LoadFromBuffer(aXML.data(), aXML.size()); }

// The parse error's reason, or "" when the load succeeded.
inline std::string ErrorOf(std::string_view aXML) {
    TXMLDocument doc;
    if (Load(doc, aXML)) return {};
    return doc.ParseError()->Reason;
}

inline std::filesystem::path TempFile(const std::string& aName, std::string_view aContent) {
    const char* dir = std::getenv("TMPDIR");
    std::filesystem::path p = std::filesystem::path(dir && *dir ? dir : "/tmp") / ("tmi" + std::to_string(::getpid()) + "_xml_test_" + aName);
    std::ofstream(p, std::ios::binary).write(aContent.data(), static_cast<std::streamsize>(aContent.size()));
    return p;
}

inline std::filesystem::path SharedData() { return std::filesystem::path(TM_SHARED_DATA); }

inline bool InCI() {
    const char* ci = std::getenv("CI");
    return ci && std::string(ci) == "true";
}

}  // namespace tmi::xml::test
