#pragma once

#include "connectivity/ConnectivityProbing.h"
#include "platform/Clock.h"
#include "platform/Lifetime.h"
#include "platform/transfer/TransferSession.h"

#include <QUrl>

#include <memory>
#include <optional>

namespace skylet {

/// Probes an endpoint that answers an empty 204, with one HTTPS HEAD request, and measures its response time. Strict on
/// purpose: anything but a direct 204 over HTTPS from the very host, port and path that was asked counts as failure, so
/// that a captive portal is not taken for the internet.
class HTTPConnectivityProbe final : public ConnectivityProbing {
  public:
    /// The limit of one exchange as a whole.
    static constexpr Seconds timeout{3.0};

    /// Changes nothing but the time limits of `configuration`. The session is made with the first probe.
    HTTPConnectivityProbe(TransferSessionFactory makeSession, std::shared_ptr<const Clock> clock,
                          SessionConfiguration configuration = {});

    const SessionConfiguration& configuration() const { return configuration_; }

    /// `completion` is called exactly once, from the event loop; with nothing after a cancel.
    std::shared_ptr<Cancellation> probe(const QUrl& url, Completion completion) override;

    /// Whether `response` (absent: none came) is the direct 204 of `url` itself.
    static bool accepts(const std::optional<TransferResponse>& response, const QUrl& url,
                        const std::optional<TransferError>& error);

    /// Ends all probes and closes all connections.
    void invalidate();

  private:
    TransferSession& session();

    const TransferSessionFactory makeSession_;
    const std::shared_ptr<const Clock> clock_;
    SessionConfiguration configuration_;
    std::unique_ptr<TransferSession> session_;
    Lifetime lifetime_;
};

} // namespace skylet
