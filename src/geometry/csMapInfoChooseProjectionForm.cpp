#include "csMapInfoChooseProjectionForm.h"

#include <QApplication>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace tmi {

namespace {
QString Q(const std::string& aText) { return QString::fromUtf8(aText.data(), static_cast<int>(aText.size())); }

// The row of "OK" and "Отмена" at the foot of a dialog, wired to accept and reject.
void AddButtonRow(QDialog* aDialog, QVBoxLayout* aLayout, QPushButton*& aOK, QPushButton*& aCancel) {
    auto* buttons = new QHBoxLayout();
    buttons->addStretch(1);
    aOK = new QPushButton(QStringLiteral("OK"), aDialog);
    aOK->setObjectName(QStringLiteral("OKBtn"));
    aCancel = new QPushButton(QStringLiteral("Отмена"), aDialog);
    aCancel->setObjectName(QStringLiteral("CancelBtn"));
    buttons->addWidget(aOK);
    buttons->addWidget(aCancel);
    aLayout->addLayout(buttons);
    QObject::connect(aOK, &QPushButton::clicked, aDialog, &QDialog::accept);
    QObject::connect(aCancel, &QPushButton::clicked, aDialog, &QDialog::reject);
}
}  // namespace

TcsChooseProjectionForm::TcsChooseProjectionForm(QWidget* aParent) : QDialog(aParent) {
    setWindowTitle(QStringLiteral("Выбор проекции"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(QStringLiteral("Категория"), this));
    CategoryCmb = new QComboBox(this);
    CategoryCmb->setObjectName(QStringLiteral("CategoryCmb"));
    layout->addWidget(CategoryCmb);
    layout->addWidget(new QLabel(QStringLiteral("Проекция"), this));
    ProjectionLst = new QListWidget(this);
    ProjectionLst->setObjectName(QStringLiteral("ProjectionLst"));
    layout->addWidget(ProjectionLst, 1);
    AddButtonRow(this, layout, OKBtn, CancelBtn);
    OKBtn->setEnabled(false);
    resize(520, 460);

    connect(CategoryCmb, qOverload<int>(&QComboBox::currentIndexChanged), this, [this](int aIndex) {
        if (aIndex < 0 || aIndex == fModel.CategoryIndex()) return;
        fModel.SelectCategory(aIndex);
        FillList();
    });
    connect(ProjectionLst, &QListWidget::itemClicked, this, [this](QListWidgetItem*) {
        fModel.SelectProjection(ProjectionLst->currentRow());
        OKBtn->setEnabled(fModel.OKEnabled());
    });
    connect(ProjectionLst, &QListWidget::currentRowChanged, this, [this](int aRow) {
        fModel.SelectProjection(aRow);
        OKBtn->setEnabled(fModel.OKEnabled());
    });
    connect(ProjectionLst, &QListWidget::itemDoubleClicked, this, [this](QListWidgetItem*) {
        if (OKBtn->isEnabled()) accept();
    });
}

void TcsChooseProjectionForm::LoadFile(const std::string& aFileName) {
    FProjFileName = aFileName;
    if (FProjFileName.empty())
        FProjFileName = FindProjectionCatalogue(
            [this] {
                return QFileDialog::getExistingDirectory(this, QStringLiteral("Укажите папку MapInfo")).toStdString();
            },
            [this](const std::string& aText) { QMessageBox::warning(this, windowTitle(), Q(aText)); });
    fModel.Load(FProjFileName);
    {
        const QSignalBlocker block(CategoryCmb);
        CategoryCmb->clear();
        for (const std::string& c : fModel.Categories()) CategoryCmb->addItem(Q(c));
        CategoryCmb->setCurrentIndex(fModel.CategoryIndex());
    }
    FillList();
}

void TcsChooseProjectionForm::FillList() {
    const QSignalBlocker block(ProjectionLst);
    ProjectionLst->clear();
    for (const std::string& p : fModel.Projections()) ProjectionLst->addItem(Q(p));
    ProjectionLst->setCurrentRow(-1);
    OKBtn->setEnabled(fModel.OKEnabled());
}

TChooseBoundsForm::TChooseBoundsForm(QWidget* aParent) : QDialog(aParent) {
    setWindowTitle(QStringLiteral("Координатная система плана"));
    auto* layout = new QVBoxLayout(this);
    auto* grid = new QGridLayout();
    auto editor = [this](const char* aName) {
        auto* e = new QDoubleSpinBox(this);
        e->setObjectName(QString::fromLatin1(aName));
        e->setDecimals(2);
        e->setRange(-1e12, 1e12);
        e->setGroupSeparatorShown(true);  // ",0.00"
        e->setButtonSymbols(QAbstractSpinBox::NoButtons);
        return e;
    };
    MinXEdit = editor("MinXEdit");
    MaxXEdit = editor("MaxXEdit");
    MinYEdit = editor("MinYEdit");
    MaxYEdit = editor("MaxYEdit");
    const struct {
        const char* fLabel;
        QDoubleSpinBox* fEdit;
    } rows[] = {{"Мин X:", MinXEdit}, {"Макс X:", MaxXEdit}, {"Мин Y:", MinYEdit}, {"Макс Y:", MaxYEdit}};
    int row = 0;
    for (const auto& r : rows) {
        grid->addWidget(new QLabel(QString::fromUtf8(r.fLabel), this), row, 0);
        grid->addWidget(r.fEdit, row, 1);
        grid->addWidget(new QLabel(QStringLiteral("m"), this), row, 2);
        ++row;
    }
    layout->addLayout(grid);
    AddButtonRow(this, layout, OKBtn, CancelBtn);
    OKBtn->setDefault(true);
}

bool TChooseBoundsForm::Execute(TProjectionBounds& aBounds) {
    PrepareProjectionBounds(aBounds);
    FProjectionBounds = aBounds;
    MinXEdit->setValue(aBounds.XMin);
    MaxXEdit->setValue(aBounds.XMax);
    MinYEdit->setValue(aBounds.YMin);
    MaxYEdit->setValue(aBounds.YMax);
    if (exec() != QDialog::Accepted) return false;
    aBounds.XMin = MinXEdit->value();
    aBounds.XMax = MaxXEdit->value();
    aBounds.YMin = MinYEdit->value();
    aBounds.YMax = MaxYEdit->value();
    FProjectionBounds = aBounds;
    return true;
}

bool ChooseProjection(const std::string& aFileName, std::string& aCategory, std::string& aProjection, bool aShowBounds,
                      TProjectionBounds& aBounds, bool& aIsEarth, std::string& aClause) {
    QWidget* parent = QApplication::activeWindow();
    TcsChooseProjectionForm form(parent);
    form.LoadFile(aFileName);
    const bool confirmed = form.exec() == QDialog::Accepted;
    // Whichever way the dialog closed, the selection is reported.
    aCategory = form.Model().Category();
    aProjection = form.Model().Projection();
    aClause = form.Model().Clause();
    aIsEarth = IsEarthClause(aClause);
    if (confirmed && !aIsEarth && aShowBounds) {
        TChooseBoundsForm bounds(parent);
        bounds.Execute(aBounds);
    }
    return confirmed;
}

}  // namespace tmi
