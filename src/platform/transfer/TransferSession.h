#pragma once

#include "platform/Cancellation.h"
#include "platform/Clock.h"

#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

namespace skylet {

/// Settings of a session, fixed when it is made.
struct SessionConfiguration {
    /// How long one exchange may take from its start to its answer; of bulk transfers, how long nothing may arrive.
    Seconds timeoutIntervalForRequest{60.0};
    /// How long the whole transfer may take, name look-up and TLS handshake included. The smaller of the two rules.
    Seconds timeoutIntervalForResource{7.0 * 24 * 3600};
};

/// The head of an HTTP answer.
struct TransferResponse {
    int statusCode = 0;
    /// The address that answered, as text; absent when the transport does not know it.
    std::optional<QString> url;
    /// The part of the exchange's time for which this program was busy while the request could have gone out, or the
    /// last byte was there already.
    Seconds localDelay{0};
};

/// Why there is no answer. The text is for the log, not for users.
struct TransferError {
    QString description;
};

/// Sends HTTP requests over connections of its own. It keeps nothing but connections and what resumes them: no cookies,
/// no cache, no credentials; it follows no redirect, speaks https alone, and fails at once when there is no route.
class TransferSession {
  public:
    using Completion = std::function<void(std::optional<TransferResponse>, std::optional<TransferError>)>;
    /// Whether the answer is what the caller expects of the host itself.
    using Accepts = std::function<bool(const TransferResponse&)>;

    virtual ~TransferSession() = default;
    /// Starts a HEAD request. `completion` is called exactly once, on the main thread from the event loop, never from
    /// inside this call or from inside the handle's `cancel`, which brings a TransferError, and no later than the
    /// session's limit. A body is never read. A connection over which an answer came that `accepts` refuses is not used
    /// again; it is asked about answers that the caller does not get to see, too, and may outlive the request.
    virtual std::shared_ptr<Cancellation> head(const QUrl& url, Accepts accepts, Completion completion) = 0;
    /// Ends every transfer (each still completes, with an error) and closes every connection.
    virtual void invalidateAndCancel() = 0;
};

/// Makes a session with the given settings.
using TransferSessionFactory = std::function<std::unique_ptr<TransferSession>(const SessionConfiguration&)>;

} // namespace skylet
