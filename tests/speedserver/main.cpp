// speed_server CERTIFICATE ADDRESS[,ADDRESS...] PORT
//
// Of the addresses it takes those that the system has.
//
// Serves /__down?bytes=N (so many zeros) and /__up (reads a body and answers) over TLS by HTTP/2 or HTTP/1.1, and
// answers HEAD with 204, as fast as the client can take it or as badly as it is told to. CERTIFICATE: a PEM file with
// certificate and key. Prints "ready" and then obeys one JSON array a line on standard input, answering each with one
// line; ends when standard input ends.
//
//   ["set", "down"|"up"|"head", BEHAVIOUR]   how the next GET, POST or HEAD is met: an object with fields of Behaviour
//   ["hostile", HOSTILITY]            where and how connections turn hostile, open ones too: fields of Hostility
//   ["tls", "1.1"|"1.2"|"1.3"]        the highest version for the next connections
//   ["certificate", KIND, AUTHORITY, NAME]
//                                     a bad one for the next connections: see Certificate.h; "good": CERTIFICATE again
//   ["clientCertificate", BOOL]       whether the next connections have to show a certificate of their own
//   ["protocols", [NAME...]]          of "h2" and "http/1.1", for the next connections
//   ["accept", "serve"|"silent"]      whether anybody speaks on the next connections
//   ["receiveBuffer", BYTES]      SO_RCVBUF of the next connections, for good
//   ["drop", "close"|"reset"]         ends all connections
//   ["records"]                       {"connections": how many, "requests": [...]}; times in seconds (monotonic);
//                                     "flooded": bytes of floods

