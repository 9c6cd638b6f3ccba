// The console's window driven offscreen through its controls: start states from defaults and
// from a saved file, the dialogs answered by the test, the run on real extracts, a batch,
// the cancel path with its question, and the messages in order.
#include <unistd.h>

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>
#include <chrono>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>

#include "../offscreen_application.h"
#include "PlanImportXMLForm.h"
#include "csIniFile.h"
#include "csPaths.h"
#include "csProgressForm.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

std::string S(const QString& aText) { return aText.toUtf8().toStdString(); }

// Answers the console's dialogs from queues and notes what was asked.
class TestUi : public TImportConsoleUi {
public:
    bool OpenFileDialog(QWidget*, const TFileDialogRequest& r, std::string& aFile) override {
        fRequests.push_back(r);
        return Answer(aFile);
    }
    bool SaveFileDialog(QWidget*, const TFileDialogRequest& r, std::string& aFile) override {
        fRequests.push_back(r);
        return Answer(aFile);
    }
    bool ChooseProjection(QWidget*, const std::string& aCatalogue, TProjectionBounds& aBounds, bool& aIsEarth,
                          std::string& aClause) override {
        fCatalogue = aCatalogue;
        fBoundsIn = aBounds;
        if (!fProjectionOk) return false;
        aBounds = fBoundsOut;
        aIsEarth = fEarth;
        aClause = fClause;
        return true;
    }
    void Information(QWidget*, const std::string& aText) override {
        fMessages.push_back(aText);
        if (fOnMessage) fOnMessage(aText);
    }
    bool OpenDocument(const std::string& aPath) override {
        fOpened.push_back(aPath);
        return true;
    }
    bool Answer(std::string& aFile) {
        if (fAnswers.empty()) return false;
        aFile = fAnswers.front();
        fAnswers.pop_front();
        return true;
    }
    std::deque<std::string> fAnswers;  // a file name, or nothing for Cancel
    std::vector<TFileDialogRequest> fRequests;
    std::vector<std::string> fMessages, fOpened;
    std::function<void(const std::string&)> fOnMessage;
    std::string fCatalogue, fClause;
    TProjectionBounds fBoundsIn, fBoundsOut;
    bool fProjectionOk = false, fEarth = false;
};

class ConsoleForm : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        test::OffscreenApplication::Start();
        UseProgressForm();
    }
    static void TearDownTestSuite() { test::OffscreenApplication::Stop(); }

    void SetUp() override {
        fRoot = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_form");
        fs::remove_all(fRoot);
        fs::create_directories(fRoot / "docs");
        setenv("XDG_DOCUMENTS_DIR", (fRoot / "docs").c_str(), 1);
        HostMode() = 3;
        Bitness() = 64;
        fUi = std::make_shared<TestUi>();
        fForm = std::make_unique<TfrmImport>(nullptr, fUi);
    }
    void TearDown() override {
        fForm.reset();
        unsetenv("XDG_DOCUMENTS_DIR");
        fs::remove_all(fRoot);
    }
    std::string Write(const std::string& aName, const std::string& aText) const {
        fs::create_directories((fRoot / aName).parent_path());
        std::ofstream(fRoot / aName, std::ios::binary) << aText;
        return (fRoot / aName).string();
    }
    // The console as ShowImportForm fills it: from a saved file.
    void Load(const std::string& aIniText) {
        const std::string path = Write("Импорт64.ini", aIniText);
        TcsIniFile ini(path);
        TImportChoices c;
        c.AppPath = IncludeTrailingDelimiter(fRoot.string());
        LoadChoices(ini, c);
        fForm->SetChoices(c);
    }
    int Mifs(const fs::path& aFolder) const {
        int n = 0;
        std::error_code ec;
        for (const auto& e : fs::recursive_directory_iterator(aFolder, ec)) n += e.path().extension() == ".mif";
        return n;
    }

    fs::path fRoot;
    std::shared_ptr<TestUi> fUi;
    std::unique_ptr<TfrmImport> fForm;
};

}  // namespace

