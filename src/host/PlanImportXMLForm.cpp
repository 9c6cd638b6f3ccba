#include "PlanImportXMLForm.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QShortcut>
#include <QStringList>
#include <QUrl>
#include <QVBoxLayout>
#include <filesystem>

#include "csPaths.h"
#include "csProgressForm.h"
#include "libImportXML.h"

namespace tmi {

namespace {

namespace fs = std::filesystem;

QString Q(const std::string& aText) { return QString::fromUtf8(aText.data(), static_cast<int>(aText.size())); }
std::string S(const QString& aText) { return aText.toUtf8().toStdString(); }

constexpr const char* kAboutLastLine = "Террамир Мини. Импорт XML Росреестра.";
constexpr const char* kPointsItems[] = {"Не формировать таблицу поворотных точек", "Сохранять поворотные точки всех участков",
                                        "Сохранять по указанным кадастровым номерам"};

bool IsFolder(const std::string& aPath) {
    std::error_code ec;
    return !aPath.empty() && fs::is_directory(aPath, ec);
}

std::string ParentOf(const std::string& aPath) { return fs::path(aPath).parent_path().string(); }

// "Файлы XML (*.xml)|*.xml" as Qt writes filters: "Файлы XML (*.xml)".
QString QtFilter(const std::string& aFilter) {
    const QStringList parts = Q(aFilter).split('|');
    QStringList filters;
    for (int i = 0; i + 1 < parts.size(); i += 2) {
        QString description = parts[i];
        if (!description.contains('(')) description += " (" + QString(parts[i + 1]).replace(';', ' ') + ")";
        filters << description;
    }
    return filters.join(";;");
}

QPushButton* Button(QWidget* aParent, const char* aName, const char* aCaption, const char* aHint = nullptr) {
    auto* b = new QPushButton(QString::fromUtf8(aCaption), aParent);
    b->setObjectName(aName);
    b->setAutoDefault(false);
    if (aHint) b->setToolTip(QString::fromUtf8(aHint));
    return b;
}

QCheckBox* Check(QWidget* aParent, const char* aName, const char* aCaption, const char* aHint, bool aOn) {
    auto* c = new QCheckBox(QString::fromUtf8(aCaption), aParent);
    c->setObjectName(aName);
    if (aHint) c->setToolTip(QString::fromUtf8(aHint));
    c->setChecked(aOn);
    return c;
}

QLineEdit* ReadOnlyLine(QWidget* aParent, const char* aName, const char* aHint) {
    auto* e = new QLineEdit(aParent);
    e->setObjectName(aName);
    e->setReadOnly(true);
    e->setToolTip(QString::fromUtf8(aHint));
    e->setMinimumWidth(380);
    return e;
}

}  // namespace

bool TImportConsoleUi::OpenFileDialog(QWidget* aOwner, const TFileDialogRequest& aRequest, std::string& aFile) {
    QFileDialog dialog(aOwner, Q(aRequest.Title), Q(aRequest.InitialDir), QtFilter(aRequest.Filter));
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setDefaultSuffix(Q(aRequest.DefaultExt));
    if (!aRequest.FileName.empty()) dialog.selectFile(Q(aRequest.FileName));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return false;
    aFile = S(dialog.selectedFiles().first());
    return true;
}

bool TImportConsoleUi::SaveFileDialog(QWidget* aOwner, const TFileDialogRequest& aRequest, std::string& aFile) {
    QFileDialog dialog(aOwner, Q(aRequest.Title), Q(aRequest.InitialDir), QtFilter(aRequest.Filter));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    // Naming a file only points at its folder: nothing is written, nothing to confirm.
    dialog.setOption(QFileDialog::DontConfirmOverwrite);
    if (!aRequest.DefaultExt.empty()) dialog.setDefaultSuffix(Q(aRequest.DefaultExt));
    if (!aRequest.FileName.empty()) dialog.selectFile(Q(aRequest.FileName));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return false;
    aFile = S(dialog.selectedFiles().first());
    return true;
}

bool TImportConsoleUi::ChooseProjection(QWidget* aOwner, const std::string& aCatalogue, TProjectionBounds& aBounds,
                                        bool& aIsEarth, std::string& aClause) {
    try {
        return tmi::ChooseProjection(aCatalogue, fCategory, fProjection, true, aBounds, aIsEarth, aClause);
    } catch (const std::exception& e) {
        Information(aOwner, e.what());
        return false;
    }
}

void TImportConsoleUi::Information(QWidget* aOwner, const std::string& aText) {
    QMessageBox box(QMessageBox::Information, QString::fromUtf8("Террамир Мини"), Q(aText), QMessageBox::Ok, aOwner);
    box.exec();
}

bool TImportConsoleUi::OpenDocument(const std::string& aPath) { return QDesktopServices::openUrl(QUrl::fromLocalFile(Q(aPath))); }

TfrmImport::TfrmImport(QWidget* aParent, std::shared_ptr<TImportConsoleUi> aUi)
    : QDialog(aParent), fUi(aUi ? std::move(aUi) : std::make_shared<TImportConsoleUi>()) {
    setObjectName("frmImport");
    setWindowTitle(QString::fromUtf8("Импорт из XML Росреестра"));
    setWindowFlags(Qt::Dialog | Qt::MSWindowsFixedSizeDialogHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);

    XMLBtn = Button(this, "XMLBtn", "Файл XML", "Выбор файла xml для импорта");
    XMLText = ReadOnlyLine(this, "XMLText", "Файл xml для импорта");
    MiBtn = Button(this, "MiBtn", "Выходная папка", "Выбор папки для выходных таблиц");
    MiText = ReadOnlyLine(this, "MiText", "Папка для выходных таблиц MapInfo ");
    ProjBtn = Button(this, "ProjBtn", "Проекция в XML", "Выбор проекции исходного файла XML");
    ProjText = new QPlainTextEdit(this);
    ProjText->setObjectName("ProjText");
    ProjText->setReadOnly(true);
    ProjText->setToolTip(ProjBtn->toolTip());
    ProjText->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    ProjText->setFixedHeight(ProjText->fontMetrics().lineSpacing() * 3 + 12);
    ProjQgisBtn = Button(this, "ProjQgisBtn", "Проекция QGIS", "Выбор проекции выходных таблиц QGIS");
    ProjQgisText = ReadOnlyLine(this, "ProjQgisText", "Выбор проекции выходных таблиц QGIS");
    ProjQgisBtn->hide();
    ProjQgisText->hide();
    chkBounds = Check(this, "chkBounds", "Создать границы по XML", nullptr, true);
    chkPacket = Check(this, "chkPacket", "Пакетный импорт", "Импорт всех xml из выбранной папки", false);
    GroupBox1 = new QGroupBox(QString::fromUtf8("Какие объекты импортировать?"), this);
    GroupBox1->setObjectName("GroupBox1");
    chkObj = Check(GroupBox1, "chkObj", "ОКС", "Импортировать объекты капитального строительства", true);
    chkParcel = Check(GroupBox1, "chkParcel", "Земельные участки", "Импортировать земельные участки", true);
    chkZone = Check(GroupBox1, "chkZone", "Зоны", "Импортировать зоны", true);
    chkBound = Check(GroupBox1, "chkBound", "Границы", "Импортировать границы", true);
    chkCenter = Check(GroupBox1, "chkCenter", "Центры круговых ОКС", "Импортировать точки центров ОКС окружностей", false);
    cmbPoints = new QComboBox(this);
    cmbPoints->setObjectName("cmbPoints");
    cmbPoints->setToolTip(QString::fromUtf8("Как формировать таблицу поворотных точек"));
    for (const char* item : kPointsItems) cmbPoints->addItem(QString::fromUtf8(item));
    cmbPoints->setCurrentIndex(0);
    Label1 = new QLabel(QString::fromUtf8("Выводить только по следующим кадастровым номерам"), this);
    Label1->setObjectName("Label1");
    txtCn = new QPlainTextEdit(this);
    txtCn->setObjectName("txtCn");
    txtCn->setFixedHeight(txtCn->fontMetrics().lineSpacing() * 4 + 12);
    cmbWriteStyle = new QComboBox(this);
    cmbWriteStyle->setObjectName("cmbWriteStyle");
    cmbWriteStyle->addItem(QString::fromUtf8("Сохранять результаты с использованием mif/mid"));
    cmbWriteStyle->addItem(QString::fromUtf8("Сохранять результаты с использованием miTab"));
    cmbWriteStyle->setCurrentIndex(1);
    cmbWriteStyle->hide();
    OKBtn = Button(this, "OKBtn", "Конвертировать");
    CloseBtn = Button(this, "CloseBtn", "Закрыть");
    HelpBtn = Button(this, "HelpBtn", "Справка");
    AboutBtn = Button(this, "AboutBtn", "О программе");
    RichEdit1 = new QPlainTextEdit(this);
    RichEdit1->setObjectName("RichEdit1");
    RichEdit1->setReadOnly(true);
    RichEdit1->setFixedHeight(RichEdit1->fontMetrics().lineSpacing() * 5 + 12);
    cxButton1 = Button(this, "cxButton1", "cxButton1");
    Button1 = Button(this, "Button1", "Button1");
    cxButton1->hide();
    Button1->hide();

    auto* objects = new QGridLayout(GroupBox1);
    objects->addWidget(chkObj, 0, 0);
    objects->addWidget(chkParcel, 0, 1);
    objects->addWidget(chkZone, 1, 0);
    objects->addWidget(chkBound, 1, 1);
    objects->addWidget(chkCenter, 2, 0, 1, 2);

    auto* grid = new QGridLayout;
    grid->addWidget(XMLBtn, 0, 0);
    grid->addWidget(XMLText, 0, 1);
    grid->addWidget(MiBtn, 1, 0);
    grid->addWidget(MiText, 1, 1);
    grid->addWidget(ProjBtn, 2, 0, Qt::AlignTop);
    grid->addWidget(ProjText, 2, 1);
    grid->addWidget(ProjQgisBtn, 3, 0);
    grid->addWidget(ProjQgisText, 3, 1);
    auto* options = new QHBoxLayout;
    options->addWidget(chkBounds);
    options->addWidget(chkPacket);
    options->addStretch(1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(OKBtn);
    buttons->addWidget(CloseBtn);
    buttons->addStretch(1);
    buttons->addWidget(HelpBtn);
    buttons->addWidget(AboutBtn);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    layout->addLayout(options);
    layout->addWidget(GroupBox1);
    layout->addWidget(cmbPoints);
    layout->addWidget(Label1);
    layout->addWidget(txtCn);
    layout->addWidget(cmbWriteStyle);
    layout->addLayout(buttons);
    layout->addWidget(RichEdit1);
    layout->addWidget(cxButton1);
    layout->addWidget(Button1);
    // A fixed border: the window keeps the size its contents ask for.
    layout->setSizeConstraint(QLayout::SetFixedSize);

    connect(XMLBtn, &QPushButton::clicked, this, [this] { XMLBtnClick(); });
    connect(MiBtn, &QPushButton::clicked, this, [this] { MiBtnClick(); });
    connect(ProjBtn, &QPushButton::clicked, this, [this] { ProjBtnClick(); });
    connect(OKBtn, &QPushButton::clicked, this, [this] { OKBtnClick(); });
    connect(cxButton1, &QPushButton::clicked, this, [this] { cxButton1Click(); });
    connect(CloseBtn, &QPushButton::clicked, this, [this] { reject(); });
    connect(HelpBtn, &QPushButton::clicked, this, [this] { HelpBtnClick(); });
    connect(AboutBtn, &QPushButton::clicked, this, [this] { AboutBtnClick(); });
    connect(Button1, &QPushButton::clicked, this, [this] { Message("Error Message"); });
    connect(cmbPoints, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] { cmbPointsChange(); });
    // F1 reaches the window whichever control has the focus.
    auto* help = new QShortcut(QKeySequence(Qt::Key_F1), this);
    help->setContext(Qt::WindowShortcut);
    connect(help, &QShortcut::activated, this, [this] { HelpBtnClick(); });
    cmbPointsChange();

    // A result list of an earlier run goes: a host must not take its tables for this run's.
    std::error_code ec;
    fs::remove(TlibImportXML::ResultListPath(), ec);
}

TfrmImport::~TfrmImport() = default;

void TfrmImport::showEvent(QShowEvent* aEvent) {
    QDialog::showEvent(aEvent);
    if (fCentred) return;
    fCentred = true;
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        move(area.center() - QPoint(width() / 2, height() / 2));
    }
}

