#include "MainWindow.h"

#include "AppActions.h"
#include "AppModel.h"
#include "ConsentDialog.h"
#include "Sidebar.h"
#include "Theme.h"
#include "Workspace.h"

#include <QAction>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

constexpr int sidebarWidth = 300;

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
        Theme::iconLabel(Theme::icon(QStringLiteral("security-high"), QStringLiteral("lock-shield")), 14));
    localBadge_ = Theme::secondaryCaption();
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
    sidebar_ = new Sidebar(model_);
    sidebar_->setFixedWidth(sidebarWidth);
    split->addWidget(sidebar_);
    split->addWidget(Theme::divider(Qt::Vertical));
    auto* column = new QWidget;
    auto* columnLayout = new QVBoxLayout(column);
    columnLayout->setContentsMargins(0, 0, 0, 0);
    columnLayout->addWidget(buildHeader());
    pages_ = new QStackedWidget;
    pages_->addWidget(buildEmptyState());
    workspace_ = new Workspace(model_, actions_);
    pages_->addWidget(workspace_);
    columnLayout->addWidget(pages_, 1);
    columnLayout->addWidget(buildFooter());
    split->addWidget(column, 1);
    setCentralWidget(central);

    connect(&model_, &AppModel::changed, this, &MainWindow::refresh);
    refresh();
}

QWidget* MainWindow::buildHeader() {
    auto* header = new QWidget;
    auto* layout = new QHBoxLayout(header);
    layout->setContentsMargins(20, 14, 20, 10);
    auto* texts = new QVBoxLayout;
    title_ = Theme::label(Theme::sized(23, QFont::DemiBold));
    texts->addWidget(title_);
    subheadline_ = Theme::label(Theme::sized(13));
    subheadline_->setForegroundRole(QPalette::Mid);
    texts->addWidget(subheadline_);
    layout->addLayout(texts, 1);
    // A PDF's pages, each to be seen before the copy can be saved.
    previousPage_ = new QToolButton;
    previousPage_->setArrowType(Qt::LeftArrow);
    previousPage_->setShortcut(QKeySequence(Qt::Key_PageUp));
    connect(previousPage_, &QToolButton::clicked, &model_,
            [this] { model_.showPage(model_.currentPage() - 1); });
    pageNumber_ = Theme::label(Theme::sized(13));
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
    Theme::bind(close_, actions_.close());
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
    emptyTitle_ = Theme::label(Theme::sized(17, QFont::Medium));
    emptyTitle_->setAlignment(Qt::AlignCenter);
    layout->addWidget(emptyTitle_);
    emptyBody_ = Theme::label();
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
    Theme::bind(choose_, actions_.open());
    layout->addWidget(choose_, 0, Qt::AlignCenter);
    fileTypes_ = Theme::secondaryCaption();
    fileTypes_->setAlignment(Qt::AlignCenter);
    layout->addWidget(fileTypes_);
    privacy_ = Theme::secondaryCaption();
    privacy_->setAlignment(Qt::AlignCenter);
    layout->addWidget(privacy_);
    layout->addStretch();
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
    status_ = Theme::secondaryCaption();
    status_->setWordWrap(false);
    layout->addWidget(status_, 1);
    version_ = Theme::secondaryCaption();
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
    sidebar_->refresh(model_);

    title_->setText(analysis ? QString::fromStdString(analysis->documentType) : t.prepare);
    subheadline_->setText(!analysis        ? t.supportedDocuments
                          : model_.isPDF() ? t.pdfPages(model_.pdfPageCount())
                                           : t.zonesReview(static_cast<int>(model_.activeRegions().size())));
    // Without a document the empty state below says "Prepare a safe copy" itself.
    title_->setVisible(open);
    subheadline_->setVisible(open);
    close_->setVisible(open);
    close_->setToolTip(t.closeHelp);

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

    workspace_->refresh(model_);
    const bool paged = model_.isPDF() && model_.pdfPageCount() > 1 && open;
    for (QWidget* w : std::initializer_list<QWidget*>{previousPage_, pageNumber_, nextPage_}) {
        w->setVisible(paged);
    }
    pageNumber_->setText(QStringLiteral("%1 / %2").arg(model_.currentPage() + 1).arg(model_.pdfPageCount()));
    previousPage_->setEnabled(!busy && model_.currentPage() > 0);
    nextPage_->setEnabled(!busy && model_.currentPage() + 1 < model_.pdfPageCount());

    status_->setText(model_.status());
    version_->setText(t.appVersion);
    showPendingDialogs();
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
