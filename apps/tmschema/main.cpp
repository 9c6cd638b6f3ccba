// tmschema: checks and copies schema files, and carries schemas into databases.
//   tmschema check FILE                 loads the schema, runs the checks a save runs, and prints
//                                       the number of objects of each list (or every error, exit 1)
//   tmschema copy IN OUT                loads IN and saves it as OUT in the current layout
//   tmschema sql FILE --dbms ENGINE     the script that makes the schema's database
//   tmschema generate FILE --db URL     makes the database (metadata and tables)
//   tmschema dump --db URL OUT          the metadata of a database back into a schema file
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>

#include "scPostgreSQLProvider.h"
#include "scXMLProvider.h"

using namespace tmi;

namespace {

const char* kUsage =
    "usage: tmschema check FILE\n"
    "       tmschema copy IN OUT\n"
    "       tmschema sql FILE --dbms sqlite|postgresql\n"
    "       tmschema generate FILE --db URL\n"
    "       tmschema dump --db URL OUT\n"
    "\n"
    "Schema files describe the tables, fields, indices, relations, users, roles and rights of a\n"
    "GIS database (the \"scXMLProvider\" format, in cp1251; first-version files are read too).\n"
    "\n"
    "  check FILE    load the schema and run the checks a save runs (duplicate names, relations\n"
    "                and indices naming missing fields, fields without a table, rights on\n"
    "                nothing); print the number of objects of each list, or every error\n"
    "  copy IN OUT   load IN and save it as OUT in the current layout (OUT is replaced only\n"
    "                once the new file is complete, and only when the checks pass)\n"
    "  sql FILE --dbms sqlite|postgresql\n"
    "                write to standard output the script that makes the schema's database: its\n"
    "                metadata tables and rows, its tables, indices, keys and geometry columns;\n"
    "                run it with  sqlite3 -bail NEW.sqlite < script  or\n"
    "                psql -v ON_ERROR_STOP=1 -1 -f script  (into a new, empty database)\n"
    "  generate FILE --db URL\n"
    "                the same, run against the database (made when it does not exist), in one\n"
    "                transaction: on an error nothing of the run stays, and a database the run\n"
    "                made is removed\n"
    "  dump --db URL OUT\n"
    "                read the metadata of a database back into the schema file OUT\n"
    "  -h, --help    this text\n"
    "\n"
    "URL: sqlite:PATH, or postgresql://[USER[:PASSWORD]@][HOST][:PORT]/DATABASE[?host=SOCKETDIR]\n"
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

// A database provider from a URL; nullptr (with the reason on stderr) when it is not one.
std::unique_ptr<TscDBCustomProvider> ProviderOf(TscSchema& aSchema, const std::string& aURL) {
    auto provider = CreateDBProviderByURL(&aSchema, aURL);
    if (!provider) std::cerr << "tmschema: не адрес базы данных: " << aURL << " (sqlite:PATH или postgresql://...)\n";
    return provider;
}

// The value after a flag, or empty.
std::string FlagValue(int argc, char** argv, const char* aFlag) {
    for (int i = 2; i + 1 < argc; ++i)
        if (std::string(argv[i]) == aFlag) return argv[i + 1];
    return {};
}

// Runs the action; a schema that fails its checks is exit 1, any other failure exit 2.
int Guarded(const std::function<int()>& aAction) {
    try {
        return aAction();
    } catch (const EscCheckSaveException& e) {
        std::cerr << e.what() << "\n";
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "tmschema: " << e.what() << "\n";
        return 2;
    }
}

int DatabaseCommand(const std::string& aCommand, int argc, char** argv) {
    TscSchema schema;
    return Guarded([&] {
        if (aCommand == "dump") {
            auto provider = ProviderOf(schema, FlagValue(argc, argv, "--db"));
            if (!provider) return 3;
            bool failed = false;
            ModalMessageHandler() = [&failed](const std::string& aText) {
                std::cerr << "tmschema: " << aText << "\n";
                failed = true;
            };
            schema.Open(std::move(provider), true);
            if (failed || !schema.Loaded()) return 2;
            TscXMLProvider target(&schema);
            target.SetConnectionString(std::string("FileName=") + argv[argc - 1]);
            target.Open();
            schema.Save(target);
            return 0;
        }
        if (!Load(schema, argv[2])) return 2;
        std::unique_ptr<TscDBCustomProvider> provider;
        if (aCommand == "sql") {
            const std::string dbms = FlagValue(argc, argv, "--dbms");
            if (dbms == "sqlite") provider = std::make_unique<TscSQLiteProvider>(&schema);
            else if (dbms == "postgresql") provider = std::make_unique<TscPostgreSQLProvider>(&schema);
            else {
                std::cerr << kUsage;
                return 3;
            }
            provider->SetConnectionString("WorkMode=OnlySQL");
            provider->Generate(schema, nullptr, {}, false);
            std::cout << provider->Script();
            return 0;
        }
        provider = ProviderOf(schema, FlagValue(argc, argv, "--db"));
        if (!provider) return 3;
        const bool create = !DatabaseExists(*provider);
        provider->Generate(schema, nullptr, {}, create);
        std::cout << "tmschema: " << provider->GetFullDescription() << (create ? " создана" : " обновлена") << "\n";
        return 0;
    });
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
    if ((command == "sql" || command == "generate") && argc == 5) return DatabaseCommand(command, argc, argv);
    if (command == "dump" && argc == 5) return DatabaseCommand(command, argc, argv);
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
    return Guarded([&] {
        TscXMLProvider target(&schema);
        target.SetConnectionString(std::string("FileName=") + argv[3]);
        target.Open();
        schema.Save(target);
        return 0;
    });
}
