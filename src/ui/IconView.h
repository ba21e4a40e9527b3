#pragma once

#include <QWidget>

namespace skylet {

/// Shows the program's icon as large as fits, sharp at every scale of the screen.
class IconView final : public QWidget {
    Q_OBJECT

  public:
    explicit IconView(const QString& objectName);

  protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace skylet
