#include "support/Namespaces.h"

#include <QFile>

#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace skylet::test {

namespace {

/// In a user namespace of its own the process is root and may make the other kinds.
bool becomeRootOfOwn() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    return unshare(CLONE_NEWUSER) == 0 && writeToFile(QStringLiteral("/proc/self/setgroups"), "deny") &&
           writeToFile(QStringLiteral("/proc/self/uid_map"), "0 " + QByteArray::number(user) + " 1") &&
           writeToFile(QStringLiteral("/proc/self/gid_map"), "0 " + QByteArray::number(group) + " 1");
}

} // namespace

std::optional<QString> enterNamespaces(int kinds) {
    if (unshare(kinds) == 0 || (errno == EPERM && becomeRootOfOwn() && unshare(kinds) == 0)) {
        return {};
    }
    return QStringLiteral("no namespaces can be made: ") + QString::fromLocal8Bit(std::strerror(errno));
}

bool writeToFile(const QString& path, const QByteArray& text) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::ExistingOnly) && file.write(text) == text.size() && file.flush();
}

} // namespace skylet::test
