// Loads one file with one parser several times and prints the load time of each run and
// the process's peak resident memory. Run once per parser, so that peaks don't mix.
//
// usage: xml_load_bench ours|pugixml|libxml2 FILE [RUNS]
#include <libxml/parser.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>
#include <string>

#include "OXmlPDOM.h"

namespace {

long PeakRSSKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Counts elements, so that every parser's result is used and can be compared.
size_t LoadOurs(const char* aFile) {
    tmi::xml::TXMLDocument doc;
    if (!doc.LoadFromFile(aFile)) {
        std::fprintf(stderr, "parse error: %s\n", doc.ParseError()->ErrorReport().c_str());
        std::exit(1);
    }
    return doc.NodeCount();
}

size_t LoadPugi(const char* aFile) {
    pugi::xml_document doc;
    const pugi::xml_parse_result r = doc.load_file(aFile);
    if (!r) {
        std::fprintf(stderr, "pugixml: %s\n", r.description());
        std::exit(1);
    }
    return doc.first_child() ? 1 : 0;
}

size_t LoadLibxml2(const char* aFile) {
    xmlDocPtr doc = xmlReadFile(aFile, nullptr, XML_PARSE_HUGE | XML_PARSE_NONET);
    if (!doc) {
        std::fprintf(stderr, "libxml2: cannot parse\n");
        std::exit(1);
    }
    xmlFreeDoc(doc);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: xml_load_bench ours|pugixml|libxml2 FILE [RUNS]\n");
        return 2;
    }
    const std::string parser = argv[1];
    const int runs = argc > 3 ? std::atoi(argv[3]) : 3;
    size_t (*load)(const char*) = parser == "ours" ? LoadOurs : parser == "pugixml" ? LoadPugi : LoadLibxml2;
    for (int i = 0; i < runs; ++i) {
        const auto t0 = std::chrono::steady_clock::now();
        const size_t result = load(argv[2]);
        const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        std::printf("run %d: %.4f s (%zu)\n", i + 1, s, result);
    }
    std::printf("peak_rss_kib %ld\n", PeakRSSKiB());
    return 0;
}
