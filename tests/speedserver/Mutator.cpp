#include "Mutator.h"

#include <algorithm>
#include <array>

namespace skylet::test {

namespace {

/// What means something to HTTP or TLS wherever it stands.
const std::array<std::string, 16> tokens{"\r\n",
                                         "\n",
                                         "\r\n\r\n",
                                         std::string(1, '\0'),
                                         ":",
                                         " ",
                                         "204",
                                         "HTTP/1.1 204 No Content\r\n\r\n",
                                         "HTTP/1.1 100 Continue\r\n\r\n",
                                         "Content-Length: 18446744073709551615\r\n",
                                         "Transfer-Encoding: chunked\r\n",
                                         std::string("\0\0\0\x01\x04\0\0\0\x01", 9),
                                         std::string("\0\0\x08\x06\0\0\0\0\0pingping", 17),
                                         std::string("\0\0\x01\x01\x05\0\0\0\x01\x89", 10),
                                         std::string("\x15\x03\x03\0\x02\x02\x28", 7),
                                         std::string(300, 'x')};
constexpr std::size_t mostChanges = 4;
constexpr std::size_t longestNoise = 400;

} // namespace

void Mutator::change(std::string& bytes) {
    for (auto count = 1 + below(mostChanges); count > 0 && !bytes.empty(); --count) {
        changeOnce(bytes);
    }
}

void Mutator::changeOnce(std::string& bytes) {
    const auto at = below(bytes.size());
    const auto size = 1 + below(std::min<std::size_t>(bytes.size() - at, 16));
    switch (below(9)) {
    case 0:
        bytes[at] = static_cast<char>(static_cast<unsigned char>(bytes[at]) ^ (1U << below(8)));
        break;
    case 1:
        bytes[at] = static_cast<char>(below(256));
        break;
    case 2:
        bytes.insert(at, tokens.at(below(tokens.size())));
        break;
    case 3:
        bytes.erase(at, size);
        break;
    case 4:
        bytes.insert(at, bytes.substr(at, size));
        break;
    case 5:
        bytes.resize(at);
        break;
    case 6:
        bytes += bytes;
        break;
    case 7:
        std::swap(bytes[at], bytes[below(bytes.size())]);
        break;
    default:
        bytes.resize(below(longestNoise));
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(below(256)); });
    }
}

/// As std::uniform_int_distribution, which each library has its own of, would be.
std::size_t Mutator::below(std::size_t limit) {
    return random_() % limit;
}

} // namespace skylet::test
