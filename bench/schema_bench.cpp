// The schema file at scale: a schema of 1,000 tables with 40 fields each (an index and a
// relation per table) saved and loaded, against libxml2's own parse and write of the same
// file measured in the same process; and lookups by ID and field lists against a plain scan.
// Then the same schema generated into a database (one transaction, prepared statements reused)
// against the engine's own client running the schema's script in one transaction: SQLite
// always, PostgreSQL when TM_PG_SOCKET names the socket folder of a server (user "tm").
// usage: schema_bench [TABLES]   (default 1000)
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "scPostgreSQLProvider.h"
#include "scXMLProvider.h"

using namespace tmi;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using tmi::bench::MedianMs;

namespace {

void Build(TscSchema& aSchema, int aTables) {
    for (int t = 0; t < aTables; ++t) {
        auto* table = static_cast<TscTable*>(aSchema.Tables().GetNewObject());
        table->SetBaseName("Таблица" + std::to_string(t));
        table->SetTitle("Таблица номер " + std::to_string(t));
        table->SetGraphical(t % 2 == 0);
        TcsVariant first;
        for (int f = 0; f < 40; ++f) {
            auto* field = static_cast<TscField*>(table->Fields().GetNewObject());
            field->SetBaseName("Поле" + std::to_string(f));
            field->SetTitle("Поле номер " + std::to_string(f));
            field->SetDataType(f % 3 == 0 ? fdInteger : fdString);
            field->SetLength(f % 3 == 0 ? 0 : 50);
            field->SetAllownull(f != 0);
            if (f == 0) first = field->ID();
        }
        auto* index = static_cast<TscIndex*>(table->Indices().GetNewObject());
        index->SetBaseName("PK_" + std::to_string(t));
        index->SetIndexType(itPrimary);
        index->AddIndexField(first);
        if (t > 0) {
            auto* r = static_cast<TscRelation*>(aSchema.Relations().GetNewObject());
            r->SetBaseName("R" + std::to_string(t));
            r->SetParentFieldID(first);
            r->SetChildFieldID(static_cast<TscField*>(aSchema.Fields().Items(0))->ID());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int tables = argc > 1 ? std::atoi(argv[1]) : 1000;
    const fs::path folder = fs::temp_directory_path() / ("tm_schema_bench_" + std::to_string(::getpid()));
    fs::create_directories(folder);
    const fs::path file = folder / "schema.xml";
    const fs::path copy = folder / "copy.xml";

    TscSchema built;
    const double build = MedianMs(1, [&] { Build(built, tables); });
    const double save = MedianMs(3, [&] {
        TscXMLProvider p(&built);
        p.SetConnectionString("FileName=" + file.string());
        p.Open();
        built.Save(p);
    });
    const double size = static_cast<double>(fs::file_size(file)) / 1e6;
    double load = 0;
    int fields = 0;
    load = MedianMs(3, [&] {
        TscSchema s;
        auto p = std::make_unique<TscXMLProvider>(&s);
        p->SetConnectionString("FileName=" + file.string());
        s.Open(std::move(p), true);
        fields = s.Fields().Count();
    });
    // libxml2 alone: the parse of the file, and the write of the parsed document.
    const double parse = MedianMs(3, [&] { xmlFreeDoc(xmlReadFile(file.c_str(), nullptr, XML_PARSE_NOBLANKS)); });
    xmlDoc* doc = xmlReadFile(file.c_str(), nullptr, XML_PARSE_NOBLANKS);
    const double write = MedianMs(3, [&] { xmlSaveFormatFileEnc(copy.c_str(), doc, "cp1251", 1); });
    xmlFreeDoc(doc);

    // Lookups: every field by ID and every table's field list, against a scan of the root list.
    TscSchema s;
    auto p = std::make_unique<TscXMLProvider>(&s);
    p->SetConnectionString("FileName=" + file.string());
    s.Open(std::move(p), true);
    std::vector<TcsVariant> ids;
    for (TscObject* o : s.Fields().Objects()) ids.push_back(o->KeyValue());
    size_t found = 0;
    const double byId = MedianMs(3, [&] {
        for (const TcsVariant& id : ids) found += s.FieldByID(id) != nullptr;
    });
    const double lists = MedianMs(3, [&] {
        for (TscObject* t : s.Tables().Objects()) found += static_cast<TscTable*>(t)->Fields().Count();
    });
    const size_t sample = std::min<size_t>(ids.size(), 2000);
    const double scan = MedianMs(3, [&] {
        for (size_t i = 0; i < sample; ++i)
            for (TscObject* o : s.Fields().Objects())
                if (o->KeyValue() == ids[i]) {
                    ++found;
                    break;
                }
    }) * static_cast<double>(ids.size()) / static_cast<double>(sample);

    std::printf("schema: %d tables, %d fields, file %.1f MB (built in %.0f ms)\n", tables, fields, size, build);
    std::printf("save  %8.1f ms   libxml2 write %8.1f ms   ratio %.2f\n", save, write, save / write);
    std::printf("load  %8.1f ms   libxml2 parse %8.1f ms   ratio %.2f\n", load, parse, load / parse);
    std::printf("field by ID, all %zu: %.1f ms (a scan would take %.0f ms, %.0fx)\n", ids.size(), byId, scan, scan / std::max(byId, 0.01));
    std::printf("every table's field list: %.1f ms\n", lists);

    // Databases: generate against the client running the script.
    auto database = [&](const char* aEngine, auto aMake, const std::string& aConnection,
                        const std::function<std::string(int)>& aClient, const std::function<void(int)>& aDrop) {
        int round = 0;
        const double generate = MedianMs(3, [&] {
            aDrop(round);
            TscSchema target;
            auto provider = aMake(target);
            provider->SetConnectionString(aConnection + std::to_string(round++));
            provider->Generate(built, nullptr, {}, true);
        });
        TscSchema scripted;
        auto provider = aMake(scripted);
        provider->SetConnectionString("WorkMode=OnlySQL");
        provider->Generate(built, nullptr, {}, false);
        const fs::path script = folder / (std::string(aEngine) + ".sql");
        FILE* out = std::fopen(script.c_str(), "wb");
        const std::string text = "BEGIN;\n" + provider->Script() + "COMMIT;\n";
        std::fwrite(text.data(), 1, text.size(), out);
        std::fclose(out);
        const double client = MedianMs(3, [&] {
            aDrop(round);
            if (std::system((aClient(round++) + " < " + script.string() + " > /dev/null").c_str()) != 0)
                std::printf("%s: the client failed\n", aEngine);
        });
        aDrop(round);
        std::printf("%-10s generate %8.1f ms   its client running the script %8.1f ms   ratio %.2f\n", aEngine, generate, client,
                    generate / client);
    };
    const std::string base = (folder / "db").string();
    database("sqlite", [](TscSchema& s) { return std::make_unique<TscSQLiteProvider>(&s); }, "FileName=" + base,
             [&](int r) { return "sqlite3 -bail " + base + std::to_string(r); }, [&](int r) { fs::remove(base + std::to_string(r)); });
    if (const char* socket = std::getenv("TM_PG_SOCKET")) {
        const std::string sock = socket;
        const std::string name = "tm_bench_" + std::to_string(::getpid()) + "_";
        auto drop = [&](int r) {
            std::system(("psql -h " + sock + " -U tm -d postgres -q -c 'DROP DATABASE IF EXISTS " + name + std::to_string(r) +
                         "' > /dev/null 2>&1").c_str());
        };
        database("postgresql", [](TscSchema& s) { return std::make_unique<TscPostgreSQLProvider>(&s); },
                 "Server=" + sock + ";User_Name=tm;Database=" + name,
                 [&](int r) {
                     const std::string db = name + std::to_string(r);
                     return "psql -h " + sock + " -U tm -d postgres -q -c 'CREATE DATABASE " + db + "' >/dev/null && psql -h " + sock +
                            " -U tm -v ON_ERROR_STOP=1 -q -d " + db;
                 },
                 drop);
    }
    fs::remove_all(folder);
    return found == 0;
}
