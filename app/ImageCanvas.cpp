#include "ImageCanvas.h"

#include "AppModel.h"
#include "Theme.h"

#include <QLineF>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

namespace {

constexpr double margin = 16;     // around the picture
constexpr double badgeBand = 44;  // above it: the "cleaned copy" badge sits there, never on the picture
constexpr double minimumDrag = 2; // points before a drag counts

} // namespace

ImageCanvas::ImageCanvas(AppModel& model, QWidget* parent)
    : QScrollArea(parent), model_(model), picture_(new QWidget) {
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(false);
    setAlignment(Qt::AlignCenter);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, Theme::canvasBackground);
    setPalette(palette);
    setBackgroundRole(QPalette::Window);
    viewport()->setAutoFillBackground(true);
    viewport()->setPalette(palette);
    picture_->setAttribute(Qt::WA_OpaquePaintEvent, false);
    picture_->setMouseTracking(false);
    picture_->installEventFilter(this);
    setWidget(picture_);
}

QRectF ImageCanvas::rectangle(QPointF start, QPointF end, QSizeF size) {
    auto clamp = [&](QPointF p) {
        return QPointF(std::clamp(p.x(), 0.0, size.width()), std::clamp(p.y(), 0.0, size.height()));
    };
    const QPointF a = clamp(start), b = clamp(end);
    return QRectF(std::min(a.x(), b.x()), std::min(a.y(), b.y()), std::abs(a.x() - b.x()),
                  std::abs(a.y() - b.y()));
}

QSizeF ImageCanvas::displayedSize() const {
    if (image_.isNull()) {
        return {};
    }
    const double availableWidth = std::max(1.0, viewport()->width() - 2 * margin);
    const double availableHeight = std::max(1.0, viewport()->height() - badgeBand - margin);
    const double fit = std::min(availableWidth / image_.width(), availableHeight / image_.height());
    const double factor = fit * model_.zoom();
    return QSizeF(image_.width() * factor, image_.height() * factor);
}

QPointF ImageCanvas::pictureOrigin() const {
    const QSizeF size = displayedSize();
    return QPointF(std::max(margin, (picture_->width() - size.width()) / 2),
                   badgeBand + std::max(0.0, (picture_->height() - badgeBand - margin - size.height()) / 2));
}

void ImageCanvas::refresh() {
    const auto shown = model_.showOriginal() ? model_.original() : model_.output();
    if (shown != shown_) {
        shown_ = shown;
        // The picture's pixels stay owned by the model's bitmap; the image only looks at them.
        image_ = shown_ ? QImage(shown_->pixels.data(), shown_->width, shown_->height,
                                 static_cast<qsizetype>(shown_->rowBytes()), QImage::Format_RGB888)
                        : QImage();
    }
    if (!drawingAllowed()) {
        selection_.reset();
    }
    layoutPicture();
    picture_->update();
}

void ImageCanvas::resizeEvent(QResizeEvent* event) {
    QScrollArea::resizeEvent(event);
    layoutPicture();
}

void ImageCanvas::layoutPicture() {
    const QSizeF size = displayedSize();
    const QSize wanted(
        std::max(viewport()->width(), static_cast<int>(std::ceil(size.width() + 2 * margin))),
        std::max(viewport()->height(), static_cast<int>(std::ceil(size.height() + badgeBand + margin))));
    if (picture_->size() != wanted) {
        picture_->resize(wanted);
    }
}

bool ImageCanvas::drawingAllowed() const {
    return model_.manualMode() && !model_.showOriginal() && !model_.busy();
}

bool ImageCanvas::eventFilter(QObject* watched, QEvent* event) {
    if (watched != picture_) {
        return QScrollArea::eventFilter(watched, event);
    }
    switch (event->type()) {
    case QEvent::Paint: {
        QPainter painter(picture_);
        painter.fillRect(picture_->rect(), Theme::canvasBackground);
        if (!image_.isNull()) {
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            painter.drawImage(QRectF(pictureOrigin(), displayedSize()), image_);
        }
        if (selection_) {
            QColor fill = Theme::accent;
            fill.setAlphaF(0.25f);
            painter.setPen(QPen(Theme::accent, 1));
            painter.setBrush(fill);
            painter.drawRect(selection_->translated(pictureOrigin()));
        }
        return true;
    }
    case QEvent::Wheel: {
        // Ctrl and the wheel zoom, as in image viewers; the plain wheel scrolls.
        auto* wheel = static_cast<QWheelEvent*>(event);
        if (!(wheel->modifiers() & Qt::ControlModifier) || wheel->angleDelta().y() == 0) {
            return false;
        }
        wheel->angleDelta().y() > 0 ? model_.zoomIn() : model_.zoomOut();
        return true;
    }
    case QEvent::MouseButtonPress: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton && model_.manualMode()) {
            dragStart_ = mouse->position() - pictureOrigin();
            return true;
        }
        return false;
    }
    case QEvent::MouseMove: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (!dragStart_) {
            return false;
        }
        const QPointF here = mouse->position() - pictureOrigin();
        if (QLineF(*dragStart_, here).length() >= minimumDrag && drawingAllowed()) {
            selection_ = rectangle(*dragStart_, here, displayedSize());
            picture_->update();
        }
        return true;
    }
    case QEvent::MouseButtonRelease: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (!dragStart_) {
            return false;
        }
        const QPointF start = *dragStart_;
        const QPointF end = mouse->position() - pictureOrigin();
        dragStart_.reset();
        selection_.reset();
        picture_->update();
        const QSizeF size = displayedSize();
        if (QLineF(start, end).length() >= minimumDrag && drawingAllowed() && !size.isEmpty()) {
            const QRectF r = rectangle(start, end, size);
            model_.addMask(Rect{r.x() / size.width(), r.y() / size.height(), r.width() / size.width(),
                                r.height() / size.height()});
        }
        return true;
    }
    default:
        return QScrollArea::eventFilter(watched, event);
    }
}
