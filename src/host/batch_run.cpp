#include "batch_run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>

#include "csCommon.h"
#include "csPaths.h"
#include "host_handover.h"
#include "libImportXML.h"

namespace tmi {

namespace {

namespace fs = std::filesystem;

// What one document leaves, in the process that imported it.
struct TDocumentDone {
    TImportFileResult fResult;
    std::vector<std::pair<int, std::string>> fMessages;  // its job's notices, told with it
    bool fCancelled = false;
    double fXmin = 0, fYmin = 0, fXmax = 0, fYmax = 0;  // the bounds it carries on
};

// A done document as bytes through a pipe: each field its length, a colon, its bytes.
class TWire {
public:
    void Put(std::string_view aText) {
        fData += std::to_string(aText.size());
        fData += ':';
        fData += aText;
    }
    void Put(long long aNumber) { Put(std::to_string(aNumber)); }
    [[nodiscard]] const std::string& Data() const { return fData; }

    explicit TWire(std::string aData = {}) : fData(std::move(aData)) {}
    // The next field; false when the bytes end or are not a field.
    bool Get(std::string& aText) {
        const size_t colon = fData.find(':', fAt);
        if (colon == std::string::npos || colon == fAt || colon - fAt > 19) return false;
        size_t size = 0;
        for (size_t i = fAt; i < colon; ++i) {
            if (fData[i] < '0' || fData[i] > '9') return false;
            size = size * 10 + static_cast<size_t>(fData[i] - '0');
        }
        if (size > fData.size() - colon - 1) return false;
        aText.assign(fData, colon + 1, size);
        fAt = colon + 1 + size;
        return true;
    }
    bool Get(long long& aNumber) {
        std::string text;
        if (!Get(text)) return false;
        try {
            aNumber = std::stoll(text);
        } catch (...) {
            return false;
        }
        return true;
    }

private:
    std::string fData;
    size_t fAt = 0;
};

std::string Encode(const TDocumentDone& aDone) {
    const TImportFileResult& r = aDone.fResult;
    TWire w;
    w.Put(r.fFile);
    w.Put(r.fOk);
    w.Put(r.fImpError);
    w.Put(r.fError);
    w.Put(r.fFailure);
    w.Put(r.fParseError);
    w.Put(r.fParseLine);
    w.Put(r.fParseColumn);
    w.Put(r.fRoot);
    w.Put(r.fDocumentCode);
    w.Put(r.fRecognised);
    w.Put(r.fBlock);
    w.Put(aDone.fCancelled);
    w.Put(static_cast<long long>(r.fTables.size()));
    for (const auto& [name, rows] : r.fTables) {
        w.Put(name);
        w.Put(rows);
    }
    w.Put(static_cast<long long>(aDone.fMessages.size()));
    for (const auto& [level, text] : aDone.fMessages) {
        w.Put(level);
        w.Put(text);
    }
    return w.Data();
}

bool Decode(std::string aData, TDocumentDone& aDone) {
    TWire w(std::move(aData));
    TImportFileResult& r = aDone.fResult;
    long long ok = 0, error = 0, line = 0, column = 0, code = 0, recognised = 0, cancelled = 0, tables = 0, messages = 0;
    if (!(w.Get(r.fFile) && w.Get(ok) && w.Get(error) && w.Get(r.fError) && w.Get(r.fFailure) && w.Get(r.fParseError) &&
          w.Get(line) && w.Get(column) && w.Get(r.fRoot) && w.Get(code) && w.Get(recognised) && w.Get(r.fBlock) &&
          w.Get(cancelled) && w.Get(tables)))
        return false;
    r.fOk = ok != 0;
    r.fImpError = static_cast<int32_t>(error);
    r.fParseLine = static_cast<int>(line);
    r.fParseColumn = static_cast<int>(column);
    r.fDocumentCode = static_cast<int32_t>(code);
    r.fRecognised = recognised != 0;
    aDone.fCancelled = cancelled != 0;
    for (long long i = 0; i < tables; ++i) {
        std::string name;
        long long rows = 0;
        if (!w.Get(name) || !w.Get(rows)) return false;
        r.fTables.emplace_back(std::move(name), static_cast<int>(rows));
    }
    if (!w.Get(messages)) return false;
    for (long long i = 0; i < messages; ++i) {
        long long level = 0;
        std::string text;
        if (!w.Get(level) || !w.Get(text)) return false;
        aDone.fMessages.emplace_back(static_cast<int>(level), std::move(text));
    }
    return true;
}

bool WriteAll(int aFd, const void* aData, size_t aSize) {
    const char* at = static_cast<const char*>(aData);
    while (aSize > 0) {
        const ssize_t w = ::write(aFd, at, aSize);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        at += w;
        aSize -= static_cast<size_t>(w);
    }
    return true;
}

bool ReadAll(int aFd, void* aData, size_t aSize) {
    char* at = static_cast<char*>(aData);
    while (aSize > 0) {
        const ssize_t r = ::read(aFd, at, aSize);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        at += r;
        aSize -= static_cast<size_t>(r);
    }
    return true;
}

// The list a job writes for its file, apart for each process and document, so that the
// Documents folder's list is written once, for the whole run.
std::string JobListFile(size_t aIndex) {
    return TempFolder() + "tmimport-" + std::to_string(::getpid()) + "-" + std::to_string(aIndex) + ".ini";
}

TDocumentDone ImportDocument(const TImportChoices& aChoices, const TBatchInput& aInput, const std::string& aFolder,
                             size_t aIndex, TcsProgress* aProgress) {
    TDocumentDone done;
    TImportFileResult& result = done.fResult;
    result.fFile = aInput.fName;
    std::string data;
    try {
        if (!aInput.fEntries.empty()) data = ReadInput(aInput);
    } catch (const EZipProblem& e) {
        result.fFailure = e.what();
        return done;
    } catch (const std::bad_alloc&) {
        result.fFailure = "not enough memory to inflate the entry";
        return done;
    }
    std::error_code ec;
    fs::create_directories(aFolder, ec);
    if (ec) {
        result.fFailure = "cannot make the folder " + aFolder + ": " + ec.message();
        return done;
    }
    TImportChoices choices = aChoices;
    choices.MiText = aFolder;
    TlibImportXML job;
    ConfigureJob(job, choices, aProgress,
                 [&done](TImportMessageLevel aLevel, const std::string& aText) { done.fMessages.emplace_back(static_cast<int>(aLevel), aText); });
    job.fXMLName = aInput.fEntries.empty() ? aInput.fPath : aInput.fName;
    if (!aInput.fEntries.empty()) job.fXMLData = std::move(data);
    job.fResultListFile = JobListFile(aIndex);
    try {
        const bool ok = job.Execute();
        ObserveJob(job, ok, result);
        job.Clear();
    } catch (const EAbort&) {
        done.fCancelled = true;
    } catch (const std::exception& e) {
        ObserveJob(job, false, result);
        result.fOk = false;
        result.fFailure = e.what();
    }
    fs::remove(job.fResultListFile, ec);
    if (aProgress && aProgress->Cancelled()) done.fCancelled = true;
    done.fXmin = job.csXmin;
    done.fYmin = job.csYmin;
    done.fXmax = job.csXmax;
    done.fYmax = job.csYmax;
    return done;
}

// The folder and the folders above it that it leaves empty, up to the output folder.
void RemoveOutput(const std::string& aFolder, const std::string& aOut) {
    std::error_code ec;
    fs::remove_all(aFolder, ec);
    fs::path up = fs::path(aFolder).lexically_normal();
    if (up.filename().empty()) up = up.parent_path();
    up = up.parent_path();
    const fs::path root = fs::path(aOut).lexically_normal();
    const size_t rootSize = root.string().size() - (root.filename().empty() ? 1 : 0);
    while (!up.empty() && up.string().size() > rootSize) {
        if (!fs::is_empty(up, ec) || ec || !fs::remove(up, ec)) break;
        up = up.parent_path();
    }
}

// The run, told and laid out in the documents' order.
class TBatch {
public:
    TBatch(TImportChoices& aChoices, const TBatchInputs& aInputs, TcsProgress& aProgress, const TImportReporter& aReport,
           const TImportFileObserver& aFileDone)
        : fChoices(aChoices), fInputs(aInputs), fProgress(aProgress), fReport(aReport), fFileDone(aFileDone),
          fOut(IncludeTrailingDelimiter(Trim(aChoices.MiText))) {}

