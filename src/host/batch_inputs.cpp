#include "batch_inputs.h"

#include <zip.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "PlanImportXML.h"

namespace tmi {

namespace {

bool EndsWithNoCase(std::string_view aName, std::string_view aTail) {
    if (aName.size() < aTail.size()) return false;
    const std::string_view end = aName.substr(aName.size() - aTail.size());
    return std::equal(end.begin(), end.end(), aTail.begin(), [](char a, char b) {
        return (a >= 'A' && a <= 'Z' ? static_cast<char>(a + 32) : a) == b;
    });
}

std::string SizeText(uint64_t aBytes) {
    if (aBytes >= (1ULL << 30)) return std::to_string(aBytes >> 30) + " GB";
    if (aBytes >= (1ULL << 20)) return std::to_string(aBytes >> 20) + " MB";
    return std::to_string(aBytes) + " bytes";
}

std::string ErrorText(int aCode) {
    zip_error_t error;
    zip_error_init_with_code(&error, aCode);
    std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    return text;
}

struct TZipDiscard {
    void operator()(zip_t* aZip) const { zip_discard(aZip); }
};

// An open archive, from a file or from the bytes of an entry, which it keeps.
class TZip {
public:
    TZip() = default;
    TZip(TZip&&) noexcept = default;
    // The archive goes before the bytes it reads.
    TZip& operator=(TZip&& aOther) noexcept {
        fZip = std::move(aOther.fZip);
        fData = std::move(aOther.fData);
        fBytes = aOther.fBytes;
        return *this;
    }
    static TZip OpenFile(const std::string& aPath) {
        TZip zip;
        int code = 0;
        zip.fZip.reset(zip_open(aPath.c_str(), ZIP_RDONLY, &code));
        if (!zip.fZip) throw EZipProblem("damaged zip archive: " + ErrorText(code));
        std::error_code ec;
        zip.fBytes = std::filesystem::file_size(aPath, ec);
        return zip;
    }
    static TZip OpenData(std::string aData) {
        TZip zip;
        zip.fData = std::make_unique<std::string>(std::move(aData));
        zip.fBytes = zip.fData->size();
        zip_error_t error;
        zip_error_init(&error);
        zip_source_t* source = zip_source_buffer_create(zip.fData->data(), zip.fData->size(), 0, &error);
        if (source) {
            zip.fZip.reset(zip_open_from_source(source, ZIP_RDONLY, &error));
            if (!zip.fZip) zip_source_free(source);
        }
        std::string text = zip_error_strerror(&error);
        zip_error_fini(&error);
        if (!zip.fZip) throw EZipProblem("damaged zip archive: " + text);
        return zip;
    }
    [[nodiscard]] zip_t* get() const { return fZip.get(); }

    // The index of a named entry; raises when it is not there.
    [[nodiscard]] zip_uint64_t Find(const std::string& aName) const {
        const zip_int64_t index = zip_name_locate(fZip.get(), aName.c_str(), 0);
        if (index < 0) throw EZipProblem("no entry " + aName + " in the archive");
        return static_cast<zip_uint64_t>(index);
    }

    // Why an entry may not be read, before any of it is inflated; empty when it may.
    [[nodiscard]] std::string Refusal(zip_uint64_t aIndex) const {
        zip_stat_t st;
        zip_stat_init(&st);
        if (zip_stat_index(fZip.get(), aIndex, 0, &st) != 0) return "damaged zip archive: " + std::string(zip_strerror(fZip.get()));
        if ((st.valid & ZIP_STAT_ENCRYPTION_METHOD) && st.encryption_method != ZIP_EM_NONE)
            return "encrypted; entries with a password are not read";
        if (!(st.valid & ZIP_STAT_SIZE) || !(st.valid & ZIP_STAT_COMP_SIZE)) return "damaged zip archive: the entry has no size";
        if (st.comp_size > fBytes) return "damaged zip archive: the entry is packed larger than the archive";
        if (st.size > kZipEntryLimit)
            return "would inflate to " + SizeText(st.size) + ", beyond the limit of " + SizeText(kZipEntryLimit) +
                   "; refused as a zip bomb";
        if (st.size > kZipRatioFloor && st.size / std::max<zip_uint64_t>(st.comp_size, 1) > kZipRatioLimit)
            return "would inflate " + std::to_string(st.size / std::max<zip_uint64_t>(st.comp_size, 1)) +
                   " times its packed size, beyond " + std::to_string(kZipRatioLimit) + " to 1; refused as a zip bomb";
        return {};
    }

    // The whole entry. It may not grow beyond the size its header gives, which the limits
    // were checked against, and its checksum must hold. The text grows as it is inflated, so
    // that a header that lies about its size costs no more than the bytes really there.
    [[nodiscard]] std::string Read(zip_uint64_t aIndex) const {
        if (std::string refusal = Refusal(aIndex); !refusal.empty()) throw EZipProblem(refusal);
        zip_stat_t st;
        zip_stat_init(&st);
        zip_stat_index(fZip.get(), aIndex, 0, &st);
        std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> file(zip_fopen_index(fZip.get(), aIndex, 0), zip_fclose);
        if (!file) throw EZipProblem("damaged zip archive: " + std::string(zip_strerror(fZip.get())));
        std::string data;
        data.reserve(static_cast<size_t>(std::min<zip_uint64_t>(st.size, kZipReserveLimit)));
        char chunk[1 << 16];
        for (;;) {
            const zip_int64_t got = zip_fread(file.get(), chunk, sizeof chunk);
            if (got < 0) throw EZipProblem("damaged zip archive: " + std::string(zip_file_strerror(file.get())));
            if (got == 0) break;
            if (data.size() + static_cast<size_t>(got) > st.size)
                throw EZipProblem("damaged zip archive: the entry is longer than its header says");
            data.append(chunk, static_cast<size_t>(got));
        }
        if (data.size() != st.size) throw EZipProblem("damaged zip archive: the entry ends before its size");
        return data;
    }

