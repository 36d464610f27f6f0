#include "MainWindow.h"

#include "AppActions.h"
#include "AppModel.h"
#include "ConsentDialog.h"
#include "ImageCanvas.h"
#include "Theme.h"

#include <QAction>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFontMetrics>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

constexpr int sidebarWidth = 300;

QLabel* label(QWidget* parent = nullptr, const QFont& font = QFont()) {
    auto* l = new QLabel(parent);
    l->setFont(font);
    l->setWordWrap(true);
    return l;
}

QLabel* secondaryCaption(QWidget* parent = nullptr) {
    QLabel* l = label(parent, Theme::caption());
    l->setForegroundRole(QPalette::Mid);
    return l;
}

QLabel* sectionTitle() {
    QLabel* l = label(nullptr, Theme::caption(true));
    l->setForegroundRole(QPalette::Mid);
    // A squeezed sidebar shrank these one-line titles below their font's height and cut the accents off
    // capitals ("ZUSÄTZLICH" showed as "ZUSATZLICH"): they keep their full height.
    l->setWordWrap(false);
    l->setMinimumHeight(QFontMetrics(l->font()).height() + 2);
    l->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    return l;
}

QLabel* iconLabel(const QIcon& icon, int size) {
    auto* l = new QLabel;
    l->setPixmap(icon.pixmap(size, size));
    l->setFixedSize(size, size);
    return l;
}

QFrame* divider(Qt::Orientation orientation = Qt::Horizontal) {
    auto* line = new QFrame;
    line->setFrameShape(orientation == Qt::Horizontal ? QFrame::HLine : QFrame::VLine);
    line->setForegroundRole(QPalette::Mid);
    return line;
}

// A collapsible group: a header button with an arrow, and a body shown while it is open.
QToolButton* disclosure(QLabel* body) {
    auto* toggle = new QToolButton;
    toggle->setCheckable(true);
    toggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toggle->setArrowType(Qt::RightArrow);
    toggle->setAutoRaise(true);
    body->setVisible(false);
    QObject::connect(toggle, &QToolButton::toggled, body, [toggle, body](bool open) {
        toggle->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        body->setVisible(open);
    });
    return toggle;
}

} // namespace

MainWindow::MainWindow(AppModel& model, AppActions& actions) : model_(model), actions_(actions) {
    setWindowTitle(QStringLiteral("Quorvel"));
    setObjectName(QStringLiteral("main"));
    setWindowIcon(Theme::icon(QStringLiteral("quorvel"), QStringLiteral("quorvel")));
    resize(1220, 820);
    setMinimumSize(1020, 720);
    setAcceptDrops(true);

    auto* toolbar = addToolBar(QString());
    toolbar->setMovable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    auto* spacer = new QWidget;
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    auto* badge = new QWidget;
    auto* badgeRow = new QHBoxLayout(badge);
    badgeRow->setContentsMargins(0, 0, 12, 0);
    badgeRow->addWidget(
        iconLabel(Theme::icon(QStringLiteral("security-high"), QStringLiteral("lock-shield")), 14));
    localBadge_ = secondaryCaption();
    localBadge_->setWordWrap(false);
    badgeRow->addWidget(localBadge_);
    toolbar->addWidget(badge);
    actions_.open()->setIcon(Theme::icon(QStringLiteral("document-open"), QStringLiteral("folder")));
    toolbar->addAction(actions_.open());
    actions_.addMenus(*menuBar());
    for (QAction* zoom : {actions_.zoomIn(), actions_.zoomOut(), actions_.zoomFit()}) {
        addAction(zoom);
    }
    // The version the package and `quorvel --version` report.
    connect(actions_.about(), &QAction::triggered, this, [this] {
        QMessageBox::about(this, QStringLiteral("Quorvel"),
                           QStringLiteral("Quorvel ") + QCoreApplication::applicationVersion() +
                               QStringLiteral("\n") + model_.texts().appVersion + QStringLiteral("\n\n") +
                               model_.texts().offlineBody);
    });

    auto* central = new QWidget;
    auto* split = new QHBoxLayout(central);
    split->setContentsMargins(0, 0, 0, 0);
    split->setSpacing(0);
    QWidget* sidebar = buildSidebar();
    sidebar->setFixedWidth(sidebarWidth);
    split->addWidget(sidebar);
    split->addWidget(divider(Qt::Vertical));
    auto* column = new QWidget;
    auto* columnLayout = new QVBoxLayout(column);
    columnLayout->setContentsMargins(0, 0, 0, 0);
    columnLayout->addWidget(buildHeader());
    pages_ = new QStackedWidget;
    pages_->addWidget(buildEmptyState());
    pages_->addWidget(buildWorkspace());
    columnLayout->addWidget(pages_, 1);
    columnLayout->addWidget(buildFooter());
    split->addWidget(column, 1);
    setCentralWidget(central);

    connect(&model_, &AppModel::changed, this, &MainWindow::refresh);
    refresh();
}

