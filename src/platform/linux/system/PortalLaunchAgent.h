#pragma once

#include "platform/linux/system/AutostartLaunchAgent.h"
#include "platform/system/LaunchAgent.h"

#include <QDBusConnection>
#include <QFile>
#include <QObject>
#include <QString>
#include <QVariantMap>

namespace skylet {

/// Launch at login for a program in a sandbox, whose own autostart folder no desktop reads: asks the desktop's
/// Background portal (org.freedesktop.portal.Background), and it may ask the user. What the portal answered last is
/// kept as the file that would be the autostart entry outside, since it cannot be asked for it. Without an answer
/// nothing changes; a request that was not answered before the program ended is made again by the next one.
class PortalLaunchAgent : public QObject, public LaunchAgent {
    Q_OBJECT

  public:
    /// `bus`: the session bus. `path`, `executable`: as for AutostartLaunchAgent.
    PortalLaunchAgent(QDBusConnection bus, const QString& path, const QString& executable);

    /// Whether the program runs in such a sandbox.
    static bool isNeeded();

    bool exists() const override { return record_.exists(); }
    void toggle() override;

  private Q_SLOTS:
    void answered(uint response, const QVariantMap& results);

  private: // NOLINT(readability-redundant-access-specifiers): the one above is moc's
    QDBusConnection bus_;
    const QString executable_;
    AutostartLaunchAgent record_;
    /// There while a request is not answered yet.
    QFile unanswered_;
    int requests_ = 0;
};

} // namespace skylet
