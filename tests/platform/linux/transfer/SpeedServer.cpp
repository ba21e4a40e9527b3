#include "SpeedServer.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <csignal>
#include <utility>

namespace skylet::test {

namespace {

const auto firstAddress = QStringLiteral("127.0.0.1");
constexpr int timeoutMs = 20'000;
const auto certificateName = QStringLiteral("certificate.pem");

QByteArray openssl(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral("openssl"), arguments);
    EXPECT_TRUE(process.waitForFinished(timeoutMs) && process.exitCode() == 0)
        << process.readAllStandardError().toStdString();
    return process.readAllStandardOutput().trimmed();
}

void append(const QString& from, const QString& to) {
    QFile source(from);
    QFile target(to);
    ASSERT_TRUE(source.open(QIODevice::ReadOnly) && target.open(QIODevice::Append));
    target.write(source.readAll());
}

} // namespace

SpeedServer::SpeedServer() : address_(firstAddress), certificate_(folder_.filePath(certificateName)) {
    const auto key = folder_.filePath(QStringLiteral("key.pem"));
    openssl({QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("ec"),
             QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:P-256"), QStringLiteral("-nodes"),
             QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=speed test"),
             QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1,IP:127.0.0.2,IP:::1"),
             QStringLiteral("-keyout"), key, QStringLiteral("-out"), certificate_});
    const auto hash = openssl({QStringLiteral("x509"), QStringLiteral("-noout"), QStringLiteral("-subject_hash"),
                               QStringLiteral("-in"), certificate_});
    QDir(folder_.path()).mkdir(QStringLiteral("trusted"));
    QFile::copy(certificate_, folder_.filePath(QStringLiteral("trusted/%1.0").arg(QString::fromUtf8(hash))));
    trust_ =
        std::make_unique<Replacement>(QStringLiteral("/etc/ssl/certs"), folder_.filePath(QStringLiteral("trusted")));
    EXPECT_TRUE(trust_->isInPlace());
    append(key, certificate_);
    start();
}

SpeedServer::SpeedServer(QString address, QString certificate)
    : address_(std::move(address)), certificate_(std::move(certificate)) {
    start();
}

std::unique_ptr<SpeedServer> SpeedServer::beside(const SpeedServer& first) {
    return std::unique_ptr<SpeedServer>(new SpeedServer(QStringLiteral("127.0.0.2"), first.certificate_));
}

void SpeedServer::start() {
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    const auto addresses = address_ == firstAddress ? firstAddress + QStringLiteral(",::1") : address_;
    process_.start(QStringLiteral(SKYLET_SPEED_SERVER), {certificate_, addresses, QStringLiteral("443")});
    EXPECT_TRUE(process_.waitForReadyRead(timeoutMs));
    EXPECT_EQ(process_.readLine(), "ready\n");
}

SpeedServer::~SpeedServer() {
    process_.closeWriteChannel();
    process_.waitForFinished(timeoutMs);
}

QUrl SpeedServer::down(std::int64_t bytes) {
    return QUrl(QStringLiteral("https://127.0.0.1/__down?bytes=%1").arg(bytes));
}

void SpeedServer::set(const QString& way, const QJsonObject& behaviour) {
    EXPECT_EQ(ask({QStringLiteral("set"), way, behaviour}), "ok");
}

void SpeedServer::turnHostile(const QJsonObject& hostility) {
    EXPECT_EQ(ask({QStringLiteral("hostile"), hostility}), "ok");
}

void SpeedServer::speak(const QString& protocol) {
    EXPECT_EQ(ask({QStringLiteral("protocols"), QJsonArray{protocol}}), "ok");
}

void SpeedServer::speakTls(const QString& version) {
    EXPECT_EQ(ask({QStringLiteral("tls"), version}), "ok");
}

void SpeedServer::showCertificate(const QString& kind) {
    EXPECT_EQ(ask({QStringLiteral("certificate"), kind, certificate_, QStringLiteral("IP:") + address_}), "ok");
}

void SpeedServer::wantClientCertificate() {
    EXPECT_EQ(ask({QStringLiteral("clientCertificate"), true}), "ok");
}

void SpeedServer::acceptSilently() {
    EXPECT_EQ(ask({QStringLiteral("accept"), QStringLiteral("silent")}), "ok");
}

void SpeedServer::limitReceiveBuffers(int bytes) {
    EXPECT_EQ(ask({QStringLiteral("receiveBuffer"), bytes}), "ok");
}

void SpeedServer::drop(const QString& how) {
    EXPECT_EQ(ask({QStringLiteral("drop"), how}), "ok");
}

QJsonArray SpeedServer::requests() {
    return records().value(QStringLiteral("requests")).toArray();
}

int SpeedServer::connections() {
    return records().value(QStringLiteral("connections")).toInt();
}

std::int64_t SpeedServer::flooded() {
    return records().value(QStringLiteral("flooded")).toInteger();
}

QJsonObject SpeedServer::records() {
    return QJsonDocument::fromJson(ask({QStringLiteral("records")})).object();
}

QByteArray SpeedServer::ask(const QJsonArray& command) {
    process_.write(QJsonDocument(command).toJson(QJsonDocument::Compact) + '\n');
    while (!process_.canReadLine()) {
        if (!process_.waitForReadyRead(timeoutMs)) {
            ADD_FAILURE() << "the server does not answer";
            return {};
        }
    }
    return process_.readLine().trimmed();
}

} // namespace skylet::test
