#pragma once

#include "Flood.h"
#include "Hostility.h"
#include "Mutator.h"
#include "Protocol.h"
#include "Spool.h"

#include <openssl/ssl.h>

#include <functional>
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
    Behaviour head;
    Hostility hostility;
    /// Bytes of floods that the kernel has taken, TLS included.
    std::int64_t flooded = 0;
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
    /// What to wait for: EPOLLIN, EPOLLOUT, EPOLLRDHUP.
    std::uint32_t interest() const;
    /// It does nothing any more, and would not notice that its client has gone.
    bool isStalled() const { return isHostile() && turned_->flood.empty() && turned_->deed == Deed::stall; }
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
    Step writeSpool();
    Step writeOut();
    Step closeIfDue();
    /// What is to be written next, into `out_`.
    void produce();
    void produceAsServer();

    /// Whether the server's first frames have been written, without which HTTP/2 is none.
    bool hasSaidHello() const { return protocolName_ != "h2" || hasWritten_; }
    bool isHostile() const { return turned_ && !isHostilityOver_; }
    bool isDripping() const { return isHostile() && turned_->flood.empty() && turned_->deed == Deed::drip; }
    /// Whether this is where the connection turns hostile. None does so twice.
    bool isDue(Stage stage) const { return !turned_ && shared_.hostility.stage == stage; }
    bool isGreetingDue() const;
    bool isRequestDue() const;
    void turnHostile();
    void startFlood();
    void fillSpool();
    void fillWithFlood();
    void fillWithHandshakes(const std::function<void(SSL*, std::size_t)>& ask);
    /// How many bytes may be written now.
    std::size_t pace() const;
    void sendAlert();
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
    /// Position in what has come up to which it could be read.
    std::uint64_t readUpTo_ = 0;
    Deed closing_ = Deed::none;
    /// Until then it lingers.
    std::optional<Time> lingersUntil_;
    std::int64_t dropped_ = 0;
    bool hasWritten_ = false;
    /// It is past its greeting.
    bool hasServed_ = false;
    bool hasBeenAsked_ = false;
    int answers_ = 0;
    std::int32_t lastStream_ = 0;

    /// Absent: all is sent as it should be.
    std::optional<Mutator> mutator_;
    Stage mutatesFrom_ = Stage::never;
    std::optional<Hostility> turned_;
    bool isHostilityOver_ = false;
    std::unique_ptr<Flood> flood_;
    std::unique_ptr<Spool> spool_;
    /// What has gone to the socket past the one that TLS writes to now.
    std::int64_t wire_ = 0;
    /// What comes after the half that has been sent.
    std::string secondHalf_;
    Time nextByte_;
    std::int64_t handshakesLeft_ = 0;
    /// The request that is being served.
    std::shared_ptr<Exchange> current_;
    /// Those whose progress is still to be noted.
    std::vector<std::shared_ptr<Exchange>> noted_;
};

} // namespace skylet::test