TEST_F(ConsoleForm, ControlsCaptionsHintsAndStartState) {
    TfrmImport& f = *fForm;
    EXPECT_EQ(S(f.windowTitle()), "Импорт из XML Росреестра");
    EXPECT_EQ(S(f.XMLBtn->text()), "Файл XML");
    EXPECT_EQ(S(f.XMLBtn->toolTip()), "Выбор файла xml для импорта");
    EXPECT_EQ(S(f.XMLText->toolTip()), "Файл xml для импорта");
    EXPECT_EQ(S(f.MiBtn->text()), "Выходная папка");
    EXPECT_EQ(S(f.MiText->toolTip()), "Папка для выходных таблиц MapInfo ");
    EXPECT_EQ(S(f.ProjBtn->text()), "Проекция в XML");
    EXPECT_EQ(S(f.ProjText->toolTip()), "Выбор проекции исходного файла XML");
    EXPECT_TRUE(f.XMLText->isReadOnly() && f.MiText->isReadOnly() && f.ProjText->isReadOnly());
    EXPECT_EQ(S(f.GroupBox1->title()), "Какие объекты импортировать?");
    EXPECT_EQ(S(f.chkPacket->text()), "Пакетный импорт");
    EXPECT_EQ(S(f.chkCenter->toolTip()), "Импортировать точки центров ОКС окружностей");
    EXPECT_TRUE(f.chkBounds->isChecked() && f.chkObj->isChecked() && f.chkParcel->isChecked() && f.chkZone->isChecked() &&
                f.chkBound->isChecked());
    EXPECT_FALSE(f.chkPacket->isChecked() || f.chkCenter->isChecked());
    ASSERT_EQ(f.cmbPoints->count(), 3);
    EXPECT_EQ(S(f.cmbPoints->itemText(2)), "Сохранять по указанным кадастровым номерам");
    EXPECT_EQ(f.cmbPoints->currentIndex(), 0);
    EXPECT_EQ(S(f.OKBtn->text()), "Конвертировать");
    EXPECT_EQ(S(f.CloseBtn->text()), "Закрыть");
    EXPECT_EQ(S(f.HelpBtn->text()), "Справка");
    EXPECT_EQ(S(f.AboutBtn->text()), "О программе");
    // Hidden for good, and shown only with the listed numbers.
    for (QWidget* w : std::initializer_list<QWidget*>{f.ProjQgisBtn, f.ProjQgisText, f.cmbWriteStyle, f.cxButton1, f.Button1,
                                                       f.txtCn, f.Label1})
        EXPECT_FALSE(w->isVisibleTo(&f)) << S(w->objectName());
    f.cmbPoints->setCurrentIndex(2);
    EXPECT_TRUE(f.txtCn->isVisibleTo(&f) && f.Label1->isVisibleTo(&f));
    f.cmbPoints->setCurrentIndex(1);
    EXPECT_FALSE(f.txtCn->isVisibleTo(&f) || f.Label1->isVisibleTo(&f));
}

