#include "Connection.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <limits>
#include <map>
#include <span>
#include <stdexcept>
#include <utility>

namespace skylet::test {

namespace {

constexpr int stepsAtOnce = 64;
/// How long a closed connection still reads, and how much.
constexpr auto lingering = std::chrono::seconds(1);
constexpr std::int64_t lingeringBytes = std::int64_t{256} * 1024;

/// Between two bytes that come one by one.
constexpr auto dripInterval = std::chrono::milliseconds(200);
/// An alert before there are any keys: fatal, handshake_failure (RFC 8446, 6).
const std::string handshakeFailure("\x15\x03\x03\0\x02\x02\x28", 7);
/// A record that no key has made.
const std::string wrongRecord = std::string("\x17\x03\x03\0\x20", 5) + std::string(32, 'x');

using AskTls = std::function<void(SSL*, std::size_t)>;

/// What TLS may say after its handshake, as often as it likes.
const std::map<std::string, AskTls>& floodsOfTls() {
    static const std::map<std::string, AskTls> floods{
        {"ticket", [](SSL* ssl, std::size_t /*size*/) { SSL_new_session_ticket(ssl); }},
        // with so many bytes of padding
        {"largeTicket",
         [](SSL* ssl, std::size_t size) {
             const std::string padding(size, 'x');
             SSL_SESSION_set1_ticket_appdata(SSL_get_session(ssl), padding.data(), padding.size());
             SSL_new_session_ticket(ssl);
         }},
        {"keyUpdate", [](SSL* ssl, std::size_t /*size*/) { SSL_key_update(ssl, SSL_KEY_UPDATE_NOT_REQUESTED); }},
        // TLS 1.2: the client has to shake hands anew
        {"renegotiation", [](SSL* ssl, std::size_t /*size*/) { SSL_renegotiate(ssl); }},
        // the client has to answer each with one of its own
        {"keyUpdateRequest", [](SSL* ssl, std::size_t /*size*/) { SSL_key_update(ssl, SSL_KEY_UPDATE_REQUESTED); }},
    };
    return floods;
}

bool isSettingsAcknowledgement(const std::string& frame) {
    return frame.starts_with(std::string("\0\0\0\x04\x01", 5));
}

std::int64_t acknowledgedBy(int socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size);
    return static_cast<std::int64_t>(info.tcpi_bytes_acked);
}

} // namespace

Connection::Connection(int socket, int number, SSL_CTX* context, Shared& shared)
    : socket_(socket), number_(number), shared_(shared), ssl_(SSL_new(context)) {
    const int on = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    SSL_set_fd(ssl_.get(), socket_);
    SSL_set_accept_state(ssl_.get());
    if (shared_.hostility.mutate != 0) {
        mutator_.emplace(shared_.hostility.mutate++);
        mutatesFrom_ = shared_.hostility.mutateFrom;
    }
    const bool dripsFirst = isDue(Stage::accept) && shared_.hostility.deed == Deed::drip;
    if (dripsFirst || isDue(Stage::handshake) || mutatesFrom_ == Stage::handshake) {
        spool_ = std::make_unique<Spool>(ssl_.get(), socket_);
    }
}

Connection::~Connection() {
    note();
    for (const auto& exchange : noted_) {
        exchange->over();
    }
    ::close(socket_);
}

Connection::State Connection::drive() {
    if (lingersUntil_) {
        return drain();
    }
    if (!protocol_ && isDue(Stage::accept)) {
        turnHostile();
    }
    for (int i = 0; i < stepsAtOnce; ++i) {
        const Step read = protocol_ ? readSome() : shakeHands();
        const Step written = read == Step::failed ? Step::failed : writeSome();
        if (written == Step::failed) {
            return State::gone;
        }
        if (read == Step::blocked && written == Step::blocked) {
            return State::waiting;
        }
    }
    return State::busy;
}

std::uint32_t Connection::interest() const {
    const auto read = !protocol_ || lingersUntil_ || mayRead() ? EPOLLIN : 0U;
    return (isStalled() ? EPOLLRDHUP : read) | (wantsWrite_ ? EPOLLOUT : 0U);
}

