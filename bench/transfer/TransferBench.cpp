// transfer_bench down|up URL [BYTES]
//
// Moves one body over the program's transfer session: gets URL, or posts BYTES zeros there. Prints the bytes moved, the
// seconds it took and the most memory it occupied (KB).

#include "platform/linux/system/SystemClock.h"
#include "platform/linux/transfer/CurlBulkTransferSession.h"

#include <QCoreApplication>
#include <QFile>

#include <chrono>
#include <iostream>
#include <string>

namespace {

using namespace skylet;

class Counter final : public BulkTransferDelegate {
  public:
    ResponseDisposition responseReceived(TaskIdentifier /*task*/, std::optional<int> /*statusCode*/) override {
        return ResponseDisposition::allow;
    }
    void dataReceived(TaskIdentifier /*task*/, std::int64_t count) override { bytes += count; }
    void bodySent(TaskIdentifier /*task*/, std::int64_t count) override { bytes += count; }
    void completed(TaskIdentifier /*task*/, const BulkTransferResult& result) override {
        QCoreApplication::exit(result.end == BulkTransferResult::End::finished ? 0 : 1);
    }

    std::int64_t bytes = 0;
};

/// Of this program alone: getrusage would count what ran in this process before it.
qint64 peakKb() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const auto text = status.readAll();
    return text.mid(text.indexOf("VmHWM:")).simplified().split(' ').at(1).toLongLong();
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    if (argc < 3) {
        std::cerr << "usage: transfer_bench down|up URL [BYTES]\n";
        return 2;
    }
    Counter counter;
    const Seconds limit(600);
    const auto epoch = std::make_shared<NetworkEpoch>();
    const auto names = std::make_shared<NameResolver>(std::make_shared<SystemClock>(), epoch);
    CurlBulkTransferSession session({limit, limit}, epoch, names, counter, {});
    const QUrl url(QString::fromUtf8(argv[2]));
    const auto start = std::chrono::steady_clock::now();
    if (argc > 3) {
        session.upload(url, "application/octet-stream", std::stoll(argv[3]), limit);
    } else {
        session.download(url);
    }
    const int code = QCoreApplication::exec();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::cout << counter.bytes << ' ' << taken.count() << ' ' << peakKb() << '\n';
    return code;
}
