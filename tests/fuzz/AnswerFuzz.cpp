#include "connectivity/HTTPConnectivityProbe.h"
#include "fuzz/Fuzz.h"

#include <QRegularExpression>

namespace skylet::test {
namespace {

/// Host, port and path as they stand there. Empty where the address is not plain.
QString plainPlace(const QString& address) {
    static const QRegularExpression plain(
        QStringLiteral("^https://(?:[^/?#@]*@)?([a-z0-9.:-]*/?[a-z0-9_/]*)(?:[?#].*)?$"),
        QRegularExpression::DotMatchesEverythingOption);
    return plain.match(address).captured(1);
}

/// A line each: the status, the address that answered (nothing: not known), the error (nothing: none).
void judgeAnswer(FuzzInput input) {
    const QUrl asked(QStringLiteral("https://one.example/generate_204"));
    TransferResponse response;
    response.statusCode = input.line().toInt();
    const QString address = QString::fromUtf8(input.line());
    if (!address.isEmpty()) {
        response.url = address;
    }
    const QString description = QString::fromUtf8(input.rest());
    const auto error = description.isEmpty() ? std::nullopt : std::optional(TransferError{description});
    const bool accepted = HTTPConnectivityProbe::accepts(response, asked, error);
    if (accepted) {
        require(response.statusCode == 204 && response.url && !error, "only an answer of 204 without an error counts");
        require(address.startsWith(QStringLiteral("https:")), "only an answer over https counts");
        const QString place = plainPlace(address);
        require(place.isEmpty() || place == QStringLiteral("one.example/generate_204") ||
                    place == QStringLiteral("one.example:/generate_204"),
                "only an answer of the host, port and path that were asked counts");
    }
    require(!HTTPConnectivityProbe::accepts(std::nullopt, asked, error), "no answer does not count");
    if (address == asked.toString() && response.statusCode == 204 && !error) {
        require(accepted, "the answer that is wanted counts");
    }
}

const FuzzTarget answerTarget("answer", judgeAnswer);

} // namespace
} // namespace skylet::test
