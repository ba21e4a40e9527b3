#include "Spool.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace skylet::test {

Spool::Spool(SSL* ssl, int socket) : ssl_(ssl), socket_(socket), memory_(BIO_new(BIO_s_mem())) {
    SSL_set0_wbio(ssl_, memory_);
}

Spool::~Spool() {
    SSL_set0_wbio(ssl_, BIO_new_socket(socket_, BIO_NOCLOSE));
}

bool Spool::isEmpty() {
    return size() == 0;
}

std::size_t Spool::size() {
    collect();
    return pending_.size() - sent_;
}

std::string Spool::takeSecondHalf() {
    const auto middle = sent_ + size() / 2;
    auto half = pending_.substr(middle);
    pending_.resize(middle);
    return half;
}

void Spool::add(const std::string& bytes) {
    pending_ += bytes;
}

void Spool::change(Mutator& mutator) {
    if (!isEmpty()) {
        pending_.erase(0, std::exchange(sent_, 0));
        mutator.change(pending_);
    }
}

ssize_t Spool::send(std::size_t most) {
    const auto sent = ::send(socket_, pending_.data() + sent_, std::min(most, size()), MSG_NOSIGNAL);
    sent_ += sent > 0 ? static_cast<std::size_t>(sent) : 0;
    if (sent_ == pending_.size()) {
        pending_.clear();
        sent_ = 0;
    }
    return sent;
}

void Spool::collect() {
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory_, &data);
    if (size > 0) {
        pending_.append(data, static_cast<std::size_t>(size));
        BIO_reset(memory_);
    }
}

} // namespace skylet::test
