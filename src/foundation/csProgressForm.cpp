#include "csProgressForm.h"

#include <QApplication>
#include <QFont>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QVBoxLayout>
#include <QWindow>
#include <climits>

#include "csSync.h"

namespace tmi {

namespace {

QString Q(const std::string& aText) { return QString::fromUtf8(aText.data(), static_cast<int>(aText.size())); }
std::string S(const QString& aText) { return aText.toUtf8().toStdString(); }

bool OnGuiThread() {
    return QApplication::instance() && qobject_cast<QApplication*>(QCoreApplication::instance()) &&
           QThread::currentThread() == QCoreApplication::instance()->thread();
}

}  // namespace

TcsProgressForm::TcsProgressForm(QWidget* aParent) : QDialog(aParent) {
    setObjectName("TcsProgressForm");
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    auto* layout = new QVBoxLayout(this);
    HeaderLabel = new QLabel(this);
    QFont bold = HeaderLabel->font();
    bold.setBold(true);
    HeaderLabel->setFont(bold);
    MessageLabel = new QLabel(this);
    MessageLabel->setWordWrap(true);
    ProgressBar = new QProgressBar(this);
    ProgressBar->setTextVisible(true);
    ProgressBar->setAlignment(Qt::AlignCenter);
    ProgressBar->setMinimumWidth(420);
    TimeLabel = new QLabel(this);
    CancelBtn = new QPushButton(QString::fromUtf8("Отмена"), this);
    CancelBtn->setObjectName("CancelBtn");
    auto* row = new QHBoxLayout;
    row->addWidget(TimeLabel, 1);
    row->addWidget(CancelBtn);
    layout->addWidget(HeaderLabel);
    layout->addWidget(MessageLabel);
    layout->addWidget(ProgressBar);
    layout->addLayout(row);
    connect(CancelBtn, &QPushButton::clicked, this, [this] {
        if (OnCancel) OnCancel();
    });
}

void TcsProgressForm::reject() {
    if (OnCancel) OnCancel();
}

void TcsProgressForm::keyPressEvent(QKeyEvent* aEvent) {
    if (aEvent->key() == Qt::Key_Escape) {
        reject();
        return;
    }
    QDialog::keyPressEvent(aEvent);
}

TcsProgressFormControl::TcsProgressFormControl(TcsProgress& aOwner) : TcsProgressControl(aOwner) {
    FForm = new TcsProgressForm();
    FForm->OnCancel = [this] {
        if (fInModal) FModalResult = 2;
        if (OnCancel) OnCancel();
    };
}

TcsProgressFormControl::~TcsProgressFormControl() {
    EnableTaskWindows();
    delete FForm.data();
}

void TcsProgressFormControl::SetParentHWND(uintptr_t v) {
    fParentHWND = v;
    if (!FForm) return;
    QWidget* parent = v ? QWidget::find(static_cast<WId>(v)) : QApplication::activeWindow();
    if (parent && parent->window() != FForm) {
        FForm->winId();
        parent = parent->window();
        parent->winId();
        if (FForm->windowHandle() && parent->windowHandle()) FForm->windowHandle()->setTransientParent(parent->windowHandle());
    }
}

std::string TcsProgressFormControl::TimeCaption() const { return FForm ? S(FForm->TimeLabel->text()) : std::string(); }
void TcsProgressFormControl::SetTimeCaption(const std::string& v) {
    if (FForm) FForm->TimeLabel->setText(Q(v));
}
std::string TcsProgressFormControl::Text() const {
    return FForm ? S(FForm->ProgressBar->format().remove(QChar(0x200B))) : std::string();
}
void TcsProgressFormControl::SetText(const std::string& v) {
    if (!FForm) return;
    // The bar reads %p, %v and %m as its own placeholders and has no escape: a zero-width
    // space behind the "%" keeps such a text as it stands.
    QString text = Q(v);
    for (const char* placeholder : {"%p", "%v", "%m"})
        text.replace(QString::fromLatin1(placeholder), QString("%") + QChar(0x200B) + QChar::fromLatin1(placeholder[1]));
    FForm->ProgressBar->setFormat(text);
}
std::string TcsProgressFormControl::Message() const { return FForm ? S(FForm->MessageLabel->text()) : std::string(); }
void TcsProgressFormControl::SetMessage(const std::string& v) {
    if (FForm) FForm->MessageLabel->setText(Q(v));
}
std::string TcsProgressFormControl::Header() const { return FForm ? S(FForm->HeaderLabel->text()) : std::string(); }
void TcsProgressFormControl::SetHeader(const std::string& v) {
    if (FForm) FForm->HeaderLabel->setText(Q(v));
}
std::string TcsProgressFormControl::Caption() const { return FForm ? S(FForm->windowTitle()) : std::string(); }
void TcsProgressFormControl::SetCaption(const std::string& v) {
    if (FForm) FForm->setWindowTitle(Q(v));
}

void TcsProgressFormControl::SetMin(int64_t v) {
    fMin = v;
    UpdateBar();
}
void TcsProgressFormControl::SetMax(int64_t v) {
    fMax = v;
    UpdateBar();
}
void TcsProgressFormControl::SetPosition(int64_t v) {
    fPosition = v;
    UpdateBar();
}
void TcsProgressFormControl::SetMarquee(bool v) {
    fMarquee = v;
    UpdateBar();
}

void TcsProgressFormControl::UpdateBar() {
    if (!FForm) return;
    QProgressBar* bar = FForm->ProgressBar;
    if (fMarquee) {
        bar->setRange(0, 0);
        return;
    }
    // The bar counts in int: large ranges are shown scaled down.
    const int64_t scale = fMax > INT_MAX ? fMax / INT_MAX + 1 : 1;
    const int64_t low = fMin / scale, high = std::max(fMax / scale, low);
    bar->setRange(static_cast<int>(low), static_cast<int>(high));
    bar->setValue(static_cast<int>(std::clamp(fPosition / scale, low, high)));
}

bool TcsProgressFormControl::Visible() const { return FForm && FForm->isVisible(); }

void TcsProgressFormControl::Show() {
    if (!FForm) return;
    FForm->show();
    FForm->raise();
    FForm->activateWindow();
}

void TcsProgressFormControl::Hide() {
    if (FForm) FForm->hide();
}

bool TcsProgressFormControl::DoAskOnCancel() {
    QMessageBox box(QMessageBox::Question, Q(Caption()), QString::fromUtf8("Вы хотите прервать выполнение?"),
                    QMessageBox::Yes | QMessageBox::No, FForm);
    box.setDefaultButton(QMessageBox::Yes);
    return box.exec() != QMessageBox::No;
}

void TcsProgressFormControl::DisableTaskWindows() {
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (w == FForm || !w->isVisible() || !w->isEnabled()) continue;
        w->setEnabled(false);
        FWindowList.emplace_back(w);
    }
}

