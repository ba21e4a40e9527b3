#include "ui/Controls.h"

#include "platform/desktop/TextDirection.h"
#include "ui/Fonts.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QIcon>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionButton>
#include <QTextLayout>
#include <QTextOption>

namespace skylet {

IconView::IconView() {
    setObjectName(QStringLiteral("icon"));
    setAccessibleName(QStringLiteral("Skylet"));
    // To assistive technologies a label that has a picture is a graphic.
    setPixmap(QGuiApplication::windowIcon().pixmap(1));
}

void IconView::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    QGuiApplication::windowIcon().paint(&painter, rect());
}

TextLabel::TextLabel(const QString& objectName, const QString& text, const QFont& font, Qt::Alignment alignment,
                     ColorRole color)
    : QLabel(text), color_(color) {
    setObjectName(objectName);
    setTextFormat(Qt::PlainText);
    setFont(font);
    setWordWrap(true);
    setLayoutDirection(hasRightToLeft(text) ? Qt::RightToLeft : Qt::LeftToRight);
    setAlignment(alignment | Qt::AlignTop);
    setTextInteractionFlags(Qt::NoTextInteraction);
}

void TextLabel::paintEvent(QPaintEvent* /*event*/) {
    // A label of Qt's own lets the first letter decide in which direction the text runs, and moves a line that is
    // wrapped from right to left by the space at its end.
    QTextOption option(QStyle::visualAlignment(layoutDirection(), alignment()));
    option.setTextDirection(layoutDirection());
    QTextLayout layout(QString(text()).replace(u'\n', QChar::LineSeparator), font(), this);
    layout.setTextOption(option);
    layout.beginLayout();
    double bottom = 0;
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width());
        line.setPosition({0, bottom});
        bottom += line.height();
    }
    layout.endLayout();
    QPainter painter(this);
    painter.setPen(semanticColors(palette()).*color_);
    layout.draw(&painter, {});
}

void CheckBox::paintEvent(QPaintEvent* event) {
    QCheckBox::paintEvent(event);
    if (!style()->inherits("QFusionStyle") || hasFocus()) {
        // With the keyboard focus, the style's outline has the highlight's colour.
        return;
    }
    QStyleOptionButton option;
    initStyleOption(&option);
    const QRectF box = style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, this);
    QPainter painter(this);
    painter.setPen(semanticColors(palette()).controlOutline);
    painter.setRenderHint(QPainter::Antialiasing);
    // On the line that the style draws.
    painter.drawRect(box.adjusted(0.5, 0.5, -0.5, -0.5));
}

DrawnButton::DrawnButton(const QString& objectName, const QString& text, const QFont& font) : QPushButton(text) {
    setObjectName(objectName);
    setFont(font);
    setAutoDefault(true);
    setAttribute(Qt::WA_Hover);
}

LinkButton::LinkButton(const QString& objectName, const QString& text, const QFont& font)
    : DrawnButton(objectName, text, font) {
    setFlat(true);
    setCursor(Qt::PointingHandCursor);
}

void LinkButton::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(semanticColors(palette()).controlAccent, 1.5));
    if (hasFocus()) {
        QRectF ring(QPointF(), QFontMetricsF(font()).size(0, text()) + QSizeF(16, 2));
        ring.moveCenter(QRectF(rect()).center());
        painter.drawRoundedRect(ring, 4, 4);
    }
    QFont shown = font();
    shown.setUnderline(underMouse() || isDown());
    drawCentered(painter, rect(), text(), shown);
}

} // namespace skylet
