#pragma once

#include "SpeedServer.h"

#include <QJsonObject>
#include <QString>

#include <ostream>
#include <string>
#include <vector>

namespace skylet::test {

/// A way in which a server may treat its clients: fields of tests/speedserver/Hostility.h, and what may come of it.
struct Hostile {
    /// Distinct and of letters and digits alone, as names of tests are.
    std::string name;
    /// "h2" or "http/1.1".
    const char* protocol;
    QJsonObject hostility;
    /// Whether a request that meets it may have an answer all the same, or must.
    enum class Answer { never, possible, certain } answer = Answer::never;
    /// Its version of TLS.
    const char* tls = "1.3";

    bool isFlood() const { return hostility.contains(QStringLiteral("flood")); }
    bool isEndless() const { return isFlood() && !hostility.contains(QStringLiteral("count")); }
    QString stage() const { return hostility.value(QStringLiteral("stage")).toString(); }
    /// Only new connections meet it.
    bool isBeforeRequests() const;
};

void PrintTo(const Hostile& hostile, std::ostream* out);

/// Deeds at each stage of a connection.
std::vector<Hostile> deeds(const char* protocol, const std::vector<const char*>& stages,
                           const std::vector<const char*>& deeds);
/// Floods of these kinds that begin at a stage.
std::vector<Hostile> floods(const char* protocol, const char* stage, const std::vector<const char*>& kinds,
                            Hostile::Answer answer = Hostile::Answer::never, const char* tls = "1.3");

} // namespace skylet::test
