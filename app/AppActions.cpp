#include "AppActions.h"

#include "AppModel.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>

#include <array>

namespace {

// The desktop's standard menu words, which the interface table does not hold.
struct MenuWords {
    const char* file;
    const char* edit;
    const char* help;
    const char* quit;
};

MenuWords menuWords(AppLanguage language) {
    // In the order of AppLanguage.
    static const std::array<MenuWords, 16> words{{
        {"&File", "&Edit", "&Help", "&Quit"},
        {"&Datei", "&Bearbeiten", "&Hilfe", "&Beenden"},
        {"&Bestand", "Be&werken", "&Help", "&Afsluiten"},
        {"&Fichier", "É&dition", "&Aide", "&Quitter"},
        {"&Archivo", "&Editar", "A&yuda", "&Salir"},
        {"&File", "&Modifica", "&Aiuto", "&Esci"},
        {"&Arquivo", "&Editar", "Aj&uda", "&Sair"},
        {"&Fájl", "&Szerkesztés", "&Súgó", "&Kilépés"},
        {"&Plik", "&Edycja", "Pomo&c", "&Zakończ"},
        {"&Fails", "&Rediģēt", "&Palīdzība", "&Iziet"},
        {"&Fail", "&Redigeeri", "&Abi", "&Välju"},
        {"&Tiedosto", "&Muokkaa", "&Ohje", "&Lopeta"},
        {"&Arkiv", "&Redigera", "&Hjälp", "&Avsluta"},
        {"&Fil", "&Rediger", "&Hjelp", "&Avslutt"},
        {"&Αρχείο", "&Επεξεργασία", "&Βοήθεια", "Έ&ξοδος"},
        {"&Файл", "&Правка", "&Справка", "&Выход"},
    }};
    return words[static_cast<std::size_t>(language)];
}

} // namespace

AppActions::AppActions(AppModel& model, QObject* parent)
    : QObject(parent), model_(model), open_(new QAction(this)), save_(new QAction(this)),
      close_(new QAction(this)), undo_(new QAction(this)), quit_(new QAction(this)),
      about_(new QAction(QStringLiteral("Quorvel"), this)), zoomIn_(new QAction(this)),
      zoomOut_(new QAction(this)), zoomFit_(new QAction(this)) {
    zoomIn_->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)});
    zoomOut_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Minus));
    zoomFit_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_0));
    connect(zoomIn_, &QAction::triggered, &model_, &AppModel::zoomIn);
    connect(zoomOut_, &QAction::triggered, &model_, &AppModel::zoomOut);
    connect(zoomFit_, &QAction::triggered, &model_, &AppModel::zoomFit);
    open_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    save_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_S));
    close_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_W));
    undo_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    quit_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit_->setMenuRole(QAction::QuitRole);
    for (QAction* action : {open_, save_, close_, undo_, quit_}) {
        action->setShortcutContext(Qt::ApplicationShortcut);
    }
    connect(open_, &QAction::triggered, &model_, &AppModel::chooseFile);
    connect(save_, &QAction::triggered, &model_, &AppModel::exportCopy);
    connect(close_, &QAction::triggered, &model_, &AppModel::clear);
    connect(undo_, &QAction::triggered, &model_, &AppModel::undoLastMask);
    connect(quit_, &QAction::triggered, &model_, &AppModel::quitRequested);
    connect(&model_, &AppModel::changed, this, &AppActions::refresh);
    refresh();
}

void AppActions::addMenus(QMenuBar& menus) {
    fileMenu_ = menus.addMenu(QString());
    fileMenu_->addAction(open_);
    fileMenu_->addAction(save_);
    fileMenu_->addSeparator();
    fileMenu_->addAction(close_);
    fileMenu_->addSeparator();
    fileMenu_->addAction(quit_);
    editMenu_ = menus.addMenu(QString());
    editMenu_->addAction(undo_);
    helpMenu_ = menus.addMenu(QString());
    helpMenu_->addAction(about_);
    refresh();
}

void AppActions::refresh() {
    const L10n t = model_.texts();
    open_->setText(t.choosePhoto);
    save_->setText(t.saveLabel(model_.isPDF()));
    close_->setText(t.closeHelp);
    undo_->setText(t.undoMask);
    const MenuWords words = menuWords(model_.language());
    quit_->setText(QString::fromUtf8(words.quit));
    open_->setEnabled(!model_.busy());
    save_->setEnabled(model_.canExport());
    close_->setEnabled(!model_.busy());
    // Manual masks are drawn on photos only.
    undo_->setEnabled(!model_.manualRegions().empty() && !model_.busy() && !model_.isPDF());
    zoomIn_->setEnabled(model_.zoom() < 4.0);
    zoomOut_->setEnabled(model_.zoom() > 1.0);
    if (fileMenu_) {
        fileMenu_->setTitle(QString::fromUtf8(words.file));
        editMenu_->setTitle(QString::fromUtf8(words.edit));
        helpMenu_->setTitle(QString::fromUtf8(words.help));
    }
}
