// The import console: the one window the operator sees. It gathers the XML file or folder,
// the output folder, the coordinate system and what to import, runs the import with a
// progress window, and closes. Dialogs and message boxes go through TImportConsoleUi, so
// that a test answers them without a screen.
#pragma once

#include <QDialog>
#include <memory>
#include <string>

#include "PlanImportXML.h"
#include "csMapInfoChooseProjection.h"

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace tmi {

// A file dialog as the console asks for it; Filter in the form "Описание (*.xml)|*.xml".
struct TFileDialogRequest {
    std::string Title;
    std::string InitialDir;
    std::string DefaultExt;
    std::string Filter;
    std::string FileName;
};

class TImportConsoleUi {
public:
    virtual ~TImportConsoleUi() = default;
    // Each answers whether the operator said OK, and what was chosen.
    virtual bool OpenFileDialog(QWidget* aOwner, const TFileDialogRequest& aRequest, std::string& aFile);
    virtual bool SaveFileDialog(QWidget* aOwner, const TFileDialogRequest& aRequest, std::string& aFile);
    virtual bool ChooseProjection(QWidget* aOwner, const std::string& aCatalogue, TProjectionBounds& aBounds,
                                  bool& aIsEarth, std::string& aClause);
    // An information box with one OK button; waits.
    virtual void Information(QWidget* aOwner, const std::string& aText);
    // Opens a document with the desktop's handler; whether that worked.
    virtual bool OpenDocument(const std::string& aPath);

    // The category and projection last chosen, offered again next time.
    std::string fCategory, fProjection;
};

class TfrmImport : public QDialog {
public:
    // aUi: the dialogs; the screen's own when null.
    explicit TfrmImport(QWidget* aParent = nullptr, std::shared_ptr<TImportConsoleUi> aUi = nullptr);
    ~TfrmImport() override;

    // The controls take the choices (the cmbPoints reaction runs), and back.
    void SetChoices(const TImportChoices& aChoices);
    [[nodiscard]] TImportChoices Choices() const;
    // Appends a line to the log and scrolls to it.
    void ReText(const std::string& aText);

    void XMLBtnClick();
    void MiBtnClick();
    void ProjBtnClick();
    // The run: output folder, file list, a job per file with the progress, the messages, and
    // the form closes. An error of a job is shown and the form stays.
    void OKBtnClick();
    void HelpBtnClick();
    void AboutBtnClick();
    void cmbPointsChange();
    // The hidden test button: a small TAB table written directly, TestQGIS/a1.tab in the
    // temporary folder.
    void cxButton1Click();
    // The help file for the host mode, whether or not it exists.
    [[nodiscard]] std::string HelpFileName() const;

    QPushButton* XMLBtn;
    QLineEdit* XMLText;
    QPushButton* MiBtn;
    QLineEdit* MiText;
    QPushButton* ProjBtn;
    QPlainTextEdit* ProjText;
    QPushButton* ProjQgisBtn;
    QLineEdit* ProjQgisText;
    QCheckBox* chkBounds;
    QCheckBox* chkPacket;
    QGroupBox* GroupBox1;
    QCheckBox* chkObj;
    QCheckBox* chkParcel;
    QCheckBox* chkZone;
    QCheckBox* chkBound;
    QCheckBox* chkCenter;
    QComboBox* cmbPoints;
    QLabel* Label1;
    QPlainTextEdit* txtCn;
    QComboBox* cmbWriteStyle;
    QPushButton* OKBtn;
    QPushButton* CloseBtn;
    QPushButton* HelpBtn;
    QPushButton* AboutBtn;
    QPlainTextEdit* RichEdit1;
    QPushButton* cxButton1;
    QPushButton* Button1;

    std::string fImportInputFile;
    std::string fImportOutputDir;
    std::string fMapInfoPath;
    double fXmin = 0, fXmax = 10000000, fYmin = 0, fYmax = 10000000;
    std::unique_ptr<TcsProgress> FProgress;
    std::string XSDPath;
    std::string AppPath;
    std::string qgisCRS;
    bool trace = false;
    // How the tables of each file reach the host; nothing is handed over without it.
    THostBridge HostBridge;

protected:
    void showEvent(QShowEvent* aEvent) override;

private:
    // Where a message box goes: the progress window while it is up, else the console.
    QWidget* MessageOwner() const;
    void Message(const std::string& aText);

    std::shared_ptr<TImportConsoleUi> fUi;
    bool fCentred = false;
};

}  // namespace tmi
