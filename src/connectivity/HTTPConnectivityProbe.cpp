#include "connectivity/HTTPConnectivityProbe.h"

#include "connectivity/ConnectivityLog.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace skylet {

namespace {

/// Whole milliseconds, cut off, at least 1: an answer came, so it took some time.
std::int64_t latencyOf(Seconds elapsed) {
    const double milliseconds = elapsed.count() * 1000;
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (!std::isfinite(milliseconds) || milliseconds >= limit || milliseconds < -limit) {
        qFatal("HTTPConnectivityProbe: a response time is out of range");
    }
    return std::max<std::int64_t>(static_cast<std::int64_t>(milliseconds), 1);
}

QString describe(const std::optional<TransferResponse>& response, const std::optional<TransferError>& error) {
    if (response) {
        return QStringLiteral("status %1 from %2").arg(response->statusCode).arg(response->url.value_or(QString()));
    }
    return error ? error->description : QStringLiteral("no answer");
}

} // namespace

HTTPConnectivityProbe::HTTPConnectivityProbe(TransferSessionFactory makeSession, std::shared_ptr<const Clock> clock,
                                             SessionConfiguration configuration)
    : makeSession_(std::move(makeSession)), clock_(std::move(clock)), configuration_(configuration) {
    configuration_.timeoutIntervalForRequest = timeout;
    configuration_.timeoutIntervalForResource = timeout;
}

std::shared_ptr<Cancellation> HTTPConnectivityProbe::probe(const QUrl& url, Completion completion) {
    const Seconds start = clock_->systemUptime();
    auto completed = [this, start, url, completion = std::move(completion)](const auto& response, const auto& error) {
        const Seconds elapsed = clock_->systemUptime() - start - (response ? response->localDelay : Seconds(0));
        qCInfo(connectivityLog, "%s: %s after %.1f ms", qPrintable(url.toString()),
               qPrintable(describe(response, error)), elapsed.count() * 1000);
        if (accepts(response, url, error)) {
            completion(latencyOf(elapsed));
        } else {
            completion(std::nullopt);
        }
    };
    return session().head(
        url, [url](const TransferResponse& response) { return accepts(response, url, std::nullopt); },
        lifetime_.guard(std::move(completed)));
}

bool HTTPConnectivityProbe::accepts(const std::optional<TransferResponse>& response, const QUrl& url,
                                    const std::optional<TransferError>& error) {
    if (error || !response || !response->url || response->statusCode != 204) {
        return false;
    }
    // The scheme is compared in the text, since QUrl would turn capitals into the same scheme.
    if (!response->url->startsWith(QStringLiteral("https:"))) {
        return false;
    }
    const QUrl answered(*response->url);
    return answered.isValid() && answered.host() == url.host() && answered.port() == url.port() &&
           answered.path() == url.path();
}

void HTTPConnectivityProbe::invalidate() {
    session().invalidateAndCancel();
}

TransferSession& HTTPConnectivityProbe::session() {
    if (!session_) {
        session_ = makeSession_(configuration_);
    }
    return *session_;
}

} // namespace skylet
