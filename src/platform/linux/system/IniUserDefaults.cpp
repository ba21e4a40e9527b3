#include "platform/linux/system/IniUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QStringList>

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace skylet {

namespace {

// Two short lines are what the program stores.
constexpr qint64 largestSensibleSize = 65'536;

/// The lines of the file, a single empty one where there is no file; absent where it cannot be read: a folder, a pipe,
/// a file of any size, what a crash has left. Each byte becomes one character, so that lines of any encoding can be
/// written back as they were.
std::optional<QStringList> readLines(QFile& file) {
    const QFileInfo info(file);
    if (!info.exists()) {
        return QStringList(QString());
    }
    if (!info.isFile() || !file.open(QIODevice::ReadOnly) || info.size() > largestSensibleSize) {
        return std::nullopt;
    }
    const QByteArray content = file.read(largestSensibleSize);
    if (file.error() != QFileDevice::NoError || content.contains('\0')) {
        return std::nullopt;
    }
    return QString::fromLatin1(content).split(u'\n');
}

/// Where a key of the section [General] stands, to which the lines before the first section belong too; -1: nowhere.
struct Place {
    qsizetype section = -1;
    qsizetype key = -1;
};

Place findKey(const QStringList& lines, const QString& key) {
    Place place;
    bool inSection = true;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString line = lines[i].trimmed();
        if (line.startsWith(u'[')) {
            const QString name = line.mid(1).section(u']', 0, 0).trimmed();
            inSection = name.compare(QStringLiteral("General"), Qt::CaseInsensitive) == 0;
            place.section = inSection ? i : place.section;
        } else if (inSection && line.section(u'=', 0, 0).trimmed() == key) {
            place.key = i;
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
        // `commit` overlooks a disk that turns out to be full or broken only now.
        if (replacement.write(text) == text.size() && replacement.flush() && fsync(replacement.handle()) == 0) {
            replacement.commit();
        }
        return;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered)) {
        return;
    }
    const QByteArray before = file.readAll();
    const auto overwrite = [&file](const QByteArray& content) {
        return file.seek(0) && file.write(content) == content.size() && file.resize(content.size()) &&
               fsync(file.handle()) == 0;
    };
    if (!overwrite(text)) {
        overwrite(before);
    }
}

} // namespace

IniUserDefaults::IniUserDefaults(QString path) : path_(std::move(path)) {}

QString IniUserDefaults::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/skylet/skylet.ini");
}

std::optional<bool> IniUserDefaults::boolForKey(const QString& key) const {
    QFile file(path_);
    const QStringList lines = readLines(file).value_or(QStringList());
    QString text = lines.value(findKey(lines, key).key).section(u'=', 1).section(u';', 0, 0).toLower();
    text = text.remove(u'"').trimmed();
    if (text == QStringLiteral("true") || text == QStringLiteral("1")) {
        return true;
    }
    return text == QStringLiteral("false") || text == QStringLiteral("0") ? std::optional(false) : std::nullopt;
}

void IniUserDefaults::setBool(bool value, const QString& key) {
    QFile file(path_);
    std::optional<QStringList> lines = readLines(file);
    if (!lines) {
        if (!file.isOpen() && QFileInfo(file).isFile() && eaccess(QFile::encodeName(path_).constData(), R_OK) == 0) {
            // There is no descriptor or no memory for it now, and the file may be a good one.
            return;
        }
        QString aside = path_ + QStringLiteral(".corrupt");
        while (QFileInfo::exists(aside)) {
            aside += u'~';
        }
        // Not QFile::rename, which moves no folder.
        if (std::rename(QFile::encodeName(path_).constData(), QFile::encodeName(aside).constData()) != 0) {
            return;
        }
        lines = QStringList(QString());
    }
    const QString entry = key + QLatin1String(value ? "=true" : "=false");
    const Place place = findKey(*lines, key);
    if (place.key >= 0) {
        lines->replace(place.key, entry);
    } else if (place.section >= 0) {
        lines->insert(place.section + 1, entry);
    } else {
        *lines = QStringList{QStringLiteral("[General]"), entry} + *lines;
    }
    QDir().mkpath(QFileInfo(path_).path());
    replaceContent(path_, lines->join(u'\n').toLatin1());
}

} // namespace skylet