void TcsProgressFormControl::EnableTaskWindows() {
    for (const QPointer<QWidget>& w : FWindowList)
        if (w) w->setEnabled(true);
    FWindowList.clear();
}

void TcsProgressFormControl::ProcessMessages() {
    QCoreApplication::processEvents();
    CheckSynchronize();
    fOwner.ProcessCallbacks(0);
}

int TcsProgressFormControl::ShowModal(int aProcessId) {
    Show();
    FModalResult = 0;
    fInModal = true;
    const int result = ModalWaitForProcess(
        fOwner, aProcessId,
        [this] {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            CheckSynchronize();
            return FModalResult;
        },
        [] { return QCoreApplication::closingDown(); });
    fInModal = false;
    FModalResult = result;
    Hide();
    return result;
}

void TcsProgressFormControl::Note(const std::string& aMessage) {
    QMessageBox box(QMessageBox::Information, Q(Caption()), Q(aMessage), QMessageBox::Ok, FForm);
    box.exec();
}

void UseProgressForm() {
    DefaultProgressControlClass() = [](TcsProgress& aOwner) -> std::unique_ptr<TcsProgressControl> {
        // Without an application of widgets on this thread the progress runs without a view.
        if (!OnGuiThread()) return nullptr;
        return std::make_unique<TcsProgressFormControl>(aOwner);
    };
}

namespace {
const bool kProgressFormIsDefault = (UseProgressForm(), true);
}

}  // namespace tmi
