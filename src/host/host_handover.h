// The hand-over to the host: after each file the tables of the result list become the host's
// own TAB tables, named after the cadastral block. MapInfo gets MapBasic commands through its
// automation object, Axioma a generated Python script for axipy; QGIS reads the list itself.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tmi {

// MapInfo's automation object, as much of it as the hand-over uses. A failing call raises.
class TMapInfoAutomation {
public:
    virtual ~TMapInfoAutomation() = default;
    virtual void Do(const std::string& aCommand) = 0;
    virtual std::string Eval(const std::string& aExpression) = 0;
    // MBApplications.Item(aApplication).Do(aCommand)
    virtual void ApplicationDo(const std::string& aApplication, const std::string& aCommand) = 0;
};

// A command starting with "#" goes to the MapBasic application "miServices.mbx", any other
// to MapInfo itself.
void miDo(TMapInfoAutomation& aMapInfo, const std::string& aCommand);

// Runs a Python program in the host's interpreter as one program named "<string>", under the
// interpreter's lock; raises with the Python error's text.
using TScriptRunner = std::function<void(const std::string& aProgram)>;

// What the host edition hands the console. A missing part means that hand-over is not made.
struct THostBridge {
    TScriptRunner RunScript;                       // Axioma
    std::shared_ptr<TMapInfoAutomation> MapInfo;   // MapInfo
};

// The final table: the list's line, "_", the block and ".tab".
std::string FinalTableName(const std::string& aLine, const std::string& aBlockCn);

// The lines of a result list; an empty vector when there is none.
std::vector<std::string> ReadResultList(const std::string& aPath);

// The Axioma script for the tables of the list whose MIF exists, one line an entry.
std::vector<std::string> AxiomaScript(const std::vector<std::string>& aTables, const std::string& aBlockCn,
                                      const std::string& aProjText);

// The MapBasic commands for MapInfo, in the order they are given.
std::vector<std::string> MapInfoCommands(const std::vector<std::string>& aTables, const std::string& aBlockCn);

// The TAB tables written beside the MIF files of a list (name.tab and its companions) take
// their final names, as the hand-over names them; with aDropMif the MIF/MID pairs go.
void NameTabTables(const std::string& aResultList, const std::string& aBlockCn, bool aDropMif);
// The same for the given lines of a list.
void NameTabTables(const std::vector<std::string>& aLines, const std::string& aBlockCn, bool aDropMif);

// The hand-over of one file by the host mode: 0 MapInfo, 3 Axioma, any other nothing. No list,
// nothing done. Errors of the host raise.
void HandOverToHost(const std::string& aResultList, const std::string& aBlockCn, const std::string& aProjText,
                    const THostBridge& aBridge);

}  // namespace tmi
