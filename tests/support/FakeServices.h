#pragma once

#include "platform/desktop/Application.h"
#include "platform/network/InterfaceCounters.h"
#include "platform/network/PathMonitor.h"
#include "platform/system/DiagnosticLog.h"
#include "platform/system/LaunchAgent.h"
#include "platform/system/SleepMonitor.h"
#include "platform/system/UserDefaults.h"

#include <QMap>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace skylet::test {

/// Calls of all fakes of a test, in their order.
using CallLog = QStringList;

/// Remembers what it was last told to show.
class FakeStatusItem final : public StatusItem {
  public:
    struct Shown {
        Menu menu;
        StatusDisplay display;
        bool visible = false;
        QString autosaveName;
    };

    FakeStatusItem(CallLog& calls, std::shared_ptr<Shown> shown) : calls_(calls), shown_(std::move(shown)) {}
    QString buttonDescription() const override { return QStringLiteral("fake button"); }
    QString windowDescription() const override { return QStringLiteral("no window"); }
    void setAutosaveName(const QString& name) override {
        calls_ += QStringLiteral("item.setAutosaveName");
        shown_->autosaveName = name;
    }
    void setVisible(bool visible) override {
        calls_ += QStringLiteral("item.setVisible");
        shown_->visible = visible;
    }
    void setMenu(const Menu& menu) override {
        calls_ += QStringLiteral("item.setMenu");
        shown_->menu = menu;
    }
    void setDisplay(const StatusDisplay& display) override {
        calls_ += QStringLiteral("item.setDisplay");
        shown_->display = display;
    }

  private:
    CallLog& calls_;
    std::shared_ptr<Shown> shown_;
};

class FakeApplication final : public Application {
  public:
    explicit FakeApplication(CallLog& calls) : calls_(calls) {}
    void becomeAccessory() override { calls_ += QStringLiteral("application.becomeAccessory"); }
    std::unique_ptr<StatusItem> makeStatusItem() override {
        calls_ += QStringLiteral("application.makeStatusItem");
        return std::make_unique<FakeStatusItem>(calls_, shown);
    }
    bool hasApplicationIcon() const override { return hasIcon; }
    void openURL(const QUrl& url) override { calls_ += QStringLiteral("application.openURL ") + url.toString(); }
    void terminate() override { calls_ += QStringLiteral("application.terminate"); }

    std::shared_ptr<FakeStatusItem::Shown> shown = std::make_shared<FakeStatusItem::Shown>();
    bool hasIcon = true;

  private:
    CallLog& calls_;
};

class FakePathMonitor final : public PathMonitor {
  public:
    explicit FakePathMonitor(CallLog& calls) : calls_(calls) {}
    void start(UpdateHandler handler) override {
        calls_ += QStringLiteral("pathMonitor.start");
        report = std::move(handler);
    }
    void cancel() override { calls_ += QStringLiteral("pathMonitor.cancel"); }

    UpdateHandler report;

  private:
    CallLog& calls_;
};

class FakeSleepMonitor final : public SleepMonitor {
  public:
    explicit FakeSleepMonitor(CallLog& calls) : calls_(calls) {}
    void start(std::function<void()> willSleep, std::function<void()> didWake) override {
        calls_ += QStringLiteral("sleepMonitor.start");
        sleep = std::move(willSleep);
        wake = std::move(didWake);
    }
    void stop() override { calls_ += QStringLiteral("sleepMonitor.stop"); }

    std::function<void()> sleep;
    std::function<void()> wake;

  private:
    CallLog& calls_;
};

/// One wired port whose counters the test sets; absent: the system does not answer.
class FakeInterfaceCounters final : public InterfaceCounters {
  public:
    explicit FakeInterfaceCounters(CallLog& calls) : calls_(calls) {}
    std::optional<std::vector<InterfaceCounter>> read() override {
        calls_ += QStringLiteral("interfaceCounters.read");
        return interfaces;
    }
    void set(std::uint64_t received, std::uint64_t sent) {
        interfaces = std::vector{InterfaceCounter{QStringLiteral("wlan0"), true, false, received, sent}};
    }

    std::optional<std::vector<InterfaceCounter>> interfaces = std::vector<InterfaceCounter>{};

  private:
    CallLog& calls_;
};

class FakeUserDefaults final : public UserDefaults {
  public:
    std::optional<bool> boolForKey(const QString& key) const override {
        return stored.contains(key) ? std::optional(stored.value(key)) : std::nullopt;
    }
    void setBool(bool value, const QString& key) override { stored[key] = value; }

    QMap<QString, bool> stored;
};

class FakeLaunchAgent final : public LaunchAgent {
  public:
    bool exists() const override { return present; }
    void toggle() override {
        ++toggles;
        present = present != canToggle;
    }

    bool present = false;
    bool canToggle = true;
    int toggles = 0;
};

class FakeDiagnosticLog final : public DiagnosticLog {
  public:
    explicit FakeDiagnosticLog(CallLog& calls) : calls_(calls) {}
    void append(const QString& line) override {
        calls_ += QStringLiteral("diagnosticLog.append");
        lines += line;
    }

    QStringList lines;

  private:
    CallLog& calls_;
};

} // namespace skylet::test
