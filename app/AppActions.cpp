#include "AppActions.h"

#include "AppModel.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>

AppActions::AppActions(AppModel& model, QObject* parent)
    : QObject(parent), model_(model), open_(new QAction(this)), save_(new QAction(this)), close_(new QAction(this)),
      undo_(new QAction(this)) {
    open_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    save_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_S));
    close_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_W));
    undo_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    for (QAction* action : {open_, save_, close_, undo_}) {
        action->setShortcutContext(Qt::ApplicationShortcut);
    }
    connect(open_, &QAction::triggered, &model_, &AppModel::chooseFile);
    connect(save_, &QAction::triggered, &model_, &AppModel::exportCopy);
    connect(close_, &QAction::triggered, &model_, &AppModel::clear);
    connect(undo_, &QAction::triggered, &model_, &AppModel::undoLastMask);
    connect(&model_, &AppModel::changed, this, &AppActions::refresh);
    refresh();
}

void AppActions::addMenus(QMenuBar& menus) {
    fileMenu_ = menus.addMenu(QString());
    fileMenu_->addAction(open_);
    fileMenu_->addAction(save_);
    fileMenu_->addSeparator();
    fileMenu_->addAction(close_);
    editMenu_ = menus.addMenu(QString());
    editMenu_->addAction(undo_);
    refresh();
}

void AppActions::refresh() {
    const L10n t = model_.texts();
    open_->setText(t.choosePhoto);
    save_->setText(t.savePNG);
    close_->setText(t.closeHelp);
    undo_->setText(t.undoMask);
    open_->setEnabled(!model_.busy());
    save_->setEnabled(model_.canExport());
    close_->setEnabled(!model_.busy());
    undo_->setEnabled(!model_.manualRegions().empty() && !model_.busy());
    if (fileMenu_) {
        // The standard menus the commands live in; only their commands are the application's own texts.
        const bool russian = model_.language() == AppLanguage::ru;
        fileMenu_->setTitle(russian ? QStringLiteral("&Файл") : QStringLiteral("&File"));
        editMenu_->setTitle(russian ? QStringLiteral("&Правка") : QStringLiteral("&Edit"));
    }
}
