#pragma once

// The document picture, fitted to the space and scaled by the model's zoom, in a scroll area; with
// drawing armed, a dragged rectangle becomes a manual mask. Masks themselves are already painted into
// the picture by the core; the canvas draws only the rectangle being dragged.

#include <QImage>
#include <QPointF>
#include <QRectF>
#include <QScrollArea>

#include <memory>
#include <optional>

class AppModel;
struct Bitmap;

class ImageCanvas : public QScrollArea {
    Q_OBJECT

public:
    explicit ImageCanvas(AppModel& model, QWidget* parent = nullptr);

    // The rectangle spanned by two points, each first clamped into `size`.
    static QRectF rectangle(QPointF start, QPointF end, QSizeF size);

    // The picture's size on screen, and where it starts inside the scrolled widget.
    QSizeF displayedSize() const;
    QPointF pictureOrigin() const;
    QWidget* pictureWidget() const { return picture_; }
    const std::optional<QRectF>& selection() const { return selection_; }

    void refresh();

protected:
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool drawingAllowed() const;
    void layoutPicture();

    AppModel& model_;
    QWidget* picture_;
    std::shared_ptr<const Bitmap> shown_;
    QImage image_;
    std::optional<QPointF> dragStart_;
    std::optional<QRectF> selection_;
};
