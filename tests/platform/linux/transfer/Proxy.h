#pragma once

#include <QByteArray>

#include <atomic>
#include <cstdint>
#include <string_view>
#include <thread>

namespace skylet::test {

/// An HTTP proxy on a loopback port that leads every CONNECT to 127.0.0.1:443, or refuses it, in a thread of its own.
class Proxy {
  public:
    enum class Manner : std::uint8_t {
        obliging,
        refusing,
        /// It wants credentials and says so in an answer whose body has no end.
        demandingWithoutEnd,
        /// Its answer's head has no end.
        talkingWithoutEnd,
    };

    explicit Proxy(Manner manner = Manner::obliging);
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
    Proxy(Proxy&&) = delete;
    Proxy& operator=(Proxy&&) = delete;

    QByteArray url() const { return "http://127.0.0.1:" + QByteArray::number(port_); }
    int connections() const { return connections_; }

  private:
    void run(Manner manner);
    /// Returns when either end has closed, or the proxy is to go.
    void serve(int client, Manner manner);
    void carry(int client, int server) const;
    /// Until the client has gone, or the proxy is to go.
    void repeat(int client, std::string_view text) const;

    int listener_;
    std::uint16_t port_ = 0;
    std::atomic<int> connections_ = 0;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

} // namespace skylet::test