void TfrmImport::SetChoices(const TImportChoices& c) {
    XMLText->setText(Q(c.XMLText));
    MiText->setText(Q(c.MiText));
    fXmin = c.fXmin, fYmin = c.fYmin, fXmax = c.fXmax, fYmax = c.fYmax;
    ProjText->setPlainText(Q(c.ProjText));
    chkObj->setChecked(c.chkObj);
    chkBounds->setChecked(c.chkBounds);
    chkParcel->setChecked(c.chkParcel);
    chkBound->setChecked(c.chkBound);
    chkZone->setChecked(c.chkZone);
    chkCenter->setChecked(c.chkCenter);
    chkPacket->setChecked(c.chkPacket);
    cmbWriteStyle->setCurrentIndex(c.cmbWriteStyle >= 0 && c.cmbWriteStyle < cmbWriteStyle->count() ? c.cmbWriteStyle : 1);
    cmbPoints->setCurrentIndex(c.cmbPoints >= 0 && c.cmbPoints < cmbPoints->count() ? c.cmbPoints : 0);
    cmbPointsChange();
    QStringList lines;
    for (const std::string& line : c.txtCn) lines << Q(line);
    txtCn->setPlainText(lines.join('\n'));
    XSDPath = c.XSDPath;
    AppPath = c.AppPath;
}