    std::string FolderOf(size_t aIndex) const { return fOut + fInputs.fInputs[aIndex].fRelative + "/"; }

    // A document done: its messages, its tables laid out, then the observer.
    void Tell(size_t aIndex, TDocumentDone& aDone) {
        TImportFileResult& r = aDone.fResult;
        for (const auto& [level, text] : aDone.fMessages)
            if (fReport) fReport(static_cast<TImportMessageLevel>(level), text);
        ++fOutcome.fFiles;
        const std::string folder = FolderOf(aIndex);
        if (!FailureReason(r).empty()) {
            ++fOutcome.fFailed;
            RemoveOutput(folder, fOut);
            r.fTables.clear();  // nothing of it stays
        } else {
            LayOut(r, folder);
        }
        if (fFileDone) fFileDone(r);
    }

    void LayOut(const TImportFileResult& aResult, const std::string& aFolder) {
        using F = TImportChoices::TTableFormat;
        std::vector<std::string> lines;
        for (const auto& table : aResult.fTables) lines.push_back(aFolder + table.first);
        if (fChoices.TableFormat == F::Mif) {
            fOutcome.fTables.insert(fOutcome.fTables.end(), lines.begin(), lines.end());
            return;
        }
        if (fChoices.TableFormat == F::Both) {
            NameTabTables(lines, aResult.fBlock, false);
            fOutcome.fTables.insert(fOutcome.fTables.end(), lines.begin(), lines.end());
            return;
        }
        // TAB tables in the output folder itself, named after their block, never over the
        // tables of another document of this run.
        std::string block = aResult.fBlock;
        for (int k = 2; !fBlocks.insert(block).second; ++k) block = aResult.fBlock + "_" + std::to_string(k);
        if (block != aResult.fBlock && fReport)
            fReport(TImportMessageLevel::Warning, aResult.fFile + ": block " + aResult.fBlock +
                                                      " was written by an earlier document of this batch; its tables are named " +
                                                      FinalTableName("*", block));
        std::error_code ec;
        for (const auto& [name, rows] : aResult.fTables) {
            const std::string final = FinalTableName(fOut + name, block);
            const std::string stem = final.substr(0, final.size() - 4);
            bool made = false;
            for (const char* ext : {".tab", ".dat", ".map", ".id", ".ind"}) {
                if (!fs::exists(aFolder + name + ext, ec)) continue;
                fs::remove(stem + ext, ec);
                fs::rename(aFolder + name + ext, stem + ext, ec);
                if (ec) throw Exception("Не удалось переименовать " + aFolder + name + ext + ": " + ec.message());
                made = true;
            }
            if (made) fOutcome.fTables.push_back(stem);
        }
        RemoveOutput(aFolder, fOut);
    }

