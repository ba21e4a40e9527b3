#pragma once

#include "ui/texts/Texts.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace skylet {

/// The texts in the language of the user: English, or another one when the first preferred language is that. English
/// sentences are their own keys; four long texts have dotted keys. Knows nothing of layout direction.
class Strings {
  public:
    /// `preferredLanguages`: language tags such as "he-IL", the most preferred first; an empty list means English.
    explicit Strings(const QStringList& preferredLanguages, const std::vector<Language>& choice = languages());

    /// The languages besides English.
    static const std::vector<Language>& languages();

    bool isHebrew() const { return language_.texts == he; }
    /// The text to show for `key`: in the user's language, else English, else the key itself. Exact match only.
    QString text(const QString& key) const;
    /// The text to show for `key` among the words for this platform, in the user's language, else in English.
    QString desktopText(const QString& key) const;

  private:
    Language language_{"en", en, enDesktop};
};

/// The text to show for `key` in the user's language, which is decided once per process.
QString L(const QString& key);

/// The same among the words for this platform.
QString desktopText(const QString& key);

/// Whether the user reads Hebrew.
bool isHebrew();

/// Replaces "%d" and "%@" in `form`, from left to right, by `arguments`. What an argument holds is not looked at again.
QString formatted(const QString& form, const QStringList& arguments);

/// `value` with `decimals` (0 to 6) digits after the point, as C's "%.*f" writes it, whatever the user's locale.
QString fixed(double value, int decimals);

} // namespace skylet
