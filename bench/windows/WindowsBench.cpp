#include "platform/linux/desktop/ApplicationIcon.h"
#include "speedtest/SpeedTest.h"
#include "support/FakeBulkTransfers.h"
#include "support/FakeClock.h"
#include "support/FakeSchedule.h"
#include "ui/DesktopWindows.h"
#include "ui/PlainWindow.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QPainter>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

using namespace skylet;
using namespace std::chrono_literals;

namespace {

constexpr int rounds = 15;
constexpr int framesPerRound = 200;
constexpr int openings = 100;

void runFor(std::chrono::milliseconds time) {
    QEventLoop loop;
    QTimer::singleShot(time, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

struct Usage {
    double processor = 0;
    long wakeUps = 0;
};

Usage usage() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return {seconds(used.ru_utime) + seconds(used.ru_stime), used.ru_nvcsw};
}

/// Memory of the process that it shares with no other, kB.
long privateMemory() {
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    if (!file.open(QIODevice::ReadOnly)) {
        return -1;
    }
    long total = 0;
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith("Private_")) {
            total += line.simplified().split(' ').value(1).toLong();
        }
    }
    return total;
}

/// What a repaint costs without a drawing: as large as the gauge, in one colour.
class Blank final : public QWidget {
  public:
    explicit Blank(QSize size) {
        setFixedSize(size);
        setAttribute(Qt::WA_OpaquePaintEvent);
    }

  protected:
    void paintEvent(QPaintEvent* /*event*/) override { QPainter(this).fillRect(rect(), Qt::darkBlue); }
};

/// Microseconds of processor time for a repaint, the screen's server not counted.
double repaintCost(QWidget& widget, const std::function<void(int)>& prepare) {
    const double before = usage().processor;
    for (int frame = 0; frame < framesPerRound; ++frame) {
        prepare(frame);
        widget.repaint();
    }
    return (usage().processor - before) * 1e6 / framesPerRound;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void measureFrame() {
    Blank blank(QSize(360, 314));
    QWidget window;
    window.setFixedSize(360, 314);
    GaugeView gauge(QSize(360, 300), &window);
    gauge.setPhase(QStringLiteral("DOWNLOAD"));
    blank.show();
    window.show();
    while (!isOnScreen(blank) || !isOnScreen(window)) {
        runFor(50ms);
    }
    std::vector<double> frames;
    std::vector<double> blanks;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        blanks.push_back(repaintCost(blank, [](int) {}));
        frames.push_back(repaintCost(gauge, [&gauge](int frame) { gauge.setValue(0.37 * frame); }));
        ratios.push_back(frames.back() / blanks.back());
    }
    std::printf("gauge frame %.0f us, blank repaint %.0f us, ratio %.1f (medians of %d rounds)\n", median(frames),
                median(blanks), median(ratios), rounds);
}

class Bench {
  public:
    explicit Bench(std::chrono::seconds watchTime) : watchTime_(watchTime) {}

    void showSpeedTest() {
        speedTest_.show();
        const QWidget* window = topLevel(QStringLiteral("speedTestWindow"));
        do {
            runFor(500ms);
        } while (!isOnScreen(*window));
        for (QWidget* widget : QApplication::allWidgets()) {
            if (auto* found = qobject_cast<GaugeView*>(widget)) {
                gauge_ = found;
            }
        }
    }

    void measureAnimation() {
        showSpeedTest();
        // As during a test: a new target with each report of bytes.
        QTimer reports;
        double speed = 40;
        reports.callOnTimeout([this, &speed] {
            speed = speed > 60 ? 40 : 80;
            gauge_->setTarget(speed);
        });
        reports.start(50ms);
        report("animating");
    }

    /// What any animation costs: an empty widget in the same window, repainted as often.
    void measureBlankAnimation() {
        showSpeedTest();
        Blank blank(gauge_->size());
        blank.setParent(gauge_->parentWidget());
        blank.setGeometry(gauge_->geometry());
        blank.show();
        QTimer frames;
        frames.setTimerType(Qt::PreciseTimer);
        frames.callOnTimeout([&blank] { blank.update(); });
        frames.start(33ms);
        report("blank, animated");
    }

    void measureIdle() {
        showSpeedTest();
        report("at rest");
    }

    void measureMemory() {
        DesktopWindows windows;
        const auto about = windows.makeAboutWindow([] {});
        const auto measure = [](const char* name, const std::function<void()>& openAndClose) {
            openAndClose();
            const long first = privateMemory();
            for (int i = 1; i < openings; ++i) {
                openAndClose();
            }
            std::printf("%s: private memory grew by %ld kB over %d openings after the first (%ld kB)\n", name,
                        privateMemory() - first, openings - 1, first);
        };
        measure("speed test", [this] {
            speedTest_.show();
            runFor(40ms);
            topLevel(QStringLiteral("speedTestWindow"))->close();
            runFor(10ms);
        });
        measure("about", [&about] {
            about->bringToFront();
            runFor(40ms);
            about->close();
            runFor(10ms);
        });
        // Made anew each time, as with each start of the program.
        measure("welcome", [&windows] {
            const auto welcome = windows.makeWelcomeWindow(false, [] {});
            welcome->bringToFront();
            runFor(40ms);
            welcome->close();
            runFor(10ms);
        });
    }

  private:
    static QWidget* topLevel(const QString& objectName) {
        const QWidgetList windows = QApplication::topLevelWidgets();
        return *std::find_if(windows.begin(), windows.end(),
                             [&objectName](const QWidget* window) { return window->objectName() == objectName; });
    }

    void report(const char* what) const {
        const Usage before = usage();
        QElapsedTimer watch;
        watch.start();
        runFor(watchTime_);
        const double elapsed = static_cast<double>(watch.nsecsElapsed()) / 1e9;
        const Usage after = usage();
        std::printf("%s: %.2f %% of a core, %.1f wake-ups/s over %.0f s\n", what,
                    (after.processor - before.processor) / elapsed * 100,
                    static_cast<double>(after.wakeUps - before.wakeUps) / elapsed, elapsed);
    }

    test::FakeBulkTransfers transfers_;
    test::FakeClock clock_;
    SpeedTestController speedTest_{transfers_.factory(), clock_, test::FakeSchedule()};
    GaugeView* gauge_ = nullptr;
    const std::chrono::seconds watchTime_;
};

} // namespace

/// windows_bench frame|animation|blank-animation|idle|memory [SECONDS], on the screen that DISPLAY names.
int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    QGuiApplication::setWindowIcon(applicationIcon());
    QGuiApplication::setQuitOnLastWindowClosed(false);
    const QString what = QCoreApplication::arguments().value(1);
    const int seconds = QCoreApplication::arguments().value(2).toInt();
    Bench bench(seconds > 0 ? std::chrono::seconds(seconds) : 10s);
    if (what == u"frame") {
        measureFrame();
    } else if (what == u"animation") {
        bench.measureAnimation();
    } else if (what == u"blank-animation") {
        bench.measureBlankAnimation();
    } else if (what == u"idle") {
        bench.measureIdle();
    } else if (what == u"memory") {
        bench.measureMemory();
    } else {
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