QWidget* MainWindow::buildSidebar() {
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(8);

    auto* brand = new QHBoxLayout;
    brand->addWidget(
        iconLabel(Theme::icon(QStringLiteral("quorvel-shield"), QStringLiteral("checkmark-shield")), 31));
    auto* names = new QVBoxLayout;
    auto* appName = label(nullptr, Theme::sized(15, QFont::Bold));
    appName->setText(QStringLiteral("Quorvel"));
    names->addWidget(appName);
    subtitle_ = secondaryCaption();
    names->addWidget(subtitle_);
    brand->addLayout(names, 1);
    layout->addLayout(brand);

    countryBlock_ = new QWidget;
    auto* country = new QVBoxLayout(countryBlock_);
    country->setContentsMargins(0, 4, 0, 4);
    auto* nameRow = new QHBoxLayout;
    nameRow->addWidget(
        iconLabel(Theme::icon(QStringLiteral("applications-internet"), QStringLiteral("globe")), 16));
    countryName_ = label(nullptr, Theme::sized(14, QFont::DemiBold));
    nameRow->addWidget(countryName_, 1);
    country->addLayout(nameRow);
    countryEvidence_ = secondaryCaption();
    country->addWidget(countryEvidence_);
    countryProfile_ = label(nullptr, Theme::caption());
    QPalette accentText = countryProfile_->palette();
    accentText.setColor(QPalette::WindowText, Theme::accent);
    countryProfile_->setPalette(accentText);
    country->addWidget(countryProfile_);
    heuristicZones_ = secondaryCaption();
    country->addWidget(heuristicZones_);
    country->addWidget(divider());
    layout->addWidget(countryBlock_);

    auto* languageRow = new QHBoxLayout;
    languageRow->addWidget(
        iconLabel(Theme::icon(QStringLiteral("preferences-desktop-locale"), QStringLiteral("globe")), 14));
    languagePicker_ = new QComboBox;
    languagePicker_->setFixedWidth(125);
    languagePicker_->setFont(Theme::caption());
    for (AppLanguage language : AppLanguages::allCases()) {
        languagePicker_->addItem(AppLanguages::displayName(language), AppLanguages::rawValue(language));
    }
    connect(languagePicker_, &QComboBox::activated, this, [this](int index) {
        model_.setLanguage(AppLanguages::allCases()[static_cast<std::size_t>(index)]);
    });
    languageRow->addWidget(languagePicker_);
    languageRow->addStretch();
    layout->addLayout(languageRow);

    alwaysHideTitle_ = sectionTitle();
    layout->addWidget(alwaysHideTitle_);
    for (QLabel*& row : requiredRows_) {
        auto* line = new QHBoxLayout;
        line->addWidget(
            iconLabel(Theme::icon(QStringLiteral("quorvel-check"), QStringLiteral("checkmark-circle")), 13));
        row = label();
        line->addWidget(row, 1);
        layout->addLayout(line);
    }
    machineReadableHint_ = secondaryCaption();
    layout->addWidget(machineReadableHint_);

    additionalTitle_ = sectionTitle();
    layout->addWidget(additionalTitle_);
    for (int i = 0; i < 3; ++i) {
        auto* line = new QHBoxLayout;
        optionLabels_[i] = label();
        line->addWidget(optionLabels_[i], 1);
        optionSwitches_[i] = new QCheckBox;
        // Drawn as a switch: a rounded track with its knob, accent-coloured when on, and a ring around
        // it while it has the keyboard's focus.
        optionSwitches_[i]->setFocusPolicy(Qt::StrongFocus);
        optionSwitches_[i]->setStyleSheet(QStringLiteral(
            "QCheckBox::indicator { width: 30px; height: 16px; border: 2px solid transparent; border-radius: "
            "10px;"
            " image: url(:/icons/switch-off.svg); }"
            "QCheckBox::indicator:checked { image: url(:/icons/switch-on.svg); }"
            "QCheckBox::indicator:disabled { image: url(:/icons/switch-off-disabled.svg); }"
            "QCheckBox::indicator:checked:disabled { image: url(:/icons/switch-on-disabled.svg); }"
            "QCheckBox:focus::indicator { border-color: #FFFFFF; }"));
        line->addWidget(optionSwitches_[i]);
        layout->addLayout(line);
        connect(optionSwitches_[i], &QCheckBox::toggled, this, [this, i](bool on) {
            RedactionPolicy policy = model_.policy();
            (i == 0 ? policy.hideFace : i == 1 ? policy.hideIssueDate : policy.hideExpiryDate) = on;
            model_.setPolicy(policy);
        });
    }
    additionalHint_ = secondaryCaption();
    layout->addWidget(additionalHint_);

    riskTitle_ = sectionTitle();
    layout->addWidget(riskTitle_);
    auto* card = new QFrame;
    card->setObjectName(QStringLiteral("riskCard"));
    card->setStyleSheet(
        QStringLiteral("#riskCard { background: rgba(255, 255, 255, 0.045); border-radius: 12px; }"));
    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(12, 12, 12, 12);
    riskHeading_ = label(nullptr, Theme::sized(13, QFont::Medium));
    cardLayout->addWidget(riskHeading_);
    auto* scoreRow = new QHBoxLayout;
    riskScore_ = label(nullptr, Theme::sized(35, QFont::Medium));
    riskScore_->setWordWrap(false);
    scoreRow->addWidget(riskScore_, 0, Qt::AlignBaseline);
    riskOutOf_ = secondaryCaption();
    riskOutOf_->setText(QStringLiteral("/ 100"));
    scoreRow->addWidget(riskOutOf_, 0, Qt::AlignBaseline);
    scoreRow->addStretch();
    cardLayout->addLayout(scoreRow);
    riskSubtext_ = secondaryCaption();
    cardLayout->addWidget(riskSubtext_);
    riskResults_ = label(nullptr, Theme::caption());
    riskResultsToggle_ = disclosure(riskResults_);
    cardLayout->addWidget(riskResultsToggle_);
    cardLayout->addWidget(riskResults_);
    layout->addWidget(card);

    warnings_ = secondaryCaption();
    warningsToggle_ = disclosure(warnings_);
    layout->addWidget(warningsToggle_);
    layout->addWidget(warnings_);

    layout->addStretch();
    auto* offlineRow = new QHBoxLayout;
    offlineRow->addWidget(
        iconLabel(Theme::icon(QStringLiteral("quorvel-drive"), QStringLiteral("drive")), 14));
    offlineTitle_ = label(nullptr, Theme::caption(true));
    offlineTitle_->setPalette(accentText);
    offlineRow->addWidget(offlineTitle_, 1);
    layout->addLayout(offlineRow);
    offlineBody_ = secondaryCaption();
    layout->addWidget(offlineBody_);

    // The sidebar scrolls when the window is short and every group is open.
    auto* scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    return scroll;
}

