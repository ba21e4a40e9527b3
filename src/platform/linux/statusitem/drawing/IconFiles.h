#pragma once

#include "platform/linux/statusitem/drawing/StatusIcon.h"

#include <QString>
#include <QStringList>

namespace skylet {

/// Icons as files, for hosts that do better with an icon's name: a name may be the path of a file. Writes each icon
/// when it is first asked for, and takes the files away at its end.
class IconFiles {
  public:
    /// `folder`: made when it is needed.
    explicit IconFiles(QString folder);
    ~IconFiles();

    /// In the user's runtime folder, which nobody else can read and which ends with the session; in the part of it that
    /// the desktop sees as well when the program is shut in a sandbox of Flatpak's.
    static QString usualFolder();
    /// The path of the file; empty when it cannot be written. A label's dot has one file for each colour, so there are
    /// never many.
    QString fileFor(const StatusIcon& icon);

  private:
    Q_DISABLE_COPY_MOVE(IconFiles)

    QString folder_;
    QStringList written_;
};

} // namespace skylet
