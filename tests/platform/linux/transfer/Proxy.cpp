#include "Proxy.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>

namespace skylet::test {

namespace {

constexpr int beatMs = 20;

int loopbackSocket() {
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

void sendAll(int socket, std::string_view data) {
    while (!data.empty()) {
        const ssize_t size = ::send(socket, data.data(), data.size(), MSG_NOSIGNAL);
        if (size <= 0) {
            return;
        }
        data.remove_prefix(static_cast<std::size_t>(size));
    }
}

} // namespace

Proxy::Proxy(Manner manner) : listener_(loopbackSocket()) {
    auto address = loopback(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener_, 8), 0);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, manner] { run(manner); });
}

Proxy::~Proxy() {
    ended_ = true;
    thread_.join();
    ::close(listener_);
}

void Proxy::run(Manner manner) {
    while (!ended_) {
        pollfd waiting{.fd = listener_, .events = POLLIN, .revents = 0};
        if (::poll(&waiting, 1, beatMs) == 1) {
            const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            ++connections_;
            serve(client, manner);
            ::close(client);
        }
    }
}

void Proxy::serve(int client, Manner manner) {
    std::array<char, 4096> request{};
    ::recv(client, request.data(), request.size(), 0);
    if (manner == Manner::refusing) {
        sendAll(client, "HTTP/1.1 403 No\r\ncontent-length: 0\r\n\r\n");
        return;
    }
    if (manner == Manner::demandingWithoutEnd) {
        sendAll(client, "HTTP/1.1 407 No\r\ncontent-length: 999999999999\r\n\r\n");
        repeat(client, "x");
        return;
    }
    if (manner == Manner::talkingWithoutEnd) {
        sendAll(client, "HTTP/1.1 200 Connected\r\n");
        repeat(client, "x: y\r\n");
        return;
    }
    const int server = loopbackSocket();
    const auto address = loopback(443);
    if (::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        sendAll(client, "HTTP/1.1 200 Connected\r\nx-proxy: yes\r\n\r\n");
        carry(client, server);
    }
    ::close(server);
}

void Proxy::repeat(int client, std::string_view text) const {
    constexpr int times = 10'000;
    std::string piece;
    for (int i = 0; i < times; ++i) {
        piece += text;
    }
    while (!ended_) {
        pollfd end{.fd = client, .events = POLLOUT, .revents = 0};
        ::poll(&end, 1, beatMs);
        if ((end.revents & (POLLERR | POLLHUP)) != 0) {
            return;
        }
        ::send(client, piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
}

void Proxy::carry(int client, int server) const {
    std::array<pollfd, 2> ends{
        {{.fd = client, .events = POLLIN, .revents = 0}, {.fd = server, .events = POLLIN, .revents = 0}}};
    std::array<char, 65536> buffer{};
    while (!ended_) {
        ::poll(ends.data(), ends.size(), beatMs);
        for (std::size_t i = 0; i < ends.size(); ++i) {
            if (ends.at(i).revents != 0) {
                const ssize_t size = ::recv(ends.at(i).fd, buffer.data(), buffer.size(), 0);
                if (size <= 0) {
                    return;
                }
                sendAll(ends.at(1 - i).fd, {buffer.data(), static_cast<std::size_t>(size)});
            }
        }
    }
}

} // namespace skylet::test
