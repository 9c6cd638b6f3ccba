// The choice dialogs driven offscreen: a category change refills the list, OK waits for a
// pick, a double click confirms, Cancel still reports the selection, and the bounds dialog.
#include <unistd.h>

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include "../offscreen_application.h"
#include "csMapInfoChooseProjectionForm.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

const char* kText =
    "\"--- План-схема ---\"\n"
    "\"План-схема (метры)\", 0, 7\n"
    "\"--- МСК-26 ---\"\n"
    "\"МСК-26 зона 1\", 8, 9999, 3, 24, -123, -94, -0.02, 0.25, 0.13, 1.1, 0, 7, 40.98333333333, 0, 1, 1300000, -4511057.63\n"
    "\"МСК-26 зона 2\", 8, 9999, 3, 24, -123, -94, -0.02, 0.25, 0.13, 1.1, 0, 7, 43.98333333333, 0, 1, 2300000, -4511057.63\n";

// Runs aAct on the modal dialog of that class once it is shown.
void WhenShown(const char* aClass, std::function<void(QWidget*)> aAct) {
    auto* timer = new QTimer();
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, aClass, aAct] {
        QWidget* modal = QApplication::activeModalWidget();
        if (!modal || std::string(typeid(*modal).name()).find(aClass) == std::string::npos) return;
        timer->stop();
        timer->deleteLater();
        aAct(modal);
    });
    timer->start();
}

class ChooseProjectionForm : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        test::OffscreenApplication::Start();
    }
    static void TearDownTestSuite() { test::OffscreenApplication::Stop(); }
    void SetUp() override {
        fFile = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_choose.prj");
        std::ofstream(fFile) << kText;
    }
    void TearDown() override { fs::remove(fFile); }
    fs::path fFile;
};

}  // namespace

TEST_F(ChooseProjectionForm, CategoryChangeRefillsAndOKWaitsForAPick) {
    TcsChooseProjectionForm form;
    form.LoadFile(fFile.string());
    EXPECT_EQ(form.windowTitle(), QStringLiteral("Выбор проекции"));
    ASSERT_EQ(form.CategoryCmb->count(), 2);
    EXPECT_EQ(form.ProjectionLst->count(), 1);
    EXPECT_FALSE(form.OKBtn->isEnabled());
    form.CategoryCmb->setCurrentIndex(1);
    ASSERT_EQ(form.ProjectionLst->count(), 2);
    EXPECT_EQ(form.ProjectionLst->item(1)->text(), QStringLiteral("МСК-26 зона 2"));
    EXPECT_FALSE(form.OKBtn->isEnabled());
    form.ProjectionLst->setCurrentRow(1);
    EXPECT_TRUE(form.OKBtn->isEnabled());
    EXPECT_EQ(form.Model().Clause().substr(0, 9), "8, 9999, ");
    form.CategoryCmb->setCurrentIndex(0);  // back: a fresh list, nothing picked
    EXPECT_FALSE(form.OKBtn->isEnabled());
    EXPECT_EQ(form.ProjectionLst->count(), 1);
}

TEST_F(ChooseProjectionForm, DoubleClickConfirmsAndCancelReports) {
    std::string category, projection, clause;
    bool earth = false;
    TProjectionBounds bounds;
    WhenShown("TcsChooseProjectionForm", [](QWidget* aDialog) {
        auto* form = static_cast<TcsChooseProjectionForm*>(aDialog);
        form->CategoryCmb->setCurrentIndex(1);
        form->ProjectionLst->setCurrentRow(0);
        emit form->ProjectionLst->itemDoubleClicked(form->ProjectionLst->item(0));
    });
    EXPECT_TRUE(ChooseProjection(fFile.string(), category, projection, true, bounds, earth, clause));
    EXPECT_EQ(category, "МСК-26");
    EXPECT_EQ(projection, "МСК-26 зона 1");
    EXPECT_TRUE(earth);
    EXPECT_EQ(bounds.XMax, 0);  // an earth clause asks no bounds

    // Cancel with a selection: false, the out values filled all the same.
    WhenShown("TcsChooseProjectionForm", [](QWidget* aDialog) {
        auto* form = static_cast<TcsChooseProjectionForm*>(aDialog);
        form->ProjectionLst->setCurrentRow(0);
        form->CancelBtn->click();
    });
    EXPECT_FALSE(ChooseProjection(fFile.string(), category, projection, true, bounds, earth, clause));
    EXPECT_EQ(projection, "План-схема (метры)");
    EXPECT_FALSE(earth);
    EXPECT_EQ(bounds.XMax, 0);  // cancelled: no bounds dialog

    // A double click before a pick does nothing; OK on a plan with bounds asked: the bounds
    // dialog opens with the 100000 rule and OK copies its editors back.
    WhenShown("TcsChooseProjectionForm", [](QWidget* aDialog) {
        auto* form = static_cast<TcsChooseProjectionForm*>(aDialog);
        emit form->ProjectionLst->itemDoubleClicked(form->ProjectionLst->item(0));
        EXPECT_TRUE(form->isVisible());
        form->ProjectionLst->setCurrentRow(0);
        WhenShown("TChooseBoundsForm", [](QWidget* aBounds) {
            auto* b = static_cast<TChooseBoundsForm*>(aBounds);
            EXPECT_EQ(b->windowTitle(), QStringLiteral("Координатная система плана"));
            EXPECT_EQ(b->MaxXEdit->value(), 100000);
            EXPECT_EQ(b->MaxYEdit->value(), 100000);
            b->MinXEdit->setValue(-500.25);
            b->OKBtn->click();
        });
        form->OKBtn->click();
    });
    EXPECT_TRUE(ChooseProjection(fFile.string(), category, projection, true, bounds, earth, clause));
    EXPECT_EQ(bounds.XMin, -500.25);
    EXPECT_EQ(bounds.XMax, 100000);

    // The bounds dialog cancelled keeps the entry values, the rule included.
    TProjectionBounds zero;
    TChooseBoundsForm boundsForm;
    WhenShown("TChooseBoundsForm", [](QWidget* aBounds) {
        static_cast<TChooseBoundsForm*>(aBounds)->MinYEdit->setValue(7);
        static_cast<TChooseBoundsForm*>(aBounds)->CancelBtn->click();
    });
    EXPECT_FALSE(boundsForm.Execute(zero));
    EXPECT_EQ(zero.YMin, 0);
    EXPECT_EQ(zero.YMax, 100000);

    // A missing catalogue raises with its text before any window.
    EXPECT_THROW(ChooseProjection((fFile.string() + ".none"), category, projection, false, bounds, earth, clause),
                 EcsChooseProjection);
}
