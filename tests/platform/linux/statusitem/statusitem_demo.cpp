#include "platform/linux/statusitem/DesktopApplication.h"
#include "platform/linux/statusitem/SampleTitles.h"

#include <QApplication>
#include <QTimer>

#include <chrono>
#include <iostream>
#include <memory>
#include <vector>

namespace {

using namespace skylet;

struct State {
    QString name;
    StatusTitle title;
};

std::vector<State> states() {
    const auto latency = [](const QString& word) {
        return sample::latency(DotColor::systemGreen, QStringLiteral("128"), QStringLiteral("ms"), word);
    };
    return {{QStringLiteral("fast"), sample::fast()},
            {QStringLiteral("medium"), latency(QStringLiteral("Responsive"))},
            {QStringLiteral("slow"), sample::slow()},
            {QStringLiteral("checking"), sample::checking()},
            {QStringLiteral("offline"), sample::offline()},
            {QStringLiteral("paused"), sample::paused()},
            {QStringLiteral("banner"), sample::banner(DotColor::systemGreen)},
            {QStringLiteral("hebrew"), latency(QStringLiteral("מגיב מהר"))}};
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

} // namespace

/// statusitem_demo STATE: shows the item in that state. STATE "cycle" takes all of them in turn, one a second;
/// "attention" asks for attention every ten seconds.
int main(int argc, char** argv) {
    using namespace std::chrono_literals;
    QApplication qt(argc, argv);
    DesktopApplication application;
    application.becomeAccessory();
    if (!application.sessionBusAvailable()) {
        std::cerr << "statusitem_demo: there is no session bus\n";
        return 1;
    }
    const QString wanted = QString::fromLocal8Bit(argc > 1 ? argv[1] : "fast");
    const std::unique_ptr<StatusItem> item = application.makeStatusItem();
    item->setAutosaveName(QStringLiteral("Skylet"));
    item->setVisible(true);
    const Menu menu = demoMenu(application);
    item->setMenu(menu);
    item->setToolTip(QStringLiteral("HTTPS response time, not download speed"));
    const std::vector<State> all = states();
    item->setTitle(all.front().title);
    for (const State& state : all) {
        if (state.name == wanted) {
            item->setTitle(state.title);
        }
    }
    QTimer timer;
    std::size_t step = 0;
    if (wanted == QLatin1String("cycle")) {
        QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
            item->setTitle(all[++step % all.size()].title);
            menu.front()->setTitle(QStringLiteral("Step %1").arg(step));
        });
        timer.start(1s);
    } else if (wanted == QLatin1String("attention")) {
        QObject::connect(&timer, &QTimer::timeout, &timer, [&] { application.requestAttention(); });
        timer.start(10s);
        application.requestAttention();
    }
    return QApplication::exec();
}
