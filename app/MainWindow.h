#pragma once

// The one window: a sidebar with the switches, country and risk card on the left; header, workspace
// (or empty state) and footer on the right. It shows what the model holds and calls the model; it keeps
// no state of its own beyond its widgets.

#include <QMainWindow>
#include <QPointer>

class AppActions;
class AppModel;
class ConsentDialog;
class ImageCanvas;
class QCheckBox;
class QComboBox;
class QLabel;
class QMessageBox;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QToolButton;
class QVBoxLayout;
class QWidget;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    MainWindow(AppModel& model, AppActions& actions);

    ImageCanvas* canvas() const { return canvas_; }
    QPushButton* saveButton() const { return save_; }
    QCheckBox* reviewBox() const { return review_; }
    QToolButton* nextPageButton() const { return nextPage_; }
    QPushButton* addMaskButton() const { return addMask_; }
    QPushButton* undoButton() const { return undo_; }
    ConsentDialog* consentDialog() const { return consent_; }

    void refresh();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* buildSidebar();
    QWidget* buildHeader();
    QWidget* buildEmptyState();
    QWidget* buildWorkspace();
    QWidget* buildFooter();
    void refreshSidebar();
    void refreshRiskCard();
    void showPendingDialogs();

    AppModel& model_;
    AppActions& actions_;

    // Sidebar.
    QLabel* subtitle_;
    QWidget* countryBlock_;
    QLabel* countryName_;
    QLabel* countryEvidence_;
    QLabel* countryProfile_;
    QLabel* heuristicZones_;
    QComboBox* languagePicker_;
    QLabel* alwaysHideTitle_;
    QLabel* requiredRows_[4];
    QLabel* machineReadableHint_;
    QLabel* additionalTitle_;
    QLabel* optionLabels_[3];
    QCheckBox* optionSwitches_[3];
    QLabel* additionalHint_;
    QLabel* riskTitle_;
    QLabel* riskHeading_;
    QLabel* riskScore_;
    QLabel* riskOutOf_;
    QLabel* riskSubtext_;
    QToolButton* riskResultsToggle_;
    QLabel* riskResults_;
    QToolButton* warningsToggle_;
    QLabel* warnings_;
    QLabel* offlineTitle_;
    QLabel* offlineBody_;
    QLabel* localBadge_;

    // Document column.
    QLabel* title_;
    QLabel* subheadline_;
    QToolButton* close_;
    QToolButton* previousPage_;
    QToolButton* nextPage_;
    QLabel* pageNumber_;
    QStackedWidget* pages_;
    QLabel* emptyIcon_;
    QLabel* emptyTitle_;
    QLabel* emptyBody_;
    QProgressBar* emptyProgress_;
    QPushButton* choose_;
    QLabel* fileTypes_;
    QLabel* privacy_;
    QPushButton* showResult_;
    QPushButton* showOriginal_;
    QToolButton* zoomOut_;
    QLabel* zoomLabel_;
    QToolButton* zoomIn_;
    ImageCanvas* canvas_;
    QLabel* badge_;
    QPushButton* addMask_;
    QPushButton* undo_;
    QProgressBar* workProgress_;
    QLabel* hint_;
    QCheckBox* review_;
    QPushButton* save_;
    QLabel* status_;
    QLabel* version_;

    QPointer<ConsentDialog> consent_;
    QPointer<QMessageBox> alert_;
};
