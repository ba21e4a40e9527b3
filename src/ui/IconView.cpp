#include "ui/IconView.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QGuiApplication>
#include <QIcon>
#include <QPainter>

namespace skylet {

namespace {

QAccessibleInterface* makeAccessibleIcon(const QString& /*className*/, QObject* object) {
    auto* view = qobject_cast<IconView*>(object);
    return view != nullptr ? new QAccessibleWidget(view, QAccessible::Graphic) : nullptr;
}

} // namespace

IconView::IconView(const QString& objectName) {
    setObjectName(objectName);
    QAccessible::installFactory(makeAccessibleIcon);
    setAccessibleName(QStringLiteral("Skylet"));
}

void IconView::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    QGuiApplication::windowIcon().paint(&painter, rect());
}

} // namespace skylet
