#pragma once

// The open document: result or original, zoom, the canvas with its badge, manual masks, the review
// box and the save button.

#include <QWidget>

class AppActions;
class AppModel;
class ImageCanvas;
class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QToolButton;

class Workspace : public QWidget {
    Q_OBJECT

public:
    Workspace(AppModel& model, AppActions& actions);
    void refresh(const AppModel& model);

    ImageCanvas* canvas() const { return canvas_; }
    QPushButton* saveButton() const { return save_; }
    QCheckBox* reviewBox() const { return review_; }
    QPushButton* addMaskButton() const { return addMask_; }
    QPushButton* undoButton() const { return undo_; }

private:
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
};
