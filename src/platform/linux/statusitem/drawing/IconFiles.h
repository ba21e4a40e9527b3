#pragma once

#include "platform/linux/statusitem/drawing/StatusIcon.h"

#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <utility>

namespace skylet {

/// Icons as files, for hosts that do better with an icon's name: a name may be the path of a file. They stand in a
/// folder of this object's own, which goes with it.
class IconFiles {
  public:
    /// `folder`: the beginning of the folder's name.
    explicit IconFiles(QString folder) : name_(std::move(folder)) {}

    /// In the user's runtime folder, which nobody else can read and which ends with the session; in the part of it that
    /// the desktop sees as well when the program is shut in a sandbox of Flatpak's.
    static QString usualFolder();
    /// The path of a file that is there and whole; empty when it cannot be written. A label's dot has one file for each
    /// colour, and one more that asks for attention, so there are never many.
    QString fileFor(const StatusIcon& icon);

  private:
    QString name_;
    std::unique_ptr<QTemporaryDir> folder_;
};

} // namespace skylet
