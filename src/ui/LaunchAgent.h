#pragma once

#include <QByteArray>
#include <QString>

namespace skylet {

/// Makes the desktop start the program at login, by a file in its autostart folder (freedesktop Desktop Application
/// Autostart Specification). The file's existence is the only record of the choice; nothing is started or stopped now.
class LaunchAgent {
  public:
    /// `path`: the file. `executable`: absolute path of the program to start.
    LaunchAgent(QString path, QString executable);

    /// Whether a file stands at the path, whatever is in it. A link to nothing is none.
    bool exists() const;
    /// Removes the file if there is one, else writes it, with its folder. Errors are ignored: ask `exists` afterwards.
    void toggle();

    /// The whole file that starts `executable`, in UTF-8.
    static QByteArray desktopEntry(const QString& executable);

  private:
    const QString path_;
    const QString executable_;
};

} // namespace skylet
