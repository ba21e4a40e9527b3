// reference_program [label|windows]
//
// What a program costs that has Qt Widgets and does next to nothing. It prints when its event loop had its first turn
// (seconds, monotonic), and runs until it is ended. With "label" it is a status item whose label changes every 2 s;
// with "windows" it waits 6 s, opens and closes three plain windows one after the other, and says "closed".

#include "LabelItem.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <chrono>
#include <iostream>
#include <memory>

using namespace std::chrono_literals;

namespace {

constexpr int windows = 3;

void openWindows(int left) {
    if (left == 0) {
        std::cout << "closed" << std::endl;
        return;
    }
    auto* window = new QWidget;
    auto* layout = new QVBoxLayout(window);
    layout->addWidget(new QLabel(QStringLiteral("A text")));
    layout->addWidget(new QPushButton(QStringLiteral("A button")));
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->show();
    QTimer::singleShot(1s, window, [window, left] {
        window->close();
        openWindows(left - 1);
    });
}

} // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    const QString what = QCoreApplication::arguments().value(1);
    LabelItem item;
    if (what == u"label") {
        item.start();
    } else if (what == u"windows") {
        QTimer::singleShot(6s, [] { openWindows(windows); });
    }
    QTimer::singleShot(0, [] {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        std::cout << std::fixed << std::chrono::duration<double>(now).count() << std::endl;
    });
    return QCoreApplication::exec();
}
