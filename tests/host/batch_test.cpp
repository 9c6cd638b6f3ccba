// The documents of a batch: archives read in place, within limits, and entry names that may
// not lead out of the output folder.
#include <gtest/gtest.h>
#include <zip.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "batch_inputs.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

struct Folder {
    fs::path fPath;
    explicit Folder(const std::string& aName)
        : fPath(fs::temp_directory_path() / ("tm-batch-" + aName + "-" + std::to_string(::getpid()))) {
        fs::remove_all(fPath);
        fs::create_directories(fPath);
    }
    ~Folder() { fs::remove_all(fPath); }
    std::string operator/(const std::string& aName) const { return (fPath / aName).string(); }
};

// An archive of (name, bytes) entries, deflated, in memory.
std::string MakeZip(const std::vector<std::pair<std::string, std::string>>& aEntries) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* target = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_source_keep(target);
    zip_t* z = zip_open_from_source(target, ZIP_TRUNCATE, &error);
    EXPECT_NE(z, nullptr);
    for (const auto& [name, bytes] : aEntries) {
        zip_source_t* s = zip_source_buffer(z, bytes.data(), bytes.size(), 0);
        EXPECT_GE(zip_file_add(z, name.c_str(), s, ZIP_FL_ENC_UTF_8), 0);
    }
    EXPECT_EQ(zip_close(z), 0);
    zip_stat_t st;
    zip_source_stat(target, &st);
    std::string out(static_cast<size_t>(st.size), '\0');
    zip_source_open(target);
    zip_source_read(target, out.data(), st.size);
    zip_source_close(target);
    zip_source_free(target);
    zip_error_fini(&error);
    return out;
}

std::string Write(const std::string& aPath, const std::string& aBytes) {
    fs::create_directories(fs::path(aPath).parent_path());
    std::ofstream(aPath, std::ios::binary) << aBytes;
    return aPath;
}

}  // namespace

TEST(BatchInputs, EntryNamesStayBelowTheirFolder) {
    EXPECT_EQ(SafeRelativePath("a/b.xml"), "a/b.xml");
    EXPECT_EQ(SafeRelativePath("../../etc/x.xml"), "etc/x.xml");
    EXPECT_EQ(SafeRelativePath("/abs/./y.xml"), "abs/y.xml");
    EXPECT_EQ(SafeRelativePath("C:\\Users\\..\\z.xml"), "C_/Users/z.xml");
    EXPECT_EQ(SafeRelativePath("a//\x01.xml"), "a/_.xml");
    EXPECT_EQ(SafeRelativePath("../.."), "entry");
}

TEST(BatchInputs, ArchivesAreKnownByContentAndReadInPlace) {
    Folder f("content");
    const std::string inner = MakeZip({{"deep.xml", "<KPT>deep</KPT>"}, {"deep.xml.sig", "sig"}});
    Write(f / "in/pack.bin", MakeZip({{"top.xml", "<KPT>top</KPT>"}, {"more/inner.zip", inner}, {"notes.txt", "x"}}));
    Write(f / "in/plain.xml", "<KPT/>");
    Write(f / "in/plain.xml.sig", "sig");
    Write(f / "in/other.txt", "not a document");
    const TBatchInputs found = ListFolder(f / "in/");
    EXPECT_TRUE(found.fProblems.empty());
    ASSERT_EQ(found.fInputs.size(), 3u);
    EXPECT_EQ(found.fInputs[0].fRelative, "pack.bin/top.xml");
    EXPECT_EQ(found.fInputs[1].fRelative, "pack.bin/more/inner.zip/deep.xml");
    EXPECT_EQ(found.fInputs[1].fName, f / "in/pack.bin" + "/more/inner.zip/deep.xml");
    EXPECT_EQ(found.fInputs[2].fRelative, "plain.xml");
    EXPECT_TRUE(found.fInputs[2].fEntries.empty());
    EXPECT_EQ(ReadInput(found.fInputs[0]), "<KPT>top</KPT>");
    EXPECT_EQ(ReadInput(found.fInputs[1]), "<KPT>deep</KPT>");
}

TEST(BatchInputs, HostileArchivesAreOneProblemEach) {
    Folder f("hostile");
    // Nested deeper than the limit.
    std::string nest = MakeZip({{"x.xml", "<KPT/>"}});
    for (int i = 0; i < kZipDepthLimit + 1; ++i) nest = MakeZip({{"n.zip", nest}});
    Write(f / "deep.zip", nest);
    TBatchInputs deep = ListInput(f / "deep.zip", "deep.zip");
    EXPECT_TRUE(deep.fInputs.empty());
    ASSERT_EQ(deep.fProblems.size(), 1u);
    EXPECT_NE(deep.fProblems[0].fReason.find("nest deeper than 8"), std::string::npos);

    // An entry longer than its header says: the central directory's size is lowered.
    std::string lying = MakeZip({{"big.xml", std::string(100000, 'a')}});
    const size_t central = lying.find("PK\x01\x02");
    ASSERT_NE(central, std::string::npos);
    lying[central + 24] = 10;
    lying[central + 25] = lying[central + 26] = lying[central + 27] = 0;
    Write(f / "lying.zip", lying);
    TBatchInputs listed = ListInput(f / "lying.zip", "lying.zip");
    ASSERT_EQ(listed.fInputs.size(), 1u);
    try {
        ReadInput(listed.fInputs[0]);
        FAIL() << "a lying size was read";
    } catch (const EZipProblem& e) {
        EXPECT_NE(std::string(e.what()).find("damaged zip archive"), std::string::npos) << e.what();
    }

    // Truncated, empty, and not an archive after its first bytes.
    const std::string good = MakeZip({{"a.xml", std::string(5000, 'b')}});
    Write(f / "cut.zip", good.substr(0, good.size() / 2));
    Write(f / "empty.zip", std::string("PK\x05\x06", 4) + std::string(18, '\0'));  // an end record alone
    Write(f / "fake.xml", "PK\x03\x04 and then nothing of a zip");
    for (const char* name : {"cut.zip", "empty.zip", "fake.xml"}) {
        const TBatchInputs one = ListInput(f / name, name);
        EXPECT_TRUE(one.fInputs.empty()) << name;
        ASSERT_EQ(one.fProblems.size(), 1u) << name;
        EXPECT_EQ(one.fProblems[0].fName, f / name);
    }
    EXPECT_EQ(ListInput(f / "empty.zip", "e").fProblems[0].fReason, "the archive holds no XML");
}

// Archives the fuzzer once choked on (an entry whose header claims gigabytes, entries that
// inflate slowly): each is listed and read, or refused, in little time and memory.
TEST(BatchInputs, ArchivesTheFuzzerFound) {
    int seen = 0;
    for (const auto& e : fs::directory_iterator(TM_FIXTURES "/fuzz")) {
        if (e.path().filename().string().rfind("zip-", 0) != 0) continue;
        ++seen;
        const TBatchInputs found = ListInput(e.path().string(), "a.zip");
        for (const TBatchInput& input : found.fInputs) {
            try {
                EXPECT_LE(ReadInput(input).size(), 64u << 20) << e.path();
            } catch (const EZipProblem&) {
            }
        }
    }
    EXPECT_GT(seen, 0);
}
