#pragma once

#include "platform/linux/transfer/HeadRequest.h"
#include "platform/linux/transfer/curl/CurlMulti.h"

#include <chrono>
#include <functional>
#include <list>
#include <memory>

namespace skylet {

/// The connections to one host, and the requests on them. A request ends for its caller at the limit or when cancelled;
/// on the wire it may go on in the background, so that an answer or a handshake that is under way still warms the
/// connection for the next request. It judges whether its connections may be used again, and leaves it to the session
/// to act on that.
class ConnectionPool {
  public:
    /// `names` and `share` (TLS sessions to resume) outlive the pool. HTTP/2 is spoken where the server speaks it,
    /// unless `isHttp1Only`. `onSettled` is called from the event loop after a request has ended or the pool has become
    /// unusable, possibly after the pool has gone; it may destroy the pool.
    ConnectionPool(NameResolver& names, CURLSH* share, bool isHttp1Only, std::function<void()> onSettled);
    ~ConnectionPool();

    std::shared_ptr<Cancellation> head(HeadRequest::Settings settings, TransferSession::Completion completion);

    /// False once a request has failed here: a connection is used again only while all went well on it.
    bool isUsable() const { return isUsable_; }
    /// All went well, but the newest answer is one that its asker does not accept.
    bool isRejected() const { return isRejected_; }
    void markUnusable();
    /// A proxy was asked for a connection and has not made it within a request's limit. It is waited for all the same,
    /// for `proxyLimit`: whoever gave up each time would never get one. The next request should not wait for it.
    bool isBehindSlowProxy() const { return isBehindSlowProxy_; }
    /// An answer came over the newest connection.
    bool hasAnswered() const { return hasAnswered_; }
    /// The peer has ended the connection since. libcurl may take one of HTTP/2 for one that still works.
    bool isClosedByPeer() const;
    /// When the newest connection was begun.
    CurlTransfer::SteadyClock::time_point newestConnection() const { return newestConnection_; }
    /// The next pool for this host should not speak HTTP/2. It forbids answers that HTTP/1.1 gets along with, a body
    /// after the head of a 204 among them (RFC 9113, 8.1.1).
    bool needsHttp1() const { return isHttp1Only_; }
    /// No further request comes: drops what runs in the background.
    void retire();
    /// Ends every request for its caller.
    void cancelAll();
    /// Nothing runs any more.
    bool isIdle() const { return requests_.empty(); }

    // For HeadRequest:

    void connectionOpens();
    void ended(HeadRequest& request, CURLcode result);
    void limitReached(HeadRequest& request);

  private:
    /// Longer than proxies take to find out that a target does not answer (TCP gives up after some 20 s).
    static constexpr std::chrono::seconds proxyLimit{25};

    Q_DISABLE_COPY_MOVE(ConnectionPool)

    void remove(const HeadRequest& request);
    void failed(HeadRequest& request);
    /// Whether a new connection is on its way to its first answer. On a link with a round trip of a second or more none
    /// can answer within the limit; dropped each time, it never would.
    bool isConnecting() const;
    /// Not guarded by a Lifetime: the pool may go in the call.
    void settle() { QTimer::singleShot(0, onSettled_); }

    CURLSH* share_;
    bool isHttp1Only_;
    const std::function<void()> onSettled_;
    bool isUsable_ = true;
    bool isRejected_ = false;
    bool isBehindSlowProxy_ = false;
    bool isRetired_ = false;
    bool hasAnswered_ = false;
    CurlTransfer::SteadyClock::time_point newestConnection_ = CurlTransfer::SteadyClock::now();
    CurlMulti multi_;
    std::list<std::shared_ptr<HeadRequest>> requests_;
};

} // namespace skylet
