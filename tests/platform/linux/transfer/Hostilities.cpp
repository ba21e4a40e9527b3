#include "Hostilities.h"

namespace skylet::test {

namespace {

std::string capitalized(std::string text) {
    text.front() = static_cast<char>(text.front() - 'a' + 'A');
    return text;
}

std::string nameOf(const char* protocol, const std::string& stage, const std::string& what) {
    return capitalized(what) + "At" + capitalized(stage) + (std::string(protocol) == "h2" ? "InHttp2" : "InHttp1");
}

} // namespace

bool Hostile::isBeforeRequests() const {
    const auto when = stage();
    return when == QStringLiteral("accept") || when == QStringLiteral("handshake") || when == QStringLiteral("open") ||
           when == QStringLiteral("settings") || when.isEmpty();
}

void PrintTo(const Hostile& hostile, std::ostream* out) {
    *out << hostile.name;
}

std::vector<Hostile> deeds(const char* protocol, const std::vector<const char*>& stages,
                           const std::vector<const char*>& deeds) {
    std::vector<Hostile> all;
    for (const auto* stage : stages) {
        for (const auto* deed : deeds) {
            const std::string when = stage;
            // of HTTP/1.1, what is no HTTP in the midst of a field is the field's value
            const bool isValue = when == "head" && std::string(deed) == "garbage" && std::string(protocol) != "h2";
            const bool mayAnswer = when == "body" || when == "answer" || isValue;
            all.push_back({nameOf(protocol, stage, deed),
                           protocol,
                           {{QStringLiteral("stage"), QString::fromUtf8(stage)},
                            {QStringLiteral("deed"), QString::fromUtf8(deed)}},
                           mayAnswer ? Hostile::Answer::possible : Hostile::Answer::never});
        }
    }
    return all;
}

std::vector<Hostile> floods(const char* protocol, const char* stage, const std::vector<const char*>& kinds,
                            Hostile::Answer answer, const char* tls) {
    std::vector<Hostile> all;
    all.reserve(kinds.size());
    for (const auto* kind : kinds) {
        all.push_back(
            {nameOf(protocol, stage, kind),
             protocol,
             {{QStringLiteral("stage"), QString::fromUtf8(stage)}, {QStringLiteral("flood"), QString::fromUtf8(kind)}},
             answer,
             tls});
    }
    return all;
}

} // namespace skylet::test
