#include "Hostility.h"

#include <functional>
#include <map>
#include <stdexcept>

namespace skylet::test {

namespace {

Stage stageNamed(const std::string& name) {
    static const std::map<std::string, Stage> stages{
        {"never", Stage::never}, {"accept", Stage::accept},     {"handshake", Stage::handshake},
        {"open", Stage::open},   {"settings", Stage::settings}, {"request", Stage::request},
        {"head", Stage::head},   {"body", Stage::body},         {"answer", Stage::answer}};
    return stages.at(name);
}

Deed deedOfConnection(const std::string& name) {
    const Deed deed = deedNamed(name);
    if (deed == Deed::flood || deed == Deed::pings || deed == Deed::cancel) {
        throw std::invalid_argument("not of a connection: " + name);
    }
    return deed;
}

} // namespace

Hostility Hostility::from(const QJsonObject& fields) {
    Hostility result;
    const auto text = [](const QJsonValue& value) { return value.toString().toStdString(); };
    const FieldSetters setters{
        {QStringLiteral("stage"), [&](const auto& value) { result.stage = stageNamed(text(value)); }},
        {QStringLiteral("deed"), [&](const auto& value) { result.deed = deedOfConnection(text(value)); }},
        {QStringLiteral("flood"), [&](const auto& value) { result.flood = text(value); }},
        {QStringLiteral("count"), [&](const auto& value) { result.count = value.toInteger(); }},
        {QStringLiteral("thenServe"), [&](const auto& value) { result.thenServe = value.toBool(); }},
        {QStringLiteral("bytes"), [&](const auto& value) { result.bytes = value.toInteger(); }},
        {QStringLiteral("code"), [&](const auto& value) { result.code = static_cast<std::uint32_t>(value.toInt()); }},
        {QStringLiteral("size"), [&](const auto& value) { result.size = static_cast<std::size_t>(value.toInt()); }},
        {QStringLiteral("record"), [&](const auto& value) { result.record = static_cast<std::size_t>(value.toInt()); }},
        {QStringLiteral("acknowledge"), [&](const auto& value) { result.acknowledge = value.toBool(); }},
        {QStringLiteral("mutate"),
         [&](const auto& value) { result.mutate = static_cast<std::uint32_t>(value.toInteger()); }},
        {QStringLiteral("mutateFrom"), [&](const auto& value) { result.mutateFrom = stageNamed(text(value)); }},
        {QStringLiteral("window"), [&](const auto& value) { result.window = value.toInt(); }},
    };
    setFields(fields, setters);
    return result;
}

} // namespace skylet::test