Connection::Step Connection::shakeHands() {
    if (isHostile() && !isDripping()) {
        return Step::blocked;
    }
    const Step step = outcome(SSL_do_handshake(ssl_.get()));
    if (spool_ && mutatesFrom_ == Stage::handshake) {
        spool_->change(*mutator_);
    }
    if (spool_ && isDue(Stage::handshake) && secondHalf_.empty()) {
        secondHalf_ = spool_->takeSecondHalf();
    }
    if (step == Step::done) {
        const unsigned char* name = nullptr;
        unsigned size = 0;
        SSL_get0_alpn_selected(ssl_.get(), &name, &size);
        protocolName_ = size == 2 ? "h2" : "http/1.1";
        protocol_ = size == 2 ? makeHttp2(*this, shared_.hostility.window) : makeHttp1(*this);
    }
    return step;
}

bool Connection::mayRead() const {
    return readAllowance() > 0;
}

std::int64_t Connection::readAllowance() const {
    if (isHostile() && !isDripping() && !turned_->thenServe) {
        return isStalled() ? 0 : largestPiece;
    }
    return current_ && current_->isUpload() ? current_->allowance(Clock::now()) : largestPiece;
}

Connection::Step Connection::readSome() {
    std::array<std::uint8_t, largestPiece> buffer{};
    const auto allowed = std::min(readAllowance(), largestPiece);
    if (allowed == 0 || closing_ != Deed::none) {
        return Step::blocked;
    }
    const int size = SSL_read(ssl_.get(), buffer.data(), static_cast<int>(allowed));
    if (size > 0) {
        readUpTo_ = BIO_number_read(SSL_get_rbio(ssl_.get()));
    }
    const bool isHeard = !isHostile() || isDripping() || turned_->thenServe;
    if (size > 0 && isHeard) {
        protocol_->received(std::span(buffer).first(static_cast<std::size_t>(size)));
    }
    return outcome(size);
}

Connection::Step Connection::writeSome() {
    if (spool_) {
        return writeSpool();
    }
    if (outWritten_ == out_.size()) {
        out_.clear();
        outWritten_ = 0;
        produce();
    }
    return spool_ ? writeSpool() : writeOut();
}

Connection::Step Connection::writeOut() {
    if (out_.empty()) {
        wantsWrite_ = false;
        return closeIfDue();
    }
    const auto allowed = std::min(pace(), out_.size() - outWritten_);
    if (allowed == 0) {
        wantsWrite_ = false;
        return Step::blocked;
    }
    const int size = SSL_write(ssl_.get(), out_.data() + outWritten_, static_cast<int>(allowed));
    wantsWrite_ = size <= 0;
    if (size > 0) {
        nextByte_ = Clock::now() + dripInterval;
        outWritten_ += static_cast<std::size_t>(size);
        if (outWritten_ == out_.size()) {
            hasWritten_ = true;
            const auto position = wire_ + static_cast<std::int64_t>(BIO_number_written(SSL_get_wbio(ssl_.get())));
            for (const auto& exchange : noted_) {
                exchange->written(position);
            }
        }
    }
    return outcome(size);
}

Connection::Step Connection::writeSpool() {
    if (spool_->isEmpty()) {
        fillSpool();
    }
    if (!spool_ || spool_->isEmpty()) {
        wantsWrite_ = false;
        return closeIfDue();
    }
    const auto allowed = pace();
    const auto size = allowed > 0 ? spool_->send(allowed) : 0;
    const bool isBlocked = size < 0 && errno == EAGAIN;
    wantsWrite_ = isBlocked;
    if (size > 0) {
        nextByte_ = Clock::now() + dripInterval;
        wire_ += size;
        shared_.flooded += isHostile() && !turned_->flood.empty() ? size : 0;
        return Step::done;
    }
    return size == 0 || isBlocked ? Step::blocked : Step::failed;
}

Connection::Step Connection::closeIfDue() {
    if (closing_ == Deed::none) {
        return Step::blocked;
    }
    close(closing_);
    return lingersUntil_ ? Step::blocked : Step::failed;
}

