#include "Theme.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QFontMetrics>
#include <QFrame>
#include <QLabel>
#include <QPalette>
#include <QStyleFactory>
#include <QToolButton>

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

QLabel* label(const QFont& font) {
    auto* l = new QLabel;
    l->setFont(font);
    l->setWordWrap(true);
    return l;
}

QLabel* secondaryCaption() {
    QLabel* l = label(caption());
    l->setForegroundRole(QPalette::Mid);
    return l;
}

QLabel* sectionTitle() {
    QLabel* l = label(caption(true));
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

QFrame* divider(Qt::Orientation orientation) {
    auto* line = new QFrame;
    line->setFrameShape(orientation == Qt::Horizontal ? QFrame::HLine : QFrame::VLine);
    line->setForegroundRole(QPalette::Mid);
    return line;
}

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

void bind(QAbstractButton* button, QAction* action) {
    QObject::connect(button, &QAbstractButton::clicked, action, &QAction::trigger);
    button->setEnabled(action->isEnabled());
    QObject::connect(action, &QAction::enabledChanged, button, &QAbstractButton::setEnabled);
}

} // namespace Theme
