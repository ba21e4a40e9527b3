#include "platform/linux/system/IniUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QStringDecoder>
#include <QStringList>

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

/// The lines of the file, none where there is no file; absent where something else stands there: a folder, a pipe, a
/// file of any size, bytes that are no INI text.
std::optional<QStringList> readLines(const QString& path) {
    const QFileInfo info(path);
    if (!info.exists()) {
        return QStringList();
    }
    QFile file(path);
    if (!info.isFile() || info.size() > largestSensibleSize || !file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QStringDecoder decode(QStringDecoder::Utf8);
    const QString text = decode(file.read(largestSensibleSize));
    QStringList lines = text.split(u'\n');
    if (decode.hasError() || std::any_of(text.begin(), text.end(), isControlCharacter) ||
        !std::all_of(lines.begin(), lines.end(), isIniLine)) {
        return std::nullopt;
    }
    if (lines.constLast().isEmpty()) {
        lines.removeLast();
    }
    return lines;
}

/// Where a key of the section [General] stands, to which the lines before the first section belong too.
struct Place {
    /// The line with the key; -1: there is none.
    qsizetype line = -1;
    /// The line behind the section's last; -1: the section is empty.
    qsizetype endOfSection = -1;
};

Place findKey(const QStringList& lines, const QString& key) {
    Place place;
    bool inSection = true;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString line = lines[i].trimmed();
        if (line.startsWith(u'[')) {
            inSection = line.compare(QStringLiteral("[General]"), Qt::CaseInsensitive) == 0;
        }
        if (!inSection || line.isEmpty()) {
            continue;
        }
        place.endOfSection = i + 1;
        if (line.section(u'=', 0, 0).trimmed() == key) {
            place.line = i;
        }
    }
    return place;
}

/// Replaces the file in one step, so that a full disk leaves the old one; where its folder may not be written to, in
/// place.
void replaceContent(const QString& path, const QByteArray& text) {
    // What a link leads to is replaced, not the link, over however many links it goes.
    const QString target = QFileInfo(path).canonicalFilePath();
    QSaveFile replacement(target.isEmpty() ? path : target);
    if (replacement.open(QIODevice::WriteOnly)) {
        // Flushed first, because `commit` overlooks a disk that turns out to be full while it closes the file.
        if (replacement.write(text) == text.size() && replacement.flush()) {
            replacement.commit();
        }
        return;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered)) {
        return;
    }
    const QByteArray before = file.readAll();
    file.seek(0);
    if (file.write(text) == text.size()) {
        file.resize(text.size());
    } else {
        file.seek(0);
        file.write(before);
        file.resize(before.size());
    }
}

} // namespace

IniUserDefaults::IniUserDefaults(QString path) : path_(std::move(path)) {}

QString IniUserDefaults::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/skylet/skylet.ini");
}

std::optional<bool> IniUserDefaults::boolForKey(const QString& key) const {
    const QStringList lines = readLines(path_).value_or(QStringList());
    const QString line = lines.value(findKey(lines, key).line);
    const QString text = line.section(u'=', 1).section(u';', 0, 0).trimmed();
    if (text == textOf(true)) {
        return true;
    }
    return text == textOf(false) ? std::optional(false) : std::nullopt;
}

void IniUserDefaults::setBool(bool value, const QString& key) {
    std::optional<QStringList> lines = readLines(path_);
    if (!lines) {
        // Not QFile::rename, which leaves an older copy in place and moves no folder.
        const QByteArray from = QFile::encodeName(path_);
        if (std::rename(from.constData(), (from + ".corrupt").constData()) != 0) {
            return;
        }
        lines.emplace();
    }
    const QString entry = key + u'=' + textOf(value);
    const Place place = findKey(*lines, key);
    if (place.line >= 0) {
        lines->replace(place.line, entry);
    } else if (place.endOfSection >= 0) {
        lines->insert(place.endOfSection, entry);
    } else {
        *lines = QStringList{QStringLiteral("[General]"), entry} + *lines;
    }
    QDir().mkpath(QFileInfo(path_).path());
    replaceContent(path_, (lines->join(u'\n') + u'\n').toUtf8());
}

} // namespace skylet
