#include "app/Rendering.h"

namespace skylet {

namespace {

/// From here on a connection that works is called slow, and its dot is yellow.
constexpr std::int64_t slowLatencyMs = 400;
constexpr double unitOffset = 0.5;

Status statusOf(const DisplayState& state) {
    if (state.paused) {
        return Status::paused;
    }
    if (!state.online) {
        return Status::checking;
    }
    if (!*state.online) {
        return Status::offline;
    }
    return state.latencyMs < slowLatencyMs ? Status::online : Status::slow;
}

/// What the title and the menu's first line say of a status.
struct StatusTexts {
    QString word;
    QString line;
};

StatusTexts statusTexts(const DisplayState& state, const Lookup& text) {
    switch (statusOf(state)) {
    case Status::paused:
        return {text(QStringLiteral("Paused")), text(QStringLiteral("Automatic checks paused"))};
    case Status::checking:
        return {text(QStringLiteral("Checking…")), text(QStringLiteral("Checking connection..."))};
    case Status::offline:
        return {text(QStringLiteral("Offline")), text(QStringLiteral("No internet (hotspot without signal?)"))};
    case Status::online:
    case Status::slow:
        break;
    }
    const QString latencyClass = label(state.latencyMs, text);
    return {latencyClass,
            formatted(text(QStringLiteral("Online — %d ms (%@)")), {QString::number(state.latencyMs), latencyClass})};
}

bool isOnline(const DisplayState& state) {
    return !state.paused && state.online == true;
}

StatusDisplay statusDisplay(const DisplayState& state, const Lookup& text) {
    StatusDisplay display;
    display.status = statusOf(state);
    display.toolTip = text(QStringLiteral("HTTPS response time, not download speed"));
    const QString gap = QStringLiteral("  ");
    if (isOnline(state) && state.banner) {
        display.title = {{gap + *state.banner, titlefont::banner}};
        return display;
    }
    if (isOnline(state)) {
        const bool inSeconds = state.latencyMs > 999;
        const QString figure =
            inSeconds ? fixed(static_cast<double>(state.latencyMs) / 1000.0, 1) : QString::number(state.latencyMs);
        display.number = inSeconds ? figure + u's' : figure;
        display.title = {{gap + figure, titlefont::number},
                         {inSeconds ? QStringLiteral(" s") : QStringLiteral(" ms"), titlefont::unit, unitOffset}};
    }
    display.title.push_back({gap + statusTexts(state, text).word, titlefont::number});
    if (isOnline(state) && state.showTraffic) {
        display.title.push_back({gap + u'↓' + fmtRate(state.downRate) + QStringLiteral(" ↑") + fmtRate(state.upRate),
                                 titlefont::number, 0, true});
    }
    return display;
}

} // namespace

Display renderDisplay(const DisplayState& state, const Lookup& text) {
    return {
        .item = statusDisplay(state, text),
        .statusLine = statusTexts(state, text).line,
        .rateLine = formatted(text(QStringLiteral("Live traffic:  ↓ %@b/s   ↑ %@b/s")),
                              {fmtRate(state.downRate), fmtRate(state.upRate)}),
        .speedLine = text(QStringLiteral("Last speed test:  ")) + state.lastSpeed,
        .pauseChecked = state.paused,
        .trafficChecked = state.showTraffic,
        .testEnabled = !state.testing && isOnline(state),
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
