#pragma once

#include <unistd.h>

namespace skylet::test {

/// Acts as an ordinary user while it lives: as nobody when the test runs as root, otherwise as whoever runs it.
class UnprivilegedUser {
  public:
    UnprivilegedUser() : wasRoot_(geteuid() == 0), isReady_(!wasRoot_ || seteuid(nobody) == 0) {}
    ~UnprivilegedUser() {
        if (wasRoot_ && isReady_ && seteuid(0) != 0) {
            _exit(1);
        }
    }
    UnprivilegedUser(const UnprivilegedUser&) = delete;
    UnprivilegedUser& operator=(const UnprivilegedUser&) = delete;
    UnprivilegedUser(UnprivilegedUser&&) = delete;
    UnprivilegedUser& operator=(UnprivilegedUser&&) = delete;

    bool isReady() const { return isReady_; }

    static constexpr uid_t nobody = 65534;

  private:
    const bool wasRoot_;
    const bool isReady_;
};

} // namespace skylet::test
