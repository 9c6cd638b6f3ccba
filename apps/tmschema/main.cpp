// tmschema: checks and copies schema files.
//   tmschema check FILE     loads the schema, runs the checks a save runs, and prints the
//                           number of objects of each list (or every error, exit 1)
//   tmschema copy IN OUT    loads IN and saves it as OUT in the current layout
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include "scXMLProvider.h"

using namespace tmi;

namespace {

const char* kUsage =
    "usage: tmschema check FILE\n"
    "       tmschema copy IN OUT\n"
    "\n"
    "Schema files describe the tables, fields, indices, relations, users, roles and rights of a\n"
    "GIS database (the \"scXMLProvider\" format, in cp1251; first-version files are read too).\n"
    "\n"
    "  check FILE    load the schema and run the checks a save runs (duplicate names, relations\n"
    "                and indices naming missing fields, fields without a table, rights on\n"
    "                nothing); print the number of objects of each list, or every error\n"
    "  copy IN OUT   load IN and save it as OUT in the current layout (OUT is replaced only\n"
    "                once the new file is complete, and only when the checks pass)\n"
    "  -h, --help    this text\n"
    "\n"
    "Exit status: 0 done, 1 the schema does not pass its checks, 2 a file could not be read or\n"
    "written, 3 wrong arguments.\n";

// Loads the schema of a file; false (with the reason on stderr) when it cannot be read.
bool Load(TscSchema& aSchema, const std::string& aFile) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(aFile, ec)) {
        std::cerr << "tmschema: нет файла \"" << aFile << "\"\n";
        return false;
    }
    bool failed = false;
    ModalMessageHandler() = [&failed](const std::string& aText) {
        std::cerr << "tmschema: " << aText << "\n";
        failed = true;
    };
    try {
        auto provider = std::make_unique<TscXMLProvider>(&aSchema);
        provider->SetConnectionString("FileName=" + aFile);
        aSchema.Open(std::move(provider), true);
    } catch (const std::exception& e) {
        std::cerr << "tmschema: " << e.what() << "\n";
        return false;
    }
    return !failed && aSchema.Loaded();
}

int PrintErrors(const std::vector<std::string>& aErrors) {
    for (const std::string& e : aErrors) std::cerr << e << "\n";
    std::cerr << "tmschema: " << aErrors.size() << " error(s)\n";
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "-h" || command == "--help") {
        std::cout << kUsage;
        return 0;
    }
    if (!((command == "check" && argc == 3) || (command == "copy" && argc == 4))) {
        std::cerr << kUsage;
        return 3;
    }
    TscSchema schema;
    if (!Load(schema, argv[2])) return 2;
    const std::vector<std::string> errors = schema.CheckAll();
    if (!errors.empty()) return PrintErrors(errors);
    if (command == "check") {
        for (const auto& list : schema.ROOTObjects())
            if (list->ClassName() != "TscProviders") std::cout << list->GetStorageName() << ": " << list->Count() << "\n";
        return 0;
    }
    try {
        TscXMLProvider target(&schema);
        target.SetConnectionString(std::string("FileName=") + argv[3]);
        target.Open();
        schema.Save(target);
    } catch (const EscCheckSaveException& e) {
        std::cerr << e.what() << "\n";
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "tmschema: " << e.what() << "\n";
        return 2;
    }
    return 0;
}
