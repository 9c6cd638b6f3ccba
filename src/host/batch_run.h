// The command line's batch: every document of a folder (or of an archive) imported into an
// output of its own, on as many processes as asked, told in the order of the documents.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "PlanImportXML.h"
#include "batch_inputs.h"

namespace tmi {

struct TBatchOutcome {
    int fFiles = 0;
    int fFailed = 0;     // documents that failed, and problems of archives
    bool fCancelled = false;
    std::vector<std::string> fTables;  // every table made, as the result list names them
};

// How a document's output is laid out below the output folder OUT:
// - MIF/MID (and both): in OUT/<its path below the batch's folder>/, the file's own name
//   included ("a/report.xml/Участки.mif", "plans.zip/inner.xml/Участки.mif");
// - TAB: in OUT itself, named as the hand-over names them (table, "_", block); a block met
//   again in the same run takes "_2", "_3", ... after it, and a note says so.
// A document that fails leaves nothing in OUT.
//
// aJobs above 1 imports that many documents at once, each in a process of its own; with
// carried bounds (chkBounds) every document waits for the one before it, so one at a time.
// The progress tells documents done of the total. aFileDone hears every document, and
// aProblem every archive problem, in the documents' order whatever the number of jobs. The
// run's result list (TlibImportXML::ResultListPath) names every table made.
TBatchOutcome RunBatch(TImportChoices& aChoices, const TBatchInputs& aInputs, int aJobs, TcsProgress& aProgress,
                       const TImportReporter& aReport, const TImportFileObserver& aFileDone,
                       const std::function<void(const TBatchProblem&)>& aProblem);

}  // namespace tmi