TImportChoices TfrmImport::Choices() const {
    TImportChoices c;
    c.XMLText = S(XMLText->text());
    c.MiText = S(MiText->text());
    c.ProjText = S(ProjText->toPlainText());
    c.chkPacket = chkPacket->isChecked();
    c.chkBounds = chkBounds->isChecked();
    c.chkObj = chkObj->isChecked();
    c.chkParcel = chkParcel->isChecked();
    c.chkBound = chkBound->isChecked();
    c.chkZone = chkZone->isChecked();
    c.chkCenter = chkCenter->isChecked();
    c.cmbPoints = cmbPoints->currentIndex();
    c.cmbWriteStyle = cmbWriteStyle->currentIndex();
    const QString text = txtCn->toPlainText();
    if (!text.isEmpty())
        for (const QString& line : text.split('\n')) c.txtCn.push_back(S(line));
    c.XSDPath = XSDPath;
    c.AppPath = AppPath;
    c.fXmin = fXmin, c.fYmin = fYmin, c.fXmax = fXmax, c.fYmax = fYmax;
    return c;
}

void TfrmImport::ReText(const std::string& aText) {
    RichEdit1->appendPlainText(Q(aText));
    RichEdit1->verticalScrollBar()->setValue(RichEdit1->verticalScrollBar()->maximum());
}

