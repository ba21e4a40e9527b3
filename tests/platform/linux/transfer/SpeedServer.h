#pragma once

#include "PrivateSystem.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

#include <memory>

namespace skylet::test {

/// A real speed-test service (tests/speedserver) at 127.0.0.1 and ::1, whose certificate this process trusts while it
/// lives. Wants a PrivateSystem.
class SpeedServer {
  public:
    SpeedServer();
    /// Another one with the same certificate, at 127.0.0.2; must not outlive the first.
    static std::unique_ptr<SpeedServer> beside(const SpeedServer& first);
    ~SpeedServer();
    SpeedServer(const SpeedServer&) = delete;
    SpeedServer& operator=(const SpeedServer&) = delete;
    SpeedServer(SpeedServer&&) = delete;
    SpeedServer& operator=(SpeedServer&&) = delete;

    /// Answers HEAD with 204.
    QUrl endpoint() const { return QUrl(QStringLiteral("https://%1/generate_204").arg(address_)); }
    static QUrl down(std::int64_t bytes);
    static QUrl up() { return QUrl(QStringLiteral("https://127.0.0.1/__up")); }

    /// The commands of the server. Each waits for its answer.
    void set(const QString& way, const QJsonObject& behaviour);
    /// Where and how connections turn hostile from now on, open ones too (tests/speedserver/Hostility.h); empty: no
    /// more of them do.
    void turnHostile(const QJsonObject& hostility);
    void speak(const QString& protocol);
    /// On new connections no version above this: "1.2" or "1.3".
    void speakTls(const QString& version);
    /// Of new connections: a bad one (tests/speedserver/Certificate.h), or "good", after which no version is set
    /// either.
    void showCertificate(const QString& kind);
    void wantClientCertificate();
    void acceptSilently();
    /// Of the connections from now on (SO_RCVBUF).
    void limitReceiveBuffers(int bytes);
    void drop(const QString& how);
    /// Of all requests so far.
    QJsonArray requests();
    int connections();
    /// Bytes of floods that it has sent.
    std::int64_t flooded();

  private:
    SpeedServer(QString address, QString certificate);
    void start();

    QByteArray ask(const QJsonArray& command);
    QJsonObject records();

    QTemporaryDir folder_;
    const QString address_;
    /// The file with certificate and key.
    const QString certificate_;
    std::unique_ptr<Replacement> trust_;
    QProcess process_;
};

} // namespace skylet::test
