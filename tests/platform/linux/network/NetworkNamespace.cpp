#include "NetworkNamespace.h"

#include "support/ChildProcess.h"
#include "support/Namespaces.h"

#include <QProcess>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace skylet::test {

namespace {

QProcess& finish(QProcess& process) {
    process.waitForFinished();
    return process;
}

} // namespace

std::unique_ptr<NetworkNamespace> NetworkNamespace::enter(QString& reason) {
    FileDescriptor outside(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    if (const auto refusal = enterNamespaces(CLONE_NEWNET)) {
        reason = *refusal;
        return nullptr;
    }
    std::unique_ptr<NetworkNamespace> result(new NetworkNamespace(std::move(outside)));
    if (!result->ip("link show lo")) {
        reason = QStringLiteral("ip(8) does not run here");
        return nullptr;
    }
    return result;
}

NetworkNamespace::~NetworkNamespace() {
    setns(outside_.get(), CLONE_NEWNET);
}

bool NetworkNamespace::ip(const char* command) const {
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(QStringLiteral("ip"), QString::fromUtf8(command).split(u' '));
    return finish(process).exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

void NetworkNamespace::batch(const QByteArray& commands) const {
    QProcess process;
    process.start(QStringLiteral("ip"), {QStringLiteral("-force"), QStringLiteral("-batch"), QStringLiteral("-")});
    process.write(commands);
    process.closeWriteChannel();
    finish(process);
}

void NetworkNamespace::addUplink(const char* name, int number) const {
    const QByteArray here(name);
    const QByteArray far = here + "-far";
    const QByteArray net = QByteArray::number(number);
    batch("link add " + here + " type veth peer name " + far + "\nlink set " + here + " addrgenmode none\nlink set " +
          far + " addrgenmode none\nlink set " + here + " up\nlink set " + far + " up\n" + "addr add 10." + net +
          ".0.1/24 dev " + here + "\naddr add fd00:" + net + "::1/64 dev " + here + " nodad\n");
}

void NetworkNamespace::addManyLinks(int count) const {
    QByteArray commands;
    for (int i = 0; i < count; ++i) {
        commands += "link add many" + QByteArray::number(i) + " type bridge\n";
    }
    batch(commands);
}

void NetworkNamespace::disableIPv6() const {
    for (const char* links : {"all", "default"}) {
        writeToFile(QStringLiteral("/proc/sys/net/ipv6/conf/%1/disable_ipv6").arg(QString::fromUtf8(links)), "1");
    }
}

LinkChurn::LinkChurn() {
    constexpr int moreThanAnyTestTakes = 200'000;
    if (!commands_.open()) {
        return;
    }
    commands_.write(QByteArray("link add churn type bridge\nlink del churn\n").repeated(moreThanAnyTestTakes));
    commands_.flush();
    endWithThisProcess(process_);
    process_.start(QStringLiteral("ip"), {QStringLiteral("-force"), QStringLiteral("-batch"), commands_.fileName()});
    process_.waitForStarted();
}

LinkChurn::~LinkChurn() {
    process_.kill();
    process_.waitForFinished();
}

KernelLockContention::KernelLockContention() {
    endWithThisProcess(process_);
    process_.start(QStringLiteral("sh"),
                   {QStringLiteral("-c"), QStringLiteral("batch=$(for i in $(seq 20); do"
                                                         " echo link add crowd$i group 7 type bridge; done)\n"
                                                         "while :; do echo \"$batch\" | ip -batch -;"
                                                         " ip link del group 7; sleep 0.02; done")});
    process_.waitForStarted();
}

KernelLockContention::~KernelLockContention() {
    process_.kill();
    process_.waitForFinished();
}

} // namespace skylet::test
