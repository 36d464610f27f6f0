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
class Sidebar;
class Workspace;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    MainWindow(AppModel& model, AppActions& actions);

    Workspace* workspace() const { return workspace_; }
    QToolButton* nextPageButton() const { return nextPage_; }
    ConsentDialog* consentDialog() const { return consent_; }

    void refresh();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* buildHeader();
    QWidget* buildEmptyState();
    QWidget* buildFooter();
    void showPendingDialogs();

    AppModel& model_;
    AppActions& actions_;

    Sidebar* sidebar_;
    Workspace* workspace_;
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
    QLabel* status_;
    QLabel* version_;

    QPointer<ConsentDialog> consent_;
    QPointer<QMessageBox> alert_;
};
