#include "Protocol.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace skylet::test {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    const auto last = text.find_last_not_of(" \t\r");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

class Http1 final : public Protocol {
  public:
    explicit Http1(Host& host) : host_(host) {}

    void received(std::span<const std::uint8_t> data) override {
        if (exchange_) {
            bodyReceived(data);
            return;
        }
        input_.append(reinterpret_cast<const char*>(data.data()), data.size());
        const auto end = input_.find("\r\n\r\n");
        if (end != std::string::npos) {
            headReceived(input_.substr(0, end));
            const auto rest = std::exchange(input_, {}).substr(end + 4);
            bodyReceived(std::span(reinterpret_cast<const std::uint8_t*>(rest.data()), rest.size()));
        }
    }

    void produce(std::string& out) override {
        if (!exchange_) {
            return;
        }
        if (const Deed deed = exchange_->deed(); deed != Deed::none) {
            carryOut(deed, out);
        } else if (!exchange_->behaviour().raw.empty()) {
            answerRaw(out);
        } else if (exchange_->isUpload()) {
            answerUpload(out);
        } else {
            sendBody(out);
        }
    }

    std::size_t headSize(const std::string& produced) const override {
        const std::string end = "\r\n\r\n";
        return produced.starts_with("HTTP/1.1 ") ? produced.find(end) + end.size() : 0;
    }

  private:
    void headReceived(const std::string& text) {
        std::istringstream lines(text);
        std::string method;
        std::string path;
        std::string line;
        lines >> method >> path;
        std::getline(lines, line);
        std::vector<std::pair<std::string, std::string>> headers;
        expected_ = 0;
        while (std::getline(lines, line)) {
            const auto colon = line.find(':');
            auto name = line.substr(0, colon);
            std::transform(name.begin(), name.end(), name.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
            headers.emplace_back(name, trimmed(line.substr(colon + 1)));
            if (name == "content-length") {
                expected_ = std::stoll(headers.back().second);
            }
        }
        headSent_ = false;
        exchange_ = host_.begin(method, path, std::move(headers));
    }

    void bodyReceived(std::span<const std::uint8_t> data) {
        if (exchange_ && exchange_->isUpload()) {
            exchange_->inspect(data);
            exchange_->move(static_cast<std::int64_t>(data.size()));
            if (exchange_->moved() >= expected_) {
                exchange_->bodyWhole();
            }
        }
    }

    void answerRaw(std::string& out) {
        if (exchange_->isUpload() && !exchange_->isBodyWhole()) {
            return;
        }
        out += exchange_->behaviour().raw;
        if (const Deed then = exchange_->behaviour().then; then != Deed::none && then != Deed::stall) {
            host_.closeLater(then);
        }
        finish();
    }

    void answerUpload(std::string& out) {
        if (!headSent_ && (exchange_->isBodyWhole() || exchange_->isAnswerDue())) {
            sendHead(out, 0);
            if (exchange_->isAnswerDue() && exchange_->behaviour().afterwards == "close") {
                host_.closeLater(Deed::close);
            }
        }
        if (headSent_ && exchange_->isBodyWhole()) {
            finish();
        }
    }

    void sendBody(std::string& out) {
        if (!headSent_) {
            sendHead(out, exchange_->length());
        }
        const auto count =
            std::min({exchange_->length() - exchange_->moved(), exchange_->allowance(Clock::now()), largestPiece});
        out.append(static_cast<std::size_t>(count), '\0');
        exchange_->move(count);
        if (exchange_->isBodyWhole()) {
            finish();
        }
    }

    void sendHead(std::string& out, std::int64_t length) {
        const auto& behaviour = exchange_->behaviour();
        for (int i = 0; i < behaviour.interim; ++i) {
            out += "HTTP/1.1 103 Early Hints\r\nx-number: " + std::to_string(i) + "\r\n\r\n";
        }
        out += "HTTP/1.1 " + std::to_string(exchange_->status()) + " Lab\r\n";
        for (const auto& [name, value] : behaviour.headers) {
            out.append(name).append(": ").append(value).append("\r\n");
        }
        // nor has a 204 one (RFC 9110, 8.6)
        out += exchange_->status() == 204 ? "" : "content-length: " + std::to_string(length) + "\r\n";
        out += "\r\n";
        headSent_ = true;
        exchange_->headSent();
    }

    void carryOut(Deed deed, std::string& out) {
        if (deed == Deed::garbage) {
            out += garbage;
            host_.closeLater(Deed::close);
        } else if (deed == Deed::flood) {
            out += headSent_ ? "" : "HTTP/1.1 200 Lab\r\n";
            headSent_ = true;
            out += "x-flood: " + floodValue + "\r\n";
        } else if (deed != Deed::stall && deed != Deed::pings) {
            host_.closeLater(deed == Deed::cancel ? Deed::close : deed);
        }
    }

    void finish() {
        host_.end(exchange_);
        exchange_.reset();
    }

    Host& host_;
    std::string input_;
    std::shared_ptr<Exchange> exchange_;
    std::int64_t expected_ = 0;
    bool headSent_ = false;
};

} // namespace

std::unique_ptr<Protocol> makeHttp1(Host& host) {
    return std::make_unique<Http1>(host);
}

} // namespace skylet::test
