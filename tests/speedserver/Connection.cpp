#include "Connection.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <utility>

namespace skylet::test {

namespace {

constexpr int stepsAtOnce = 64;
/// How long a closed connection still reads, and how much.
constexpr auto lingering = std::chrono::seconds(1);
constexpr std::int64_t lingeringBytes = std::int64_t{256} * 1024;

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
    if (!protocol_) {
        const Step step = shakeHands();
        if (step != Step::done) {
            return step == Step::failed ? State::gone : State::waiting;
        }
    }
    for (int i = 0; i < stepsAtOnce; ++i) {
        const Step read = readSome();
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
    return read | (wantsWrite_ ? EPOLLOUT : 0U);
}

Connection::Step Connection::shakeHands() {
    const Step step = outcome(SSL_do_handshake(ssl_.get()));
    if (step == Step::done) {
        const unsigned char* name = nullptr;
        unsigned size = 0;
        SSL_get0_alpn_selected(ssl_.get(), &name, &size);
        protocolName_ = size == 2 ? "h2" : "http/1.1";
        protocol_ = size == 2 ? makeHttp2(*this) : makeHttp1(*this);
    }
    return step;
}

bool Connection::mayRead() const {
    return readAllowance() > 0;
}

std::int64_t Connection::readAllowance() const {
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
        protocol_->received(std::span(buffer).first(static_cast<std::size_t>(size)));
    }
    return outcome(size);
}

Connection::Step Connection::writeSome() {
    if (outWritten_ == out_.size()) {
        out_.clear();
        outWritten_ = 0;
        protocol_->produce(out_);
    }
    if (out_.empty()) {
        wantsWrite_ = false;
        if (closing_ != Deed::none) {
            close(closing_);
            return lingersUntil_ ? Step::blocked : Step::failed;
        }
        return Step::blocked;
    }
    const int size = SSL_write(ssl_.get(), out_.data() + outWritten_, static_cast<int>(out_.size() - outWritten_));
    wantsWrite_ = size <= 0;
    if (size > 0) {
        outWritten_ += static_cast<std::size_t>(size);
        if (outWritten_ == out_.size()) {
            const auto position = static_cast<std::int64_t>(BIO_number_written(SSL_get_wbio(ssl_.get())));
            for (const auto& exchange : noted_) {
                exchange->written(position);
            }
        }
    }
    return outcome(size);
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
    for (const auto& exchange : noted_) {
        exchange->note(acknowledged);
    }
    std::erase_if(noted_, [](const auto& exchange) { return exchange->isSettled(); });
}

void Connection::close(Deed how) {
    if (how == Deed::reset) {
        const linger atOnce{.l_onoff = 1, .l_linger = 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    } else {
        SSL_shutdown(ssl_.get());
        ::shutdown(socket_, SHUT_WR);
        lingersUntil_ = Clock::now() + lingering;
    }
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
    Record record;
    record.connection = number_;
    record.protocol = protocolName_;
    record.method = method;
    record.path = path;
    record.headers = std::move(headers);
    record.began = Clock::now();
    shared_.records.push_back(std::move(record));
    current_ = std::make_shared<Exchange>(method == "POST" ? shared_.up : shared_.down, shared_.records.back());
    noted_.push_back(current_);
    return current_;
}

void Connection::end(const std::shared_ptr<Exchange>& exchange) {
    exchange->over();
    if (current_ == exchange) {
        current_.reset();
    }
}

} // namespace skylet::test
