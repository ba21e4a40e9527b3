#include "connectivity/HTTPConnectivityProbe.h"
#include "fuzz/Fuzz.h"

namespace skylet::test {
namespace {

/// Where a plain address leads: host and port as they stand there, in small letters. Empty where it is not plain.
QString plainAuthority(const QString& address) {
    const QString authority = address.mid(8).section(u'/', 0, 0).section(u'?', 0, 0).section(u'#', 0, 0);
    const bool isPlain = std::all_of(authority.begin(), authority.end(), [](QChar character) {
        return character.unicode() < 0x80 &&
               (character.isLetterOrNumber() || QStringLiteral(".-:").contains(character));
    });
    return isPlain && address.startsWith(QStringLiteral("https://")) ? authority.toLower() : QString();
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
        const QString authority = plainAuthority(address);
        require(authority.isEmpty() || authority == QStringLiteral("one.example") ||
                    authority == QStringLiteral("one.example:"),
                "only an answer of the host that was asked counts");
    }
    require(!HTTPConnectivityProbe::accepts(std::nullopt, asked, error), "no answer does not count");
    if (address == asked.toString() && response.statusCode == 204 && !error) {
        require(accepted, "the answer that is wanted counts");
    }
}

const FuzzTarget answerTarget("answer", judgeAnswer);

} // namespace
} // namespace skylet::test