    void CarryBounds(const TDocumentDone& aDone) {
        if (!fChoices.chkBounds || fChoices.ProjText.find("NonEarth") == std::string::npos) return;
        fChoices.fXmin = aDone.fXmin;
        fChoices.fYmin = aDone.fYmin;
        fChoices.fXmax = aDone.fXmax;
        fChoices.fYmax = aDone.fYmax;
        fChoices.ProjText = NonEarthProjText(fChoices.fXmin, fChoices.fYmin, fChoices.fXmax, fChoices.fYmax);
    }

    // One document after another in this process, each with the progress of its reading.
    void RunHere() {
        const size_t n = fInputs.fInputs.size();
        for (size_t i = 0; i < n && !fProgress.Cancelled(); ++i) {
            const TBatchInput& input = fInputs.fInputs[i];
            fProgress.SetText("Импорт (" + std::to_string(i + 1) + " из " + std::to_string(n) + "): " + input.fName);
            TDocumentDone done = ImportDocument(fChoices, input, FolderOf(i), i, &fProgress);
            if (done.fCancelled) {
                RemoveOutput(FolderOf(i), fOut);
                fOutcome.fCancelled = true;
                return;
            }
            Tell(i, done);
            CarryBounds(done);
        }
    }

    // aJobs worker processes, each importing one document after another as it is handed them
    // (so that, like a run here, it keeps its memory warm from one document to the next) and
    // sending back what each did. Each worker holds its next document in its pipe before it
    // finishes the current one, so that it never waits for this process to be scheduled. A
    // worker that dies fails the document it worked on, and is replaced; the documents it
    // held go to the others.
    void RunApart(int aJobs) {
        constexpr size_t kHeld = 2;  // documents handed to a worker at once: the current and the next
        constexpr uintmax_t kSmallDocument = 4u << 20;  // its file (or its archive) on disk
        struct TWorker {
            pid_t fPid = -1;
            int fTo = -1;    // the indexes of the documents it is to import
            int fFrom = -1;  // what it did
            std::deque<size_t> fIndexes;  // the documents handed to it, the one it works on first
            std::string fData;
        };
        const size_t n = fInputs.fInputs.size();
        std::vector<std::optional<TDocumentDone>> done(n);
        std::vector<TWorker> workers;
        std::deque<size_t> handBack;  // documents a lost worker held and never began
        std::vector<bool> small(n);
        for (size_t i = 0; i < n; ++i) {
            std::error_code ec;
            const auto size = fs::file_size(fInputs.fInputs[i].fPath, ec);
            small[i] = !ec && size <= kSmallDocument;
        }
        size_t next = 0, told = 0, finished = 0;
        bool cancelled = false, stopped = false;
        auto showProgress = [&] {
            fProgress.SetText("Импорт: " + std::to_string(finished) + " из " + std::to_string(n) + " файлов");
            fProgress.SetPos(static_cast<int64_t>(finished));
        };
        auto start = [&]() -> bool {
            int to[2], from[2];
            if (::pipe2(to, O_CLOEXEC) != 0) return false;
            if (::pipe2(from, O_CLOEXEC) != 0) {
                ::close(to[0]);
                ::close(to[1]);
                return false;
            }
            std::fflush(nullptr);
            const pid_t parent = ::getpid();
            const pid_t pid = ::fork();
            if (pid < 0) {
                for (int fd : {to[0], to[1], from[0], from[1]}) ::close(fd);
                return false;
            }
            if (pid == 0) {
                // The worker: Ctrl-C ends it at once, the parent tells the cancel; it never
                // outlives the run.
                ::signal(SIGINT, SIG_DFL);
                ::signal(SIGPIPE, SIG_DFL);
                ::prctl(PR_SET_PDEATHSIG, SIGTERM);
                if (::getppid() != parent) ::_exit(1);
                for (const TWorker& w : workers) {
                    ::close(w.fTo);
                    ::close(w.fFrom);
                }
                ::close(to[1]);
                ::close(from[0]);
                uint64_t index = 0;
                while (ReadAll(to[0], &index, sizeof index) && index < n) {
                    const std::string bytes = Encode(ImportDocument(fChoices, fInputs.fInputs[index], FolderOf(index), index, nullptr));
                    const uint64_t size = bytes.size();
                    if (!WriteAll(from[1], &size, sizeof size) || !WriteAll(from[1], bytes.data(), bytes.size())) ::_exit(1);
                }
                ::_exit(0);
            }
            ::close(to[0]);
            ::close(from[1]);
            TWorker w;
            w.fPid = pid;
            w.fTo = to[1];
            w.fFrom = from[0];
            workers.push_back(std::move(w));
            return true;
        };
        auto end = [&](TWorker& w) {
            ::close(w.fTo);
            ::close(w.fFrom);
            int status = 0;
            while (::waitpid(w.fPid, &status, 0) < 0 && errno == EINTR) {
            }
            return status;
        };
        // A worker that died is told by its pipe's end, not by a signal to this process.
        struct TIgnorePipe {
            struct sigaction fOld {};
            TIgnorePipe() {
                struct sigaction ignore {};
                ignore.sa_handler = SIG_IGN;
                sigaction(SIGPIPE, &ignore, &fOld);
            }
            ~TIgnorePipe() { sigaction(SIGPIPE, &fOld, nullptr); }
        } ignorePipe;
        fProgress.SetMax(static_cast<int64_t>(n));
        showProgress();
        for (int i = 0; i < aJobs && static_cast<size_t>(i) < n; ++i)
            if (!start()) break;
        if (workers.empty()) throw Exception(std::string("fork: ") + std::strerror(errno));
        const size_t wanted = workers.size();
        while (told < n) {
            // Work for the workers that hold less than their share. Only a small document waits
            // behind another: a large one goes to the first worker free, so that none sits idle
            // at the end of the run while a large document waits in another's pipe.
            for (TWorker& w : workers) {
                while (!cancelled && w.fIndexes.size() < kHeld && (!handBack.empty() || next < n)) {
                    const uint64_t index = handBack.empty() ? next : handBack.front();
                    if (!w.fIndexes.empty() && !small[index]) break;
                    if (!WriteAll(w.fTo, &index, sizeof index)) break;  // it died: its end is read below
                    w.fIndexes.push_back(index);
                    if (handBack.empty())
                        ++next;
                    else
                        handBack.pop_front();
                }
            }
            std::vector<pollfd> fds;
            for (const TWorker& w : workers) fds.push_back({w.fFrom, POLLIN, 0});
            if (fds.empty()) break;
            if (::poll(fds.data(), fds.size(), 100) < 0 && errno != EINTR)
                throw Exception(std::string("poll: ") + std::strerror(errno));
            for (size_t k = fds.size(); k-- > 0;) {
                if (!(fds[k].revents & (POLLIN | POLLHUP | POLLERR))) continue;
                TWorker& w = workers[k];
                char buffer[65536];
                const ssize_t got = ::read(w.fFrom, buffer, sizeof buffer);
                if (got < 0 && errno == EINTR) continue;
                if (got > 0) {
                    w.fData.append(buffer, static_cast<size_t>(got));
                    // Whole messages: a size, then the bytes.
                    uint64_t size = 0;
                    while (w.fData.size() >= sizeof size) {
                        std::memcpy(&size, w.fData.data(), sizeof size);
                        if (w.fData.size() - sizeof size < size) break;
                        TDocumentDone one;
                        const bool read = Decode(w.fData.substr(sizeof size, size), one);
                        w.fData.erase(0, sizeof size + size);
                        if (w.fIndexes.empty()) continue;
                        const size_t index = w.fIndexes.front();
                        w.fIndexes.pop_front();
                        if (!read) {
                            one = TDocumentDone{};
                            one.fResult.fFile = fInputs.fInputs[index].fName;
                            one.fResult.fFailure = "the import of this document sent back no result";
                        }
                        if (one.fCancelled) cancelled = true;
                        done[index] = std::move(one);
                        ++finished;
                    }
                    continue;
                }
                // The worker has ended: what it was doing ends with it.
                const int status = end(w);
                if (!w.fIndexes.empty()) {
                    const size_t index = w.fIndexes.front();
                    handBack.insert(handBack.end(), w.fIndexes.begin() + 1, w.fIndexes.end());
                    TDocumentDone one;
                    one.fResult.fFile = fInputs.fInputs[index].fName;
                    if (WIFSIGNALED(status) && (WTERMSIG(status) == SIGINT || WTERMSIG(status) == SIGTERM))
                        one.fCancelled = cancelled = true;
                    else
                        one.fResult.fFailure = WIFSIGNALED(status)
                                                   ? "the import of this document ended with signal " + std::to_string(WTERMSIG(status))
                                                   : "the import of this document ended without its result";
                    done[index] = std::move(one);
                    ++finished;
                }
                workers.erase(workers.begin() + static_cast<std::ptrdiff_t>(k));
            }
            // A worker lost with work left is replaced.
            while (!cancelled && (next < n || !handBack.empty()) && workers.size() < wanted)
                if (!start()) break;
            // A cancel, asked here or met in a worker: the others stop too, once.
            if (!cancelled && fProgress.Cancelled()) cancelled = true;
            if (cancelled && !stopped) {
                stopped = true;
                for (const TWorker& w : workers) ::kill(w.fPid, SIGTERM);
            }
            for (; told < n && done[told] && !done[told]->fCancelled; ++told) Tell(told, *done[told]);
            if (told < n && done[told] && done[told]->fCancelled) break;
            if (cancelled && workers.empty()) break;
            showProgress();
        }
        // The end: idle workers see their pipe close and leave; on a cancel they are stopped.
        for (TWorker& w : workers) {
            if (cancelled) ::kill(w.fPid, SIGTERM);
            end(w);
        }
        if (told < n) {
            fOutcome.fCancelled = true;
            for (size_t i = told; i < n; ++i) RemoveOutput(FolderOf(i), fOut);
        }
    }

