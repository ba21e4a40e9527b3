#include "Behaviour.h"

#include <QJsonArray>

#include <functional>
#include <map>
#include <stdexcept>

namespace skylet::test {

Deed deedNamed(const std::string& name) {
    static const std::map<std::string, Deed> deeds{
        {"none", Deed::none},   {"stall", Deed::stall},     {"close", Deed::close},   {"reset", Deed::reset},
        {"flood", Deed::flood}, {"garbage", Deed::garbage}, {"cancel", Deed::cancel}, {"pings", Deed::pings},
        {"fin", Deed::fin},     {"alert", Deed::alert},     {"noise", Deed::noise},   {"drip", Deed::drip}};
    return deeds.at(name);
}

namespace {

Deed deedOfRequest(const std::string& name) {
    const Deed deed = deedNamed(name);
    if (deed == Deed::drip) {
        throw std::invalid_argument("not of a request: " + name);
    }
    return deed;
}

std::vector<RawFrame> framesOf(const QJsonArray& rows) {
    std::vector<RawFrame> frames;
    for (const auto& row : rows) {
        const auto fields = row.toArray();
        frames.push_back(
            {static_cast<std::uint8_t>(fields.at(0).toInt()), static_cast<std::uint8_t>(fields.at(1).toInt()),
             QByteArray::fromHex(fields.at(2).toString().toLatin1()).toStdString(), fields.at(3).toBool(true)});
    }
    return frames;
}

} // namespace

void setFields(const QJsonObject& fields, const FieldSetters& setters) {
    for (const auto& name : fields.keys()) {
        const auto setter = setters.find(name);
        if (setter == setters.end()) {
            throw std::invalid_argument("no such field: " + name.toStdString());
        }
        setter->second(fields.value(name));
    }
}

Behaviour Behaviour::from(const QJsonObject& fields) {
    Behaviour result;
    const FieldSetters setters{
        {QStringLiteral("status"), [&](const auto& value) { result.status = value.toInt(); }},
        {QStringLiteral("headers"),
         [&](const auto& value) {
             for (const auto& pair : value.toArray()) {
                 const auto header = pair.toArray();
                 result.headers.emplace_back(header.at(0).toString().toStdString(),
                                             header.at(1).toString().toStdString());
             }
         }},
        {QStringLiteral("interim"), [&](const auto& value) { result.interim = value.toInt(); }},
        {QStringLiteral("length"), [&](const auto& value) { result.length = value.toInteger(); }},
        {QStringLiteral("rate"), [&](const auto& value) { result.rate = value.toDouble(); }},
        {QStringLiteral("at"), [&](const auto& value) { result.at = value.toInteger(); }},
        {QStringLiteral("deed"),
         [&](const auto& value) { result.deed = deedOfRequest(value.toString().toStdString()); }},
        {QStringLiteral("answerAt"), [&](const auto& value) { result.answerAt = value.toInteger(); }},
        {QStringLiteral("afterwards"), [&](const auto& value) { result.afterwards = value.toString().toStdString(); }},
        {QStringLiteral("raw"), [&](const auto& value) { result.raw = value.toString().toLatin1().toStdString(); }},
        {QStringLiteral("frames"), [&](const auto& value) { result.frames = framesOf(value.toArray()); }},
        {QStringLiteral("then"),
         [&](const auto& value) { result.then = deedOfRequest(value.toString().toStdString()); }},
    };
    setFields(fields, setters);
    return result;
}

} // namespace skylet::test
