#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QString>

class QAbstractButton;
class QAction;
class QApplication;
class QFrame;
class QLabel;
class QToolButton;
class QWidget;

namespace Theme {

// sRGB, fully opaque.
inline const QColor accent = QColor::fromRgbF(0.25f, 0.85f, 0.73f);
inline const QColor canvasBackground = QColor::fromRgbF(0.055f, 0.07f, 0.085f);

// The desktop theme's icon of that name, else the bundled drawing.
QIcon icon(const QString& themeName, const QString& bundledName);

// The dark look, whatever the desktop's own appearance.
void applyDarkLook(QApplication& app);

QFont caption(bool semibold = false);
QFont sized(int pixels, int weight = QFont::Normal);

// Sheets and alerts carry a title and a close button, never minimise or maximise.
inline constexpr Qt::WindowFlags dialogFlags =
    Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint;

// The window's building blocks.
// A label that wraps, in `font`.
QLabel* label(const QFont& font = QFont());
// A wrapping label in caption font and the secondary colour.
QLabel* secondaryCaption();
// A one-line section title that keeps its full height, accents and descenders included.
QLabel* sectionTitle();
QLabel* iconLabel(const QIcon& icon, int size);
QFrame* divider(Qt::Orientation orientation = Qt::Horizontal);
// A collapsible group: a header button with an arrow, and `body` shown while it is open.
QToolButton* disclosure(QLabel* body);
// The button triggers the action and is enabled exactly when the action is, so that each enable rule
// is written once, with the action.
void bind(QAbstractButton* button, QAction* action);

} // namespace Theme
