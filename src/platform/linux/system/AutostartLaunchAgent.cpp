#include "platform/linux/system/AutostartLaunchAgent.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

/// `argument` as one word of an Exec line (Desktop Entry Specification, "The Exec key").
QString quoted(const QString& argument) {
    QString word = QStringLiteral("\"");
    for (const QChar character : argument) {
        if (QStringLiteral("\"`$\\").contains(character)) {
            word += u'\\';
        } else if (character == u'%') {
            // Alone it would begin a field code.
            word += u'%';
        }
        word += character;
    }
    return word + u'"';
}

/// `text` as the value of a key of type string (ibid., "Possible value types").
QString escaped(QString text) {
    return text.replace(u'\\', QStringLiteral("\\\\"))
        .replace(u'\n', QStringLiteral("\\n"))
        .replace(u'\t', QStringLiteral("\\t"))
        .replace(u'\r', QStringLiteral("\\r"));
}

/// GLib and systemd look for the program before they have turned "%%" into "%", and systemd starts none with quotes or
/// control characters in its name. As an argument they read all of that right.
bool mustBeAnArgument(const QString& executable) {
    return std::any_of(executable.begin(), executable.end(), [](QChar character) {
        return QStringLiteral("%\"'").contains(character) || character < u' ' || character == u'\x7f';
    });
}

/// Where it must, nice(1) becomes the program and changes nothing; env(1) would take a path with a "=" for a variable.
/// Systemd (252) misreads backslashes, "$" and "`" in either place; GLib understands them.
QString commandLine(const QString& executable) {
    return mustBeAnArgument(executable) ? QStringLiteral("nice -n 0 ") + quoted(executable) : quoted(executable);
}

} // namespace

AutostartLaunchAgent::AutostartLaunchAgent(QString path, QString executable)
    : path_(std::move(path)), executable_(std::move(executable)) {}

QString AutostartLaunchAgent::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/com.vorn.skylet.desktop");
}

bool AutostartLaunchAgent::exists() const {
    return QFileInfo::exists(path_);
}

void AutostartLaunchAgent::toggle() {
    const bool wanted = !exists();
    // Where none exists there may be a link to nothing, which would lead the new file elsewhere.
    QFile::remove(path_);
    if (!wanted) {
        return;
    }
    QDir().mkpath(QFileInfo(path_).path());
    QSaveFile file(path_);
    const QByteArray entry = desktopEntry(executable_);
    // Flushed first, because `commit` overlooks a disk that turns out to be full while it closes the file.
    if (file.open(QIODevice::WriteOnly) && file.write(entry) == entry.size() && file.flush()) {
        file.commit();
    }
}

QByteArray AutostartLaunchAgent::desktopEntry(const QString& executable) {
    return (QStringLiteral("[Desktop Entry]\n"
                           "Type=Application\n"
                           "Name=Skylet\n"
                           "Icon=com.vorn.skylet\n"
                           "X-Skylet-Identifier=com.vorn.skylet\n"
                           "Exec=") +
            escaped(commandLine(executable)) +
            QStringLiteral("\n"
                           "Terminal=false\n"
                           "StartupNotify=false\n"))
        .toUtf8();
}

} // namespace skylet
