#pragma once

#include "Protocol.h"

#include <openssl/ssl.h>

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace skylet::test {

/// What the server is told to do, and what it has to tell.
struct Shared {
    Behaviour down;
    Behaviour up;
    std::list<Record> records;
};

/// A client's connection: TLS over a socket that never blocks, and the protocol the client chose.
class Connection final : public Host {
  public:
    /// Takes the socket over.
    Connection(int socket, int number, SSL_CTX* context, Shared& shared);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    Connection(Connection&&) = delete;
    Connection& operator=(Connection&&) = delete;

    enum class State : std::uint8_t {
        /// Nothing can be done before the socket or the time says so.
        waiting,
        /// There is more to do at once.
        busy,
        gone,
    };
    /// Does what can be done now, but not for long.
    State drive();
    /// What to wait for: EPOLLIN, EPOLLOUT.
    std::uint32_t interest() const;
    /// Notes how far each request has got.
    void note();
    /// Only `reset` is at once; otherwise the client gets a moment to read what has been sent.
    void close(Deed how);

    std::shared_ptr<Exchange> begin(const std::string& method, const std::string& path,
                                    std::vector<std::pair<std::string, std::string>> headers) override;
    void end(const std::shared_ptr<Exchange>& exchange) override;
    void closeLater(Deed how) override { closing_ = how; }

  private:
    enum class Step : std::uint8_t { done, blocked, failed };

    struct FreeSsl {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    Step shakeHands();
    /// Reads and drops what still comes, since to close without would be a reset.
    State drain();
    Step readSome();
    Step writeSome();
    Step outcome(int result);
    bool mayRead() const;
    std::int64_t readAllowance() const;

    const int socket_;
    const int number_;
    Shared& shared_;
    const std::unique_ptr<SSL, FreeSsl> ssl_;
    std::unique_ptr<Protocol> protocol_;
    std::string protocolName_;
    std::string out_;
    std::size_t outWritten_ = 0;
    bool wantsWrite_ = false;
    Deed closing_ = Deed::none;
    /// Until then it lingers.
    std::optional<Time> lingersUntil_;
    std::int64_t dropped_ = 0;
    /// The request that is being served.
    std::shared_ptr<Exchange> current_;
    /// Those whose progress is still to be noted.
    std::vector<std::shared_ptr<Exchange>> noted_;
};

} // namespace skylet::test