void Connection::produce() {
    if (!protocol_) {
        return;
    }
    if (isHostile()) {
        if (isDripping()) {
            protocol_->produce(out_);
        }
        return;
    }
    if (!secondHalf_.empty()) {
        turnHostile();
        out_ = isDripping() ? std::exchange(secondHalf_, {}) : out_;
    } else if (isGreetingDue() || isRequestDue()) {
        turnHostile();
    } else {
        produceAsServer();
    }
}

bool Connection::isGreetingDue() const {
    const bool isAfterOurs = hasSaidHello() && isDue(Stage::settings);
    return !hasServed_ && (isAfterOurs || (!hasWritten_ && isDue(Stage::open)));
}

void Connection::produceAsServer() {
    hasServed_ = hasSaidHello();
    do {
        out_.clear();
        protocol_->produce(out_);
    } while (!shared_.hostility.acknowledge && isSettingsAcknowledgement(out_));
    if (mutatesFrom_ == Stage::open || (mutatesFrom_ == Stage::request && hasBeenAsked_)) {
        mutator_->change(out_);
    }
    if (const auto head = protocol_->headSize(out_); head > 0 && isDue(Stage::head)) {
        const auto middle = head / 2;
        secondHalf_ = out_.substr(middle);
        out_.resize(middle);
    }
    const bool isInBody = isDue(Stage::body) && current_ && current_->isHeld();
    const bool isIdle = isDue(Stage::answer) && answers_ > 0 && !current_;
    if (out_.empty() && (isInBody || isIdle)) {
        turnHostile();
    }
}

bool Connection::isRequestDue() const {
    return isDue(Stage::request) && hasSaidHello() && current_ &&
           (!current_->isUpload() || current_->moved() >= shared_.hostility.bytes);
}

void Connection::turnHostile() {
    turned_ = shared_.hostility;
    if (!turned_->flood.empty()) {
        startFlood();
    } else if (turned_->deed == Deed::garbage && protocol_) {
        out_ = garbage;
        closing_ = Deed::close;
    } else if (turned_->deed != Deed::stall && turned_->deed != Deed::drip) {
        closing_ = turned_->deed;
    }
}

void Connection::startFlood() {
    handshakesLeft_ = turned_->count;
    if (!floodsOfTls().contains(turned_->flood)) {
        FloodPlace place;
        place.isHttp2 = protocolName_ == "h2";
        place.isAnswering = current_ && current_->isHeadSent();
        if (current_) {
            place.open = place.isHttp2 ? current_->stream() : 1;
        }
        place.closed = lastStream_;
        try {
            flood_ = std::make_unique<Flood>(*turned_, place);
        } catch (const std::invalid_argument& error) {
            std::cerr << "speed_server: " << protocolName_ << ": " << error.what() << std::endl;
            closing_ = Deed::close;
            return;
        }
    }
    wire_ += static_cast<std::int64_t>(BIO_number_written(SSL_get_wbio(ssl_.get())));
    spool_ = std::make_unique<Spool>(ssl_.get(), socket_);
}

void Connection::fillSpool() {
    if (!turned_) {
        // the first half of the handshake has been sent
        if (!secondHalf_.empty()) {
            turnHostile();
            spool_->add(isDripping() ? std::exchange(secondHalf_, {}) : std::string());
        }
        return;
    }
    if (flood_) {
        fillWithFlood();
    } else if (!turned_->flood.empty()) {
        fillWithHandshakes(floodsOfTls().at(turned_->flood));
    } else if (protocol_) {
        // a handshake that came byte by byte goes on like that
        std::string out;
        protocol_->produce(out);
        SSL_write(ssl_.get(), out.data(), static_cast<int>(out.size()));
    }
    if (spool_->isEmpty() && turned_->thenServe) {
        isHostilityOver_ = true;
        flood_.reset();
        spool_.reset();
    }
}

