#pragma once

#include <QHash>
#include <QString>

#include <utility>
#include <vector>

namespace skylet {

/// The texts of one language by their keys.
using Texts = QHash<QString, QString>;

/// From rows of (key, text). A key that stands twice stops the program.
Texts uniqueTexts(const std::vector<std::pair<QString, QString>>& rows);

/// Only the long texts, which have dotted keys: an English sentence is its own key. Built with the first call, as is
/// each language's table.
const Texts& en();
/// Hebrew.
const Texts& he();

/// A language besides English.
struct Language {
    /// How the language tags begin that mean it.
    const char* code;
    const Texts& (*texts)();
};

} // namespace skylet
