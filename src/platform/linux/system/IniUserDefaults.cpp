#include "platform/linux/system/IniUserDefaults.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QStringDecoder>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace skylet {

namespace {

// Two short lines are what the program stores.
constexpr qint64 largestSensibleSize = 65'536;

QString textOf(bool value) {
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

bool isIniLine(const QString& line) {
    const QString content = line.trimmed();
    if (content.isEmpty() || content.startsWith(u';') || content.startsWith(u'#')) {
        return true;
    }
    return content.startsWith(u'[') ? content.endsWith(u']') : content.indexOf(u'=') > 0;
}

bool isControlCharacter(QChar character) {
    return character.unicode() < 0x20 && character != u'\t' && character != u'\r' && character != u'\n';
}

/// QSettings picks what it can out of any bytes and reports hardly anything as an error, so the text is judged here.
bool isIniText(const QByteArray& bytes) {
    QStringDecoder decode(QStringDecoder::Utf8);
    const QString text = decode(bytes);
    if (decode.hasError() || std::any_of(text.begin(), text.end(), isControlCharacter)) {
        return false;
    }
    const QStringList lines = text.split(u'\n');
    return std::all_of(lines.begin(), lines.end(), isIniLine);
}

/// Whether QSettings may be let near the path. It would wait for ever for a pipe, and read a file of any size.
bool isSound(const QString& path) {
    const QFileInfo info(path);
    if (!info.exists()) {
        return true;
    }
    if (!info.isFile() || info.size() > largestSensibleSize) {
        return false;
    }
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && isIniText(file.read(largestSensibleSize));
}

} // namespace

IniUserDefaults::IniUserDefaults(QString path) : path_(std::move(path)) {}

QString IniUserDefaults::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/skylet/skylet.ini");
}

std::optional<bool> IniUserDefaults::boolForKey(const QString& key) const {
    const QVariant value = isSound(path_) ? QSettings(path_, QSettings::IniFormat).value(key) : QVariant();
    const QString text = value.typeId() == QMetaType::QString ? value.toString() : QString();
    if (text == textOf(true)) {
        return true;
    }
    return text == textOf(false) ? std::optional(false) : std::nullopt;
}

void IniUserDefaults::setBool(bool value, const QString& key) {
    if (!isSound(path_)) {
        // Not QFile::rename, which leaves an older copy in place and moves no folder.
        const QByteArray from = QFile::encodeName(path_);
        if (std::rename(from.constData(), (from + ".corrupt").constData()) != 0) {
            return;
        }
    }
    QSettings settings(path_, QSettings::IniFormat);
    // A file that may be written in a folder that may not is written in place.
    settings.setAtomicSyncRequired(false);
    // Otherwise QSettings would remember for the rest of the process what it could not store.
    if (!settings.isWritable()) {
        return;
    }
    settings.setValue(key, textOf(value));
    // Written as `settings` goes out of scope.
}

} // namespace skylet
