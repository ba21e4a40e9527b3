#include "platform/linux/desktop/DesktopApplication.h"

#include "platform/linux/desktop/ApplicationIcon.h"
#include "platform/linux/desktop/Wayland.h"

#include <QApplication>
#include <QDesktopServices>
#include <QSessionManager>

namespace skylet {

namespace {

// On a connection of its own the item has no name but the unique one. GNOME's extension also looks for items by itself:
// one that it has found under another name and one that registers would be two.
QString busName() {
    return QStringLiteral("skylet-status-item");
}

} // namespace

DesktopApplication::DesktopApplication() {
    QGuiApplication::setDesktopFileName(QStringLiteral("com.vorn.skylet"));
    QGuiApplication::setWindowIcon(applicationIcon());
    // A session manager would start the program again at the next login, whatever "Launch at Login" says.
    QObject::connect(qGuiApp, &QGuiApplication::saveStateRequest,
                     [](QSessionManager& manager) { manager.setRestartHint(QSessionManager::RestartNever); });
}

DesktopApplication::~DesktopApplication() {
    QDBusConnection::disconnectFromBus(busName());
}

void DesktopApplication::becomeAccessory() {
    QGuiApplication::setQuitOnLastWindowClosed(false);
    // Jobs of Qt's own, such as a file dialogue's, hold a lock whose release would end the program as well.
    QCoreApplication::setQuitLockEnabled(false);
}

QDBusConnection DesktopApplication::statusItemBus() {
    const QDBusConnection open(busName());
    return open.isConnected() ? open : QDBusConnection::connectToBus(QDBusConnection::SessionBus, busName());
}

std::unique_ptr<StatusItem> DesktopApplication::makeStatusItem() {
    auto item = std::make_unique<DesktopStatusItem>(statusItemBus());
    statusItem_ = item.get();
    return item;
}

bool DesktopApplication::hasApplicationIcon() const {
    return !QGuiApplication::windowIcon().pixmap(QSize(16, 16)).isNull();
}

void DesktopApplication::openURL(const QUrl& url) {
    QDesktopServices::openUrl(url);
}

void DesktopApplication::terminate() {
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}

bool DesktopApplication::requestAttention(const QString& activationToken) {
    keepActivationToken(activationToken);
    return statusItem_ && statusItem_->requestAttention();
}

} // namespace skylet
