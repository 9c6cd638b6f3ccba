// The documents of a batch: the XML files of a folder and its subfolders, and the XML entries
// of zip archives met there (archives inside archives too), read in place without unpacking.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tmi {

// One document: a file, or an entry of a zip archive, perhaps inside other archives.
struct TBatchInput {
    std::string fPath;                  // the file on disk: the document, or its outermost archive
    std::vector<std::string> fEntries;  // the entry in each archive, outermost first; empty for a file
    std::string fName;                  // as messages name it: "folder/archive.zip/inner.xml"
    std::string fRelative;              // a safe relative path for its output: "archive.zip/inner.xml"
};

// Something of a batch that gives no document: a damaged or encrypted archive, a zip bomb,
// an archive without XML. Told in one line; the batch goes on.
struct TBatchProblem {
    std::string fName;
    std::string fReason;
};

struct TBatchInputs {
    std::vector<TBatchInput> fInputs;
    std::vector<TBatchProblem> fProblems;
};

// An entry is refused when it would inflate beyond 4 GB, or, once beyond 64 MB, beyond 1000
// times its packed size. Archives nest at most 8 deep.
inline constexpr uint64_t kZipEntryLimit = 4ULL << 30;
inline constexpr uint64_t kZipRatioLimit = 1000;
inline constexpr uint64_t kZipRatioFloor = 64ULL << 20;
inline constexpr int kZipDepthLimit = 8;
// Room made at once for an entry's text; beyond it the text grows as it is inflated.
inline constexpr uint64_t kZipReserveLimit = 1ULL << 30;

// Why an archive's entry cannot be read.
class EZipProblem : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A zip archive by its first bytes (a local header, or the end record of an empty archive),
// whatever its name.
bool IsZipData(std::string_view aHead);
bool IsZipFile(const std::string& aPath);

// The documents of one input: an XML file is itself; a zip archive gives its XML entries at
// every depth, signatures (*.sig) and other entries left aside. aRelative is where its output
// goes below the output folder.
TBatchInputs ListInput(const std::string& aPath, const std::string& aRelative);

// The documents of a folder and its subfolders, in name order: every *.xml, and every file
// that is a zip archive by its content.
TBatchInputs ListFolder(const std::string& aFolder);

// The text of an archive's entry, within the limits above; raises EZipProblem with the reason.
std::string ReadInput(const TBatchInput& aInput);

// An entry's name made safe to stand below a folder: no root, no drive, no "." or "..".
std::string SafeRelativePath(std::string_view aName);

}  // namespace tmi
