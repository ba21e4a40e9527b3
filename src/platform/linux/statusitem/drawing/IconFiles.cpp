#include "platform/linux/statusitem/drawing/IconFiles.h"

#include <QDir>
#include <QFile>
#include <QFontDatabase>
#include <QStandardPaths>

#include <utility>

namespace skylet {

namespace {

// Hosts scale it down to their size: enough for 24 logical pixels on a screen of scale 2.
constexpr int fileSide = 48;

QString nameOf(DotColor color) {
    switch (color) {
    case DotColor::systemGreen:
        return QStringLiteral("green");
    case DotColor::systemYellow:
        return QStringLiteral("yellow");
    case DotColor::systemRed:
        return QStringLiteral("red");
    case DotColor::systemGray:
        break;
    }
    return QStringLiteral("gray");
}

} // namespace

IconFiles::IconFiles(QString folder) : folder_(std::move(folder)) {}

IconFiles::~IconFiles() {
    for (const QString& file : written_) {
        QFile::remove(file);
    }
    if (!written_.isEmpty()) {
        QDir().rmdir(folder_);
    }
}

QString IconFiles::usualFolder() {
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (runtime.isEmpty()) {
        return {};
    }
    const QString sandboxed = qEnvironmentVariable("FLATPAK_ID");
    const QString shared = sandboxed.isEmpty() ? QString() : QStringLiteral("/app/") + sandboxed;
    return runtime + shared + QStringLiteral("/skylet");
}

QString IconFiles::fileFor(const StatusIcon& icon) {
    // The plain dot is all there is beside a label.
    if (folder_.isEmpty() || icon.form != StatusIcon::Form::textDot) {
        return {};
    }
    QString file = QStringLiteral("%1/dot-%2.png").arg(folder_, nameOf(icon.color));
    if (written_.contains(file)) {
        return file;
    }
    const QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    if (!QDir().mkpath(folder_) || !paintStatusIcon(icon, fileSide, font).save(file, "PNG")) {
        return {};
    }
    written_.append(file);
    return file;
}

} // namespace skylet
