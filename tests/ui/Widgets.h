#pragma once

#include <QApplication>
#include <QEvent>
#include <QObject>
#include <QWidget>

namespace skylet::test {

/// Counts how often a widget is asked to paint itself.
class PaintCounter final : public QObject {
  public:
    explicit PaintCounter(QWidget& widget) { widget.installEventFilter(this); }
    int count = 0;

  protected:
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        count += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }
};

/// The windows of that object name, shown or not.
inline QWidgetList windowsNamed(const QString& objectName) {
    QWidgetList found;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->objectName() == objectName) {
            found.append(widget);
        }
    }
    return found;
}

} // namespace skylet::test
