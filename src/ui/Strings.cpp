#include "ui/Strings.h"

#include <QLocale>

#include <array>
#include <charconv>
#include <limits>

namespace skylet {

namespace {

/// The user's own strings, made on first use.
const Strings& userStrings() {
    static const Strings strings(QLocale::system().uiLanguages());
    return strings;
}

} // namespace

Strings::Strings(const QStringList& preferredLanguages, const std::vector<Language>& choice) {
    for (const Language& language : choice) {
        if (preferredLanguages.value(0).startsWith(QLatin1String(language.code))) {
            language_ = language;
        }
    }
}

const std::vector<Language>& Strings::languages() {
    static const std::vector<Language> languages{{"he", he, heDesktop}};
    return languages;
}

QString Strings::text(const QString& key) const {
    if (const auto row = language_.texts().constFind(key); row != language_.texts().constEnd()) {
        return *row;
    }
    return en().value(key, key);
}

QString Strings::desktopText(const QString& key) const {
    return language_.desktopTexts().value(key, enDesktop().value(key));
}

Texts uniqueTexts(const std::vector<std::pair<QString, QString>>& rows) {
    Texts texts;
    for (const auto& [key, text] : rows) {
        if (texts.contains(key)) {
            qFatal("Strings: the key \"%s\" stands twice", qUtf8Printable(key));
        }
        texts.insert(key, text);
    }
    return texts;
}

QString L(const QString& key) {
    return userStrings().text(key);
}

QString desktopText(const QString& key) {
    return userStrings().desktopText(key);
}

bool isHebrew() {
    return userStrings().isHebrew();
}

QString formatted(const QString& form, const QStringList& arguments) {
    QString result;
    auto argument = arguments.cbegin();
    for (qsizetype i = 0; i < form.size(); ++i) {
        const bool placeholder =
            form.at(i) == u'%' && i + 1 < form.size() && (form.at(i + 1) == u'd' || form.at(i + 1) == u'@');
        if (placeholder && argument != arguments.cend()) {
            result += *argument++;
            ++i;
        } else {
            result += form.at(i);
        }
    }
    return result;
}

QString fixed(double value, int decimals) {
    // Room for the largest double there is.
    std::array<char, std::numeric_limits<double>::max_exponent10 + 16> text{};
    const auto written = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed, decimals);
    return QString::fromLatin1(text.data(), written.ptr - text.data());
}

} // namespace skylet
