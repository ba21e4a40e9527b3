#include "platform/linux/desktop/ApplicationIcon.h"

#include <QIconEngine>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QRadialGradient>

#include <algorithm>
#include <array>

namespace skylet {

namespace {

constexpr QColor skyTop{26, 40, 86};
constexpr QColor skyBottom{62, 112, 178};
constexpr QColor ground{12, 20, 44};
constexpr QColor dawn{126, 190, 220};
constexpr QColor light{48, 210, 92};
constexpr QColor lightCore{176, 255, 190};

// Below this side, in device pixels, stars and edge lines would only be grey noise.
constexpr double detailedSide = 40;

QColor withAlpha(QColor color, int alpha) {
    color.setAlpha(alpha);
    return color;
}

/// A gentle hill: the top edge of a circle much wider than the tile.
QRectF horizonCircle(const QRectF& square) {
    const double side = square.width();
    return {square.center().x() - 1.25 * side, square.top() + 0.735 * side, 2.5 * side, 2.5 * side};
}

void paintSky(QPainter& painter, const QRectF& square) {
    QLinearGradient sky(square.topLeft(), square.bottomLeft());
    sky.setColorAt(0, skyTop);
    sky.setColorAt(0.8, skyBottom);
    painter.fillRect(square, sky);
}

void paintStars(QPainter& painter, const QRectF& square) {
    struct Star {
        QPointF place;
        double radius;
        int alpha;
    };
    // Shares of the side, kept clear of the light in the middle.
    static constexpr std::array<Star, 6> stars = {{{{0.18, 0.22}, 0.013, 210},
                                                   {{0.30, 0.11}, 0.008, 150},
                                                   {{0.80, 0.17}, 0.011, 200},
                                                   {{0.90, 0.36}, 0.008, 140},
                                                   {{0.11, 0.45}, 0.008, 130},
                                                   {{0.66, 0.09}, 0.007, 120}}};
    painter.setPen(Qt::NoPen);
    for (const Star& star : stars) {
        painter.setBrush(QColor(255, 255, 255, star.alpha));
        painter.drawEllipse(square.topLeft() + star.place * square.width(), star.radius * square.width(),
                            star.radius * square.width());
    }
}

void paintGround(QPainter& painter, const QRectF& square, bool detailed) {
    const QRectF circle = horizonCircle(square);
    painter.setPen(Qt::NoPen);
    if (detailed) {
        QRadialGradient haze(circle.center(), circle.width() / 2 * 1.08);
        haze.setColorAt(1 / 1.08, withAlpha(dawn, 130));
        haze.setColorAt(1, withAlpha(dawn, 0));
        painter.setBrush(haze);
        painter.drawEllipse(circle.center(), circle.width() / 2 * 1.08, circle.width() / 2 * 1.08);
    }
    painter.setBrush(ground);
    painter.drawEllipse(circle);
    QRadialGradient reflection(QPointF(square.center().x(), circle.top()), square.width() * 0.42);
    reflection.setColorAt(0, withAlpha(light, 120));
    reflection.setColorAt(1, withAlpha(light, 0));
    painter.setBrush(reflection);
    painter.drawEllipse(circle);
}

void paintLight(QPainter& painter, const QRectF& square, bool detailed) {
    const double side = square.width();
    const QPointF centre(square.center().x(), square.top() + 0.44 * side);
    const double radius = (detailed ? 0.185 : 0.235) * side;
    QRadialGradient glow(centre, radius * 2.3);
    glow.setColorAt(0, withAlpha(light, 190));
    glow.setColorAt(0.45, withAlpha(light, 90));
    glow.setColorAt(1, withAlpha(light, 0));
    painter.setPen(Qt::NoPen);
    painter.setBrush(glow);
    painter.drawEllipse(centre, radius * 2.3, radius * 2.3);
    QRadialGradient body(centre - QPointF(0.3, 0.35) * radius, radius * 1.5);
    body.setColorAt(0, lightCore);
    body.setColorAt(0.5, light);
    body.setColorAt(1, light.darker(125));
    painter.setBrush(body);
    painter.drawEllipse(centre, radius, radius);
}

class ApplicationIconEngine final : public QIconEngine {
  public:
    void paint(QPainter* painter, const QRect& area, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        paintApplicationIcon(*painter, QRectF(area));
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }

    // The sizes that are handed to the window system for windows.
    QList<QSize> availableSizes(QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        return {{16, 16}, {24, 24}, {32, 32}, {48, 48}, {64, 64}, {128, 128}};
    }

    QIconEngine* clone() const override { return new ApplicationIconEngine(*this); }
};

} // namespace

QIcon applicationIcon() {
    return QIcon(new ApplicationIconEngine);
}

void paintApplicationIcon(QPainter& painter, const QRectF& area) {
    const double side = std::min(area.width(), area.height());
    const QRectF square(area.center() - QPointF(side / 2, side / 2), QSizeF(side, side));
    const bool detailed = side * painter.deviceTransform().m11() >= detailedSide;
    // A path as a clip has hard edges; one that is filled with a picture has smooth ones.
    const double scale = std::max(1.0, painter.deviceTransform().m11());
    QImage picture((QSizeF(side, side) * scale).toSize().expandedTo(QSize(1, 1)), QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    {
        QPainter inner(&picture);
        inner.setRenderHint(QPainter::Antialiasing);
        const QRectF whole(picture.rect());
        paintSky(inner, whole);
        if (detailed) {
            paintStars(inner, whole);
        }
        paintGround(inner, whole, detailed);
        paintLight(inner, whole, detailed);
    }
    QPainterPath tile;
    tile.addRoundedRect(square, side * 0.225, side * 0.225);
    QBrush brush(picture);
    brush.setTransform(
        QTransform::fromTranslate(square.left(), square.top()).scale(side / picture.width(), side / picture.height()));
    painter.save();
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    painter.fillPath(tile, brush);
    painter.restore();
}

} // namespace skylet
