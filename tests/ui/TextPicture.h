#pragma once

#include "ui/Fonts.h"
#include "ui/Picture.h"

#include <QColor>
#include <QFont>
#include <QLabel>
#include <QPalette>
#include <QString>

#include <gtest/gtest.h>

namespace skylet::test {

/// How much of `area` is covered by `color`, which smoothed edges are partly, on `background`; logical pixels.
inline double ink(const Picture& picture, const QRectF& area, const QColor& color, const QColor& background) {
    double sum = 0;
    picture.forEach(area, [&](QPointF, const QColor& seen) {
        sum += static_cast<double>(seen.green() - background.green()) / (color.green() - background.green());
    });
    return sum / (picture.scale() * picture.scale());
}

/// What a text looks like when Qt itself writes it.
struct TextPicture {
    double ink;
    /// Of what is drawn.
    QSizeF size;
};

inline TextPicture textPicture(const QString& text, const QFont& font, const QColor& color, const QColor& background,
                               QSize frame = {360, 60}) {
    QLabel label(text);
    label.setFont(font);
    label.setWordWrap(true);
    label.setAlignment(Qt::AlignCenter);
    label.resize(frame);
    QPalette palette(background);
    palette.setColor(QPalette::WindowText, color);
    label.setPalette(palette);
    const Picture picture(label);
    return {ink(picture, label.rect(), color, background), picture.extentOtherThan(label.rect(), background).size()};
}

/// The colour of the pixel of a widget that differs most from `background` in its green part.
inline QColor strongestColor(QWidget& widget, const QColor& background) {
    QColor strongest = background;
    Picture(widget).forEach(widget.rect(), [&](QPointF, const QColor& color) {
        if (std::abs(color.green() - background.green()) > std::abs(strongest.green() - background.green())) {
            strongest = color;
        }
    });
    return strongest;
}

/// That a label has that font and looks like it, too.
inline void expectFont(QLabel& label, int pixels, QFont::Weight weight, const QColor& color, const QColor& background) {
    EXPECT_EQ(label.font().pixelSize(), pixels);
    EXPECT_EQ(label.font().weight(), weight);
    const TextPicture expected = textPicture(label.text(), systemFont(pixels, weight), color, background, label.size());
    EXPECT_NEAR(ink(Picture(*label.window()), QRectF(label.geometry()), color, background), expected.ink,
                0.06 * expected.ink);
}

} // namespace skylet::test
