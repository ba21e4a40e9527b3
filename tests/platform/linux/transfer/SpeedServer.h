#pragma once

#include "PrivateSystem.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

#include <memory>

namespace skylet::test {

/// A real speed-test service (tests/speedserver) at 127.0.0.1 and ::1, whose certificate this process trusts while it lives.
/// Wants a PrivateSystem.
class SpeedServer {
  public:
    SpeedServer();
    ~SpeedServer();
    SpeedServer(const SpeedServer&) = delete;
    SpeedServer& operator=(const SpeedServer&) = delete;
    SpeedServer(SpeedServer&&) = delete;
    SpeedServer& operator=(SpeedServer&&) = delete;

    static QUrl down(std::int64_t bytes);
    static QUrl up() { return QUrl(QStringLiteral("https://127.0.0.1/__up")); }

    /// The commands of the server. Each waits for its answer.
    void set(const QString& way, const QJsonObject& behaviour);
    /// Where and how connections turn hostile from now on, open ones too (tests/speedserver/Hostility.h); empty: no
    /// more of them do.
    void turnHostile(const QJsonObject& hostility);
    void speak(const QString& protocol);
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
    QByteArray ask(const QJsonArray& command);
    QJsonObject records();

    QTemporaryDir folder_;
    std::unique_ptr<Replacement> trust_;
    QProcess process_;
};

} // namespace skylet::test
