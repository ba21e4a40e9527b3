#pragma once

#include "platform/Clock.h"
#include "platform/transfer/TransferSession.h"

#include <QByteArray>
#include <QUrl>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace skylet {

/// Tells the transfers of one session apart. Grows with each transfer, never used twice.
using TaskIdentifier = std::int64_t;

/// A large transfer under way.
class BulkTransferTask : public Cancellation {
  public:
    virtual TaskIdentifier taskIdentifier() const = 0;
};

/// What to do with an answer whose head has just come.
enum class ResponseDisposition { allow, cancel };

/// How a transfer ended.
struct BulkTransferResult {
    enum class End {
        /// The answer came in whole.
        finished,
        /// Cut off by `cancel`, or by a disposition.
        cancelled,
        /// No connection, a time-out, a connection lost.
        failed,
    };
    End end = End::failed;
    /// The HTTP status of the answer so far; absent when no answer, or none over HTTP, has come.
    std::optional<int> statusCode;
};

/// Follows the transfers of a session. Called on the main thread from the event loop, never from inside an operation of
/// the session or of a task. It may start and cancel transfers from inside these calls.
class BulkTransferDelegate {
  public:
    virtual ~BulkTransferDelegate() = default;
    /// The final head of the answer has come (a redirect's too: none is followed).
    /// `statusCode`: absent when the answer is not HTTP.
    virtual ResponseDisposition responseReceived(TaskIdentifier task, std::optional<int> statusCode) = 0;
    /// `count` more bytes of the answer's body have arrived; they are thrown away. A slow link may bring the first of
    /// them before the head can be read. The count is an estimate within some hundred bytes until the answer has come
    /// in whole.
    virtual void dataReceived(TaskIdentifier task, std::int64_t count) = 0;
    /// The network has taken `count` more bytes of the request's body: the other end has acknowledged them.
    virtual void bodySent(TaskIdentifier task, std::int64_t count) = 0;
    /// Exactly once for each task, after all else about it.
    virtual void completed(TaskIdentifier task, const BulkTransferResult& result) = 0;
};

/// Moves large bodies over https, over connections of its own that nothing else uses. It caches nothing, keeps no
/// cookies and no credentials, and follows no redirect.
class BulkTransferSession {
  public:
    virtual ~BulkTransferSession() = default;
    /// Starts a GET. Dropping the handle does not end the transfer.
    virtual std::shared_ptr<BulkTransferTask> download(const QUrl& url) = 0;
    /// Starts a POST of `size` zero bytes. `timeoutInterval` takes the place of the session's limit for one request.
    virtual std::shared_ptr<BulkTransferTask> upload(const QUrl& url, const QByteArray& contentType, std::int64_t size,
                                                     Seconds timeoutInterval) = 0;
};

/// Makes a session that reports to `delegate`, which outlives it. Destroying the session ends all transfers without a
/// further report.
using BulkTransferSessionFactory =
    std::function<std::unique_ptr<BulkTransferSession>(const SessionConfiguration&, BulkTransferDelegate& delegate)>;

} // namespace skylet
