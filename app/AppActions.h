#pragma once

// The menu commands, defined once: menus, buttons and shortcuts use these actions, so a shortcut is
// never enabled while its button is not.

#include <QObject>

class AppModel;
class QAction;
class QMenuBar;

class AppActions : public QObject {
    Q_OBJECT

public:
    AppActions(AppModel& model, QObject* parent);

    QAction* open() const { return open_; }
    QAction* save() const { return save_; }
    QAction* close() const { return close_; }
    QAction* undo() const { return undo_; }
    QAction* quit() const { return quit_; }
    QAction* about() const { return about_; }
    // Zoom as image viewers have it: Ctrl+plus, Ctrl+minus, Ctrl+0 to fit.
    QAction* zoomIn() const { return zoomIn_; }
    QAction* zoomOut() const { return zoomOut_; }
    QAction* zoomFit() const { return zoomFit_; }

    void addMenus(QMenuBar& menus);
    // Titles from the model's language, enabled states from its state.
    void refresh();

private:
    AppModel& model_;
    QAction* open_;
    QAction* save_;
    QAction* close_;
    QAction* undo_;
    QAction* quit_;
    QAction* about_;
    QAction* zoomIn_;
    QAction* zoomOut_;
    QAction* zoomFit_;
    class QMenu* fileMenu_ = nullptr;
    class QMenu* editMenu_ = nullptr;
    class QMenu* helpMenu_ = nullptr;
};
