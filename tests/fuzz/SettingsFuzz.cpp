#include "fuzz/Fuzz.h"
#include "platform/linux/system/IniUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace skylet::test {
namespace {

const auto traffic = QStringLiteral("showTraffic");
const auto welcomed = QStringLiteral("didOnboard");

void write(const QString& path, const QByteArray& content) {
    QFile file(path);
    require(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size(),
            "the test can write");
}

QByteArray read(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The lines in which no choice stands, nor the heading that one may need.
QByteArrayList withoutChoices(const QByteArray& content) {
    QByteArrayList lines = content.split('\n');
    lines.removeIf([](const QByteArray& line) {
        return line.contains("showTraffic") || line.contains("didOnboard") || line == "[General]" || line.isEmpty();
    });
    return lines;
}

void readSettings(FuzzInput input) {
    static const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("skylet.ini"));
    const bool value = input.flag();
    const QByteArray content = input.rest();
    QFile::remove(path + QStringLiteral(".corrupt"));
    write(path, content);
    IniUserDefaults settings(path);
    const auto other = settings.boolForKey(welcomed);
    settings.boolForKey(traffic);
    require(read(path) == content, "reading changes nothing");
    settings.setBool(value, traffic);
    require(IniUserDefaults(path).boolForKey(traffic) == value, "what was stored is there");
    require(IniUserDefaults(path).boolForKey(welcomed) == other, "the other choice stays what it was");
    const bool isJunk = content.contains('\0');
    require(read(path + QStringLiteral(".corrupt")) == (isJunk ? content : QByteArray()),
            "what is no settings file is kept as it was, and nothing else is");
    require(isJunk || withoutChoices(read(path)) == withoutChoices(content), "all other lines stay");
    settings.setBool(!value, traffic);
    settings.setBool(value, welcomed);
    require(settings.boolForKey(traffic) == !value && settings.boolForKey(welcomed) == value, "both can be changed");
}

const FuzzTarget settingsTarget("settings", readSettings);

} // namespace
} // namespace skylet::test