QWidget* MainWindow::buildHeader() {
    auto* header = new QWidget;
    auto* layout = new QHBoxLayout(header);
    layout->setContentsMargins(20, 14, 20, 10);
    auto* texts = new QVBoxLayout;
    title_ = label(nullptr, Theme::sized(23, QFont::DemiBold));
    texts->addWidget(title_);
    subheadline_ = label(nullptr, Theme::sized(13));
    subheadline_->setForegroundRole(QPalette::Mid);
    texts->addWidget(subheadline_);
    layout->addLayout(texts, 1);
    // A PDF's pages, each to be seen before the copy can be saved.
    previousPage_ = new QToolButton;
    previousPage_->setArrowType(Qt::LeftArrow);
    previousPage_->setShortcut(QKeySequence(Qt::Key_PageUp));
    connect(previousPage_, &QToolButton::clicked, &model_,
            [this] { model_.showPage(model_.currentPage() - 1); });
    pageNumber_ = label(nullptr, Theme::sized(13));
    nextPage_ = new QToolButton;
    nextPage_->setArrowType(Qt::RightArrow);
    nextPage_->setShortcut(QKeySequence(Qt::Key_PageDown));
    connect(nextPage_, &QToolButton::clicked, &model_, [this] { model_.showPage(model_.currentPage() + 1); });
    layout->addWidget(previousPage_, 0, Qt::AlignTop);
    layout->addWidget(pageNumber_, 0, Qt::AlignTop);
    layout->addWidget(nextPage_, 0, Qt::AlignTop);
    close_ = new QToolButton;
    close_->setIcon(Theme::icon(QStringLiteral("window-close"), QStringLiteral("xmark")));
    close_->setAutoRaise(true);
    connect(close_, &QToolButton::clicked, &model_, &AppModel::clear);
    layout->addWidget(close_, 0, Qt::AlignTop);
    return header;
}