    TBatchOutcome& Outcome() { return fOutcome; }
    const std::string& Out() const { return fOut; }

private:
    TImportChoices& fChoices;
    const TBatchInputs& fInputs;
    TcsProgress& fProgress;
    const TImportReporter& fReport;
    const TImportFileObserver& fFileDone;
    std::string fOut;
    std::set<std::string> fBlocks;  // the blocks whose TAB tables this run wrote
    TBatchOutcome fOutcome;
};

}  // namespace

TBatchOutcome RunBatch(TImportChoices& aChoices, const TBatchInputs& aInputs, int aJobs, TcsProgress& aProgress,
                       const TImportReporter& aReport, const TImportFileObserver& aFileDone,
                       const std::function<void(const TBatchProblem&)>& aProblem) {
    MakeOutputFolder(aChoices.MiText);
    TBatch batch(aChoices, aInputs, aProgress, aReport, aFileDone);
    for (const TBatchProblem& problem : aInputs.fProblems) {
        ++batch.Outcome().fFailed;
        if (aProblem) aProblem(problem);
    }
    aProgress.AbortOnCancel = false;
    aProgress.Open({}, {}, "Импорт XML", "Импорт из XML Росреестра", 0);
    if (aJobs > 1 && !aChoices.chkBounds && aInputs.fInputs.size() > 1)
        batch.RunApart(aJobs);
    else
        batch.RunHere();
    aProgress.Close();
    TBatchOutcome outcome = std::move(batch.Outcome());
    if (outcome.fCancelled && aReport) aReport(TImportMessageLevel::Warning, "Импорт прерван пользователем.");
    // The run's list: every table made, whatever the document.
    const std::string list = TlibImportXML::ResultListPath();
    std::ofstream out(list, std::ios::binary | std::ios::trunc);
    for (const std::string& table : outcome.fTables) out << table << '\n';
    out.close();
    if (!out) throw Exception("Не удалось записать файл " + list);
    return outcome;
}

}  // namespace tmi
