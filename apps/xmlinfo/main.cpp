// xmlinfo: loads an XML file into the document and tells what it found.
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "OXmlPDOM.h"

using namespace tmi::xml;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: xmlinfo FILE.xml\n");
        return 2;
    }
    try {
        TXMLDocument doc;
        const auto t0 = std::chrono::steady_clock::now();
        const bool ok = doc.LoadFromFile(argv[1]);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (!ok) {
            std::printf("%s: parse error\n%s\n", argv[1], doc.ParseError()->ErrorReport().c_str());
            return 1;
        }
        size_t elements = 0, attributes = 0, texts = 0;
        PXMLNode root = doc.Node();
        PXMLNode n = root->FirstChild();
        while (n) {
            if (n->NodeType() == ntElement) {
                ++elements;
                for (PXMLNode a = n->FirstAttribute(); a; a = a->NextSibling()) ++attributes;
            } else if (n->NodeType() == ntText || n->NodeType() == ntCData) {
                ++texts;
            }
            if (n->FirstChild()) {
                n = n->FirstChild();
                continue;
            }
            while (n && n != root && !n->NextSibling()) n = n->ParentNode();
            if (!n || n == root) break;
            n = n->NextSibling();
        }
        PXMLNode element = doc.DocumentElement();
        std::printf("file:        %s\n", argv[1]);
        std::printf("root:        %s\n", element ? std::string(element->NodeName()).c_str() : "(none)");
        std::printf("namespace:   %s\n", element ? element->NameSpaceURI().c_str() : "");
        std::printf("elements:    %zu\n", elements);
        std::printf("attributes:  %zu\n", attributes);
        std::printf("texts:       %zu\n", texts);
        std::printf("strings:     %d\n", doc.Dictionary().Count());
        std::printf("memory:      %.1f MB\n", static_cast<double>(doc.MemoryUsed()) / 1048576.0);
        std::printf("load time:   %.3f s\n", seconds);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "xmlinfo: %s\n", e.what());
        return 1;
    }
}