#include "Certificate.h"
#include "Connection.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <netdb.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace skylet::test {
namespace {

/// How often the progress of requests is noted, and slow ones go on.
constexpr int tickMs = 5;

double seconds(Time time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

QJsonObject json(const Record& record) {
    QJsonArray series;
    for (const auto& [time, bytes] : record.series) {
        series.append(QJsonArray{seconds(time), static_cast<qint64>(bytes)});
    }
    QJsonArray headers;
    for (const auto& [name, value] : record.headers) {
        headers.append(QJsonArray{QString::fromStdString(name), QString::fromStdString(value)});
    }
    return {{QStringLiteral("connection"), record.connection},
            {QStringLiteral("protocol"), QString::fromStdString(record.protocol)},
            {QStringLiteral("method"), QString::fromStdString(record.method)},
            {QStringLiteral("path"), QString::fromStdString(record.path)},
            {QStringLiteral("headers"), headers},
            {QStringLiteral("began"), seconds(record.began)},
            {QStringLiteral("over"), record.isOver},
            {QStringLiteral("whole"), record.isWhole},
            {QStringLiteral("allZero"), record.isAllZero},
            {QStringLiteral("resumed"), record.isResumed},
            {QStringLiteral("series"), series}};
}

class Server {
  public:
    Server(const char* certificate, const char* addresses, const char* port)
        : certificate_(certificate), poll_(epoll_create1(EPOLL_CLOEXEC)), listeners_(listenAtAll(addresses, port)) {
        resetTls();
        watch(EPOLL_CTL_ADD, STDIN_FILENO, EPOLLIN);
        for (const int listener : listeners_) {
            watch(EPOLL_CTL_ADD, listener, EPOLLIN);
        }
    }

    void run() {
        while (!ended_) {
            std::array<epoll_event, 16> events{};
            const int timeout = connections_.empty() ? -1 : tickMs;
            const int count = epoll_wait(poll_, events.data(), events.size(), busy_ ? 0 : timeout);
            for (int i = 0; i < count; ++i) {
                const int source = events.at(static_cast<std::size_t>(i)).data.fd;
                if (source == STDIN_FILENO) {
                    readCommands();
                } else if (std::find(listeners_.begin(), listeners_.end(), source) != listeners_.end()) {
                    accept(source);
                } else {
                    leaveIfGone(source, events.at(static_cast<std::size_t>(i)).events);
                }
            }
            driveAll();
        }
    }

  private:
    struct Client {
        std::unique_ptr<Connection> connection;
        std::uint32_t interest = EPOLLIN;
    };

    /// Nothing of what was set is left, and no earlier session can be continued.
    void resetTls() {
        context_.reset(SSL_CTX_new(TLS_server_method()));
        if (SSL_CTX_use_certificate_chain_file(context_.get(), certificate_) != 1 ||
            SSL_CTX_use_PrivateKey_file(context_.get(), certificate_, SSL_FILETYPE_PEM) != 1) {
            throw std::runtime_error(std::string("no certificate in ") + certificate_);
        }
        SSL_CTX_set_mode(context_.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
        SSL_CTX_set_alpn_select_cb(context_.get(), &Server::chooseProtocol, this);
    }

    void limitTls(const QString& version) {
        const auto number = version == QStringLiteral("1.1")   ? TLS1_1_VERSION
                            : version == QStringLiteral("1.2") ? TLS1_2_VERSION
                                                               : TLS1_3_VERSION;
        if (number == TLS1_1_VERSION) {
            // OpenSSL 3 speaks it at no higher level
            SSL_CTX_set_security_level(context_.get(), 0);
            SSL_CTX_set_min_proto_version(context_.get(), TLS1_1_VERSION);
        }
        SSL_CTX_set_max_proto_version(context_.get(), number);
    }

    /// Of either family, as numbers. Negative: this system does not have that family, or that address.
    static int listenAt(const std::string& address, const char* port) {
        addrinfo hints{};
        hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (const int error = ::getaddrinfo(address.c_str(), port, &hints, &found); error != 0) {
            throw std::invalid_argument(address + ": " + gai_strerror(error));
        }
        const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> place(found, &::freeaddrinfo);
        const int listener = ::socket(place->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        const int on = 1;
        ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (listener < 0 || ::bind(listener, place->ai_addr, place->ai_addrlen) != 0 || ::listen(listener, 64) != 0) {
            if (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL) {
                return -1;
            }
            throw std::system_error(errno, std::generic_category(), address);
        }
        return listener;
    }

    static std::vector<int> listenAtAll(const char* addresses, const char* port) {
        std::vector<int> listeners;
        std::istringstream list(addresses);
        for (std::string address; std::getline(list, address, ',');) {
            listeners.push_back(listenAt(address, port));
        }
        std::erase(listeners, -1);
        if (listeners.empty()) {
            throw std::invalid_argument(std::string("none of these addresses can be had: ") + addresses);
        }
        return listeners;
    }

    /// A connection inherits it, and the window that it can open.
    void limitReceiveBuffers(int bytes) const {
        for (const int listener : listeners_) {
            ::setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
        }
    }

    static int chooseProtocol(SSL* /*ssl*/, const unsigned char** chosen, unsigned char* chosenSize,
                              const unsigned char* offered, unsigned offeredSize, void* self) {
        const auto& protocols = static_cast<const Server*>(self)->protocols_;
        const int result = SSL_select_next_proto(const_cast<unsigned char**>(chosen), chosenSize,
                                                 reinterpret_cast<const unsigned char*>(protocols.data()),
                                                 static_cast<unsigned>(protocols.size()), offered, offeredSize);
        return result == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
    }

    void watch(int operation, int fd, std::uint32_t interest) const {
        epoll_event event{};
        event.events = interest;
        event.data.fd = fd;
        epoll_ctl(poll_, operation, fd, &event);
    }

    void accept(int listener) {
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (client < 0) {
            return;
        }
        const int number = connectionCount_++;
        if (silent_) {
            return; // never closed: that is the point
        }
        connections_[client] = {std::make_unique<Connection>(client, number, context_.get(), shared_), EPOLLIN};
        watch(EPOLL_CTL_ADD, client, EPOLLIN);
    }

    void leaveIfGone(int client, std::uint32_t events) {
        const auto place = connections_.find(client);
        const bool isGone = (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
        if (isGone && place != connections_.end() && place->second.connection->isStalled()) {
            connections_.erase(place);
        }
    }

    /// All of them: there are few, and slow ones go on by the time alone.
    void driveAll() {
        busy_ = false;
        const bool tick = Clock::now() >= nextNote_;
        for (auto client = connections_.begin(); client != connections_.end();) {
            auto& [fd, entry] = *client;
            const auto state = entry.connection->drive();
            if (state == Connection::State::gone) {
                client = connections_.erase(client);
                continue;
            }
            busy_ = busy_ || state == Connection::State::busy;
            if (tick) {
                entry.connection->note();
            }
            if (const auto interest = entry.connection->interest(); interest != entry.interest) {
                entry.interest = interest;
                watch(EPOLL_CTL_MOD, fd, interest);
            }
            ++client;
        }
        if (tick) {
            nextNote_ = Clock::now() + std::chrono::milliseconds(tickMs);
        }
    }

    void readCommands() {
        std::array<char, 4096> buffer{};
        const ssize_t size = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (size <= 0) {
            ended_ = true;
            return;
        }
        input_.append(buffer.data(), static_cast<std::size_t>(size));
        for (auto end = input_.find('\n'); end != std::string::npos; end = input_.find('\n')) {
            const auto line = QByteArray::fromStdString(input_.substr(0, end));
            input_.erase(0, end + 1);
            try {
                std::cout << obey(QJsonDocument::fromJson(line).array()) << std::endl;
            } catch (const std::exception& error) {
                std::cout << "error: " << error.what() << std::endl;
            }
        }
    }

    std::string obey(const QJsonArray& command) {
        const auto verb = command.at(0).toString();
        const auto argument = command.at(1).toString();
        if (verb == QStringLiteral("records")) {
            return records();
        }
        if (verb == QStringLiteral("set")) {
            behaviourOf(argument) = Behaviour::from(command.at(2).toObject());
        } else if (verb == QStringLiteral("hostile")) {
            shared_.hostility = Hostility::from(command.at(1).toObject());
        } else if (verb == QStringLiteral("tls")) {
            limitTls(argument);
        } else if (verb == QStringLiteral("certificate")) {
            resetTls();
            if (argument != QStringLiteral("good")) {
                useBadCertificate(context_.get(), argument.toStdString(), command.at(2).toString().toStdString(),
                                  command.at(3).toString().toStdString());
            }
        } else if (verb == QStringLiteral("clientCertificate")) {
            const bool isWanted = command.at(1).toBool();
            SSL_CTX_set_verify(context_.get(), isWanted ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0,
                               nullptr);
        } else if (verb == QStringLiteral("protocols")) {
            protocols_.clear();
            for (const auto& name : command.at(1).toArray()) {
                const auto text = name.toString().toStdString();
                protocols_ += static_cast<char>(text.size()) + text;
            }
        } else if (verb == QStringLiteral("accept")) {
            silent_ = argument == QStringLiteral("silent");
        } else if (verb == QStringLiteral("receiveBuffer")) {
            limitReceiveBuffers(command.at(1).toInt());
        } else if (verb == QStringLiteral("drop")) {
            drop(argument == QStringLiteral("reset") ? Deed::reset : Deed::close);
        } else {
            throw std::invalid_argument("no such command: " + verb.toStdString());
        }
        return "ok";
    }

    Behaviour& behaviourOf(const QString& way) {
        if (way == QStringLiteral("up")) {
            return shared_.up;
        }
        return way == QStringLiteral("head") ? shared_.head : shared_.down;
    }

    void drop(Deed how) {
        for (const auto& [fd, client] : connections_) {
            client.connection->close(how);
        }
        if (how == Deed::reset) {
            connections_.clear();
        }
    }

    std::string records() {
        for (const auto& [fd, client] : connections_) {
            client.connection->note();
        }
        QJsonArray requests;
        for (const auto& record : shared_.records) {
            requests.append(json(record));
        }
        const QJsonObject all{{QStringLiteral("connections"), connectionCount_},
                              {QStringLiteral("flooded"), static_cast<qint64>(shared_.flooded)},
                              {QStringLiteral("requests"), requests}};
        return QJsonDocument(all).toJson(QJsonDocument::Compact).toStdString();
    }

    struct FreeContext {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };

    const char* certificate_;
    std::unique_ptr<SSL_CTX, FreeContext> context_;
    int poll_;
    std::vector<int> listeners_;
    std::string protocols_ = "\x02h2\x08http/1.1";
    Shared shared_;
    std::map<int, Client> connections_;
    int connectionCount_ = 0;
    bool silent_ = false;
    bool busy_ = false;
    bool ended_ = false;
    Time nextNote_;
    std::string input_;
};

} // namespace
} // namespace skylet::test

int main(int argc, char** argv) {
    try {
        if (argc != 4) {
            throw std::invalid_argument("usage: speed_server CERTIFICATE ADDRESS PORT");
        }
        std::signal(SIGPIPE, SIG_IGN);
        skylet::test::Server server(argv[1], argv[2], argv[3]);
        std::cout << "ready" << std::endl;
        server.run();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "speed_server: " << error.what() << '\n';
        return 1;
    }
}
