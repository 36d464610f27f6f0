#include "Theme.h"

#include <QApplication>
#include <QLabel>
#include <QPalette>
#include <QStyleFactory>

// Resources of a static library are registered by hand; the linker would drop them otherwise.
static void registerBundledIcons() {
    static const bool registered = [] {
        Q_INIT_RESOURCE(icons);
        return true;
    }();
    (void)registered;
}

namespace Theme {

QIcon icon(const QString& themeName, const QString& bundledName) {
    registerBundledIcons();
    return QIcon::fromTheme(themeName,
                            QIcon(QStringLiteral(":/icons/") + bundledName + QStringLiteral(".svg")));
}

void applyDarkLook(QApplication& app) {
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette dark;
    const QColor window(30, 33, 38), base(22, 25, 29), text(232, 235, 238), secondary(150, 156, 164);
    dark.setColor(QPalette::Window, window);
    dark.setColor(QPalette::WindowText, text);
    dark.setColor(QPalette::Base, base);
    dark.setColor(QPalette::AlternateBase, window);
    dark.setColor(QPalette::Text, text);
    dark.setColor(QPalette::Button, QColor(44, 48, 54));
    dark.setColor(QPalette::ButtonText, text);
    dark.setColor(QPalette::ToolTipBase, base);
    dark.setColor(QPalette::ToolTipText, text);
    dark.setColor(QPalette::PlaceholderText, secondary);
    dark.setColor(QPalette::Highlight, accent.darker(130));
    dark.setColor(QPalette::HighlightedText, Qt::black);
    dark.setColor(QPalette::Link, accent);
    dark.setColor(QPalette::Disabled, QPalette::WindowText, secondary.darker(140));
    dark.setColor(QPalette::Disabled, QPalette::Text, secondary.darker(140));
    dark.setColor(QPalette::Disabled, QPalette::ButtonText, secondary.darker(140));
    // Disabled text is drawn flat: the style etches it with the Light colour, which on a dark palette
    // reads as doubled text.
    dark.setColor(QPalette::Disabled, QPalette::Light, Qt::transparent);
    dark.setColor(QPalette::Mid, secondary);
    app.setPalette(dark);
}

QFont caption(bool semibold) {
    QFont font = QApplication::font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    font.setWeight(semibold ? QFont::DemiBold : QFont::Normal);
    return font;
}

QFont sized(int pixels, int weight) {
    QFont font = QApplication::font();
    font.setPixelSize(pixels);
    font.setWeight(static_cast<QFont::Weight>(weight));
    return font;
}

QWidget* captionLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setFont(caption());
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::Mid);
    return label;
}

} // namespace Theme
