#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QString>

class QApplication;
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

// A label in caption font and the secondary colour that wraps and is never cut short.
QWidget* captionLabel(const QString& text, QWidget* parent = nullptr);

} // namespace Theme
