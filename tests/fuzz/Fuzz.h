#pragma once

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace skylet::test {

/// The bytes of one run, taken from the front. When they are used up, numbers are 0 and texts are empty.
class FuzzInput {
  public:
    explicit FuzzInput(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool isEmpty() const { return bytes_.empty(); }

    template <typename Number>
    Number number() {
        Number value{};
        const auto size = std::min(sizeof value, bytes_.size());
        std::copy_n(bytes_.data(), size, reinterpret_cast<std::uint8_t*>(&value));
        bytes_ = bytes_.subspan(size);
        return value;
    }

    std::uint8_t byte() { return number<std::uint8_t>(); }
    bool flag() { return (byte() & 1U) != 0; }

    /// Up to the next line feed, which is taken too.
    QByteArray line() {
        const auto end = std::find(bytes_.begin(), bytes_.end(), std::uint8_t{'\n'});
        const auto text = take(static_cast<std::size_t>(end - bytes_.begin()));
        take(1);
        return text;
    }

    QByteArray rest() { return take(bytes_.size()); }

  private:
    QByteArray take(std::size_t count) {
        const auto taken = bytes_.first(std::min(count, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return {reinterpret_cast<const char*>(taken.data()), static_cast<qsizetype>(taken.size())};
    }

    std::span<const std::uint8_t> bytes_;
};

/// Something that reads what others have written, and what has to hold whatever that is. Made once for each kind,
/// before main.
class FuzzTarget {
  public:
    using Run = void (*)(FuzzInput input);

    FuzzTarget(const char* name, Run run) { all()[name] = run; }
    /// Exits where there is none of that name.
    static Run find(const std::string& name);

  private:
    static std::map<std::string, Run>& all();
};

/// Ends the program unless `holds`.
void require(bool holds, const char* what);

/// Ends the program with success, because what the target needs is not on this machine.
[[noreturn]] void skip(const char* reason);

} // namespace skylet::test
