#include "PrivateSystem.h"

#include "support/Namespaces.h"

#include <linux/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace skylet::test {

namespace {

QString reason(const char* what) {
    return QStringLiteral("%1: %2").arg(QString::fromUtf8(what), QString::fromUtf8(std::strerror(errno)));
}

std::optional<QString> bringLoopbackUp() {
    const int handle = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    request.ifr_flags = IFF_UP;
    const bool up = ::ioctl(handle, SIOCSIFFLAGS, &request) == 0;
    auto failure = up ? std::nullopt : std::optional(reason("loopback"));
    ::close(handle);
    return failure;
}

} // namespace

std::optional<QString> PrivateSystem::enter() {
    static bool entered = false;
    if (entered) {
        return {};
    }
    if (auto refusal = enterNamespaces(CLONE_NEWNET | CLONE_NEWNS)) {
        return refusal;
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return reason("mount");
    }
    entered = true;
    return bringLoopbackUp();
}

Replacement::Replacement(const QString& path, const QString& file)
    : path_(path.toUtf8()),
      inPlace_(::mount(file.toUtf8().constData(), path_.constData(), nullptr, MS_BIND, nullptr) == 0) {}

Replacement::~Replacement() {
    if (inPlace_) {
        ::umount2(path_.constData(), MNT_DETACH);
    }
}

} // namespace skylet::test
