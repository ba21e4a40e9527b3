#include "ui/texts/Texts.h"

namespace skylet {

const Texts& en() {
    // clang-format off
    static const Texts texts = uniqueTexts({
        {QStringLiteral("welcome.body"), QStringLiteral("Look at the top-right of your screen for a small dot:\n\n●  Green — an internet check passed. The number is HTTPS response time.\n●  Yellow — checking, or the internet response is delayed.\n●  Red — no network, or both internet checks failed twice.\n\nClick the dot for a full speed test, live traffic and options.\nCan’t see it? Hide optional icons in System Settings → Control Center to make room.")},
        {QStringLiteral("about.tagline"), QStringLiteral("Is the internet really there?\nA tiny menu bar dot for people who work over a phone hotspot.")},
        {QStringLiteral("about.details"), QStringLiteral("Independent HTTPS checks every 5 seconds, with retries and network-change detection.\nResponse time, live interface traffic, and an optional speed estimate (up to 60 MB).")},
        {QStringLiteral("about.language"), QStringLiteral("Language follows your Mac. To change it for Skylet only:\nSystem Settings → General → Language & Region → Applications → +")},
    });
    // clang-format on
    return texts;
}

const Texts& enDesktop() {
    // clang-format off
    static const Texts texts = uniqueTexts({
        {QStringLiteral("welcome.where"), QStringLiteral("Look in your panel for a small dot:")},
        {QStringLiteral("welcome.hidden"), QStringLiteral("Can’t see it? Your panel may hide it behind an arrow. GNOME needs its AppIndicator extension.")},
        {QStringLiteral("about.language"), QStringLiteral("Language follows your desktop. To change it for Skylet only,\nstart it with LANGUAGE=en or LANGUAGE=he.")},
    });
    // clang-format on
    return texts;
}

} // namespace skylet
