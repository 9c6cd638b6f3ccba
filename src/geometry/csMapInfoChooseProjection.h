// The projection catalogue (MapInfow.prj): categories and named CoordSys clauses, and the
// behaviour of the choice dialogs apart from their widgets, so that it can be driven without
// a screen.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "csCommon.h"

namespace tmi {

class TcsCoordSystemManager;

// X minimum, Y minimum, X maximum, Y maximum.
struct TProjectionBounds {
    double XMin = 0, YMin = 0, XMax = 0, YMax = 0;
};

class EcsChooseProjection : public Exception {
public:
    using Exception::Exception;
};

// One projection line: the name as shown and the clause that follows "CoordSys Earth
// Projection " in a MIF header.
struct TcsProjectionEntry {
    std::string Name;
    std::string Clause;
};

// The catalogue file, read afresh from its start for each question. Lines are trimmed; the
// file may be in Windows-1251 (as MapInfo keeps it) or in UTF-8, with CRLF or LF.
class TcsProjectionCatalog {
public:
    // Raises EcsChooseProjection when the file does not exist.
    explicit TcsProjectionCatalog(std::string aFileName);
    [[nodiscard]] const std::string& FileName() const noexcept { return fFileName; }
    // The category names in file order, each as often as it stands.
    [[nodiscard]] std::vector<std::string> Categories() const;
    // The lines behind the first category line of that name (compared without regard to
    // case) up to the next category line.
    [[nodiscard]] std::vector<TcsProjectionEntry> Entries(std::string_view aCategory) const;
    // Every entry with its category, in file order.
    struct TCategorised {
        std::string Category;
        TcsProjectionEntry Entry;
    };
    [[nodiscard]] std::vector<TCategorised> AllEntries() const;

    // A category line holds "--- and behind that ---"; the name stands between, trimmed.
    static bool IsCategoryLine(std::string_view aLine, std::string& aName);
    // Name and clause divided at the first comma outside double quotes; the name loses its
    // enclosing quotes. A line without such a comma is both name and clause.
    static TcsProjectionEntry SplitProjectionLine(std::string_view aLine);
    // The catalogue's lines as UTF-8, trimmed.
    static std::vector<std::string> ReadLines(const std::string& aFileName);

    // Entries whose name (or category) holds aText, without regard to case; all for an empty
    // text.
    [[nodiscard]] std::vector<TCategorised> Filter(std::string_view aText) const;
    // The entries whose name equals aName without regard to case: one is the answer, none or
    // several leave the caller to show Filter's close matches.
    [[nodiscard]] std::vector<TCategorised> FindByName(std::string_view aName) const;

private:
    std::string fFileName;
};

// The header line of a catalogue clause: "CoordSys Earth Projection " and the clause, or for
// a non-earth plan the NonEarth form with the bounds, two decimals.
std::string CoordSysLineOfClause(const std::string& aClause, const TProjectionBounds& aBounds);

// True when the clause has a first item and it is not "0" (a non-earth plan).
bool IsEarthClause(std::string_view aClause);

// The two-level choice: a category, then one of its projections.
class TcsChooseProjectionModel {
public:
    // Reads the categories and selects the first; raises EcsChooseProjection with "Файл
    // проекций "%s" не существует" for a missing file. With a coordinate system manager set,
    // its categories and systems are offered instead of the file's.
    void Load(const std::string& aFileName);
    void SetCoordSysManager(TcsCoordSystemManager* aManager) noexcept { FCoordSysManager = aManager; }

    [[nodiscard]] const std::vector<std::string>& Categories() const noexcept { return fCategories; }
    [[nodiscard]] int CategoryIndex() const noexcept { return fCategoryIndex; }
    // Refills the projections; none is selected afterwards.
    void SelectCategory(int aIndex);
    [[nodiscard]] const std::vector<std::string>& Projections() const noexcept { return fProjections; }
    [[nodiscard]] const std::vector<std::string>& Clauses() const noexcept { return FClauseList; }
    [[nodiscard]] int ProjectionIndex() const noexcept { return fProjectionIndex; }
    // A click in the list: OK is enabled once an item is selected.
    void SelectProjection(int aIndex);
    [[nodiscard]] bool OKEnabled() const noexcept { return fOKEnabled; }

    [[nodiscard]] std::string Category() const;
    [[nodiscard]] std::string Projection() const;
    [[nodiscard]] std::string Clause() const;

private:
    std::string FProjFileName;
    TcsCoordSystemManager* FCoordSysManager = nullptr;
    std::vector<std::string> fCategories;
    int fCategoryIndex = -1;
    std::vector<std::string> fProjections;
    std::vector<std::string> FClauseList;
    int fProjectionIndex = -1;
    bool fOKEnabled = false;
};

// On entry to the bounds dialog: a record of four zeros becomes (0, 0, 100000, 100000).
void PrepareProjectionBounds(TProjectionBounds& aBounds);

// Where the catalogue lies when no file is named: the folder kept under "MapInfo" /
// "ProjFilePath" in the global settings, else folders asked of the operator until one holds
// MapInfow.prj (kept in that setting) or the asking is cancelled (an empty answer). A folder
// without the file gets aMessage("Не найден файл проекций MapInfo."). Empty when none.
std::string FindProjectionCatalogue(const std::function<std::string()>& aAskFolder,
                                    const std::function<void(const std::string&)>& aMessage);

// The choice as the operator makes it, in the two dialogs (the windowed build): true when
// confirmed with OK. The out values are the selected texts whichever way the dialog closed.
// A confirmed non-earth clause with aShowBounds runs the bounds dialog on aBounds. Raises
// EcsChooseProjection for a missing catalogue.
bool ChooseProjection(const std::string& aFileName, std::string& aCategory, std::string& aProjection, bool aShowBounds,
                      TProjectionBounds& aBounds, bool& aIsEarth, std::string& aClause);

// The catalogue the module carries: Apps/MapInfow.prj beside the module's folder.
std::string DefaultProjectionCatalogue(const std::string& aModuleFolder);

}  // namespace tmi