QWidget* MainWindow::buildEmptyState() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addStretch();
    emptyIcon_ = new QLabel;
    emptyIcon_->setAlignment(Qt::AlignCenter);
    layout->addWidget(emptyIcon_);
    emptyTitle_ = label(nullptr, Theme::sized(17, QFont::Medium));
    emptyTitle_->setAlignment(Qt::AlignCenter);
    layout->addWidget(emptyTitle_);
    emptyBody_ = label();
    emptyBody_->setAlignment(Qt::AlignCenter);
    emptyBody_->setForegroundRole(QPalette::Mid);
    layout->addWidget(emptyBody_);
    emptyProgress_ = new QProgressBar;
    emptyProgress_->setRange(0, 0);
    emptyProgress_->setFixedWidth(220);
    emptyProgress_->setTextVisible(false);
    layout->addWidget(emptyProgress_, 0, Qt::AlignCenter);
    choose_ = new QPushButton;
    choose_->setDefault(true);
    choose_->setMinimumHeight(34);
    connect(choose_, &QPushButton::clicked, actions_.open(), &QAction::trigger);
    layout->addWidget(choose_, 0, Qt::AlignCenter);
    fileTypes_ = secondaryCaption();
    fileTypes_->setAlignment(Qt::AlignCenter);
    layout->addWidget(fileTypes_);
    privacy_ = secondaryCaption();
    privacy_->setAlignment(Qt::AlignCenter);
    layout->addWidget(privacy_);
    layout->addStretch();
    return page;
}

