// The projection choice as the operator sees it: a dialog with a category list and the
// projections of the category, and for a non-earth plan a second dialog for its bounds.
#pragma once

#include <QDialog>
#include <string>

#include "csMapInfoChooseProjection.h"

class QComboBox;
class QDoubleSpinBox;
class QListWidget;
class QPushButton;

namespace tmi {

class TcsChooseProjectionForm : public QDialog {
public:
    explicit TcsChooseProjectionForm(QWidget* aParent = nullptr);
    // Reads the catalogue (an empty name: looks for it) and selects the first category.
    void LoadFile(const std::string& aFileName);
    void SetCoordSysManager(TcsCoordSystemManager* aManager) { fModel.SetCoordSysManager(aManager); }
    [[nodiscard]] const TcsChooseProjectionModel& Model() const noexcept { return fModel; }

    QComboBox* CategoryCmb;
    QListWidget* ProjectionLst;
    QPushButton* OKBtn;
    QPushButton* CancelBtn;
    std::string FProjFileName;
    bool FShowBounds = false;  // kept for the callers that set it; the form does not read it

private:
    void FillList();
    TcsChooseProjectionModel fModel;
};

class TChooseBoundsForm : public QDialog {
public:
    explicit TChooseBoundsForm(QWidget* aParent = nullptr);
    // Shows the bounds (after the rule for a record of zeros); OK copies the editors back.
    bool Execute(TProjectionBounds& aBounds);

    QDoubleSpinBox* MinXEdit;
    QDoubleSpinBox* MaxXEdit;
    QDoubleSpinBox* MinYEdit;
    QDoubleSpinBox* MaxYEdit;
    QPushButton* OKBtn;
    QPushButton* CancelBtn;
    TProjectionBounds FProjectionBounds;
};

}  // namespace tmi
