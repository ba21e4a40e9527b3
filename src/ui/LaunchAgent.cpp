#include "ui/LaunchAgent.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <utility>

namespace skylet {

namespace {

/// `path` as the one word of an Exec line, before the escapes that every text of a desktop entry needs.
QString quotedArgument(const QString& path) {
    QString quoted = QStringLiteral("\"");
    for (const QChar character : path) {
        if (QStringLiteral("\"`$\\").contains(character)) {
            quoted += u'\\';
        } else if (character == u'%') {
            // Alone it would begin a field code.
            quoted += u'%';
        }
        quoted += character;
    }
    return quoted + u'"';
}

QString escapedText(QString text) {
    return text.replace(u'\\', QStringLiteral("\\\\"))
        .replace(u'\n', QStringLiteral("\\n"))
        .replace(u'\t', QStringLiteral("\\t"))
        .replace(u'\r', QStringLiteral("\\r"));
}

} // namespace

LaunchAgent::LaunchAgent(QString path, QString executable)
    : path_(std::move(path)), executable_(std::move(executable)) {}

bool LaunchAgent::exists() const {
    return QFileInfo::exists(path_);
}

void LaunchAgent::toggle() {
    if (exists()) {
        QFile::remove(path_);
        return;
    }
    QDir().mkpath(QFileInfo(path_).path());
    QSaveFile file(path_);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(desktopEntry(executable_));
        file.commit();
    }
}

QByteArray LaunchAgent::desktopEntry(const QString& executable) {
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Skylet\n"
                          "Icon=com.vorn.skylet\n"
                          "Exec=%1\n"
                          "Terminal=false\n"
                          "StartupNotify=false\n")
        .arg(escapedText(quotedArgument(executable)))
        .toUtf8();
}

} // namespace skylet