QWidget* MainWindow::buildWorkspace() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
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
    connect(showOriginal_, &QPushButton::toggled, this, [this](bool on) {
        if (on != model_.showOriginal()) {
            model_.setShowOriginal(on);
        }
    });
    controls->addWidget(segments);
    controls->addStretch();
    zoomOut_ = new QToolButton;
    zoomOut_->setIcon(Theme::icon(QStringLiteral("zoom-out"), QStringLiteral("zoom-out")));
    connect(zoomOut_, &QToolButton::clicked, &model_, &AppModel::zoomOut);
    controls->addWidget(zoomOut_);
    zoomLabel_ = secondaryCaption();
    zoomLabel_->setFixedWidth(42);
    zoomLabel_->setAlignment(Qt::AlignCenter);
    controls->addWidget(zoomLabel_);
    zoomIn_ = new QToolButton;
    zoomIn_->setIcon(Theme::icon(QStringLiteral("zoom-in"), QStringLiteral("zoom-in")));
    connect(zoomIn_, &QToolButton::clicked, &model_, &AppModel::zoomIn);
    controls->addWidget(zoomIn_);
    layout->addLayout(controls);

    canvas_ = new ImageCanvas(model_);
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
    connect(addMask_, &QPushButton::toggled, &model_, [this](bool on) {
        if (on != model_.manualMode()) {
            model_.setManualMode(on);
        }
    });
    maskRow->addWidget(addMask_);
    undo_ = new QPushButton;
    connect(undo_, &QPushButton::clicked, &model_, &AppModel::undoLastMask);
    maskRow->addWidget(undo_);
    maskRow->addStretch();
    workProgress_ = new QProgressBar;
    workProgress_->setRange(0, 0);
    workProgress_->setFixedWidth(80);
    workProgress_->setTextVisible(false);
    maskRow->addWidget(workProgress_);
    layout->addLayout(maskRow);
    hint_ = secondaryCaption();
    layout->addWidget(hint_);
    layout->addWidget(divider());

    auto* reviewRow = new QHBoxLayout;
    review_ = new QCheckBox;
    review_->setFont(Theme::caption());
    connect(review_, &QCheckBox::toggled, this, [this](bool on) {
        if (on != model_.reviewed()) {
            model_.setReviewed(on);
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
    connect(save_, &QPushButton::clicked, actions_.save(), &QAction::trigger);
    reviewRow->addWidget(save_);
    layout->addLayout(reviewRow);
    return page;
}

QWidget* MainWindow::buildFooter() {
    auto* footer = new QWidget;
    auto* layout = new QHBoxLayout(footer);
    layout->setContentsMargins(20, 6, 20, 8);
    auto* dot = new QLabel;
    dot->setFixedSize(5, 5);
    dot->setStyleSheet(QStringLiteral("background: %1; border-radius: 2px;").arg(Theme::accent.name()));
    layout->addWidget(dot);
    status_ = secondaryCaption();
    status_->setWordWrap(false);
    layout->addWidget(status_, 1);
    version_ = secondaryCaption();
    QFont smaller = Theme::caption();
    smaller.setPointSizeF(smaller.pointSizeF() * 0.9);
    version_->setFont(smaller);
    version_->setWordWrap(false);
    layout->addWidget(version_);
    return footer;
}

void MainWindow::refresh() {
    const L10n t = model_.texts();
    const bool busy = model_.busy();
    const bool open = static_cast<bool>(model_.original());
    const auto& analysis = model_.analysis();

    localBadge_->setText(t.localOnly);
    actions_.open()->setIconText(t.open);
    // Nothing behind the terms sheet takes input until they are accepted.
    centralWidget()->setEnabled(!model_.showingConsent());
    refreshSidebar();

    title_->setText(analysis ? QString::fromStdString(analysis->documentType) : t.prepare);
    subheadline_->setText(!analysis        ? t.supportedDocuments
                          : model_.isPDF() ? t.pdfPages(model_.pdfPageCount())
                                           : t.zonesReview(static_cast<int>(model_.activeRegions().size())));
    // Without a document the empty state below says "Prepare a safe copy" itself.
    title_->setVisible(open);
    subheadline_->setVisible(open);
    close_->setVisible(open);
    close_->setToolTip(t.closeHelp);
    close_->setEnabled(!busy);

    pages_->setCurrentIndex(open ? 1 : 0);
    const QString symbol = busy ? QStringLiteral("text-viewfinder") : QStringLiteral("viewfinder");
    emptyIcon_->setPixmap(Theme::icon(QStringLiteral("quorvel-") + symbol, symbol).pixmap(62, 62));
    emptyTitle_->setText(busy ? t.processing : t.prepare);
    emptyBody_->setText(busy ? t.processingBody : t.emptyBody);
    emptyProgress_->setVisible(busy);
    choose_->setVisible(!busy);
    choose_->setText(t.choosePhoto);
    // The empty window's one action takes the keyboard's focus, so that Enter or Space opens a file.
    if (!open && !busy && choose_->isEnabled() && (!focusWidget() || !focusWidget()->isVisible())) {
        choose_->setFocus(Qt::OtherFocusReason);
    }
    fileTypes_->setText(t.fileTypes);
    privacy_->setText(t.privacyBody);

    showResult_->setText(t.result);
    showOriginal_->setText(t.original);
    showResult_->setChecked(!model_.showOriginal());
    showOriginal_->setChecked(model_.showOriginal());
    showOriginal_->setAccessibleName(t.viewLabel());
    zoomOut_->setEnabled(model_.zoom() > 1.0);
    zoomIn_->setEnabled(model_.zoom() < 4.0);
    zoomLabel_->setText(QString::number(static_cast<long long>(model_.zoom() * 100)) + QStringLiteral("%"));
    badge_->setText(model_.showOriginal() ? t.originalBadge : t.resultBadge);
    badge_->adjustSize();
    canvas_->refresh();
    addMask_->setText(t.addMask);
    addMask_->setChecked(model_.manualMode());
    addMask_->setEnabled(!model_.showOriginal() && !busy && !model_.isPDF());
    undo_->setText(t.undoMask);
    undo_->setEnabled(!model_.manualRegions().empty() && !busy && !model_.isPDF());
    workProgress_->setVisible(busy);
    hint_->setText(model_.manualMode() ? t.manualHint : t.reviewHint);
    review_->setText(t.reviewCheckbox);
    review_->setChecked(model_.reviewed());
    review_->setEnabled(!busy && !model_.showOriginal() && model_.allPagesSeen());
    const bool paged = model_.isPDF() && model_.pdfPageCount() > 1 && open;
    for (QWidget* w : std::initializer_list<QWidget*>{previousPage_, pageNumber_, nextPage_}) {
        w->setVisible(paged);
    }
    pageNumber_->setText(QStringLiteral("%1 / %2").arg(model_.currentPage() + 1).arg(model_.pdfPageCount()));
    previousPage_->setEnabled(!busy && model_.currentPage() > 0);
    nextPage_->setEnabled(!busy && model_.currentPage() + 1 < model_.pdfPageCount());
    save_->setText(t.savePNG);
    save_->setEnabled(actions_.save()->isEnabled());

    status_->setText(model_.status());
    version_->setText(t.appVersion);
    showPendingDialogs();
}

void MainWindow::refreshSidebar() {
    const L10n t = model_.texts();
    const auto& analysis = model_.analysis();
    subtitle_->setText(t.subtitle);
    countryBlock_->setVisible(analysis.has_value());
    if (analysis) {
        countryName_->setText(QString::fromStdString(analysis->country.name));
        countryEvidence_->setText(QString::fromStdString(analysis->country.evidence));
        countryProfile_->setText(analysis->country.hasProfile ? t.countryProfile : t.genericRecognition);
        heuristicZones_->setText(t.heuristicZonesText(model_.heuristicZoneCount()));
    }
    languagePicker_->setCurrentIndex(static_cast<int>(model_.language()));
    languagePicker_->setAccessibleName(t.languageLabel());
    alwaysHideTitle_->setText(t.alwaysHide);
    const QString required[4] = {t.numbers, t.address, t.birthDate, t.machineReadable};
    for (int i = 0; i < 4; ++i) {
        requiredRows_[i]->setText(required[i]);
    }
    machineReadableHint_->setText(t.machineReadableHint);
    additionalTitle_->setText(t.additional);
    const QString options[3] = {t.face, t.issueDate, t.expiryDate};
    const bool values[3] = {model_.policy().hideFace, model_.policy().hideIssueDate,
                            model_.policy().hideExpiryDate};
    for (int i = 0; i < 3; ++i) {
        optionLabels_[i]->setText(options[i]);
        const QSignalBlocker quiet(optionSwitches_[i]);
        optionSwitches_[i]->setChecked(values[i]);
        optionSwitches_[i]->setEnabled(!model_.busy());
        optionSwitches_[i]->setAccessibleName(options[i]);
    }
    additionalHint_->setText(t.additionalHint);
    riskTitle_->setText(t.riskCheck);
    refreshRiskCard();
    const bool hasWarnings = analysis && !analysis->warnings.empty();
    warningsToggle_->setVisible(hasWarnings);
    if (!hasWarnings) {
        warnings_->setVisible(false);
        warningsToggle_->setChecked(false);
    }
    if (analysis) {
        warningsToggle_->setText(t.reviewWarnings + QStringLiteral(" (") +
                                 QString::number(analysis->warnings.size()) + QStringLiteral(")"));
        QStringList lines;
        for (const std::string& warning : analysis->warnings) {
            lines << QString::fromStdString(warning);
        }
        warnings_->setText(lines.join(QStringLiteral("\n\n")));
    }
    offlineTitle_->setText(t.offlineTitle);
    offlineBody_->setText(t.offlineBody);
}

void MainWindow::refreshRiskCard() {
    const L10n t = model_.texts();
    const auto& analysis = model_.analysis();
    riskHeading_->setVisible(analysis.has_value());
    riskResultsToggle_->setVisible(analysis.has_value());
    if (!analysis) {
        riskScore_->setFont(Theme::sized(30));
        riskScore_->setText(QStringLiteral("—"));
        riskOutOf_->setVisible(false);
        riskSubtext_->setText(t.riskWaiting);
        riskResults_->setVisible(false);
        riskResultsToggle_->setChecked(false);
        return;
    }
    const auto& score = analysis->risk.score;
    riskHeading_->setText(score ? t.riskIndex : t.riskNotEnough);
    riskScore_->setFont(Theme::sized(35, QFont::Medium));
    riskScore_->setText(score ? QString::number(*score) : QStringLiteral("—"));
    riskOutOf_->setVisible(score.has_value());
    riskSubtext_->setText(t.riskDisclaimer);
    riskResultsToggle_->setText(t.riskResults);
    QStringList findings;
    for (const std::string& finding : analysis->risk.findings) {
        findings << QString::fromStdString(finding);
    }
    riskResults_->setText(findings.join(QStringLiteral("\n\n")));
}

void MainWindow::showPendingDialogs() {
    if (model_.showingConsent() && !consent_) {
        consent_ = new ConsentDialog(model_, this);
        consent_->setAttribute(Qt::WA_DeleteOnClose);
        // The window's own shortcuts are blocked behind the sheet; Quit must still reach it.
        consent_->addAction(actions_.quit());
        consent_->show();
    }
    if (model_.error() && !alert_) {
        const L10n t = model_.texts();
        alert_ = new QMessageBox(QMessageBox::Warning, t.actionError, *model_.error(), QMessageBox::NoButton,
                                 this);
        alert_->addButton(t.understood, QMessageBox::AcceptRole);
        alert_->setWindowFlags(Theme::dialogFlags);
        alert_->setAttribute(Qt::WA_DeleteOnClose);
        // Closed by the button or any other way, the error is cleared; the next one shows again.
        connect(alert_, &QMessageBox::finished, &model_, &AppModel::clearError);
        alert_->open();
    }
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls() && event->mimeData()->urls().first().isLocalFile()) {
        event->acceptProposedAction();
    }
}

void MainWindow::dropEvent(QDropEvent* event) {
    const QList<QUrl> urls = event->mimeData()->urls();
    if (!urls.isEmpty() && urls.first().isLocalFile()) {
        model_.load(urls.first().toLocalFile());
        event->acceptProposedAction();
    }
}

void MainWindow::changeEvent(QEvent* event) {
    // A click on the window must not leave the sheet hidden behind it.
    if (event->type() == QEvent::ActivationChange && isActiveWindow() && consent_ && consent_->isVisible()) {
        consent_->raise();
        consent_->activateWindow();
    }
    QMainWindow::changeEvent(event);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (consent_ && consent_->isVisible()) {
        model_.declineConsent();
    }
    QMainWindow::closeEvent(event);
}
