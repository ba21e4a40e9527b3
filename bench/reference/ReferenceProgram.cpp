// reference_program [label|windows]
//
// What a program costs that has Qt Widgets and does next to nothing. It prints when its event loop had its first turn
// (seconds, monotonic), and runs until it is ended. With "label" it is a status item whose label changes every 2 s;
// with "windows" it waits 6 s, opens and closes three plain windows one after the other, and says "closed".

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
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

class LabelItem final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Id READ name)
    Q_PROPERTY(QString IconName READ name)
    Q_PROPERTY(QString XAyatanaLabel READ label)

  public:
    void start() {
        auto bus = QDBusConnection::sessionBus();
        bus.registerObject(QStringLiteral("/StatusNotifierItem"), this,
                           QDBusConnection::ExportAllProperties | QDBusConnection::ExportAllSignals);
        auto call = QDBusMessage::createMethodCall(
            QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
            QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("RegisterStatusNotifierItem"));
        bus.send(call << bus.baseService());
        timer_.callOnTimeout(this, [this] {
            ++count_;
            Q_EMIT XAyatanaNewLabel(label(), label());
        });
        timer_.start(2s);
    }

  Q_SIGNALS:
    void XAyatanaNewLabel(const QString& label, const QString& guide); // NOLINT(readability-identifier-naming)

  private:
    QString name() const { return QStringLiteral("reference"); }
    QString label() const { return QString::number(count_); }

    QTimer timer_;
    int count_ = 0;
};

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

#include "ReferenceProgram.moc"
