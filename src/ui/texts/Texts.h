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

/// The words for this platform. The tables above are the same, word for word, wherever the program runs, and some of
/// their texts send the reader to places that only another platform has: a corner of the screen, its settings. The
/// welcome and the About window look here first.
const Texts& enDesktop();
const Texts& heDesktop();

/// A language besides English.
struct Language {
    /// How the language tags begin that mean it.
    const char* code;
    const Texts& (*texts)();
    const Texts& (*desktopTexts)();
};

} // namespace skylet
