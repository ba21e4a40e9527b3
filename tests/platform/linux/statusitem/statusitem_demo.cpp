#include "platform/linux/desktop/DesktopApplication.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"
#include "platform/linux/statusitem/drawing/SampleDisplays.h"

#include <QApplication>
#include <QFontDatabase>
#include <QPainter>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace skylet;

struct State {
    QString name;
    StatusDisplay display;
};

std::vector<State> states() {
    return {{QStringLiteral("fast"), sample::fast()},
            {QStringLiteral("medium"), sample::responsive(QStringLiteral("128"))},
            {QStringLiteral("slow"), sample::slow()},
            {QStringLiteral("checking"), sample::checking()},
            {QStringLiteral("offline"), sample::offline()},
            {QStringLiteral("paused"), sample::paused()},
            {QStringLiteral("banner"), sample::banner(Status::online)},
            {QStringLiteral("hebrew"), sample::responsive(QStringLiteral("128"), QStringLiteral("מגיב מהר"))}};
}

std::shared_ptr<MenuItem> command(const QString& title, const QString& key = {}) {
    return std::make_shared<MenuItem>(
        title, [title] { std::cout << "chosen: " << title.toStdString() << std::endl; }, key);
}

std::shared_ptr<MenuItem> line(const QString& title) {
    auto item = std::make_shared<MenuItem>(title, nullptr, QString());
    item->setEnabled(false);
    return item;
}

std::shared_ptr<MenuItem> checkMark(const QString& title, bool checked) {
    auto item = command(title);
    item->setChecked(checked);
    return item;
}

Menu demoMenu(Application& application) {
    auto about = command(QStringLiteral("About Skylet"));
    about->setApplicationIconSize(16);
    auto quit = std::make_shared<MenuItem>(
        QStringLiteral("Quit"), [&application] { application.terminate(); }, QStringLiteral("q"));
    return {line(QStringLiteral("Online — 87 ms (Responsive)")),
            line(QStringLiteral("Live traffic:  ↓ 12.4Mb/s   ↑ 210Kb/s")),
            line(QStringLiteral("Last speed test:  not run yet")),
            MenuItem::separator(),
            command(QStringLiteral("Run Speed Test…  (up to ~60 MB of data)"), QStringLiteral("t")),
            command(QStringLiteral("Check Connection Now"), QStringLiteral("r")),
            MenuItem::separator(),
            checkMark(QStringLiteral("Show Live Traffic in Menu Bar   (e.g. ↓12.4M ↑210K)"), true),
            checkMark(QStringLiteral("Pause Automatic Checks"), false),
            checkMark(QStringLiteral("Launch at Login"), false),
            MenuItem::separator(),
            about,
            quit};
}

/// Every state as badge and as wide icon in every size, as if on a dark and on a light panel.
bool paintSheet(const QString& file) {
    constexpr int panelWidth = 1160;
    constexpr int rowHeight = 76;
    const std::vector<State> all = states();
    QImage sheet(2 * panelWidth, rowHeight * static_cast<int>(all.size()), QImage::Format_RGB32);
    QPainter painter(&sheet);
    const QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    for (const int panel : {0, 1}) {
        painter.fillRect(panel * panelWidth, 0, panelWidth, sheet.height(),
                         panel == 0 ? QColor(32, 32, 34) : Qt::white);
        int y = 6;
        for (const State& state : all) {
            int x = panel * panelWidth + 4;
            for (const Presentation presentation : {Presentation::badge, Presentation::wide}) {
                const StatusIcon icon = appearance(presentation, state.display).icon;
                for (const int size : presentation == Presentation::badge ? std::vector<int>{16, 22, 24, 32, 44, 48, 64}
                                                                          : std::vector<int>{22, 44}) {
                    const QImage image = paintStatusIcon(icon, size, font);
                    painter.drawImage(x, y, image);
                    x += image.width() + 4;
                }
            }
            y += rowHeight;
        }
    }
    painter.end();
    return sheet.save(file);
}

} // namespace

/// statusitem_demo STATE: shows the item in that state. STATE "cycle" takes all of them in turn, one a second;
/// "attention" asks for attention every ten seconds; "changes" waits for a line on its input that says how many changes
/// to make and how many milliseconds apart, makes them, says so on its output, and begins anew. "sheet FILE" paints the
/// icons of all states into a picture.
int main(int argc, char** argv) {
    using namespace std::chrono_literals;
    QApplication qt(argc, argv);
    DesktopApplication application;
    application.becomeAccessory();
    if (!DesktopApplication::statusItemBus().isConnected()) {
        std::cerr << "statusitem_demo: there is no session bus\n";
        return 1;
    }
    const QString wanted = QString::fromLocal8Bit(argc > 1 ? argv[1] : "fast");
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == QLatin1String("sheet")) {
        return paintSheet(arguments.value(2)) ? 0 : 1;
    }
    const std::unique_ptr<StatusItem> item = application.makeStatusItem();
    item->setAutosaveName(QStringLiteral("Skylet"));
    item->setVisible(true);
    const Menu menu = demoMenu(application);
    item->setMenu(menu);
    const std::vector<State> all = states();
    item->setDisplay(all.front().display);
    for (const State& state : all) {
        if (state.name == wanted) {
            item->setDisplay(state.display);
        }
    }
    QTimer timer;
    std::size_t step = 0;
    std::size_t steps = 0;
    if (wanted == QLatin1String("cycle")) {
        QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
            item->setDisplay(all[++step % all.size()].display);
            menu.front()->setTitle(QStringLiteral("Step %1").arg(step));
        });
        timer.start(1s);
    } else if (wanted == QLatin1String("attention")) {
        QObject::connect(&timer, &QTimer::timeout, &timer, [&] { application.requestAttention({}); });
        timer.start(10s);
        application.requestAttention({});
    }
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    input.setEnabled(wanted == QLatin1String("changes"));
    QObject::connect(&input, &QSocketNotifier::activated, &input, [&] {
        std::string line;
        int milliseconds = 0;
        if (std::getline(std::cin, line) && std::istringstream(line) >> steps >> milliseconds) {
            step = 0;
            timer.start(milliseconds);
        } else {
            application.terminate();
        }
    });
    if (wanted == QLatin1String("changes")) {
        QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
            const auto number = [&](std::size_t from) { return QString::number(from + step % 100); };
            item->setDisplay(step % 5 == 4 ? all[step / 5 % all.size()].display
                                           : sample::latency(sample::allColors.at(step % 2), number(100),
                                                             QStringLiteral("ms"), QStringLiteral("Responsive")));
            menu.front()->setTitle(QStringLiteral("Step ") + number(0));
            if (++step == steps) {
                timer.stop();
                std::cout << steps << " changes made" << std::endl;
            }
        });
    }
    return QApplication::exec();
}
