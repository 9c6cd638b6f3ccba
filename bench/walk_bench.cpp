// The universal conversion's walk alone: a process that claims any document, reads every
// "Parcel" element whole and does nothing with it, with no destination. Prints the wall time
// of the walk, the records read and the file's size.
//
// usage: walk_bench FILE
#include <chrono>
#include <cstdio>
#include <string>

#include "csRosreestrXMLCore.h"

using namespace tmi;

namespace {

class TWalkProcess : public TcsFileProcess {
public:
    static const char* StaticClassName() { return "TWalkProcess"; }
    [[nodiscard]] std::string ClassName() const override { return StaticClassName(); }
    explicit TWalkProcess(TcsComponent* aOwner = nullptr) : TcsFileProcess(aOwner) {}
    static bool SupportClass(const TcsXMLInfo& aInfo) { return !aInfo.RootNodeName.empty(); }
    bool ProcessXmlReadAllNode(TcsXMLProcessController&, xml::PXMLNode aNode, std::string_view) override {
        return aNode->NodeName() == "Parcel" || aNode->NodeName() == "land_record";
    }
    void ProcessXmlNode(TcsXMLProcessController&, xml::PXMLNode aNode, std::string_view) override {
        if (aNode->NodeName() == "Parcel" || aNode->NodeName() == "land_record") ++Records;
    }
    static inline long long Records = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: walk_bench FILE\n");
        return 2;
    }
    ProcessInfoManager().Register<TWalkProcess>();
    const auto start = std::chrono::steady_clock::now();
    TcsConvertManager manager;
    manager.SetFileName(argv[1]);
    try {
        manager.UpdateInfo(false);
        manager.StartProcess(false);
        manager.EndProcess();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "walk_bench: %s\n", e.what());
        return 1;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("walk: %.3f s, %lld records, finished %d\n", seconds, TWalkProcess::Records, manager.Finished ? 1 : 0);
    return manager.Finished ? 0 : 1;
}