    // The first bytes of an entry, enough to tell an archive; empty when they cannot be read.
    // Asked only of an entry that may be read.
    [[nodiscard]] std::string Head(zip_uint64_t aIndex) const {
        std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> file(zip_fopen_index(fZip.get(), aIndex, 0), zip_fclose);
        if (!file) return {};
        char head[4];
        const zip_int64_t got = zip_fread(file.get(), head, sizeof head);
        return got > 0 ? std::string(head, static_cast<size_t>(got)) : std::string();
    }

private:
    std::unique_ptr<std::string> fData;  // apart, so that a move leaves the source's bytes where they are
    uint64_t fBytes = 0;                  // the archive's own size
    std::unique_ptr<zip_t, TZipDiscard> fZip;
};

// The archive's entries into aOut; true when it held XML at any depth, readable or not.
bool ListArchive(const TZip& aZip, const TBatchInput& aArchive, int aDepth, TBatchInputs& aOut) {
    bool any = false;
    const zip_int64_t count = zip_get_num_entries(aZip.get(), 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        const char* raw = zip_get_name(aZip.get(), index, 0);
        if (!raw) continue;
        const std::string name = raw;
        if (name.empty() || name.back() == '/' || EndsWithNoCase(name, ".sig")) continue;
        TBatchInput entry = aArchive;
        entry.fEntries.push_back(name);
        entry.fName += "/" + name;
        entry.fRelative += "/" + SafeRelativePath(name);
        const bool xml = EndsWithNoCase(name, ".xml");
        // Each entry is looked at once: why it may not be read, else its first bytes.
        const std::string refusal = aZip.Refusal(index);
        const std::string head = refusal.empty() ? aZip.Head(index) : std::string();
        if (xml && !IsZipData(head)) {
            any = true;
            if (!refusal.empty())
                aOut.fProblems.push_back({entry.fName, refusal});
            else
                aOut.fInputs.push_back(std::move(entry));
            continue;
        }
        if (!IsZipData(head) && !EndsWithNoCase(name, ".zip")) continue;
        // An archive inside: read whole, then walked as the outer one.
        try {
            if (aDepth + 1 >= kZipDepthLimit)
                throw EZipProblem("archives nest deeper than " + std::to_string(kZipDepthLimit) + "; not opened");
            const TZip inner = TZip::OpenData(aZip.Read(index));
            any = ListArchive(inner, entry, aDepth + 1, aOut) || any;
        } catch (const EZipProblem& e) {
            any = true;
            aOut.fProblems.push_back({entry.fName, e.what()});
        }
    }
    if (!any) aOut.fProblems.push_back({aArchive.fName, "the archive holds no XML"});
    return any;
}

}  // namespace

bool IsZipData(std::string_view aHead) {
    return aHead.size() >= 4 && aHead[0] == 'P' && aHead[1] == 'K' &&
           ((aHead[2] == 3 && aHead[3] == 4) || (aHead[2] == 5 && aHead[3] == 6));
}

bool IsZipFile(const std::string& aPath) {
    std::ifstream in(aPath, std::ios::binary);
    char head[4] = {};
    if (!in.read(head, sizeof head)) return false;
    return IsZipData(std::string_view(head, sizeof head));
}

std::string SafeRelativePath(std::string_view aName) {
    std::string out;
    size_t at = 0;
    while (at <= aName.size()) {
        size_t end = aName.find_first_of("/\\", at);
        if (end == std::string_view::npos) end = aName.size();
        std::string part(aName.substr(at, end - at));
        for (char& c : part)
            if (c == ':' || static_cast<unsigned char>(c) < 0x20) c = '_';
        if (!part.empty() && part != "." && part != "..") {
            if (!out.empty()) out += '/';
            out += part;
        }
        at = end + 1;
    }
    return out.empty() ? std::string("entry") : out;
}

TBatchInputs ListInput(const std::string& aPath, const std::string& aRelative) {
    TBatchInputs out;
    TBatchInput input{aPath, {}, aPath, aRelative};
    if (!IsZipFile(aPath)) {
        out.fInputs.push_back(std::move(input));
        return out;
    }
    try {
        ListArchive(TZip::OpenFile(aPath), input, 0, out);
    } catch (const EZipProblem& e) {
        out.fProblems.push_back({aPath, e.what()});
    }
    return out;
}

TBatchInputs ListFolder(const std::string& aFolder) {
    std::vector<std::string> files = FindFiles(aFolder, "*");
    std::sort(files.begin(), files.end());
    TBatchInputs out;
    for (const std::string& file : files) {
        if (EndsWithNoCase(file, ".sig")) continue;
        if (!EndsWithNoCase(file, ".xml") && !IsZipFile(file)) continue;
        TBatchInputs one = ListInput(file, file.substr(aFolder.size()));
        for (auto& input : one.fInputs) out.fInputs.push_back(std::move(input));
        for (auto& problem : one.fProblems) out.fProblems.push_back(std::move(problem));
    }
    return out;
}

std::string ReadInput(const TBatchInput& aInput) {
    if (aInput.fEntries.empty()) throw EZipProblem("not an archive's entry");
    TZip zip = TZip::OpenFile(aInput.fPath);
    for (size_t i = 0;; ++i) {
        const zip_uint64_t index = zip.Find(aInput.fEntries[i]);
        std::string data = zip.Read(index);
        if (i + 1 == aInput.fEntries.size()) return data;
        zip = TZip::OpenData(std::move(data));
    }
}

}  // namespace tmi