QWidget* TfrmImport::MessageOwner() const {
    if (FProgress)
        if (auto* control = dynamic_cast<TcsProgressFormControl*>(FProgress->Control()))
            if (control->Form() && control->Form()->isVisible()) return control->Form();
    return const_cast<TfrmImport*>(this);
}

void TfrmImport::Message(const std::string& aText) { fUi->Information(MessageOwner(), aText); }

void TfrmImport::cmbPointsChange() {
    const bool listed = cmbPoints->currentIndex() == 2;
    txtCn->setVisible(listed);
    Label1->setVisible(listed);
}

void TfrmImport::XMLBtnClick() {
    const std::string current = S(XMLText->text());
    const std::string folder = ParentOf(current);
    TFileDialogRequest request;
    request.Title = "Выберите файл выписки или КПТ для импорта (*.xml)";
    request.InitialDir = IsFolder(folder) ? folder : DocumentsFolder();
    request.DefaultExt = "xml";
    request.Filter = "Файлы XML (*.xml)|*.xml";
    std::string chosen;
    if (!fUi->OpenFileDialog(this, request, chosen)) return;
    fImportInputFile.clear();
    if (IsFile(chosen)) fImportInputFile = chosen;
    XMLText->setText(Q(fImportInputFile));
}

void TfrmImport::MiBtnClick() {
    const std::string current = S(MiText->text());
    TFileDialogRequest request;
    request.Title = "Укажите любой файл в папке для таблиц MapInfo";
    request.InitialDir = IsFolder(current) ? current : DocumentsFolder();
    request.FileName = "1.";
    request.Filter = "Все файлы (*.*)|*.*";
    std::string chosen;
    if (!fUi->SaveFileDialog(this, request, chosen)) return;
    // The folder is chosen by naming any file in it.
    fImportOutputDir.clear();
    const std::string folder = ParentOf(chosen);
    if (IsFolder(folder)) fImportOutputDir = IncludeTrailingDelimiter(folder);
    MiText->setText(Q(fImportOutputDir));
}

