#include "platform/linux/system/PortalLaunchAgent.h"

#include <QDBusMessage>
#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <utility>

namespace skylet {

PortalLaunchAgent::PortalLaunchAgent(QDBusConnection bus, const QString& path, const QString& executable)
    : bus_(std::move(bus)), executable_(executable), record_(path, executable),
      unanswered_(path + QStringLiteral(".unanswered")) {
    if (unanswered_.exists()) {
        toggle();
    }
}

bool PortalLaunchAgent::isNeeded() {
    return QFile::exists(QStringLiteral("/.flatpak-info"));
}

void PortalLaunchAgent::toggle() {
    // The answer comes as a signal of an object whose path is known beforehand (org.freedesktop.portal.Request).
    const QString token = QStringLiteral("skylet%1").arg(++requests_);
    const QString sender = bus_.baseService().mid(1).replace(u'.', u'_');
    bus_.connect(QString(), QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token),
                 QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"), this,
                 SLOT(answered(uint, QVariantMap)));
    auto call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.Background"), QStringLiteral("RequestBackground"));
    const QString noWindow;
    call << noWindow
         << QVariantMap{{QStringLiteral("handle_token"), token},
                        {QStringLiteral("autostart"), !exists()},
                        {QStringLiteral("commandline"), QStringList{executable_}}};
    bus_.send(call);
    QDir().mkpath(QFileInfo(unanswered_).path());
    if (unanswered_.open(QIODevice::WriteOnly)) {
        unanswered_.close();
    }
}

void PortalLaunchAgent::answered(uint /*response*/, const QVariantMap& results) {
    unanswered_.remove();
    // A refusal says it too: then the portal has switched the start at login off, whatever it was asked for.
    const QVariant autostart = results.value(QStringLiteral("autostart"));
    if (autostart.isValid() && autostart.toBool() != exists()) {
        record_.toggle();
    }
    if (onChange) {
        onChange();
    }
}

} // namespace skylet
