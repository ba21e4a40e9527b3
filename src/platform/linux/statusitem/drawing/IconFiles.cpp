#include "platform/linux/statusitem/drawing/IconFiles.h"

#include "platform/linux/statusitem/drawing/StatusColors.h"

#include <QDir>
#include <QFile>
#include <QFontDatabase>
#include <QStandardPaths>

#include <utility>

namespace skylet {

namespace {

// Hosts scale it down to their size: enough for 24 logical pixels on a screen of scale 2.
constexpr int fileSide = 48;

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
    if (folder_.isEmpty() || icon.presentation != Presentation::label) {
        return {};
    }
    const QString color = dotShades(icon.status).fill.name().mid(1);
    QString file = QStringLiteral("%1/dot-%2.png").arg(folder_, color);
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
