#include "app/Rendering.h"

namespace skylet {

namespace {

/// From here on a connection that works is called slow, and its dot is yellow.
constexpr std::int64_t slowLatencyMs = 400;
constexpr double latencyTitleOffset = 0.5;

/// The four pictures that the title, the colour and the status line choose between; pause goes before everything.
enum class Shown { paused, checking, online, offline };

Shown shown(const DisplayState& state) {
    if (state.paused) {
        return Shown::paused;
    }
    if (!state.online) {
        return Shown::checking;
    }
    return *state.online ? Shown::online : Shown::offline;
}

DotColor dotColor(const DisplayState& state) {
    switch (shown(state)) {
    case Shown::paused:
        return DotColor::systemGray;
    case Shown::checking:
        return DotColor::systemYellow;
    case Shown::online:
        return state.latencyMs >= slowLatencyMs ? DotColor::systemYellow : DotColor::systemGreen;
    case Shown::offline:
        return DotColor::systemRed;
    }
    Q_UNREACHABLE();
}

QString stateWord(const DisplayState& state, const Lookup& text) {
    switch (shown(state)) {
    case Shown::paused:
        return text(QStringLiteral("Paused"));
    case Shown::checking:
        return text(QStringLiteral("Checking…"));
    case Shown::online:
        return {};
    case Shown::offline:
        return text(QStringLiteral("Offline"));
    }
    Q_UNREACHABLE();
}

QString statusText(const DisplayState& state, const Lookup& text) {
    switch (shown(state)) {
    case Shown::paused:
        return text(QStringLiteral("Automatic checks paused"));
    case Shown::checking:
        return text(QStringLiteral("Checking connection..."));
    case Shown::online:
        return formatted(text(QStringLiteral("Online — %d ms (%@)")),
                         {QString::number(state.latencyMs), label(state.latencyMs, text)});
    case Shown::offline:
        return text(QStringLiteral("No internet (hotspot without signal?)"));
    }
    Q_UNREACHABLE();
}

void appendLatency(StatusTitle& title, const DisplayState& state, const Lookup& text) {
    const bool inSeconds = state.latencyMs > 999;
    const QString number =
        inSeconds ? fixed(static_cast<double>(state.latencyMs) / 1000.0, 1) : QString::number(state.latencyMs);
    const QString unit = inSeconds ? QStringLiteral("s") : QStringLiteral("ms");
    title.push_back({QStringLiteral("  ") + number, titlefont::number, 0, {}});
    title.push_back({QStringLiteral(" ") + unit, titlefont::unit, latencyTitleOffset, {}});
    title.push_back({QStringLiteral("  ") + label(state.latencyMs, text), titlefont::number, 0, {}});
    if (state.showTraffic) {
        title.push_back({QStringLiteral("  ↓") + fmtRate(state.downRate) + QStringLiteral(" ↑") + fmtRate(state.upRate),
                         titlefont::number,
                         0,
                         {}});
    }
}

StatusTitle titleOf(const DisplayState& state, const Lookup& text) {
    StatusTitle title{{QStringLiteral("●"), titlefont::dot, 0, dotColor(state)}};
    if (shown(state) != Shown::online) {
        title.push_back({QStringLiteral("  ") + stateWord(state, text), titlefont::number, 0, {}});
    } else if (state.banner) {
        title.push_back({QStringLiteral("  ") + *state.banner, titlefont::banner, 0, {}});
    } else {
        appendLatency(title, state, text);
    }
    return title;
}

} // namespace

Display renderDisplay(const DisplayState& state, const Lookup& text) {
    const QString down = fmtRate(state.downRate);
    const QString up = fmtRate(state.upRate);
    return {
        .title = titleOf(state, text),
        .toolTip = text(QStringLiteral("HTTPS response time, not download speed")),
        .statusLine = statusText(state, text),
        .rateLine = formatted(text(QStringLiteral("Live traffic:  ↓ %@b/s   ↑ %@b/s")), {down, up}),
        .speedLine = text(QStringLiteral("Last speed test:  ")) + state.lastSpeed,
        .pauseChecked = state.paused,
        .trafficChecked = state.showTraffic,
        .testEnabled = !state.testing && shown(state) == Shown::online,
        .checkEnabled = !state.paused,
    };
}

QString label(std::int64_t milliseconds, const Lookup& text) {
    if (milliseconds < 60) {
        return text(QStringLiteral("Quick response"));
    }
    if (milliseconds < 150) {
        return text(QStringLiteral("Responsive"));
    }
    if (milliseconds < slowLatencyMs) {
        return text(QStringLiteral("Moderate delay"));
    }
    if (milliseconds < 1000) {
        return text(QStringLiteral("High delay"));
    }
    return text(QStringLiteral("Very high delay"));
}

QString fmtRate(double bytesPerSecond) {
    const double bits = bytesPerSecond * 8;
    if (bits < 1000) {
        return fixed(bits, 0);
    }
    if (bits < 1'000'000) {
        return fixed(bits / 1000, 0) + u'K';
    }
    return fixed(bits / 1'000'000, 1) + u'M';
}

} // namespace skylet
