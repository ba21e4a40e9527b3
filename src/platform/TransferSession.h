#pragma once

#include "platform/Clock.h"

#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

namespace skylet {

/// Settings of a session, fixed when it is made.
struct SessionConfiguration {
    /// How long one exchange may take from its start to its answer.
    Seconds timeoutIntervalForRequest{60.0};
    /// How long the whole transfer may take, name look-up and TLS handshake included. The smaller of the two rules.
    Seconds timeoutIntervalForResource{7.0 * 24 * 3600};
};

/// The head of an HTTP answer.
struct TransferResponse {
    int statusCode = 0;
    /// The address that answered, as text; absent when the transport does not know it.
    std::optional<QString> url;
};

/// Why there is no answer. The text is for developers, not for users.
struct TransferError {
    QString description;
};

/// A transfer under way.
class TransferTask {
  public:
    virtual ~TransferTask() = default;
    /// Ends the transfer for its caller, who then gets a TransferError. Harmless when repeated and after the end.
    virtual void cancel() = 0;
};

/// Sends HTTP requests over connections of its own. It keeps nothing but connections: no cookies, no cache, no
/// credentials; it follows no redirect, speaks https alone, and fails at once when there is no route.
class TransferSession {
  public:
    using Completion = std::function<void(std::optional<TransferResponse>, std::optional<TransferError>)>;

    virtual ~TransferSession() = default;
    /// Starts a HEAD request. `completion` is called exactly once, on the main thread from the event loop, never from
    /// inside this call or from inside `cancel`, and no later than the session's limit. A body is never read. Dropping
    /// the handle does not end the transfer.
    virtual std::shared_ptr<TransferTask> head(const QUrl& url, Completion completion) = 0;
    /// The answer from `url`'s host was not what it should be: the next request there goes over a new connection.
    virtual void distrust(const QUrl& url) = 0;
    /// Ends every transfer (each still completes, with an error) and closes every connection.
    virtual void invalidateAndCancel() = 0;
};

/// Makes a session with the given settings.
using TransferSessionFactory = std::function<std::unique_ptr<TransferSession>(const SessionConfiguration&)>;

} // namespace skylet
