#pragma once

#include <QColor>
#include <QImage>
#include <QPixmap>
#include <QPointF>
#include <QRectF>
#include <QWidget>

#include <cmath>
#include <functional>
#include <limits>

namespace skylet::test {

/// What a widget looks like, asked for in logical pixels whatever the scale.
class Picture {
  public:
    explicit Picture(QWidget& widget) : image_(widget.grab().toImage()), scale_(widget.devicePixelRatioF()) {}

    double scale() const { return scale_; }
    QSize deviceSize() const { return image_.size(); }
    QColor at(QPointF place) const {
        return image_.pixelColor(static_cast<int>(std::floor(place.x() * scale_)),
                                 static_cast<int>(std::floor(place.y() * scale_)));
    }

    /// Calls `seen` with the place and colour of each device pixel in `area`.
    void forEach(const QRectF& area, const std::function<void(QPointF, const QColor&)>& seen) const {
        const QRect pixels = QRectF(area.topLeft() * scale_, area.size() * scale_).toRect() & image_.rect();
        for (int y = pixels.top(); y <= pixels.bottom(); ++y) {
            for (int x = pixels.left(); x <= pixels.right(); ++x) {
                seen(QPointF(x + 0.5, y + 0.5) / scale_, image_.pixelColor(x, y));
            }
        }
    }

    /// What is left of `area` without the margins that `matches` nothing in; null when nothing does.
    QRectF extent(const QRectF& area, const std::function<bool(const QColor&)>& matches) const {
        constexpr double far = std::numeric_limits<double>::max();
        double left = far;
        double top = far;
        double right = -far;
        double bottom = -far;
        const double half = 0.5 / scale_;
        forEach(area, [&](QPointF place, const QColor& color) {
            if (matches(color)) {
                left = std::min(left, place.x() - half);
                top = std::min(top, place.y() - half);
                right = std::max(right, place.x() + half);
                bottom = std::max(bottom, place.y() + half);
            }
        });
        return left == far ? QRectF() : QRectF(QPointF(left, top), QPointF(right, bottom));
    }

    QRectF extentOtherThan(const QRectF& area, const QColor& background) const {
        return extent(area, [background](const QColor& color) { return !isNear(color, background, 24); });
    }

    static bool isNear(const QColor& a, const QColor& b, int tolerance) {
        return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance &&
               std::abs(a.blue() - b.blue()) <= tolerance;
    }

  private:
    QImage image_;
    double scale_;
};

} // namespace skylet::test
