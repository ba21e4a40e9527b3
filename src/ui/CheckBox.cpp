#include "ui/CheckBox.h"

#include "ui/SemanticColors.h"

#include <QPainter>
#include <QStyle>
#include <QStyleOptionButton>

namespace skylet {

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
    painter.drawRect(QRectF(box).adjusted(0.5, 0.5, -0.5, -0.5));
}

} // namespace skylet
