#pragma once

#include <QUrl>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace skylet::test {

/// A loopback socket that is bound, so that its port is known, and never answers.
class SilentSocket {
  public:
    explicit SilentSocket(int type, std::uint16_t port = 0) : handle_(::socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        EXPECT_EQ(::bind(handle_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t size = sizeof address;
        ::getsockname(handle_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
    }
    ~SilentSocket() { ::close(handle_); }
    SilentSocket(const SilentSocket&) = delete;
    SilentSocket& operator=(const SilentSocket&) = delete;
    SilentSocket(SilentSocket&&) = delete;
    SilentSocket& operator=(SilentSocket&&) = delete;

    void listen() const { ASSERT_EQ(::listen(handle_, 16), 0); }
    /// The kernel accepts connections to it, nobody speaks on them.
    QUrl url() const { return QUrl(QStringLiteral("https://127.0.0.1:%1/generate_204").arg(port_)); }

  private:
    int handle_;
    std::uint16_t port_ = 0;
};

} // namespace skylet::test
