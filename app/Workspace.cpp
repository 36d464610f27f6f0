#include "Workspace.h"

#include "AppActions.h"
#include "AppModel.h"
#include "ImageCanvas.h"
#include "Theme.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

Workspace::Workspace(AppModel& model, AppActions& actions) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 0, 20, 8);

    auto* controls = new QHBoxLayout;
    auto* segments = new QWidget;
    segments->setFixedWidth(215);
    auto* segmentRow = new QHBoxLayout(segments);
    segmentRow->setContentsMargins(0, 0, 0, 0);
    segmentRow->setSpacing(0);
    showResult_ = new QPushButton;
    showOriginal_ = new QPushButton;
    auto* group = new QButtonGroup(segments);
    for (QPushButton* button : {showResult_, showOriginal_}) {
        button->setCheckable(true);
        button->setStyleSheet(
            QStringLiteral("QPushButton:checked { background: #4A5059; font-weight: 600; }"));
        group->addButton(button);
        segmentRow->addWidget(button);
    }
    connect(showOriginal_, &QPushButton::toggled, this, [&model](bool on) {
        if (on != model.showOriginal()) {
            model.setShowOriginal(on);
        }
    });
    controls->addWidget(segments);
    controls->addStretch();
    zoomOut_ = new QToolButton;
    zoomOut_->setIcon(Theme::icon(QStringLiteral("zoom-out"), QStringLiteral("zoom-out")));
    Theme::bind(zoomOut_, actions.zoomOut());
    controls->addWidget(zoomOut_);
    zoomLabel_ = Theme::secondaryCaption();
    zoomLabel_->setFixedWidth(42);
    zoomLabel_->setAlignment(Qt::AlignCenter);
    controls->addWidget(zoomLabel_);
    zoomIn_ = new QToolButton;
    zoomIn_->setIcon(Theme::icon(QStringLiteral("zoom-in"), QStringLiteral("zoom-in")));
    Theme::bind(zoomIn_, actions.zoomIn());
    controls->addWidget(zoomIn_);
    layout->addLayout(controls);

    canvas_ = new ImageCanvas(model);
    canvas_->setStyleSheet(QStringLiteral("ImageCanvas { border-radius: 10px; }"));
    badge_ = new QLabel(canvas_);
    badge_->setFont(Theme::caption(true));
    badge_->setStyleSheet(QStringLiteral(
        "background: rgba(40, 44, 50, 0.72); color: white; padding: 8px; border-radius: 8px;"));
    badge_->setAttribute(Qt::WA_TransparentForMouseEvents);
    badge_->move(12, 12);
    layout->addWidget(canvas_, 1);

    auto* maskRow = new QHBoxLayout;
    addMask_ = new QPushButton;
    addMask_->setCheckable(true);
    // While drawing, the toggle must look held down: the accent behind it, as a pressed tool looks.
    addMask_->setStyleSheet(
        QStringLiteral("QPushButton:checked { background: %1; color: black; border-radius: 4px; "
                       "padding: 4px 10px; }")
            .arg(Theme::accent.name()));
    connect(addMask_, &QPushButton::toggled, &model, [&model](bool on) {
        if (on != model.manualMode()) {
            model.setManualMode(on);
        }
    });
    maskRow->addWidget(addMask_);
    undo_ = new QPushButton;
    Theme::bind(undo_, actions.undo());
    maskRow->addWidget(undo_);
    maskRow->addStretch();
    workProgress_ = new QProgressBar;
    workProgress_->setRange(0, 0);
    workProgress_->setFixedWidth(80);
    workProgress_->setTextVisible(false);
    maskRow->addWidget(workProgress_);
    layout->addLayout(maskRow);
    hint_ = Theme::secondaryCaption();
    layout->addWidget(hint_);
    layout->addWidget(Theme::divider());

    auto* reviewRow = new QHBoxLayout;
    review_ = new QCheckBox;
    review_->setFont(Theme::caption());
    connect(review_, &QCheckBox::toggled, this, [&model](bool on) {
        if (on != model.reviewed()) {
            model.setReviewed(on);
        }
    });
    reviewRow->addWidget(review_, 1);
    save_ = new QPushButton;
    save_->setMinimumHeight(38);
    save_->setMinimumWidth(160);
    save_->setStyleSheet(
        QStringLiteral("QPushButton:enabled { background: %1; color: #0E1216; font-weight: 600; "
                       "border-radius: 6px; padding: 6px 18px; }")
            .arg(Theme::accent.name()));
    Theme::bind(save_, actions.save());
    reviewRow->addWidget(save_);
    layout->addLayout(reviewRow);
}

void Workspace::refresh(const AppModel& model) {
    const L10n t = model.texts();
    const bool busy = model.busy();
    showResult_->setText(t.result);
    showOriginal_->setText(t.original);
    showResult_->setChecked(!model.showOriginal());
    showOriginal_->setChecked(model.showOriginal());
    showOriginal_->setAccessibleName(t.viewLabel());
    zoomLabel_->setText(QString::number(static_cast<long long>(model.zoom() * 100)) + QStringLiteral("%"));
    badge_->setText(model.showOriginal() ? t.originalBadge : t.resultBadge);
    badge_->adjustSize();
    canvas_->refresh();
    addMask_->setText(t.addMask);
    addMask_->setChecked(model.manualMode());
    addMask_->setEnabled(!model.showOriginal() && !busy && !model.isPDF());
    undo_->setText(t.undoMask);
    workProgress_->setVisible(busy);
    hint_->setText(model.manualMode() ? t.manualHint : t.reviewHint);
    review_->setText(t.reviewCheckbox);
    review_->setChecked(model.reviewed());
    review_->setEnabled(!busy && !model.showOriginal() && model.allPagesSeen());
    save_->setText(t.saveLabel(model.isPDF()));
}
