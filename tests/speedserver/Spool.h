#pragma once

#include "Mutator.h"

#include <openssl/ssl.h>

#include <cstddef>
#include <string>

namespace skylet::test {

/// Collects what TLS would write to its socket, while it lives, so that it can be sent in larger or smaller pieces.
class Spool {
  public:
    /// `socket`: what TLS writes to again afterwards.
    Spool(SSL* ssl, int socket);
    ~Spool();
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;
    Spool(Spool&&) = delete;
    Spool& operator=(Spool&&) = delete;

    bool isEmpty();
    std::size_t size();
    /// Keeps what there is now as it is, up to its half; the other half is taken out.
    std::string takeSecondHalf();
    void add(const std::string& bytes);
    /// Changes what is still to be sent.
    void change(Mutator& mutator);
    /// Sends no more than `most` bytes; the result is send's.
    ssize_t send(std::size_t most);

  private:
    void collect();

    SSL* const ssl_;
    const int socket_;
    /// Belongs to `ssl_`.
    BIO* const memory_;
    std::string pending_;
    std::size_t sent_ = 0;
};

} // namespace skylet::test
