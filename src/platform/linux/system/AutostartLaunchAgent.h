#pragma once

#include "platform/system/LaunchAgent.h"

#include <QByteArray>
#include <QString>

namespace skylet {

/// A file in the desktop's autostart folder (freedesktop Desktop Application Autostart Specification). Its existence is
/// the only record of the choice, whatever is in it; a link to nothing is no file.
class AutostartLaunchAgent : public LaunchAgent {
  public:
    /// `executable`: absolute path of the program to start.
    AutostartLaunchAgent(QString path, QString executable);

    /// `$XDG_CONFIG_HOME/autostart/com.vorn.skylet.desktop`.
    static QString defaultPath();

    bool exists() const override;
    void toggle() override;

    /// The whole file that starts `executable`, in UTF-8.
    static QByteArray desktopEntry(const QString& executable);

  private:
    const QString path_;
    const QString executable_;
};

} // namespace skylet