TEST_F(ConsoleForm, SavedChoicesFillTheControlsAndComeBack) {
    Load("[Import]\nXMLText=/data/a.xml\nMiText=/out/\nXmin=1.5\nYmin=2\nXmax=3\nYmax=4\nchkObj=1\nchkBounds=0\n"
         "chkParcel=0\nchkCenter=1\ncmbWriteStyle=0\ncmbPoints=2\ntxtCnCount=2\ntxtCnItem0=21:02:010106:1\n"
         "txtCnItem1=21:02:010106:2\n");
    TfrmImport& f = *fForm;
    EXPECT_EQ(S(f.XMLText->text()), "/data/a.xml");
    EXPECT_EQ(S(f.MiText->text()), "/out/");
    // The clause that is not saved comes from the bounds, with no decimals.
    EXPECT_EQ(S(f.ProjText->toPlainText()), "CoordSys NonEarth Units \"m\" Bounds (2,2) (3,4)");
    EXPECT_TRUE(f.chkObj->isChecked() && f.chkCenter->isChecked());
    EXPECT_FALSE(f.chkBounds->isChecked() || f.chkParcel->isChecked());
    EXPECT_EQ(f.cmbWriteStyle->currentIndex(), 0);
    EXPECT_TRUE(f.txtCn->isVisibleTo(&f));
    EXPECT_EQ(S(f.txtCn->toPlainText()), "21:02:010106:1\n21:02:010106:2");

    TcsIniFile out((fRoot / "back.ini").string());
    SaveChoices(out, f.Choices());
    ASSERT_TRUE(out.UpdateFile());
    std::ifstream in(fRoot / "back.ini");
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("Xmin=1.5\n"), std::string::npos) << text;
    EXPECT_NE(text.find("txtCnCount=2\ntxtCnItem0=21:02:010106:1\ntxtCnItem1=21:02:010106:2\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("chkPacket"), std::string::npos);
}

TEST_F(ConsoleForm, AbsurdSavedFilesOpenWithWhatCanBeUsed) {
    // Negative and huge indexes, a count of a million, a clause of a megabyte.
    Load("[Import]\ncmbPoints=-3\ncmbWriteStyle=7\ntxtCnCount=1000000\ntxtCnItem0=1:2:3:4\nProjText=" +
         std::string(1 << 20, 'x') + "\n");
    EXPECT_EQ(fForm->cmbPoints->currentIndex(), 0);
    EXPECT_EQ(fForm->cmbWriteStyle->currentIndex(), 1);
    EXPECT_LE(fForm->Choices().txtCn.size(), 6u);
    EXPECT_EQ(fForm->ProjText->toPlainText().size(), 1 << 20);
    // Empty, truncated, binary, another encoding.
    for (const std::string& text : {std::string(), std::string("[Imp"), std::string("[Import]\nXmin=1e999999\nXMLText=\xcf\xf0\xe8\n"),
                                    std::string("\x00\xff\xfe[\x01", 5)}) {
        Load(text);
        EXPECT_EQ(fForm->cmbPoints->currentIndex(), 0);
        EXPECT_TRUE(fForm->chkParcel->isChecked());
    }
}

TEST_F(ConsoleForm, FileAndFolderDialogs) {
    TfrmImport& f = *fForm;
    const std::string xml = Write("in/plan.xml", "<KPT/>");
    // No file yet: the dialog starts in Documents; a chosen file that is gone leaves the text empty.
    fUi->fAnswers = {xml};
    f.XMLBtnClick();
    ASSERT_EQ(fUi->fRequests.size(), 1u);
    EXPECT_EQ(fUi->fRequests[0].Title, "Выберите файл выписки или КПТ для импорта (*.xml)");
    EXPECT_EQ(fUi->fRequests[0].DefaultExt, "xml");
    EXPECT_EQ(fUi->fRequests[0].Filter, "Файлы XML (*.xml)|*.xml");
    EXPECT_EQ(fUi->fRequests[0].InitialDir, DocumentsFolder());
    EXPECT_EQ(S(f.XMLText->text()), xml);
    fUi->fAnswers = {(fRoot / "in" / "gone.xml").string()};
    f.XMLBtnClick();
    EXPECT_EQ(fUi->fRequests[1].InitialDir, (fRoot / "in").string());
    EXPECT_EQ(S(f.XMLText->text()), "");
    EXPECT_EQ(f.fImportInputFile, "");
    // Cancel changes nothing.
    f.XMLText->setText(QString::fromStdString(xml));
    f.XMLBtnClick();
    EXPECT_EQ(S(f.XMLText->text()), xml);

    // The output folder is chosen by naming any file in it.
    fs::create_directories(fRoot / "out");
    fUi->fAnswers = {(fRoot / "out" / "1.").string()};
    f.MiBtnClick();
    const TFileDialogRequest& save = fUi->fRequests.back();
    EXPECT_EQ(save.Title, "Укажите любой файл в папке для таблиц MapInfo");
    EXPECT_EQ(save.FileName, "1.");
    EXPECT_EQ(save.Filter, "Все файлы (*.*)|*.*");
    EXPECT_EQ(save.InitialDir, DocumentsFolder());
    EXPECT_EQ(S(f.MiText->text()), (fRoot / "out").string() + "/");
    fUi->fAnswers = {(fRoot / "nowhere" / "1.").string()};
    f.MiBtnClick();
    EXPECT_EQ(fUi->fRequests.back().InitialDir, (fRoot / "out").string() + "/");
    EXPECT_EQ(S(f.MiText->text()), "");
}

TEST_F(ConsoleForm, ProjectionButtonBothClauseForms) {
    TfrmImport& f = *fForm;
    f.AppPath = "/app/";
    f.ProjText->setPlainText("before");
    f.ProjBtnClick();  // Cancel
    EXPECT_EQ(fUi->fCatalogue, "/app/Apps64/MapInfow.prj");
    EXPECT_EQ(S(f.ProjText->toPlainText()), "before");
    Bitness() = 32;
    fUi->fProjectionOk = true;
    fUi->fBoundsOut = {1, 2.004, 3.5, 4.255};
    f.ProjBtnClick();
    EXPECT_EQ(fUi->fCatalogue, "/app/Apps/MapInfow.prj");
    EXPECT_EQ(S(f.ProjText->toPlainText()), "CoordSys NonEarth Units \"m\" Bounds (1.00,2.00) (3.50,4.25)");
    EXPECT_EQ(f.fYmax, 4.255);
    fUi->fEarth = true;
    fUi->fClause = "8, 1001, 7, 39, 0, 1, 500000, 0";
    f.ProjBtnClick();
    EXPECT_EQ(fUi->fBoundsIn.XMax, 3.5);  // the bounds of the form go in
    EXPECT_EQ(S(f.ProjText->toPlainText()), "CoordSys Earth Projection 8, 1001, 7, 39, 0, 1, 500000, 0");
    EXPECT_EQ(f.fYmax, 4.255);
}

TEST_F(ConsoleForm, HelpByHostModeAndAbout) {
    TfrmImport& f = *fForm;
    f.AppPath = IncludeTrailingDelimiter(fRoot.string());
    f.HelpBtnClick();
    const std::string axioma = f.AppPath + "Help/ОписаниеМодуляАксиома.html";
    ASSERT_EQ(fUi->fMessages.size(), 1u);
    EXPECT_EQ(fUi->fMessages[0], "Файл не найден (" + axioma + ").");
    Write("Help/ОписаниеМодуляАксиома.html", "<html/>");
    f.HelpBtnClick();
    EXPECT_EQ(fUi->fOpened, std::vector<std::string>{axioma});
    HostMode() = 4;  // MapInfo's file when it is there, else QGIS's
    EXPECT_EQ(f.HelpFileName(), f.AppPath + "Help/Террамир Мини Импорт QGIS.html");
    Write("Help/ОписаниеМодуляMapInfo.html", "<html/>");
    EXPECT_EQ(f.HelpFileName(), f.AppPath + "Help/ОписаниеМодуляMapInfo.html");
    HostMode() = 2;
    EXPECT_EQ(f.HelpFileName(), f.AppPath + "Help/Террамир Мини Импорт QGIS.html");
    // The build lays the guides out where the button looks for them.
    f.AppPath = TM_BIN_DIR "/";
    for (uint8_t mode : {0, 2, 3, 4}) {
        HostMode() = mode;
        EXPECT_TRUE(fs::is_regular_file(f.HelpFileName())) << f.HelpFileName();
    }
    HostMode() = 3;
    f.AboutBtnClick();
    EXPECT_EQ(fUi->fMessages.back(),
              "Террамир Мини\n\nВерсия: 2.0 (сборка 22)\nДата выпуска: 2025.07.08\n\nТеррамир Мини. Импорт XML Росреестра.");
}

TEST_F(ConsoleForm, RunOnARealExtractWithAllChoices) {
    const std::string extract = std::string(TM_SHARED_DATA) + "/xml/KPT10/niakr1s__KPT_CadastralBlock_21_02_010106.xml";
    Load("[Import]\nXMLText=" + extract + "\nMiText=" + (fRoot / "out").string() +
         "/\nchkObj=1\nchkBounds=1\nchkCenter=1\ncmbPoints=2\ntxtCnCount=1\ntxtCnItem0= 21:02:010106:30 \n");
    fForm->AppPath.clear();
    fForm->show();
    fForm->OKBtnClick();
    EXPECT_EQ(fUi->fMessages, std::vector<std::string>{"Импорт успешно завершен."});
    EXPECT_EQ(fForm->result(), QDialog::Accepted);  // the form closes after a run
    EXPECT_FALSE(fForm->isVisible());
    EXPECT_EQ(Mifs(fRoot / "out"), 13);
    // The bounds found reach the clause with two decimals, for the next file and the saved file.
    const std::string clause = S(fForm->ProjText->toPlainText());
    EXPECT_EQ(clause.rfind("CoordSys NonEarth Units \"m\" Bounds (", 0), 0u) << clause;
    EXPECT_GT(fForm->fXmax, fForm->fXmin);
    EXPECT_NE(clause.find(".", clause.find("(")), std::string::npos);
    EXPECT_EQ(fForm->FProgress, nullptr);
    EXPECT_TRUE(fs::exists(fRoot / "docs" / "tmMiniImportRes.ini"));
}

TEST_F(ConsoleForm, MessagesInOrderAndErrorsKeepTheFormOpen) {
    fForm->show();
    // A file without a root: both messages, one after the other, and the form closes.
    Load("[Import]\nXMLText=" + Write("in/empty.xml", "") + "\nMiText=" + (fRoot / "out").string() + "/\n");
    fForm->OKBtnClick();
    EXPECT_EQ(fUi->fMessages, (std::vector<std::string>{"Импорт завершен с ошибками ().", "Импорт успешно завершен."}));
    EXPECT_EQ(fForm->result(), QDialog::Accepted);

    // A job that raises: its message, and the form stays for another try.
    fForm->setResult(0);
    fForm->show();
    fUi->fMessages.clear();
    Load("[Import]\nXMLText=" + Write("in/raise.xml", "<Region_Cadastr CodeType=\"abc\"/>") + "\nMiText=" +
         (fRoot / "out").string() + "/\n");
    fForm->OKBtnClick();
    ASSERT_EQ(fUi->fMessages.size(), 1u);
    EXPECT_TRUE(fForm->isVisible());
    EXPECT_TRUE(fForm->isEnabled());  // the progress window let go of it
    EXPECT_EQ(fForm->FProgress, nullptr);

    // An output folder that cannot be made.
    fUi->fMessages.clear();
    Write("file", "x");
    Load("[Import]\nXMLText=" + Write("in/a.xml", "<KPT/>") + "\nMiText=" + (fRoot / "file" / "sub").string() + "\n");
    fForm->OKBtnClick();
    ASSERT_EQ(fUi->fMessages.size(), 1u);
    EXPECT_EQ(fUi->fMessages[0].rfind("Ошибка при создании папки " + (fRoot / "file" / "sub").string() + ".\n\n", 0), 0u);
    EXPECT_TRUE(fForm->isVisible());
}

TEST_F(ConsoleForm, ABatchRunsSilently) {
    Write("in/a.xml", "<KPT/>");
    Write("in/sub/b.xml", "");  // fails: no root
    Write("in/sub/c.xml", "<Region_Cadastr CodeType=\"abc\"/>");  // raises
    Load("[Import]\nXMLText=" + (fRoot / "in" / "a.xml").string() + "\nMiText=" + (fRoot / "out").string() + "/\n");
    fForm->chkPacket->setChecked(true);
    fForm->show();
    fForm->OKBtnClick();
    EXPECT_TRUE(fUi->fMessages.empty()) << fUi->fMessages.front();
    EXPECT_EQ(fForm->result(), QDialog::Accepted);
    EXPECT_NE(S(fForm->RichEdit1->toPlainText()).find("c.xml"), std::string::npos);  // failures go to the log
    EXPECT_EQ(Mifs(fRoot / "out"), 13);
}

TEST_F(ConsoleForm, CancelAsksThenStopsAndRemovesTheTables) {
    // A replica large enough that the run is still going when Cancel is pressed.
    const std::string source = std::string(TM_SHARED_DATA) + "/xml/KPT10/niakr1s__KPT_CadastralBlock_21_02_010106.xml";
    const std::string replica = (fRoot / "big.xml").string();
    ASSERT_EQ(std::system(("python3 " TM_SOURCE_DIR "/bench/make_replica.py '" + source + "' '" + replica + "' 40").c_str()), 0);
    Write("out/unrelated.mix", "also goes");
    Write("out/keep.tab", "stays");
    Load("[Import]\nXMLText=" + replica + "\nMiText=" + (fRoot / "out").string() + "/\n");
    fForm->show();
    using Clock = std::chrono::steady_clock;
    Clock::time_point answered{};
    bool asked = false, pressed = false;
    // The operator: presses Cancel on the progress window, answers the question with Yes.
    QTimer timer;
    timer.setInterval(20);
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            asked = S(box->text()) == "Вы хотите прервать выполнение?";
            answered = Clock::now();
            box->done(QMessageBox::Yes);
            return;
        }
        if (pressed) return;
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* form = dynamic_cast<TcsProgressForm*>(w); form && form->isVisible()) {
                EXPECT_FALSE(fForm->isEnabled());  // the console waits while the progress is up
                pressed = true;
                form->CancelBtn->click();
            }
    });
    timer.start();
    double delay = -1;
    fUi->fOnMessage = [&](const std::string&) { delay = std::chrono::duration<double>(Clock::now() - answered).count(); };
    fForm->OKBtnClick();
    timer.stop();
    EXPECT_TRUE(asked);
    // A single file ends with its own message, as every single file does; then the cancel's.
    EXPECT_EQ(fUi->fMessages, (std::vector<std::string>{"Импорт успешно завершен.", "Импорт прерван пользователем."}));
    // Within a second of the answer on a quiet machine; a loaded one gets some slack.
    EXPECT_LT(delay, 5.0);
    std::cout << "cancelled message " << delay << " s after the answer\n";
    EXPECT_EQ(Mifs(fRoot / "out"), 0);
    EXPECT_FALSE(fs::exists(fRoot / "out" / "unrelated.mix"));
    EXPECT_TRUE(fs::exists(fRoot / "out" / "keep.tab"));
    EXPECT_TRUE(fForm->isEnabled());
    EXPECT_EQ(fForm->result(), QDialog::Accepted);
}