void Connection::fillWithFlood() {
    std::string out;
    flood_->produce(out);
    for (std::size_t begin = 0; begin < out.size(); begin += turned_->record) {
        const auto size = std::min(turned_->record, out.size() - begin);
        SSL_write(ssl_.get(), out.data() + begin, static_cast<int>(size));
    }
}

void Connection::fillWithHandshakes(const std::function<void(SSL*, std::size_t)>& ask) {
    for (int i = 0; i < stepsAtOnce && handshakesLeft_ != 0; ++i, --handshakesLeft_) {
        ask(ssl_.get(), turned_->size);
        SSL_do_handshake(ssl_.get());
    }
}

std::size_t Connection::pace() const {
    if (!isDripping()) {
        return std::numeric_limits<int>::max();
    }
    return Clock::now() >= nextByte_ ? 1 : 0;
}

Connection::Step Connection::outcome(int result) {
    if (result > 0) {
        return Step::done;
    }
    const int error = SSL_get_error(ssl_.get(), result);
    return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE ? Step::blocked : Step::failed;
}

void Connection::note() {
    const auto acknowledged = acknowledgedBy(socket_);
    const auto incomplete = static_cast<std::int64_t>(BIO_number_read(SSL_get_rbio(ssl_.get())) - readUpTo_);
    for (const auto& exchange : noted_) {
        exchange->note(acknowledged, incomplete);
    }
    std::erase_if(noted_, [](const auto& exchange) { return exchange->isSettled(); });
}

void Connection::close(Deed how) {
    if (how == Deed::reset) {
        const linger atOnce{.l_onoff = 1, .l_linger = 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        return;
    }
    if (how == Deed::alert) {
        sendAlert();
    } else if (how == Deed::noise || (how == Deed::garbage && !protocol_)) {
        ::send(socket_, garbage.data(), garbage.size(), MSG_NOSIGNAL);
    } else if (how != Deed::fin && protocol_) {
        SSL_shutdown(ssl_.get());
    }
    ::shutdown(socket_, SHUT_WR);
    lingersUntil_ = Clock::now() + lingering;
}

void Connection::sendAlert() {
    if (!protocol_) {
        ::send(socket_, handshakeFailure.data(), handshakeFailure.size(), MSG_NOSIGNAL);
        return;
    }
    // OpenSSL sends one when it has been sent something wrong itself
    SSL_set0_rbio(ssl_.get(), BIO_new_mem_buf(wrongRecord.data(), static_cast<int>(wrongRecord.size())));
    char byte = 0;
    SSL_read(ssl_.get(), &byte, 1);
}

Connection::State Connection::drain() {
    std::array<std::uint8_t, largestPiece> buffer{};
    ssize_t size = 0;
    while (dropped_ < lingeringBytes && (size = ::recv(socket_, buffer.data(), buffer.size(), 0)) > 0) {
        dropped_ += size;
    }
    const bool mayCome = dropped_ < lingeringBytes && size < 0 && errno == EAGAIN && Clock::now() < *lingersUntil_;
    return mayCome ? State::waiting : State::gone;
}

std::shared_ptr<Exchange> Connection::begin(const std::string& method, const std::string& path,
                                            std::vector<std::pair<std::string, std::string>> headers) {
    hasBeenAsked_ = true;
    Record record;
    record.connection = number_;
    record.protocol = protocolName_;
    record.method = method;
    record.path = path;
    record.headers = std::move(headers);
    record.began = Clock::now();
    record.isResumed = SSL_session_reused(ssl_.get()) == 1;
    shared_.records.push_back(std::move(record));
    const auto& behaviour = method == "POST" ? shared_.up : method == "HEAD" ? shared_.head : shared_.down;
    current_ = std::make_shared<Exchange>(behaviour, shared_.records.back());
    noted_.push_back(current_);
    if (isDue(Stage::body)) {
        current_->holdAt(shared_.hostility.bytes);
    }
    return current_;
}

void Connection::end(const std::shared_ptr<Exchange>& exchange) {
    exchange->over();
    ++answers_;
    lastStream_ = exchange->stream();
    if (current_ == exchange) {
        current_.reset();
    }
}

} // namespace skylet::test
