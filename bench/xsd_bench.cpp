// The XSD library against references measured in the same process: the load of each real
// schema set against libxml2's compilation of the same root (xmlSchemaParse), and cached
// lookups of every element path of a real extract against a plain hash map of the same paths.
// usage: xsd_bench [SHARED_DATA]   (default ../shared/data)
#include <libxml/parser.h>
#include <libxml/xmlschemas.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "OXmlPDOM.h"
#include "bench_timing.h"
#include "csXSDLib.h"

using namespace tmi;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using tmi::bench::MedianMs;

namespace {

void Quiet(void*, const char*, ...) {}
void QuietStructured(void*, xmlError*) {}

std::vector<std::string> ElementPaths(const std::string& aFile) {
    xml::TXMLDocument doc;
    (void)doc.LoadFromFile(aFile);
    std::vector<std::string> paths;
    std::vector<std::pair<xml::PXMLNode, std::string>> stack{{doc.DocumentElement(), ""}};
    while (!stack.empty()) {
        auto [node, parent] = stack.back();
        stack.pop_back();
        const std::string path = parent + "/" + std::string(node->LocalName());
        paths.push_back(path);
        for (xml::PXMLNode c = node->FirstChild(); c; c = c->NextSibling())
            if (c->NodeType() == xml::ntElement) stack.emplace_back(c, path);
    }
    return paths;
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path data = argc > 1 ? fs::path(argv[1]) : fs::path("../shared/data");
    xmlSetGenericErrorFunc(nullptr, Quiet);
    xmlSetStructuredErrorFunc(nullptr, QuietStructured);
    const std::vector<std::string> roots = {"XSDSchemes/KPT_v10/KPT/KPT_v10.xsd", "XSDSchemes/V08_STD_KPT/STD_KPT.xsd",
                                            "XSDSchemes/KVZU_v07/KVZU/KVZU_v07.xsd", "XSDSchemes/MP_v06/MP_v06.xsd"};
    double ours = 0, theirs = 0;
    std::printf("%-45s %12s %12s\n", "set", "ours ms", "libxml2 ms");
    for (const std::string& r : roots) {
        const std::string file = (data / r).string();
        if (!fs::exists(file)) continue;
        const double a = MedianMs(7, [&] {
            TXSDLibraries set;
            set.LoadXSD(file);
        });
        const double b = MedianMs(7, [&] {
            xmlSchemaParserCtxtPtr ctxt = xmlSchemaNewParserCtxt(file.c_str());
            xmlSchemaPtr schema = xmlSchemaParse(ctxt);
            if (schema) xmlSchemaFree(schema);
            xmlSchemaFreeParserCtxt(ctxt);
        });
        std::printf("%-45s %12.2f %12.2f\n", r.c_str(), a, b);
        ours += a;
        theirs += b;
    }
    std::printf("xsd_load_ratio_vs_libxml2=%.3f\n", theirs > 0 ? ours / theirs : 0.0);

    // Lookups: every element path of a real KPT10 extract, asked 200 times over.
    std::vector<std::string> paths;
    for (const auto& e : fs::directory_iterator(data / "xml/KPT10")) {
        const auto p = ElementPaths(e.path().string());
        paths.insert(paths.end(), p.begin(), p.end());
    }
    TXSDLibraries set;
    TXSDLibrary* root = set.LoadXSD((data / "XSDSchemes/KPT_v10/KPT/KPT_v10.xsd").string());
    std::unordered_map<std::string, const void*> plain;
    for (const std::string& p : paths) plain.emplace(p, root->GetXSDElementByXPath(p));
    size_t hits = 0;
    const double cached = MedianMs(5, [&] {
        for (int k = 0; k < 200; ++k)
            for (const std::string& p : paths) hits += root->GetXSDElementByXPath(p) != nullptr;
    });
    const double map = MedianMs(5, [&] {
        for (int k = 0; k < 200; ++k)
            for (const std::string& p : paths) hits += plain.find(p)->second != nullptr;
    });
    std::printf("%zu lookups a round: cached %.2f ms, plain hash map %.2f ms (%zu hits)\n", paths.size() * 200, cached, map, hits);
    std::printf("xsd_lookup_ratio=%.3f\n", map > 0 ? cached / map : 0.0);
    return 0;
}
