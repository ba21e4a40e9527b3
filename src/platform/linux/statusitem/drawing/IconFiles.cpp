#include "platform/linux/statusitem/drawing/IconFiles.h"

#include "platform/linux/statusitem/drawing/Png.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontDatabase>
#include <QStandardPaths>

namespace skylet {

namespace {

// Hosts scale it down to their size: enough for 24 logical pixels on a screen of scale 2.
constexpr int fileSide = 48;

} // namespace

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
    if (name_.isEmpty() || icon.presentation != Presentation::label) {
        return {};
    }
    // Whoever cleans up a runtime folder may take this one along.
    if (!folder_ || !QFileInfo::exists(folder_->path())) {
        QDir().mkpath(QFileInfo(name_).path());
        folder_ = std::make_unique<QTemporaryDir>(name_ + QStringLiteral("-XXXXXX"));
    }
    if (!folder_->isValid()) {
        return {};
    }
    QString file = folder_->filePath(
        QStringLiteral("dot-%1%2.png")
            .arg(dotShades(icon.status).fill.name().mid(1), QLatin1String(icon.needsAttention ? "-attention" : "")));
    if (QFileInfo::exists(file)) {
        return file;
    }
    // On a full disk nothing is left under the name. QSaveFile would wait until the disk has it.
    QFile whole(file + QStringLiteral(".new"));
    const QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    const QByteArray png = toPng(paintStatusIcon(icon, fileSide, font));
    const bool isWritten = !png.isEmpty() && whole.open(QIODevice::WriteOnly) && whole.write(png) == png.size() &&
                           whole.flush() && whole.rename(file);
    return isWritten ? file : QString();
}

} // namespace skylet