void TfrmImport::ProjBtnClick() {
    const std::string catalogue = AppPath + (Bitness() == 64 ? "Apps64/MapInfow.prj" : "Apps/MapInfow.prj");
    TProjectionBounds bounds{fXmin, fYmin, fXmax, fYmax};
    bool isEarth = false;
    std::string clause;
    if (!fUi->ChooseProjection(this, catalogue, bounds, isEarth, clause)) return;
    if (!isEarth) {
        fXmin = bounds.XMin, fYmin = bounds.YMin, fXmax = bounds.XMax, fYmax = bounds.YMax;
        ProjText->setPlainText(Q(NonEarthProjText(fXmin, fYmin, fXmax, fYmax)));
    } else {
        ProjText->setPlainText(Q("CoordSys Earth Projection " + clause));
    }
}

void TfrmImport::OKBtnClick() {
    TImportChoices choices = Choices();
    const bool batch = choices.chkPacket;
    FProgress = std::make_unique<TcsProgress>();
    auto report = [this, batch](TImportMessageLevel aLevel, const std::string& aText) {
        // A batch runs silently: what went wrong with a file goes to the log only.
        if (aLevel == TImportMessageLevel::Notice || (batch && aLevel == TImportMessageLevel::Error))
            ReText(aText);
        else
            Message(aText);
    };
    // The bounds found in a file reach the form however the run ends.
    auto takeBack = [this, &choices] {
        fXmin = choices.fXmin, fYmin = choices.fYmin, fXmax = choices.fXmax, fYmax = choices.fYmax;
        ProjText->setPlainText(Q(choices.ProjText));
    };
    try {
        RunImport(choices, *FProgress, report, {}, HostBridge);
    } catch (const std::exception& e) {
        takeBack();
        // The form stays for another try; the progress window goes so that the form can be used.
        FProgress->Close();
        FProgress.reset();
        ReText(e.what());
        Message(e.what());
        return;
    }
    takeBack();
    FProgress.reset();
    accept();
}

void TfrmImport::cxButton1Click() {
    const std::string path = TestTablePath();
    try {
        std::error_code ec;
        fs::create_directories(fs::path(path).parent_path(), ec);
        WriteTestTable(path, S(ProjText->toPlainText()), fXmin, fYmin, fXmax, fYmax);
        ReText("Записана таблица " + path);
    } catch (const std::exception& e) {
        ReText(e.what());
        Message(e.what());
    }
}

std::string TfrmImport::HelpFileName() const {
    const std::string mapinfo = AppPath + "Help/ОписаниеМодуляMapInfo.html";
    const std::string qgis = AppPath + "Help/Террамир Мини Импорт QGIS.html";
    switch (HostMode()) {
        case 0: return mapinfo;
        case 2: return qgis;
        case 4: return IsFile(mapinfo) ? mapinfo : qgis;
        default: return AppPath + "Help/ОписаниеМодуляАксиома.html";
    }
}

void TfrmImport::HelpBtnClick() {
    const std::string file = HelpFileName();
    if (IsFile(file) && fUi->OpenDocument(file)) return;
    if (!IsFile(file)) Message("Файл не найден (" + file + ").");
}

void TfrmImport::AboutBtnClick() { Message(AboutText(kAboutLastLine)); }

}  // namespace tmi
