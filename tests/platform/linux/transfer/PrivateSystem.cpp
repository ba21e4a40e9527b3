#include "PrivateSystem.h"

#include <QFile>

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

bool writeFile(const char* path, const QByteArray& text) {
    QFile file(QString::fromUtf8(path));
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush();
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
    const auto user = ::geteuid();
    const auto group = ::getegid();
    const int alone = user == 0 ? 0 : CLONE_NEWUSER;
    if (::unshare(alone | CLONE_NEWNET | CLONE_NEWNS) != 0) {
        return reason("unshare");
    }
    if (alone != 0) {
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/uid_map", "0 " + QByteArray::number(user) + " 1");
        writeFile("/proc/self/gid_map", "0 " + QByteArray::number(group) + " 1");
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
